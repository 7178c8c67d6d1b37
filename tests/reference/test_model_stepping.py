"""The model's time-step rule, without the library."""

import numpy as np
import pytest

from flow64.stepping import Flow, chosen_step, split_time
from flows import smooth_field


def test_the_step_times_the_bound_times_the_highest_wavenumber_is_the_courant_number():
    assert chosen_step(2.5, 64, 3.0) * 2.5 * 32 == pytest.approx(3.0)


def test_a_step_grows_by_a_fifth_of_the_way_and_shrinks_at_once():
    assert chosen_step(1.0, 20, 1.0, before=0.01) == pytest.approx(2.8 * 0.01)
    assert chosen_step(1.0, 20, 1.0, before=0.5) == pytest.approx(0.1)


def test_a_flow_at_rest_takes_unit_steps_and_then_its_last_step():
    assert chosen_step(0.0, 20, 1.0) == 1.0
    assert chosen_step(0.0, 20, 1.0, before=0.25) == pytest.approx(0.25)


def test_a_step_cut_at_an_endpoint_does_not_limit_the_next():
    flow = Flow(16, 100, k0=2)
    whole = flow.advance(1).dt
    flow.advance(1, until=flow.time + whole / 10)
    assert flow.dt == pytest.approx(whole / 10)
    assert flow.advance(1).dt > 0.7 * whole


def test_a_flow_lands_on_its_endpoint():
    flow = Flow(16, 100, k0=2).advance(1000, until=0.7)
    assert flow.time == split_time(0.7)
    assert flow.time == pytest.approx(0.7, rel=2**-46)
    steps = flow.steps
    assert flow.advance(5, until=0.7).steps == steps


def test_doubling_the_vorticity_and_the_viscosity_halves_the_time():
    samples = smooth_field(16)
    slow = Flow(16, 64, samples=samples).advance(10)
    fast = Flow(16, 32, samples=2 * samples).advance(10)
    assert np.array_equal(fast.vorticity, 2 * slow.vorticity)
    assert fast.time == slow.time / 2
