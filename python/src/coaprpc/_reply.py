"""What a server has answered."""

from __future__ import annotations

import json
from dataclasses import dataclass
from typing import Any


@dataclass(frozen=True, slots=True)
class Reply:
    """What a server has answered."""

    code: int
    """class x 100 + detail: 205 is 2.05"""
    payload: bytes
    content_format: int | None
    etag: bytes | None
    max_age: int
    """seconds for which the answer is fresh"""
    location_path: str | None
    rtt: float
    """seconds from the request to the answer; 0 for a notification"""

    @property
    def text(self) -> str:
        """The payload as UTF-8; UnicodeDecodeError if it is not."""
        return self.payload.decode()

    def json(self) -> Any:
        """The payload as JSON; ValueError if it is not."""
        return json.loads(self.payload)

    @property
    def dotted(self) -> str:
        return f"{self.code // 100}.{self.code % 100:02}"
