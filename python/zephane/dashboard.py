"""The figures of a running view as lines of text, made from its status alone.

A line is a list of spans, each a text with the name of its style, so that the width of a line is
known before it is coloured. The lines fit the width and height that they are made for: facts are
left out from the right, and rows by their rank, the highest number first.
"""

from __future__ import annotations

import math
import textwrap
from collections.abc import Iterable, Sequence

from .figures import (
    RATIO_TARGET,
    STANDING,
    Fact,
    Span,
    Standing,
    config_facts,
    device_facts,
    eddy_facts,
    energy_facts,
    notes,
    resolution_of,
    reynolds_facts,
    speed_facts,
    state,
    state_style,
    time_facts,
)
from .keeper import FLOW_KEYS
from .records import ViewStatus

LABEL_CELLS = 12
BETWEEN = "   "
LARGEST_CHART = 6
SCALE_CELLS = 11
# A chart with fewer columns has no scale beside it.
SCALED_CHART = 24

BLOCKS = " ▁▂▃▄▅▆▇█"
ASCII_BLOCKS = " .-=#"

Line = list[Span]

SGR = {
    "title": "1",
    "label": "2",
    "key": "1",
    "good": "32",
    "waiting": "33",
    "bad": "1;31",
    "chart": "36",
}

KEYS = (
    *FLOW_KEYS,
    ("h", "this help"),
    ("q", "quit, as does Ctrl-C"),
)


def dashboard(
    status: ViewStatus,
    width: int,
    height: int,
    *,
    until: float | None = None,
    standing: Standing = STANDING,
    help_shown: bool = False,
    fine: bool = True,
) -> list[Line]:
    """The whole screen, from the state of the flow down to the keys.

    ``fine`` draws the chart with block characters, otherwise with ASCII.
    """
    width, height = max(width, 1), max(height, 1)
    rows: list[tuple[int, Line]] = [(0, _head(status, until, standing)), (9, [])]
    rows += _help() if help_shown else _figures(status, until, standing)
    if status.error_message is not None:
        rows.append((1, _row("failure", [(status.error_message, "bad")])))
    for note in notes(status, standing):
        rows += [(1, line) for line in _wrapped(note, width)]
    chart: list[Line] = []
    if not help_shown:
        # Where no row is spare, one row of chart replaces an empty row, which has a lower rank.
        spare = min(max(height - len(rows) - 2, 1), LARGEST_CHART)
        chart = _chart(status, width, spare, fine)
    rows += [(5 if n == 0 else 10, line) for n, line in enumerate(chart)]
    rows += [(9, []), (3, _keys(status, width))]
    return [_fit(line, width) for line in _most_important(rows, height)]


def status_line(
    status: ViewStatus, until: float | None = None, standing: Standing = STANDING
) -> str:
    """State and figures in one line without escape sequences or ``notes``, for logs."""
    words = [state(status, until, standing)]
    if status.stats is not None:
        stats, pace = status.stats, status.performance
        words += [
            f"time {stats.simulation_time:.4f}",
            f"step {stats.steps}",
            f"{pace.steps_per_s:.4g} steps/s",
            f"{pace.simtime_per_s:.4g} time/s",
            f"{pace.milliseconds_per_step:.3g} ms a step",
            f"Re {status.effective_reynolds:.6g}",
            f"k_max eta {resolution_of(status):.2f}",
            f"energy {stats.energy:.6g}",
        ]
        if status.regulated:
            words.append(f"palinstrophy ratio {stats.palinstrophy_ratio:.3g} of {RATIO_TARGET:g}")
    if status.error_message is not None:
        words.append(status.error_message)
    return "  ".join(words)


def chart_rows(
    values: Sequence[float], width: int, rows: int, levels: str = BLOCKS
) -> list[str]:
    """A bar chart of the last ``width`` values, scaled to their extremes; top row first.

    ``levels`` are the characters of one cell from empty to full.
    """
    shown = list(values)[-width:] if width > 0 else []
    finite = [value for value in shown if math.isfinite(value)]
    if not finite:
        return [""] * rows
    low, high = min(finite), max(finite)
    cell = len(levels) - 1

    def column(value: float) -> int:
        if not math.isfinite(value):
            return 0
        share = (value - low) / (high - low) if high > low else 0.5
        return 1 + round(share * (rows * cell - 1))

    columns = [column(value) for value in shown]
    return [
        "".join(levels[min(max(height - row * cell, 0), cell)] for height in columns)
        for row in reversed(range(rows))
    ]


