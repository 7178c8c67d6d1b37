"""What stands in the place of the picture where it cannot be drawn."""

from __future__ import annotations

import tkinter as tk

from .engine_failures import HINTS
from .errors import LOST_FLOW
from .viewer_style import BACKGROUND, DIM, INK, OUTLINE, Style

# What to do about a failure.
ADVICE = {
    **HINTS,
    LOST_FLOW: "A smaller CFL number or dt, a smaller Reynolds number or a finer grid may hold.",
}
GOES_ON = "The flow goes on without its picture; the panel shows its figures."


def explained(message: str) -> str:
    """A message of the library, with advice where there is some."""
    advice = ADVICE.get(message)
    return message if advice is None else f"{message} {advice}"


class BlankPicture(tk.Canvas):
    """A plain square over the picture, with the reason. Hidden until it is shown."""

    LINES = 8

    def __init__(self, root: tk.Tk, style: Style, picture: tk.Widget) -> None:
        super().__init__(root, background=BACKGROUND, highlightthickness=0, borderwidth=0)
        self._style = style
        self._picture = picture
        self.message = ""
        self.bind("<Configure>", lambda event: self._draw())

    @property
    def shown(self) -> bool:
        return bool(self.winfo_manager())

    def show(self, reason: str) -> None:
        message = f"{explained(reason)}\n\n{GOES_ON}"
        if message != self.message:
            self.message = message
            self._draw()
        if not self.shown:
            self.place(in_=self._picture, relwidth=1.0, relheight=1.0)

    def _draw(self) -> None:
        self.delete("all")
        width, height = self.winfo_width(), self.winfo_height()
        for n in range(1, self.LINES):
            x, y = n * width // self.LINES, n * height // self.LINES
            self.create_line(x, 0, x, height, fill=OUTLINE)
            self.create_line(0, y, width, y, fill=OUTLINE)
        words = self.create_text(
            width // 2,
            height // 2,
            text=self.message,
            fill=INK,
            font=self._style.text,
            justify="center",
            width=max(3 * width // 4, 1),
        )
        left, top, right, bottom = self.bbox(words)
        gap = self._style.px(12)
        behind = self.create_rectangle(
            left - gap, top - gap, right + gap, bottom + gap, fill=BACKGROUND, outline=DIM
        )
        self.tag_lower(behind, words)
