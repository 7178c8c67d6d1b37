"""Two contestants in turns."""

from __future__ import annotations

import dataclasses
import time

from contest import Contestant


@dataclasses.dataclass(frozen=True)
class Patience:
    """How long a comparison may take."""

    rounds: int = 7
    # Of one side in one round, and of a whole duel.
    turn_seconds: float = 0.15
    duel_seconds: float = 20.0
    # A step that takes longer is not measured.
    longest_step: float = 6.0


def steps_of_a_turn(contestant: Contestant, patience: Patience) -> int:
    """As many steps as fit into a turn, at least one; also warms up."""
    contestant.take(1)
    one = contestant.take(1).per_step
    if one > 0.1 * patience.turn_seconds:
        return max(1, round(patience.turn_seconds / one))
    several = contestant.take(max(1, int(0.1 * patience.turn_seconds / one)))
    return max(1, round(patience.turn_seconds / several.per_step))


def duel(left: Contestant, right: Contestant, patience: Patience) -> list[tuple[float, float]]:
    """Seconds for each step of both, round by round; at least two rounds."""
    lengths = steps_of_a_turn(left, patience), steps_of_a_turn(right, patience)
    rounds: list[tuple[float, float]] = []
    began = time.monotonic()
    while len(rounds) < patience.rounds:
        rounds.append((left.take(lengths[0]).per_step, right.take(lengths[1]).per_step))
        spent = time.monotonic() - began
        if len(rounds) >= 2 and spent * (1 + 1 / len(rounds)) > patience.duel_seconds:
            break
    return rounds


def fastest(rounds: list[tuple[float, float]]) -> tuple[float, float]:
    """The minimum of each: what disturbs a run only makes it longer."""
    return min(a for a, _ in rounds), min(b for _, b in rounds)
