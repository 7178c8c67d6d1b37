"""The command ``view``: a window with the live picture of a flow and a panel that steers it."""

from __future__ import annotations

import argparse
import dataclasses
import os
import sys
import time
import tkinter as tk
from collections import deque
from collections.abc import Sequence
from tkinter import filedialog
from types import TracebackType
from typing import Any, Callable

from ._library import ZephaneError
from .figures import config_facts
from .options import chosen_picture, open_view
from .records import DISPLAYS, PALETTES, ViewStatus
from .view import FLOW_OPERATIONS, View
from .viewer_help import HelpPage
from .viewer_panel import LARGEST_WIDTH, LEAST_WIDTH, Panel
from .viewer_style import BACKGROUND, UNITS_PER_INCH, Style

POLL_MILLISECONDS = 100
# The rate of pictures is an average over this time.
RATE_SECONDS = 1.0

LEAST_SIDE = 240
# Of the screen's height; the rest is for the desktop's bars and the window's title.
SCREEN_SHARE = 0.88

MODIFIERS = 0x4 | 0x8 | 0x40  # Control, Alt and Super

# The library's refusal on a desktop without a file dialog. Tk's dialog is used then.
NO_DIALOG = "Could not open Save PNG dialog."
PICTURE_NAME = "2DZephane.png"


def view(options: argparse.Namespace) -> int:
    """Run the command and return its exit code; failures are raised."""
    picture = chosen_picture(options)
    root = open_root()
    with open_view(options) as opened:
        opened.set(**dataclasses.asdict(picture))
        try:
            Viewer(root, opened, until=options.until, side=options.size).start()
            root.mainloop()
        except KeyboardInterrupt:
            pass
    return 0


