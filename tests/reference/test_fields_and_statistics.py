"""Fields, spectra and reports of the library describe the same flow."""

import numpy as np
import pytest

from flow64 import measures
from flow64.equation import FORMS, velocity
from flow64.grid import Grid

SIZES = (16, 18, 46, 64, 128)


@pytest.fixture(params=SIZES)
def flow(engine, request):
    made = engine(resolution=request.param, k0=3, reynolds=500.0)
    made.advance(10)
    made.inspect()
    return made


def mirrored(spectrum):
    opposite = -np.arange(len(spectrum)) % len(spectrum)
    return np.conj(spectrum[np.ix_(opposite, opposite)])


def test_the_exported_spectrum_is_hermitian_and_truncated(flow):
    spectrum = flow.raw_spectrum()
    points = flow.points
    # The column kx = 0 holds both modes of each pair as they are, each with its own rounding.
    assert np.array_equal(spectrum[:, 1:], mirrored(spectrum)[:, 1:])
    assert np.linalg.norm(spectrum - mirrored(spectrum)) < 1e-6 * np.linalg.norm(spectrum)
    assert not spectrum[points // 2].any()
    assert not spectrum[:, points // 2].any()
    assert spectrum[0, 0] == 0
    assert np.count_nonzero(spectrum) > points**2 / 2


@pytest.mark.parametrize("start", ("PAO", "KM3"))
def test_a_seeded_start_is_hermitian_to_the_bit(engine, start):
    spectrum = engine(resolution=34, start_spectrum=start).raw_spectrum()
    assert np.array_equal(spectrum, mirrored(spectrum))


@pytest.mark.parametrize("operator", FORMS)
def test_a_long_run_stays_hermitian_to_rounding(engine, operator):
    # If the non-Hermitian part of the column kx = 0 fed back into the flow, it would grow like any
    # disturbance.
    flow = engine(resolution=32, k0=4, reynolds=1e5, operator=operator)
    flow.advance(4000)
    spectrum = flow.raw_spectrum()
    assert np.linalg.norm(spectrum - mirrored(spectrum)) < 1e-5 * np.linalg.norm(spectrum)


def test_the_exported_fields_match_the_spectrum(flow):
    grid = Grid(flow.points)
    vorticity = flow.vorticity()
    planes, _ = flow.fields()
    u, v = velocity(grid, vorticity)
    for plane, spectrum in zip(planes, (vorticity, u, v)):
        expected = grid.to_field(spectrum)
        assert np.max(np.abs(plane - expected)) < 1e-6 * np.max(np.abs(expected))


def test_statistics_are_the_means_of_the_fields(flow):
    grid = Grid(flow.points)
    report = flow.inspect()
    vorticity, u, v = (plane.astype(float) for plane in flow.fields()[0])
    assert report["energy"] == pytest.approx(np.mean(u * u + v * v) / 2, rel=2e-6)
    assert report["enstrophy"] == pytest.approx(np.mean(vorticity**2) / 2, rel=2e-6)
    coefficients = grid.to_spectrum(vorticity)
    palinstrophy = measures.palinstrophy(grid, coefficients)
    assert report["palinstrophy"] == pytest.approx(palinstrophy, rel=4e-6)
    ratio = measures.palinstrophy_ratio(grid, coefficients)
    assert report["palinstrophy_ratio"] == pytest.approx(ratio, rel=4e-6)


def test_the_snapshot_report_matches_the_fields(flow):
    statistics = flow.inspect()
    (vorticity, u, v), report = flow.fields()
    assert report["max_vorticity"] == np.max(np.abs(vorticity))
    assert report["max_speed"] == np.max(np.sqrt(u * u + v * v))
    spread = np.std(vorticity.astype(float))
    assert report["std_vorticity"] == pytest.approx(spread, rel=1e-6)
    assert report["mean_vorticity"] == pytest.approx(0, abs=1e-6 * spread)
    assert report["grid_size"] == flow.points
    assert report["sequence"] == statistics["steps"]
    assert report["time"] == statistics["simulation_time"]


def test_without_velocity_the_velocity_planes_are_zero(flow):
    with_velocity, _ = flow.fields()
    without, report = flow.fields(include_velocity=False)
    assert np.array_equal(with_velocity[0], without[0])
    assert not without[1:].any()
    assert report["max_speed"] == 0


def test_the_velocity_has_no_divergence_and_the_vorticity_as_its_curl(flow):
    grid = Grid(flow.points)
    vorticity, u, v = (grid.to_spectrum(plane.astype(float)) for plane in flow.fields()[0])
    divergence = grid.kx * u + grid.ky * v
    size = np.linalg.norm(vorticity)
    assert np.linalg.norm(divergence) < 1e-5 * size
    assert np.linalg.norm(1j * (grid.kx * v - grid.ky * u) - vorticity) < 1e-5 * size
