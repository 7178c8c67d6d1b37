"""A small reader of 8-bit PNG files with alpha (Portable Network Graphics, third edition, W3C) that
checks what it reads."""

from __future__ import annotations

import os
import struct
import zlib
from pathlib import Path
from typing import Any

import numpy as np

CHANNELS = 4
UP = 2


def read_png(path: str | os.PathLike[str]) -> Any:
    """The pixels as an array: rows from the top, columns, and red, green, blue, alpha."""
    chunks = _chunks(Path(path).read_bytes())
    header = struct.unpack(">IIBBBBB", chunks["IHDR"])
    width, height = header[:2]
    assert header[2:] == (8, 6, 0, 0, 0), "8-bit truecolour with alpha, not interlaced"
    data = np.frombuffer(zlib.decompress(chunks["IDAT"]), np.uint8)
    lines = data.reshape(height, 1 + CHANNELS * width)
    kinds, rows = lines[:, 0], lines[:, 1:]
    pixels = np.empty_like(rows)
    above = np.zeros_like(rows[0])
    for k, (kind, row) in enumerate(zip(kinds.tolist(), rows)):
        pixels[k] = row + above if kind == UP else _unfiltered(kind, row, above)
        above = pixels[k]
    return pixels.reshape(height, width, CHANNELS)


def _chunks(data: bytes) -> dict[str, bytes]:
    """The file's chunks by name, those of the same name joined."""
    assert data[:8] == b"\x89PNG\r\n\x1a\n"
    chunks: dict[str, list[bytes]] = {}
    at, name = 8, ""
    while at < len(data):
        (size,) = struct.unpack_from(">I", data, at)
        body = data[at + 4 : at + 8 + size]
        assert struct.unpack_from(">I", data, at + 8 + size) == (zlib.crc32(body),)
        name = body[:4].decode("ascii")
        chunks.setdefault(name, []).append(body[4:])
        at += 12 + size
    assert name == "IEND"
    return {name: b"".join(parts) for name, parts in chunks.items()}


def _unfiltered(kind: int, row: Any, above: Any) -> list[int]:
    result: list[int] = []
    upper = above.tolist()
    for i, value in enumerate(row.tolist()):
        left = result[i - CHANNELS] if i >= CHANNELS else 0
        corner = upper[i - CHANNELS] if i >= CHANNELS else 0
        predicted = (0, left, upper[i], (left + upper[i]) // 2, _paeth(left, upper[i], corner))
        result.append((value + predicted[kind]) & 0xFF)
    return result


def _paeth(left: int, above: int, corner: int) -> int:
    estimate = left + above - corner
    return min((left, above, corner), key=lambda value: abs(estimate - value))
