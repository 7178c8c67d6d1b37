"""What a running view has to tell, as lines of text: pure functions of its status.

A line is a list of spans, a text with the name of a style each, so that its width is that of its
texts. Lines never exceed the width and the height that they are made for: facts are left out from
the right, and rows by their rank.
"""

from __future__ import annotations

import math
from collections.abc import Iterable, Sequence

from .progress import clock
from .records import ViewStatus
from .report import memory

# What the regulator holds the palinstrophy control at, and how near is as good as there.
CONTROL_TARGET = 20.0
CONTROL_BAND = 0.001

LABEL_CELLS = 12
BETWEEN = "   "
LARGEST_CHART = 6
SCALE_CELLS = 11
# Narrower charts have no scale beside them.
SCALED_CHART = 24

BLOCKS = " ▁▂▃▄▅▆▇█"
ASCII_BLOCKS = " .-=#"

Span = tuple[str, str]
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
    ("space", "pause the flow, or let it run"),
    ("s", "take one step and pause"),
    ("r", "the same flow again from its start"),
    ("n", "a new flow, from the seed that follows"),
    ("h", "this help"),
    ("q", "quit, as does Ctrl-C"),
)


def dashboard(
    status: ViewStatus,
    width: int,
    height: int,
    *,
    until: float | None = None,
    help_shown: bool = False,
    fine: bool = True,
) -> list[Line]:
    """The whole screen, from the state of the flow down to the keys."""
    width, height = max(width, 1), max(height, 1)
    rows = [(0, _head(status, until)), (9, [])]
    rows += _help() if help_shown else _figures(status, until)
    if status.error_message is not None:
        rows.append((1, _row("failure", [(status.error_message, "bad")])))
    chart: list[Line] = []
    if not help_shown:
        # A chart of one row takes the place of an empty one.
        spare = min(max(height - len(rows) - 2, 1), LARGEST_CHART)
        chart = _chart(status, width, spare, fine)
    rows += [(5 if n == 0 else 10, line) for n, line in enumerate(chart)]
    rows += [(9, []), (3, _keys(status, width))]
    return [_fit(line, width) for line in _most_important(rows, height)]


def status_line(status: ViewStatus, until: float | None = None) -> str:
    """The same in one line without escape sequences, for logs."""
    words = [state(status, until)]
    if status.stats is not None:
        stats, pace = status.stats, status.performance
        control = f"{status.palinstrophy_control:.4g}"
        if status.regulated:
            control += f" of {CONTROL_TARGET:g}"
        words += [
            f"time {stats.simulation_time:.4f}",
            f"step {stats.steps}",
            f"{pace.steps_per_s:.4g} steps/s",
            f"{pace.simtime_per_s:.4g} time/s",
            f"{pace.milliseconds_per_step:.3g} ms/step",
            f"Re {status.effective_reynolds:.6g}",
            f"control {control}",
            f"energy {stats.energy:.6g}",
        ]
    if status.error_message is not None:
        words.append(status.error_message)
    return "  ".join(words)


def state(status: ViewStatus, until: float | None = None) -> str:
    """What the flow is doing, in a word or two."""
    if status.error_message is not None:
        return "failed"
    if not status.ready:
        return "preparing the flow"
    if status.running:
        return "running"
    if is_finished(status, until):
        return "finished"
    return "paused" if status.settled else "pausing"


def is_finished(status: ViewStatus, until: float | None) -> bool:
    """Whether the limit has ended the flow. Its last step may miss the time by a rounding."""
    if until is None or status.stats is None or status.running or not status.settled:
        return False
    return status.stats.simulation_time >= until - 1e-6 * abs(until)


def chart_rows(
    values: Sequence[float], width: int, rows: int, levels: str = BLOCKS
) -> list[str]:
    """The last ``width`` values as columns of blocks between their extremes, top row first."""
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
    """A line as a terminal takes it."""
    if not colored:
        return "".join(text for text, _ in line)
    return "".join(
        f"\x1b[{SGR[style]}m{text}\x1b[0m" if style and text else text for text, style in line
    )


