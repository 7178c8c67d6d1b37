"""The viewer's controls: each shows a value of the view, and reports what the user changes."""

from __future__ import annotations

import math
import tkinter as tk
from collections.abc import Sequence
from tkinter import ttk
from typing import Any, Callable

from .viewer_style import Style

KEY_STEPS = 50
ADAPTIVE = "adaptive"

# Called with the new value.
Changed = Callable[[Any], None]


class Choice(ttk.Frame):
    """A row of buttons with names, of which one is chosen."""

    def __init__(
        self, parent: tk.Misc, style: Style, names: Sequence[str], changed: Changed
    ) -> None:
        super().__init__(parent)
        self._value = tk.StringVar(self)
        self.buttons: dict[str, ttk.Radiobutton] = {}
        for column, name in enumerate(names):
            self.buttons[name] = ttk.Radiobutton(
                self,
                text=name,
                value=name,
                variable=self._value,
                style="Choice.Toolbutton",
                command=lambda: changed(self._value.get()),
            )
            self.columnconfigure(column, weight=1)
            gap = (0, 0 if column == len(names) - 1 else style.px(1))
            self.buttons[name].grid(row=0, column=column, sticky="ew", padx=gap)

    @property
    def enabled(self) -> bool:
        return not any(button.instate(("disabled",)) for button in self.buttons.values())

    def show(self, value: str, enabled: bool = True) -> None:
        if value != self._value.get():
            self._value.set(value)
        if enabled != self.enabled:
            for button in self.buttons.values():
                button.state(("!disabled" if enabled else "disabled",))


class Switch(ttk.Checkbutton):
    """A check button, on or off."""

    def __init__(self, parent: tk.Misc, text: str, changed: Changed | None = None) -> None:
        self._value = tk.BooleanVar(parent)
        super().__init__(parent, text=text, variable=self._value)
        if changed is not None:
            report: Changed = changed
            self.configure(command=lambda: report(self._value.get()))
        # Tk begins with a third state, neither on nor off.
        self.state(("!alternate",))

    @property
    def value(self) -> bool:
        return self._value.get()

    @property
    def enabled(self) -> bool:
        return not self.instate(("disabled",))

    def show(self, value: bool, enabled: bool = True) -> None:
        if value != self._value.get():
            self._value.set(value)
        if enabled != self.enabled:
            self.state(("!disabled" if enabled else "disabled",))


class Slider(ttk.Frame):
    """A slider between two limits, with the value as text beside it."""

    def __init__(
        self,
        parent: tk.Misc,
        style: Style,
        limits: tuple[float, float],
        text: Callable[[float], str],
        changed: Changed,
    ) -> None:
        super().__init__(parent)
        self._limits = limits
        self._text = text
        self._changed = changed
        self._value = tk.DoubleVar(self)
        low, high = limits
        self.scale = ttk.Scale(self, from_=low, to=high, variable=self._value, command=self._moved)
        self._label = ttk.Label(self, anchor="e", width=9)
        self.columnconfigure(0, weight=1)
        self.scale.grid(row=0, column=0, sticky="ew")
        self._label.grid(row=0, column=1, padx=(style.px(6), 0))
        self.scale.bind("<Button-1>", self._jump)
        for key, steps in (("Left", -1), ("Down", -1), ("Right", 1), ("Up", 1)):
            self.scale.bind(f"<{key}>", self._nudging(steps))

    @property
    def value(self) -> float:
        return self._value.get()

    @property
    def enabled(self) -> bool:
        return not self.scale.instate(("disabled",))

    def show(self, value: float, enabled: bool = True) -> None:
        if enabled != self.enabled:
            self.scale.state(("!disabled" if enabled else "disabled",))
            self._label["style"] = "TLabel" if enabled else "Faint.TLabel"
        if abs(value - self._value.get()) > 1e-9:
            self._value.set(value)
        text = self._text(value)
        if text != self._label["text"]:
            self._label["text"] = text

    def _moved(self, value: str) -> None:
        self._changed(float(value))

    def _jump(self, event: tk.Event[ttk.Scale]) -> None:
        """A press beside the knob moves the knob there, from where it can be dragged."""
        if self.enabled and "slider" not in str(self.scale.identify(event.x, event.y)):
            self.scale.set(self.scale.get(event.x, event.y))
            # Draw it there now, so that Tk finds the knob under the press.
            self.scale.update_idletasks()

    def _nudging(self, steps: int) -> Callable[[object], str]:
        return lambda event: self._nudge(steps)

    def _nudge(self, steps: int) -> str:
        if self.enabled:
            low, high = self._limits
            value = self._value.get() + steps * (high - low) / KEY_STEPS
            self.scale.set(min(max(value, low), high))
        return "break"


