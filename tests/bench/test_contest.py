"""The comparison with peers notices a wrong peer and survives a broken one."""

from __future__ import annotations

import dataclasses
import sys
import time
from collections.abc import Callable, Iterator
from pathlib import Path

import pytest

np = pytest.importorskip("numpy")

PEERS = Path(__file__).resolve().parents[2] / "bench" / "peers"
sys.path.insert(0, str(PEERS))

import precision  # noqa: E402
import starts  # noqa: E402
import steps  # noqa: E402
import tables  # noqa: E402
from contest import Contestant, PeerFailed, Turn  # noqa: E402
from problem import Problem, difference, from_grid, half_spectrum, on_grid  # noqa: E402

N = 32
DT = 0.05


@pytest.fixture
def start(tmp_path: Path) -> starts.Start:
    kx = np.arange(N // 2)[None, :]
    ky = np.rint(np.fft.fftfreq(N) * N)[:, None]
    noise = np.random.default_rng(1).standard_normal((2, N, N // 2))
    field = (noise[0] + 1j * noise[1]) * np.exp(-(kx**2 + ky**2) / 16)
    field[0, 0] = field[N // 2] = 0
    np.save(tmp_path / "start.npy", from_grid(on_grid(field, N), N))
    return starts.Start(N, 500.0, tmp_path / "start.npy", DT)


@pytest.fixture
def begin(
    tmp_path: Path, monkeypatch: pytest.MonkeyPatch
) -> Iterator[Callable[[str, str], Contestant]]:
    """Starts a contestant whose module has this text."""
    monkeypatch.setenv("PYTHONPATH", str(tmp_path))
    begun = []

    def begin_one(name: str, text: str) -> Contestant:
        (tmp_path / f"{name}.py").write_text(text)
        begun.append(Contestant(f"test {name}", Path(sys.executable), name))
        return begun[-1]

    yield begin_one
    for contestant in begun:
        contestant.close()


NUMPY = """
import dataclasses, array_flow
def make(problem):
    return array_flow.make(dataclasses.replace(problem, options={"library": "NumPy"}))
"""
# Its vorticity goes against the flow: the field of the mirrored problem.
MIRRORED = """
import numpy as np, right
from problem import from_grid, on_grid
def turned(field):
    return from_grid(on_grid(field, len(field)).T, len(field))
def make(problem):
    np.save(problem.start + ".turned.npy", turned(problem.coefficients()))
    flow = right.make(right.dataclasses.replace(problem, start=problem.start + ".turned.npy"))
    inner = flow.coefficients
    flow.coefficients = lambda: turned(inner())
    return flow
"""


def test_a_peer_that_computes_another_flow_is_noticed(
    begin: Callable[[str, str], Contestant], start: starts.Start
) -> None:
    right, wrong = begin("right", NUMPY), begin("wrong", MIRRORED)
    for dt, limit in ((DT, "same"), (DT * steps.SHORT, "own")):
        wrong.make(start.problem(dt))
        assert steps.agreement(start, dt, right, wrong) > 3 * steps.LARGEST_DIFFERENCE[limit]
    # A viscosity that is off by a few percent shows where the scheme is the same.
    wrong = begin("thicker", NUMPY)
    wrong.make(dataclasses.replace(start.problem(DT), viscosity=1.03 / start.reynolds))
    assert steps.agreement(start, DT, right, wrong) > steps.LARGEST_DIFFERENCE["same"]
    same = begin("same", NUMPY)
    same.make(start.problem(DT))
    assert steps.agreement(start, DT, right, same) == 0.0


def test_a_peer_that_hangs_or_dies_or_raises_is_reported(
    begin: Callable[[str, str], Contestant], start: starts.Start
) -> None:
    text = """
import os, time
class Flow:
    def take(self, steps):
        print("chatter", flush=True)
        if steps == 1: raise ArithmeticError("too hot")
        if steps == 2: time.sleep(60)
        if steps == 3: os._exit(0)
def make(problem):
    return Flow()
"""
    peer = begin("fragile", text)
    peer.make(start.problem(DT))
    assert peer.take(4).steps == 4
    with pytest.raises(PeerFailed, match="ArithmeticError: too hot"):
        peer.take(1)
    began = time.monotonic()
    with pytest.raises(PeerFailed, match="longer than 1 s"):
        peer.take(2, limit=1.0)
    peer.close()
    assert time.monotonic() - began < 30
    dying = begin("dying", text)
    dying.make(start.problem(DT))
    with pytest.raises(PeerFailed, match="has ended"):
        dying.take(3)


@pytest.mark.parametrize("points", [N, 3 * N // 2, 2 * N])
def test_a_field_comes_back_from_any_grid(start: starts.Start, points: int) -> None:
    field = np.load(start.path)
    assert difference(field, from_grid(on_grid(field, points), N)) < 1e-14
    assert half_spectrum(field, points).shape == (points, points // 2 + 1)


def test_a_difference_counts_both_halves_of_the_spectrum() -> None:
    ours = np.array([[1.0, 1.0], [0.0, 0.0]])
    assert difference(ours, ours + [[0.0, 0.3], [0.0, 0.0]]) == pytest.approx(0.3 * (2 / 3) ** 0.5)
    assert difference(ours, np.full((2, 2), np.nan)) == np.inf


class Fourth:
    """A scheme of order 4 that is unstable with large steps, and takes a millisecond for each."""

    exact = np.ones((2, 1))

    def make(self, problem: Problem) -> None:
        self.courant = problem.dt / DT
        self.error = 1e-3 * (self.courant / 3) ** 4

    def take(self, count: int, limit: float = 0.0) -> Turn:
        if self.courant > 5:
            raise PeerFailed("blew up")
        return Turn(1e-3 * count, count)

    def coefficients(self) -> np.ndarray:
        return self.exact * (1 + self.error)


def test_work_against_precision_finds_the_longest_steps_that_are_good_enough(
    start: starts.Start,
) -> None:
    runs, why = precision.curve(Fourth(), start, Fourth.exact, {}, 60.0)  # type: ignore[arg-type]
    assert why == ""
    assert [run.steps for run in runs] == [5, 8, 10, 15]
    # Neither target is met by a run; the times are on the lines between two.
    rough, fine = (precision.seconds_to(runs, target) for target in precision.TARGETS)
    assert rough == pytest.approx(1e-3 * 20 / 3, rel=0.05)
    assert fine == pytest.approx(1e-3 * 20 / 3 * 10**0.25, rel=0.05)
    assert precision.seconds_to(runs[:1], 1e-4) is None


def test_tables_name_the_best_form_and_the_gains() -> None:
    def duel(peer: str, group: str, size: int, seconds: float) -> dict[str, object]:
        return {
            "peer": peer,
            "group": group,
            "resolution": size,
            "seconds": seconds,
            "zephane_seconds": 1e-3 * (size / 256) ** 2,
        }

    results = [
        duel("Zephane, adaptive", "Zephane", 256, 1.05e-3),
        duel("expert, FFTW fused", "expert", 256, 2e-3),
        duel("expert, MKL fused", "expert", 256, 3e-3),
        duel("bare FFTW", "bare", 256, 1e-3),
        duel("bare FFTW", "bare", 4096, 256e-3),
    ]
    assert "| ratio | 2.00 |\n| form | FFTW fused |" in tables.expert(results[:3])
    assert "| bare FFTW | 0.25 | 0.25 |" in tables.stage(results)
    gains = tables.gains({"steps": results, "threads": []})
    assert "mean from 256 to 4096 | 4.00 |" in gains
    assert "adaptive against fixed step, N = 256 | 1.050 |" in gains
