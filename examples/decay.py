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
    with zephane.Engine(resolution=128, seed=7) as engine:
        print("  time   steps     energy  enstrophy")
        for time in (0.0, 1.0, 2.0, 3.0, 4.0):
            now = engine.advance(until=time)  # to this time, exactly
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
