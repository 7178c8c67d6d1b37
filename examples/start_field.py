"""Starts from a field of one's own: two shear layers, which roll up into vortices.

    python3 start_field.py [PICTURE.png]

Needs NumPy. Without it, write N x N little-endian float32 numbers to a file, row y after row, column
x, and give its path as ``initial``.
"""

from __future__ import annotations

import sys
from typing import Any

import numpy as np

import zephane

RESOLUTION = 128
THICKNESS = 0.1


def shear_layers(resolution: int) -> np.ndarray[Any, Any]:
    """The vorticity of a jet along x between y = pi/2 and y = 3 pi/2, a little disturbed."""
    points = np.arange(resolution) * (2.0 * np.pi / resolution)
    y, x = points[:, None], points[None, :]
    lower = 1.0 / np.cosh((y - np.pi / 2) / THICKNESS) ** 2
    upper = 1.0 / np.cosh((y - 3 * np.pi / 2) / THICKNESS) ** 2
    return (upper - lower) / THICKNESS + 0.05 * np.cos(2.0 * x)


def main() -> None:
    start = shear_layers(RESOLUTION)
    with zephane.Engine(resolution=RESOLUTION, reynolds=2000.0, initial=start) as engine:
        before = engine.inspect()
        after = engine.advance(until=6.0)
        vorticity, u, v = engine.fields()
        print(f"energy     {before.energy:9.5f} -> {after.energy:9.5f}")
        print(f"enstrophy  {before.enstrophy:9.5f} -> {after.enstrophy:9.5f}")
        print(f"flow across the layers, largest v: {np.abs(v).max():.3f}")
        if len(sys.argv) > 1:
            engine.export(png=sys.argv[1], pixel_size=600)
            print(f"The vorticity is drawn in {sys.argv[1]}")
    if not np.abs(v).max() > 0.1:
        sys.exit("start_field.py: the layers have not rolled up")


if __name__ == "__main__":
    try:
        main()
    except zephane.ZephaneError as failure:
        sys.exit(f"start_field.py: {failure}")
