"""dw/dt = -u . grad w + nu lap w, with u = d psi/dy, v = -d psi/dx and w = -lap psi."""

import numpy as np

FORMS = ("stress", "advective")


def velocity(grid, vorticity):
    """The spectra of u and v."""
    stream = vorticity * grid.inverse_k2
    return 1j * grid.ky * stream, -1j * grid.kx * stream


def speed_bound(grid, vorticity):
    """The largest |u| + |v| on the finer grid."""
    u, v = (grid.to_fine_field(component) for component in velocity(grid, vorticity))
    return float(np.max(np.abs(u) + np.abs(v)))


def nonlinear_term(grid, vorticity, form):
    return _stress(grid, vorticity) if form == "stress" else _advective(grid, vorticity)


def _advective(grid, vorticity):
    """-(u dw/dx + v dw/dy)."""
    u, v = (grid.to_fine_field(component) for component in velocity(grid, vorticity))
    slope_x = grid.to_fine_field(1j * grid.kx * vorticity)
    slope_y = grid.to_fine_field(1j * grid.ky * vorticity)
    return grid.from_fine_field(-(u * slope_x + v * slope_y))


def _stress(grid, vorticity):
    """Minus the curl of the divergence of the momentum flux.

    -(d/dx)(d(uv)/dx + d(vv)/dy) + (d/dy)(d(uu)/dx + d(uv)/dy), term by term.
    """
    u, v = (grid.to_fine_field(component) for component in velocity(grid, vorticity))
    uu, uv, vv = (grid.from_fine_field(product) for product in (u * u, u * v, v * v))
    dx, dy = 1j * grid.kx, 1j * grid.ky
    return -dx * (dx * uv + dy * vv) + dy * (dx * uu + dy * uv)
