"""A doubly periodic square of side 2 pi, truncated by the 2/3 rule.

Spectra are half spectra of Fourier coefficients, c[row, kx] with kx = 0 .. N/2, so that
f(x, y) = sum over all wavevectors of c exp(i (kx x + ky y)). Fields are f[y, x].
"""

import numpy as np


class Grid:
    def __init__(self, points):
        self.points = points
        self.half = points // 2
        # Products are sampled on 3H points, H = N/2. Two factors that reach to H - 1 make a product
        # that reaches to 2 (H - 1), and what folds back lands at or beyond 3H - 2 (H - 1) = H + 2:
        # outside the modes kept (Orszag 1971).
        self.fine = 3 * points // 2
        self.kx = np.arange(self.half + 1)[np.newaxis, :]
        self.ky = np.rint(np.fft.fftfreq(points, 1 / points)).astype(int)[:, np.newaxis]
        self.k2 = (self.kx**2 + self.ky**2).astype(float)
        self.active = (self.kx < self.half) & (np.abs(self.ky) < self.half) & (self.k2 > 0)
        self.inverse_k2 = np.divide(1.0, self.k2, out=np.zeros_like(self.k2), where=self.active)
        # How often a mode of the half plane occurs in the whole one.
        self.multiplicity = np.where((self.kx == 0) | (self.kx == self.half), 1.0, 2.0)

    def coordinates(self):
        """The points (x, y) as a row and a column."""
        line = 2 * np.pi * np.arange(self.points) / self.points
        return line[np.newaxis, :], line[:, np.newaxis]

    def truncate(self, spectrum):
        return np.where(self.active, spectrum, 0)

    def to_field(self, spectrum):
        return np.fft.irfft2(spectrum, s=(self.points, self.points)) * self.points**2

    def to_spectrum(self, field):
        """The truncated coefficients of a field on the N grid."""
        return self.truncate(np.fft.rfft2(field) / self.points**2)

    def to_fine_field(self, spectrum):
        """A truncated spectrum sampled on the finer grid."""
        padded = np.zeros((self.fine, self.fine // 2 + 1), complex)
        kept = self.half
        padded[:kept, :kept] = spectrum[:kept, :kept]
        padded[1 - kept :, :kept] = spectrum[1 - kept :, :kept]
        return np.fft.irfft2(padded, s=(self.fine, self.fine)) * self.fine**2

    def from_fine_field(self, field):
        """The truncated coefficients of a field on the finer grid."""
        padded = np.fft.rfft2(field) / self.fine**2
        kept = self.half
        spectrum = np.zeros((self.points, self.half + 1), complex)
        spectrum[:kept, :kept] = padded[:kept, :kept]
        spectrum[1 - kept :, :kept] = padded[1 - kept :, :kept]
        return self.truncate(spectrum)

    def half_of(self, full):
        """The stored half of an N x N spectrum."""
        return full[:, : self.half + 1]
