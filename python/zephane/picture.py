"""Pictures of a flow: scalars of its fields, made colours.

Three displays (the vorticity with its sign, the speed, the enstrophy), four palettes, and for the
vorticity two ranges: "sigma" is linear up to a multiple of the standard deviation, "exposure" is
compressive up to the largest value. The field is sampled bilinearly and wraps at its edges, and
row 0 of the grid lies at the bottom of the picture.
"""

from __future__ import annotations

import array
import math
from collections.abc import Sequence
from dataclasses import dataclass
from typing import Any, Callable

from ._numpy import numpy
from .colors import color_table
from .fields import Fields
from .records import COLOR_RANGES, DISPLAYS, PALETTES, Snapshot

LARGEST_SIDE = 8192

EXPOSURE_LIMITS = (0.25, 3.0)
SIGMA_LIMITS = (1.5, 3.5)

# Steps of the colour table over the scale: far finer than the 8-bit colours.
TABLE_STEPS = 8192

# Pixels drawn at once with NumPy, so that their intermediate arrays stay in the caches.
BAND_PIXELS = 1 << 16


@dataclass(frozen=True)
class PictureSettings:
    """The choice of picture. Names are checked; numbers out of range are brought into it."""

    display: str = "vorticity"
    """One of ``DISPLAYS``."""
    palette: str = "ember"
    """One of ``PALETTES``."""
    color_range: str = "sigma"
    """One of ``COLOR_RANGES``; matters to the vorticity only."""
    exposure: float = 1.2
    """Gain of the compressive curves, 0.25 to 3."""
    sigma: float = 2.5
    """Multiple of the standard deviation that fills the "sigma" range, 1.5 to 3.5."""

    def __post_init__(self) -> None:
        for key, names in (
            ("display", DISPLAYS),
            ("palette", PALETTES),
            ("color_range", COLOR_RANGES),
        ):
            if getattr(self, key) not in names:
                raise ValueError(f"Unknown {key}: {getattr(self, key)}")
        for key, (low, high) in (("exposure", EXPOSURE_LIMITS), ("sigma", SIGMA_LIMITS)):
            value = float(getattr(self, key))
            if not math.isfinite(value):
                raise ValueError(f"Non-finite {key}")
            object.__setattr__(self, key, min(max(value, low), high))

    @property
    def signed(self) -> bool:
        """Whether the scale runs from -1 to 1, and not from 0."""
        return self.display == "vorticity"

    @property
    def linear(self) -> bool:
        return self.signed and self.color_range == "sigma"

    @property
    def needs_velocity(self) -> bool:
        return self.display == "speed"


def render(
    fields: Fields, settings: PictureSettings = PictureSettings(), pixels: int = 1800
) -> bytes:
    """The square picture: ``pixels`` rows of 8-bit red, green, blue, top row first."""
    if not 1 <= pixels <= LARGEST_SIDE:
        raise ValueError(f"PNG size must be 1 through {LARGEST_SIDE}.")
    if isinstance(fields.data, array.array):
        return _draw_rows(fields, settings, pixels)
    return _draw_bands(numpy(), fields, settings, pixels)


def _vorticity_scale(snapshot: Snapshot, settings: PictureSettings) -> float:
    if settings.linear:
        return max(snapshot.std_vorticity * settings.sigma, 1e-12)
    return max(snapshot.max_vorticity, 1e-4)


def _planes(settings: PictureSettings) -> Sequence[int]:
    return (1, 2) if settings.needs_velocity else (0,)


def _scalar(snapshot: Snapshot, settings: PictureSettings) -> Callable[..., float]:
    """From the samples of one pixel to its place on the scale."""
    gain = settings.exposure
    if settings.display == "speed":
        speed = -2.1 * gain / max(snapshot.max_speed, 1e-4)
        return lambda u, v: 1.0 - math.exp(speed * math.sqrt(u * u + v * v))
    inverse = 1.0 / _vorticity_scale(snapshot, settings)
    if settings.display == "enstrophy":
        return lambda w: 1.0 - math.exp(-8.0 * gain * (w * inverse) ** 2)
    if settings.linear:
        mean = snapshot.mean_vorticity
        return lambda w: min(max((w - mean) * inverse, -1.0), 1.0)
    return lambda w: math.tanh(2.4 * gain * inverse * w)


