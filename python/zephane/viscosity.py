"""A viscosity that follows the flow, so that the grid resolves its smallest eddies at all times."""

from __future__ import annotations

import math
from typing import Any

from .records import ViewStatus
from .view import View

# k_max eta. Above 1.5 the large vortices are right; what lies above 2 the grid has to spare.
TARGET = 1.75
LOWEST, HIGHEST = 1.5, 2.0

# The operation "set" clamps the decimal logarithm of the Reynolds number so.
LOG_REYNOLDS_LIMITS = (3.0, 6.0)

# Turnovers of the start within which the Reynolds number falls where eddies are too small for the
# grid, and rises where they are larger than they need be.
FALL_TURNOVERS = 0.25
RISE_TURNOVERS = 2.0
# Of the decimal logarithm of the Reynolds number, in one sample.
LARGEST_FALL, LARGEST_RISE = 0.3, 0.1
SMALLEST_MOVE = 1e-4


def resolution_number(resolution: int, reynolds: float, palinstrophy: float) -> float:
    """k_max eta: how well a grid resolves the smallest eddies of a flow.

    It is the largest wavenumber, k_max = N/2 - 1, times the size of the smallest eddies,
    eta = (nu³/chi)^(1/6), where chi = 2 nu P is the dissipation of enstrophy, nu is 1/``reynolds``
    and P the ``palinstrophy``. Above 1.5 the large vortices are right, above 3 the whole field is.
    A flow without palinstrophy has infinity.
    """
    if not palinstrophy > 0.0 or not reynolds > 0.0:
        return math.inf
    eta = (reynolds**2 * 2.0 * palinstrophy) ** (-1.0 / 6.0)
    return (resolution / 2 - 1) * float(eta)


class ViscosityLaw:
    """Moves the Reynolds number to where k_max eta is ``target``.

    A larger Reynolds number makes smaller eddies, so it is lowered where k_max eta is below the
    target and raised where it is above: the feedback is negative. It is lowered within a fraction
    of a turnover and raised within a few, and not while the palinstrophy grows, since the eddies
    are then still becoming smaller.
    """

    def __init__(self, resolution: int, turnover: float, target: float = TARGET) -> None:
        self._k_max = resolution / 2 - 1
        self._turnover = turnover if turnover > 0.0 else 1.0
        self._target = target
        self._time: float | None = None
        self._palinstrophy = 0.0

    def suited(self, palinstrophy: float) -> float:
        """The decimal logarithm of the Reynolds number at which k_max eta is the target."""
        return 3.0 * math.log10(self._k_max / self._target) - 0.5 * math.log10(2.0 * palinstrophy)

    def next(self, time: float, palinstrophy: float, log_reynolds: float) -> float:
        """The decimal logarithm of the Reynolds number to set, after a sample at ``time``."""
        if not palinstrophy > 0.0 or not math.isfinite(palinstrophy + time + log_reynolds):
            return log_reynolds
        before, self._time = self._time, time
        grows = palinstrophy > self._palinstrophy
        self._palinstrophy = palinstrophy
        error = self.suited(palinstrophy) - log_reynolds
        if before is None or not time > before or (error > 0.0 and grows):
            return log_reynolds
        turnovers = (time - before) / self._turnover
        span = RISE_TURNOVERS if error > 0.0 else FALL_TURNOVERS
        move = error * -math.expm1(-turnovers / span)
        low, high = LOG_REYNOLDS_LIMITS
        moved = log_reynolds + max(min(move, LARGEST_RISE), -LARGEST_FALL)
        # Below 1000 the library would raise the number, so it stays.
        return min(moved, high) if moved >= low else min(log_reynolds, low)


class AdaptedViscosity:
    """Moves the Reynolds number of a view's flow, so that the grid resolves its smallest eddies.

    Call ``update`` in the program's loop, ten times a second or so, instead of ``View.status``. At
    each new sample of the figures, four a second, the Reynolds number moves to where
    ``resolution_number`` is ``target``: down within a quarter of a turnover, up within two. It
    stays within 1000 to 1000000. Nothing moves while the flow is paused or the view ``regulated``;
    a flow that begins below 1000 keeps its number. A Courant number below 1 becomes 1 at the first
    move.

    Moves change the view's configuration, so start new flows by the methods here: they begin with
    the Reynolds number that the flow before began with. After ``View.reset`` and the like it comes
    back with the next ``update`` only.
    """

    def __init__(self, view: View, target: float = TARGET) -> None:
        self._view = view
        self._target = target
        status = view.status()
        self._law: ViscosityLaw | None = None
        self._generation = status.generation
        self._energy: float | None = None
        self._start = status.config.reynolds
        self._moved: float | None = None

    @property
    def start_reynolds(self) -> float:
        """The Reynolds number that the flow began with."""
        return self._start

    def update(self) -> ViewStatus:
        """The view's status, after a move of the Reynolds number where one is due."""
        status = self._follow(self._view.status())
        stats = status.stats
        if stats is None or status.regulated or not status.running:
            return status
        if stats.energy == self._energy:
            return status  # The figures are those of the last call.
        self._energy = stats.energy
        if self._law is None:
            turnover = stats.initial_turnover_time
            self._law = ViscosityLaw(status.config.resolution, turnover, self._target)
        now = math.log10(status.effective_reynolds)
        wanted = self._law.next(stats.simulation_time, stats.palinstrophy, now)
        if abs(wanted - now) < SMALLEST_MOVE:
            return status
        status = self._view.set(log_reynolds=wanted)
        self._moved = status.config.reynolds
        return status

    def reset(self) -> ViewStatus:
        """``View.reset``, from the Reynolds number that the flow began with."""
        if self._is_moved():
            return self._configure(reynolds=self._start)
        return self._view.reset()

    def next_seed(self) -> ViewStatus:
        """``View.next_seed``, from the Reynolds number that the flow before began with."""
        if self._is_moved():
            seed = (self._view.status().config.seed + 1) % 2**64
            return self._configure(seed=seed, reynolds=self._start)
        return self._view.next_seed()

    def configure(self, **changes: Any) -> ViewStatus:
        """``View.configure``. Unless ``resolution``, ``k0`` or ``reynolds`` is among the changes,
        the Reynolds number is that which the flow before began with.
        """
        if self._is_moved() and not {"resolution", "k0", "reynolds"} & changes.keys():
            changes["reynolds"] = self._start
        return self._configure(**changes)

    def _configure(self, **changes: Any) -> ViewStatus:
        return self._follow(self._view.configure(**changes))

    def _is_moved(self) -> bool:
        return self._moved is not None and self._view.status().config.reynolds == self._moved

    def _follow(self, status: ViewStatus) -> ViewStatus:
        """Begin anew with a new flow."""
        if status.generation == self._generation:
            return status
        self._generation, self._law, self._energy = status.generation, None, None
        if status.config.reynolds != self._moved:
            self._start, self._moved = status.config.reynolds, None
        else:
            # The view was reset without the methods here, by the button in its picture perhaps.
            status = self._view.set(log_reynolds=math.log10(self._start))
            self._moved = status.config.reynolds
        return status
