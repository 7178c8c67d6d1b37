"""The flow that everybody computes, as it is handed to a process that computes it.

Numbers of a flow pass between processes as the Fourier coefficients of the vorticity,
w(x, y) = sum of w^ exp(i (kx x + ky y)), on the square of side 2 pi: an array of N rows, ky in the
order of the FFT, and N/2 columns, kx from 0. The row ky = -N/2 is zero.
"""

from __future__ import annotations

import dataclasses
from typing import Any

import numpy as np


@dataclasses.dataclass(frozen=True)
class Problem:
    resolution: int
    viscosity: float
    dt: float
    # The file that holds the coefficients of the start.
    start: str
    # What the flow's module understands beside that.
    options: dict[str, Any] = dataclasses.field(default_factory=dict)

    @staticmethod
    def from_json(members: dict[str, Any]) -> Problem:
        return Problem(**members)

    def to_json(self) -> dict[str, Any]:
        return dataclasses.asdict(self)

    @property
    def padded(self) -> int:
        """Points in each direction at which quadratic products do not fold onto kept modes."""
        return 3 * self.resolution // 2

    def coefficients(self) -> np.ndarray:
        return np.load(self.start)  # type: ignore[no-any-return]


def half_spectrum(coefficients: np.ndarray, points: int) -> np.ndarray:
    """The coefficients in the layout of a real transform over ``points`` in each direction."""
    n, h = coefficients.shape
    spectrum = np.zeros((points, points // 2 + 1), np.complex128)
    spectrum[:h, :h] = coefficients[:h]
    spectrum[points - h + 1 :, :h] = coefficients[h + 1 : n]
    return spectrum


def from_half_spectrum(spectrum: np.ndarray, resolution: int) -> np.ndarray:
    """The coefficients with |kx|, |ky| < N/2; a mode that ``spectrum`` does not have is zero."""
    h = resolution // 2
    kept = min(h, spectrum.shape[0] // 2)
    coefficients = np.zeros((resolution, h), np.complex128)
    coefficients[:kept, :kept] = spectrum[:kept, :kept]
    coefficients[resolution - kept + 1 :, :kept] = spectrum[spectrum.shape[0] - kept + 1 :, :kept]
    return coefficients


def on_grid(coefficients: np.ndarray, points: int) -> np.ndarray:
    """The vorticity at the points, row y, column x."""
    spectrum = half_spectrum(coefficients, points)
    return np.fft.irfft2(spectrum, s=(points, points), norm="forward")


def from_grid(vorticity: np.ndarray, resolution: int) -> np.ndarray:
    return from_half_spectrum(np.fft.rfft2(vorticity, norm="forward"), resolution)


def difference(ours: np.ndarray, theirs: np.ndarray) -> float:
    """Root-mean-square difference over the root mean square; not a number counts as infinite.

    A column kx > 0 stands for the column -kx too.
    """
    weight = np.full(ours.shape[1], np.sqrt(2.0))
    weight[0] = 1.0
    with np.errstate(over="ignore", invalid="ignore"):
        apart = np.linalg.norm((ours.astype(np.complex128) - theirs) * weight)
        found = float(apart / np.linalg.norm(ours.astype(np.complex128) * weight))
    return found if found == found else float("inf")
