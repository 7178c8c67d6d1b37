"""Symmetries of the equation hold for the library's flows."""

import numpy as np
import pytest

from flow64.equation import FORMS
from flow64.integrators import INTEGRATORS
from flow64.stepping import Flow
from flows import FLOAT32, smooth_field

POINTS = 32


def shifted(field):
    return np.roll(field, (6, -10), axis=(0, 1))


def turned(field):
    """The flow turned by a quarter about the origin: (x, y) goes to (-y, x)."""
    return np.roll(field.T[:, ::-1], 1, axis=1)


def mirrored(field):
    """The flow in a mirror along y; vorticity changes sign."""
    return -np.roll(field[:, ::-1], 1, axis=1)


def swapped(field):
    """The flow mirrored in the diagonal."""
    return -field.T


def half_turned(field):
    return np.roll(field[::-1, ::-1], 1, axis=(0, 1))


SYMMETRIES = (shifted, turned, mirrored, swapped, half_turned)


def run(engine, samples, **config):
    flow = engine(samples=samples, resolution=POINTS, reynolds=400.0, **config)
    report = flow.advance(30)
    return flow.fields()[0][0], report


@pytest.mark.parametrize("symmetry", SYMMETRIES)
@pytest.mark.parametrize("integrator", INTEGRATORS)
@pytest.mark.parametrize("operator", FORMS)
def test_a_symmetric_start_gives_the_symmetric_flow(engine, symmetry, integrator, operator):
    samples = smooth_field(POINTS, speed=0.5)
    config = dict(integrator=integrator, operator=operator, cfl=1.0)
    field, report = run(engine, samples, **config)
    image, image_report = run(engine, np.ascontiguousarray(symmetry(samples)), **config)
    scale = np.max(np.abs(field))
    assert np.max(np.abs(field - samples)) > 0.3 * scale
    assert np.max(np.abs(image - symmetry(field))) < 60 * FLOAT32 * scale
    assert image_report["simulation_time"] == pytest.approx(report["simulation_time"], rel=1e-6)


def test_a_shift_by_any_number_of_points_commutes_with_fixed_steps(engine):
    # The speed bound is read on the finer grid, which only a shift by two points maps to itself.
    samples = smooth_field(POINTS, speed=0.5)
    field, _ = run(engine, samples, fixed_dt=0.01)
    image, _ = run(engine, np.roll(samples, (1, 7), axis=(0, 1)), fixed_dt=0.01)
    difference = np.max(np.abs(image - np.roll(field, (1, 7), axis=(0, 1))))
    assert difference < 60 * FLOAT32 * np.max(np.abs(field))


@pytest.mark.parametrize("fixed_dt", (None, 2.0**-6))
@pytest.mark.parametrize("integrator", INTEGRATORS)
@pytest.mark.parametrize("operator", FORMS)
def test_doubled_vorticity_and_viscosity_give_the_same_bits_in_half_the_time(
    engine, integrator, operator, fixed_dt
):
    # All the operations commute with powers of two. The field is white: no sum gets so small that
    # it would be denormal.
    samples = np.random.default_rng(3).normal(0, 1, (POINTS, POINTS)).astype(np.float32)
    config = dict(resolution=POINTS, integrator=integrator, operator=operator)
    slow = engine(samples=samples, reynolds=100.0, fixed_dt=fixed_dt, **config)
    halved = None if fixed_dt is None else fixed_dt / 2
    fast = engine(samples=2 * samples, reynolds=50.0, fixed_dt=halved, **config)
    assert fast.inspect()["energy"] == 4 * slow.inspect()["energy"]
    slow_report, fast_report = slow.advance(25), fast.advance(25)
    assert fast_report["simulation_time"] == slow_report["simulation_time"] / 2
    assert np.array_equal(fast.raw_spectrum(), 2 * slow.raw_spectrum())


def test_the_model_has_the_same_symmetries():
    samples = smooth_field(POINTS, speed=0.5).astype(float)
    flow = Flow(POINTS, 400, samples=samples).advance(5)
    field = flow.grid.to_field(flow.vorticity)
    for symmetry in SYMMETRIES:
        image = Flow(POINTS, 400, samples=symmetry(samples)).advance(5)
        assert np.allclose(image.grid.to_field(image.vorticity), symmetry(field), atol=1e-11)
