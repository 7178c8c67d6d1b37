"""What the package raises."""

from __future__ import annotations

# The solver's words for a flow that is lost, by a time step without bound among others.
LOST_FLOW = "The solver encountered a non-finite field or timestep."


class ZephaneError(RuntimeError):
    """A failure. Its text is the library's own, or begins with a sentence of the package's."""


class InvalidValueError(ZephaneError, ValueError):
    """A value that is refused before the library is asked. Nothing has changed."""


class FlowFailedError(ZephaneError):
    """A flow that is lost, mostly by too long a time step. ``Engine.reset`` starts it again.

    The figures are the last good ones that are known, at most a fraction of a second of computing
    before the failure.
    """

    def __init__(
        self,
        text: str,
        *,
        step: int | None = None,
        time: float | None = None,
        dt: float | None = None,
        max_speed: float | None = None,
    ) -> None:
        super().__init__(text)
        self.step = step
        self.time = time
        self.dt = dt
        self.max_speed = max_speed
        """The largest |u| + |v|, or None if the time step is a fixed one."""
