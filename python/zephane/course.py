"""What the reports of one flow say when they are taken together: that it has come to rest, that it
gains energy, or that it has failed.
"""

from __future__ import annotations

from .errors import LOST_FLOW
from .records import ViewStatus

REST_ENERGY = 1e-6
# A flow with less than this share of its energy left may be so fast in dying that the step passes
# a turnover and every bound between two reports.
FADING_ENERGY = 0.1
FADING_STEP = 0.1

# An unforced flow loses energy and enstrophy. In single precision their sums vary by 1e-6; a time
# step beyond stability moves them by far more than these shares.
LARGEST_GROWTH = {"energy": 1e-4, "enstrophy": 1e-3}


def has_grown(name: str, before: float, now: float) -> bool:
    """Whether the figure of this name has grown more than that of a sound flow can."""
    return now > before * (1.0 + LARGEST_GROWTH[name])


class Course:
    """Follows one flow, that of the number ``generation``, by its reports, a few a second."""

    def __init__(self, generation: int = 0) -> None:
        self.generation = generation
        self.at_rest = False
        """The flow has hardly moved for a turnover of its start, or is about to."""
        self.grows = False
        """Energy or enstrophy has grown, which without forcing is always a numerical error."""
        self.failed = False
        """The flow was lost, or could not be made. ``dismiss`` does not bring it back."""
        self._start_energy: float | None = None
        self._least_energy = 0.0
        self._least_enstrophy = 0.0
        self._step_before = 0.0
        self._step = 0.0
        self._energy = 0.0
        self._ran = True

    def follow(self, status: ViewStatus) -> None:
        self._follow_figures(status)
        if status.error_message == LOST_FLOW and (self._is_fading() or _outlasts_turnover(status)):
            self.at_rest = True
        if status.error_message is None:
            self._ran = status.running
        elif not status.running:
            # The drawing can fail as well. The flow goes on then, if it was not paused.
            self.failed = (
                self.failed
                or self._ran
                or not status.ready
                or status.error_message == LOST_FLOW
            )

    def _follow_figures(self, status: ViewStatus) -> None:
        stats = status.stats
        if stats is None or not status.ready or not stats.is_finite:
            return
        if self._start_energy is None:
            self._start_energy = stats.energy
            self._least_energy, self._least_enstrophy = stats.energy, stats.enstrophy
        if stats.energy == self._energy:
            return  # A report comes more often than its figures are computed.
        self._energy = stats.energy
        self._step_before, self._step = self._step, stats.dt
        self.grows = (
            self.grows
            or has_grown("energy", self._least_energy, stats.energy)
            or has_grown("enstrophy", self._least_enstrophy, stats.enstrophy)
        )
        self._least_energy = min(self._least_energy, stats.energy)
        self._least_enstrophy = min(self._least_enstrophy, stats.enstrophy)
        self.at_rest = self.at_rest or self._rests(status, stats.initial_turnover_time)

    def _rests(self, status: ViewStatus, turnover: float) -> bool:
        start = self._start_energy or 0.0
        if self._energy < REST_ENERGY * start:
            return True
        if status.config.fixed_dt is not None or not turnover > 0.0:
            return False
        if self._step > turnover:
            return True
        # The step grows ever faster. Look two reports ahead.
        growth = self._step / self._step_before if self._step_before > 0.0 else 1.0
        return self._energy < FADING_ENERGY * start and self._step * growth**2 > turnover

    def _is_fading(self) -> bool:
        """Whether the step was growing without bound when the flow was lost."""
        start = self._start_energy or 0.0
        return self._energy < FADING_ENERGY * start and self._step > FADING_STEP


def _outlasts_turnover(status: ViewStatus) -> bool:
    """Whether an adaptive step is longer than a turnover of the start. Unlike the energy, the step
    is that of the last good batch.
    """
    stats = status.stats
    if stats is None or status.config.fixed_dt is not None:
        return False
    return stats.dt > stats.initial_turnover_time > 0.0
