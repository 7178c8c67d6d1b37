"""What recording a flow costs, as a share of the run without it.

    PYTHONPATH=python /usr/bin/python3 bench/recording_cost.py --library build/release/libzephane.so

Recorded and plain stretches of one flow alternate. The shortest of each are compared, which other
work on the machine has disturbed least.
"""

from __future__ import annotations

import argparse
import tempfile
import time
from pathlib import Path
from typing import Any, Callable

import zephane

STRETCH = 100  # steps


def seconds(work: Callable[[], Any]) -> float:
    began = time.perf_counter()
    work()
    return time.perf_counter() - began


def main() -> None:
    parser = argparse.ArgumentParser(description="What recording a flow costs.")
    parser.add_argument("--library")
    parser.add_argument("--resolution", type=int, default=512)
    parser.add_argument("--every", type=int, default=10, help="steps between two samples")
    parser.add_argument("--rounds", type=int, default=8)
    options = parser.parse_args()
    kinds = {"memory": None, "NetCDF": "flow.nc", "Zarr": "flow.zarr"}
    plain: list[float] = []
    recorded: dict[str, list[float]] = {kind: [] for kind in kinds}
    with tempfile.TemporaryDirectory() as folder, zephane.Engine(
        resolution=options.resolution, library=options.library
    ) as engine:

        def record(name: str | None) -> None:
            path = None if name is None else Path(folder, name)
            made = zephane.record(engine, steps=STRETCH, every=options.every, at="steps", path=path)
            made.close()

        for name in kinds.values():
            record(name)
        for _ in range(options.rounds):
            for kind, name in kinds.items():
                plain.append(seconds(lambda: engine.advance(STRETCH, fresh=False)))
                recorded[kind].append(seconds(lambda: record(name)))
    print(f"N = {options.resolution}, a sample every {options.every} steps")
    for kind, found in recorded.items():
        print(f"  {kind:8} {100.0 * (min(found) / min(plain) - 1.0):5.1f} %")


if __name__ == "__main__":
    main()
