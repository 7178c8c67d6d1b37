"""A view's configuration and settings: what "configure" and "set" change, cut and refuse."""

from __future__ import annotations

import math

import pytest

from .harness import single
from .words import BAD_CONFIGURATION, BAD_SEED, type_error

# configure


def test_configure_before_start_applies_to_the_flow(view):
    report = view.call("configure", resolution=18, k0=2)
    assert report["generation"] == 0 and report["config"]["resolution"] == 18
    view.call("start")
    assert view.wait(lambda now: now["ready"])["frame"]["grid_size"] == 18


def test_configure_with_the_current_values_changes_nothing(paused):
    before = paused.get()
    assert paused.call("configure") == before
    assert paused.call("configure", **before["config"]) == before
    assert paused.call("configure", **dict.fromkeys(before["config"])) == before


def test_configure_with_anything_else_is_a_new_flow(paused):
    changes = [
        {"resolution": 18},
        {"k0": 3},
        {"seed": "9"},
        {"reynolds": 777},
        {"cfl": 1},
        {"fixed_dt": 0.01},
        {"fixed_dt": None},
        {"integrator": "imexRK3"},
        {"operator": "advective"},
        {"start_spectrum": "KM3"},
    ]
    for generation, change in enumerate(changes, start=2):
        report = paused.call("configure", **change)
        assert report["generation"] == generation
        ((key, value),) = change.items()
        assert report["config"][key] == (single(value) if key == "fixed_dt" and value else value)
        assert paused.settled()["ready"]


@pytest.mark.parametrize(
    "change, words",
    [
        ({"resolution": 17}, BAD_CONFIGURATION),
        ({"reynolds": -5}, BAD_CONFIGURATION),
        ({"k0": 1000001}, "Initial wavenumber is too large."),
        ({"seed": "-1"}, BAD_SEED),
        ({"seed": "18446744073709551616"}, "stoull argument out of range"),
        ({"fixed_dt": 0}, "Fixed timestep must be positive."),
        ({"integrator": "RK4"}, "Unknown integrator: RK4"),
        ({"reynolds": "1"}, type_error("number", "string")),
        ({"cap_cfl": None}, type_error("boolean", "null")),
        ({"cap_cfl": 1, "integrator": "imexRK3"}, type_error("boolean", "number")),
    ],
)
def test_configure_with_something_wrong_changes_nothing(paused, change, words):
    before = paused.get()
    assert paused.refusal({"op": "configure", "cfl": 0.5, **change}) == words
    assert paused.get() == before


def test_a_new_grid_brings_its_own_reynolds_number(paused):
    def usual(resolution, k0):
        exponent = 1.06624 * math.log10(resolution) - 0.083911 * math.log10(k0) + 1.286396
        return pytest.approx(10**exponent, rel=1e-14)

    paused.call("set", regulated=True)
    assert paused.call("configure", resolution=18)["config"]["reynolds"] == usual(18, 4)
    assert paused.call("configure", k0=2)["config"]["reynolds"] == usual(18, 2)
    # The regulator would leave another number anyway.
    report = paused.call("configure", resolution=20, reynolds=4000)
    assert report["config"]["reynolds"] == usual(20, 2)
    paused.call("set", regulated=False)
    report = paused.call("configure", resolution=22, reynolds=4000)
    assert report["config"]["reynolds"] == 4000
    report = paused.call("configure", resolution=24, reynolds=4000)
    assert report["config"]["reynolds"] == usual(24, 2)
    report = paused.call("configure", reynolds=5000)
    assert report["config"]["reynolds"] == 5000


@pytest.mark.parametrize("started", [False, True])
def test_capping_the_cfl_is_for_a_change_to_another_method(view, started):
    if started:
        view.call("start")

    def cfl(**members):
        return view.call("configure", cap_cfl=True, **members)["config"]["cfl"]

    assert cfl(cfl=2.5) == 2.5
    assert cfl(integrator="etdrk4", cfl=3) == 3
    assert cfl(integrator="imexRK3", cfl=3) == 1.5
    assert cfl(integrator="imexRK3", cfl=3) == 3
    assert cfl(integrator="ifHeunRK3") == 1.5
    assert cfl(integrator="imexRK3", cfl=0.75) == 0.75
    assert cfl(integrator="etdrk4", cfl=3) == 3
    report = view.call("configure", integrator="imexRK3", cap_cfl=False)
    assert report["config"]["cfl"] == 3


# set


def test_an_empty_set_changes_nothing(paused):
    before = paused.get()
    assert paused.call("set") == before
    nulls = dict.fromkeys(
        ["regulated", "cfl", "log_reynolds", "display", "palette", "color_range", "exposure",
         "sigma", "flow", "focused"]
    )  # fmt: skip
    assert paused.call("set", **nulls) == before


@pytest.mark.parametrize("started", [False, True])
@pytest.mark.parametrize(
    "given, kept", [(5, 3.0), (3, 3.0), (1.7, single(1.7)), (0.5, 1.0), (-1e300, 1.0)]
)
def test_a_live_cfl_is_clamped(view, started, given, kept):
    if started:
        view.call("start")
    report = view.call("set", cfl=given)
    assert report["config"]["cfl"] == kept
    assert report["generation"] == (1 if started else 0)


