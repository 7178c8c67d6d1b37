"""The viewer's help: a page in front of the picture with the keys and what the figures mean."""

from __future__ import annotations

import tkinter as tk

from .keeper import FLOW_KEYS
from .viewer_style import DIM, INK, OUTLINE, SURFACE, Style

KEYS = (
    *FLOW_KEYS,
    ("p", "save the picture"),
    ("d", "the next display: vorticity, speed, enstrophy"),
    ("c", "the next palette of colours"),
    ("f", "show or hide flow lines"),
    ("b", "show or hide the panel"),
    ("F11", "switch between full screen and window"),
    ("h", "this help; the wheel scrolls it"),
    ("Esc", "leave the help or the full screen, or quit"),
)

TERMS = (
    ("turnover", "the time in which an eddy of the start turns once; vortices form within two"),
    ("energy", "the mean of u²/2 over the square; viscosity alone takes it away"),
    ("enstrophy", "the mean of ω²/2, with ω the vorticity, the local rate of turning"),
    (
        "palinstrophy",
        "the mean of |∇ω|²/2: how sharply the vorticity varies. The viscosity takes enstrophy at "
        "the rate of 2 palinstrophy / Reynolds",
    ),
    (
        "palinstrophy ratio",
        "the mean squared wavenumber of the vorticity, over twice the square of the largest one "
        "that the grid keeps",
    ),
    (
        "k_max eta",
        "the largest wavenumber of the grid times the size of the smallest eddies. Above 1.5 the "
        "grid resolves them; below, noise of the size of the grid fills the picture",
    ),
    (
        "Reynolds",
        "how weak the viscosity is. \"fixed\" leaves it to you. \"adapted\" moves it so that "
        "k_max eta stays near 1.75. \"follows the flow\" is the library's regulation, which leaves "
        "its target in either direction",
    ),
    (
        "CFL",
        "the length of a time step: the grid spacings that the fastest fluid may cross, times π. 3 "
        "suits etdrk4 and 1.5 the other integrators",
    ),
    ("dt", "the last time step"),
    ("batch", "the steps that the device takes in one request, as many as fit in 8 ms"),
    (
        "sigma",
        "with the range \"sigma\" the colours end at so many standard deviations of the vorticity; "
        "what lies beyond has the last colour",
    ),
    (
        "exposure",
        "with the range \"exposure\", and for speed and enstrophy, the colours end at the largest "
        "value, along a curve: the more exposure, the brighter the small values",
    ),
)

WIDTH, HEIGHT, MARGIN = 640, 760, 16
PADDING = 18


class HelpPage(tk.Frame):
    """A page of keys and terms. It is hidden until it is toggled, and scrolls in small windows."""

    def __init__(self, root: tk.Tk, style: Style) -> None:
        super().__init__(root, background=OUTLINE, padx=style.px(1), pady=style.px(1))
        self._root = root
        self._style = style
        px = style.px
        self.text = tk.Text(
            self,
            background=SURFACE,
            foreground=INK,
            font=style.text,
            padx=px(PADDING),
            pady=px(PADDING),
            borderwidth=0,
            highlightthickness=0,
            wrap="word",
            cursor="arrow",
            takefocus=False,
            width=1,
            height=1,
        )
        self.text.pack(fill="both", expand=True)
        column = style.strong.measure("palinstrophy ratio") + px(16)
        self.text.tag_configure("title", font=style.title, spacing1=px(4), spacing3=px(8))
        self.text.tag_configure("row", tabs=(column,), lmargin2=column, spacing3=px(4))
        self.text.tag_configure("name", font=style.strong)
        self.text.tag_configure("words", foreground=DIM)
        for title, rows in (("Keys", KEYS), ("Words", TERMS)):
            self.text.insert("end", title + "\n", ("title",))
            for name, words in rows:
                self.text.insert("end", name, ("row", "name"))
                self.text.insert("end", f"\t{words}\n", ("row", "words"))
        self.text.configure(state="disabled")

    @property
    def shown(self) -> bool:
        return bool(self.winfo_manager())

    def toggle(self) -> None:
        if self.shown:
            self.hide()
        else:
            self.show()

    def show(self) -> None:
        px, margin = self._style.px, 2 * self._style.px(MARGIN)
        width = min(px(WIDTH), self._root.winfo_width() - margin)
        height = min(px(HEIGHT), self._root.winfo_height() - margin)
        self.place(relx=0.5, rely=0.5, anchor="center", width=width, height=height)
        self.lift()
        self.text.yview_moveto(0.0)

    def hide(self) -> None:
        self.place_forget()
