"""Pictures of a flow from its state, without a window and without Vulkan.

A view draws into a window alone, but saves its state without one, in a few milliseconds. The state
holds the spectrum of the vorticity, and a transform of a part of it gives the picture.
"""

from __future__ import annotations

import contextlib
import json
import os
import shutil
import tempfile
from collections.abc import Callable, Iterator
from dataclasses import dataclass
from typing import Any

from .extras import need
from .records import PictureSettings
from .shading import PURPOSE, picture_png
from .states import LENGTH_BYTES, state_bytes

# In memory, so that a state for each picture does not wear a disk.
MEMORY_FOLDER = "/dev/shm"
COMPLEX_BYTES = 8


@dataclass(frozen=True)
class Spectrum:
    """The Fourier coefficients of a vorticity, ``points`` squared samples of it: row ky from 0 over
    the largest to -1, column kx from 0. Each is N² times the coefficient on N x N points.
    """

    values: Any
    resolution: int


@contextlib.contextmanager
def memory_file(size: int) -> Iterator[str]:
    """The name of a file of so many bytes in a ``with`` block, in memory where there is room."""
    folder = None
    # Files are written beside the one that they replace.
    if os.path.isdir(MEMORY_FOLDER) and shutil.disk_usage(MEMORY_FOLDER).free > 2 * size:
        folder = MEMORY_FOLDER
    with tempfile.TemporaryDirectory(prefix="zephane-", dir=folder) as name:
        yield os.path.join(name, "state")


def spectrum_of(save: Callable[[str], object], resolution: int, points: int) -> Spectrum:
    """The spectrum of a flow whose state ``save`` writes to a file, cut to what ``points`` squared
    samples hold; ``points`` is even.
    """
    with memory_file(state_bytes(resolution)) as path:
        save(path)
        return Spectrum(_read(path, resolution, min(points, resolution)), resolution)


def _read(path: str, resolution: int, points: int) -> Any:
    np = need("numpy", "notebook", PURPOSE)
    with open(path, "rb") as file:
        length = int.from_bytes(file.read(LENGTH_BYTES), "little")
        begin = json.loads(file.read(length))["vorticity_spectrum"]["data_offsets"][0]
    shape = (resolution, resolution // 2 + 1)
    whole = np.memmap(path, "<c8", "r", LENGTH_BYTES + length + begin, shape)
    if points == resolution:
        return np.array(whole)
    half = points // 2  # Its row and column stay empty: -half has no partner +half.
    part = np.zeros((points, half + 1), "c8")
    part[:half, :half] = whole[:half, :half]
    part[half + 1 :, :half] = whole[resolution - half + 1 :, :half]
    return part


def planes_of(spectrum: Spectrum, settings: PictureSettings) -> tuple[Any, Any, Any]:
    """Samples of the vorticity, or of u and v where the settings show the speed."""
    np = need("numpy", "notebook", PURPOSE)
    points = spectrum.values.shape[0]
    scale = (points / spectrum.resolution) ** 2

    def plane(values: Any) -> Any:
        return (np.fft.irfft2(values, (points, points)) * scale).astype("f4")

    if settings.display != "speed":
        return plane(spectrum.values), None, None
    kx = np.arange(points // 2 + 1, dtype="f4")
    ky = np.fft.fftfreq(points, 1.0 / points).astype("f4")[:, None]
    squares = kx * kx + ky * ky
    squares[0, 0] = 1.0
    stream = spectrum.values / squares
    stream[0, 0] = 0.0
    # With the stream function psi, -laplacian(psi) = vorticity: u = d psi/dy, v = -d psi/dx.
    return None, plane(1j * ky * stream), plane(-1j * kx * stream)


def live_png(spectrum: Spectrum, settings: PictureSettings) -> bytes:
    """A PNG file of a flow, row 0 at the bottom."""
    return picture_png(settings, *planes_of(spectrum, settings))
