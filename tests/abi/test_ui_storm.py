"""Operations of all kinds in random order, with every report checked.

Lasts for ZEPHANE_STORM_SECONDS, which the sanitizers raise.
"""

from __future__ import annotations

import math
import os
import random
import time

from .harness import Refused
from .view import View

SECONDS = float(os.environ.get("ZEPHANE_STORM_SECONDS", "4"))


class Storm:
    def __init__(self, seed: int, folder: str) -> None:
        self.source = random.Random(seed)
        self.folder = folder

    def request(self) -> dict:
        make = self.source.choices(
            [self.simple, self.switch, self.configure, self.set, self.benchmark, self.wrong],
            [10, 4, 2, 3, 1, 1],
        )[0]
        return make()

    def chance(self, share: float) -> bool:
        return self.source.random() < share

    def some(self, members: dict) -> dict:
        return {key: value for key, value in members.items() if self.chance(0.3)}

    def simple(self) -> dict:
        names = ["get", "get", "flush", "start", "toggle", "step", "step", "reset", "seed"]
        return {"op": self.source.choice([*names, "dismiss"])}

    def switch(self) -> dict:
        return {"op": self.source.choice(["running", "visible"]), "value": self.chance(0.7)}

    def configure(self) -> dict:
        choice = self.source.choice
        members = {
            "resolution": choice([16, 18, 24, 32, 17]),
            "k0": choice([1, 2, 3, 4, 0]),
            "integrator": choice(["etdrk4", "imexRK3", "ifHeunRK3", "RK4"]),
            "operator": choice(["stress", "advective"]),
            "start_spectrum": choice(["PAO", "KM3"]),
            "reynolds": self.source.uniform(1000, 100000),
            "cap_cfl": self.chance(0.5),
            "seed": self.source.randrange(2**64),
        }
        # A step that makes the flow overflow, and the recovery.
        return {"op": "configure", "fixed_dt": 1e30 if self.chance(0.1) else None,
                **self.some(members)}  # fmt: skip

    def set(self) -> dict:
        choice = self.source.choice
        members = {
            "regulated": self.chance(0.8),
            "cfl": self.source.uniform(0.5, 4),
            "log_reynolds": self.source.uniform(3, 5),
            "display": choice(["vorticity", "speed", "enstrophy", "none"]),
            "palette": choice(["aurora", "ember", "glacier", "inferno"]),
            "flow": self.chance(0.5),
            "sigma": self.source.uniform(0, 5),
            "focused": self.chance(0.5),
        }
        return {"op": "set", **self.some(members)}

    def benchmark(self) -> dict:
        nothing = dict.fromkeys(["until", "wall_seconds", "batch", "initial", "spectrum"])
        members = {
            "until": self.source.uniform(-0.1, 5),
            "wall_seconds": self.source.uniform(0, 0.1),
            "batch": self.source.randint(0, 33),
            "initial": os.path.join(self.folder, "none"),
            "spectrum": os.path.join(self.folder, self.source.choice(["spectrum", "no/spectrum"])),
        }
        return {"op": "benchmark", **nothing, **self.some(members)}

    def wrong(self) -> dict:
        return self.source.choice(
            [{"op": "export"}, {"op": "none"}, {}, {"op": 3}, {"op": "running", "value": "yes"}]
        )


# The regulator looks at a flow every quarter of a second, and once more at its start, wherever it
# stops, be it at a limit, and after each single step. A step stops what runs before.
SAMPLES_OF_A_START = 2.0
SAMPLES_OF = {"running": 1.0, "toggle": 1.0, "step": 2.0}


