"""The start field of a flow on its way to the library: an array, a raw file or a NumPy file."""

from __future__ import annotations

import array
import math
import os
import tempfile
from collections.abc import Mapping
from pathlib import Path
from typing import Any

from ._numpy import numpy
from .errors import InvalidValueError, ZephaneError
from .fields import FLOAT_BYTES, write_floats
from .outputs import NUMPY_ENDING


class StartField:
    """Gives the part of a request that names the start field of an N x N flow.

    Samples that are not in a raw file are written to a temporary one, which is deleted at the end
    of the ``with`` block. Raises ``InvalidValueError`` for samples that start no flow, and
    ``ZephaneError`` for a file that cannot be read.
    """

    def __init__(self, initial: Any, resolution: int) -> None:
        self._initial = initial
        self._resolution = resolution
        self._folder: tempfile.TemporaryDirectory[str] | None = None

    def __enter__(self) -> Mapping[str, str]:
        if self._initial is None:
            return {}
        samples = self._initial
        if isinstance(samples, (str, os.PathLike)):
            path = os.fspath(samples)
            if not path:
                raise InvalidValueError("initial is an empty path: a file, or None for no file")
            if not path.endswith(NUMPY_ENDING):
                _check_file(path, self._resolution)
                return {"initial": path}
            samples = _load(path)
        samples = _checked(samples, self._resolution)
        self._folder = tempfile.TemporaryDirectory(prefix="zephane-")
        path = os.path.join(self._folder.name, "initial")
        try:
            write_floats(path, samples)
        except OSError as failure:
            self._folder.cleanup()
            raise ZephaneError(f"Cannot write {path}: {failure.strerror}") from failure
        return {"initial": path}

    def __exit__(self, *_: object) -> None:
        if self._folder is not None:
            self._folder.cleanup()


def _check_file(path: str, resolution: int) -> None:
    try:
        with open(path, "rb"):
            size = Path(path).stat().st_size
    except OSError as failure:
        raise ZephaneError(f"Cannot read {path}: {failure.strerror}") from failure
    wanted = FLOAT_BYTES * resolution**2
    if size == wanted:
        return
    side = math.isqrt(size // FLOAT_BYTES)
    holds = f", a grid of {side} x {side}" if side and FLOAT_BYTES * side**2 == size else ""
    raise InvalidValueError(
        f"{path} has {size} bytes{holds}: a start field of {resolution} x {resolution} float32 "
        f"numbers has {wanted}"
    )


def _load(path: str) -> Any:
    np = numpy()
    if np is None:
        raise ZephaneError(f"Reading {path} needs NumPy; a raw file of float32 numbers does not.")
    try:
        return np.load(path, allow_pickle=False)
    except OSError as failure:
        raise ZephaneError(f"Cannot read {path}: {failure.strerror or failure}") from failure
    except ValueError as failure:
        raise InvalidValueError(f"{path} is no NumPy file of numbers: {failure}") from failure


def _checked(samples: Any, resolution: int) -> Any:
    np = numpy()
    if np is None:
        return _checked_plain(samples, resolution)
    return _checked_array(np, samples, resolution)


def _checked_array(np: Any, samples: Any, resolution: int) -> Any:
    wanted = f"{resolution} x {resolution} real numbers, row y and column x"
    try:
        values = np.asarray(samples)
    except ValueError as failure:
        raise InvalidValueError(f"initial is no array: {wanted}") from failure
    if values.dtype.kind == "c":
        raise InvalidValueError(
            f"initial is complex: {wanted}. A spectrum becomes the vorticity by "
            "numpy.fft.ifft2(spectrum).real * N**2."
        )
    if values.dtype.kind not in "fiub":
        raise InvalidValueError(f"initial holds no numbers ({values.dtype}): {wanted}")
    if values.shape not in ((resolution, resolution), (resolution**2,)):
        shape = " x ".join(map(str, values.shape)) or "a single number"
        raise InvalidValueError(f"initial is {shape}: {wanted}")
    with np.errstate(over="ignore"):
        values = values.astype("<f4")
    _refuse_infinite(int(values.size - np.isfinite(values).sum()))
    return values


def _checked_plain(samples: Any, resolution: int) -> Any:
    wanted = f"{resolution} x {resolution} real numbers, row y after row, column x"
    try:
        values = array.array("f", samples)
    except (TypeError, OverflowError) as failure:
        raise InvalidValueError(f"initial is no flat sequence of numbers: {wanted}") from failure
    if len(values) != resolution**2:
        raise InvalidValueError(f"initial has {len(values)} numbers: {wanted}")
    _refuse_infinite(sum(1 for value in values if not math.isfinite(value)))
    return values


def _refuse_infinite(count: int) -> None:
    if count:
        verb = "number that is" if count == 1 else "numbers that are"
        raise InvalidValueError(f"initial has {count} {verb} infinite, or NaN, in single precision")
