"""The operations of an engine: their names, arguments, defaults, replies and order."""

from __future__ import annotations

import pytest

from .harness import STATISTICS, single, types_of
from .words import BAD_ADVANCE, BAD_CFL, BAD_REYNOLDS, UNKNOWN_OPERATION, type_error

NEVER_NUMBERS = [
    ("null", "null"),
    ('"1"', "string"),
    ("[]", "array"),
    ("{}", "object"),
]


# The name of the operation


@pytest.mark.parametrize(
    "text",
    [
        "{}",
        '{"steps":1}',
        '{"op":""}',
        '{"op":"Inspect"}',
        '{"op":"INSPECT"}',
        '{"op":" inspect"}',
        '{"op":"inspect "}',
        '{"op":"inspect\\u0000"}',
        '{"op":"inspec"}',
        '{"op":"inspects"}',
        '{"op":"start"}',
        '{"op":"status"}',
        '{"OP":"inspect"}',
        '{"op":"渦"}',
    ],
)
def test_an_unknown_operation_is_refused(engine, text):
    assert engine.refusal(text) == UNKNOWN_OPERATION


@pytest.mark.parametrize(
    ("value", "name"),
    [
        ("null", "null"),
        ("1", "number"),
        ("1.5", "number"),
        ("true", "boolean"),
        ('["inspect"]', "array"),
        ('{"op":"inspect"}', "object"),
    ],
)
def test_an_operation_that_is_not_a_string_is_refused(engine, value, name):
    assert engine.refusal(f'{{"op":{value}}}') == type_error("string", name)


@pytest.mark.parametrize("op", ["inspect", "advance", "set", "reset", "export"])
def test_members_that_an_operation_does_not_know_are_ignored(engine, op):
    assert "error" not in engine.call({"op": op, "why": None, "palette": 3, "pixel_size": "x"})


# inspect


def test_inspect_replies_with_the_statistics_report(engine):
    assert types_of(engine.inspect()) == STATISTICS


def test_two_inspections_without_a_step_between_are_identical(engine):
    engine.advance(steps=3)
    assert engine.raw({"op": "inspect"}) == engine.raw({"op": "inspect"})


# advance


def test_advance_replies_with_the_statistics_report(engine):
    assert types_of(engine.advance()) == STATISTICS


def test_advance_makes_one_step_by_default(engine):
    report = engine.advance()
    assert report["steps"] == 1
    assert report["simulation_time"] == report["dt"] > 0


def test_advance_by_no_steps_replies_with_the_current_record(engine):
    engine.advance(steps=2)
    current = engine.raw({"op": "inspect"})
    assert engine.raw({"op": "advance", "steps": 0}) == current


@pytest.mark.parametrize("count", [1, 2, 255, 256, 257, 300, 512, 513])
def test_advance_takes_the_requested_number_of_steps(make_engine, count):
    engine = make_engine(fixed_dt=0.001)
    report = engine.advance(steps=count)
    assert report["steps"] == count
    assert report["simulation_time"] == pytest.approx(count * single(0.001), rel=1e-12)
    assert report["gpu_milliseconds"] > 0


def test_a_long_advance_equals_short_ones(make_engine):
    long, short = make_engine(), make_engine()
    long.advance(steps=300)
    for count in (1, 0, 43, 256):
        short.advance(steps=count)
    assert long.spectrum() == short.spectrum()


@pytest.mark.parametrize("op", ["inspect", "export"])
def test_reading_a_flow_does_not_change_it(make_engine, op):
    watched, alone = make_engine(), make_engine()
    for _ in range(5):
        watched.advance()
        watched.call({"op": op, "snapshot": True})
    alone.advance(steps=5)
    assert watched.spectrum() == alone.spectrum()


def test_advance_keeps_the_figures_of_the_last_inspection(engine):
    kept = ("energy", "enstrophy", "palinstrophy", "palinstrophy_ratio")
    start = engine.inspect()
    later = engine.advance(steps=20)
    assert [later[key] for key in kept] == [start[key] for key in kept]
    fresh = engine.inspect()
    assert fresh["energy"] < start["energy"]
    assert fresh["enstrophy"] != start["enstrophy"]
    assert [engine.advance()[key] for key in kept] == [fresh[key] for key in kept]


