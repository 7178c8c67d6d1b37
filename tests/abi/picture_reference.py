"""Pictures computed independently in double precision from the exported planes and the snapshot's
report, for comparison with the library's pictures."""

from __future__ import annotations

from dataclasses import dataclass
from pathlib import Path
from typing import Any

import numpy as np
from png_reader import read_png

DISPLAYS = ("vorticity", "speed", "enstrophy")
PALETTES = ("aurora", "ember", "glacier", "inferno")
COLOR_RANGES = ("sigma", "exposure")

# Base, middle and highlight of a ramp: of the unsigned displays, of the vorticity at or above
# zero, and of the vorticity below it.
UNSIGNED, POSITIVE, NEGATIVE = range(3)
BASES = ((0.019, 0.028, 0.063), (0.017, 0.026, 0.055), (0.017, 0.026, 0.055))
RAMPS = {
    "aurora": (
        ((0.30, 0.17, 0.63), (0.36, 1.0, 0.80)),
        ((0.025, 0.60, 0.58), (0.48, 1.0, 0.84)),
        ((0.48, 0.20, 0.79), (0.94, 0.67, 1.0)),
    ),
    "ember": (
        ((0.67, 0.10, 0.17), (1.0, 0.86, 0.41)),
        ((0.92, 0.19, 0.065), (1.0, 0.88, 0.43)),
        ((0.28, 0.17, 0.69), (0.76, 0.64, 1.0)),
    ),
    "glacier": (
        ((0.02, 0.33, 0.72), (0.73, 0.97, 1.0)),
        ((0.01, 0.46, 0.78), (0.70, 1.0, 0.99)),
        ((0.14, 0.24, 0.68), (0.70, 0.79, 1.0)),
    ),
}
INFERNO = np.array(
    [
        (0.001, 0.0, 0.014),
        (0.258, 0.039, 0.406),
        (0.578, 0.148, 0.404),
        (0.865, 0.317, 0.226),
        (0.988, 0.645, 0.04),
        (0.988, 0.998, 0.645),
    ]
)

FLOW_COLOR = np.array([0.76, 0.93, 1.0])


@dataclass(frozen=True)
class Settings:
    """The picture settings of a request, with their defaults."""

    display: str = "vorticity"
    palette: str = "ember"
    color_range: str = "sigma"
    exposure: float = 1.2
    sigma: float = 2.5


@dataclass(frozen=True)
class Scene:
    """A moment of a flow: its planes, vorticity, u and v, and the report of their snapshot."""

    planes: Any
    report: dict[str, Any]

    @classmethod
    def of(cls, engine: Any, folder: Path) -> Scene:
        path = folder / "planes"
        report = engine.export(fields=str(path))
        size = report["grid_size"]
        planes = np.fromfile(path, "<f4").reshape(3, size, size).astype(np.float64)
        return cls(planes, report)

    def picture(self, settings: Settings, pixels: int, every: int = 1) -> Any:
        """Red, green and blue from 0 to 1 at the centres of the pixels, rows from the top; of
        every so many rows and columns only."""
        place = (np.arange(0, pixels, every) + 0.5) / pixels
        across, up = np.meshgrid(place, 1.0 - place)
        t = self._scalar(settings, *(sampled(plane, across, up) for plane in self.planes))
        if settings.palette == "inferno":
            return _inferno(0.5 * t + 0.5 if settings.display == "vorticity" else t)
        if settings.display != "vorticity":
            return _ramp(settings.palette, UNSIGNED, t, 0.5, 0.32)
        return np.where(
            t[..., None] >= 0.0,
            _ramp(settings.palette, POSITIVE, np.abs(t), 0.6, 0.34),
            _ramp(settings.palette, NEGATIVE, np.abs(t), 0.6, 0.34),
        )

    def _scalar(self, settings: Settings, vorticity: Any, u: Any, v: Any) -> Any:
        report = self.report
        if settings.display == "speed":
            largest = max(report["max_speed"], 1e-4)
            return 1.0 - np.exp(-2.1 * settings.exposure * np.hypot(u, v) / largest)
        largest = max(report["max_vorticity"], 1e-4)
        if settings.display == "enstrophy":
            return 1.0 - np.exp(-8.0 * settings.exposure * (vorticity / largest) ** 2)
        if settings.color_range == "exposure":
            return np.tanh(2.4 * settings.exposure * vorticity / largest)
        scale = max(settings.sigma * report["std_vorticity"], 1e-12)
        return np.clip((vorticity - report["mean_vorticity"]) / scale, -1.0, 1.0)


def sampled(plane: Any, across: Any, up: Any) -> Any:
    """The plane between its points: point (i, j) is at (i/N, j/N), and the plane is periodic."""
    size = len(plane)
    x, y = across * size, up * size
    i, j = np.floor(x).astype(int), np.floor(y).astype(int)
    total = np.zeros_like(x)
    for dj in (0, 1):
        for di in (0, 1):
            weight = (1.0 - np.abs(x - i - di)) * (1.0 - np.abs(y - j - dj))
            total += weight * plane[(j + dj) % size, (i + di) % size]
    return total


def drawn(engine: Any, folder: Path, **request: Any) -> Any:
    """The picture of a request, as levels of red, green, blue and alpha, rows from the top."""
    path = folder / "picture.png"
    engine.export(png=str(path), **request)
    return read_png(path)


def _smooth(x: Any) -> Any:
    return 3.0 * x**2 - 2.0 * x**3


def _ramp(palette: str, side: int, a: Any, rise: float, start: float) -> Any:
    """The middle colour is reached at ``rise``, the highlight sets in at ``start``."""
    middle, highlight = RAMPS[palette][side]
    first = _smooth(np.minimum(a / rise, 1.0))[..., None]
    second = _smooth(np.maximum(a - start, 0.0) / (1.0 - start))[..., None]
    color = np.array(BASES[side]) * (1.0 - first) + np.array(middle) * first
    return color * (1.0 - second) + np.array(highlight) * second


def _inferno(place: Any) -> Any:
    points = np.arange(len(INFERNO))
    channels = [np.interp(5.0 * place, points, INFERNO[:, k]) for k in range(3)]
    return np.stack(channels, axis=-1)
