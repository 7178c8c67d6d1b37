"""One step of each scheme, for dw/dt = N(w) - d w with a damping d >= 0 for each mode."""

import numpy as np

INTEGRATORS = ("imexRK3", "ifHeunRK3", "etdrk4")


def imex_rk3(w, dt, damping, nonlinear):
    """The low-storage third-order scheme of Wray, with Crank-Nicolson over each of its stages.

    Explicit coefficients as in Spalart, Moser and Rogers (1991); the implicit ones are half of the
    length of the stage. Third order in N, second in the damping.
    """
    before = 0.0
    for gamma, zeta in ((8 / 15, 0.0), (5 / 12, -17 / 60), (3 / 4, -5 / 12)):
        now = nonlinear(w)
        half_damping = 0.5 * (gamma + zeta) * dt * damping
        explicit = dt * (gamma * now + zeta * before)
        w = ((1 - half_damping) * w + explicit) / (1 + half_damping)
        before = now
    return w


def if_heun_rk3(w, dt, damping, nonlinear):
    """Heun's third-order tableau for exp(d t) w, in which the damping is exact."""
    first = nonlinear(w)
    second = nonlinear(np.exp(-damping * dt / 3) * (w + dt / 3 * first))
    third = nonlinear(
        np.exp(-2 * damping * dt / 3) * w + 2 * dt / 3 * np.exp(-damping * dt / 3) * second
    )
    return (
        np.exp(-damping * dt) * (w + dt / 4 * first)
        + 3 * dt / 4 * np.exp(-damping * dt / 3) * third
    )


def etdrk4(w, dt, damping, nonlinear):
    """Cox and Matthews (2002), equations 26 to 29."""
    # Wavenumbers share few values of the damping.
    values, places = np.unique(damping, return_inverse=True)
    phi1, phi2, phi3 = (p[places].reshape(damping.shape) for p in phi_functions(-values * dt))
    half = phi_functions(-values * dt / 2)[0][places].reshape(damping.shape) * dt / 2
    decay, half_decay = np.exp(-damping * dt), np.exp(-damping * dt / 2)

    first = nonlinear(w)
    a = half_decay * w + half * first
    second = nonlinear(a)
    third = nonlinear(half_decay * w + half * second)
    fourth = nonlinear(half_decay * a + half * (2 * third - first))
    return decay * w + dt * (
        (phi1 - 3 * phi2 + 4 * phi3) * first
        + 2 * (phi2 - 2 * phi3) * (second + third)
        + (4 * phi3 - phi2) * fourth
    )


def phi_functions(z, points=16):
    """phi_1, phi_2, phi_3 of real z, as means over a unit circle (Kassam and Trefethen 2005).

    The value of an analytic function is its mean over a circle, on which nothing cancels. The
    functions are real on the real axis, so the upper half of the circle serves.
    """
    circle = np.exp(1j * np.pi * (np.arange(points) + 0.5) / points)
    around = np.asarray(z, float)[..., np.newaxis] + circle
    grown = np.exp(around)
    phi1 = (grown - 1) / around
    phi2 = (grown - 1 - around) / around**2
    phi3 = (grown - 1 - around - around**2 / 2) / around**3
    return tuple(np.mean(phi.real, axis=-1) for phi in (phi1, phi2, phi3))


STEPS = {"imexRK3": imex_rk3, "ifHeunRK3": if_heun_rk3, "etdrk4": etdrk4}
