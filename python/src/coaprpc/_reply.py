"""What a server has answered."""

from __future__ import annotations

from dataclasses import dataclass

from ._payload import Payload


@dataclass(frozen=True, slots=True)
class Reply(Payload):
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
    def dotted(self) -> str:
        return f"{self.code // 100}.{self.code % 100:02}"