def _head(status: ViewStatus, until: float | None) -> Line:
    word = state(status, until)
    style = {"running": "good", "finished": "good", "failed": "bad"}.get(word, "waiting")
    config = status.config
    facts = [
        f"{config.resolution} x {config.resolution}",
        f"k0 {config.k0}",
        f"seed {config.seed}",
        config.integrator,
        config.operator,
        config.start_spectrum,
    ]
    line: Line = [("Zephane", "title"), ("  ", ""), (word, style)]
    for n, fact in enumerate(facts):
        line.append((f", {fact}" if n else f"  {fact}", ""))
    return line


def _figures(status: ViewStatus, until: float | None) -> list[tuple[int, Line]]:
    return [
        (2, _row("time", _time(status, until))),
        (4, _row("speed", _speed(status))),
        (6, _row("Reynolds", _reynolds(status))),
        (7, _row("regulator", _regulator(status))),
        (8, _row("memory", [f"{memory(status.allocated_bytes)} on {status.gpu}", status.backend])),
        (5, _row("energy", _energy(status))),
    ]


def _time(status: ViewStatus, until: float | None) -> list[str]:
    stats = status.stats
    if stats is None:
        return []
    end = f" of {until:g}" if until else ""
    facts = [f"{stats.simulation_time:.4f}{end}"]
    if stats.initial_turnover_time > 0.0:
        facts.append(f"{stats.simulation_time / stats.initial_turnover_time:.2f} turnovers")
    elapsed = f"{clock(status.elapsed_seconds)} elapsed"
    return [*facts, f"step {stats.steps}", f"dt {stats.dt:.4g}", elapsed]


def _speed(status: ViewStatus) -> list[str]:
    pace = status.performance
    if not pace.steps_per_s > 0.0:
        return ["no rate yet"]
    return [
        f"{pace.steps_per_s:.{1 if pace.steps_per_s < 100 else 0}f} steps/s",
        f"{pace.milliseconds_per_step:.3g} ms a step",
        f"{pace.simtime_per_s:.3g} time/s",
        f"batch {pace.batch_steps}",
        f"{pace.turnovers_per_s:.3g} turnovers/s",
    ]


def _reynolds(status: ViewStatus) -> list[str]:
    now, configured = status.effective_reynolds, status.config.reynolds
    facts = [f"{now:.6g} effective", f"{configured:.6g} configured"]
    if configured > 0.0:
        facts.append(f"{100.0 * (now / configured - 1.0):+.1f} %")
    return facts


def _regulator(status: ViewStatus) -> list[Span | str]:
    control = status.palinstrophy_control
    if not status.regulated:
        return ["off", f"palinstrophy {control:.2f}"]
    facts: list[Span | str] = [f"palinstrophy {control:.2f}", f"target {CONTROL_TARGET:g}"]
    error = control / CONTROL_TARGET - 1.0
    if status.stats is None or not math.isfinite(error):
        return facts
    if abs(error) < CONTROL_BAND:
        return [*facts, ("on target", "good")]
    return [*facts, f"{100.0 * error:+.1f} %"]


def _energy(status: ViewStatus) -> list[str]:
    stats = status.stats
    if stats is None:
        return []
    return [
        f"{stats.energy:.6g}",
        f"enstrophy {stats.enstrophy:.5g}",
        f"palinstrophy {stats.palinstrophy:.5g}",
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
    """As many keys as there is room for, the most needed of them first."""
    names = {
        "space": "pause" if status.running else "run",
        "s": "step",
        "r": "reset",
        "n": "new seed",
        "h": "help",
        "q": "quit",
    }
    shown: set[str] = set()
    left = width + len(BETWEEN)
    for key in ("space", "q", "h", "s", "r", "n"):
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


def _row(label: str, facts: Iterable[Span | str]) -> Line:
    line: Line = [(f"{label:<{LABEL_CELLS}}", "label")]
    for n, fact in enumerate(facts):
        text, style = fact if isinstance(fact, tuple) else (fact, "")
        line += [(BETWEEN if n else "", ""), (text, style)]
    return line


def _most_important(rows: Sequence[tuple[int, Line]], height: int) -> list[Line]:
    """As many rows as there is room for, by rank, and among equals from the top."""
    ranked = sorted(range(len(rows)), key=lambda n: (rows[n][0], n))[:height]
    return [rows[n][1] for n in sorted(ranked)]


def _fit(line: Line, width: int) -> Line:
    """The spans that fit. One that is cut off in the middle stays only if it is the first fact."""
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
