"""The library against solutions of the equation in closed form."""

import numpy as np
import pytest

from flow64.equation import FORMS
from flow64.grid import Grid
from flow64.integrators import INTEGRATORS
from flow64.measures import difference
from flows import FLOAT32, shear_field, shell_field

EXPONENTIAL = ("ifHeunRK3", "etdrk4")


def decay(grid, integrator, viscosity, dt, steps):
    """The factor of each mode after `steps` steps if the nonlinear term vanishes."""
    if integrator in EXPONENTIAL:
        return np.exp(-viscosity * grid.k2 * dt * steps)
    # Crank-Nicolson over the three stages, of 8/15, 2/15 and 1/3 of a step.
    factor = 1.0
    for length in (8 / 15, 2 / 15, 1 / 3):
        half = 0.5 * viscosity * grid.k2 * dt * length
        factor = factor * (1 - half) / (1 + half)
    return factor**steps


@pytest.mark.parametrize("integrator", INTEGRATORS)
@pytest.mark.parametrize("operator", FORMS)
@pytest.mark.parametrize("squared", (25, 50, 65))
def test_a_single_shell_decays_as_the_heat_equation(engine, integrator, operator, squared):
    grid, dt, reynolds = Grid(32), 2.0**-7, 100.0
    samples = shell_field(32, squared)
    flow = engine(
        samples=samples,
        resolution=32,
        reynolds=reynolds,
        fixed_dt=dt,
        integrator=integrator,
        operator=operator,
    )
    flow.advance(128)
    viscosity = float(np.float32(1 / reynolds))
    start = grid.to_spectrum(samples.astype(np.float32).astype(float))
    expected = start * decay(grid, integrator, viscosity, dt, 128)
    assert difference(flow.vorticity(), expected) < 10 * FLOAT32
    # The scheme's own error is small too: the flow is the exact one.
    assert difference(flow.vorticity(), start * np.exp(-squared * viscosity)) < 20 * FLOAT32


@pytest.mark.parametrize("integrator", INTEGRATORS)
@pytest.mark.parametrize("operator", FORMS)
@pytest.mark.parametrize("direction", ((0, 1), (1, 0), (1, -2)))
def test_each_mode_of_a_parallel_flow_decays_alone(engine, integrator, operator, direction):
    grid, dt, reynolds = Grid(32), 2.0**-7, 60.0
    samples = shear_field(32, direction, (1, 2, 3, 5))
    flow = engine(
        samples=samples,
        resolution=32,
        reynolds=reynolds,
        fixed_dt=dt,
        integrator=integrator,
        operator=operator,
    )
    flow.advance(64)
    viscosity = float(np.float32(1 / reynolds))
    start = grid.to_spectrum(samples.astype(np.float32).astype(float))
    expected = start * decay(grid, integrator, viscosity, dt, 64)
    assert difference(flow.vorticity(), expected) < 10 * FLOAT32


@pytest.mark.parametrize("integrator", EXPONENTIAL)
@pytest.mark.parametrize("dt", (0.03125, 0.5, 4.0))
def test_exponential_damping_is_exact_for_a_step_of_any_length(engine, integrator, dt):
    # From terms of the series to closed forms: the damping of the step is 0.05, 0.8 and 6.5.
    grid = Grid(24)
    samples = shell_field(24, 65)
    flow = engine(samples=samples, resolution=24, reynolds=40.0, fixed_dt=dt, integrator=integrator)
    flow.advance(1)
    start = grid.to_spectrum(samples.astype(np.float32).astype(float))
    expected = start * np.exp(-65 * float(np.float32(1 / 40)) * dt)
    error = np.linalg.norm(flow.vorticity() - expected) / np.linalg.norm(start)
    assert error < 8 * FLOAT32


@pytest.mark.parametrize("integrator", INTEGRATORS)
def test_damping_of_less_than_a_rounding_unit_in_a_step_is_not_lost(engine, integrator):
    # Each step takes 2e-7 of the field, three units in the last place. Summed plainly, the loss of
    # a component would be off by up to a quarter.
    steps, dt = 5000, 2.0**-13
    reynolds = 2 * dt / 2e-7
    samples = shell_field(16, 2)
    config = dict(resolution=16, reynolds=reynolds, fixed_dt=dt, integrator=integrator)
    flow = engine(samples=samples, **config)
    start = flow.vorticity()
    flow.advance(steps)
    loss = -np.expm1(-2 * float(np.float32(1 / reynolds)) * dt * steps)
    modes = np.abs(start) > 0.1
    assert modes.sum() >= 2
    lost = 1 - (flow.vorticity()[modes] / start[modes])
    assert lost.real == pytest.approx(loss, rel=2e-4)
    assert np.abs(lost.imag) == pytest.approx(0, abs=2e-4 * loss)
