"""The live view: a ``View`` is a flow that runs by itself and takes commands."""

from __future__ import annotations

import enum
import math
import time
import weakref
from collections.abc import Callable
from typing import Any

from ._library import LibraryPath, ZephaneError, given, load, path_as_text
from .course import Course
from .outputs import PathLike
from .records import Config, ViewStatus
from .refusals import checked_config

POLL_SECONDS = 0.01


class Keep(enum.Enum):
    """The default of arguments for which None has a meaning: leave the value as it is."""

    KEEP = "keep"


KEEP = Keep.KEEP
"""The default of arguments for which None has a meaning: leave the value as it is."""


class View:
    """A flow that runs by itself, on a thread of the library, and can be drawn into a window.

    ``View(resolution=512, seed=7)`` changes single members of the default configuration, which
    ``config`` replaces. Unless numbers are given for them, the Reynolds number suits the grid and
    the Courant number the integrator.

    ``start`` makes the flow and lets it run. Each operation returns the view's status at once,
    perhaps before the flow has followed; ``wait`` waits until it has.

    The Reynolds number stays as it is. ``AdaptedViscosity`` moves it with the flow, so that the
    grid resolves the smallest eddies. ``regulated=True`` switches on the library's own regulation,
    which does not hold its target: docs/choosing.md has figures.

    Use a view only on the thread that initialized the library: on any other, every operation raises
    ``ZephaneError``. So does an operation that the library refuses, and any on a closed view. A
    refused value of the configuration raises ``InvalidValueError``.

    Leave a ``with`` block or call ``close`` to end a view. One that is garbage collected ends too,
    but if that happens on another thread, only when the next view is made.
    """

    def __init__(
        self,
        config: Config | None = None,
        *,
        regulated: bool = False,
        library: LibraryPath | None = None,
        **changes: Any,
    ) -> None:
        self._course = Course()
        self._library = load(library)
        self._library.description()
        handle = self._library.create_view()
        self._handle: int | None = handle
        self._release = weakref.finalize(self, self._library.release_view, handle)
        try:
            self.set(regulated=False)
            self._configure_start(config, changes)
            if regulated:
                self.set(regulated=True)
        except BaseException:
            self.close()
            raise

    def _configure_start(self, config: Config | None, changes: dict[str, Any]) -> None:
        if config is None and not changes:
            return
        base = Config() if config is None else config
        self._call("configure", **checked_config(base.changed(**changes)).to_json())

    @property
    def closed(self) -> bool:
        """Whether ``close`` was called."""
        return self._handle is None

    @property
    def at_rest(self) -> bool:
        """Whether the flow has come to rest, by the statuses that were asked for so far.

        Its energy is below a millionth of the start's, or an adaptive time step is longer than a
        turnover of the start, or soon will be. Then ``pause`` it: the step of a flow at rest grows
        without bound, until the solver gives up. Ask for the status a few times a second.
        """
        return self._course.at_rest

    @property
    def grows(self) -> bool:
        """Whether the flow has gained energy or enstrophy, by the statuses asked for so far.

        Nothing drives a flow, so that this is always an error of the time step: the Courant number
        or ``fixed_dt`` is too large, and all figures since are wrong.
        """
        return self._course.grows

    @property
    def failed(self) -> bool:
        """Whether the flow was lost or could not be made, by the statuses asked for so far.

        ``reset``, ``next_seed`` and ``configure`` start again; ``dismiss`` changes nothing here.
        """
        return self._course.failed

    def status(self) -> ViewStatus:
        """The present status."""
        return self._call("get")

    def flush(self) -> ViewStatus:
        """The same as ``status``."""
        return self._call("flush")

    def wait(
        self, condition: Callable[[ViewStatus], bool], timeout: float | None = None
    ) -> ViewStatus:
        """Ask for the status until ``condition`` is true of it, and return that status.

        ``view.wait(lambda status: status.ready)`` waits for the first frame. Raises
        ``TimeoutError`` after ``timeout`` seconds, and ``ZephaneError`` when the status has an
        error message.
        """
        deadline = math.inf if timeout is None else time.monotonic() + timeout
        while True:
            status = self.status()
            if condition(status):
                return status
            if status.error_message is not None:
                raise ZephaneError(status.error_message)
            if time.monotonic() >= deadline:
                raise TimeoutError(f"The view did not get there in {timeout:g} seconds.")
            time.sleep(POLL_SECONDS)

    def start(self) -> ViewStatus:
        """Make the flow, and run it unless ``pause`` was called before. Works once."""
        return self._call("start")

    def run(self) -> ViewStatus:
        """Run the flow. One that a limit has ended goes on past it."""
        return self._call("running", value=True)

    def pause(self) -> ViewStatus:
        """Pause the flow after the steps under way. Calls of ``step`` still waiting are dropped."""
        return self._call("running", value=False)

    def toggle(self) -> ViewStatus:
        """Pause the flow if it runs, otherwise run it."""
        return self._call("toggle")

    def step(self) -> ViewStatus:
        """Take one step and pause."""
        return self._call("step")

    def reset(self) -> ViewStatus:
        """Start the same flow again from time 0."""
        return self._call("reset")

    def next_seed(self) -> ViewStatus:
        """Start a new flow from the next seed."""
        return self._call("seed")

    def configure(self, *, cap_cfl: bool | None = None, **changes: Any) -> ViewStatus:
        """Change members of ``Config``, and start a new flow if that changes anything.

        A new ``resolution`` or ``k0`` also sets the Reynolds number to one that suits the grid,
        unless regulation is off and the same call sets ``reynolds``. ``cap_cfl`` limits ``cfl`` to
        1.5 when the integrator changes to another than "etdrk4", which are stable for smaller
        steps only; it does so unless the call sets ``cfl`` or ``cap_cfl`` is False. Raises
        ``InvalidValueError`` for values that are refused, and ``TypeError`` for unknown names.
        """
        checked = checked_config(Config(**changes)).to_json()
        changes = {key: checked[key] for key in changes}
        if cap_cfl is None and "integrator" in changes and "cfl" not in changes:
            cap_cfl = True
        return self._call("configure", **changes, **given(cap_cfl=cap_cfl))

    def set(
        self,
        *,
        regulated: bool | None = None,
        cfl: float | None = None,
        log_reynolds: float | None = None,
        display: str | None = None,
        palette: str | None = None,
        color_range: str | None = None,
        exposure: float | None = None,
        sigma: float | None = None,
        flow: bool | None = None,
        focused: bool | None = None,
    ) -> ViewStatus:
        """Change settings while the flow runs. Numbers are clamped to their ranges.

        ``cfl`` is 1 to 3. ``log_reynolds`` is the decimal logarithm of the Reynolds number, 3 to 6;
        a regulated flow ignores it. ``regulated`` switches the library's regulation on or off.
        ``focused`` says whether the window has the keyboard. ``display``, ``palette``,
        ``color_range``, ``exposure``, ``sigma`` and ``flow`` are those of ``PictureSettings``.
        """
        return self._call(
            "set",
            **given(
                regulated=regulated,
                cfl=cfl,
                log_reynolds=log_reynolds,
                display=display,
                palette=palette,
                color_range=color_range,
                exposure=exposure,
                sigma=sigma,
                flow=flow,
                focused=focused,
            ),
        )

    def benchmark(
        self,
        *,
        until: float | None | Keep = KEEP,
        wall_seconds: float | None | Keep = KEEP,
        batch: int | None | Keep = KEEP,
        initial: PathLike | None | Keep = KEEP,
        state: PathLike | None | Keep = KEEP,
        spectrum: PathLike | None | Keep = KEEP,
    ) -> ViewStatus:
        """Set limits and files for the flows that begin after this call; None removes one.

        A flow ends at the time ``until`` exactly, or after ``wall_seconds`` of running, and then
        writes its spectrum to the file ``spectrum``. It starts from the raw file ``initial``, or
        goes on from the state ``state``, whose configuration the view must have; of the two, the
        one given last holds. It takes ``batch`` steps, 1 to 32, in one request to the device.
        """
        limits = {
            "until": until,
            "wall_seconds": wall_seconds,
            "batch": batch,
            "initial": initial,
            "state": state,
            "spectrum": spectrum,
        }
        kept = {key: value for key, value in limits.items() if value is not KEEP}
        return self._call("benchmark", **{key: path_as_text(value) for key, value in kept.items()})

    def visible(self, value: bool = True) -> ViewStatus:
        """Say whether the view is visible. If not, it makes no frames and runs a little faster."""
        return self._call("visible", value=value)

    def dismiss(self) -> ViewStatus:
        """Clear the error message. A flow that has failed starts again with ``reset``."""
        return self._call("dismiss")

    def export(
        self,
        *,
        png: PathLike | None = None,
        fields: PathLike | None = None,
        pixel_size: int | None = None,
        state: PathLike | None = None,
    ) -> ViewStatus:
        """Write the newest frame to files: a picture, raw fields, the state of the flow.

        ``png`` is the path of a picture of ``pixel_size`` pixels a side with the view's settings,
        and ``fields`` that of a raw file as for ``Engine.export``; for both the view must be
        attached to a window. ``state`` is the path of a state, as ``Engine.save`` writes it, which
        needs no window.
        """
        return self._call(
            "export", **given(png=png, fields=fields, pixel_size=pixel_size, state=state)
        )

    def save(self) -> ViewStatus:
        """Ask the user for a path by a dialog, and write a picture there unless the user cancels.

        The view must be attached to a window.
        """
        return self._call("save")

    def attach(self, parent: int) -> None:
        """Draw into the window with the X11 id ``parent``, which the X server must know already.

        The view covers the whole window, and follows its size. It can be attached once; close it
        before the window is destroyed. Raises ``ZephaneError`` where there is no such window.
        """
        self._library.attach_view(self._handle, parent)

    def close(self) -> None:
        """End the flow and its thread. Closing again does nothing."""
        if self._handle is None:
            return
        self._library.require_main_thread()
        self._handle = None
        self._release()

    def __enter__(self) -> View:
        return self

    def __exit__(self, *_: object) -> None:
        self.close()

    def __repr__(self) -> str:
        return f"<zephane.View {'closed' if self.closed else 'open'}>"

    def _call(self, operation: str, **arguments: Any) -> ViewStatus:
        reply = self._library.call_view(self._handle, {"op": operation, **arguments})
        status = ViewStatus.from_json(reply)
        if status.generation != self._course.generation:
            self._course = Course(status.generation)
        self._course.follow(status)
        return status
