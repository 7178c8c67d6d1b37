"""Raw files of single-precision numbers, and the three planes of a flow that come in one."""

from __future__ import annotations

import array
import os
from collections.abc import Iterator
from dataclasses import dataclass
from pathlib import Path
from typing import Any, Union

from ._numpy import numpy
from .records import Snapshot

FLOAT_BYTES = 4

PathLike = Union[str, "os.PathLike[str]"]


def read_floats(path: PathLike) -> Any:
    """All of a raw file: a flat float32 NumPy array, or an ``array.array('f')`` without NumPy."""
    np = numpy()
    if np is not None:
        return np.fromfile(path, dtype="<f4")
    values = array.array("f")
    with open(path, "rb") as file:
        values.fromfile(file, os.path.getsize(path) // FLOAT_BYTES)
    return values


def write_floats(path: PathLike, samples: Any) -> None:
    """Any array of numbers as a raw file, in its own order."""
    np = numpy()
    if np is not None:
        np.ascontiguousarray(samples, dtype="<f4").tofile(path)
    else:
        Path(path).write_bytes(array.array("f", samples).tobytes())


@dataclass(frozen=True)
class Fields:
    """Vorticity and velocity on the grid: row y, column x; row 0 lies at y = 0.

    ``data`` is a float32 NumPy array of shape (3, N, N), or a flat ``array.array('f')`` of 3·N²
    numbers without NumPy. The planes have the same form without the leading 3, and come in order
    from ``vorticity, u, v = fields``.
    """

    data: Any
    snapshot: Snapshot

    @property
    def vorticity(self) -> Any:
        return self._plane(0)

    @property
    def u(self) -> Any:
        """Velocity along x, the columns."""
        return self._plane(1)

    @property
    def v(self) -> Any:
        """Velocity along y, the rows."""
        return self._plane(2)

    def __iter__(self) -> Iterator[Any]:
        return iter((self.vorticity, self.u, self.v))

    def _plane(self, index: int) -> Any:
        if not isinstance(self.data, array.array):
            return self.data[index]
        size = self.snapshot.grid_size**2
        return self.data[index * size : (index + 1) * size]
