"""The live view: a ``View`` is a flow that runs by itself and takes commands."""

from __future__ import annotations

import enum
import math
import time
import weakref
from collections.abc import Callable
from typing import Any

from ._library import LibraryPath, ZephaneError, given, load, plain
from .fields import PathLike
from .records import Config, ViewStatus

POLL_SECONDS = 0.01


class Keep(enum.Enum):
    """Stands for an argument that is left as it is, where None has a meaning of its own."""

    KEEP = "keep"


KEEP = Keep.KEEP


class View:
    """A flow on a thread of the library's own, on the device that ``initialize`` chose.

    A new view rests. ``start`` makes its flow, which runs until it is told otherwise; each
    operation returns at once with what the view has come to, and ``wait`` waits for more.

    The configuration begins with the library's defaults, or with ``config``; keyword arguments
    change single members. The Reynolds number suits the grid unless one of them names it. Unless
    ``regulated`` is false, it then follows the flow, so that the grid is well used.

    All of this happens on one thread: the one that initialized the library, which the first view
    or engine does where the program has not. From others, and from a closed view, every operation
    is refused with a ``ZephaneError``. A view that is forgotten ends where it is forgotten on that
    thread, else when the next view is made; better leave a ``with`` block, or call ``close``.
    """

    def __init__(
        self,
        config: Config | None = None,
        *,
        regulated: bool | None = None,
        library: LibraryPath | None = None,
        **changes: Any,
    ) -> None:
        self._library = load(library)
        self._library.description()
        handle = self._library.create_view()
        self._handle: int | None = handle
        self._release = weakref.finalize(self, self._library.release_view, handle)
        try:
            self._configure_start(config, changes)
            if regulated is not None:
                self.set(regulated=regulated)
        except BaseException:
            self.close()
            raise

    def _configure_start(self, config: Config | None, changes: dict[str, Any]) -> None:
        wanted = {**({} if config is None else config.to_json()), **changes}
        if not wanted:
            return
        Config(**changes)  # Refuses names that are none.
        status = self._call("configure", **wanted)
        # A new grid brings its own Reynolds number along.
        if "reynolds" in wanted and status.config.reynolds != wanted["reynolds"]:
            self._call("configure", reynolds=wanted["reynolds"])

    @property
    def closed(self) -> bool:
        return self._handle is None

    def status(self) -> ViewStatus:
        """What the view has come to."""
        return self._call("get")

    def flush(self) -> ViewStatus:
        """The same as ``status``."""
        return self._call("flush")

    def wait(
        self, condition: Callable[[ViewStatus], bool], timeout: float | None = None
    ) -> ViewStatus:
        """Look again and again until ``condition`` holds of the status, and return that.

        Raises ``TimeoutError`` after so many seconds, and ``ZephaneError`` when the view tells of
        a failure meanwhile.
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
        """Make the flow, and let it run unless it has been paused. Once made it stays."""
        return self._call("start")

    def run(self) -> ViewStatus:
        """Let the flow run, also after a limit has ended it."""
        return self._call("running", value=True)

    def pause(self) -> ViewStatus:
        """Let the flow rest after the steps under way; steps asked for are dropped."""
        return self._call("running", value=False)

    def toggle(self) -> ViewStatus:
        """Pause a running flow, and run one that rests."""
        return self._call("toggle")

    def step(self) -> ViewStatus:
        """Take one step and rest."""
        return self._call("step")

    def reset(self) -> ViewStatus:
        """The same flow again from its start."""
        return self._call("reset")

    def next_seed(self) -> ViewStatus:
        """A new flow, from the seed that follows."""
        return self._call("seed")

    def configure(self, *, cap_cfl: bool | None = None, **changes: Any) -> ViewStatus:
        """A new flow of another configuration, where anything changes; see ``Config``.

        Another ``resolution`` or ``k0`` brings its own Reynolds number along, unless regulation
        is off and ``reynolds`` names another in the same call. ``cap_cfl`` lowers ``cfl`` to 1.5
        where the integrator changes to one of the weaker ones.
        """
        Config(**changes)  # Refuses names that are none.
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
        """Change what can be changed while the flow goes on; numbers out of range are cut.

        ``cfl`` lies in 1 to 3. ``log_reynolds`` is the decimal logarithm of the Reynolds number, 3
        to 6, and has no effect on a regulated flow. The others are those of ``PictureSettings``.
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
        spectrum: PathLike | None | Keep = KEEP,
    ) -> ViewStatus:
        """Limits and files of the flows that begin after this; None takes one away.

        A flow ends at the time ``until`` exactly, or after ``wall_seconds`` of running, and then
        writes its spectrum to the file ``spectrum``. It starts from the file ``initial``, and
        takes ``batch`` steps at once, 1 to 32.
        """
        limits = {
            "until": until,
            "wall_seconds": wall_seconds,
            "batch": batch,
            "initial": initial,
            "spectrum": spectrum,
        }
        kept = {key: value for key, value in limits.items() if value is not KEEP}
        return self._call("benchmark", **{key: plain(value) for key, value in kept.items()})

    def visible(self, value: bool = True) -> ViewStatus:
        """Whether the view is seen. Unseen, the flow makes no frames and runs a little faster."""
        return self._call("visible", value=value)

    def dismiss(self) -> ViewStatus:
        """Forget the message of a failure. What has failed goes on with ``reset``."""
        return self._call("dismiss")

    def export(
        self,
        *,
        png: PathLike | None = None,
        fields: PathLike | None = None,
        pixel_size: int | None = None,
    ) -> ViewStatus:
        """Write the newest frame as a picture, as raw fields, or as both."""
        return self._call("export", **given(png=png, fields=fields, pixel_size=pixel_size))

    def save(self) -> ViewStatus:
        """Ask the user for a path, and write a picture there; a cancelled question is a success."""
        return self._call("save")

    def attach(self, parent: int) -> None:
        """Draw into the window of this number."""
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
        return ViewStatus.from_json(reply)


# The keys that steer a flow, on a terminal and in a window alike.
FLOW_KEYS = (
    ("space", "pause the flow, or let it run"),
    ("s", "take one step and pause"),
    ("r", "the same flow again from its start"),
    ("n", "a new flow, from the seed that follows"),
)

FLOW_OPERATIONS = {"space": View.toggle, "s": View.step, "r": View.reset, "n": View.next_seed}
