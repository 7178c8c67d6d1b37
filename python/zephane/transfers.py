"""Spectra and fluxes by wavenumber, from the spectrum of the vorticity."""

from __future__ import annotations

from typing import Any

from .extras import need


def shell_spectra(spectrum: Any) -> tuple[Any, Any]:
    """The energy E(s) and the enstrophy Z(s) in shells of wavenumbers of width 1.

    ``spectrum`` is what ``Engine.spectrum`` returns with NumPy, complex64 of shape (N, N). Shell s
    has the wavenumbers with floor(|k| + ½) = s, so that the sums over all shells are the energy and
    the enstrophy of the flow. Both results are float64 NumPy arrays with one number for each shell.
    """
    np = need("numpy", "numpy", "A spectrum")
    modes = _Modes(np, spectrum)
    enstrophy = 0.5 * modes.weight * (modes.omega.real**2 + modes.omega.imag**2)
    return modes.by_shell(enstrophy * modes.inverse_square), modes.by_shell(enstrophy)


def spectral_fluxes(spectrum: Any) -> tuple[Any, Any]:
    """The fluxes of energy and of enstrophy through each wavenumber, towards larger ones.

    The flux Π(s) is what the nonlinear term carries out of all shells up to s, per unit of time:
    minus the sum of their transfers T. For the energy, T(s) is the sum over a shell of
    Re(conj(ω̂) N̂) / k², for the enstrophy that of Re(conj(ω̂) N̂), where N̂ are the coefficients of
    -u·∇ω, without aliasing. The nonlinear term loses neither, so the flux through the last shell
    is zero but for rounding.

    ``spectrum`` and the shells are those of ``shell_spectra``; the results are two float64 NumPy
    arrays.
    """
    np = need("numpy", "numpy", "A flux")
    modes = _Modes(np, spectrum)
    term = -_advection(np, modes)
    transfer = modes.weight * (modes.omega.real * term.real + modes.omega.imag * term.imag)
    energy = np.cumsum(modes.by_shell(transfer * modes.inverse_square))
    return 0.0 - energy, 0.0 - np.cumsum(modes.by_shell(transfer))


class _Modes:
    """The half of the modes with kx >= 0, which has all that a real field needs."""

    def __init__(self, np: Any, spectrum: Any) -> None:
        self._np = np
        self.size = spectrum.shape[0]
        half = self.size // 2
        self.omega = spectrum[:, : half + 1].astype(np.complex128)
        # The flow has no modes at the largest wavenumber of the grid.
        self.omega[half, :] = 0.0
        self.omega[:, half] = 0.0
        self.kx = np.arange(half + 1.0)[None, :]
        self.ky = np.fft.fftfreq(self.size, 1.0 / self.size)[:, None]
        square = self.kx**2 + self.ky**2
        square[0, 0] = 1.0
        self.inverse_square = 1.0 / square
        self.inverse_square[0, 0] = 0.0
        self.weight = np.where(self.kx > 0.0, 2.0, 1.0)
        square[0, 0] = 0.0
        self._shell = np.floor(np.sqrt(square) + 0.5).astype(np.intp).ravel()

    def by_shell(self, values: Any) -> Any:
        return self._np.bincount(self._shell, weights=values.ravel())


def _advection(np: Any, modes: _Modes) -> Any:
    """The coefficients of u·∇ω, from products on a grid on which they are not aliased."""
    size = modes.size
    side = 3 * size // 2
    psi = modes.omega * modes.inverse_square

    def field(coefficients: Any) -> Any:
        padded = np.zeros((side, side // 2 + 1), np.complex128)
        half = size // 2
        padded[:half, : half + 1] = coefficients[:half]
        padded[side - half + 1 :, : half + 1] = coefficients[half + 1 :]
        return np.fft.irfft2(padded, s=(side, side)) * side**2

    i_kx, i_ky = 1j * modes.kx, 1j * modes.ky
    product = field(i_ky * psi) * field(i_kx * modes.omega)
    product -= field(i_kx * psi) * field(i_ky * modes.omega)
    whole = np.fft.rfft2(product) / side**2
    half = size // 2
    kept = np.zeros_like(modes.omega)
    kept[:half, :half] = whole[:half, :half]
    kept[half + 1 :, :half] = whole[side - half + 1 :, :half]
    return kept
