"""Measured runs of a view: the limits that "benchmark" sets, and what they end."""

from __future__ import annotations

import os
import time
from array import array

import pytest

from .fresh_process import in_fresh_process
from .harness import Library
from .view import View
from .words import BAD_LIMITS, BAD_SIZE, UNWRITABLE, type_error

STEP = 2.0**-7


@pytest.fixture
def steady(make_view) -> View:
    """A paused view of a flow whose step count follows from its time."""
    view = make_view(fixed_dt=STEP)
    view.call("running", value=False)
    view.call("set", regulated=False)
    view.call("start")
    view.settled()
    return view


def run(view: View) -> dict:
    """The report of a run that its limits have ended."""
    view.call("reset")
    view.call("running", value=True)
    return view.settled()


def test_a_run_ends_at_its_time(steady):
    steady.call("benchmark", until=1)
    report = run(steady)
    assert report["stats"]["steps"] == 128
    assert report["stats"]["simulation_time"] == pytest.approx(1, rel=1e-14)
    assert not report["running"] and report["error_message"] is None


def test_a_run_ends_after_its_wall_time(steady):
    steady.call("benchmark", wall_seconds=0.3)
    begin = time.monotonic()
    report = run(steady)
    assert time.monotonic() - begin > 0.3
    assert report["elapsed_seconds"] >= 0.3
    assert report["performance"]["steps_per_s"] > 0
    # Once more, from the beginning of its clock.
    assert run(steady)["elapsed_seconds"] >= 0.3


def test_a_run_without_limits_goes_on(steady):
    steady.call("benchmark", until=0.5, wall_seconds=0.1)
    steady.call("benchmark", until=None, wall_seconds=None)
    steady.call("reset")
    steady.call("running", value=True)
    steady.steps(200)
    time.sleep(0.15)
    assert steady.get()["running"]


def test_a_run_of_no_time_ends_at_once(steady):
    steady.call("benchmark", until=0)
    assert run(steady)["stats"]["steps"] == 0


def test_limits_hold_from_the_next_flow_on(steady):
    steady.call("running", value=True)
    steady.call("benchmark", until=0.5)
    steady.steps(500)
    steady.call("running", value=False)
    assert run(steady)["stats"]["steps"] == 64


def test_limits_before_start_hold_for_the_first_flow(make_view):
    view = make_view(fixed_dt=STEP)
    view.call("benchmark", until=0.5)
    view.call("start")
    assert view.settled()["stats"]["steps"] == 64


def test_a_finished_run_can_go_on_only_without_its_limit(steady):
    steady.call("benchmark", until=0.5)
    run(steady)
    steady.call("running", value=True)
    assert steady.settled()["stats"]["steps"] == 64
    steady.call("step")
    time.sleep(0.1)
    report = steady.get()
    assert report["stats"]["steps"] == 64 and not report["running"]
    steady.call("running", value=True)
    assert steady.settled()["stats"]["steps"] == 65


def test_fixed_batches_do_not_change_the_pace(steady):
    steady.call("benchmark", batch=3, until=2)
    report = run(steady)
    assert report["stats"]["steps"] == 256
    assert 1 <= report["performance"]["batch_steps"] <= 32


@pytest.mark.parametrize("batch", [1, 32, True, 4.9, None])
def test_a_batch_of_one_to_thirty_two_is_accepted(steady, batch):
    steady.call("benchmark", batch=batch, until=0.125)
    assert run(steady)["stats"]["steps"] == 16


@pytest.mark.parametrize(
    "members, words",
    [
        ({"batch": 0}, BAD_LIMITS),
        ({"batch": 33}, BAD_LIMITS),
        ({"batch": -1}, BAD_LIMITS),
        ({"batch": False}, BAD_LIMITS),
        ({"batch": 2**32}, BAD_LIMITS),
        ({"batch": 1e300}, BAD_LIMITS),
        ({"batch": "8"}, type_error("number", "string")),
        ({"wall_seconds": -1}, BAD_LIMITS),
        ({"wall_seconds": True}, type_error("number", "boolean")),
        ({"until": -1}, BAD_LIMITS),
        ({"until": -5e-324}, BAD_LIMITS),
        ({"until": "1"}, type_error("number", "string")),
        ({"initial": 1}, type_error("string", "number")),
        ({"spectrum": []}, type_error("string", "array")),
        # The numbers come before the paths.
        ({"batch": 0, "initial": 1}, BAD_LIMITS),
        ({"until": "1", "batch": 0}, type_error("number", "string")),
    ],
)
def test_bad_limits_are_refused_and_change_nothing(steady, members, words):
    assert steady.refusal({"op": "benchmark", "until": 0.25, **members}) == words
    steady.call("reset")
    steady.call("running", value=True)
    steady.steps(200)


