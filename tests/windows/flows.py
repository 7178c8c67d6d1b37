"""Runs flows and writes their results: flows.py LIBRARY FOLDER [STATES]

FOLDER gets NAME.spectrum and NAME.state for each flow after 100 steps and, if STATES is a folder
with such states, NAME.later, the spectrum 20 steps after its state.
"""

from __future__ import annotations

import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))

from abi.harness import INTEGRATORS, OPERATORS, Engine, Library  # noqa: E402

# Sizes that the transforms treat differently: powers of two and three, small odd factors, an odd
# padded grid, and a large prime factor.
SIZES = (16, 18, 50, 96, 250, 254, 512)

FLOWS = {
    **{
        f"{integrator}-{operator}": {
            "resolution": 64, "integrator": integrator, "operator": operator, "reynolds": 500.0,
        }
        for integrator in INTEGRATORS
        for operator in OPERATORS
    },
    **{f"grid-{size}": {"resolution": size, "reynolds": 900.0} for size in SIZES},
    "km3": {"resolution": 128, "start_spectrum": "KM3", "seed": "18446744073709551615"},
    "fixed": {"resolution": 64, "fixed_dt": 0.003, "k0": 7},
}  # fmt: skip


def main() -> None:
    library, folder = Library(sys.argv[1]), Path(sys.argv[2])
    library.initialize()
    for name, configuration in FLOWS.items():
        with Engine(library, configuration) as engine:
            engine.advance(steps=100)
            spectrum, state = folder / f"{name}.spectrum", folder / f"{name}.state"
            engine.export(spectrum=str(spectrum), state=str(state))
        if len(sys.argv) > 3:
            states = Path(sys.argv[3])
            with Engine(library, {"state": str(states / f"{name}.state")}) as engine:
                engine.advance(steps=20)
                engine.export(spectrum=str(folder / f"{name}.later"))


if __name__ == "__main__":
    main()
