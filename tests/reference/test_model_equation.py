"""The double-precision model against calculus, without the library."""

import numpy as np
import pytest

from flow64 import measures
from flow64.equation import FORMS, nonlinear_term, speed_bound, velocity
from flow64.grid import Grid
from flow64.start import start_spectrum
from flows import shear_field, shell_field, smooth_field

SIZES = (16, 18, 50, 64)


@pytest.mark.parametrize("points", SIZES)
def test_the_two_forms_of_the_nonlinear_term_are_equal(points):
    grid = Grid(points)
    vorticity = start_spectrum(grid, "PAO", points // 2, 3)
    stress, advective = (nonlinear_term(grid, vorticity, form) for form in FORMS)
    assert measures.difference(stress, advective) < 1e-13


@pytest.mark.parametrize("form", FORMS)
def test_the_nonlinear_term_of_two_modes_is_known_in_closed_form(form):
    # w = cos x + cos 2y: psi = cos x + cos(2y)/4, u = -sin(2y)/2, v = sin x, and so
    # -u w_x - v w_y = -sin(2y) sin(x)/2 + 2 sin(x) sin(2y).
    grid = Grid(16)
    x, y = grid.coordinates()
    term = nonlinear_term(grid, grid.to_spectrum(np.cos(x) + np.cos(2 * y)), form)
    assert np.allclose(grid.to_field(term), 1.5 * np.sin(x) * np.sin(2 * y), atol=1e-14)


@pytest.mark.parametrize("form", FORMS)
@pytest.mark.parametrize("points", SIZES)
def test_products_equal_a_convolution_without_aliasing(points, form):
    grid, finer = Grid(points), Grid(2 * points)
    vorticity = start_spectrum(grid, "PAO", points, 4)
    kept = grid.half
    wide = np.zeros(finer.k2.shape, complex)
    wide[:kept, :kept] = vorticity[:kept, :kept]
    wide[1 - kept :, :kept] = vorticity[1 - kept :, :kept]
    exact = nonlinear_term(finer, wide, form)
    term = nonlinear_term(grid, vorticity, form)
    expected = np.zeros_like(term)
    expected[:kept, :kept] = exact[:kept, :kept]
    expected[1 - kept :, :kept] = exact[1 - kept :, :kept]
    assert measures.difference(term, grid.truncate(expected)) < 1e-13


@pytest.mark.parametrize("form", FORMS)
@pytest.mark.parametrize("points", SIZES)
def test_the_truncated_term_produces_neither_energy_nor_enstrophy(points, form):
    grid = Grid(points)
    vorticity = start_spectrum(grid, "PAO", points, 4)
    work = grid.multiplicity * (np.conj(vorticity) * nonlinear_term(grid, vorticity, form)).real
    size = np.sum(np.abs(work))
    assert abs(np.sum(work)) < 1e-13 * size
    assert abs(np.sum(work * grid.inverse_k2)) < 1e-13 * np.sum(np.abs(work) * grid.inverse_k2)


@pytest.mark.parametrize("form", FORMS)
def test_shells_and_parallel_flows_do_not_interact(form):
    grid = Grid(32)
    for field in (shell_field(32, 25), shell_field(32, 65), shear_field(32, (1, 2), (1, 2, 3))):
        vorticity = grid.to_spectrum(field)
        assert np.max(np.abs(nonlinear_term(grid, vorticity, form))) < 1e-14


def test_the_velocity_is_solenoidal_and_its_curl_is_the_vorticity():
    grid = Grid(32)
    vorticity = start_spectrum(grid, "KM3", 4, 9)
    u, v = velocity(grid, vorticity)
    assert np.max(np.abs(grid.kx * u + grid.ky * v)) < 1e-15
    assert np.allclose(1j * (grid.kx * v - grid.ky * u), vorticity, atol=1e-15)


def test_the_speed_bound_of_one_mode_is_its_amplitude_over_its_wavenumber():
    grid = Grid(16)
    x, _ = grid.coordinates()
    vorticity = grid.to_spectrum(6 * np.sin(3 * x) + 0.0 * x.T)
    assert speed_bound(grid, vorticity) == pytest.approx(2.0, rel=1e-14)


def test_figures_of_a_field_are_its_means():
    grid = Grid(48)
    vorticity = grid.to_spectrum(smooth_field(48))
    u, v = (grid.to_field(component) for component in velocity(grid, vorticity))
    slopes = [grid.to_field(1j * k * vorticity) for k in (grid.kx, grid.ky)]
    assert measures.energy(grid, vorticity) == pytest.approx(np.mean(u * u + v * v) / 2)
    field = grid.to_field(vorticity)
    assert measures.enstrophy(grid, vorticity) == pytest.approx(np.mean(field**2) / 2)
    gradient = np.mean(slopes[0] ** 2 + slopes[1] ** 2)
    assert measures.palinstrophy(grid, vorticity) == pytest.approx(gradient / 2)
    shells = measures.shell_energies(grid, vorticity)
    assert np.sum(shells) == pytest.approx(measures.energy(grid, vorticity))
