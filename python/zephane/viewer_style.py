"""The look of the viewer: its colours, and its fonts and lengths at the scale of the display."""

from __future__ import annotations

import tkinter as tk
from tkinter import font, ttk

from .colors import color

BACKGROUND = "#090c13"
SURFACE = "#0f141e"
RAISED = "#1b2332"
HOVER = "#263146"
OUTLINE = "#2b364a"
INK = "#e6ebf2"
DIM = "#8d99ad"
FAINT = "#4a566b"

NEWS = {"good": "#6fdca6", "waiting": "#e8c766", "bad": "#ff8273"}

# The point of a palette, on its scale from 0 to 1, that is the viewer's accent colour.
ACCENT_POINT = 0.72

CAPTION_GAP = 9

POINTS_PER_INCH = 72
UNITS_PER_INCH = 96


def accent(palette: str) -> str:
    return hexadecimal(color(ACCENT_POINT, palette, signed=False))


def hexadecimal(channels: tuple[float, float, float]) -> str:
    return "#" + "".join(f"{round(255 * min(max(c, 0.0), 1.0)):02x}" for c in channels)


def blend(above: str, below: str, share: float) -> str:
    """The colour ``above`` laid over ``below`` with the opacity ``share``."""
    pairs = ((int(above[i : i + 2], 16), int(below[i : i + 2], 16)) for i in (1, 3, 5))
    return "#" + "".join(f"{round(b + (a - b) * share):02x}" for a, b in pairs)


