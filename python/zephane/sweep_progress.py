"""What is known of a sweep while it runs, and the one line that shows it."""

from __future__ import annotations

import queue
import shutil
import sys
import time
from collections import deque
from dataclasses import dataclass

from .progress import BAR_CELLS, LOG_SECONDS, clock
from .terminal import CLEAR_TO_END_OF_LINE, draws_blocks

# The rate from which the time left follows is an average over this time.
RATE_SECONDS = 20.0
LEAST_SECONDS = 2.0


@dataclass(frozen=True)
class Report:
    """News of a member, given by its place in the sweep."""

    place: int
    time: float | None = None
    """Of its flow."""
    is_done: bool = False
    error: str | None = None
    warning: str | None = None


class Board:
    """Collects the reports, which any thread may send, on the thread that waits for the sweep."""

    def __init__(self, members: int, there: int, until: float, wanted: bool | None) -> None:
        self.reports: queue.SimpleQueue[Report] = queue.SimpleQueue()
        self.errors: dict[int, str] = {}
        self.warnings: dict[int, str] = {}
        """The first one of each member."""
        self._members = members
        self._there = there
        self._finished: set[int] = set()
        self._until = until
        self._shares: dict[int, float] = {}
        self._is_terminal = sys.stderr.isatty()
        self._is_shown = self._is_terminal if wanted is None else wanted
        self._last_log = time.monotonic()
        self._recent = deque([(time.monotonic(), self._share())])

    def update(self, seconds: float) -> None:
        """Wait for reports, at most so long, and show how far the sweep is."""
        try:
            self._take(self.reports.get(timeout=seconds))
            while True:
                self._take(self.reports.get_nowait())
        except queue.Empty:
            self._show()

    def _take(self, report: Report) -> None:
        if report.warning is not None:
            self.warnings.setdefault(report.place, report.warning)
        elif report.error is not None or report.is_done:
            self._shares.pop(report.place, None)
            self._finished.add(report.place)
            if report.error is not None:
                self.errors[report.place] = report.error
        elif report.time is not None and report.place not in self._finished:
            self._shares[report.place] = min(report.time / (self._until or 1.0), 1.0)

    def line(self) -> str:
        """How far the sweep is."""
        left = self._left()
        running = len(self._shares)
        parts = [f"{self._done} of {self._members} members done", f"{running} running"]
        if left is not None and self._done < self._members:
            parts.insert(0, f"{clock(left)} left")
        return f"{100 * self._share():3.0f} %  {'  '.join(parts)}"

    @property
    def _done(self) -> int:
        return self._there + len(self._finished)

    def _share(self) -> float:
        return (self._done + sum(self._shares.values())) / max(self._members, 1)

    def _left(self) -> float | None:
        moment, share = time.monotonic(), self._share()
        self._recent.append((moment, share))
        while len(self._recent) > 2 and self._recent[1][0] < moment - RATE_SECONDS:
            self._recent.popleft()
        began, first = self._recent[0]
        gained = share - first
        if gained <= 0.0 or moment - began < LEAST_SECONDS:
            return None
        return (1.0 - share) * (moment - began) / gained

    def _show(self) -> None:
        if not self._is_shown:
            return
        if self._is_terminal:
            full, empty = ("━", "─") if draws_blocks(sys.stderr) else ("#", "-")
            cells = int(self._share() * BAR_CELLS)
            line = f"{full * cells}{empty * (BAR_CELLS - cells)} {self.line()}"
            width = shutil.get_terminal_size().columns - 1
            print(f"\r{line[:width]}{CLEAR_TO_END_OF_LINE}", end="", file=sys.stderr, flush=True)
        elif time.monotonic() - self._last_log >= LOG_SECONDS:
            self._last_log = time.monotonic()
            print(self.line(), file=sys.stderr, flush=True)

    def close(self) -> None:
        """Erase the line."""
        if self._is_shown and self._is_terminal:
            print(f"\r{CLEAR_TO_END_OF_LINE}", end="", file=sys.stderr, flush=True)
