"""A flow on somebody else's arrays and transforms: integrator etdrk4, operator stress, products on
the grid 3/2 times finer, single precision.

The work is that of the library, and where it differs the peer has less to do: its step is fixed, so
that the coefficients are made once; it looks for no largest speed, does not watch for numbers that
are not finite, and its sum into the state is not compensated.
"""

from __future__ import annotations

import math
from typing import Any

import numpy as np


def phi(k: int, z: np.ndarray) -> np.ndarray:
    """phi_k(z) = (phi_(k-1)(z) - 1/(k-1)!) / z with phi_0 = exp, for k = 1 to 3 and z <= 0."""
    near = np.abs(z) < 1.0
    series = np.zeros_like(z)
    for j in reversed(range(18)):
        series = series * np.where(near, z, 0.0) + 1.0 / math.factorial(j + k)
    far = np.where(near, -1.0, z)
    closed = np.expm1(far) / far
    for j in range(1, k):
        closed = (closed - 1.0 / math.factorial(j)) / far
    return np.where(near, series, closed)


class Flow:
    """The state is the Fourier coefficients of the vorticity for 0 <= kx < N/2, N rows in the order
    of the FFT; the row ky = -N/2 is zero."""

    def __init__(self, backend: Any, start: np.ndarray, viscosity: float, dt: float) -> None:
        """``start`` has the N x N coefficients, row ky, column kx."""
        n = start.shape[0]
        self.backend, self.h, self.m = backend, n // 2, 3 * n // 2
        self.bands = (
            (slice(0, self.h), slice(0, self.h)),
            (slice(self.h, n), slice(self.m - self.h, self.m)),
        )
        self._make_factors(n, viscosity, dt)
        self.state = self._modes(start[:, : self.h])
        self.base, self.first, self.second, self.third, self.fourth, self.predictor = (
            self._modes(np.zeros_like(start[:, : self.h])) for _ in range(6)
        )
        backend.prepare(self.m)

    def _modes(self, values: np.ndarray) -> Any:
        return self.backend.array(np.array(values, np.complex64))

    def _make_factors(self, n: int, viscosity: float, dt: float) -> None:
        kx = np.arange(self.h, dtype=np.float64)[None, :]
        ky = np.rint(np.fft.fftfreq(n) * n)[:, None]
        k2 = kx * kx + ky * ky
        kept = (k2 > 0) & (ky > -self.h)
        inverse = kept / np.maximum(k2, 1.0)
        scale = kept / float(self.m * self.m)  # no transform scales

        def real(values: np.ndarray) -> Any:
            return self.backend.array(np.array(values, np.float32))

        self.to_u = self._modes(1j * ky * inverse)
        self.to_v = self._modes(-1j * kx * inverse)
        self.of_product = real((kx * kx - ky * ky) * scale)
        self.of_difference = real(-kx * ky * scale)

        z = -viscosity * dt * k2
        q = dt / 2 * phi(1, z / 2)
        one, two, three = phi(1, z), phi(2, z), phi(3, z)
        self.half, self.whole = real(np.exp(z / 2)), real(np.exp(z))
        self.q, self.twice_q, self.minus_q = real(q), real(2 * q), real(-q)
        self.of_first = real(dt * (one - 3 * two + 4 * three))
        self.of_middle = real(2 * dt * (two - 2 * three))
        self.of_last = real(dt * (4 * three - two))

    def nonlinear_term(self, term: Any) -> None:
        """(kx^2 - ky^2) (uv)^ - kx ky (u^2 - v^2)^ of the state."""
        combine, spectra = self.backend.combine, self.backend.spectra
        self.backend.clear()
        for mine, padded in self.bands:
            combine(spectra[0, padded, : self.h], (self.state[mine], self.to_u[mine]))
            combine(spectra[1, padded, : self.h], (self.state[mine], self.to_v[mine]))
        difference, product = self.backend.transformed_products()
        for mine, padded in self.bands:
            combine(
                term[mine],
                (product[padded, : self.h], self.of_product[mine]),
                (difference[padded, : self.h], self.of_difference[mine]),
            )

    def step(self) -> None:
        """S. M. Cox and P. C. Matthews, J. Comput. Phys. 176, 430 (2002)."""
        combine = self.backend.combine
        self.nonlinear_term(self.first)
        self.base, self.state = self.state, self.base
        combine(self.state, (self.base, self.half), (self.first, self.q))
        combine(self.predictor, (self.base, self.half), (self.first, self.q))
        self.nonlinear_term(self.second)
        combine(self.state, (self.base, self.half), (self.second, self.q))
        self.nonlinear_term(self.third)
        combine(
            self.state,
            (self.predictor, self.half),
            (self.third, self.twice_q),
            (self.first, self.minus_q),
        )
        self.nonlinear_term(self.fourth)
        combine(
            self.state,
            (self.base, self.whole),
            (self.first, self.of_first),
            (self.second, self.of_middle),
            (self.third, self.of_middle),
            (self.fourth, self.of_last),
        )

    def coefficients(self) -> np.ndarray:
        return self.backend.to_host(self.state)  # type: ignore[no-any-return]
