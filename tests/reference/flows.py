"""Start fields and figures that several tests use."""

import numpy as np

FLOAT32 = 2.0**-24  # largest relative error of rounding to single precision


def smooth_field(points, seed=5, largest=4, speed=1.0):
    """A random field of the wavenumbers up to `largest`, as single-precision samples [y, x]."""
    random = np.random.default_rng(seed)
    line = 2 * np.pi * np.arange(points) / points
    x, y = line[np.newaxis, :], line[:, np.newaxis]
    field = np.zeros((points, points))
    for kx in range(largest + 1):
        for ky in range(-largest, largest + 1):
            if 0 < kx**2 + ky**2 <= largest**2 and (kx > 0 or ky > 0):
                phase = random.uniform(0, 2 * np.pi)
                field += random.uniform(0.5, 1) * np.cos(kx * x + ky * y + phase)
    return (speed * field).astype(np.float32)


def shell_field(points, squared, seed=7):
    """A random field of all the modes with kx^2 + ky^2 = `squared`."""
    return sum_of_modes(points, _lattice(squared), seed)


def shear_field(points, direction, harmonics, seed=8):
    """A random parallel flow, whose vorticity varies along the wavevector `direction` alone."""
    kx, ky = direction
    return sum_of_modes(points, [(n * kx, n * ky) for n in harmonics], seed)


def sum_of_modes(points, modes, seed):
    random = np.random.default_rng(seed)
    line = 2 * np.pi * np.arange(points) / points
    x, y = line[np.newaxis, :], line[:, np.newaxis]
    phases = random.uniform(0, 2 * np.pi, len(modes))
    return sum(np.cos(kx * x + ky * y + p) for (kx, ky), p in zip(modes, phases))


def _lattice(squared):
    reach = range(-int(squared**0.5) - 1, int(squared**0.5) + 2)
    on_shell = [(kx, ky) for kx in reach for ky in reach if kx**2 + ky**2 == squared]
    return [(kx, ky) for kx, ky in on_shell if kx > 0 or (kx == 0 and ky > 0)]


def observed_orders(errors):
    """Orders from errors at steps that halve."""
    return [float(np.log2(a / b)) for a, b in zip(errors, errors[1:])]
