"""The settings that suit each other: the Courant number follows the integrator."""

from __future__ import annotations

import warnings

import pytest

from zephane import suiting
from zephane.records import INTEGRATORS, Config


@pytest.mark.parametrize(
    "integrator, cfl", [("imexRK3", 1.5), ("ifHeunRK3", 1.5), ("etdrk4", Config().cfl)]
)
def test_each_integrator_has_a_courant_number_that_suits_it(integrator: str, cfl: float) -> None:
    assert suiting.suitable_cfl(integrator) == cfl


@pytest.mark.parametrize("resolution", [16, 128, 130, 256, 512, 1024, 16384])
@pytest.mark.parametrize("integrator", INTEGRATORS)
def test_a_number_that_suits_is_stable_on_every_grid(integrator: str, resolution: int) -> None:
    cfl = suiting.suitable_cfl(integrator)
    assert cfl <= suiting.largest_cfl(integrator, resolution)
    assert suiting.cfl_objection(integrator, resolution, cfl) is None


def test_the_limit_is_that_of_the_next_measured_grid() -> None:
    limits = [suiting.largest_cfl("imexRK3", n) for n in (64, 128, 130, 256, 512, 4096)]
    assert limits == [2.25, 2.25, 2.0, 2.0, 1.75, 1.75]


def test_a_number_beyond_stability_is_warned_of_in_a_sentence() -> None:
    with pytest.warns(suiting.ZephaneWarning) as caught:
        suiting.warn_of_cfl("ifHeunRK3", 256, 3.0)
    assert str(caught[0].message) == (
        "cfl 3 is beyond what ifHeunRK3 bears on a grid of 256 x 256: it is stable up to 2, and "
        "1.5 suits it. The flow may stay finite and be wrong."
    )
    with warnings.catch_warnings():
        warnings.simplefilter("error")
        suiting.warn_of_cfl("ifHeunRK3", 256, 2.0)
