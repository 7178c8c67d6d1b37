"""What the library gains from more processors: the same step by a process that may use all of them
and by one that may use a single one."""

from __future__ import annotations

import os
from typing import Any

import environments
from contest import Contestant
from duel import Patience, duel, fastest
from starts import start
from steps import COURANT


def threads(resolutions: list[int], patience: Patience) -> list[dict[str, Any]]:
    every = sorted(os.sched_getaffinity(0))
    python = environments.make("arrays")
    results = []
    print(f"\n{len(every)} threads against 1", flush=True)
    for resolution in resolutions:
        problem = start(resolution)
        with (
            Contestant("Zephane", python, "zephane_flow", processors=every) as many,
            Contestant("Zephane", python, "zephane_flow", processors=every[:1]) as one,
        ):
            for contestant in (many, one):
                contestant.make(problem.problem(COURANT * problem.courant_step))
            quick, slow = fastest(duel(many, one, patience))
        print(f"  N = {resolution}: {slow / quick:.2f}", flush=True)
        results.append(
            {
                "resolution": resolution,
                "threads": len(every),
                "seconds": quick,
                "seconds_of_one": slow,
            }
        )
    return results
