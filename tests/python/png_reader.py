"""A small reader of 8-bit truecolour PNG files that checks what it reads."""

from __future__ import annotations

import struct
import zlib
from pathlib import Path

Picture = tuple[int, int, list[bytes]]


def read_png(path: Path) -> Picture:
    """Width, height and the rows of red, green, blue bytes, top row first."""
    chunks = _chunks(path.read_bytes())
    header = struct.unpack(">IIBBBBB", chunks["IHDR"])
    width, height = header[:2]
    assert header[2:] == (8, 2, 0, 0, 0), "8-bit truecolour, not interlaced"
    data = zlib.decompress(chunks["IDAT"])
    stride = 3 * width
    assert len(data) == height * (stride + 1)
    rows: list[bytes] = []
    above = bytes(stride)
    for start in range(0, len(data), stride + 1):
        above = _unfiltered(data[start], data[start + 1 : start + 1 + stride], above)
        rows.append(above)
    return width, height, rows


def _chunks(data: bytes) -> dict[str, bytes]:
    """The file's chunks by name, those of the same name joined."""
    assert data[:8] == b"\x89PNG\r\n\x1a\n"
    chunks: dict[str, bytes] = {}
    at = 8
    while at < len(data):
        (size,) = struct.unpack_from(">I", data, at)
        body = data[at + 4 : at + 8 + size]
        assert struct.unpack_from(">I", data, at + 8 + size) == (zlib.crc32(body),)
        name = body[:4].decode("ascii")
        chunks[name] = chunks.get(name, b"") + body[4:]
        at += 12 + size
    assert name == "IEND"
    return chunks


def _unfiltered(kind: int, row: bytes, above: bytes) -> bytes:
    result = bytearray(row)
    for i, value in enumerate(row):
        left = result[i - 3] if i >= 3 else 0
        corner = above[i - 3] if i >= 3 else 0
        predicted = (0, left, above[i], (left + above[i]) // 2, _paeth(left, above[i], corner))
        result[i] = (value + predicted[kind]) & 0xFF
    return bytes(result)


def _paeth(left: int, above: int, corner: int) -> int:
    estimate = left + above - corner
    return min((left, above, corner), key=lambda value: abs(estimate - value))
