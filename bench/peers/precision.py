"""Work against precision: the time that a code takes to a fixed end of the flow, and its error.

Everybody keeps the same modes and takes fixed steps. They are lengthened while the result is
better than asked for, and shortened while it is worse. The error is the root-mean-square difference
of the vorticity from a reference in double precision, relative to the vorticity. The flow is well
resolved, so that the error is that of the time steps and of rounding.
"""

from __future__ import annotations

import contextlib
import dataclasses
import hashlib
import math
import sys
import time
from typing import Any

import numpy as np
from contest import Contestant, PeerFailed
from environments import BUILD
from peers import OURS, Peer, ours, reference
from problem import difference
from starts import Start, start

END = 1.0
REYNOLDS_FACTOR = 1 / 16
TARGETS = (1e-3, 1e-4)
FIRST_COURANT, LARGEST_COURANT, SMALLEST_COURANT = 2 * 2**0.5, 16.0, 1 / 64
RATIO = 2**0.5  # from one run to the next
CHUNKS = 8
INTEGRATORS = ("etdrk4", "ifHeunRK3", "imexRK3")


@dataclasses.dataclass(frozen=True)
class Run:
    courant: float
    steps: int
    seconds: float
    error: float


class TooLong(PeerFailed):
    pass


class Precision:
    def __init__(self, seconds_for_each: float) -> None:
        self.limit = seconds_for_each
        self.results: list[dict[str, Any]] = []

    def measure(self, resolution: int, peers: list[Peer]) -> None:
        at = start(resolution, REYNOLDS_FACTOR)
        exact, uncertain = solution(at)
        print(
            f"\nt = {END:g} at N = {resolution}; the reference is good to {uncertain:.0e}",
            flush=True,
        )
        same: list[Run] = []
        for integrator in INTEGRATORS:
            name = OURS if integrator == INTEGRATORS[0] else f"{OURS}, {integrator}"
            runs = self._curve(at, exact, ours(integrator=integrator), name, uncertain)
            same = same or runs
        for peer in peers:
            if peer.scheme == "bare":
                continue
            try:
                if peer.scheme == "same":
                    self._as_ours(at, peer, same, uncertain)
                else:
                    self._curve(at, exact, peer, peer.name, uncertain)
            except PeerFailed as failure:
                print(f"  {peer.name:22s} {failure}", file=sys.stderr, flush=True)
                self._record(at, peer, peer.name, [], uncertain, str(failure))

    def _curve(
        self, at: Start, exact: np.ndarray, peer: Peer, name: str, uncertain: float
    ) -> list[Run]:
        with peer.start() as contestant:
            runs, why = curve(contestant, at, exact, peer.options, self.limit)
        self._record(at, peer, name, runs, uncertain, why)
        return runs

    def _as_ours(self, at: Start, peer: Peer, runs: list[Run], uncertain: float) -> None:
        """The scheme is ours, and so is the error; only the time of a step is the peer's."""
        with peer.start() as contestant:
            contestant.make(at.problem(FIRST_COURANT * at.courant_step, **peer.options))
            contestant.take(1)
            enough = max(1, int(0.2 / contestant.take(1).per_step))
            step = min(contestant.take(enough).per_step for _ in range(5))
        theirs = [dataclasses.replace(run, seconds=run.steps * step) for run in runs]
        self._record(at, peer, peer.name, theirs, uncertain, "")

    def _record(
        self, at: Start, peer: Peer, name: str, runs: list[Run], uncertain: float, why: str
    ) -> None:
        reached = {str(target): seconds_to(runs, target) for target in TARGETS}
        self.results.append(
            {
                "peer": name,
                "group": peer.group,
                "resolution": at.resolution,
                "reynolds": at.reynolds,
                "reference_error": uncertain,
                "seconds_to": reached,
                "runs": [dataclasses.asdict(run) for run in runs],
                **({"failure": why} if why else {}),
            }
        )
        told = "".join(
            f"   {target:g}: {f'{seconds:.2f} s' if seconds else 'not reached'}"
            for target, seconds in zip(TARGETS, reached.values(), strict=True)
        )
        print(f"  {name:22s}{told}   {why}", flush=True)