class Style:
    """Fonts and lengths at ``scale`` pixels per unit of 1/96 inch."""

    def __init__(self, root: tk.Tk, scale: float) -> None:
        self.scale = scale
        root.tk.call("tk", "scaling", scale * UNITS_PER_INCH / POINTS_PER_INCH)
        self.text = font.Font(root, family="Sans", size=9)
        self.small = font.Font(root, family="Sans", size=8)
        self.title = font.Font(root, family="Sans", size=12, weight="bold")
        self.strong = font.Font(root, family="Sans", size=9, weight="bold")
        # Width of the panel's left column, for the widest caption.
        self.caption = self.text.measure("k_max eta") + self.px(CAPTION_GAP)
        self._root = root
        self._ttk = ttk.Style(root)
        self._ttk.theme_use("clam")
        self._frames_and_labels()
        self._buttons()
        self._entries()
        self._sliders()
        self._tabs()

    def px(self, units: float) -> int:
        """A length in whole pixels, at least 1 unless it is 0."""
        pixels = round(units * self.scale)
        return pixels if pixels or not units else 1

    def set_accent(self, accent_color: str) -> None:
        """Set the colour of selected controls."""
        chosen = ("selected", accent_color)
        without_effect = [("disabled", "selected", OUTLINE), ("disabled", RAISED)]
        self._ttk.map(
            "Choice.Toolbutton", background=[*without_effect, chosen, ("active", HOVER)]
        )
        indicator = [("disabled", RAISED), chosen, ("active", HOVER)]
        # A switch that is on is a filled square, without a tick.
        self._ttk.map("TCheckbutton", indicatorbackground=indicator, indicatorforeground=indicator)
        self._ttk.map("TScale", background=[("disabled", FAINT), ("!disabled", accent_color)])
        filled = [("disabled", RAISED), ("!disabled", accent_color)]
        self._ttk.map(
            "Main.TButton",
            background=filled,
            lightcolor=filled,
            darkcolor=filled,
            bordercolor=filled,
        )

    def _frames_and_labels(self) -> None:
        style = self._ttk
        style.configure(
            ".",
            background=SURFACE,
            foreground=INK,
            font=self.text,
            bordercolor=OUTLINE,
            lightcolor=SURFACE,
            darkcolor=SURFACE,
            troughcolor=RAISED,
            focuscolor=FAINT,
            selectbackground=FAINT,
            selectforeground=INK,
            insertcolor=INK,
        )
        style.map(".", foreground=[("disabled", FAINT)])
        style.configure("TLabel", borderwidth=0, padding=0)
        style.configure("Dim.TLabel", foreground=DIM)
        style.configure("Faint.TLabel", foreground=FAINT)
        style.configure("Title.TLabel", font=self.title)
        style.configure("Error.TFrame", background=RAISED)
        style.configure("Error.TLabel", background=RAISED, foreground=NEWS["bad"])

    def _buttons(self) -> None:
        style, px = self._ttk, self.px
        flat = {"background": RAISED, "lightcolor": RAISED, "darkcolor": RAISED}
        states = [("disabled", RAISED), ("pressed", OUTLINE), ("active", HOVER)]
        style.configure("TButton", padding=(px(7), px(4)), width=0, borderwidth=1, **flat)
        style.map("TButton", background=states, lightcolor=states, darkcolor=states)
        style.configure("Main.TButton", font=self.strong)
        style.map("Main.TButton", foreground=[("disabled", FAINT), ("!disabled", BACKGROUND)])
        style.configure(
            "Choice.Toolbutton",
            padding=(px(2), px(3)),
            anchor="center",
            relief="flat",
            borderwidth=0,
            **flat,
        )
        style.map(
            "Choice.Toolbutton",
            foreground=[("disabled", FAINT), ("selected", BACKGROUND)],
            relief=[],
        )
        style.configure(
            "TCheckbutton",
            indicatorsize=px(12),
            indicatormargin=(0, 0, px(7), 0),
            indicatorbackground=RAISED,
            upperbordercolor=OUTLINE,
            lowerbordercolor=OUTLINE,
            padding=(0, px(2)),
        )
        style.map("TCheckbutton", background=[("active", SURFACE)])

    def _entries(self) -> None:
        style, px = self._ttk, self.px
        flat = {"fieldbackground": RAISED, "background": RAISED, "arrowcolor": DIM}
        edges = {"lightcolor": RAISED, "darkcolor": RAISED}
        style.configure("TCombobox", arrowsize=px(12))
        for name in ("TEntry", "TCombobox"):
            style.configure(name, padding=(px(6), px(3)), borderwidth=1, foreground=INK)
            style.configure(name, None, **flat, **edges)
            style.map(
                name,
                fieldbackground=[("readonly", RAISED)],
                background=[("active", HOVER)],
                bordercolor=[("focus", DIM)],
                lightcolor=[("focus", RAISED)],
                foreground=[("readonly", INK)],
                selectbackground=[("readonly", RAISED)],
                selectforeground=[("readonly", INK)],
            )
        for option, value in (
            ("background", RAISED),
            ("foreground", INK),
            ("selectBackground", FAINT),
            ("selectForeground", INK),
            ("font", self.text),
            ("borderWidth", 0),
        ):
            self._root.option_add(f"*TCombobox*Listbox.{option}", value)
        style.configure(
            "Vertical.TScrollbar",
            arrowsize=px(12),
            background=OUTLINE,
            lightcolor=OUTLINE,
            darkcolor=OUTLINE,
            bordercolor=SURFACE,
            troughcolor=SURFACE,
            gripcount=0,
            borderwidth=0,
        )
        thumb = ("Vertical.Scrollbar.thumb", {"expand": "1", "sticky": "nswe"})
        trough = ("Vertical.Scrollbar.trough", {"sticky": "ns", "children": [thumb]})
        style.layout("Vertical.TScrollbar", [trough])
        style.map(
            "TScrollbar", background=[("active", FAINT)], lightcolor=[], darkcolor=[]
        )

    def _sliders(self) -> None:
        self._ttk.configure(
            "TScale",
            sliderlength=self.px(14),
            arrowsize=self.px(12),
            gripcount=0,
            borderwidth=0,
            troughcolor=RAISED,
        )
        self._ttk.map("TScale", lightcolor=[], darkcolor=[], bordercolor=[])

    def _tabs(self) -> None:
        style, px = self._ttk, self.px
        style.configure("TNotebook", borderwidth=0, tabmargins=0, padding=0, bordercolor=SURFACE)
        style.configure(
            "TNotebook.Tab",
            padding=(px(12), px(5)),
            background=SURFACE,
            foreground=DIM,
            bordercolor=SURFACE,
            lightcolor=SURFACE,
            borderwidth=0,
        )
        style.map(
            "TNotebook.Tab",
            background=[("selected", RAISED), ("active", HOVER)],
            lightcolor=[("selected", RAISED)],
            bordercolor=[("selected", RAISED)],
            foreground=[("selected", INK)],
            padding=[("selected", (px(12), px(5)))],
            expand=[("selected", (0, 0, 0, 0))],
        )
