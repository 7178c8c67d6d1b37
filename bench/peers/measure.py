"""The library beside its peers on the processor: tables and two plots. bench/peers/run starts this.

Results are in build/peers/report: results.json, tables.md, cost.svg and precision.svg. The exit
status is 1 if a peer computes another flow.
"""

from __future__ import annotations

import argparse
import fnmatch
import json
import os
import platform
import shlex
import shutil
import subprocess
import sys
import time
import traceback
from collections.abc import Callable, Iterator
from functools import partial
from pathlib import Path
from typing import Any

import environments
import peers
import plots
import tables
from contest import PeerFailed
from duel import Patience
from environments import BUILD, REPOSITORY
from expert.building import CannotBuild
from peers import Peer
from precision import Precision
from scaling import threads
from steps import Steps

SIZES = [128, 256, 512, 1024, 2048, 4096]
THREAD_SIZES = [128, 256, 1024]
PRECISION_SIZES = [256, 512]
PARTS = ["steps", "threads", "precision"]
BENCH = REPOSITORY / "bench"
REPORT = BUILD / "report"


def main() -> int:
    options = _options()
    if options.draw:
        report(json.loads((REPORT / "results.json").read_text()), REPORT)
        if options.publish:
            publish(REPORT)
        return 0
    began = time.monotonic()
    sys.path.insert(0, str(REPOSITORY / "python"))
    import zephane

    system = zephane.initialize()
    if system.backend.startswith("CUDA"):
        print("ZEPHANE_DEVICE must name the processor", file=sys.stderr)
        return 2
    found, missing = _found(options.only)
    results: dict[str, Any] = {
        "command": shlex.join(["bench/peers/run", *sys.argv[1:]]),
        "machine": machine(),
        "missing": missing,
        "versions": {name: _versions(name) for name in sorted({p.environment for p in found})},
        "methods": {peer.name: peer.method for peer in found if peer.method},
    }
    patience = Patience(options.rounds, options.turn, options.duel)
    steps, precision = Steps(patience), Precision(options.precision_seconds)
    # What is measured is reported at once, so that a run that is cut off leaves something.
    results |= {"threads": [], "steps": steps.results, "precision": precision.results}
    broken = False
    for work in _works(options, patience, steps, precision, found, results):
        try:
            work()
        except Exception:  # the other parts are worth having all the same
            broken = True
            traceback.print_exc()
        results["minutes"] = (time.monotonic() - began) / 60
        report(results, REPORT)
    print(f"\n{REPORT}: {results['minutes']:.1f} minutes")
    if options.publish:
        publish(REPORT)
    for other in steps.other_flows:
        print(f"ANOTHER FLOW: {other}", file=sys.stderr)
    return 1 if broken or steps.other_flows else 0


def _works(
    options: argparse.Namespace,
    patience: Patience,
    steps: Steps,
    precision: Precision,
    found: list[Peer],
    results: dict[str, Any],
) -> Iterator[Callable[[], None]]:
    if "threads" in options.parts:
        yield lambda: results["threads"].extend(threads(options.thread_sizes, patience))
    if "steps" in options.parts:
        for size in options.sizes:
            yield partial(steps.measure, size, found)
    if "precision" in options.parts:
        for size in options.precision_sizes:
            yield partial(precision.measure, size, found)


def _options() -> argparse.Namespace:
    parser = argparse.ArgumentParser(prog="bench/peers/run", description=__doc__.splitlines()[0])
    parser.add_argument("--only", nargs="+", metavar="PEER", help="names or patterns: 'expert*'")
    parser.add_argument("--sizes", type=int, nargs="+", default=SIZES, metavar="N")
    parser.add_argument("--parts", nargs="+", choices=PARTS, default=PARTS)
    parser.add_argument("--rounds", type=int, default=7, help="rounds of which the fastest counts")
    parser.add_argument("--turn", type=float, default=0.15, help="seconds of a turn in a round")
    parser.add_argument("--duel", type=float, default=12.0, help="seconds for a peer at a size")
    parser.add_argument("--thread-sizes", type=int, nargs="+", default=THREAD_SIZES, metavar="N")
    parser.add_argument(
        "--precision-sizes", type=int, nargs="+", default=PRECISION_SIZES, metavar="N"
    )
    parser.add_argument(
        "--precision-seconds", type=float, default=40.0, help="for a peer's runs at a size"
    )
    parser.add_argument(
        "--draw", action="store_true", help="measure nothing; make the report of the last results"
    )
    parser.add_argument(
        "--publish", action="store_true", help="put tables and plots into bench/ and its README"
    )
    return parser.parse_args()


def _found(only: list[str] | None) -> tuple[list[Peer], dict[str, str]]:
    """The peers that can be had, and what hinders the others."""
    found, missing = [], {}
    for name in peers.NAMES:
        if only and not any(fnmatch.fnmatch(name.lower(), wanted.lower()) for wanted in only):
            continue
        try:
            found.append(peers.find(name))
        except (CannotBuild, PeerFailed, OSError, subprocess.SubprocessError) as failure:
            missing[name] = str(failure).replace(f"{REPOSITORY}/", "")
            print(f"without {name}: {missing[name]}", flush=True)
    return found, missing


def _versions(name: str) -> dict[str, str]:
    try:
        return environments.versions(name)
    except (OSError, subprocess.SubprocessError):
        return {}


def machine() -> dict[str, Any]:
    processor = platform.processor()
    for line in Path("/proc/cpuinfo").read_text().splitlines():
        if line.startswith("model name"):
            processor = line.split(":", 1)[1].strip()
        if line.startswith("flags"):
            flags = line.split()
            break
    sets = {"AVX-512": "avx512f", "AVX2": "avx2", "SSE2": "sse2"}
    compiler = subprocess.run(["g++", "-dumpfullversion"], capture_output=True, text=True)
    return {
        "processor": processor,
        "processors": len(os.sched_getaffinity(0)),
        "instructions": next(name for name, flag in sets.items() if flag in flags),
        "compiler": f"GCC {compiler.stdout.strip()}",
        "load_at_start": os.getloadavg()[0],
    }


def report(results: dict[str, Any], folder: Path) -> None:
    folder.mkdir(parents=True, exist_ok=True)
    (folder / "results.json").write_text(json.dumps(results, indent=1) + "\n")
    (folder / "tables.md").write_text(tables.all_of(results))
    plots.draw(results, folder)


def publish(folder: Path) -> None:
    """Into bench/results, and the tables between the marks in bench/README.md."""
    target = BENCH / "results"
    target.mkdir(exist_ok=True)
    for file in ("results.json", "cost.svg", "precision.svg"):
        if (folder / file).exists():
            shutil.copyfile(folder / file, target / file)
    page = BENCH / "README.md"
    before, mark, rest = page.read_text().partition("<!-- tables of peers/run -->\n")
    _, end, after = rest.partition("<!-- end of tables -->\n")
    if not mark or not end:
        raise ValueError(f"{page} has no place for the tables")
    page.write_text(before + mark + "\n" + (folder / "tables.md").read_text() + "\n" + end + after)


if __name__ == "__main__":
    sys.exit(main())
