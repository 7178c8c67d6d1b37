"""Lets a flow decay, prints its figures and draws it.

    python3 decay.py [PICTURE.png]

The picture needs a Vulkan driver; the rest needs nothing but Python.
"""

from __future__ import annotations

import sys

import zephane


def main() -> None:
    system = zephane.initialize()
    print(f"{system.backend} on {system.gpu}")
    reynolds = zephane.default_reynolds(resolution=128, k0=4)
    with zephane.Engine(resolution=128, reynolds=reynolds, seed=7) as engine:
        print("  time   steps     energy  enstrophy")
        for time in (0.0, 1.0, 2.0, 3.0, 4.0):
            # So many steps at most, but to this time exactly. Energies are computed by inspect().
            engine.advance(steps=100_000, until=time)
            now = engine.inspect()
            figures = f"{now.simulation_time:6.2f} {now.steps:7d} {now.energy:10.6f}"
            print(f"{figures} {now.enstrophy:10.4f}")
        if len(sys.argv) > 1:
            engine.export(png=sys.argv[1], pixel_size=600, palette="glacier")
            print(f"The vorticity is drawn in {sys.argv[1]}")


if __name__ == "__main__":
    try:
        main()
    except zephane.ZephaneError as failure:
        sys.exit(f"decay.py: {failure}")