class Field:
    """A member of the configuration as text that the user may edit.

    It shows the view's value until the user edits it, and again after ``show`` with ``force``.
    """

    def __init__(
        self,
        parent: tk.Misc,
        key: str,
        label: str,
        kind: type,
        *,
        names: Sequence[str] = (),
        examples: Sequence[str] = (),
        optional: bool = False,
    ) -> None:
        self.key = key
        self._label = label
        self._kind = kind
        self._optional = optional
        self._shown = ""
        self.text = tk.StringVar(parent)
        self.caption = ttk.Label(parent, text=label, style="Dim.TLabel")
        self.widget: ttk.Entry
        if names or examples:
            state = "readonly" if names else "normal"
            self.widget = ttk.Combobox(
                parent, textvariable=self.text, values=[*names, *examples], state=state, width=10
            )
        else:
            self.widget = ttk.Entry(parent, textvariable=self.text, width=10)
        if not names:
            self.widget.bind("<FocusIn>", self._select_all)
            for keys in ("<Control-a>", "<Control-A>"):
                self.widget.bind(keys, self._select_all)
        self.text.trace_add("write", lambda *names: self._mark())

    @property
    def edited(self) -> bool:
        return self.text.get().strip() != self._shown

    def show(self, value: Any, force: bool = False) -> None:
        text = self._written(value)
        follows = force or not self.edited
        if text == self._shown and (not force or not self.edited):
            return
        self._shown = text
        if follows:
            self.text.set(text)
        self._mark()

    def value(self) -> Any:
        """The value of the text; raises ``ValueError`` if it has none."""
        text = self.text.get().strip()
        if self._optional and text in ("", ADAPTIVE):
            return None
        try:
            value = self._kind(text)
            if self._kind is float and not math.isfinite(value):
                raise ValueError
        except ValueError:
            wanted = "a whole number" if self._kind is int else "a number"
            raise ValueError(f"{self._label}: {text!r} is not {wanted}.") from None
        return value

    def _select_all(self, event: tk.Event[tk.Misc]) -> str | None:
        self.widget.selection_range(0, "end")
        self.widget.icursor("end")
        # Tk's own Control-a moves the cursor to the start of the line.
        return "break" if event.type == tk.EventType.KeyPress else None

    def _written(self, value: Any) -> str:
        if value is None:
            return ADAPTIVE
        return f"{value:.7g}" if self._kind is float else str(value)

    def _mark(self) -> None:
        self.caption["style"] = "TLabel" if self.edited else "Dim.TLabel"


def wrapped(label: ttk.Label) -> ttk.Label:
    """Make a label ask for no width, and wrap its text at the width that it gets."""

    def wrap(event: tk.Event[tk.Misc]) -> None:
        if str(label["wraplength"]) != str(event.width):
            label["wraplength"] = event.width

    label.configure(width=1)
    label.bind("<Configure>", wrap)
    return label


def update(label: ttk.Label | ttk.Button, text: str, color: str | None = None) -> None:
    """Set text and colour only if they differ, since Tk lays out and draws again at each change."""
    if str(label["text"]) != text:
        label["text"] = text
    if color is not None and str(label["foreground"]) != color:
        label["foreground"] = color


def enable(button: ttk.Button, enabled: bool) -> None:
    if button.instate(("disabled",)) == enabled:
        button.state(("!disabled" if enabled else "disabled",))
