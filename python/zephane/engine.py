"""A flow without a window: an ``Engine`` is advanced and read on request."""

from __future__ import annotations

import dataclasses
import math
import os
import tempfile
import threading
import weakref
from collections.abc import Mapping
from pathlib import Path
from typing import Any

from ._library import LibraryPath, given, load
from ._numpy import numpy
from .fields import Fields, PathLike, read_floats, write_floats
from .records import Config, Snapshot, Statistics, SystemInfo

COMPLEX_BYTES = 8


def initialize(library: LibraryPath | None = None) -> SystemInfo:
    """Load the library, choose the device, and describe both.

    ``library`` is a path; without it the library is searched for inside the package, in the build
    folders of a checkout and by the system's loader. The environment variable ``ZEPHANE_DEVICE``
    chooses the device by its index. The calling thread becomes the library's main thread, the only
    one that may call this again and that may use views. No other call may run at the same time.

    Raises ``ZephaneError`` if the library is not found or cannot be loaded, if there is no such
    device, and on any thread but the main thread.
    """
    return SystemInfo.from_json(load(library).initialize())


class Engine:
    """One flow on the device that ``initialize`` chose; the first engine initializes if needed.

    It starts from a seeded random field, or from ``initial``: an array of shape (N, N) with the
    vorticity, row y and column x, or the path of a raw file of N² little-endian float32 numbers.
    ``config`` replaces the default configuration, and keyword arguments change single members of
    it: ``Engine(resolution=512, seed=7)``. The flow is periodic on a square of side 2 pi.

    Any thread may use an engine; calls run one after another. Every method raises ``ZephaneError``
    with the library's text when the library refuses the request or the engine is closed. The engine
    stays usable after that.
    """

    def __init__(
        self,
        config: Config | None = None,
        *,
        initial: Any = None,
        library: LibraryPath | None = None,
        **changes: Any,
    ) -> None:
        self._library = load(library)
        defaults = Config.from_json(self._library.description()["defaults"])
        self._config = dataclasses.replace(config or defaults, **changes)
        self._lock = threading.Lock()
        with _InitialFile(initial) as start:
            handle = self._library.create({**self._config.to_json(), **start})
        self._handle: int | None = handle
        self._release = weakref.finalize(self, self._library.destroy, handle)
        # Not at the interpreter's exit, when a thread may still be inside a call on the engine.
        self._release.atexit = False

    @property
    def config(self) -> Config:
        """The configuration of the engine when it was made; ``set`` does not change it."""
        return self._config

    @property
    def closed(self) -> bool:
        """Whether ``close`` was called."""
        return self._handle is None

    def inspect(self) -> Statistics:
        """Compute all figures of the flow at its present time."""
        return Statistics.from_json(self._call("inspect"))

    def advance(self, steps: int = 1, until: float | None = None) -> Statistics:
        """Take ``steps`` steps, or fewer if the flow reaches the time ``until`` before.

        The last step is shortened so that it ends at ``until`` exactly. The energies in the result
        are not computed again: they are those of the last ``inspect`` or ``reset``.
        """
        return Statistics.from_json(self._call("advance", steps=steps, until=until))

    def set(self, reynolds: float | None = None, cfl: float | None = None) -> None:
        """Change the Reynolds number or the Courant number, both above 0, from the next step on."""
        self._call("set", **given(reynolds=reynolds, cfl=cfl))

    def reset(self, initial: Any = None) -> Statistics:
        """Start again at time 0, from the seeded field or from ``initial`` as for a new engine."""
        with _InitialFile(initial) as start:
            return Statistics.from_json(self._call("reset", **start))

    def export(
        self,
        *,
        spectrum: PathLike | None = None,
        fields: PathLike | None = None,
        png: PathLike | None = None,
        snapshot: bool | None = None,
        include_velocity: bool | None = None,
        pixel_size: int | None = None,
        display: str | None = None,
        palette: str | None = None,
        color_range: str | None = None,
        exposure: float | None = None,
        sigma: float | None = None,
        flow: bool | None = None,
    ) -> Snapshot | None:
        """Write files, and return the snapshot that they show, or None if none was taken.

        ``spectrum`` is the path of a raw file of N² complex64 numbers, laid out as ``spectrum()``
        returns them, and ``fields`` of one of 3·N² float32 numbers: vorticity, u and v. ``png`` is
        the path of a square picture of ``pixel_size`` pixels a side, 1 to 8192; the arguments after
        it are those of ``PictureSettings``. Drawing needs a Vulkan driver. ``snapshot`` takes a
        snapshot even if no file needs one. Without ``include_velocity`` the velocity counts as
        zero: pictures of the speed are dark, and there are no flow lines. Arguments that are None
        have the library's defaults.
        """
        report = self._call(
            "export",
            **given(
                spectrum=spectrum,
                fields=fields,
                png=png,
                snapshot=snapshot,
                include_velocity=include_velocity,
                pixel_size=pixel_size,
                display=display,
                palette=palette,
                color_range=color_range,
                exposure=exposure,
                sigma=sigma,
                flow=flow,
            ),
        )
        return Snapshot.from_json(report) if report else None

    def spectrum(self) -> Any:
        """The Fourier coefficients of the vorticity: row ky, column kx, both in FFT order.

        They are normalized so that half the sum of their squared magnitudes is the enstrophy. The
        result is a complex64 NumPy array of shape (N, N), or without NumPy an ``array.array('f')``
        of N² pairs of real and imaginary part.
        """
        with tempfile.TemporaryDirectory(prefix="zephane-") as folder:
            path = Path(folder) / "spectrum"
            self.export(spectrum=path)
            size = math.isqrt(path.stat().st_size // COMPLEX_BYTES)
            values = read_floats(path)
        np = numpy()
        return values if np is None else values.view(np.complex64).reshape(size, size)

    def fields(self, include_velocity: bool = True) -> Fields:
        """Vorticity and velocity on the grid, three float32 planes of shape (N, N).

        Without ``include_velocity`` the planes of the velocity are zero.
        """
        with tempfile.TemporaryDirectory(prefix="zephane-") as folder:
            path = Path(folder) / "fields"
            snapshot = self.export(fields=path, include_velocity=include_velocity)
            values = read_floats(path)
        assert snapshot is not None
        size = snapshot.grid_size
        return Fields(values if numpy() is None else values.reshape(3, size, size), snapshot)

    def close(self) -> None:
        """Wait for a call that is running, and free the flow. Closing again does nothing."""
        with self._lock:
            self._handle = None
            self._release()

    def __enter__(self) -> Engine:
        return self

    def __exit__(self, *_: object) -> None:
        self.close()

    def __repr__(self) -> str:
        state = (
            "closed" if self.closed else f"{self._config.resolution} x {self._config.resolution}"
        )
        return f"<zephane.Engine {state}>"

    def _call(self, operation: str, **arguments: Any) -> dict[str, Any]:
        with self._lock:
            return self._library.call(self._handle, {"op": operation, **arguments})


class _InitialFile:
    """Gives the part of a request that names the start field.

    An array is written to a temporary file, which is deleted at the end of the ``with`` block.
    """

    def __init__(self, initial: Any) -> None:
        self._initial = initial
        self._folder: tempfile.TemporaryDirectory[str] | None = None

    def __enter__(self) -> Mapping[str, str]:
        if self._initial is None:
            return {}
        if isinstance(self._initial, (str, os.PathLike)):
            return {"initial": os.fspath(self._initial)}
        self._folder = tempfile.TemporaryDirectory(prefix="zephane-")
        path = os.path.join(self._folder.name, "initial")
        write_floats(path, self._initial)
        return {"initial": path}

    def __exit__(self, *_: object) -> None:
        if self._folder is not None:
            self._folder.cleanup()
