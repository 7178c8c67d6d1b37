"""Conserved quantities of the library's flows, and the decay rates of the others."""

import numpy as np
import pytest

from flow64.equation import FORMS
from flow64.integrators import INTEGRATORS
from flow64.measures import difference


@pytest.mark.parametrize("integrator", INTEGRATORS)
@pytest.mark.parametrize("operator", FORMS)
@pytest.mark.parametrize("points", (32, 34))
def test_without_viscosity_energy_and_enstrophy_are_conserved(engine, points, integrator, operator):
    # The start fills every mode kept, so that any product folded back would show.
    flow = engine(
        resolution=points,
        k0=points,
        reynolds=1e300,
        fixed_dt=2.0**-8,
        integrator=integrator,
        operator=operator,
    )
    before, start = flow.inspect(), flow.vorticity()
    flow.advance(64)
    after = flow.inspect()
    assert after["energy"] == pytest.approx(before["energy"], rel=1e-6)
    assert after["enstrophy"] == pytest.approx(before["enstrophy"], rel=1e-6)
    assert difference(flow.vorticity(), start) > 0.1


@pytest.mark.parametrize("integrator", INTEGRATORS)
@pytest.mark.parametrize("operator", FORMS)
def test_energy_decays_by_enstrophy_and_enstrophy_by_palinstrophy(engine, integrator, operator):
    # dE/dt = -2 nu Z and dZ/dt = -2 nu P, integrated over the run by Simpson's rule.
    dt, reynolds, steps = 2.0**-7, 60.0, 128
    flow = engine(
        resolution=48,
        k0=4,
        reynolds=reynolds,
        fixed_dt=dt,
        integrator=integrator,
        operator=operator,
    )
    reports = [flow.inspect()]
    for _ in range(steps):
        flow.advance()
        reports.append(flow.inspect())
    weights = dt / 3 * np.array([1] + [4, 2] * (steps // 2 - 1) + [4, 1])
    viscosity = float(np.float32(1 / reynolds))
    for kept, rate in (("energy", "enstrophy"), ("enstrophy", "palinstrophy")):
        lost = reports[0][kept] - reports[-1][kept]
        assert lost > 0.2 * reports[0][kept]
        expected = 2 * viscosity * np.dot(weights, [report[rate] for report in reports])
        assert lost == pytest.approx(expected, rel=3e-5)


def test_enstrophy_never_grows_and_the_mean_vorticity_stays_zero(engine):
    flow = engine(resolution=64, k0=6, reynolds=1000.0)
    last = flow.inspect()
    for _ in range(20):
        flow.advance(5)
        report = flow.inspect()
        assert report["enstrophy"] < last["enstrophy"]
        assert report["energy"] < last["energy"]
        last = report
    assert flow.raw_spectrum()[0, 0] == 0