class Viewer:
    """The window of a view. Closing it closes the view too."""

    def __init__(
        self, root: tk.Tk, view: View, *, until: float | None = None, side: int = 800
    ) -> None:
        self.root = root
        self.view = view
        self._until = until
        self._refusal: str | None = None
        self._closed = False
        self._timer: str | None = None
        self._shown: deque[tuple[float, int]] = deque()
        self._panel_shown = True
        root.title("Zephane")
        root.configure(background=BACKGROUND)
        root.withdraw()
        root.report_callback_exception = self._report
        root.protocol("WM_DELETE_WINDOW", self.close)
        self.picture = tk.Frame(root, background=BACKGROUND, takefocus=True)
        window = self.picture.winfo_id()
        root.update()  # attach() needs a window that the X server knows.
        view.attach(window)
        self.status = view.status()
        self.style = Style(root, self._scale())
        self.panel = Panel(root, self.style, self.do, self.save, self.dismiss)
        self.help = HelpPage(root, self.style, self.picture)
        self._place_window(side)
        self._bind()
        self.show(self.status)
        root.deiconify()

    def start(self) -> None:
        self.do(View.start)
        self.picture.focus_set()
        self._poll()

    def do(self, operation: Callable[[View], ViewStatus]) -> None:
        """Run an operation on the view, and show its status or why it was refused."""
        if self._closed:
            return
        try:
            status = operation(self.view)
        except (ZephaneError, ValueError, OSError) as refusal:
            self._refusal = str(refusal)
            status = self.view.status()
        else:
            self._refusal = None
        self.show(status)

    def show(self, status: ViewStatus) -> None:
        self.status = status
        message = self._refusal if self._refusal is not None else status.error_message
        self.panel.show(status, self._until, message, self._picture_rate(status))
        title = f"Zephane, {', '.join(config_facts(status.config)[:3])}"
        if self.root.title() != title:
            self.root.title(title)

    def show_message(self, message: str) -> None:
        """Show a failure of the window itself until it is dismissed or an operation succeeds."""
        self._refusal = message
        self.show(self.status)

    def save(self) -> None:
        """Ask the user for a path, and write the picture there."""
        self.do(self._save)

    def dismiss(self) -> None:
        self.do(View.dismiss)

    def toggle_panel(self) -> None:
        self._panel_shown = not self._panel_shown
        self._lay_out()

    def toggle_full_screen(self) -> None:
        self.root.attributes("-fullscreen", not self.root.attributes("-fullscreen"))

    def cycle(self, key: str) -> None:
        """Switch to the next ``key``, "display" or "palette", or switch "flow" on or off."""
        status = self.status
        change: dict[str, Any] = {
            "display": _next(status.display, DISPLAYS),
            "palette": _next(status.palette, PALETTES),
            "flow": not status.flow,
        }
        self.do(lambda view: view.set(**{key: change[key]}))

    def escape(self) -> None:
        """Close the help; if it is not shown, leave the full screen, or else quit."""
        if self.help.shown:
            self.help.hide()
        elif self.root.attributes("-fullscreen"):
            self.toggle_full_screen()
        else:
            self.close()

    def close(self) -> None:
        """Close the view and the window. Closing again does nothing."""
        if self._closed:
            return
        self._closed = True
        if self._timer is not None:
            self.root.after_cancel(self._timer)
        self.view.close()
        self.root.destroy()

    def _poll(self) -> None:
        if self._closed:
            return
        self.show(self.view.status())
        self._timer = self.root.after(POLL_MILLISECONDS, self._poll)

    def _scale(self) -> float:
        """Pixels per unit: the picture's own, so that texts have one size in the whole window."""
        if self.status.canvas is not None:
            return self.status.canvas.scale
        return float(self.root.winfo_fpixels("1i")) / UNITS_PER_INCH

    def _picture_rate(self, status: ViewStatus) -> float:
        """Pictures shown per second, averaged over ``RATE_SECONDS``."""
        now = time.monotonic()
        # The view counts from 0 again with a new flow.
        if self._shown and status.presentations < self._shown[-1][1]:
            self._shown.clear()
        self._shown.append((now, status.presentations))
        while len(self._shown) > 2 and self._shown[1][0] < now - RATE_SECONDS:
            self._shown.popleft()
        (began, first), (ended, last) = self._shown[0], self._shown[-1]
        return (last - first) / (ended - began) if ended > began else 0.0

    def _save(self, view: View) -> ViewStatus:
        try:
            return view.save()
        except ZephaneError as refusal:
            if str(refusal) != NO_DIALOG:
                raise
        path = filedialog.asksaveasfilename(
            parent=self.root,
            title="Save PNG",
            initialfile=PICTURE_NAME,
            defaultextension=".png",
            filetypes=[("PNG image", "*.png")],
        )
        return view.export(png=path) if path else view.status()

    def _place_window(self, side: int) -> None:
        self.root.update_idletasks()  # Computes the sizes that the controls ask for.
        px, panel = self.style.px, self._panel_width(0)
        wide = self.root.winfo_screenwidth()
        high = int(SCREEN_SHARE * self.root.winfo_screenheight())
        side = max(min(px(side), high, wide - panel), px(LEAST_SIDE))
        needed = min(self.panel.needed_height(), high)
        self.root.geometry(f"{side + panel}x{max(side, needed)}")
        self.root.minsize(px(LEAST_SIDE), px(LEAST_SIDE))
        self.root.bind("<Configure>", self._resized)

    def _panel_width(self, spare: int) -> int:
        """The panel's width: the ``spare`` pixels beside a square picture, within limits."""
        px = self.style.px
        needed = max(px(LEAST_WIDTH), self.panel.needed_width())
        return min(max(spare, needed), max(px(LARGEST_WIDTH), needed))

    def _resized(self, event: tk.Event[tk.Misc]) -> None:
        if event.widget is self.root:
            self._lay_out()

    def _lay_out(self) -> None:
        width, height = self.root.winfo_width(), self.root.winfo_height()
        panel = self._panel_width(width - height) if self._panel_shown else 0
        room = max(width - panel, 1)
        side = max(min(room, height), 1)
        self.picture.place(x=(room - side) // 2, y=(height - side) // 2, width=side, height=side)
        if panel:
            self.panel.place(x=room, y=0, width=panel, height=height)
        else:
            self.panel.place_forget()

    def _bind(self) -> None:
        self.keys: dict[str, Callable[[], None]] = {
            **{name: _bound(self.do, work) for name, work in FLOW_OPERATIONS.items()},
            "p": self.save,
            "d": lambda: self.cycle("display"),
            "c": lambda: self.cycle("palette"),
            "f": lambda: self.cycle("flow"),
            "b": self.toggle_panel,
            "h": self.help.toggle,
            "question": self.help.toggle,
            "f11": self.toggle_full_screen,
            "escape": self.escape,
        }
        self.root.bind("<Key>", self._press)
        self.root.bind("<ButtonRelease-1>", self._release)
        self.root.bind("<<ComboboxSelected>>", lambda event: self.picture.focus_set())
        self.root.bind("<FocusIn>", lambda event: self._focus(event, True))
        self.root.bind("<FocusOut>", lambda event: self._focus(event, False))

    def _press(self, event: tk.Event[tk.Misc]) -> None:
        key = event.keysym.lower()
        if isinstance(event.state, int) and event.state & MODIFIERS:
            return
        if key in ("return", "kp_enter", "escape") and _is_entry(event.widget):
            configuration = self.panel.configuration
            configuration.revert() if key == "escape" else configuration.apply()
            self.picture.focus_set()
            return
        if key == "space" and _presses(event.widget):
            return
        if key in self.keys:
            self.keys[key]()

    def _release(self, event: tk.Event[tk.Misc]) -> None:
        """Close the help at a click, and give the keyboard back to the picture, so that keys work;
        a click into an entry keeps it there.
        """
        if self.help.shown:
            self.help.hide()
        if str(event.widget).startswith(str(self.panel)) and not _is_entry(event.widget):
            self.picture.focus_set()

    def _focus(self, event: tk.Event[tk.Misc], focused: bool) -> None:
        if event.widget is self.root and not self._closed:
            self.view.set(focused=focused)

    def _report(
        self, kind: type[BaseException], error: BaseException, trace: TracebackType | None
    ) -> None:
        """Called by Tk with an exception that an event's handler has raised."""
        if isinstance(error, KeyboardInterrupt):
            self.close()
            return
        sys.excepthook(kind, error, trace)
        if not self._closed:
            self.show_message(str(error) or kind.__name__)


def open_root() -> tk.Tk:
    try:
        return tk.Tk(className="Zephane")
    except tk.TclError as failure:
        reason = failure if os.environ.get("DISPLAY") else "DISPLAY is not set"
        raise ZephaneError(f"The viewer needs a display: {reason}.") from None


def _next(name: str, names: Sequence[str]) -> str:
    return names[(names.index(name) + 1) % len(names)]


def _bound(
    do: Callable[[Callable[[View], ViewStatus]], None], operation: Callable[[View], ViewStatus]
) -> Callable[[], None]:
    return lambda: do(operation)


def _is_entry(widget: tk.Misc | str) -> bool:
    kind = "" if isinstance(widget, str) else widget.winfo_class()
    return kind in ("TEntry", "TCombobox")


def _presses(widget: tk.Misc | str) -> bool:
    """Whether the space bar presses this widget, which has the focus."""
    kind = "" if isinstance(widget, str) else widget.winfo_class()
    return kind in ("TButton", "TCheckbutton", "TRadiobutton")