def paint(line: Line, colored: bool) -> str:
    """The text of a line, with escape sequences for its colours if ``colored``."""
    if not colored:
        return "".join(text for text, _ in line)
    return "".join(
        f"\x1b[{SGR[style]}m{text}\x1b[0m" if style and text else text for text, style in line
    )


def _head(status: ViewStatus, until: float | None, standing: Standing) -> Line:
    word = state(status, until, standing)
    line: Line = [("Zephane", "title"), ("  ", ""), (word, state_style(word))]
    for n, fact in enumerate(config_facts(status.config)):
        line.append((f", {fact}" if n else f"  {fact}", ""))
    return line


def _figures(
    status: ViewStatus, until: float | None, standing: Standing
) -> list[tuple[int, Line]]:
    return [
        (2, _row("time", time_facts(status, until))),
        (4, _row("speed", speed_facts(status))),
        (6, _row("Reynolds", reynolds_facts(status, standing))),
        (7, _row("eddies", eddy_facts(status, standing))),
        (8, _row("memory", device_facts(status))),
        (5, _row("energy", energy_facts(status))),
    ]


def _chart(status: ViewStatus, width: int, rows: int, fine: bool) -> list[Line]:
    levels = BLOCKS if fine else ASCII_BLOCKS
    cells = width - LABEL_CELLS
    scaled = cells - SCALE_CELLS >= SCALED_CHART
    if scaled:
        cells -= SCALE_CELLS
    drawn = chart_rows(status.history, cells, rows, levels)
    lines: list[Line] = [[(" " * LABEL_CELLS, ""), (row, "chart")] for row in drawn]
    finite = [value for value in status.history[-cells:] if math.isfinite(value)]
    if scaled and finite and rows > 1:
        if max(finite) > min(finite):
            lines[0].append((f" {max(finite):.7g}", "label"))
        lines[-1].append((f" {min(finite):.7g}", "label"))
    return lines


def _keys(status: ViewStatus, width: int) -> Line:
    """The keys and what they do. Where not all fit, the less needed ones are left out."""
    names = {
        "space": "pause" if status.running else "run",
        "s": "step",
        "r": "reset",
        "n": "new seed",
        "a": "adapt",
        "h": "help",
        "q": "quit",
    }
    shown: set[str] = set()
    left = width + len(BETWEEN)
    for key in ("space", "q", "h", "s", "r", "n", "a"):
        left -= len(f"{key} {names[key]}{BETWEEN}")
        if left >= 0:
            shown.add(key)
    line: Line = []
    for key, name in names.items():
        if key in shown:
            line += [(BETWEEN if line else "", ""), (key, "key"), (f" {name}", "")]
    return line


def _help() -> list[tuple[int, Line]]:
    return [(4, _row(key, [words])) for key, words in KEYS]


def _wrapped(note: Span, width: int) -> list[Line]:
    """A sentence in as many lines as it takes, beside an empty label."""
    sentence, style = note
    lines = textwrap.wrap(sentence, max(width - LABEL_CELLS, 1))
    labels = ["note", *[""] * len(lines)]
    return [_row(label, [(line, style)]) for label, line in zip(labels, lines)]


def _row(label: str, facts: Iterable[Fact]) -> Line:
    line: Line = [(f"{label:<{LABEL_CELLS}}", "label")]
    for n, fact in enumerate(facts):
        text, style = fact if isinstance(fact, tuple) else (fact, "")
        line += [(BETWEEN if n else "", ""), (text, style)]
    return line


def _most_important(rows: Sequence[tuple[int, Line]], height: int) -> list[Line]:
    """The ``height`` rows of lowest rank, in their order; among equal ranks the upper ones."""
    ranked = sorted(range(len(rows)), key=lambda n: (rows[n][0], n))[:height]
    return [rows[n][1] for n in sorted(ranked)]


def _fit(line: Line, width: int) -> Line:
    """The spans that fit into the width. A span that does not fit whole is dropped, or cut if it
    belongs to the first fact.
    """
    fitted: Line = []
    left = width
    for n, (text, style) in enumerate(line):
        if len(text) > left:
            if n <= 2:
                fitted.append((text[:left], style))
            break
        fitted.append((text, style))
        left -= len(text)
    while fitted and not fitted[-1][0].strip():
        fitted.pop()
    return fitted