@pytest.mark.parametrize(
    ("value", "count"),
    [
        ("2.999", 2),
        ("-0.999", 0),
        ("-0.0", 0),
        ("5e-324", 0),
        ("3e0", 3),
        ("true", 1),
        ("false", 0),
        ("4294967298", 2),
        ("-4294967295", 1),
        ("9223372032559808514", 2),
    ],
)
def test_steps_are_truncated_to_a_32_bit_integer(make_engine, value, count):
    engine = make_engine(fixed_dt=0.001)
    assert engine.call(f'{{"op":"advance","steps":{value}}}')["steps"] == count


@pytest.mark.parametrize(
    "value",
    [
        "-1",
        "-1.5",
        "3000000000",
        "2147483648",
        "-2147483648",
        "4294967295",
        "9223372036854775807",
        "18446744073709551615",
        "18446744073709551616",
        "1e10",
        "-1e10",
        "1e300",
        "-1.7976931348623157e308",
    ],
)
def test_steps_that_are_negative_after_conversion_are_refused(engine, value):
    assert engine.refusal(f'{{"op":"advance","steps":{value}}}') == BAD_ADVANCE


@pytest.mark.parametrize(("value", "name"), NEVER_NUMBERS)
def test_steps_that_are_not_a_number_are_refused(engine, value, name):
    text = f'{{"op":"advance","steps":{value}}}'
    assert engine.refusal(text) == type_error("number", name)


@pytest.mark.parametrize(("value", "name"), [("true", "boolean"), *NEVER_NUMBERS[1:]])
def test_an_endpoint_that_is_not_a_number_is_refused(engine, value, name):
    text = f'{{"op":"advance","until":{value}}}'
    assert engine.refusal(text) == type_error("number", name)


def test_a_null_endpoint_means_no_endpoint(engine):
    assert engine.advance(until=None)["steps"] == 1


def test_the_endpoint_is_read_before_the_steps(engine):
    words = engine.refusal({"op": "advance", "steps": "x", "until": []})
    assert words == type_error("number", "array")


# gpu_milliseconds


def test_the_gpu_time_is_that_of_the_last_advance(engine):
    assert engine.inspect()["gpu_milliseconds"] == 0
    spent = engine.advance(steps=3)["gpu_milliseconds"]
    assert spent > 0 and spent == single(spent)
    assert engine.inspect()["gpu_milliseconds"] == spent
    assert engine.advance(steps=0)["gpu_milliseconds"] == spent
    assert engine.advance(steps=5, until=0)["gpu_milliseconds"] == spent
    engine.refusal({"op": "advance", "steps": -1})
    assert engine.inspect()["gpu_milliseconds"] == spent
    assert engine.reset()["gpu_milliseconds"] == 0


def test_the_gpu_time_is_not_a_sum_over_calls(engine):
    long = engine.advance(steps=500)["gpu_milliseconds"]
    assert engine.advance(steps=1)["gpu_milliseconds"] < long


# set


def test_set_without_arguments_does_nothing(engine):
    before = engine.raw({"op": "inspect"})
    assert engine.raw({"op": "set"}) == b"{}"
    assert engine.raw({"op": "set", "reynolds": None, "cfl": None}) == b"{}"
    assert engine.raw({"op": "inspect"}) == before


def test_set_changes_the_reynolds_number_at_once(engine):
    assert engine.set(reynolds=1234.5) == {}
    assert engine.advance(steps=0)["reynolds"] == 1234.5
    assert engine.inspect()["reynolds"] == 1234.5


def test_a_new_reynolds_number_holds_from_the_next_step(make_engine):
    changed, constant = make_engine(reynolds=1000), make_engine(reynolds=10)
    changed.set(reynolds=10)
    assert changed.spectrum() == constant.spectrum()
    changed.advance(steps=3)
    constant.advance(steps=3)
    assert changed.spectrum() == constant.spectrum()


@pytest.mark.parametrize(
    "value", ["0", "-0.0", "-1", "1e-39", "5e-324", "-1e300", "-9223372036854775808"]
)
def test_a_reynolds_number_that_is_not_finite_and_positive_is_refused(engine, value):
    before = engine.inspect()
    assert engine.refusal(f'{{"op":"set","reynolds":{value}}}') == BAD_REYNOLDS
    assert engine.inspect() == before


@pytest.mark.parametrize("value", ["1e-38", "1", "1.7976931348623157e308", "18446744073709551615"])
def test_a_reynolds_number_with_a_finite_viscosity_is_accepted(engine, value):
    assert engine.call(f'{{"op":"set","reynolds":{value}}}') == {}
    assert engine.inspect()["reynolds"] == float(value)


@pytest.mark.parametrize("value", ["0", "-0.0", "-1", "1e39", "1e-46", "5e-324", "1e308"])
def test_a_courant_number_that_is_not_finite_and_positive_is_refused(engine, value):
    assert engine.refusal(f'{{"op":"set","cfl":{value}}}') == BAD_CFL


