"""What a sample of a recording costs, as a share of the steps between two samples.

    PYTHONPATH=python /usr/bin/python3 bench/recording_cost.py --library build/release/libzephane.so

Short stretches of one flow alternate: without a recording, with samples at the ends alone, and with
one after each step. The shortest of each kind count, which other work on the machine has disturbed
least.
"""

from __future__ import annotations

import argparse
import tempfile
import time
from pathlib import Path
from typing import Any, Callable

import zephane

STRETCH = 8  # steps


def seconds(work: Callable[[], Any]) -> float:
    began = time.perf_counter()
    work()
    return time.perf_counter() - began


def main() -> None:
    parser = argparse.ArgumentParser(description="What a sample of a recording costs.")
    parser.add_argument("--library")
    parser.add_argument("--resolution", type=int, default=512)
    parser.add_argument("--every", type=int, default=10, help="steps between two samples")
    parser.add_argument("--rounds", type=int, default=100)
    options = parser.parse_args()
    kinds = {"memory": None, "NetCDF": "flow.nc", "Zarr": "flow.zarr"}
    plain: list[float] = []
    few: dict[str, list[float]] = {kind: [] for kind in kinds}
    many: dict[str, list[float]] = {kind: [] for kind in kinds}
    with tempfile.TemporaryDirectory() as folder, zephane.Engine(
        resolution=options.resolution, library=options.library
    ) as engine:

        def record(name: str | None, every: int) -> None:
            path = None if name is None else Path(folder, name)
            zephane.record(engine, steps=STRETCH, every=every, at="steps", path=path).close()

        for _ in range(options.rounds):
            plain.append(seconds(lambda: engine.advance(STRETCH, fresh=False)))
            for kind, name in kinds.items():
                few[kind].append(seconds(lambda: record(name, STRETCH)))
                many[kind].append(seconds(lambda: record(name, 1)))
    step = min(plain) / STRETCH
    print(f"N = {options.resolution}, {1e3 * step:.2f} ms a step, a sample every {options.every}")
    for kind in kinds:
        sample = (min(many[kind]) - min(few[kind])) / (STRETCH - 1)
        share = 100.0 * sample / (options.every * step)
        print(f"  {kind:8} {1e3 * sample:6.2f} ms a sample, {share:4.1f} %")


if __name__ == "__main__":
    main()
