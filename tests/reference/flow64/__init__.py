"""Decaying two-dimensional turbulence in double precision, written from the mathematics.

The library is compared with this model. It is independent of the library on purpose: it stores
plain Fourier coefficients instead of unnormalised transforms, takes its time-stepping coefficients
from contour integrals instead of series, and shares no formula with the library where mathematics
offers a second way to the same number.

  grid          wavenumbers, truncation, transforms
  equation      velocity and the nonlinear term, in both of its forms
  start         the seeded start spectra
  integrators   one step of each of the three schemes
  stepping      the time-step rule, the endpoint and a flow as a whole
  measures      energy, enstrophy, palinstrophy, shells
"""
