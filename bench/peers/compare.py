"""Zephane beside its peers: steps per second of the same flow, after seeing that it is the same.

    python3 bench/peers/compare.py [--resolution 256 1024 ...] [--peers SciPy pyFFTW ...]

The library chooses its device as always (ZEPHANE_DEVICE names another); on a GPU the peers are CuPy
and PyTorch, on the processor NumPy, SciPy, pyFFTW and PyTorch, those of them that can be imported.
"""

from __future__ import annotations

import argparse
import statistics
import sys
import time
from collections.abc import Callable
from pathlib import Path
from typing import Any

import numpy as np

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "python"))

import zephane  # noqa: E402
from backends import ON_GPU, ON_PROCESSOR  # noqa: E402
from flow import Flow  # noqa: E402

K0 = 4
STEPS_TO_AGREE = 8
# Rounding, and its growth over a few steps; a flow that is another one is farther away.
LARGEST_DIFFERENCE = 1e-4
ROUND_SECONDS = 0.3

# Takes some steps and returns what they took, in seconds.
Contestant = Callable[[int], float]


def main() -> int:
    options = _options()
    system = zephane.initialize(options.library)
    print(f"{system.backend} on {system.gpu}")
    on_gpu = system.backend.startswith("CUDA")
    peers = _peers(ON_GPU if on_gpu else ON_PROCESSOR, options.peers, system.device_index)
    agreed = True
    for resolution in options.resolution:
        agreed &= _compare(resolution, peers, options.rounds)
    return 0 if agreed else 1


def _options() -> argparse.Namespace:
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    sizes = [256, 512, 1024, 2048, 4096, 8192]
    parser.add_argument("--resolution", type=int, nargs="+", default=sizes, metavar="N")
    parser.add_argument("--peers", nargs="+", help="only these, by name")
    parser.add_argument("--rounds", type=int, default=7, help="rounds of which the median counts")
    parser.add_argument("--library", help="the library's path, if it is not to be looked for")
    return parser.parse_args()


def _peers(known: dict[str, Any], wanted: list[str] | None, device: int) -> dict[str, Any]:
    found = {}
    for name, make in known.items():
        if wanted and name not in wanted:
            continue
        try:
            make(device)
        except Exception as failure:  # each library has failures of its own
            print(f"without {name}: {failure}")
        else:
            found[name] = lambda make=make: make(device)
    return found


def _compare(resolution: int, peers: dict[str, Any], rounds: int) -> bool:
    """Print the resolution's line for each; whether all peers computed the same flow."""
    reynolds = zephane.default_reynolds(resolution, K0)
    config = zephane.Config(resolution=resolution, k0=K0, reynolds=reynolds)
    with zephane.Engine(config) as engine:
        dt = engine.inspect().dt
    agreed = True
    print(f"\nN = {resolution}, fixed step {dt:.3g}")
    with zephane.Engine(config, fixed_dt=dt) as engine:
        for name, make in peers.items():
            start = engine.spectrum()
            flow = Flow(make(), start, config.viscosity, dt)
            engine.advance(STEPS_TO_AGREE)
            _take(flow, STEPS_TO_AGREE)
            apart = difference(engine.spectrum(), flow.coefficients())
            agreed &= apart <= LARGEST_DIFFERENCE
            _report(name, apart, _duel(_ours(engine), _theirs(flow), rounds))
            del flow
            engine.reset()
    return agreed


def difference(ours: np.ndarray, theirs: np.ndarray) -> float:
    """Root-mean-square difference over the root mean square; not a number counts as infinite."""
    half = ours[:, : theirs.shape[1]].astype(np.complex128)
    apart = float(np.linalg.norm(half - theirs) / np.linalg.norm(half))
    return apart if apart == apart else float("inf")


def _take(flow: Flow, steps: int) -> None:
    for _ in range(steps):
        flow.step()
    flow.backend.synchronize()


def _ours(engine: zephane.Engine) -> Contestant:
    return lambda steps: engine.advance(steps, fresh=False).gpu_milliseconds * 1e-3


def _theirs(flow: Flow) -> Contestant:
    def run(steps: int) -> float:
        began = time.perf_counter()
        _take(flow, steps)
        return time.perf_counter() - began

    return run


def _duel(ours: Contestant, theirs: Contestant, rounds: int) -> list[tuple[float, float]]:
    """Seconds per step of both, taken in turns."""
    lengths = []
    for contestant in (ours, theirs):
        contestant(1)
        lengths.append(max(1, min(int(ROUND_SECONDS / contestant(1)), 1000)))
    return [
        (ours(lengths[0]) / lengths[0], theirs(lengths[1]) / lengths[1]) for _ in range(rounds)
    ]


def _report(name: str, apart: float, seconds: list[tuple[float, float]]) -> None:
    ours = statistics.median(pair[0] for pair in seconds)
    theirs = statistics.median(pair[1] for pair in seconds)
    ratio = statistics.median(pair[1] / pair[0] for pair in seconds)
    verdict = "" if apart <= LARGEST_DIFFERENCE else "   ANOTHER FLOW"
    print(
        f"  Zephane {1 / ours:9.1f} steps/s   {name:8s} {1 / theirs:9.1f} steps/s   "
        f"ratio {ratio:5.2f}   difference {apart:.1e}{verdict}",
        flush=True,
    )


if __name__ == "__main__":
    sys.exit(main())