def _scalars(np: Any, snapshot: Snapshot, settings: PictureSettings) -> Callable[..., Any]:
    """The same for arrays of pixels, in single precision."""
    gain = settings.exposure
    if settings.display == "speed":
        speed = np.float32(-2.1 * gain / max(snapshot.max_speed, 1e-4))
        return lambda u, v: 1.0 - np.exp(speed * np.sqrt(u * u + v * v))
    scale = np.float32(_vorticity_scale(snapshot, settings))
    if settings.display == "enstrophy":
        return lambda w: 1.0 - np.exp(np.float32(-8.0 * gain) * np.square(w / scale))
    if settings.linear:
        mean = np.float32(snapshot.mean_vorticity)
        return lambda w: np.clip((w - mean) / scale, -1.0, 1.0)
    return lambda w: np.tanh(np.float32(2.4 * gain) * (w / scale))


def _place(pixel: int, pixels: int, size: int) -> tuple[int, int, float]:
    """The grid points on both sides of a pixel's centre, and how far it is past the first."""
    x = (pixel + 0.5) / pixels * size
    i = int(x)
    return i, (i + 1) % size, x - i


def _draw_rows(fields: Fields, settings: PictureSettings, pixels: int) -> bytes:
    """Row by row in plain Python."""
    size = fields.snapshot.grid_size
    low = -1.0 if settings.signed else 0.0
    steps = TABLE_STEPS / (1.0 - low)
    table = color_table(settings.palette, settings.signed, TABLE_STEPS)
    scalar = _scalar(fields.snapshot, settings)
    columns = [_place(pixel, pixels, size) for pixel in range(pixels)]
    values = memoryview(fields.data)

    def sampled(plane: int, j: int, j1: int, s: float) -> list[float]:
        start = plane * size * size
        below = values[start + j * size : start + (j + 1) * size]
        above = values[start + j1 * size : start + (j1 + 1) * size]
        line = [a + (b - a) * s for a, b in zip(below, above)]
        return [line[i] + (line[i1] - line[i]) * s for i, i1, s in columns]

    def row(pixel: int) -> bytes:
        lines = [sampled(plane, *_place(pixel, pixels, size)) for plane in _planes(settings)]
        return b"".join([table[int((t - low) * steps + 0.5)] for t in map(scalar, *lines)])

    return b"".join([row(pixel) for pixel in reversed(range(pixels))])


def _draw_bands(np: Any, fields: Fields, settings: PictureSettings, pixels: int) -> bytes:
    """A band of rows at a time with NumPy."""
    size = fields.snapshot.grid_size
    low = np.float32(-1.0 if settings.signed else 0.0)
    steps = np.float32(TABLE_STEPS) / (1 - low)
    colors = color_table(settings.palette, settings.signed, TABLE_STEPS)
    table = np.frombuffer(b"".join(colors), np.uint8).reshape(-1, 3)
    scalars = _scalars(np, fields.snapshot, settings)
    places = (np.arange(pixels) + 0.5) / pixels * size
    first = places.astype(np.intp)
    second = (first + 1) % size
    past = (places - first).astype(np.float32)

    def sampled(plane: Any, rows: Any) -> Any:
        below = plane[first[rows]]
        line = below + (plane[second[rows]] - below) * past[rows, None]
        left = line.take(first, axis=1)
        return left + (line.take(second, axis=1) - left) * past

    picture = np.empty((pixels, pixels, 3), np.uint8)
    band = max(1, BAND_PIXELS // pixels)
    for top in range(0, pixels, band):
        bottom = min(top + band, pixels)
        rows = np.arange(pixels - 1 - top, pixels - 1 - bottom, -1)
        t = scalars(*[sampled(fields.data[plane], rows) for plane in _planes(settings)])
        index = ((t - low) * steps + np.float32(0.5)).astype(np.intp)
        table.take(index, axis=0, out=picture[top:bottom])
    return bytes(picture.tobytes())
