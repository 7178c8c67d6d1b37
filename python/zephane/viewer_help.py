"""The viewer's help: a page that lists the keys, in front of the picture."""

from __future__ import annotations

import tkinter as tk
from tkinter import ttk

from .view import FLOW_KEYS
from .viewer_style import OUTLINE, Style

KEYS = (
    *FLOW_KEYS,
    ("p", "save the picture"),
    ("d", "the next display: vorticity, speed, enstrophy"),
    ("c", "the next palette of colours"),
    ("f", "show or hide flow lines"),
    ("b", "show or hide the panel"),
    ("F11", "switch between full screen and window"),
    ("h", "this help"),
    ("Esc", "leave the help or the full screen, or quit"),
)


class HelpPage(tk.Frame):
    """A page that lists the keys. It is hidden until it is toggled."""

    def __init__(self, root: tk.Tk, style: Style, picture: tk.Widget) -> None:
        super().__init__(root, background=OUTLINE, padx=style.px(1), pady=style.px(1))
        self._picture = picture
        page = ttk.Frame(self, padding=style.px(20))
        page.pack()
        title = ttk.Label(page, text="Keys", style="Title.TLabel")
        title.grid(row=0, column=0, columnspan=2, sticky="w", pady=(0, style.px(10)))
        for row, (key, words) in enumerate(KEYS, start=1):
            name = ttk.Label(page, text=key, font=style.strong)
            name.grid(row=row, column=0, sticky="w", padx=(0, style.px(18)), pady=style.px(2))
            ttk.Label(page, text=words).grid(row=row, column=1, sticky="w")

    @property
    def shown(self) -> bool:
        return bool(self.winfo_manager())

    def toggle(self) -> None:
        if self.shown:
            self.hide()
        else:
            self.place(in_=self._picture, relx=0.5, rely=0.5, anchor="center")
            self.lift()

    def hide(self) -> None:
        self.place_forget()
