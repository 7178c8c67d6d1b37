"""The panel beside the picture: state, buttons, settings, configuration, figures and plots."""

from __future__ import annotations

import tkinter as tk
from tkinter import ttk
from typing import Callable

from .figures import (
    Span,
    Standing,
    config_facts,
    device_facts,
    notes,
    speed_facts,
    state,
    state_style,
    time_facts,
)
from .keeper import Keeper
from .records import ViewStatus
from .viewer_pages import Configuration, Do, LiveSettings
from .viewer_plots import Plots
from .viewer_scroll import Scrolled
from .viewer_style import NEWS, Style, accent
from .viewer_widgets import enable, update, wrapped

LEAST_WIDTH = 360
LARGEST_WIDTH = 520
MARGIN = 14
ERROR_LINES = 3
ERROR_MARGIN = 24
# Between a notebook's edge and its pages, in pixels at any scale.
TAB_INSET = 2
# Facts side by side in a row of figures.
FIGURE_COLUMNS = 2


class Panel(Scrolled):
    """All of the window but the picture. ``save`` and ``dismiss`` are called for their buttons."""

    def __init__(
        self,
        parent: tk.Misc,
        style: Style,
        do: Do,
        keeper: Keeper,
        save: Callable[[], None],
        dismiss: Callable[[], None],
    ) -> None:
        super().__init__(parent, style, (style.px(MARGIN), style.px(10)))
        self._style = style
        self._accent = ""
        body = self.body
        self.head = Head(body, style)
        self.error = ErrorLine(body, style, do, keeper, dismiss)
        self.notes = Notes(body, style)
        self.buttons = Buttons(body, style, do, keeper, save)
        self.tabs = ttk.Notebook(body)
        self.live = LiveSettings(self.tabs, style, do, keeper)
        self.configuration = Configuration(self.tabs, style, do, keeper)
        self.tabs.add(self.live, text="Picture and flow")
        self.tabs.add(self.configuration, text="New flow")
        self.figures = Figures(body, style)
        self.plots = Plots(body, style)
        body.columnconfigure(0, weight=1)
        parts = (self.head, self.error, self.notes, self.buttons, self.tabs, self.figures)
        for row, part in enumerate((*parts, self.plots)):
            inset = 0 if part is self.tabs else TAB_INSET
            part.grid(row=row, column=0, sticky="nsew", padx=inset, pady=(0, style.px(8)))
        self.plots.grid_configure(pady=0)
        body.rowconfigure(len(parts), weight=1)
        self.error.grid_remove()
        self.notes.grid_remove()

    def needed_width(self) -> int:
        """The width that the controls need. Texts need none, since they wrap."""
        parts = (self.buttons, self.live, self.configuration)
        needed = max(part.winfo_reqwidth() for part in parts)
        return needed + 2 * (self._style.px(MARGIN) + TAB_INSET)

    def needed_height(self) -> int:
        """The height of everything, with an error message of a few lines."""
        lines = ERROR_LINES * self._style.text.metrics("linespace")
        return self.body.winfo_reqheight() + lines + self._style.px(ERROR_MARGIN)

    def show(
        self,
        status: ViewStatus,
        standing: Standing,
        until: float | None,
        message: str | None,
        news: str | None,
        pictures: float | None,
    ) -> None:
        """Show a status, with ``message`` of a failure and ``news`` of a success. ``pictures`` is
        their number per second, None where they cannot be drawn.
        """
        if status.palette != self._accent:
            self._accent = status.palette
            self._style.set_accent(accent(status.palette))
        self.head.show(status, until, standing)
        self.error.show(message, standing.failed)
        told: list[Span] = [] if news is None else [(news, "good")]
        self.notes.show([*told, *notes(status, standing)])
        self.buttons.show(status, standing, pictures is not None)
        self.live.show(status, standing)
        self.configuration.show(status)
        self.figures.show(status, until, pictures)
        self.plots.show(status, standing)
        self.fit()


class Head(ttk.Frame):
    """State and configuration of the flow."""

    def __init__(self, parent: tk.Misc, style: Style) -> None:
        super().__init__(parent)
        self.word = ttk.Label(self, style="Title.TLabel")
        self._config = wrapped(ttk.Label(self, style="Dim.TLabel"))
        self.columnconfigure(0, weight=1)
        self.word.grid(row=0, column=0, sticky="w")
        self._config.grid(row=1, column=0, sticky="ew", pady=(style.px(2), 0))

    def show(self, status: ViewStatus, until: float | None, standing: Standing) -> None:
        word = state(status, until, standing)
        update(self.word, word.capitalize(), NEWS[state_style(word)])
        update(self._config, ", ".join(config_facts(status.config)))


