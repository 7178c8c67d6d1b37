"""The seeded start fields, as spectra of the vorticity.

A velocity mode of energy |U|^2 + |V|^2 = e across its wavevector makes a vorticity mode of modulus
|k| sqrt(e); only its phase is a convention.
"""

import numpy as np

GOLDEN = 0x9E3779B97F4A7C15


def splitmix64(seed, count):
    """The first `count` outputs of SplitMix64 (Steele, Lea and Flood 2014)."""
    with np.errstate(over="ignore"):
        z = np.uint64(seed) + np.arange(1, count + 1, dtype=np.uint64) * np.uint64(GOLDEN)
        z = (z ^ (z >> np.uint64(30))) * np.uint64(0xBF58476D1CE4E5B9)
        z = (z ^ (z >> np.uint64(27))) * np.uint64(0x94D049BB133111EB)
        return z ^ (z >> np.uint64(31))


def start_spectrum(grid, kind, k0, seed):
    gaussian = pao(grid, k0, seed)
    return gaussian if kind == "PAO" else km3(grid, k0, seed, gaussian)


def pao(grid, k0, seed):
    """Energy exp(-k^2/k0^2) / (pi k0^2) a mode: in all 1/2, as the field's <u^2 + v^2>/2.

    Each mode of the half plane (kx > 0, and kx = 0 with ky > 0) draws one phase, row by row in the
    order of storage. The generator's first output is skipped, and the upper 24 bits of each output
    give the angle.
    """
    drawn = (grid.kx < grid.half) & (np.abs(grid.ky) < grid.half)
    drawn &= (grid.kx > 0) | (grid.ky > 0)
    bits = splitmix64(seed, drawn.sum() + 1)[1:] >> np.uint64(40)
    angle = 2 * np.pi * bits.astype(float) / 2**24
    modulus = np.sqrt(np.exp(-grid.k2 / k0**2) / np.pi) / k0 * np.sqrt(grid.k2)
    spectrum = np.zeros(grid.k2.shape, complex)
    spectrum[drawn] = modulus[drawn] * np.exp(1j * angle) * 1j
    return _with_conjugates(grid, spectrum * np.where(grid.kx == 0, -1, 1))


def km3(grid, k0, seed, gaussian):
    """Shells that rise as k^4 to k0 and fall as k^-3 beyond, with the energy of `gaussian`.

    Within a shell, energy is shared in proportion to 3/4 + h/2 with a hash h of the mode, and a
    second hash gives the phase.
    """
    radius = np.sqrt(grid.k2)
    shell = np.floor(radius + 0.5).astype(int)
    # The Nyquist row takes part in the sharing, though its modes are cleared in the end.
    shared = (grid.kx < grid.half) & (radius > 0) & (radius <= grid.half)
    shell = np.where(shared, shell, 0)
    share = 0.75 + 0.5 * _hash(grid, seed, 678.942)

    def by_shell(values):
        weighted = np.where(shared, values * grid.multiplicity, 0)
        return np.bincount(shell.ravel(), weighted.ravel(), grid.half + 1)[1:]

    k = np.arange(1, grid.half + 1)
    target = np.where(k < k0, (k / k0) ** 4 / float(k0) ** 3, 1 / k.astype(float) ** 3)
    energy = by_shell(np.abs(gaussian) ** 2 * grid.inverse_k2)
    scaled = target * energy.sum() / target.sum()
    per_share = np.concatenate(([0.0], scaled / by_shell(share)))
    angle = 2 * np.pi * _hash(grid, seed, 2036.826)
    upper = shared & (np.abs(grid.ky) < grid.half) & ((grid.kx > 0) | (grid.ky > 0))
    spectrum = 1j * radius * np.sqrt(share * per_share[shell]) * np.exp(1j * angle)
    spectrum *= np.where(grid.kx == 0, -1, 1)
    return _with_conjugates(grid, np.where(upper, spectrum, 0))


def _hash(grid, seed, offset):
    rows = np.arange(grid.points)[:, np.newaxis]
    # A mode of the column kx = 0 shares its hash with its conjugate.
    rows = np.where((grid.kx == 0) & (rows > grid.half), grid.points - rows, rows)
    x = (rows + 1) * 78.233 + (grid.kx + 1) * 12.9898 + (float(seed) + 1) * 0.010001
    value = np.sin(x + offset) * 43758.5453123
    return value - np.floor(value)


def _with_conjugates(grid, spectrum):
    """Fills the column kx = 0 below ky = 0 from the half above."""
    above = spectrum[1 : grid.half, 0]
    spectrum[grid.half + 1 :, 0] = np.conj(above[::-1])
    return spectrum
