"""The library's start fields against their mathematics."""

import numpy as np
import pytest

from flow64 import measures
from flow64.grid import Grid
from flow64.start import start_spectrum
from flows import FLOAT32

STARTS = [("PAO", 16, 2), ("PAO", 18, 5), ("PAO", 64, 4), ("PAO", 128, 9), ("PAO", 34, 40)]
STARTS += [("KM3", 16, 2), ("KM3", 18, 5), ("KM3", 64, 4), ("KM3", 128, 9), ("KM3", 34, 40)]


@pytest.mark.parametrize("kind, points, k0", STARTS)
@pytest.mark.parametrize("seed", (2, 2**64 - 1))
def test_each_mode_of_a_start_field_follows_from_the_seed(engine, kind, points, k0, seed):
    grid = Grid(points)
    started = engine(resolution=points, k0=k0, seed=str(seed), start_spectrum=kind).vorticity()
    expected = start_spectrum(grid, kind, k0, seed)
    # The argument of a Gaussian is rounded too, and its far tail is denormal.
    gaussian = grid.k2 / k0**2 if kind == "PAO" else 0
    allowed = FLOAT32 * (12 + gaussian) * np.abs(expected) + 2e-18
    assert np.all(np.abs(started - expected) <= allowed)
    assert np.all(started[~grid.active] == 0)


def test_a_pao_start_has_the_energy_enstrophy_and_turnover_of_its_gaussian(engine):
    for k0 in (4, 6):
        report = engine(resolution=128, k0=k0).inspect()
        assert report["energy"] == pytest.approx(0.5 - 0.5 / (np.pi * k0**2), rel=1e-5)
        assert report["enstrophy"] == pytest.approx(k0**2 / 2, rel=1e-5)
        assert report["initial_turnover_time"] == pytest.approx(2 * np.pi / k0, rel=1e-5)


@pytest.mark.parametrize("points, k0", ((64, 4), (128, 8), (66, 7)))
def test_km3_shells_rise_as_the_fourth_power_and_fall_as_the_third(engine, points, k0):
    grid = Grid(points)
    vorticity = engine(resolution=points, k0=k0, start_spectrum="KM3").vorticity()
    shells = measures.shell_energies(grid, vorticity)[1 : grid.half]
    k = np.arange(1, grid.half)
    shape = np.where(k < k0, k**4.0 / k0**7.0, k**-3.0)
    assert shells / shape == pytest.approx(shells[k0 - 1] / shape[k0 - 1], rel=1e-5)


def test_km3_has_the_energy_of_pao(engine):
    pao, km3 = (engine(resolution=128, start_spectrum=kind).inspect() for kind in ("PAO", "KM3"))
    assert km3["energy"] == pytest.approx(pao["energy"], rel=1e-4)


@pytest.mark.parametrize("points", (16, 18, 22, 46, 64))
def test_an_initial_file_is_projected_onto_the_modes_kept(engine, points):
    samples = np.random.default_rng(1).normal(2.0, 1.0, (points, points)).astype(np.float32)
    grid = Grid(points)
    started = engine(samples=samples, resolution=points).vorticity()
    assert np.all(started[~grid.active] == 0)
    assert measures.difference(started, grid.to_spectrum(samples.astype(float))) < 12 * FLOAT32
