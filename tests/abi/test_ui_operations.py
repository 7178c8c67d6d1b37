"""The operations of a view, one after another, before and after its flow is started."""

from __future__ import annotations

import pytest

from .words import NO_FRAME, NO_RENDERER, UNKNOWN_UI_OPERATION, type_error

# The operations that are valid at any time: all but those that need a file.
PLAIN = ["get", "flush", "start", "toggle", "running", "step", "reset", "seed", "visible",
         "dismiss", "configure", "set", "benchmark"]  # fmt: skip


@pytest.mark.parametrize("op", PLAIN)
def test_every_operation_is_answered_with_the_report(make_view, op):
    view = make_view()
    for _ in range(2):
        view.call(op)
    view.call("start")
    for _ in range(2):
        view.call(op)


@pytest.mark.parametrize(
    "request_text",
    [{}, {"op": ""}, {"op": "GET"}, {"op": "get "}, {"op": "inspect"}, {"op": "status"}],
)
def test_any_other_operation_is_unknown(view, request_text):
    assert view.refusal(request_text) == UNKNOWN_UI_OPERATION


@pytest.mark.parametrize(
    "value, kind",
    [(None, "null"), (1, "number"), (True, "boolean"), ([], "array"), ({}, "object")],
)
def test_an_operation_is_a_string(view, value, kind):
    assert view.refusal({"op": value}) == type_error("string", kind)


# start, toggle, running, step


def test_start_makes_the_flow_once(view):
    assert view.call("start")["generation"] == 1
    assert view.call("start")["generation"] == 1
    view.steps(10)


def test_toggle_before_start_makes_a_paused_flow(view):
    assert view.get()["running"]
    assert not view.call("toggle")["running"]
    view.call("start")
    report = view.settled()
    assert not report["running"] and report["stats"]["steps"] == 0
    assert view.call("toggle")["running"]
    view.steps(10)


def test_toggling_twice_changes_nothing(view):
    view.call("toggle")
    assert view.call("toggle")["running"]
    assert view.get()["generation"] == 0


@pytest.mark.parametrize("value", [True, False])
def test_running_set_before_start_applies_to_the_flow(view, value):
    assert view.call("running", value=value)["running"] is value
    assert view.call("start")["running"] is value


def test_running_without_a_value_pauses(view):
    view.call("start")
    assert not view.call("running")["running"]
    view.settled()


@pytest.mark.parametrize("op", ["running", "visible"])
@pytest.mark.parametrize("value, kind", [(None, "null"), (0, "number"), ("true", "string")])
def test_a_value_of_another_type_is_refused_and_changes_nothing(paused, op, value, kind):
    before = paused.get()
    assert paused.refusal({"op": op, "value": value}) == type_error("boolean", kind)
    assert paused.get() == before


def test_step_before_start_pauses(view):
    assert not view.call("step")["running"]
    view.call("start")
    assert view.settled()["stats"]["steps"] == 0


def test_step_takes_one_step_each(paused, make_engine):
    for count in range(1, 4):
        report = paused.call("step")
        assert not report["running"]
        report = paused.wait(lambda now: now["settled"] and now["stats"]["steps"] == count)
        assert report["frame"]["sequence"] == count
    engine = make_engine(reynolds=report["config"]["reynolds"])
    engine.advance(steps=3)
    assert report["stats"]["energy"] == engine.inspect()["energy"]
    assert report["elapsed_seconds"] == 0


def test_step_pauses_a_running_flow(view):
    view.call("start")
    view.steps(10)
    assert not view.call("step")["running"]
    steps = view.settled()["stats"]["steps"]
    assert view.settled()["stats"]["steps"] == steps


# reset, seed


def test_reset_before_start_does_nothing(view):
    assert view.call("reset")["generation"] == 0


def test_reset_is_a_new_flow_each_time(paused):
    start = paused.get()["stats"]
    paused.call("step")
    paused.steps(1)
    for generation in (2, 3):
        report = paused.call("reset")
        assert report["generation"] == generation and not report["running"]
        report = paused.settled()
        assert {**report["stats"], "gpu_milliseconds": 0.0} == start


def test_reset_of_a_running_flow_runs_on(view):
    view.call("start")
    view.steps(100)
    assert view.call("reset")["running"]
    view.steps(100)


def test_seed_is_the_next_one_and_a_new_flow(paused):
    assert paused.call("seed")["config"]["seed"] == "3"
    report = paused.call("seed")
    assert report["config"]["seed"] == "4" and report["generation"] == 3
    first = paused.settled()["stats"]["enstrophy"]
    paused.call("seed")
    assert paused.settled()["stats"]["enstrophy"] != first


def test_a_seed_before_start_applies_to_the_flow(view, make_engine):
    assert view.call("seed")["generation"] == 0
    view.call("running", value=False)
    view.call("start")
    report = view.settled()
    assert report["config"]["seed"] == "3"
    start = make_engine(seed=3).inspect()
    assert report["stats"]["enstrophy"] == start["enstrophy"]


def test_the_seed_after_the_last_is_the_first(make_view):
    assert make_view(seed=str(2**64 - 1)).call("seed")["config"]["seed"] == "0"


# visible, dismiss


def test_a_view_started_hidden_makes_no_frame_once_it_is_known(view):
    view.call("visible", value=False)
    view.call("running", value=False)
    view.call("start")
    view.settled()
    view.call("reset")
    report = view.settled()
    assert not report["ready"] and "frame" not in report
    assert len(report["history"]) == 1
    assert view.call("visible")["generation"] == 2
    view.wait(lambda now: now["ready"])


def test_dismiss_without_an_error_does_nothing(paused):
    before = paused.get()
    assert paused.call("dismiss") == before


# export, save


@pytest.mark.parametrize("members", [{}, {"png": "x"}, {"fields": "x"}, {"png": 1}])
def test_export_needs_a_frame_and_then_a_renderer(view, members):
    assert view.refusal({"op": "export", **members}) == NO_FRAME
    view.call("start")
    view.wait(lambda now: now["ready"])
    assert view.refusal({"op": "export", **members}) == NO_RENDERER
    assert view.get()["error_message"] is None


def test_export_after_a_reset_waits_for_the_new_frame(paused):
    paused.call("configure", resolution=256)
    assert paused.refusal({"op": "export"}) in (NO_FRAME, NO_RENDERER)
    paused.settled()
    assert paused.refusal({"op": "export"}) == NO_RENDERER