@pytest.mark.parametrize(
    "given, kept", [(7, 1e6), (6, 1e6), (3.5, 10**3.5), (2, 1000.0), (-1e300, 1000.0)]
)
def test_a_live_reynolds_number_is_clamped_and_shows_at_once(paused, given, kept):
    report = paused.call("set", log_reynolds=given)
    assert report["effective_reynolds"] == pytest.approx(kept, rel=1e-15)
    assert report["config"]["reynolds"] == report["effective_reynolds"]
    assert report["stats"]["reynolds"] == report["effective_reynolds"]
    assert report["generation"] == 1


def test_a_live_reynolds_number_is_ignored_while_regulated(view):
    view.call("running", value=False)
    before = view.get()["config"]["reynolds"]
    assert view.call("set", log_reynolds=5)["config"]["reynolds"] == before
    view.call("start")
    report = view.settled()
    after = view.call("set", log_reynolds=5, cfl=2)
    assert after["effective_reynolds"] == report["effective_reynolds"]
    assert after["config"]["reynolds"] == before
    assert after["config"]["cfl"] == 2


def test_a_reynolds_number_applies_if_the_same_request_switches_regulation_off(view):
    assert view.call("set", regulated=False, log_reynolds=4)["config"]["reynolds"] == 10000
    assert view.call("set", regulated=True, log_reynolds=5)["config"]["reynolds"] == 10000


def test_switching_regulation_off_holds_the_number_reached(view):
    view.call("running", value=False)
    view.call("start")
    reached = view.settled()["effective_reynolds"]
    configured = view.get()["config"]["reynolds"]
    assert reached != configured
    report = view.call("set", regulated=False)
    assert not report["regulated"]
    assert report["config"]["reynolds"] == report["effective_reynolds"] == reached


def test_live_numbers_apply_to_a_later_start(view, make_engine):
    view.call("set", regulated=False, log_reynolds=3.5, cfl=1.5)
    view.call("running", value=False)
    view.call("start")
    report = view.settled()
    start = make_engine(reynolds=report["config"]["reynolds"], cfl=1.5).inspect()
    assert report["stats"] == start


def test_live_numbers_hold_for_the_next_flow_too(paused):
    paused.call("set", log_reynolds=3.5, cfl=1.5)
    report = paused.call("reset")
    assert report["config"]["cfl"] == 1.5
    assert report["config"]["reynolds"] == pytest.approx(10**3.5)


@pytest.mark.parametrize(
    "key, given, kept",
    [
        ("exposure", 10, 3.0),
        ("exposure", 0, 0.25),
        ("exposure", 1.3, 1.3),
        ("sigma", 9, 3.5),
        ("sigma", 1, 1.5),
        ("sigma", 2.2, 2.2),
        ("display", "speed", "speed"),
        ("display", "enstrophy", "enstrophy"),
        ("palette", "aurora", "aurora"),
        ("palette", "glacier", "glacier"),
        ("palette", "inferno", "inferno"),
        ("color_range", "exposure", "exposure"),
        ("flow", True, True),
        ("focused", True, True),
        ("regulated", False, False),
    ],
)
def test_what_is_set_is_reported(view, key, given, kept):
    assert view.call("set", **{key: given})[key] == kept
    view.call("start")
    assert view.get()[key] == kept


@pytest.mark.parametrize(
    "members, words",
    [
        ({"regulated": 1}, type_error("boolean", "number")),
        ({"cfl": "1"}, type_error("number", "string")),
        ({"cfl": True}, type_error("number", "boolean")),
        ({"log_reynolds": []}, type_error("number", "array")),
        ({"display": "Speed"}, "Unknown display: Speed"),
        ({"display": 1}, type_error("string", "number")),
        ({"palette": "none"}, "Unknown palette: none"),
        ({"color_range": ""}, "Unknown color_range: "),
        ({"exposure": "1"}, type_error("number", "string")),
        ({"sigma": {}}, type_error("number", "object")),
        ({"flow": 0}, type_error("boolean", "number")),
        ({"focused": "yes"}, type_error("boolean", "string")),
    ],
)
def test_what_is_set_wrongly_is_refused(paused, members, words):
    before = paused.get()
    assert paused.refusal({"op": "set", **members}) == words
    assert paused.get() == before


@pytest.mark.parametrize("key", ["cfl", "log_reynolds", "exposure", "sigma"])
@pytest.mark.parametrize("number", ["1e999", "-1e999"])
def test_a_number_beyond_the_range_of_floats_is_refused(view, key, number):
    words = view.refusal(f'{{"op":"set","{key}":{number}}}')
    assert words.startswith("[json.exception.out_of_range.406] number overflow parsing ")


def test_a_setting_that_is_refused_leaves_those_before_it(paused):
    paused.refusal({"op": "set", "cfl": 1.25, "regulated": True, "display": "none"})
    report = paused.get()
    assert report["regulated"] and report["config"]["cfl"] == 1.25


def test_a_picture_that_needs_the_velocity_gets_it(paused):
    assert paused.get()["frame"]["max_speed"] == 0
    paused.call("set", display="speed")
    paused.wait(lambda now: now["frame"]["max_speed"] > 0)
    paused.call("set", display="vorticity")
    paused.wait(lambda now: now["frame"]["max_speed"] == 0)
    paused.call("set", flow=True)
    paused.wait(lambda now: now["frame"]["max_speed"] > 0)
