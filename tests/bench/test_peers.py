"""The benchmark's peers compute the flow that they are compared with."""

from __future__ import annotations

import sys
from pathlib import Path

import pytest

np = pytest.importorskip("numpy")

PEERS = Path(__file__).resolve().parents[2] / "bench" / "peers"
sys.path.insert(0, str(PEERS))

import backends  # noqa: E402
import compare  # noqa: E402
import flow  # noqa: E402

import zephane  # noqa: E402

DT = 0.02
STEPS = 8


def peer(config: zephane.Config, start: np.ndarray, viscosity: float) -> flow.Flow:
    found = flow.Flow(backends.NumPy(), start, viscosity, DT)
    for _ in range(STEPS):
        found.step()
    return found


@pytest.mark.parametrize("resolution", [16, 50, 64])
def test_a_peer_computes_the_same_flow(library_path: Path, resolution: int) -> None:
    config = zephane.Config(resolution=resolution, reynolds=500.0)
    with zephane.Engine(config, fixed_dt=DT, library=library_path) as engine:
        start = engine.spectrum()
        theirs = peer(config, start, config.viscosity)
        other = peer(config, start, 1.1 * config.viscosity)
        engine.advance(STEPS)
        ours = engine.spectrum()
    assert compare.difference(ours, theirs.coefficients()) < 1e-5
    assert compare.difference(ours, other.coefficients()) > 1e-4


def test_a_flow_that_is_not_finite_differs() -> None:
    ours = np.ones((4, 4), np.complex64)
    assert compare.difference(ours, ours[:, :2]) == 0.0
    assert compare.difference(ours, np.full((4, 2), np.nan, np.complex64)) == np.inf


@pytest.mark.parametrize("k", [1, 2, 3])
def test_phi_functions_meet_their_recurrence(k: int) -> None:
    z = -np.logspace(-6, 2, 200)
    before = np.exp(z) if k == 1 else flow.phi(k - 1, z)
    quotient = 1.0 / [1.0, 1.0, 2.0][k - 1]
    assert np.allclose(z * flow.phi(k, z) + quotient, before, rtol=0, atol=4e-16)
    assert flow.phi(k, np.zeros(1))[0] == pytest.approx(1.0 / [1, 2, 6][k - 1])
