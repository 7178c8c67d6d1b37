"""Drawings in the viewer's panel: plots over the time of the flow, and the colour scale."""

from __future__ import annotations

import math
import tkinter as tk
from collections.abc import Sequence
from dataclasses import dataclass
from tkinter import font
from typing import Any

from .colors import color_table
from .figures import (
    ADAPTED,
    RATIO_TARGET,
    STANDING,
    Fact,
    Standing,
    eddy_facts,
    energy_facts,
    resolution_of,
    reynolds_facts,
)
from .records import PictureSettings, Snapshot, ViewStatus
from .viscosity import TARGET
from .viewer_style import DIM, INK, NEWS, OUTLINE, SURFACE, Style, accent, blend

LEAST_CHART = 26
GAP = 8
FACT_GAP = 10

Point = tuple[float, ...]


class Trace:
    """Figures of one flow over its time, from the start to now, in at most ``limit`` points and the
    newest.

    When there are too many, every second point is dropped. From then on points are kept only at
    the larger spacing, so that they stay evenly spread.
    """

    def __init__(self, limit: int = 480) -> None:
        self._limit = limit
        self._flow: int | None = None
        self._kept: list[Point] = []
        self._newest: Point | None = None
        self._spacing = 0.0

    def follow(self, status: ViewStatus) -> bool:
        """Add the figures of a status. False if there is nothing new in it."""
        if status.generation != self._flow:
            self._flow, self._kept, self._newest, self._spacing = status.generation, [], None, 0.0
        if status.stats is None:
            return False
        stats = status.stats
        # A status comes more often than the energies in it are computed.
        if self._newest is not None and stats.energy == self._newest[1]:
            return False
        eddies = resolution_of(status)
        values = (stats.energy, status.effective_reynolds, eddies, stats.palinstrophy_ratio)
        return self.add((stats.simulation_time, *values))

    def add(self, point: Point) -> bool:
        """Add a point, which begins with its time. False if it is the newest again, or not finite.
        """
        if point == self._newest or not all(map(math.isfinite, point)):
            return False
        self._newest = point
        if not self._kept or point[0] - self._kept[-1][0] > self._spacing:
            self._kept.append(point)
        if len(self._kept) > self._limit:
            del self._kept[1::2]
            self._spacing = (self._kept[-1][0] - self._kept[0][0]) / len(self._kept)
        return True

    def points(self) -> list[Point]:
        if self._newest is None or self._kept[-1] == self._newest:
            return list(self._kept)
        return [*self._kept, self._newest]


@dataclass(frozen=True)
class Box:
    """A rectangle on a canvas, in pixels."""

    left: int
    top: int
    right: int
    bottom: int


@dataclass(frozen=True)
class Curve:
    """One plot: its title, the facts beside the title, and its values in the order of time."""

    title: str
    facts: Sequence[Fact]
    values: Sequence[float]
    target: float | None = None


