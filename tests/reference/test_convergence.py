"""The library converges to the solution at the order of each of its schemes."""

import functools

import pytest

from flow64.equation import FORMS
from flow64.measures import difference
from flow64.stepping import Flow
from flows import observed_orders, smooth_field

POINTS = 24
SAMPLES = smooth_field(POINTS, largest=2, speed=2.0)


@functools.cache
def solution(reynolds):
    """The flow at time 1."""
    return Flow(POINTS, reynolds, fixed_dt=2.0**-9, samples=SAMPLES).advance(512).vorticity


# Crank-Nicolson makes imexRK3 second order where viscosity matters.
CASES = (
    ("imexRK3", 1e300, 3, 32),
    ("imexRK3", 2.0, 2, 16),
    ("ifHeunRK3", 1e300, 3, 32),
    ("ifHeunRK3", 30.0, 3, 32),
    ("etdrk4", 1e300, 4, 16),
    ("etdrk4", 30.0, 4, 16),
)


@pytest.mark.parametrize("integrator, reynolds, order, steps", CASES)
@pytest.mark.parametrize("operator", FORMS)
def test_halving_the_step_divides_the_error(engine, integrator, reynolds, order, steps, operator):
    errors = []
    for count in (steps, 2 * steps):
        flow = engine(
            samples=SAMPLES,
            resolution=POINTS,
            reynolds=reynolds,
            fixed_dt=1 / count,
            integrator=integrator,
            operator=operator,
        )
        flow.advance(count)
        errors.append(difference(flow.vorticity(), solution(reynolds)))
    # The floor of single precision is near 1e-6.
    assert errors[-1] > 3e-6
    assert observed_orders(errors)[-1] == pytest.approx(order, abs=0.3)
