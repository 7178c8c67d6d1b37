"""A view through the C functions, with each of its reports checked."""

from __future__ import annotations

import time
from typing import Any, Callable

from .harness import Library, Refused, decode, encode, error_of


class View:
    """One view, for the main thread only. Every report is checked."""

    PATIENCE_SECONDS = 120

    ALWAYS = {
        "allocated_bytes": int,
        "backend": str,
        "color_range": str,
        "config": dict,
        "display": str,
        "effective_reynolds": float,
        "elapsed_seconds": float,
        "error_message": (str, type(None)),
        "exporting": bool,
        "exposure": float,
        "flow": bool,
        "focused": bool,
        "generation": int,
        "gpu": str,
        "history": list,
        "palette": str,
        "palinstrophy_control": float,
        "performance": dict,
        "presentations": int,
        "ready": bool,
        "regulated": bool,
        "running": bool,
        "settled": bool,
        "sigma": float,
    }
    CANVAS = {"height_points": float, "scale": float, "visible": bool, "width_points": float}
    PERFORMANCE = {
        "batch_steps": int,
        "milliseconds_per_step": float,
        "simtime_per_s": float,
        "steps_per_s": float,
        "turnovers_per_s": float,
    }

    def __init__(self, library: Library) -> None:
        self.library = library
        self.handle: int | None = library.c.zp_ui_create()
        assert self.handle, "a view is made on the main thread"

    def close(self) -> None:
        handle, self.handle = self.handle, None
        self.library.c.zp_ui_destroy(handle)

    def __enter__(self) -> View:
        return self

    def __exit__(self, *_: object) -> None:
        self.close()

    def raw(self, request: Any) -> bytes:
        return self.library.ui_call(self.handle, encode(request))

    def ask(self, request: Any) -> dict[str, Any]:
        reply = decode(self.raw(request))
        if "error" in reply:
            raise Refused(reply["error"])
        self.check(reply)
        return reply

    def call(self, op: str, **members: Any) -> dict[str, Any]:
        return self.ask({"op": op, **members})

    def refusal(self, request: Any) -> str:
        """The text of the refusal of a request."""
        return error_of(self.raw(request))

    def attach(self, window: int) -> None:
        """Lays the view's canvas into a window."""
        reply = decode(self.library.ui_attach(self.handle, window))
        if "error" in reply:
            raise Refused(reply["error"])
        assert reply == {}

    def show(self, window: int, pictures: int = 1) -> dict[str, Any]:
        """Runs the flow in a window until so many pictures of it have been shown."""
        self.attach(window)
        self.call("start")
        return self.wait(lambda report: report["presentations"] >= pictures)

    def get(self) -> dict[str, Any]:
        return self.call("get")

    def wait(self, holds: Callable[[dict[str, Any]], bool]) -> dict[str, Any]:
        """The first report for which the predicate holds."""
        end = time.monotonic() + self.PATIENCE_SECONDS
        while not holds(report := self.get()):
            assert time.monotonic() < end, f"waited in vain: {report}"
            time.sleep(0.002)
        return report

    def settled(self) -> dict[str, Any]:
        return self.wait(lambda report: report["settled"])

    def steps(self, count: int) -> dict[str, Any]:
        """The first report with so many steps."""
        return self.wait(lambda report: report.get("stats", {"steps": -1})["steps"] >= count)

    @classmethod
    def check(cls, report: dict[str, Any]) -> None:
        _check_members(report, cls.ALWAYS, {"stats", "frame", "canvas"})
        _check_members(report["performance"], cls.PERFORMANCE)
        assert ("stats" in report) == report["ready"], report
        assert ("frame" in report) == report["ready"], report
        if "canvas" in report:
            _check_members(report["canvas"], cls.CANVAS)
        assert len(report["history"]) <= 120
        assert all(type(value) is float for value in report["history"])


def _check_members(
    members: dict[str, Any], types: dict[str, Any], optional: set[str] | None = None
) -> None:
    assert set(members) - (optional or set()) == set(types), sorted(members)
    for key, kind in types.items():
        value = members[key]
        assert type(value) in (kind if isinstance(kind, tuple) else (kind,)), (key, value)
