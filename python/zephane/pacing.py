"""How a long run is cut into requests, and whose turn it is between them."""

from __future__ import annotations

import sys
import time
from collections import deque

# Intended duration of one request, short enough to show progress and to react to Ctrl-C.
REQUEST_SECONDS = 0.1
GROWTH = 8
LONGEST = 1 << 20

WAKING_SECONDS = 0.0005

# The share of an endpoint by which the clock may fall short of it, as in the library.
ENDPOINT_TOLERANCE = 32 * sys.float_info.epsilon


class Pace:
    """Chooses the number of steps of a request from the duration of earlier ones."""

    def __init__(self) -> None:
        self._steps = 1

    def ask(self, left: int | None) -> int:
        """The steps to ask for, where so many are left, or any number if ``left`` is None."""
        return self._steps if left is None else min(self._steps, left)

    def took(self, steps: int, seconds: float) -> None:
        """Learn from a request for ``steps`` steps."""
        wanted = int(steps * REQUEST_SECONDS / max(seconds, 1e-6))
        self._steps = max(1, min(wanted, steps * GROWTH, LONGEST))


class Waiting:
    """Counts the threads that want their turn, so that one with many turns lets them in between.

    A plain lock does not: a thread that gives it back and takes it again at once gets it before
    those that wait have woken up.
    """

    def __init__(self) -> None:
        self._threads: deque[None] = deque()

    def __enter__(self) -> None:
        self._threads.append(None)

    def __exit__(self, *_: object) -> None:
        self._threads.pop()

    def let_in(self) -> None:
        """Give threads that wait the time to wake up."""
        if self._threads:
            time.sleep(WAKING_SECONDS)


def has_reached(now: float, end: float | None) -> bool:
    """Whether a flow has come to its endpoint, which it meets up to a rounding error."""
    return end is not None and now >= end - abs(end) * ENDPOINT_TOLERANCE
