"""The two pages of the panel: settings of the running flow, and the configuration of a new one."""

from __future__ import annotations

import math
import tkinter as tk
from tkinter import ttk
from typing import Any, Callable

from .figures import FIXED, REYNOLDS_MODES, Standing
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
from .viewer_plots import ColorScale
from .viewer_style import Style
from .viewer_widgets import Choice, Field, Slider, Switch, enable
from .viscosity import LOG_REYNOLDS_LIMITS

# "set" clamps the Courant number so.
CFL_LIMITS = (1.0, 3.0)

ROW_GAP = 5

RESOLUTIONS = ("128", "256", "512", "1024", "2048", "4096")

# Runs an operation on the view, and shows its status or why it was refused.
Do = Callable[[Callable[[View], ViewStatus]], None]


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
            enable(button, edited)


def _power(exponent: float) -> str:
    """Ten to the power ``exponent``, as the text of a slider."""
    return f"{10.0**exponent:,.0f}"
