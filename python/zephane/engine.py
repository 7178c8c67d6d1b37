"""The headless solver: an ``Engine`` is one flow, advanced and read on request."""

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

    ``library`` is a path; without it the library is looked for beside the package, in the build
    folders of a checkout and where the system keeps its libraries. The environment variable
    ``ZEPHANE_DEVICE`` names the device by its index. The calling thread becomes the library's main
    thread, the only one that may call this again. No other call may be under way meanwhile.
    """
    return SystemInfo.from_json(load(library).initialize())


class Engine:
    """One flow on the device that ``initialize`` chose; the first engine initializes if need be.

    It starts from a seeded spectrum or from ``initial``: the path of a raw file, or an array, of
    N² single-precision samples of the vorticity. Keyword arguments change single members of the
    configuration: ``Engine(resolution=512, seed=7)``.

    Any thread may call it. Calls are made one after the other, and ``close`` waits for the one
    under way. What the library refuses is raised as ``ZephaneError``.
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
        # A thread may still be inside the engine when the interpreter ends.
        self._release.atexit = False

    @property
    def config(self) -> Config:
        """The configuration that the engine was made with; ``set`` does not change it."""
        return self._config

    @property
    def closed(self) -> bool:
        return self._handle is None

    def inspect(self) -> Statistics:
        """All figures, freshly computed."""
        return Statistics.from_json(self._call("inspect"))

    def advance(self, steps: int = 1, until: float | None = None) -> Statistics:
        """Take ``steps`` steps, but stop exactly at the time ``until`` if that comes first.

        In the result the energies are those of the last ``inspect`` or ``reset``.
        """
        return Statistics.from_json(self._call("advance", steps=steps, until=until))

    def set(self, reynolds: float | None = None, cfl: float | None = None) -> None:
        """Change the Reynolds number or the Courant number from the next step on."""
        self._call("set", **given(reynolds=reynolds, cfl=cfl))

    def reset(self, initial: Any = None) -> Statistics:
        """Back to time zero: to the seeded start, or to ``initial`` as for a new engine."""
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
        """Let the library write files, and report the snapshot if one was taken.

        ``spectrum`` and ``fields`` are raw files of N² complex numbers and of 3·N² numbers, in
        single precision. ``png`` is a square picture of ``pixel_size`` pixels a side, 1 to 8192;
        the arguments after it are those of ``PictureSettings``. Drawing needs a Vulkan driver.
        Without ``include_velocity`` the fluid counts as being at rest: its speed is dark, and
        there are no flow lines. What is left out keeps the library's default.
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
        """Fourier coefficients of the vorticity, row ky, column kx, both in FFT order.

        A complex64 NumPy array of shape (N, N), or an ``array.array('f')`` of N² pairs without
        NumPy.
        """
        with tempfile.TemporaryDirectory(prefix="zephane-") as folder:
            path = Path(folder) / "spectrum"
            self.export(spectrum=path)
            size = math.isqrt(path.stat().st_size // COMPLEX_BYTES)
            values = read_floats(path)
        np = numpy()
        return values if np is None else values.view(np.complex64).reshape(size, size)

    def fields(self, include_velocity: bool = True) -> Fields:
        """Vorticity and velocity on the grid; without velocity its planes are zero."""
        with tempfile.TemporaryDirectory(prefix="zephane-") as folder:
            path = Path(folder) / "fields"
            snapshot = self.export(fields=path, include_velocity=include_velocity)
            values = read_floats(path)
        assert snapshot is not None
        size = snapshot.grid_size
        return Fields(values if numpy() is None else values.reshape(3, size, size), snapshot)

    def close(self) -> None:
        """Free the flow, once a call under way has ended. Closing again does nothing."""
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
    """The request's member for a start field; an array becomes a file for as long as it takes."""

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