@pytest.mark.parametrize("until", [0, -0.0, 1e300, None])
def test_an_end_that_is_not_below_zero_is_accepted(view, until):
    view.call("benchmark", until=until)


def test_an_end_beyond_the_clock_fails_the_flow(steady):
    steady.call("benchmark", until=1e39)
    steady.call("reset")
    steady.call("running", value=True)
    report = steady.settled()
    assert report["error_message"] == "Invalid steps or endpoint."
    steady.call("benchmark", until=None)
    assert steady.call("reset")["error_message"] is None
    assert steady.settled()["ready"]


def test_a_finished_run_writes_its_spectrum(steady, make_engine, tmp_path):
    path = tmp_path / "Spektrum µ"
    steady.call("benchmark", until=0.5, spectrum=str(path))
    report = run(steady)
    engine = make_engine(fixed_dt=STEP, reynolds=report["config"]["reynolds"])
    engine.advance(steps=1000, until=0.5)
    assert path.read_bytes() == engine.spectrum()
    path.unlink()
    steady.call("benchmark", spectrum=None)
    run(steady)
    assert not path.exists()


def test_a_spectrum_that_cannot_be_written_fails_the_run(steady, tmp_path):
    steady.call("benchmark", until=0.5, spectrum=str(tmp_path))
    report = run(steady)
    assert report["error_message"] == UNWRITABLE
    assert not report["running"] and report["ready"]
    steady.call("benchmark", spectrum="")
    assert run(steady)["error_message"] is None


def test_a_run_begins_from_its_file(steady, make_engine, tmp_path):
    path = tmp_path / "start"
    path.write_bytes(array("f", [0.5]).tobytes() * 255)
    steady.call("benchmark", initial=str(path))
    steady.call("reset")
    report = steady.settled()
    assert report["error_message"] == BAD_SIZE
    assert not report["ready"] and not report["running"] and report["generation"] == 2
    assert report["effective_reynolds"] == report["config"]["reynolds"]

    path.write_bytes(array("f", [float(k % 7) for k in range(256)]).tobytes())
    time.sleep(0.05)
    assert steady.get()["error_message"] == BAD_SIZE
    steady.call("reset")
    report = steady.settled()
    assert report["error_message"] is None
    start = make_engine(fixed_dt=STEP, initial=str(path)).inspect()
    assert report["stats"]["enstrophy"] == start["enstrophy"]

    steady.call("benchmark", initial="x\0y")
    steady.call("reset")
    assert steady.settled()["error_message"].startswith("file_size")
    steady.call("benchmark", initial=None)
    steady.call("reset")
    assert steady.settled()["error_message"] is None


def too_large_a_grid(library: Library):
    import resource

    library.initialize()
    with View(library) as view:
        view.call("configure", resolution=16)
        view.call("running", value=False)
        view.call("start")
        view.settled()
        with open("/proc/self/statm") as file:
            used = int(file.read().split()[0]) * os.sysconf("SC_PAGE_SIZE")
        limits = resource.getrlimit(resource.RLIMIT_AS)
        resource.setrlimit(resource.RLIMIT_AS, (used + (1 << 30), limits[1]))
        view.call("configure", resolution=16384)
        lost = view.settled()
        view.call("set", cfl=1, regulated=False)
        view.call("step")
        view.call("visible", value=False)
        view.call("visible")
        view.call("configure", resolution=32)
        found = view.settled()
    return [lost["error_message"], lost["ready"], found["error_message"], found["ready"]]


def test_a_grid_that_does_not_fit_is_followed_by_one_that_does(library_path, library, sanitized):
    if sanitized:
        pytest.skip("the sanitizers take the address space")
    with View(library) as view:
        if not view.get()["backend"].startswith("CPU"):
            pytest.skip("the memory of a GPU has no such limit")
    answer = in_fresh_process(library_path, too_large_a_grid)
    assert answer == ["cudaMalloc(&ptr,bytes): out of memory", False, None, True]