class Watch:
    """Compares each report with the previous one."""

    def __init__(self, report: dict) -> None:
        self.last = report
        self.maybe_lost = False
        self.disturbed = False  # Something but the regulator has moved the Reynolds number.
        self.woken = False  # A settled flow has been woken, and its report still says settled.
        self.moved = 0.0
        self.samples = SAMPLES_OF_A_START

    def see(self, request: dict, report: dict, seconds: float) -> None:
        """``seconds`` have gone by at most since what was last reported."""
        op, last = request.get("op"), self.last
        self.sound(report)
        assert report["generation"] - last["generation"] in (0, 1)
        if report["generation"] == last["generation"]:
            self.forwards(report)
            self.samples += seconds / 0.25 + SAMPLES_OF.get(op, 0)
            self.reynolds(op, report)
        else:
            self.maybe_lost = self.disturbed = self.woken = False
            self.moved, self.samples = 0.0, SAMPLES_OF_A_START
        self.maybe_lost |= report["error_message"] is not None or op == "dismiss"
        assert not (report["running"] and report["settled"]) or self.maybe_lost
        self.rest(op, report)
        self.last = {**report, "op": op}

    def rest(self, op: str | None, report: dict) -> None:
        """A settled flow stays as it is from one "get" to the next.

        The simulation thread wakes for "visible" and "set", but these leave the report settled: the
        first frame, or the Reynolds number that the regulator continues from, comes a little later.
        A failure settles the flow just before its last figures are published.
        """
        if op in ("visible", "set"):
            self.woken = True
        elif op in ("running", "toggle", "step"):
            self.woken = False
        both = report["settled"] and self.last["settled"]
        if op == self.last.get("op") == "get" and both and not (self.woken or self.maybe_lost):
            assert report.get("stats") == self.last.get("stats")

    def sound(self, report: dict) -> None:
        if report["ready"]:
            assert report["frame"]["grid_size"] == report["config"]["resolution"]
            assert report["frame"]["sequence"] <= report["stats"]["steps"]
            assert report["stats"]["is_finite"] and report["history"]
        if not report["history"]:
            assert report["allocated_bytes"] == 0 or report["error_message"]
            assert report["elapsed_seconds"] == 0
        assert 1 <= report["performance"]["batch_steps"] <= 32
        assert all(math.isfinite(value) for value in report["performance"].values())

    def forwards(self, report: dict) -> None:
        last = self.last
        assert report["ready"] >= last["ready"]
        assert report["elapsed_seconds"] >= last["elapsed_seconds"]
        if last["ready"]:
            assert report["stats"]["steps"] >= last["stats"]["steps"]
            assert report["stats"]["simulation_time"] >= last["stats"]["simulation_time"]
            assert report["frame"]["sequence"] >= last["frame"]["sequence"]

    def reynolds(self, op: str | None, report: dict) -> None:
        """The regulator moves the number by a hundredth at most with each of its samples."""
        if op == "set":
            self.disturbed = True
        both = report["ready"] and self.last["ready"]
        if both and report["regulated"] and not self.disturbed:
            change = math.log(report["effective_reynolds"] / self.last["effective_reynolds"])
            self.moved += abs(change)
            assert self.moved <= 0.01 * self.samples + 1e-9


def test_a_storm_of_operations_keeps_every_report_consistent(library, tmp_path):
    seed = random.randrange(2**32)
    print("seed", seed)
    storm = Storm(seed, str(tmp_path))
    with View(library) as view:
        view.call("configure", resolution=16)
        asked = time.monotonic()
        watch = Watch(view.get())
        end = asked + SECONDS
        while asked < end:
            request = storm.request()
            print(request)
            before, asked = asked, time.monotonic()
            try:
                report = view.ask(request)
            except Refused as refused:
                assert refused.text
                # The members before the refused one take effect.
                report = view.get()
            watch.see(request, report, time.monotonic() - before)
            if storm.chance(0.4):
                time.sleep(storm.source.choice([0.0005, 0.002, 0.005, 0.05]))
        # Afterwards the view still works.
        limits = dict.fromkeys(["until", "wall_seconds", "batch", "initial", "spectrum"])
        view.call("benchmark", **limits)
        view.call("configure", resolution=20, fixed_dt=None, cfl=1)
        view.call("visible")
        view.call("start")
        view.call("reset")
        view.call("running", value=True)
        assert view.steps(20)["ready"]
