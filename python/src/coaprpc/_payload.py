"""Payloads: as bytes, as text and as JSON."""

from __future__ import annotations

import json
from typing import Any


class Payload:
    """What requests and replies have in common: ``payload``."""

    __slots__ = ()
    payload: bytes

    @property
    def text(self) -> str:
        """The payload as UTF-8; UnicodeDecodeError if it is not."""
        return self.payload.decode()

    def json(self) -> Any:
        """The payload as JSON; ValueError if it is not."""
        return json.loads(self.payload)
