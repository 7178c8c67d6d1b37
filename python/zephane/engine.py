"""A flow without a window: an ``Engine`` is advanced and read on request."""

from __future__ import annotations

import copy
import dataclasses
import math
import os
import tempfile
import threading
import time
import weakref
from collections.abc import Callable
from pathlib import Path
from typing import Any, Literal, overload

from ._library import LibraryPath, given, load
from ._numpy import numpy
from .engine_failures import (
    explain_creation,
    explain_export,
    explain_loss,
    is_loss,
    output_sizes,
    warn_of_growth,
)
from .errors import FlowFailedError, InvalidValueError, ZephaneError
from .fields import Fields, read_floats
from .notebook_pages import failure_page, flow_page, flow_png
from .outputs import PathLike, check_outputs
from .pacing import Pace, Waiting, has_reached
from .records import Clock, Config, Snapshot, Statistics, SystemInfo
from .refusals import (
    check_memory,
    check_picture,
    checked_config,
    checked_reynolds,
    checked_single,
    checked_steps,
    checked_until,
    warn_of_config,
)
from .start_fields import StartField
from .states import explain_state, read_state
from .suiting import warn_of_cfl
from .view import KEEP, Keep

COMPLEX_BYTES = 8


def initialize(library: LibraryPath | None = None) -> SystemInfo:
    """Load the library, choose the device, and describe both.

    The first engine or view does this if the program has not. The device is the first GPU that can
    run a flow, or else the processor; the environment variable ``ZEPHANE_DEVICE`` chooses another
    by its index. ``library`` is the path of the library; without it the package, the build folders
    of a checkout and the system's folders are searched.

    The calling thread becomes the library's main thread: only it may call this again, and only it
    may use views. No other call of the library may run at the same time.

    Raises ``ZephaneError`` if the library is not found or cannot be loaded, if there is no such
    device, and on any thread but the main thread.
    """
    return SystemInfo.from_json(load(library).initialize())