class ErrorLine(ttk.Frame):
    """The error message and a button to dismiss it; hidden if there is none. Where the flow is
    lost, other buttons start one.
    """

    def __init__(
        self,
        parent: tk.Misc,
        style: Style,
        do: Do,
        keeper: Keeper,
        dismiss: Callable[[], None],
    ) -> None:
        super().__init__(parent, style="Error.TFrame", padding=style.px(7))
        self.text = wrapped(ttk.Label(self, style="Error.TLabel"))
        self.button = ttk.Button(self, text="Dismiss", command=dismiss, takefocus=False)
        self.ways_on = ttk.Frame(self, style="Error.TFrame")
        self.reset_button = ttk.Button(
            self.ways_on,
            text="Start it again",
            command=lambda: do(lambda view: keeper.reset()),
            takefocus=False,
        )
        self.seed_button = ttk.Button(
            self.ways_on,
            text="Start a new seed",
            command=lambda: do(lambda view: keeper.next_seed()),
            takefocus=False,
        )
        self.columnconfigure(0, weight=1)
        self.text.grid(row=0, column=0, sticky="ew", padx=(0, style.px(8)))
        self.button.grid(row=0, column=1, sticky="e")
        self.reset_button.grid(row=0, column=0)
        self.seed_button.grid(row=0, column=1, padx=(style.px(5), 0))
        self.ways_on.grid(row=1, column=0, columnspan=2, sticky="w", pady=(style.px(6), 0))
        self.ways_on.grid_remove()

    @property
    def shown(self) -> bool:
        return bool(self.winfo_manager())

    def show(self, message: str | None, failed: bool) -> None:
        if message is None:
            if self.shown:
                self.grid_remove()
            return
        update(self.text, message)
        if failed != bool(self.ways_on.winfo_manager()):
            self.ways_on.grid() if failed else self.ways_on.grid_remove()
        if not self.shown:
            self.grid()


class Notes(ttk.Frame):
    """Sentences about the flow, each in the colour of its kind; hidden if there are none."""

    MOST = 4

    def __init__(self, parent: tk.Misc, style: Style) -> None:
        super().__init__(parent)
        self.columnconfigure(0, weight=1)
        self.labels = [wrapped(ttk.Label(self)) for _ in range(self.MOST)]
        for row, label in enumerate(self.labels):
            label.grid(row=row, column=0, sticky="ew", pady=(0, style.px(2)))
            label.grid_remove()

    @property
    def texts(self) -> list[str]:
        return [str(label["text"]) for label in self.labels if label.winfo_manager()]

    def show(self, said: list[Span]) -> None:
        for n, label in enumerate(self.labels):
            if n < len(said):
                words, kind = said[n]
                update(label, words, NEWS[kind])
            if (n < len(said)) != bool(label.winfo_manager()):
                label.grid() if n < len(said) else label.grid_remove()
        if bool(said) != bool(self.winfo_manager()):
            self.grid() if said else self.grid_remove()


class Buttons(ttk.Frame):
    """The buttons that steer the flow, and Save."""

    def __init__(
        self,
        parent: tk.Misc,
        style: Style,
        do: Do,
        keeper: Keeper,
        save: Callable[[], None],
    ) -> None:
        super().__init__(parent)
        self.by_name: dict[str, ttk.Button] = {}
        commands: dict[str, tuple[str, Callable[[], None]]] = {
            "toggle": ("Pause", lambda: do(lambda view: keeper.toggle())),
            "step": ("Step", lambda: do(lambda view: keeper.step())),
            "reset": ("Reset", lambda: do(lambda view: keeper.reset())),
            "seed": ("New seed", lambda: do(lambda view: keeper.next_seed())),
            "save": ("Save", save),
        }
        for column, (name, (text, command)) in enumerate(commands.items()):
            button = ttk.Button(self, text=text, command=command, takefocus=False)
            self.by_name[name] = button
            self.columnconfigure(column, weight=1)
            gap = style.px(5) if column else 0
            button.grid(row=0, column=column, sticky="ew", padx=(gap, 0))
        self.by_name["toggle"].configure(style="Main.TButton", width=6)

    def show(self, status: ViewStatus, standing: Standing, drawn: bool) -> None:
        update(self.by_name["toggle"], "Pause" if status.running else "Run")
        for name in ("toggle", "step"):
            enable(self.by_name[name], not standing.failed)
        enable(self.by_name["save"], drawn and status.frame is not None)


class Figures(ttk.Frame):
    """Captions, each with a few facts in columns beside it."""

    ROWS = {"time": 3, "speed": 3, "memory": 2}

    def __init__(self, parent: tk.Misc, style: Style) -> None:
        super().__init__(parent)
        self._labels: dict[str, list[ttk.Label]] = {}
        self.columnconfigure(0, minsize=style.caption)
        for column in range(1, FIGURE_COLUMNS + 1):
            self.columnconfigure(column, weight=1, uniform="fact")
        row = 0
        for name, rows in self.ROWS.items():
            caption = ttk.Label(self, text=name.capitalize(), style="Dim.TLabel")
            caption.grid(row=row, column=0, sticky="w", pady=(0, style.px(2)))
            self._labels[name] = []
            columns = 1 if name == "memory" else FIGURE_COLUMNS
            for n in range(rows * columns):
                label = wrapped(ttk.Label(self))
                label.grid(
                    row=row + n // columns,
                    column=1 + n % columns,
                    columnspan=FIGURE_COLUMNS // columns,
                    sticky="ew",
                    pady=(0, style.px(2)),
                )
                self._labels[name].append(label)
            row += rows

    def show(self, status: ViewStatus, until: float | None, pictures: float | None) -> None:
        drawn = "no pictures" if pictures is None else f"{pictures:.0f} pictures/s"
        speed = [*speed_facts(status), drawn]
        rows: dict[str, list[str]] = {
            "time": time_facts(status, until),
            "speed": speed,
            "memory": device_facts(status),
        }
        for name, facts in rows.items():
            labels = self._labels[name]
            for label, fact in zip(labels, [*facts, *[""] * len(labels)]):
                update(label, fact)
