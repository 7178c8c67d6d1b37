"""shenfun with MPI: Fourier spaces padded by 3/2, its integrator ETDRK4, double precision. The
right side is written by hand, as in its demonstrations, in the form with the fewest transforms."""

from __future__ import annotations

import numpy as np
from mpi4py import MPI
from problem import Problem, from_half_spectrum, half_spectrum
from shenfun import Array, Function, FunctionSpace, TensorProductSpace, div, grad
from shenfun.utilities.integrators import ETDRK4


class ShenfunFlow:
    def __init__(self, problem: Problem) -> None:
        n = self.n = problem.resolution
        self.dt = problem.dt
        axes = (FunctionSpace(n, "F", dtype="D"), FunctionSpace(n, "F", dtype="d"))
        self.space = TensorProductSpace(MPI.COMM_WORLD, axes)
        padded = self.space.get_dealiased((1.5, 1.5))
        ky, kx = (np.array(k, float) for k in self.space.local_wavenumbers(True, True))
        k2 = kx * kx + ky * ky
        inverse = np.where(k2 > 0, 1 / np.maximum(k2, 1), 0)
        kept = (np.abs(ky) < n // 2) & (np.abs(kx) < n // 2)
        to_u, to_v = 1j * ky * inverse, -1j * kx * inverse
        of_product, of_difference = kept * (kx * kx - ky * ky), kept * -kx * ky
        u, v, product, difference = (Array(padded) for _ in range(4))
        spectra = Function(self.space), Function(self.space)

        def linear(self: ETDRK4, w: Function, **_: object) -> object:
            return problem.viscosity * div(grad(w))

        def nonlinear(
            self: ETDRK4, w: Array, w_hat: Function, rhs: Function, **_: object
        ) -> object:
            spectra[0][:], spectra[1][:] = to_u * w_hat, to_v * w_hat
            padded.backward(spectra[0], u)
            padded.backward(spectra[1], v)
            np.multiply(u, v, out=product)
            np.multiply(u - v, u + v, out=difference)
            padded.forward(product, spectra[0])
            padded.forward(difference, spectra[1])
            rhs[:] = of_product * spectra[0] + of_difference * spectra[1]
            return rhs

        self.integrator = ETDRK4(self.space, L=linear, N=nonlinear)
        self.state, self.unused = Function(self.space), Array(self.space)
        self.part = self.space.local_slice(True)
        self.state[:] = half_spectrum(problem.coefficients(), n)[self.part]

    def take(self, steps: int) -> None:
        # Half a step less, so that rounding adds none.
        self.integrator.solve(self.unused, self.state, self.dt, (0.0, (steps - 0.5) * self.dt))

    def coefficients(self) -> np.ndarray | None:
        parts = MPI.COMM_WORLD.gather((self.part, np.array(self.state)))
        if parts is None:
            return None
        spectrum = np.zeros((self.n, self.n // 2 + 1), np.complex128)
        for where, values in parts:
            spectrum[where] = values
        return from_half_spectrum(spectrum, self.n)


make = ShenfunFlow
