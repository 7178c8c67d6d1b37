"""Figures of a flow, from its vorticity spectrum."""

import numpy as np


def _mean_over_square(grid, density):
    return float(np.sum(density * grid.multiplicity))


def energy(grid, vorticity):
    """<u^2 + v^2> / 2."""
    return _mean_over_square(grid, 0.5 * np.abs(vorticity) ** 2 * grid.inverse_k2)


def enstrophy(grid, vorticity):
    """<w^2> / 2."""
    return _mean_over_square(grid, 0.5 * np.abs(vorticity) ** 2)


def palinstrophy(grid, vorticity):
    """<|grad w|^2> / 2."""
    return _mean_over_square(grid, 0.5 * np.abs(vorticity) ** 2 * grid.k2)


def palinstrophy_ratio(grid, vorticity):
    """Mean squared wavenumber of the vorticity, over twice the square of the largest kept."""
    z = enstrophy(grid, vorticity)
    return palinstrophy(grid, vorticity) / (2 * z * (grid.half - 1) ** 2) if z > 0 else 0.0


def turnover_time(grid, vorticity):
    """2 pi times the eddy size sqrt(E/Z) over the speed sqrt(2E)."""
    e, z = energy(grid, vorticity), enstrophy(grid, vorticity)
    return 2 * np.pi * np.sqrt(e / z) / np.sqrt(2 * e) if e > 0 and z > 0 else 0.0


def shell_energies(grid, vorticity):
    """Energy by shells of width 1 about the whole wavenumbers; element 0 is the mean flow."""
    shell = np.floor(np.sqrt(grid.k2) + 0.5).astype(int)
    density = 0.5 * np.abs(vorticity) ** 2 * grid.inverse_k2 * grid.multiplicity
    return np.bincount(shell.ravel(), density.ravel())


def difference(actual, expected):
    """Root-mean-square difference of two spectra of the whole plane, relative to the second."""
    weight = np.full(expected.shape, 2.0)
    weight[:, [0, -1]] = 1.0
    square = np.sum(weight * np.abs(actual - expected) ** 2)
    return float(np.sqrt(square / np.sum(weight * np.abs(expected) ** 2)))
