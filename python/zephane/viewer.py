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
from .keeper import FLOW_OPERATIONS, Keeper
from .options import chosen_picture, open_view
from .records import DISPLAYS, PALETTES, ViewStatus
from .view import View
from .viewer_blank import BlankPicture, explained
from .viewer_help import HelpPage
from .viewer_panel import LARGEST_WIDTH, LEAST_WIDTH, Panel
from .viewer_speed import measured_step, suitable_resolution
from .viewer_style import BACKGROUND, UNITS_PER_INCH, Style

POLL_MILLISECONDS = 100
# The rate of pictures is an average over this time.
RATE_SECONDS = 1.0

LEAST_SIDE = 240
# Of the screen's height; the rest is for the desktop's bars and the window's title.
SCREEN_SHARE = 0.88

MODIFIERS = 0x4 | 0x8 | 0x40  # Control, Alt and Super

PICTURE_NAME = "2DZephane.png"


def view(options: argparse.Namespace) -> int:
    """Run the command and return its exit code; failures are raised."""
    picture = chosen_picture(options)
    root = open_root()
    if options.resolution is None and options.initial is None and options.state is None:
        options.resolution = suitable_resolution(measured_step(options.library))
    with open_view(options) as opened:
        opened.set(**dataclasses.asdict(picture))
        try:
            viewer = Viewer(
                root,
                opened,
                until=options.until,
                side=options.size,
                adapts=options.adapt_viscosity,
            )
            viewer.start()
            root.mainloop()
        except KeyboardInterrupt:
            pass
    return 0


class Viewer:
    """The window of a view. Closing it closes the view too."""

    def __init__(
        self,
        root: tk.Tk,
        view: View,
        *,
        until: float | None = None,
        side: int = 800,
        adapts: bool = False,
    ) -> None:
        self.root = root
        self.view = view
        self.keeper = Keeper(view, adapts)
        self._until = until
        self._refusal: str | None = None
        self._news: str | None = None
        self._asking = False
        self._folder: str | None = None
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
        self.panel = Panel(root, self.style, self.do, self.keeper, self.save, self.dismiss)
        self.blank = BlankPicture(root, self.style, self.picture)
        self.help = HelpPage(root, self.style)
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
            self._refusal, self._news = str(refusal), None
            status = self.view.status()
        else:
            self._refusal = self._news = None
        self.show(status)

    def show(self, status: ViewStatus) -> None:
        self.status = status
        standing = self.keeper.standing(status)
        message = self._refusal if self._refusal is not None else status.error_message
        if status.error_message is not None and not standing.failed:
            self.blank.show(status.error_message)
        rate = None if self.blank.shown else self._picture_rate(status)
        if message is not None:
            message = explained(message)
        self.panel.show(status, standing, self._until, message, self._news, rate)
        title = f"Zephane, {', '.join(config_facts(status.config)[:3])}"
        if self.root.title() != title:
            self.root.title(title)

    def show_message(self, message: str) -> None:
        """Show a failure of the window itself until it is dismissed or an operation succeeds."""
        self._refusal = message
        self.show(self.status)

    def save(self) -> None:
        """Ask the user for a path, write the picture there, and say where it is."""
        if self._asking or self.blank.shown or self.status.frame is None:
            return
        path = self._asked_path()
        if not path or self._closed:
            return
        self._folder = os.path.dirname(path)
        self.do(lambda view: view.export(png=path))
        if self._refusal is None:
            self._news = f"Saved {path}"
        else:
            self._refusal = f"Could not write {path}: {self._refusal}"
        self.show(self.status)

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
        self.show(self.keeper.update())
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

    def _asked_path(self) -> str:
        """The path that the user chooses, or "". The window lives on meanwhile."""
        self._asking = True
        try:
            return filedialog.asksaveasfilename(
                parent=self.root,
                title="Save PNG",
                initialdir=self._folder,
                initialfile=PICTURE_NAME,
                defaultextension=".png",
                filetypes=[("PNG image", "*.png")],
            )
        except tk.TclError:
            if not self._closed:
                raise
            return ""  # The viewer was closed with the dialog open.
        finally:
            self._asking = False

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
            **{name: self._bound(work) for name, work in FLOW_OPERATIONS.items()},
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
        self.root.bind("<Button-4>", lambda event: self._turn(event, -1))
        self.root.bind("<Button-5>", lambda event: self._turn(event, 1))
        self.root.bind("<<ComboboxSelected>>", lambda event: self.picture.focus_set())
        self.root.bind("<FocusIn>", lambda event: self._focus(event, True))
        self.root.bind("<FocusOut>", lambda event: self._focus(event, False))

    def _bound(self, work: Callable[[Keeper], ViewStatus]) -> Callable[[], None]:
        return lambda: self.do(lambda view: work(self.keeper))

    def _press(self, event: tk.Event[tk.Misc]) -> None:
        key = event.keysym.lower()
        if isinstance(event.state, int) and event.state & MODIFIERS:
            return
        if key in ("return", "kp_enter", "escape") and _is_entry(event.widget):
            configuration = self.panel.configuration
            configuration.revert() if key == "escape" else configuration.apply()
            self.picture.focus_set()
            return
        if _takes_text(event.widget) and key != "f11":
            return
        if key == "space" and _presses(event.widget):
            return
        if key in self.keys:
            self.keys[key]()

    def _release(self, event: tk.Event[tk.Misc]) -> None:
        """Close the help at a click, and give the keyboard back to the picture, so that keys work;
        a click into an entry keeps it there.
        """
        if self.help.shown and not str(event.widget).startswith(str(self.help)):
            self.help.hide()
        if str(event.widget).startswith(str(self.panel)) and not _is_entry(event.widget):
            self.picture.focus_set()

    def _turn(self, event: tk.Event[tk.Misc], clicks: int) -> None:
        if str(event.widget).startswith(str(self.panel)):
            self.panel.turn(clicks)

    def _focus(self, event: tk.Event[tk.Misc], focused: bool) -> None:
        if focused and str(event.widget).startswith(str(self.panel)):
            self.panel.see(event.widget)
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


def _is_entry(widget: tk.Misc | str) -> bool:
    kind = "" if isinstance(widget, str) else widget.winfo_class()
    return kind in ("TEntry", "TCombobox")


def _takes_text(widget: tk.Misc | str) -> bool:
    """Whether this widget, which has the focus, is a field into which letters are typed."""
    return _is_entry(widget) and not widget.instate(("readonly",))  # type: ignore[union-attr]


def _presses(widget: tk.Misc | str) -> bool:
    """Whether the space bar presses this widget, which has the focus."""
    kind = "" if isinstance(widget, str) else widget.winfo_class()
    return kind in ("TButton", "TCheckbutton", "TRadiobutton")
