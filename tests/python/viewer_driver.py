"""User actions on a viewer, for tests: keys, clicks, edits, and waiting."""

from __future__ import annotations

import time
from typing import Any, Callable

from xwindow import Host
from Xlib import XK, X
from Xlib.ext import xtest

from zephane import ViewStatus
from zephane.viewer import Viewer

Maker = Callable[..., Viewer]

SECONDS = 60.0


def wait(viewer: Viewer, holds: Callable[[ViewStatus], object]) -> ViewStatus:
    """Handle events until a condition holds for the status."""
    end = time.monotonic() + SECONDS
    while not holds(viewer.status):
        assert time.monotonic() < end, f"waited in vain at {viewer.status}"
        viewer.root.update()
        time.sleep(0.01)
    return viewer.status


def wait_for_steps(viewer: Viewer, count: int) -> None:
    wait(viewer, lambda status: status.stats is not None and status.stats.steps == count)


def wait_until(viewer: Viewer, holds: Callable[[], object]) -> None:
    """Handle events until a condition holds for the window."""
    wait(viewer, lambda status: holds())


def live_on(viewer: Viewer, seconds: float = 0.3) -> None:
    end = time.monotonic() + seconds
    wait(viewer, lambda status: time.monotonic() > end)


def close_by_events(viewer: Viewer) -> None:
    """Handle events until one of them has closed the viewer."""
    end = time.monotonic() + SECONDS
    while not viewer.view.closed:
        assert time.monotonic() < end
        viewer.root.update()
        time.sleep(0.01)


def press(viewer: Viewer, host: Host, key: str) -> None:
    """Press a key, which the server sends to the focused window."""
    viewer.root.update()
    host.press_key(host.display.keysym_to_keycode(XK.string_to_keysym(key)))


def click(host: Host, x: int, y: int, button: int = 1) -> None:
    xtest.fake_input(host.display, X.MotionNotify, x=x, y=y)
    xtest.fake_input(host.display, X.ButtonPress, button)
    xtest.fake_input(host.display, X.ButtonRelease, button)
    host.display.sync()


def click_on(viewer: Viewer, host: Host, widget: Any) -> None:
    viewer.root.update()
    x = widget.winfo_rootx() + widget.winfo_width() // 2
    y = widget.winfo_rooty() + widget.winfo_height() // 2
    click(host, x, y)


def edit(viewer: Viewer, **texts: str) -> None:
    for key, text in texts.items():
        viewer.panel.configuration.fields[key].text.set(text)


def texts_of(widget: Any) -> list[str]:
    """The texts of all labels and buttons inside."""
    own = [str(widget["text"])] if "text" in widget.keys() else []
    return own + [text for child in widget.winfo_children() for text in texts_of(child)]