@pytest.mark.parametrize("key", ["reynolds", "cfl"])
@pytest.mark.parametrize(("value", "name"), [("true", "boolean"), *NEVER_NUMBERS[1:]])
def test_a_setting_that_is_not_a_number_is_refused(engine, key, value, name):
    assert engine.refusal(f'{{"op":"set","{key}":{value}}}') == type_error("number", name)


def test_a_good_reynolds_number_stays_when_the_courant_number_is_refused(engine):
    assert engine.refusal({"op": "set", "reynolds": 77, "cfl": -1}) == BAD_CFL
    assert engine.inspect()["reynolds"] == 77
    words = engine.refusal({"op": "set", "reynolds": 78, "cfl": "x"})
    assert words == type_error("number", "string")
    assert engine.inspect()["reynolds"] == 78


def test_the_courant_number_is_not_read_after_a_bad_reynolds_number(make_engine):
    engine, other = make_engine(), make_engine()
    assert engine.refusal({"op": "set", "reynolds": 0, "cfl": 0.1}) == BAD_REYNOLDS
    assert engine.advance()["dt"] == other.advance()["dt"]


def test_a_smaller_courant_number_shortens_the_next_step(make_engine):
    engine = make_engine(cfl=0.02)
    before = engine.advance()["dt"]
    engine.set(cfl=0.01)
    assert engine.advance()["dt"] == pytest.approx(before / 2, rel=0.01)


def test_a_larger_courant_number_moves_the_step_a_fifth_of_the_way(make_engine):
    engine = make_engine(cfl=0.01)
    before = engine.advance()["dt"]
    engine.set(cfl=0.1)
    after = engine.advance()["dt"]
    assert after == pytest.approx(before * 2.8, rel=0.01)
    assert engine.advance()["dt"] == pytest.approx(before * 2 + after * 0.8, rel=0.01)


def test_a_fixed_step_does_not_follow_the_courant_number(make_engine):
    engine = make_engine(fixed_dt=0.01)
    engine.set(cfl=0.001)
    assert engine.advance()["dt"] == single(0.01)


# reset


def test_reset_replies_with_a_fresh_statistics_report(engine):
    at_start = engine.raw({"op": "inspect"})
    engine.advance(steps=5)
    assert engine.raw({"op": "reset"}) == at_start
    assert engine.raw({"op": "reset"}) == at_start


def test_reset_returns_to_step_and_time_zero(engine):
    engine.advance(steps=5)
    report = engine.reset()
    assert report["steps"] == 0
    assert report["simulation_time"] == 0
    assert report["dt"] > 0


@pytest.mark.parametrize("start_spectrum", ["PAO", "KM3"])
def test_reset_gives_the_same_start_each_time(make_engine, start_spectrum):
    engine = make_engine(start_spectrum=start_spectrum, seed=11)
    at_start = engine.spectrum()
    for _ in range(2):
        engine.advance(steps=4)
        assert engine.spectrum() != at_start
        engine.reset()
        assert engine.spectrum() == at_start


@pytest.mark.parametrize("integrator", ["imexRK3", "ifHeunRK3", "etdrk4"])
def test_a_run_after_reset_repeats_the_first(make_engine, integrator):
    engine = make_engine(integrator=integrator)
    engine.advance(steps=7)
    first = engine.spectrum()
    engine.reset()
    engine.advance(steps=7)
    assert engine.spectrum() == first


def test_reset_keeps_what_was_set(engine):
    start = engine.inspect()
    engine.set(reynolds=55, cfl=1.5)
    report = engine.reset()
    assert report["reynolds"] == 55
    assert report["dt"] == start["dt"] / 2


@pytest.mark.parametrize("value", ["null", '""'])
def test_a_reset_without_a_file_takes_the_seed(engine, value):
    at_start = engine.spectrum()
    engine.advance()
    engine.call(f'{{"op":"reset","initial":{value}}}')
    assert engine.spectrum() == at_start


@pytest.mark.parametrize(
    ("value", "name"),
    [("1", "number"), ("true", "boolean"), ("[]", "array"), ("{}", "object")],
)
def test_an_initial_file_that_is_not_a_string_is_refused(library, engine, value, name):
    words = type_error("string", name)
    assert engine.refusal(f'{{"op":"reset","initial":{value}}}') == words
    assert library.creation_refusal(f'{{"resolution":16,"initial":{value}}}') == words
