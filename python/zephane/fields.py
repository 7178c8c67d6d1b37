"""Raw files of float32 numbers, and the three planes of a flow."""

from __future__ import annotations

import array
import os
from collections.abc import Iterator
from dataclasses import dataclass
from pathlib import Path
from typing import Any

from ._numpy import numpy
from .errors import ZephaneError
from .notebook_pages import POINTS, fields_page
from .outputs import PathLike
from .records import LIVE_PICTURE, Snapshot
from .shading import picture_png

FLOAT_BYTES = 4


def read_floats(path: PathLike) -> Any:
    """Read a raw file into a flat float32 NumPy array, or an ``array.array('f')`` without NumPy."""
    np = numpy()
    if np is not None:
        return np.fromfile(path, dtype="<f4")
    values = array.array("f")
    with open(path, "rb") as file:
        values.fromfile(file, os.path.getsize(path) // FLOAT_BYTES)
    return values


def write_floats(path: PathLike, samples: Any) -> None:
    """Write numbers to a raw file as little-endian float32, row after row."""
    np = numpy()
    if np is not None:
        np.ascontiguousarray(samples, dtype="<f4").tofile(path)
    else:
        Path(path).write_bytes(array.array("f", samples).tobytes())


@dataclass(frozen=True)
class Fields:
    """Vorticity and velocity on the grid, three planes of float32: ``vorticity, u, v = fields``.

    Each is a NumPy array of shape (N, N), or without NumPy a flat ``array.array('f')`` of N²
    numbers. Element [j, i] is the value at x = 2 pi i/N, y = 2 pi j/N.
    """

    data: Any
    """All three in one array of shape (3, N, N), or 3·N² numbers without NumPy."""
    snapshot: Snapshot
    """Time and moments of these fields."""
    has_velocity: bool = True
    """Whether u and v were read. Where not, they raise ``ZephaneError``, and their planes of
    ``data`` are zero.
    """

    @property
    def vorticity(self) -> Any:
        """dv/dx - du/dy, positive where the fluid turns to the left."""
        return self._plane(0)

    @property
    def u(self) -> Any:
        """The velocity along x."""
        return self._velocity(1)

    @property
    def v(self) -> Any:
        """The velocity along y."""
        return self._velocity(2)

    def __iter__(self) -> Iterator[Any]:
        return iter((self.vorticity, self.u, self.v))

    def _repr_html_(self) -> str:
        return fields_page(self.snapshot, self.has_velocity, self._repr_png_())

    def _repr_png_(self) -> bytes | None:
        """A picture of the vorticity, or None without NumPy."""
        if isinstance(self.data, array.array):
            return None
        every = -(-self.snapshot.grid_size // POINTS)
        return picture_png(LIVE_PICTURE, self.vorticity[::every, ::every])

    def _velocity(self, index: int) -> Any:
        if not self.has_velocity:
            raise ZephaneError("These fields were read without their velocity.")
        return self._plane(index)

    def _plane(self, index: int) -> Any:
        if not isinstance(self.data, array.array):
            return self.data[index]
        size = self.snapshot.grid_size**2
        return self.data[index * size : (index + 1) * size]
