"""The panel beside the picture: state, buttons, settings, configuration, figures and plots."""

from __future__ import annotations

import math
import tkinter as tk
from tkinter import ttk
from typing import Any, Callable

from .figures import (
    FIXED,
    REYNOLDS_MODES,
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
from .records import (
    COLOR_RANGES,
    DISPLAYS,
    EXPOSURE_LIMITS,
    INTEGRATORS,
    OPERATORS,
    PALETTES,
    SIGMA_LIMITS,
    START_SPECTRA,
    ViewStatus,
)
from .view import View
from .viewer_plots import ColorScale, Plots
from .viewer_scroll import Scrolled
from .viewer_style import NEWS, Style, accent
from .viewer_widgets import Choice, Field, Slider, Switch
from .viscosity import LOG_REYNOLDS_LIMITS

# "set" clamps the Courant number so.
CFL_LIMITS = (1.0, 3.0)

LEAST_WIDTH = 360
LARGEST_WIDTH = 520
MARGIN = 14
ROW_GAP = 5
ERROR_LINES = 3
ERROR_MARGIN = 24
# Between a notebook's edge and its pages, in pixels at any scale.
TAB_INSET = 2
# Facts side by side in a row of figures.
FIGURE_COLUMNS = 2

RESOLUTIONS = ("128", "256", "512", "1024", "2048", "4096")

# Runs an operation on the view, and shows its status or why it was refused.
Do = Callable[[Callable[[View], ViewStatus]], None]


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
        self._config = _wrapped(ttk.Label(self, style="Dim.TLabel"))
        self.columnconfigure(0, weight=1)
        self.word.grid(row=0, column=0, sticky="w")
        self._config.grid(row=1, column=0, sticky="ew", pady=(style.px(2), 0))

    def show(self, status: ViewStatus, until: float | None, standing: Standing) -> None:
        word = state(status, until, standing)
        _update(self.word, word.capitalize(), NEWS[state_style(word)])
        _update(self._config, ", ".join(config_facts(status.config)))


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
        self.text = _wrapped(ttk.Label(self, style="Error.TLabel"))
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
        _update(self.text, message)
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
        self.labels = [_wrapped(ttk.Label(self)) for _ in range(self.MOST)]
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
                _update(label, words, NEWS[kind])
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
        _update(self.by_name["toggle"], "Pause" if status.running else "Run")
        for name in ("toggle", "step"):
            _enable(self.by_name[name], not standing.failed)
        _enable(self.by_name["save"], drawn and status.frame is not None)


class LiveSettings(ttk.Frame):
    """Settings that change while the flow runs: the keys of the operation "set"."""

    def __init__(self, parent: tk.Misc, style: Style, do: Do, keeper: Keeper) -> None:
        super().__init__(parent, padding=(0, style.px(8), 0, 0))

        def change(key: str) -> Callable[[Any], None]:
            return lambda value: do(lambda view: view.set(**{key: value}))

        def slider(key: str, limits: tuple[float, float], text: Callable[[float], str]) -> Slider:
            return Slider(self, style, limits, text, change(key))

        self.controls: dict[str, Choice | Switch | Slider] = {
            "display": Choice(self, style, DISPLAYS, change("display")),
            "palette": Choice(self, style, PALETTES, change("palette")),
            "color_range": Choice(self, style, COLOR_RANGES, change("color_range")),
            "sigma": slider("sigma", SIGMA_LIMITS, "{:.2f}".format),
            "exposure": slider("exposure", EXPOSURE_LIMITS, "{:.2f}".format),
            "flow": Switch(self, "draw flow lines", change("flow")),
            "reynolds_mode": Choice(
                self,
                style,
                REYNOLDS_MODES,
                lambda mode: do(lambda view: keeper.choose(mode)),
            ),
            "log_reynolds": slider("log_reynolds", LOG_REYNOLDS_LIMITS, _power),
            "cfl": slider("cfl", CFL_LIMITS, "{:.2f}".format),
        }
        picture = ("Display", "Palette", "Range", "Sigma", "Exposure", "Flow")
        captions = (*picture, "Reynolds", "", "CFL")
        self._captions: dict[str, ttk.Label] = {}
        self.scale = ColorScale(self, style)
        self.columnconfigure(0, minsize=style.caption)
        self.columnconfigure(1, weight=1)
        gap = (0, style.px(ROW_GAP))
        for row, (caption, (key, control)) in enumerate(zip(captions, self.controls.items())):
            label = self._captions[key] = ttk.Label(self, text=caption, style="Dim.TLabel")
            label.grid(row=row, column=0, sticky="w", pady=gap)
            control.grid(row=row, column=1, sticky="ew", pady=gap)
        below = (style.px(2), 0)
        self.scale.grid(row=len(captions), column=0, columnspan=2, sticky="ew", pady=below)

    def show(self, status: ViewStatus, standing: Standing) -> None:
        vorticity = status.display == "vorticity"
        linear = vorticity and status.color_range == "sigma"
        without_effect = {
            "color_range": not vorticity,
            "sigma": not linear,
            "exposure": linear,
            "log_reynolds": standing.reynolds_mode != FIXED,
            "cfl": status.config.fixed_dt is not None,
        }
        shown = {
            "display": status.display,
            "palette": status.palette,
            "color_range": status.color_range,
            "sigma": status.sigma,
            "exposure": status.exposure,
            "flow": status.flow,
            "reynolds_mode": standing.reynolds_mode,
            "log_reynolds": math.log10(max(status.effective_reynolds, 1e-30)),
            "cfl": status.config.cfl,
        }
        for key, value in shown.items():
            enabled = not without_effect.get(key, False)
            self.controls[key].show(value, enabled)  # type: ignore[arg-type]
            look = "Dim.TLabel" if enabled else "Faint.TLabel"
            if str(self._captions[key]["style"]) != look:
                self._captions[key]["style"] = look
        self.scale.show(status)


class Configuration(ttk.Frame):
    """The configuration of a new flow: the keys of the operation "configure", sent together."""

    def __init__(self, parent: tk.Misc, style: Style, do: Do, keeper: Keeper) -> None:
        super().__init__(parent, padding=(0, style.px(8), 0, 0))
        self._do = do
        self._keeper = keeper
        self._status: ViewStatus | None = None
        self.fields = {
            field.key: field
            for field in (
                Field(self, "resolution", "Resolution", int, examples=RESOLUTIONS),
                Field(self, "k0", "k0", int),
                Field(self, "seed", "Seed", int),
                Field(self, "reynolds", "Reynolds", float),
                Field(self, "cfl", "CFL", float),
                Field(self, "fixed_dt", "Fixed dt", float, optional=True),
                Field(self, "integrator", "Integrator", str, names=INTEGRATORS),
                Field(self, "operator", "Operator", str, names=OPERATORS),
                Field(self, "start_spectrum", "Spectrum", str, names=START_SPECTRA),
            )
        }
        gap = (0, style.px(ROW_GAP))
        for n, field in enumerate(self.fields.values()):
            row, column = n // 2, 2 * (n % 2)
            before = style.px(12) if column else 0
            field.caption.grid(
                row=row, column=column, sticky="w", padx=(before, style.px(8)), pady=gap
            )
            field.widget.grid(row=row, column=column + 1, sticky="ew", pady=gap)
            field.text.trace_add("write", lambda *names: self._enable_buttons())
        for column in (1, 3):
            self.columnconfigure(column, weight=1, uniform="field")
        buttons = ttk.Frame(self)
        buttons.grid(row=5, column=0, columnspan=4, sticky="ew")
        for column in (0, 1):
            buttons.columnconfigure(column, weight=1, uniform="button")
        self.apply_button = ttk.Button(
            buttons, text="Apply", style="Main.TButton", command=self.apply, takefocus=False
        )
        self.revert_button = ttk.Button(
            buttons, text="Revert", command=self.revert, takefocus=False
        )
        self.apply_button.grid(row=0, column=0, sticky="ew")
        self.revert_button.grid(row=0, column=1, sticky="ew", padx=(style.px(5), 0))

    def show(self, status: ViewStatus) -> None:
        self._status = status
        for key, field in self.fields.items():
            field.show(getattr(status.config, key))
        self._enable_buttons()

    def apply(self) -> None:
        """Start a new flow from the edited fields, which keep their texts if it is refused."""
        self._do(self._configure)

    def revert(self) -> None:
        """Set all fields back to the view's configuration."""
        if self._status is not None:
            for key, field in self.fields.items():
                field.show(getattr(self._status.config, key), force=True)

    def _configure(self, view: View) -> ViewStatus:
        changes = {key: field.value() for key, field in self.fields.items() if field.edited}
        self._status = self._keeper.configure(**changes)
        self.revert()
        return self._status

    def _enable_buttons(self) -> None:
        """Enable Apply and Revert if any field was edited."""
        edited = any(field.edited for field in self.fields.values())
        for button in (self.apply_button, self.revert_button):
            _enable(button, edited)


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
                label = _wrapped(ttk.Label(self))
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
                _update(label, fact)


def _wrapped(label: ttk.Label) -> ttk.Label:
    """Make a label ask for no width, and wrap its text at the width that it gets."""

    def wrap(event: tk.Event[tk.Misc]) -> None:
        if str(label["wraplength"]) != str(event.width):
            label["wraplength"] = event.width

    label.configure(width=1)
    label.bind("<Configure>", wrap)
    return label


def _update(label: ttk.Label | ttk.Button, text: str, color: str | None = None) -> None:
    """Set text and colour only if they differ, since Tk lays out and draws again at each change."""
    if str(label["text"]) != text:
        label["text"] = text
    if color is not None and str(label["foreground"]) != color:
        label["foreground"] = color


def _enable(button: ttk.Button, enabled: bool) -> None:
    if button.instate(("disabled",)) == enabled:
        button.state(("!disabled" if enabled else "disabled",))


def _power(exponent: float) -> str:
    """Ten to the power ``exponent``, as the text of a slider."""
    return f"{10.0**exponent:,.0f}"
