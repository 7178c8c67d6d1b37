"""How a long run is cut into requests, and whose turn it is between them."""

from __future__ import annotations

import sys
import threading

# Intended duration of one request, short enough to show progress and to react to Ctrl-C.
REQUEST_SECONDS = 0.1
GROWTH = 8
LONGEST = 1 << 20

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


class Turns:
    """A lock that waiting threads get in turn with a thread that takes it again and again."""

    def __init__(self) -> None:
        self._next = threading.Lock()
        self._lock = threading.Lock()

    def __enter__(self) -> None:
        # Only the thread that holds ``_next`` waits for the lock, so that one that has just given
        # it back stands behind it.
        with self._next:
            self._lock.acquire()

    def __exit__(self, *_: object) -> None:
        self._lock.release()


def has_reached(time: float, end: float | None) -> bool:
    """Whether a flow has come to its endpoint, which it meets up to a rounding error."""
    return end is not None and time >= end - abs(end) * ENDPOINT_TOLERANCE
