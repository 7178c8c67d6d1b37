"""Windows of a host without a toolkit: created, read and operated through python-xlib."""

from __future__ import annotations

import time
from typing import Any, Callable

import numpy as np
from Xlib import X, Xatom, display, error
from Xlib.ext import xtest
from Xlib.xobject.drawable import Window as Handle

PATIENCE_SECONDS = 120
BACKGROUND = 0x3A7F5C  # of every window; no picture has a whole area of this colour

Shot = np.ndarray


def until(holds: Callable[[], Any], what: str = "it") -> Any:
    """The first true value that the function returns."""
    end = time.monotonic() + PATIENCE_SECONDS
    while not (value := holds()):
        assert time.monotonic() < end, f"waited in vain for {what}"
        time.sleep(0.01)
    return value


class Host:
    """A connection to a server, and the windows created through it."""

    def __init__(self, name: str) -> None:
        self.display = display.Display(name)
        self.root = self.display.screen().root
        self.windows: list[Window] = []

    def window(self, width: int = 300, height: int = 300, shown: bool = True) -> Window:
        made = Window(self, width, height)
        self.windows.append(made)
        if shown:
            made.show()
        return made

    def set_resolution(self, dots: float | None) -> None:
        """Dots per inch, as a desktop sets them."""
        if dots is None:
            self.root.delete_property(Xatom.RESOURCE_MANAGER)
        else:
            text = f"Xft.antialias:\t1\nXft.dpi:\t{dots:g}\n".encode()
            self.root.change_property(Xatom.RESOURCE_MANAGER, Xatom.STRING, 8, text)
        self.display.sync()

    def press_key(self, code: int) -> None:
        for kind in (X.KeyPress, X.KeyRelease):
            xtest.fake_input(self.display, kind, code)
        self.display.sync()

    def focus(self) -> int:
        """The id of the window that has the focus."""
        return getattr(self.display.get_input_focus().focus, "id", 0)

    def close(self) -> None:
        self.set_resolution(None)
        for window in self.windows:
            window.destroy()
        self.display.close()


class Window:
    """A window of the host, at the upper left corner of the screen."""

    def __init__(self, host: Host, width: int, height: int) -> None:
        self.host = host
        self.handle: Handle = host.root.create_window(
            0,
            0,
            width,
            height,
            0,
            host.display.screen().root_depth,
            background_pixel=BACKGROUND,
            override_redirect=True,
            event_mask=X.KeyPressMask | X.KeyReleaseMask | X.StructureNotifyMask,
        )
        host.display.sync()

    @property
    def id(self) -> int:
        return self.handle.id

    def show(self) -> None:
        self.handle.map()
        self.host.display.sync()

    def hide(self) -> None:
        self.handle.unmap()
        self.host.display.sync()

    def resize(self, width: int, height: int) -> None:
        self.handle.configure(width=width, height=height)
        self.host.display.sync()

    def set_state(self, state: int) -> None:
        """As a window manager sets it: 1 is normal, 3 is iconic."""
        atom = self.host.display.intern_atom("WM_STATE")
        self.handle.change_property(atom, atom, 32, [state, 0])
        self.host.display.sync()

    def destroy(self) -> None:
        try:
            self.handle.destroy()
            self.host.display.sync()
        except error.ConnectionClosedError:
            pass

    def size(self) -> tuple[int, int]:
        place = self.handle.get_geometry()
        return place.width, place.height

    def children(self) -> list[tuple[int, int, int, int]]:
        """Place and size of each child window."""
        places = (child.get_geometry() for child in self.handle.query_tree().children)
        return [(place.x, place.y, place.width, place.height) for place in places]

    def shot(self) -> Shot:
        """Its contents: rows from the top, of red, green and blue."""
        width, height = self.size()
        image = self.handle.get_image(0, 0, width, height, X.ZPixmap, 0xFFFFFFFF)
        texels = np.frombuffer(image.data, np.uint8).reshape(height, width, 4)
        return texels[:, :, 2::-1].copy()

    def click(self, x: int, y: int, button: int = 1) -> None:
        """Moves the pointer there, presses and releases."""
        self.handle.raise_window()
        xtest.fake_input(self.host.display, X.MotionNotify, x=x, y=y)
        xtest.fake_input(self.host.display, X.ButtonPress, button)
        xtest.fake_input(self.host.display, X.ButtonRelease, button)
        self.host.display.sync()

    def take_focus(self) -> None:
        self.handle.set_input_focus(X.RevertToPointerRoot, X.CurrentTime)
        self.host.display.sync()

    def events(self, *kinds: int) -> list[Any]:
        """The events of these kinds since the last call."""
        pending = self.host.display.pending_events()
        come = [self.host.display.next_event() for _ in range(pending)]
        return [event for event in come if event.type in kinds]
