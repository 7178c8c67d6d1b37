"""The model's integrators against exact solutions and their orders, without the library."""

import functools
from math import exp, factorial

import numpy as np
import pytest

from flow64.integrators import INTEGRATORS, STEPS, phi_functions
from flow64.measures import difference, energy, enstrophy
from flow64.stepping import Flow
from flows import observed_orders, shell_field, smooth_field


@pytest.mark.parametrize("z", (0.0, -1e-9, -1e-3, -0.5, -1.0, -1.5, -8.0, 0.7))
def test_phi_functions_have_the_values_of_their_series(z):
    for order, phi in enumerate(phi_functions(np.array([z])), 1):
        series = sum(z**n / factorial(n + order) for n in range(80))
        assert phi[0] == pytest.approx(series, rel=1e-13)


@pytest.mark.parametrize("z", (-20.0, -100.0, -700.0))
def test_phi_functions_have_the_values_of_their_closed_forms(z):
    phi1 = (exp(z) - 1) / z
    phi2 = (phi1 - 1) / z
    phi3 = (phi2 - 0.5) / z
    assert [p[0] for p in phi_functions(np.array([z]))] == pytest.approx([phi1, phi2, phi3])


@pytest.mark.parametrize("integrator", ("ifHeunRK3", "etdrk4"))
@pytest.mark.parametrize("dt", (0.01, 1.0, 30.0))
def test_damping_alone_is_exact_where_it_is_exponential(integrator, dt):
    w = STEPS[integrator](np.array([3.0]), dt, np.array([2.5]), lambda w: 0 * w)
    assert w[0] == pytest.approx(3 * exp(-2.5 * dt), rel=1e-13, abs=1e-13)


@pytest.mark.parametrize("integrator, order", (("imexRK3", 3), ("ifHeunRK3", 3), ("etdrk4", 4)))
def test_an_undamped_nonlinear_equation_converges_at_the_order_of_the_scheme(integrator, order):
    # w' = -w^2, w(0) = 1: w(1) = 1/2.
    orders = observed_orders([_scalar_error(integrator, n, 0.0) for n in (20, 40, 80)])
    assert orders == pytest.approx([order] * 2, abs=0.15)


@pytest.mark.parametrize("integrator, order", (("imexRK3", 2), ("ifHeunRK3", 3), ("etdrk4", 4)))
def test_a_damped_nonlinear_equation_converges_at_the_order_of_the_scheme(integrator, order):
    # w' = -w^2 - w, w(0) = 1: w(t) = 1/(2 exp(t) - 1).
    orders = observed_orders([_scalar_error(integrator, n, 1.0) for n in (40, 80, 160)])
    assert orders[-1] == pytest.approx(order, abs=0.15)


def _scalar_error(integrator, steps, damping):
    w, dt = np.array([1.0]), 1 / steps
    for _ in range(steps):
        w = STEPS[integrator](w, dt, np.array([damping]), lambda w: -w * w)
    return abs(w[0] - (1 / (2 * exp(1) - 1) if damping else 0.5))


@functools.cache
def _flow_at_half(reynolds, operator, scheme, dt):
    config = dict(fixed_dt=dt, integrator=scheme, operator=operator)
    flow = Flow(16, reynolds, samples=smooth_field(16, largest=3, speed=0.5), **config)
    return flow.advance(round(0.5 / dt)).vorticity


@pytest.mark.parametrize("reynolds", (40.0, 1e30))
@pytest.mark.parametrize("operator", ("stress", "advective"))
@pytest.mark.parametrize("integrator", INTEGRATORS)
def test_a_flow_converges_at_the_order_of_its_scheme(integrator, operator, reynolds):
    # The step is a power of two, so that single precision holds it.
    exact = _flow_at_half(reynolds, operator, "etdrk4", 2.0**-9)
    errors = [
        difference(_flow_at_half(reynolds, operator, integrator, 2.0**-n), exact) for n in (6, 7)
    ]
    # Crank-Nicolson makes the first scheme second order where viscosity matters.
    order = {"imexRK3": 2 if reynolds < 1e3 else 3, "ifHeunRK3": 3, "etdrk4": 4}[integrator]
    assert observed_orders(errors)[-1] == pytest.approx(order, abs=0.25)


@pytest.mark.parametrize("integrator", ("ifHeunRK3", "etdrk4"))
def test_a_single_shell_decays_as_the_heat_equation(integrator):
    flow = Flow(32, 50, integrator=integrator, samples=shell_field(32, 65))
    start = flow.vorticity
    flow.advance(200, until=1.0)
    assert difference(flow.vorticity, start * exp(-65 * flow.viscosity)) < 1e-12


@pytest.mark.parametrize("integrator", INTEGRATORS)
def test_energy_and_enstrophy_are_conserved_to_the_error_of_the_step(integrator):
    def losses(dt):
        flow = Flow(24, 1e30, k0=6, fixed_dt=dt, integrator=integrator)
        before = energy(flow.grid, flow.vorticity), enstrophy(flow.grid, flow.vorticity)
        flow.advance(round(0.25 / dt))
        after = energy(flow.grid, flow.vorticity), enstrophy(flow.grid, flow.vorticity)
        return [abs(b / a - 1) for a, b in zip(before, after)]

    coarse, fine = losses(2.0**-6), losses(2.0**-7)
    assert max(fine) < 1e-4
    # The error in a quadratic invariant falls at least as fast as the scheme's.
    for c, f in zip(coarse, fine):
        assert f < c / 7
