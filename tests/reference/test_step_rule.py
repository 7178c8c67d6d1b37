"""The library's choice of step and its clock."""

import math

import numpy as np
import pytest

from flow64.equation import speed_bound
from flow64.grid import Grid
from flow64.stepping import chosen_step
from flows import FLOAT32, smooth_field


@pytest.mark.parametrize("points", (16, 18, 50))
@pytest.mark.parametrize("operator", ("stress", "advective"))
def test_each_step_follows_from_the_field_and_the_step_before(engine, points, operator):
    grid = Grid(points)
    flow = engine(resolution=points, k0=2, reynolds=300.0, cfl=1.5, operator=operator)
    before = flow.inspect()["dt"]
    cfl = 1.5
    assert before == pytest.approx(chosen_step(speed_bound(grid, flow.vorticity()), points, cfl))
    for number in range(30):
        if number == 10:
            # Growth is held back for some steps, and shrinking is not.
            cfl = 4.5
            flow.set(cfl=cfl)
        if number == 20:
            cfl = 0.5
            flow.set(cfl=cfl)
        bound = speed_bound(grid, flow.vorticity())
        dt = flow.advance()["dt"]
        assert dt == pytest.approx(chosen_step(bound, points, cfl, before), rel=16 * FLOAT32)
        before = dt


def test_a_fixed_step_is_kept_whatever_the_flow(engine):
    flow = engine(resolution=32, fixed_dt=0.0123, cfl=0.001)
    steps = {flow.advance(7)["dt"] for _ in range(4)}
    assert steps == {float(np.float32(0.0123))}
    flow.set(cfl=1.0, reynolds=10.0)
    assert flow.advance()["dt"] == float(np.float32(0.0123))


def test_a_step_cut_at_an_endpoint_does_not_limit_the_next(engine):
    grid = Grid(32)
    flow = engine(resolution=32, k0=3, reynolds=300.0)
    whole = flow.advance(3)
    cut = flow.advance(5, until=whole["simulation_time"] + whole["dt"] / 16)
    assert cut["dt"] == pytest.approx(whole["dt"] / 16, rel=1e-5)
    # The limiter remembers the step before it was cut.
    bound = speed_bound(grid, flow.vorticity())
    assert flow.advance()["dt"] == pytest.approx(chosen_step(bound, 32, 3.0, whole["dt"]), rel=0.05)
    assert flow.inspect()["dt"] > 0.9 * whole["dt"]


def test_many_small_steps_add_up_without_loss(engine):
    # In single precision each sum would be off by up to a thousandth of the step.
    flow = engine(samples=np.zeros((16, 16)), resolution=16, fixed_dt=1.1e-4)
    report = flow.advance(5000)
    exact = 5000 * float(np.float32(1.1e-4))
    assert report["simulation_time"] == pytest.approx(exact, rel=5000 * 2.0**-48)


def test_simulated_time_is_the_sum_of_the_steps(engine):
    flow = engine(resolution=16, k0=2, reynolds=300.0)
    steps = []
    for _ in range(200):
        report = flow.advance()
        steps.append(report["dt"])
    assert report["simulation_time"] == pytest.approx(math.fsum(steps), rel=200 * 2.0**-48)


def test_a_flow_at_rest_keeps_its_step(engine):
    flow = engine(samples=np.zeros((16, 16)), resolution=16)
    assert flow.advance(10)["simulation_time"] == 10.0
    flow.reset(smooth_field(16, largest=2))
    moving = flow.inspect()["dt"]
    assert 0 < moving < 1
    assert flow.reset(np.zeros((16, 16)))["dt"] == 1.0
