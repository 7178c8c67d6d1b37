"""A frame that scrolls where it is less high than what it holds."""

from __future__ import annotations

import tkinter as tk
from tkinter import ttk

from .viewer_style import SURFACE, Style

BAR_UNITS = 8
# Of the visible height, for a turn of the wheel.
WHEEL_SHARE = 0.15


class Scrolled(ttk.Frame):
    """Holds ``body``, which is as high as the frame or as it needs, whichever is more."""

    def __init__(self, parent: tk.Misc, style: Style, padding: tuple[int, int]) -> None:
        super().__init__(parent)
        self._canvas = tk.Canvas(
            self, background=SURFACE, highlightthickness=0, borderwidth=0, width=1, height=1
        )
        self.body = ttk.Frame(self._canvas, padding=padding)
        self._item = self._canvas.create_window(0, 0, window=self.body, anchor="nw")
        self._bar = ttk.Scrollbar(self, command=self._canvas.yview)
        self._canvas.configure(yscrollcommand=self._bar.set)
        self._canvas.place(x=0, y=0, relwidth=1.0, relheight=1.0)
        self._bar_width = style.px(BAR_UNITS)
        self._fitted = (0, 0, 0)
        self.bind("<Configure>", lambda event: self.fit())

    @property
    def scrolls(self) -> bool:
        return bool(self._bar.winfo_manager())

    def fit(self) -> None:
        """Give the body the height that it needs now. Call this after it has changed."""
        room = (self.winfo_width(), self.winfo_height(), self.body.winfo_reqheight())
        if room == self._fitted or room[1] <= 1:
            return
        self._fitted = room
        width, height, needed = room
        self._canvas.itemconfigure(self._item, width=width, height=max(height, needed))
        self._canvas.configure(scrollregion=(0, 0, width, max(height, needed)))
        if needed > height:
            # It lies on the padding of the body.
            self._bar.place(relx=1.0, anchor="ne", width=self._bar_width, relheight=1.0)
        else:
            self._bar.place_forget()
            self._canvas.yview_moveto(0.0)

    def turn(self, clicks: int) -> None:
        """Scroll down by so many turns of the wheel, or up if negative."""
        if self.scrolls:
            top, bottom = self._canvas.yview()
            self._canvas.yview_moveto(top + clicks * WHEEL_SHARE * (bottom - top))

    def see(self, widget: tk.Misc) -> None:
        """Scroll so that a widget of the body is in sight."""
        if not self.scrolls:
            return
        height, whole = self.winfo_height(), self.body.winfo_height()
        top = widget.winfo_rooty() - self.body.winfo_rooty()
        bottom = top + widget.winfo_height()
        seen = self.winfo_rooty() - self.body.winfo_rooty()
        if top < seen:
            self._canvas.yview_moveto(top / whole)
        elif bottom > seen + height:
            self._canvas.yview_moveto((bottom - height) / whole)
