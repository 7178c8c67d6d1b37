"""The figures of a running view as facts of a few words each, the most important first.

Each quantity has one name here, in the reports of runs and in the guides.

A fact is a text, or a pair of a text and the style that colours it: "good", "bad" or "waiting".
"""

from __future__ import annotations

import math
from dataclasses import dataclass
from typing import Union

from .progress import clock
from .records import Config, ViewStatus
from .report import memory
from .suiting import cfl_objection
from .viscosity import LOWEST, TARGET, resolution_number

# What the library's regulation aims at, and the relative error that counts as none.
RATIO_TARGET = 0.002
RATIO_BAND = 0.001
# Of k_max eta. Below it even the large vortices are wrong.
LEAST_RESOLUTION = 1.0

# What moves the Reynolds number: nothing, ``AdaptedViscosity``, or the library's regulation.
FIXED, ADAPTED, FOLLOWS = "fixed", "adapted", "follows the flow"
REYNOLDS_MODES = (FIXED, ADAPTED, FOLLOWS)

AT_REST = "The flow has come to rest."
GROWS = (
    "The flow gains energy or enstrophy, which no unforced flow does: the time step is too long. "
    "The figures and the picture are wrong; take a smaller CFL number."
)
FOLLOWING = (
    "The library's regulation leaves its target in either direction. At 512 x 512 it took the "
    "Reynolds number from 12,800 to 297,000 in 90 seconds, and the picture filled with noise."
)
LOST = "The flow is lost. Reset starts it again, and a new seed another one."

Span = tuple[str, str]
Fact = Union[Span, str]


@dataclass(frozen=True)
class Standing:
    """What the host knows of a flow beyond its status."""

    reynolds_mode: str = FIXED
    """One of ``REYNOLDS_MODES``."""
    at_rest: bool = False
    grows: bool = False
    failed: bool = False


STANDING = Standing()


def state(status: ViewStatus, until: float | None = None, standing: Standing = STANDING) -> str:
    """The state of the flow in a word or two."""
    if standing.at_rest and not status.running:
        return "at rest"
    if standing.failed:
        return "failed"
    if not status.ready:
        return "preparing the flow"
    if status.running:
        return "running"
    if is_finished(status, until):
        return "finished"
    return "paused" if status.settled else "pausing"


def state_style(word: str) -> str:
    """The style of a word that ``state`` returns."""
    return {"running": "good", "finished": "good", "failed": "bad"}.get(word, "waiting")


def notes(status: ViewStatus, standing: Standing) -> list[Span]:
    """Sentences on what is wrong with the flow or will be, the gravest first."""
    said: list[Span] = []
    if standing.at_rest:
        said.append((AT_REST, "waiting"))
    elif standing.failed and status.error_message is None:
        said.append((LOST, "bad"))
    if standing.grows:
        said.append((GROWS, "bad"))
    if standing.reynolds_mode == FOLLOWS:
        said.append((FOLLOWING, "waiting"))
    config = status.config
    if config.fixed_dt is None:
        objection = cfl_objection(config.integrator, config.resolution, config.cfl)
        if objection is not None:
            said.append((objection, "waiting"))
    return said


def is_finished(status: ViewStatus, until: float | None) -> bool:
    """Whether the flow has ended at the time ``until``, which it meets up to a rounding error."""
    if until is None or status.stats is None or status.running or not status.settled:
        return False
    return status.stats.simulation_time >= until - 1e-6 * abs(until)


def config_facts(config: Config) -> list[str]:
    return [
        f"{config.resolution} x {config.resolution}",
        f"k0 {config.k0}",
        f"seed {config.seed}",
        config.integrator,
        config.operator,
        config.start_spectrum,
    ]


def time_facts(status: ViewStatus, until: float | None) -> list[str]:
    stats = status.stats
    if stats is None:
        return []
    end = f" of {until:g}" if until else ""
    facts = [f"{stats.simulation_time:.4f}{end}"]
    if stats.initial_turnover_time > 0.0:
        facts.append(f"{stats.simulation_time / stats.initial_turnover_time:.2f} turnovers")
    elapsed = f"{clock(status.elapsed_seconds)} elapsed"
    return [*facts, f"step {stats.steps}", f"dt {stats.dt:.4g}", elapsed]


def speed_facts(status: ViewStatus) -> list[str]:
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


def reynolds_facts(status: ViewStatus, standing: Standing = STANDING) -> list[str]:
    return [f"{status.effective_reynolds:.6g}", standing.reynolds_mode]


def resolution_of(status: ViewStatus) -> float:
    """k_max eta of a view's flow, or NaN before there are figures."""
    if status.stats is None:
        return math.nan
    config, palinstrophy = status.config, status.stats.palinstrophy
    return resolution_number(config.resolution, status.effective_reynolds, palinstrophy)


def eddy_facts(status: ViewStatus, standing: Standing = STANDING) -> list[Fact]:
    """Whether the grid resolves the smallest eddies, and what moves the Reynolds number aims at."""
    if status.stats is None:
        return []
    number, ratio = resolution_of(status), status.stats.palinstrophy_ratio
    facts: list[Fact] = [f"k_max eta {number:.2f}"]
    if number >= LOWEST:
        facts.append(("resolved", "good"))
    elif math.isfinite(number):
        facts.append(("too coarse", "waiting" if number >= LEAST_RESOLUTION else "bad"))
    if standing.reynolds_mode == ADAPTED:
        return [*facts, f"target {TARGET:g}"]
    facts.append(f"palinstrophy ratio {ratio:.3g}")
    if not status.regulated:
        return facts
    facts.append(f"target {RATIO_TARGET:g}")
    error = ratio / RATIO_TARGET - 1.0
    if not math.isfinite(error):
        return facts
    return [*facts, ("on target", "good") if abs(error) < RATIO_BAND else f"{100.0 * error:+.1f} %"]


def energy_facts(status: ViewStatus) -> list[str]:
    stats = status.stats
    if stats is None:
        return []
    return [
        f"{stats.energy:.6g}",
        f"enstrophy {stats.enstrophy:.5g}",
        f"palinstrophy {stats.palinstrophy:.5g}",
    ]


def device_facts(status: ViewStatus) -> list[str]:
    return [f"{memory(status.allocated_bytes)} on {status.gpu}", status.backend]