class Plots(tk.Canvas):
    """Energy, k_max eta and the Reynolds number over time. A flow that the library regulates has
    its palinstrophy ratio in the place of k_max eta.
    """

    COUNT = 3

    def __init__(self, parent: tk.Misc, style: Style) -> None:
        one = style.text.metrics("linespace") + style.px(3 + GAP + LEAST_CHART)
        height = self.COUNT * one + style.small.metrics("linespace")
        super().__init__(
            parent,
            background=SURFACE,
            highlightthickness=0,
            borderwidth=0,
            height=height,
            width=1,
        )
        self._style = style
        self.trace = Trace()
        self._status: ViewStatus | None = None
        self._standing = STANDING
        self.shown: list[str] = []
        self.bind("<Configure>", lambda event: self._draw())

    def show(self, status: ViewStatus, standing: Standing) -> None:
        new = self.trace.follow(status)
        seen = None if self._status is None else _heads(self._status, self._standing)
        self._status, self._standing = status, standing
        if new or seen != _heads(status, standing):
            self._draw()

    def _draw(self) -> None:
        self.delete("all")
        self.shown = []
        if self._status is None or self.winfo_width() <= 1:
            return
        points = self.trace.points()
        times = [point[0] for point in points]
        line = self._style.small.metrics("linespace")
        head, gap = self._style.text.metrics("linespace") + self._style.px(3), self._style.px(GAP)
        left = self.winfo_height() - line
        curves = self._curves(points)
        count = min(left // (head + gap + self._style.px(LEAST_CHART)), len(curves))
        for n, curve in enumerate(curves[:count]):
            top, bottom = n * left // count + gap, (n + 1) * left // count
            self._draw_curve(curve, times, Box(0, top, self.winfo_width(), bottom), head)
            self.shown.append(curve.title)
        if count and times:
            self._draw_axis(times, line)

    def _curves(self, points: Sequence[Point]) -> list[Curve]:
        status, standing = self._status, self._standing
        assert status is not None
        _, energy, reynolds, eddies, ratio = zip(*points) if points else ((), (), (), (), ())
        facts = eddy_facts(status, standing)
        target = TARGET if standing.reynolds_mode == ADAPTED else None
        middle = (
            Curve("Eddies", _from_ratio(facts), ratio, RATIO_TARGET)
            if status.regulated
            else Curve("Eddies", facts, eddies, target)
        )
        return [
            Curve("Energy", energy_facts(status), energy),
            middle,
            Curve("Reynolds", reynolds_facts(status, standing), reynolds),
        ]

    def _draw_curve(self, curve: Curve, times: Sequence[float], box: Box, head: int) -> None:
        self._draw_heading(curve, box)
        scale = self._scale_cells()
        chart = Box(box.left, box.top + head, box.right - scale, box.bottom)
        self.create_line(chart.left, chart.bottom - 1, chart.right, chart.bottom - 1, fill=OUTLINE)
        known = [*curve.values, *([] if curve.target is None else [curve.target])]
        if not curve.values:
            return
        low, high = min(known), max(known)
        self._draw_scale(chart, low, high)
        rows = _places(curve.values, low, high, chart.bottom - 1, chart.top)
        columns = _places(times, 0.0, max(times[-1], 1e-30), chart.left, chart.right - 1)
        self._draw_line(list(zip(columns, rows)), chart)
        if curve.target is not None:
            (row,) = _places([curve.target], low, high, chart.bottom - 1, chart.top)
            dash = (self._style.px(3), self._style.px(3))
            self.create_line(chart.left, row, chart.right, row, fill=DIM, dash=dash)

    def _draw_line(self, places: list[tuple[float, float]], chart: Box) -> None:
        assert self._status is not None
        ink = accent(self._status.palette)
        width = max(1.0, 1.4 * self._style.scale)
        if len(places) == 1:
            (x, y), r = places[0], width
            self.create_oval(x - r, y - r, x + r, y + r, fill=ink, outline="")
            return
        floor = chart.bottom - 1
        area = [(places[0][0], floor), *places, (places[-1][0], floor)]
        self.create_polygon(_flat(area), fill=blend(ink, SURFACE, 0.13), outline="")
        self.create_line(_flat(places), fill=ink, width=width, joinstyle="round")

    def _draw_heading(self, curve: Curve, box: Box) -> None:
        style = self._style
        x: float = box.left
        self.create_text(x, box.top, text=curve.title, anchor="nw", fill=DIM, font=style.text)
        x += style.caption
        for fact in curve.facts:
            text, news = fact if isinstance(fact, tuple) else (fact, "")
            if x + style.text.measure(text) > box.right:
                break
            ink = NEWS.get(news, INK)
            self.create_text(x, box.top, text=text, anchor="nw", fill=ink, font=style.text)
            x += style.text.measure(text) + style.px(FACT_GAP)

    def _draw_scale(self, chart: Box, low: float, high: float) -> None:
        x, small = chart.right + self._style.px(6), self._style.small
        high_text, low_text = _short(high), _short(low)
        self.create_text(x, chart.bottom, text=low_text, anchor="sw", fill=DIM, font=small)
        if high_text != low_text:
            self.create_text(x, chart.top, text=high_text, anchor="nw", fill=DIM, font=small)

    def _scale_cells(self) -> int:
        return self._style.small.measure("0000000") + self._style.px(6)

    def _draw_axis(self, times: Sequence[float], line: int) -> None:
        bottom, right = self.winfo_height(), self.winfo_width() - self._scale_cells()
        font_, end = self._style.small, _short(times[-1])
        y = bottom - line // 2
        self.create_text(0, y, text="time 0", anchor="w", fill=DIM, font=font_)
        self.create_text(right, y, text=end, anchor="e", fill=DIM, font=font_)


class ColorScale(tk.Canvas):
    """The colours of the picture, with the values at both ends of the scale."""

    def __init__(self, parent: tk.Misc, style: Style) -> None:
        self._font: font.Font = style.small
        self._bar = style.px(9)
        height = self._bar + style.px(2) + self._font.metrics("linespace")
        super().__init__(
            parent, background=SURFACE, highlightthickness=0, borderwidth=0, height=height, width=1
        )
        self._drawn: tuple[object, ...] = ()
        self._image: tk.PhotoImage | None = None
        self._settings = PictureSettings()
        self._texts = ("", "", "")
        self.bind("<Configure>", lambda event: self._draw())

    def show(self, status: ViewStatus) -> None:
        self._settings = PictureSettings(
            status.display, status.palette, status.color_range, status.exposure, status.sigma
        )
        self._texts = scale_texts(self._settings, status.frame)
        self._draw()

    def _draw(self) -> None:
        width = self.winfo_width()
        asked = (width, self._settings.palette, self._settings.signed, self._texts)
        if width <= 1 or asked == self._drawn:
            return
        if asked[:3] != self._drawn[:3]:
            self._image = self._colors(width)
        self._drawn = asked
        self.delete("all")
        self.create_image(0, 0, image=self._image, anchor="nw")
        low, middle, high = self._texts
        look: dict[str, Any] = {"fill": DIM, "font": self._font}
        y = self.winfo_height()
        self.create_text(0, y, text=low, anchor="sw", **look)
        self.create_text(width // 2, y, text=middle, anchor="s", **look)
        self.create_text(width, y, text=high, anchor="se", **look)

    def _colors(self, width: int) -> tk.PhotoImage:
        table = color_table(self._settings.palette, self._settings.signed, width - 1)
        image = tk.PhotoImage(master=self, width=width, height=self._bar)
        row = "{" + " ".join(f"#{rgb.hex()}" for rgb in table) + "}"
        image.put(" ".join([row] * self._bar))
        return image


def scale_texts(settings: PictureSettings, frame: Snapshot | None) -> tuple[str, str, str]:
    """The texts below the colours: at the left end, in the middle and at the right end."""
    if frame is None:
        return ("", settings.display, "")
    if settings.linear:
        reach = settings.sigma * frame.std_vorticity
        low, high = frame.mean_vorticity - reach, frame.mean_vorticity + reach
        return (f"{low:.3g}", "vorticity", f"{high:.3g}")
    # A compressive curve comes close to its last colour at the largest value.
    largest = frame.max_speed if settings.display == "speed" else frame.max_vorticity
    if settings.display == "enstrophy":
        largest = 0.5 * largest * largest
    low_text = f"-{largest:.3g}" if settings.signed else "0"
    return (low_text, settings.display, f"{largest:.3g}")


def _from_ratio(facts: Sequence[Fact]) -> Sequence[Fact]:
    """The facts from the palinstrophy ratio on."""
    begins = [n for n, fact in enumerate(facts) if fact[:12] == "palinstrophy"]
    return facts[begins[0] :] if begins else facts


def _heads(status: ViewStatus, standing: Standing) -> tuple[object, ...]:
    """What the headings and colours depend on."""
    return (
        energy_facts(status),
        reynolds_facts(status, standing),
        eddy_facts(status, standing),
        status.palette,
        status.generation,
    )


def _places(
    values: Sequence[float], low: float, high: float, first: float, last: float
) -> list[float]:
    """Map values linearly, ``low`` to the coordinate ``first`` and ``high`` to ``last``."""
    if not high > low:
        return [0.5 * (first + last)] * len(values)
    return [first + (value - low) / (high - low) * (last - first) for value in values]


def _short(value: float) -> str:
    return f"{value:.0f}" if 1e4 <= abs(value) < 1e7 else f"{value:.4g}"


def _flat(places: Sequence[tuple[float, float]]) -> list[float]:
    return [number for place in places for number in place]
