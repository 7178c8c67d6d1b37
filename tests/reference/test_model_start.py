"""The model's start fields against their definition, without the library."""

import numpy as np
import pytest

from flow64 import measures
from flow64.grid import Grid
from flow64.start import splitmix64, start_spectrum


def test_splitmix64_gives_its_published_sequence():
    # The first outputs for the seed 1234567, as published.
    assert [int(z) for z in splitmix64(1234567, 3)] == [
        6457827717110365317,
        3203168211198807973,
        9817491932198370423,
    ]


def test_splitmix64_wraps_around():
    assert int(splitmix64(2**64 - 1, 1)[0]) == int(splitmix64(-1 % 2**64, 2)[0])


@pytest.mark.parametrize("k0", (4, 6))
def test_a_pao_field_has_the_energy_of_a_gaussian_without_its_mean(k0):
    grid = Grid(128)
    vorticity = start_spectrum(grid, "PAO", k0, 2)
    mean_flow = 0.5 / (np.pi * k0**2)
    assert measures.energy(grid, vorticity) == pytest.approx(0.5 - mean_flow, abs=1e-10)
    assert measures.enstrophy(grid, vorticity) == pytest.approx(k0**2 / 2, abs=1e-8)
    assert measures.turnover_time(grid, vorticity) == pytest.approx(2 * np.pi / k0, rel=1e-8)


@pytest.mark.parametrize("points, k0", ((64, 4), (66, 7), (32, 16)))
def test_km3_shells_rise_as_the_fourth_power_and_fall_as_the_third(points, k0):
    grid = Grid(points)
    shells = measures.shell_energies(grid, start_spectrum(grid, "KM3", k0, 2))[1 : grid.half]
    k = np.arange(1, grid.half)
    shape = np.where(k < k0, k**4.0 / k0**7.0, k**-3.0)
    assert shells / shape == pytest.approx(shells[0] / shape[0], rel=1e-12)


@pytest.mark.parametrize("k0", (2, 4))
def test_km3_keeps_the_energy_of_pao(k0):
    grid = Grid(128)
    energies = [measures.energy(grid, start_spectrum(grid, kind, k0, 2)) for kind in ("PAO", "KM3")]
    # The last shell shares its energy with the Nyquist row, which is then cleared.
    assert energies[1] == pytest.approx(energies[0], rel=1e-4)


@pytest.mark.parametrize("kind", ("PAO", "KM3"))
def test_a_start_field_is_real_and_truncated(kind):
    grid = Grid(32)
    vorticity = start_spectrum(grid, kind, 4, 3)
    assert np.all(vorticity[~grid.active] == 0)
    column = vorticity[1:, 0]
    assert np.array_equal(column, np.conj(column[::-1]))
    assert not np.allclose(vorticity, start_spectrum(grid, kind, 4, 4))
