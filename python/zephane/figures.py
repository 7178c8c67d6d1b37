"""The figures of a running view as facts of a few words each, the most important first.

A fact is a text, or a pair of a text and the style that colours it: "good", "bad" or "waiting".
"""

from __future__ import annotations

import math
from typing import Union

from .progress import clock
from .records import Config, ViewStatus
from .report import memory

# The regulator's target for the palinstrophy control, and the relative error that counts as none.
CONTROL_TARGET = 20.0
CONTROL_BAND = 0.001

Span = tuple[str, str]
Fact = Union[Span, str]


def state(status: ViewStatus, until: float | None = None) -> str:
    """The state of the flow in a word or two."""
    if status.error_message is not None:
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


def reynolds_facts(status: ViewStatus) -> list[str]:
    now, configured = status.effective_reynolds, status.config.reynolds
    facts = [f"{now:.6g} effective", f"{configured:.6g} configured"]
    if configured > 0.0:
        facts.append(f"{100.0 * (now / configured - 1.0):+.1f} %")
    return facts


def regulator_facts(status: ViewStatus) -> list[Fact]:
    control = status.palinstrophy_control
    if not status.regulated:
        return ["off", f"palinstrophy {control:.2f}"]
    facts: list[Fact] = [f"palinstrophy {control:.2f}", f"target {CONTROL_TARGET:g}"]
    error = control / CONTROL_TARGET - 1.0
    if status.stats is None or not math.isfinite(error):
        return facts
    if abs(error) < CONTROL_BAND:
        return [*facts, ("on target", "good")]
    return [*facts, f"{100.0 * error:+.1f} %"]


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
