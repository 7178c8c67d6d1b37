"""Energy by wavenumber, from the spectrum of the vorticity."""

from __future__ import annotations

import array
import math
from typing import Any

from ._numpy import numpy


def radial_spectrum(spectrum: Any) -> Any:
    """The energy by wavenumber, in shells of width 1 around |k| = 0, 1, 2, ...

    ``spectrum`` holds the coefficients ω̂(k) as ``Engine.spectrum`` returns them. The energy of
    shell s is

        E(s) = ½ Σ |ω̂(k)|² / |k|²   over the k with floor(|k| + ½) = s, k ≠ 0,

    so that all shells together have the energy of the flow. The result has one number for each
    shell up to N/√2, in the corners of the square of wavenumbers: a float64 NumPy array, or an
    ``array.array('d')`` without NumPy.
    """
    np = numpy()
    if np is not None and isinstance(spectrum, np.ndarray):
        return _with_numpy(np, spectrum)
    return _without_numpy(spectrum)


def _with_numpy(np: Any, spectrum: Any) -> Any:
    size = spectrum.shape[0]
    wavenumber = np.rint(np.fft.fftfreq(size) * size)
    squared = wavenumber[:, None] ** 2 + wavenumber[None, :] ** 2
    power = spectrum.real.astype(np.float64) ** 2 + spectrum.imag.astype(np.float64) ** 2
    shell = np.floor(np.sqrt(squared) + 0.5).astype(np.intp)
    squared[0, 0] = 1.0
    energy = 0.5 * power / squared
    energy[0, 0] = 0.0
    return np.bincount(shell.ravel(), weights=energy.ravel())


def _without_numpy(spectrum: Any) -> Any:
    size = math.isqrt(len(spectrum) // 2)
    folded = [k if k < size - size // 2 else k - size for k in range(size)]
    corner = max(abs(k) for k in folded) * math.sqrt(2.0)
    shells = array.array("d", bytes(8 * (math.floor(corner + 0.5) + 1)))
    for j, ky in enumerate(folded):
        row = spectrum[2 * j * size : 2 * (j + 1) * size]
        for kx, re, im in zip(folded, row[0::2], row[1::2]):
            squared = kx * kx + ky * ky
            if squared:
                shells[math.floor(math.sqrt(squared) + 0.5)] += 0.5 * (re * re + im * im) / squared
    return shells
