"""What the package raises."""

from __future__ import annotations

# The solver's words for a flow that is lost, by a time step without bound among others.
LOST_FLOW = "The solver encountered a non-finite field or timestep."


class ZephaneError(RuntimeError):
    """Anything that the package or the library refuses, or fails to do; the text is the reason."""


class InvalidValueError(ZephaneError, ValueError):
    """An argument that is refused, with what is allowed. Nothing has changed.

    It is a ``ValueError`` too.
    """


class FlowFailedError(ZephaneError):
    """A flow that is lost: infinite or not a number, mostly by too long a time step.

    The text says what to try, and ``Engine.reset`` starts the flow again. ``step``, ``time``,
    ``dt`` and ``max_speed`` are the last good ones that are known, at most a fraction of a second
    of computing before the failure; None where nothing is known.
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
        """Steps taken since time 0."""
        self.time = time
        """Time of the flow."""
        self.dt = dt
        """The last time step."""
        self.max_speed = max_speed
        """The largest |u| + |v|, or None if the time step is a fixed one."""