def curve(
    contestant: Contestant, at: Start, exact: np.ndarray, options: dict[str, Any], limit: float
) -> tuple[list[Run], str]:
    """Runs around the targets, the longest steps first, and why the targets were not reached."""
    runs: dict[float, Run] = {}
    began = time.monotonic()

    def run(courant: float) -> float:
        left = limit - (time.monotonic() - began)
        cost = max((r.seconds / r.steps for r in runs.values()), default=0.0)
        if cost * steps_to_end(at, courant) > left:
            raise TooLong(f"would take longer than {limit:.0f} s")
        runs[courant] = one_run(contestant, at, exact, options, courant, left)
        return runs[courant].error

    why = ""
    courant = FIRST_COURANT
    while courant >= SMALLEST_COURANT:
        try:
            if run(courant) <= min(TARGETS):
                break
        except TooLong as failure:
            why = str(failure)
            break
        except PeerFailed as failure:  # unstable, perhaps
            why = str(failure)
        courant /= RATIO
    else:
        why = why or f"not with steps of Courant number {SMALLEST_COURANT:g}"
    with contextlib.suppress(PeerFailed):
        courant = FIRST_COURANT
        while courant in runs and runs[courant].error <= max(TARGETS) and courant < LARGEST_COURANT:
            courant *= RATIO
            run(courant)
    found = [runs[courant] for courant in sorted(runs, reverse=True)]
    return found, "" if any(r.error <= min(TARGETS) for r in found) else why


def steps_to_end(at: Start, courant: float) -> int:
    return math.ceil(END / (courant * at.courant_step))


def one_run(
    contestant: Contestant,
    at: Start,
    exact: np.ndarray,
    options: dict[str, Any],
    courant: float,
    limit: float,
) -> Run:
    """The time is that of the quickest piece of the run, for all steps."""
    steps = steps_to_end(at, courant)
    contestant.make(at.problem(END / steps, **options))
    taken, quickest = 0, math.inf
    deadline = time.monotonic() + max(limit, 5)
    while taken < steps:
        piece = min(max(1, steps // CHUNKS), steps - taken)
        left = deadline - time.monotonic()
        if left <= 0:
            raise TooLong(f"takes longer than {limit:.0f} s")
        quickest = min(quickest, contestant.take(piece, left).per_step)
        taken += piece
    return Run(courant, steps, steps * quickest, difference(exact, contestant.coefficients()))


def seconds_to(runs: list[Run], target: float) -> float | None:
    """The least time with an error below the target, on the lines between neighbouring runs."""
    good = [run.seconds for run in runs if run.error <= target]
    for coarse, fine in zip(runs, runs[1:], strict=False):
        if fine.error <= target < coarse.error < 0.1 and coarse.seconds < fine.seconds:
            share = math.log(target / fine.error) / math.log(coarse.error / fine.error)
            good.append(fine.seconds * (coarse.seconds / fine.seconds) ** share)
    return min(good, default=None)


def solution(at: Start) -> tuple[np.ndarray, float]:
    """The reference, and its error, found from steps twice as long: the scheme has order four."""
    key = hashlib.sha256(at.path.read_bytes() + f"{at.reynolds} {END}".encode()).hexdigest()[:12]
    path = BUILD / f"reference-{at.resolution}-{key}.npz"
    if not path.exists():
        peer = reference()
        found = []
        with peer.start() as contestant:
            for courant in (1.0, 0.5):
                steps = steps_to_end(at, courant)
                contestant.make(at.problem(END / steps, **peer.options))
                contestant.take(steps, limit=600)
                found.append(contestant.coefficients())
        np.savez(path, exact=found[1], error=difference(found[1], found[0]) / 15)
    with np.load(path) as stored:
        return stored["exact"], float(stored["error"])
