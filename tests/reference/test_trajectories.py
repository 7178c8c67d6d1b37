"""Whole flows of the library against the model's, mode by mode."""

import itertools

import numpy as np
import pytest

from flow64 import measures
from flow64.equation import FORMS
from flow64.integrators import INTEGRATORS
from flow64.stepping import Flow
from flows import FLOAT32, smooth_field

# Each stage adds rounding of about a unit in the last place. It adds up like a random walk and is
# stretched by the flow, for which the runs last about one turnover: at most 12 units were observed.
TOLERANCE = 40 * FLOAT32
# A mean square over thousands of modes averages most of that out: 3 units were observed.
MEAN_TOLERANCE = 10 * FLOAT32

GRIDS = {16: 2, 18: 2, 50: 4, 64: 4}
# The start and the choice of the step are independent, so they vary together.
STARTS = (("PAO", None), ("KM3", 2.0**-6))


def compare(flow, model, tolerance=TOLERANCE):
    """Every figure and every shell of a flow against the model."""
    report, grid, expected = flow.inspect(), model.grid, model.vorticity
    vorticity = flow.vorticity()
    assert report["steps"] == model.steps
    assert report["simulation_time"] == pytest.approx(model.time, rel=4 * FLOAT32)
    # A step that lands on an endpoint holds the errors of all the steps before it.
    assert report["dt"] == pytest.approx(model.dt, rel=tolerance, abs=4 * FLOAT32 * model.time)
    assert measures.difference(vorticity, expected) < tolerance
    assert np.all(vorticity[~grid.active] == 0)
    for name in ("energy", "enstrophy", "palinstrophy", "palinstrophy_ratio"):
        figure = getattr(measures, name)(grid, expected)
        assert report[name] == pytest.approx(figure, rel=MEAN_TOLERANCE)
    found, shells = (np.sqrt(measures.shell_energies(grid, w)) for w in (vorticity, expected))
    assert found == pytest.approx(shells, rel=tolerance, abs=FLOAT32 * shells.max())


def pair(engine, **config):
    return engine(**config), Flow(**config)


@pytest.mark.parametrize("points", GRIDS)
@pytest.mark.parametrize("integrator", INTEGRATORS)
@pytest.mark.parametrize("operator", FORMS)
@pytest.mark.parametrize("start, fixed_dt", STARTS)
def test_a_flow_matches_the_model(engine, points, integrator, operator, start, fixed_dt):
    flow, model = pair(
        engine,
        resolution=points,
        reynolds=150.0,
        k0=GRIDS[points],
        cfl=1.0,
        fixed_dt=fixed_dt,
        integrator=integrator,
        operator=operator,
        start_spectrum=start,
    )
    flow.advance(2000, until=1.0)
    compare(flow, model.advance(2000, until=1.0))


@pytest.mark.parametrize("operator", FORMS)
def test_the_schemes_differ_by_far_more_than_the_tolerance(operator):
    # Otherwise the comparison could not tell one scheme from another.
    ends = [
        Flow(32, 150, k0=3, cfl=1.0, integrator=name, operator=operator).advance(2000, until=1.0)
        for name in INTEGRATORS
    ]
    for one, other in itertools.combinations(ends, 2):
        assert measures.difference(one.vorticity, other.vorticity) > 3 * TOLERANCE


@pytest.mark.parametrize(
    "operator, points",
    [
        *(("stress", points) for points in (20, 22, 26, 28, 34, 38, 42, 46, 62, 74, 94, 118, 122, 134)),
        *(("advective", points) for points in (22, 28, 134)),
    ],
)
def test_every_kind_of_grid_size_gives_the_same_physics(engine, points, operator):
    # Products are sampled on 3N/2 points: factors 2, 3, 5, 7, 11, 13 and so on to 61 and 67.
    samples = smooth_field(points, largest=points // 3)
    config = dict(resolution=points, reynolds=800.0, cfl=0.8, operator=operator)
    flow = engine(samples=samples, **config)
    model = Flow(samples=samples, **config).advance(6)
    flow.advance(6)
    compare(flow, model, tolerance=15 * FLOAT32)


@pytest.mark.parametrize("integrator", INTEGRATORS)
@pytest.mark.parametrize("reynolds", (3.0, 0.1, 1e-3))
def test_a_strongly_damped_flow_matches_the_model(engine, integrator, reynolds):
    # The damping of the highest modes in a step is 3, 90 and 9000: to where exponentials vanish.
    flow, model = pair(
        engine, resolution=32, reynolds=reynolds, fixed_dt=0.02, integrator=integrator
    )
    flow.advance(5)
    model.advance(5)
    grid = model.grid
    # Modes that viscosity removes leave rounding errors of their former size.
    start = Flow(32, 1.0).vorticity
    scale = np.sqrt(measures.enstrophy(grid, start))
    error = np.sqrt(measures.enstrophy(grid, flow.vorticity() - model.vorticity))
    assert error < 12 * FLOAT32 * scale


@pytest.mark.parametrize("integrator", INTEGRATORS)
def test_zero_and_the_smallest_viscosity_give_the_inviscid_flow(engine, integrator):
    flow, model = pair(
        engine, resolution=32, k0=3, reynolds=1e300, cfl=0.5, integrator=integrator
    )
    flow.advance(40)
    compare(flow, model.advance(40))


@pytest.mark.parametrize("integrator", INTEGRATORS)
@pytest.mark.parametrize("operator", FORMS)
def test_changes_of_reynolds_and_courant_number_take_effect_at_the_next_step(
    engine, integrator, operator
):
    flow, model = pair(
        engine, resolution=32, k0=3, reynolds=100.0, integrator=integrator, operator=operator
    )
    for change in ({}, {"reynolds": 15.0}, {"cfl": 0.5}, {"reynolds": 1000.0, "cfl": 2.0}, {}):
        flow.set(**change)
        model.set(**change)
        for _ in range(2):
            flow.advance()
            compare(flow, model.advance())


def test_stress_and_advective_give_the_same_flow(engine):
    config = dict(resolution=64, k0=4, reynolds=500.0, cfl=1.0)
    ends = []
    for operator in FORMS:
        flow = engine(operator=operator, **config)
        flow.advance(1000, until=1.5)
        ends.append(flow.vorticity())
    assert measures.difference(*ends) < TOLERANCE
