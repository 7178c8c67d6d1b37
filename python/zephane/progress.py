"""Progress of a run: a line that is updated on a terminal, or a line every few seconds in a log."""

from __future__ import annotations

import shutil
import sys
import time
from collections import deque
from typing import TextIO, Union

from .records import Clock, Statistics
from .terminal import CLEAR_TO_END_OF_LINE, draws_blocks

LOG_SECONDS = 10.0
# Rates are averages over this time.
RATE_SECONDS = 3.0
BAR_CELLS = 16

Moment = Union[Clock, Statistics]


class Progress:
    """Measures how fast a run goes, and shows nothing."""

    def __init__(self, start: Statistics, steps: int | None, until: float | None) -> None:
        self._start = start
        self._steps = steps
        self._until = until
        self._recent: deque[tuple[float, int, float]] = deque()
        self._recent.append((time.perf_counter(), start.steps, start.simulation_time))

    def update(self, now: Moment) -> None:
        moment = time.perf_counter()
        self._recent.append((moment, now.steps, now.simulation_time))
        while len(self._recent) > 2 and self._recent[1][0] < moment - RATE_SECONDS:
            self._recent.popleft()

    def __enter__(self) -> Progress:
        return self

    def __exit__(self, *_: object) -> None:
        pass

    def _rates(self) -> tuple[float, float]:
        """Steps per second, and time of the flow per second."""
        (began, steps, flow), (ended, last_steps, last_flow) = self._recent[0], self._recent[-1]
        seconds = max(ended - began, 1e-9)
        return (last_steps - steps) / seconds, (last_flow - flow) / seconds

    def _done(self, now: Moment) -> float:
        """The share of the run that is done, from 0 to 1: of its steps or its time, whichever is
        larger.
        """
        shares = [0.0]
        if self._steps:
            shares.append((now.steps - self._start.steps) / self._steps)
        if self._until is not None and self._until > self._start.simulation_time:
            begun = self._start.simulation_time
            shares.append((now.simulation_time - begun) / (self._until - begun))
        return min(max(shares), 1.0)

    def _left(self, now: Moment) -> float | None:
        """Seconds to the end at the present rate, or None if nobody can say."""
        step_rate, flow_rate = self._rates()
        estimates = []
        if self._steps is not None and step_rate > 0.0:
            estimates.append((self._start.steps + self._steps - now.steps) / step_rate)
        if self._until is not None and flow_rate > 0.0:
            estimates.append((self._until - now.simulation_time) / flow_rate)
        return max(min(estimates), 0.0) if estimates else None

    def _figures(self, now: Moment) -> str:
        end = "" if self._until is None else f" of {self._until:.4g}"
        steps = "" if self._steps is None else f" of {self._steps}"
        rate, _ = self._rates()
        left = self._left(now)
        remaining = "" if left is None else f"{clock(left)} left  "
        return (
            f"{remaining}time {now.simulation_time:.3f}{end}  step {now.steps}{steps}  "
            f"{rate:.{1 if rate < 100 else 0}f} steps/s"
        )


class TerminalLine(Progress):
    """A line that each update overwrites, and that is erased at the end."""

    def __init__(
        self, stream: TextIO, start: Statistics, steps: int | None, until: float | None
    ) -> None:
        super().__init__(start, steps, until)
        self._stream = stream
        self._full, self._empty = ("━", "─") if draws_blocks(stream) else ("#", "-")

    def update(self, now: Moment) -> None:
        super().update(now)
        done = self._done(now)
        cells = int(done * BAR_CELLS)
        bar = self._full * cells + self._empty * (BAR_CELLS - cells)
        line = f"{bar} {100 * done:3.0f} %  {self._figures(now)}"
        width = shutil.get_terminal_size().columns - 1
        self._stream.write(f"\r{line[:width]}{CLEAR_TO_END_OF_LINE}")
        self._stream.flush()

    def __exit__(self, *_: object) -> None:
        self._stream.write(f"\r{CLEAR_TO_END_OF_LINE}")
        self._stream.flush()


class LogLines(Progress):
    """A new line every ``LOG_SECONDS``."""

    def __init__(
        self, stream: TextIO, start: Statistics, steps: int | None, until: float | None
    ) -> None:
        super().__init__(start, steps, until)
        self._stream = stream
        self._last = time.perf_counter()

    def update(self, now: Moment) -> None:
        super().update(now)
        moment = time.perf_counter()
        if moment - self._last >= LOG_SECONDS:
            self._last = moment
            print(f"{100 * self._done(now):3.0f} %  {self._figures(now)}", file=self._stream)
            self._stream.flush()


def shown_progress(
    wanted: bool | None, start: Statistics, steps: int | None, until: float | None
) -> Progress:
    """Progress on standard error, in the form that suits it, unless it is not ``wanted``."""
    if wanted is False:
        return Progress(start, steps, until)
    kind = TerminalLine if sys.stderr.isatty() else LogLines
    return kind(sys.stderr, start, steps, until)


def clock(seconds: float) -> str:
    """A duration as minutes and seconds, "1:05", with hours from one hour on, "2:01:05"."""
    minutes, rest = divmod(int(seconds + 0.5), 60)
    hours, minutes = divmod(minutes, 60)
    return f"{hours}:{minutes:02}:{rest:02}" if hours else f"{minutes}:{rest:02}"
