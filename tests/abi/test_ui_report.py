"""The status report of a view: what it holds in every state, to the key."""

from __future__ import annotations

import math
import time

import pytest

from .harness import SNAPSHOT, STATISTICS, decode, single, types_of
from .view import View

PERFORMANCE_OF_NOTHING = {
    "batch_steps": 1,
    "milliseconds_per_step": 0.0,
    "simtime_per_s": 0.0,
    "steps_per_s": 0.0,
    "turnovers_per_s": 0.0,
}


def test_a_new_view_reports_its_defaults_and_no_flow(library):
    description = decode(library.initialize())
    with View(library) as view:
        report = view.get()
    assert report == {
        "allocated_bytes": 0,
        "backend": description["backend"],
        "color_range": "sigma",
        "config": description["defaults"],
        "display": "vorticity",
        "effective_reynolds": description["defaults"]["reynolds"],
        "elapsed_seconds": 0.0,
        "error_message": None,
        "exporting": False,
        "exposure": 1.2,
        "flow": False,
        "focused": False,
        "generation": 0,
        "gpu": description["gpu"],
        "history": [],
        "palette": "ember",
        "palinstrophy_control": 0.0,
        "performance": PERFORMANCE_OF_NOTHING,
        "presentations": 0,
        "ready": False,
        "regulated": True,
        "running": True,
        "settled": False,
        "sigma": 2.5,
    }


def test_a_paused_flow_reports_its_start(paused, make_engine):
    report = paused.get()
    start = make_engine(reynolds=report["config"]["reynolds"]).inspect()
    assert report["stats"] == start
    assert types_of(report["stats"]) == STATISTICS
    assert types_of(report["frame"]) == SNAPSHOT
    assert report["frame"]["sequence"] == 0 and report["frame"]["grid_size"] == 16
    assert report["generation"] == 1
    assert report["settled"] and not report["running"]
    assert report["history"] == [start["energy"]]
    assert report["palinstrophy_control"] == start["palinstrophy_ratio"] * 10000
    assert report["allocated_bytes"] == start["allocated_bytes"]
    assert report["performance"] == PERFORMANCE_OF_NOTHING
    assert report["elapsed_seconds"] == 0


def test_a_running_flow_reports_its_rates(make_view):
    view = make_view(fixed_dt=1e-4)
    view.call("start")
    report = view.wait(lambda now: now["performance"]["steps_per_s"] > 0)
    assert report["running"] and not report["settled"]
    performance = report["performance"]
    assert performance["milliseconds_per_step"] == 1000 / performance["steps_per_s"]
    assert performance["simtime_per_s"] > 0
    turnovers = performance["simtime_per_s"] / report["stats"]["initial_turnover_time"]
    assert performance["turnovers_per_s"] == turnovers
    assert 1 <= performance["batch_steps"] <= 32
    assert report["elapsed_seconds"] > 0
    assert report["error_message"] is None


def test_a_report_right_after_a_reset_holds_nothing_of_the_old_flow(paused):
    paused.call("step")
    paused.steps(1)
    report = paused.call("configure", resolution=512)
    assert report["generation"] == 2
    assert not report["ready"] and not report["settled"] and not report["running"]
    assert "stats" not in report and "frame" not in report
    assert report["history"] == [] and report["allocated_bytes"] == 0
    assert report["palinstrophy_control"] == 0
    assert report["effective_reynolds"] == report["config"]["reynolds"]
    report = paused.settled()
    assert report["frame"]["grid_size"] == 512 and report["stats"]["steps"] == 0


def test_a_lost_flow_reports_its_failure_and_its_last_figures(paused):
    paused.call("configure", fixed_dt=1e30, reynolds=1e30)
    paused.settled()
    paused.call("running", value=True)
    report = paused.wait(lambda now: now["error_message"])
    words = "The solver encountered a non-finite field or timestep."
    assert report["error_message"] == words
    report = paused.settled()
    assert not report["running"] and report["ready"]
    assert report["stats"]["steps"] == 0
    report = paused.call("running", value=True)
    assert report["running"] and report["error_message"] == words
    assert paused.call("dismiss")["error_message"] is None
    time.sleep(0.1)
    report = paused.get()
    assert report["running"] and report["stats"]["steps"] == 0
    report = paused.call("configure", fixed_dt=None)
    assert report["generation"] == 3 and report["running"]
    paused.steps(10)


# A flow that neither dies down nor leaves the regulator's limits in a few seconds.
SLOW = {"resolution": 64, "fixed_dt": 1e-4, "reynolds": 20000}


def test_the_effective_reynolds_number_follows_the_regulator_and_the_configuration_stays(make_view):
    view = make_view(**SLOW)
    configured = view.get()["config"]["reynolds"]
    view.call("start")
    report = view.wait(lambda now: len(now["history"]) >= 3)
    assert report["effective_reynolds"] != configured
    assert report["effective_reynolds"] == report["stats"]["reynolds"]
    assert report["config"]["reynolds"] == configured


def test_the_effective_reynolds_number_moves_by_a_sample_at_a_time(make_view):
    view = make_view(**SLOW)
    view.call("start")
    view.wait(lambda now: now["ready"])
    asked = time.monotonic()
    first = before = view.get()["effective_reynolds"]
    for _ in range(150):
        time.sleep(0.01)
        then, asked = asked, time.monotonic()
        now = view.get()["effective_reynolds"]
        samples = math.floor((time.monotonic() - then) / 0.25) + 1
        assert abs(math.log(now / before)) <= 0.01 * samples + 1e-9
        before = now
    assert before != first


def test_the_history_grows_by_a_sample_every_quarter_of_a_second(make_view):
    view = make_view(fixed_dt=1e-4)
    begin = time.monotonic()
    view.call("start")
    report = view.wait(lambda now: len(now["history"]) >= 5)
    seconds = time.monotonic() - begin
    assert seconds > 0.9
    assert report["history"][0] > report["history"][-1]
    assert report["history"][-1] == report["stats"]["energy"]


def test_the_configuration_has_the_usual_members(make_view):
    report = make_view(resolution=18, cfl=0.1, fixed_dt=0.25, seed=str(2**64 - 1)).get()
    config = report["config"]
    assert config["padded_resolution"] == 27
    assert config["cfl"] == single(0.1)
    assert config["fixed_dt"] == 0.25
    assert config["seed"] == "18446744073709551615"
    assert config["viscosity"] == single(1 / config["reynolds"])
    assert set(config) == {
        "cfl", "fixed_dt", "integrator", "k0", "operator", "padded_resolution", "resolution",
        "reynolds", "seed", "start_spectrum", "viscosity",
    }  # fmt: skip


@pytest.mark.parametrize("op", ["get", "flush"])
def test_reading_the_report_changes_nothing(paused, op):
    before = paused.get()
    assert paused.call(op) == before
    assert paused.call(op, value=1, resolution=3) == before