class Engine:
    """One flow, which moves when it is asked to.

    ``Engine(resolution=512, seed=7)`` changes single members of the default configuration, which
    ``config`` replaces; ``Config`` describes them. Unless numbers are given for them, the Reynolds
    number suits the grid and the Courant number the integrator. The flow is periodic on a square of
    side 2 pi and lives on the device that ``initialize`` chose.

    It starts from a random field, which ``seed`` chooses, or from ``initial``, the vorticity on the
    N x N points of the grid, row y and column x: an array of shape (N, N), the path of a NumPy file
    (.npy) with one, or that of a raw file of N² little-endian float32 numbers. Its mean is dropped.

    Any thread may use an engine. Requests run one after another, and a long ``advance`` lets those
    of other threads in between. Close an engine, or leave its ``with`` block, to free its memory.

    Every method raises ``InvalidValueError`` for a value that is refused, ``FlowFailedError`` for a
    flow that is lost, and ``ZephaneError``, the base of both, for whatever else fails; the engine
    stays usable. Settings that are accepted but probably wrong give a ``ZephaneWarning``.
    """

    def __init__(
        self,
        config: Config | None = None,
        *,
        resolution: int | None = None,
        k0: int | None = None,
        seed: int | None = None,
        reynolds: float | None = None,
        cfl: float | None = None,
        fixed_dt: float | None | Keep = KEEP,
        integrator: str | None = None,
        operator: str | None = None,
        start_spectrum: str | None = None,
        initial: Any = None,
        library: LibraryPath | None = None,
    ) -> None:
        changes = given(
            resolution=resolution,
            k0=k0,
            seed=seed,
            reynolds=reynolds,
            cfl=cfl,
            integrator=integrator,
            operator=operator,
            start_spectrum=start_spectrum,
        )
        if fixed_dt is not KEEP:
            changes["fixed_dt"] = fixed_dt
        self._library = load(library)
        description = self._library.description()
        base = Config.from_json(description["defaults"]) if config is None else config
        self._config = checked_config(base.changed(**changes))
        check_memory(self._config, description["gpu_memory_bytes"])
        warn_of_config(self._config)
        with StartField(initial, self._config.resolution) as start:
            try:
                handle = self._library.create({**self._config.to_json(), **start})
            except ZephaneError as failure:
                available = description["available_memory_bytes"]
                raise explain_creation(failure, self._config, available) from failure
        self._own(handle)

    @classmethod
    def load(
        cls,
        path: PathLike,
        *,
        reynolds: float | None = None,
        cfl: float | None = None,
        library: LibraryPath | None = None,
        **members: Any,
    ) -> Engine:
        """An engine that goes on from a state, a file that ``save`` or a view has written.

        A flow of the processor goes on with the same bits as if it had never stopped, on any
        machine; one of a GPU does so on GPUs of the same kind. The configuration is that of the
        state; ``reynolds`` and ``cfl`` replace the numbers that were in force. Other ``members`` of
        ``Config`` may be named to make sure that the state has them. Raises ``ZephaneError`` for a
        file that is no whole state, ``InvalidValueError`` for one with other members.
        """
        Config(**members)  # Raises TypeError for unknown names.
        changes = given(**members)
        if reynolds is not None:
            changes["reynolds"] = checked_reynolds(reynolds)
        if cfl is not None:
            changes["cfl"] = checked_single("cfl", cfl)
        engine = cls.__new__(cls)
        engine._library = load(library)
        description = engine._library.description()
        text = os.fspath(path)
        try:
            handle = engine._library.create({**changes, "state": text})
        except ZephaneError as failure:
            available = description["available_memory_bytes"]
            raise explain_state(failure, text, available) from failure
        numbers = {key: changes[key] for key in ("reynolds", "cfl") if key in changes}
        engine._config = dataclasses.replace(read_state(text).config_in_force, **numbers)
        engine._own(handle)
        return engine

    def _own(self, handle: int) -> None:
        """Take over a new flow of the library."""
        self._handle: int | None = handle
        self._release = weakref.finalize(self, self._library.destroy, handle)
        # Not at the interpreter's exit, when a thread may still be inside a call on the engine.
        self._release.atexit = False
        self._lock = threading.Lock()
        self._waiting = Waiting()
        self._pace = Pace()
        self._cfl = self._config.cfl
        self._restart()

    def _restart(self) -> None:
        """Forget what is known of the flow, which is at its start."""
        self._now: Clock | None = None
        self._figures: Statistics | None = None
        self._milliseconds = 0.0
        self._failure: FlowFailedError | None = None

    @property
    def config(self) -> Config:
        """The configuration of the engine when it was made. ``set`` does not change it."""
        return self._config

    @property
    def system(self) -> SystemInfo:
        """The device and the machine, as ``initialize`` described them last."""
        return SystemInfo.from_json(self._library.description())

    @property
    def closed(self) -> bool:
        """Whether ``close`` was called."""
        return self._handle is None

    def inspect(self) -> Statistics:
        """The figures of the flow at its present time, computed anew.

        This takes less than a third of a step. Gives a ``ZephaneWarning`` if the energy or the
        enstrophy has grown since they were computed last: without a force both only fall, so the
        flow is wrong.
        """
        return self._inspect(stacklevel=3)

    def _inspect(self, stacklevel: int) -> Statistics:
        with self._waiting, self._lock:
            before = self._figures
            now = Statistics.from_json(self._request("inspect"))
            self._figures = now
        if before is not None:
            warn_of_growth(before, now, stacklevel + 1)
        return dataclasses.replace(now, gpu_milliseconds=self._milliseconds)

    @overload
    def advance(
        self,
        steps: int | None = None,
        until: float | None = None,
        *,
        fresh: Literal[True] = True,
        progress: Callable[[Clock], object] | None = None,
    ) -> Statistics: ...

    @overload
    def advance(
        self,
        steps: int | None = None,
        until: float | None = None,
        *,
        fresh: Literal[False],
        progress: Callable[[Clock], object] | None = None,
    ) -> Clock: ...

    @overload
    def advance(
        self,
        steps: int | None = None,
        until: float | None = None,
        *,
        fresh: bool,
        progress: Callable[[Clock], object] | None = None,
    ) -> Statistics | Clock: ...

    def advance(
        self,
        steps: int | None = None,
        until: float | None = None,
        *,
        fresh: bool = True,
        progress: Callable[[Clock], object] | None = None,
    ) -> Statistics | Clock:
        """Run to the time ``until``, or take so many ``steps``; with both, whichever comes first.

        Without either, take one step. ``until`` is a time of the flow, not a length: the last step
        is shortened so that it ends there exactly. Returns the figures at the end, as ``inspect``
        does; with ``fresh=False`` a ``Clock`` without them, which is a little quicker.

        A long run is cut into requests of about a tenth of a second, which changes no bit of the
        flow. Between two of them Ctrl-C is raised, calls of other threads run, and ``progress`` is
        called with the clock of the flow; if it returns False, the run ends there. After
        ``KeyboardInterrupt`` the flow is at the end of the last request.
        """
        left = None if steps is None else checked_steps(steps)
        end = None if until is None else checked_until(until)
        now = self._advance(1 if left is None and end is None else left, end, progress)
        return self._inspect(stacklevel=3) if fresh else now

    def _advance(
        self, left: int | None, end: float | None, progress: Callable[[Clock], object] | None
    ) -> Clock:
        total = 0.0
        while True:
            before, ask = self._now, self._pace.ask(left)
            began = time.perf_counter()
            now = Clock.from_json(self._call("advance", steps=ask, until=end))
            moved = before is None or now.steps != before.steps
            if moved and ask:
                self._pace.took(ask, time.perf_counter() - began)
                total += now.gpu_milliseconds
            self._milliseconds = total
            now = dataclasses.replace(now, gpu_milliseconds=total)
            left = None if left is None else left - ask
            if progress is not None and progress(now) is False:
                return now
            if left == 0 or not moved or has_reached(now.simulation_time, end):
                return now
            self._waiting.let_in()

    def set(self, reynolds: float | None = None, cfl: float | None = None) -> None:
        """Change the Reynolds number, the Courant number or both, from the next step on.

        Both are above 0. If one is refused, neither changes. ``config`` stays as it is.
        """
        changes = given(reynolds=reynolds, cfl=cfl)
        if reynolds is not None:
            changes["reynolds"] = checked_reynolds(reynolds)
        if cfl is not None:
            changes["cfl"] = checked_single("cfl", cfl)
            if self._config.fixed_dt is None:
                warn_of_cfl(self._config.integrator, self._config.resolution, changes["cfl"])
        with self._waiting, self._lock:
            self._request("set", **changes)
            self._cfl = changes.get("cfl", self._cfl)

    def reset(self, initial: Any = None, *, state: PathLike | None = None) -> Statistics:
        """Start again at time 0, and return the figures of the start.

        The flow starts from the random field of its seed, or from ``initial`` as a new engine does.
        With ``state``, the path of a state of the same configuration, go on from there instead,
        with its time and its Reynolds and Courant number. If the start is refused, the flow stays
        as it is.
        """
        if state is not None:
            if initial is not None:
                raise InvalidValueError("initial and state exclude each other: give one start")
            return self._reset_to(os.fspath(state))
        with StartField(initial, self._config.resolution) as start:
            with self._waiting, self._lock:
                figures = Statistics.from_json(self._request("reset", **start))
                self._figures = figures
        return figures

    def _reset_to(self, state: str) -> Statistics:
        available = self._library.description()["available_memory_bytes"]
        with self._waiting, self._lock:
            try:
                figures = Statistics.from_json(self._request("reset", state=state))
            except FlowFailedError:
                raise
            except ZephaneError as failure:
                raise explain_state(failure, state, available) from failure
            self._figures = figures
            self._cfl = read_state(state).cfl
        return figures

    def save(self, path: PathLike) -> None:
        """Save the state of the flow to a file, from which ``Engine.load`` goes on.

        It holds about 8·N² bytes, in the safetensors layout. The file is whole or not there: if it
        cannot be written, ``ZephaneError`` says why, and an earlier one stays as it was.
        """
        self.export(state=path)

    def export(
        self,
        *,
        spectrum: PathLike | None = None,
        state: PathLike | None = None,
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
        """Write files of the flow as it is: a picture, fields, the spectrum, the state.

        Each is the path of a file:

        - ``png``: a square picture of ``pixel_size`` pixels a side, 1 to 8192, by default 1800.
          ``display`` and the arguments after it are those of ``PictureSettings``. Drawing needs a
          Vulkan driver.
        - ``fields``: a raw file of 3·N² little-endian float32 numbers, the planes of vorticity, u
          and v, row y and column x.
        - ``spectrum``: a raw file of N² complex64 numbers, laid out as ``spectrum()`` returns them.
        - ``state``: as ``save`` writes it.

        Returns the snapshot that picture and fields show, time and moments; None if they are not
        asked for, unless ``snapshot`` is true. With ``include_velocity=False`` the velocity counts
        as zero, which is quicker: the speed is dark, and there are no flow lines. If one of several
        files cannot be written, none is, and ``ZephaneError`` says why.
        """
        check_picture(
            display=display,
            palette=palette,
            color_range=color_range,
            exposure=exposure,
            sigma=sigma,
            pixel_size=pixel_size,
        )
        request = given(
            spectrum=spectrum,
            state=state,
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
        )
        files = output_sizes(request, self._config.resolution)
        if len(files) > 1:
            check_outputs(files)
        try:
            report = self._call("export", **request)
        except FlowFailedError:
            raise
        except ZephaneError as failure:
            raise explain_export(failure, request, self._config.resolution) from failure
        return Snapshot.from_json(report) if report else None

    def spectrum(self) -> Any:
        """The Fourier coefficients of the vorticity, a complex64 NumPy array of shape (N, N).

        Row ky, column kx, both in the order of ``numpy.fft.fftfreq``: 0, 1, ..., N/2 - 1, -N/2,
        ..., -1. Half the sum of their squared magnitudes is the enstrophy. Without NumPy the result
        is an ``array.array('f')`` of N² pairs of real and imaginary part.
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

        ``vorticity, u, v = flow.fields()``: row y, column x. With ``include_velocity=False`` the
        result has the vorticity alone, and takes less time.
        """
        with tempfile.TemporaryDirectory(prefix="zephane-") as folder:
            path = Path(folder) / "fields"
            snapshot = self.export(fields=path, include_velocity=include_velocity)
            values = read_floats(path)
        assert snapshot is not None
        size = snapshot.grid_size
        data = values if numpy() is None else values.reshape(3, size, size)
        return Fields(data, snapshot, include_velocity)

    def close(self) -> None:
        """Wait for a request that is running, and free the flow. Closing again does nothing.

        A long ``advance`` on another thread ends with ``ZephaneError``.
        """
        with self._waiting, self._lock:
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

    def _repr_html_(self) -> str | None:
        """What a notebook shows: a picture of the vorticity, and the figures."""
        if self.closed:
            return None
        try:
            now = self._inspect(stacklevel=3)
            return flow_page(self._config, now, self.system.gpu, self.save)
        except ZephaneError as failure:
            return failure_page(repr(self), failure)

    def _repr_png_(self) -> bytes | None:
        try:
            return None if self.closed else flow_png(self.save, self._config.resolution)
        except ZephaneError:
            return None

    def __reduce__(self) -> Any:
        raise TypeError(
            "An engine cannot be copied or pickled: its flow lives in the memory of the device. "
            "Save its state, engine.save(path), and make another one from it, Engine.load(path)."
        )

    def _call(self, operation: str, **arguments: Any) -> dict[str, Any]:
        with self._waiting, self._lock:
            return self._request(operation, **arguments)

    def _request(self, operation: str, **arguments: Any) -> dict[str, Any]:
        """Run one operation. The thread holds the lock."""
        try:
            reply = self._library.call(self._handle, {"op": operation, **arguments})
        except ZephaneError as failure:
            if not is_loss(failure):
                raise
            if self._failure is None:
                asked = arguments.get("steps")
                self._failure = explain_loss(failure, self._config, self._cfl, self._now, asked)
            raise copy.copy(self._failure) from failure
        if operation == "reset":
            self._restart()
        if "steps" in reply:
            self._now = Clock.from_json(reply)
            if self._figures is None:  # The library has sent those of the start.
                self._figures = Statistics.from_json(reply)
        return reply
