"""PNG files of 8-bit red, green, blue pixels (Portable Network Graphics, third edition, W3C)."""

from __future__ import annotations

import os
import struct
import zlib
from collections.abc import Iterator

SIGNATURE = b"\x89PNG\r\n\x1a\n"
TRUECOLOR = 2
PERCEPTUAL = 0
SAMPLES = 3
UP = b"\x02"


def write_png(path: str | os.PathLike[str], width: int, height: int, pixels: bytes) -> None:
    """Write ``height`` rows of ``width`` sRGB pixels, top row first."""
    if len(pixels) != width * height * SAMPLES:
        raise ValueError("The pixels do not fill the picture.")
    header = struct.pack(">IIBBBBB", width, height, 8, TRUECOLOR, 0, 0, 0)
    with open(path, "wb") as file:
        file.write(SIGNATURE)
        file.write(_chunk(b"IHDR", header))
        file.write(_chunk(b"sRGB", bytes([PERCEPTUAL])))
        packer = zlib.compressobj(6)
        for row in _filtered(width, pixels):
            packed = packer.compress(row)
            if packed:
                file.write(_chunk(b"IDAT", packed))
        file.write(_chunk(b"IDAT", packer.flush()))
        file.write(_chunk(b"IEND", b""))


def _chunk(kind: bytes, data: bytes) -> bytes:
    return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data))


def _filtered(width: int, pixels: bytes) -> Iterator[bytes]:
    """Each row less the one above it, byte by byte: smooth pictures pack to a fraction."""
    stride = width * SAMPLES
    highs = int.from_bytes(b"\x80" * stride, "little")
    lows = int.from_bytes(b"\x7f" * stride, "little")
    above = 0
    for start in range(0, len(pixels), stride):
        row = int.from_bytes(pixels[start : start + stride], "little")
        # A whole row in one subtraction: the high bits, set aside, keep each byte's borrow in it.
        less = ((row | highs) - (above & lows)) ^ ((row ^ ~above) & highs)
        yield UP + less.to_bytes(stride, "little")
        above = row
