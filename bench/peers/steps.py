"""What a step costs on grids of several sizes: each peer in turns with the library, after a check
that it computes the same flow."""

from __future__ import annotations

import sys
from typing import Any

import numpy as np
from contest import Contestant, PeerFailed
from duel import Patience, duel, fastest
from peers import Peer, ours
from problem import difference
from starts import Start, start

COURANT = 3.0  # of the steps that are measured; stable with etdrk4
STEPS_TO_AGREE = 4
# Of the steps with which schemes of lower order have to agree with ours, at a time when a flow
# without advection would be off by some percent.
SHORT = 1 / 4
LARGEST_DIFFERENCE = {"same": 1e-4, "own": 1e-3}


class OtherFlow(PeerFailed):
    pass


class Steps:
    """One size after another. Results are plain records, for JSON."""

    def __init__(self, patience: Patience) -> None:
        self.patience = patience
        self.results: list[dict[str, Any]] = []
        self._slow: dict[str, str] = {}

    def measure(self, resolution: int, peers: list[Peer]) -> None:
        at = start(resolution)
        print(f"\nA step at N = {resolution}, ms: the peer, Zephane, their ratio", flush=True)
        us = ours()
        with us.start() as zephane:
            self._adaptive(at, zephane)
            for peer in peers:
                try:
                    self._compare(at, zephane, peer)
                except PeerFailed as failure:
                    self._note(peer, resolution, str(failure), isinstance(failure, OtherFlow))

    @property
    def other_flows(self) -> list[str]:
        return [f"{r['peer']} at {r['resolution']}" for r in self.results if r.get("other_flow")]

    def _adaptive(self, at: Start, zephane: Contestant) -> None:
        """The library against itself: the step chosen anew each time, or fixed."""
        zephane.make(at.problem(COURANT * at.courant_step))
        adaptive = ours()
        with adaptive.start() as other:
            other.make(at.problem(0.0, cfl=COURANT))
            self._fight(at, zephane, "Zephane, adaptive", "Zephane", other, None)

    def _compare(self, at: Start, zephane: Contestant, peer: Peer) -> None:
        if peer.name in self._slow:
            raise PeerFailed(self._slow[peer.name])
        dt = COURANT * at.courant_step
        if peer.scheme == "own":
            dt *= SHORT
        with peer.start() as contestant:
            contestant.make(at.problem(dt, **peer.options))
            apart = None
            if peer.scheme != "bare":
                apart = agreement(at, dt, zephane, contestant)
                if apart > LARGEST_DIFFERENCE[peer.scheme]:
                    raise OtherFlow(f"computes another flow: difference {apart:.1e}")
            zephane.make(at.problem(COURANT * at.courant_step))
            seconds = self._fight(at, zephane, peer.name, peer.group, contestant, apart)
        if 4.5 * seconds > self.patience.longest_step:
            self._slow[peer.name] = f"too slow: {seconds:.1f} s a step at N = {at.resolution}"

    def _fight(
        self,
        at: Start,
        zephane: Contestant,
        name: str,
        group: str,
        contestant: Contestant,
        apart: float | None,
    ) -> float:
        rounds = duel(zephane, contestant, self.patience)
        mine, theirs = fastest(rounds)
        self.results.append(
            {
                "peer": name,
                "group": group,
                "resolution": at.resolution,
                "seconds": theirs,
                "zephane_seconds": mine,
                "difference": apart,
                "rounds": rounds,
            }
        )
        agrees = "" if apart is None else f"   difference {apart:.1e}"
        ratio = theirs / mine
        print(
            f"  {name:22s} {1e3 * theirs:9.2f} {1e3 * mine:9.2f} {ratio:7.2f}{agrees}", flush=True
        )
        return theirs

    def _note(self, peer: Peer, resolution: int, why: str, other_flow: bool) -> None:
        print(f"  {peer.name:22s} {why}", file=sys.stderr if other_flow else sys.stdout, flush=True)
        record = {"peer": peer.name, "group": peer.group, "resolution": resolution, "failure": why}
        self.results.append(record | ({"other_flow": True} if other_flow else {}))


def agreement(at: Start, dt: float, zephane: Contestant, peer: Contestant) -> float:
    """How far the two are apart after a few steps, relative to the vorticity."""
    zephane.make(at.problem(dt))
    zephane.take(STEPS_TO_AGREE)
    peer.take(STEPS_TO_AGREE)
    theirs = peer.coefficients()
    if not np.isfinite(theirs).all():
        return float("inf")
    return difference(zephane.coefficients(), theirs)
