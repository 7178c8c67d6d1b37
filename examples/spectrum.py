"""Prints how the energy of a decayed flow is spread over wavenumbers.

    python3 spectrum.py

Needs nothing but Python; with NumPy the sums are quicker.
"""

from __future__ import annotations

import math
import sys

import zephane

RESOLUTION = 128


def slope(energy: list[float], first: int, last: int) -> float:
    """The exponent p of a power law k^p through two shells."""
    return math.log(energy[last] / energy[first]) / math.log(last / first)


def main() -> None:
    with zephane.Engine(resolution=RESOLUTION, seed=7) as engine:
        total = engine.advance(until=3.0).energy
        energy = [float(value) for value in zephane.radial_spectrum(engine.spectrum())]

    print("wavenumber  energy")
    for k in (1, 2, 4, 8, 16, 32):
        bar = "#" * max(round(5.0 * (8.0 + math.log10(energy[k]))), 0)
        print(f"{k:10d}  {energy[k]:.3e}  {bar}")
    print(f"Between 8 and 32 the energy falls as k^{slope(energy, 8, 32):.2f}")
    print(f"The shells hold {sum(energy):.6f} of the flow's {total:.6f}")
    if not math.isclose(sum(energy), total, rel_tol=1e-4):
        sys.exit("spectrum.py: the shells do not add up to the energy of the flow")


if __name__ == "__main__":
    try:
        main()
    except zephane.ZephaneError as failure:
        sys.exit(f"spectrum.py: {failure}")
