"""Running to a time: landing on it exactly, the clock as a pair of floats, and when to stop."""

from __future__ import annotations

import math
import struct

import pytest

from .harness import INTEGRATORS, OPERATORS, decode, single
from .words import BAD_ADVANCE

MAX_SINGLE = 3.4028234663852886e38


def as_pair(end: float) -> float:
    """The time that a clock shows at its endpoint: two floats, high part first."""
    high = single(end)
    return high + single(end - high)


class PairClock:
    """A compensated sum of time steps in a pair of 32-bit floats."""

    def __init__(self) -> None:
        self.high = self.low = 0.0

    def add(self, dt: float) -> None:
        total = single(self.high + dt)
        back = single(total - self.high)
        error = single(single(dt - back) + single(self.high - single(total - back)))
        low = single(self.low + error)
        self.high = single(total + low)
        self.low = single(low - single(self.high - total))

    @property
    def time(self) -> float:
        return self.low + self.high


@pytest.mark.parametrize("end", [0.1, 1 / 3, 0.7, 1.0, math.pi / 3, 1.000000001])
@pytest.mark.parametrize("integrator", INTEGRATORS)
def test_a_run_lands_on_its_endpoint_exactly(make_engine, integrator, end):
    engine = make_engine(integrator=integrator)
    report = engine.advance(steps=1000000, until=end)
    assert report["simulation_time"] == as_pair(end)
    assert 0 < report["steps"] < 1000


@pytest.mark.parametrize("operator", OPERATORS)
def test_a_run_to_a_time_replies_at_that_time(make_engine, operator):
    report = make_engine(operator=operator).advance(steps=1000000, until=2.5)
    assert report["simulation_time"] == 2.5
    assert report["is_finite"]


def test_a_run_stops_at_its_steps_or_its_endpoint_whichever_comes_first(make_engine):
    engine = make_engine(fixed_dt=0.125)
    assert engine.advance(steps=3, until=100)["steps"] == 3
    assert engine.advance(steps=100, until=1)["steps"] == 8
    assert engine.advance(until=2)["steps"] == 9


@pytest.mark.parametrize(
    ("dt", "end", "count"), [(0.125, 1.25, 10), (0.1, 1.0, 10), (0.1, 0.95, 10), (0.0625, 20, 320)]
)
def test_steps_beyond_the_endpoint_are_not_counted(make_engine, dt, end, count):
    report = make_engine(fixed_dt=dt).advance(steps=1000, until=end)
    assert report["steps"] == count
    assert report["simulation_time"] == as_pair(end)


def test_a_fixed_step_is_cut_to_the_remainder(make_engine):
    report = make_engine(fixed_dt=0.3).advance(steps=100, until=1.0)
    assert report["steps"] == 4
    assert report["dt"] == pytest.approx(0.1, rel=1e-5)
    assert report["simulation_time"] == 1.0


def test_a_step_equal_to_the_remainder_lands_on_the_endpoint(make_engine):
    report = make_engine(fixed_dt=0.25).advance(steps=100, until=1.0)
    assert report["steps"] == 4
    assert report["dt"] == 0.25
    assert report["simulation_time"] == 1.0


def test_a_cut_step_does_not_disturb_the_next(make_engine):
    engine, smooth = make_engine(cfl=0.05), make_engine(cfl=0.05)
    first = engine.advance()["dt"]
    end = first * 1.001
    assert engine.advance(steps=9, until=end)["dt"] < first / 500
    smooth.advance(steps=1)
    assert engine.advance()["dt"] == pytest.approx(smooth.advance()["dt"], rel=1e-3)


def test_a_run_in_pieces_lands_on_every_endpoint(engine):
    for piece in range(1, 21):
        end = piece / 20
        assert engine.advance(steps=1000, until=end)["simulation_time"] == as_pair(end)


def test_an_endpoint_at_the_current_time_returns_at_once(engine):
    reached = engine.raw({"op": "advance", "steps": 1000, "until": 0.3})
    assert engine.raw({"op": "advance", "steps": 1000, "until": 0.3}) == reached
    now = decode(reached)["simulation_time"]
    assert engine.raw({"op": "advance", "steps": 1000, "until": now}) == reached


@pytest.mark.parametrize("end", ["0", "0.0", "-0.0", "0.25", "5e-324", "1e-300"])
def test_an_endpoint_in_the_past_returns_at_once(engine, end):
    reached = engine.raw({"op": "advance", "steps": 1000, "until": 0.3})
    assert engine.raw(f'{{"op":"advance","steps":1000,"until":{end}}}') == reached


@pytest.mark.parametrize("end", ["0", "-0.0", "5e-324", "1e-322"])
def test_an_endpoint_at_the_start_takes_no_step(engine, end):
    at_start = engine.raw({"op": "inspect"})
    assert engine.raw(f'{{"op":"advance","steps":1000,"until":{end}}}') == at_start


def test_an_endpoint_that_is_zero_as_a_pair_of_floats_takes_no_step(engine):
    report = engine.advance(steps=3, until=1e-200)
    assert report["steps"] == 0
    assert report["simulation_time"] == 0


def test_an_endpoint_below_the_smallest_normal_float_is_reached(engine):
    report = engine.advance(steps=3, until=1e-40)
    assert report["simulation_time"] == as_pair(1e-40) == single(1e-40)
    assert report["dt"] == single(1e-40)


@pytest.mark.parametrize(
    "end",
    [
        "-1",
        "-5e-324",
        "-1e-30",
        "1e39",
        "3.4028235677973366e38",
        "1.7976931348623157e308",
        "-1.7976931348623157e308",
        "-9223372036854775808",
    ],
)
def test_an_endpoint_that_is_negative_or_infinite_in_32_bits_is_refused(engine, end):
    before = engine.raw({"op": "inspect"})
    assert engine.refusal(f'{{"op":"advance","until":{end}}}') == BAD_ADVANCE
    assert engine.refusal(f'{{"op":"advance","steps":0,"until":{end}}}') == BAD_ADVANCE
    assert engine.raw({"op": "inspect"}) == before


@pytest.mark.parametrize(
    "end", ["3.4028235677973362e38", "3.4028234663852886e38", "1e38", "18446744073709551615"]
)
def test_an_endpoint_up_to_the_largest_float_is_accepted(engine, end):
    assert engine.call(f'{{"op":"advance","steps":2,"until":{end}}}')["steps"] == 2


def test_the_largest_endpoint_is_reached_in_one_step_of_its_size(make_engine, tmp_path):
    calm = tmp_path / "calm"
    calm.write_bytes(bytes(16 * 16 * 4))
    engine = make_engine(initial=str(calm), fixed_dt=MAX_SINGLE)
    report = engine.advance(steps=5, until=MAX_SINGLE)
    assert report["steps"] == 1
    assert report["simulation_time"] == MAX_SINGLE


def test_the_clock_is_a_compensated_pair_of_floats(make_engine):
    engine = make_engine(fixed_dt=0.1)
    clock = PairClock()
    dt = single(0.1)
    for _ in range(20):
        report = engine.advance(steps=50)
        for _ in range(50):
            clock.add(dt)
        assert report["simulation_time"] == clock.time
    assert clock.time == pytest.approx(1000 * dt, rel=1e-12)
    assert clock.time != single(clock.time)


def test_an_adaptive_clock_sums_the_steps_that_it_reports(engine):
    clock = PairClock()
    for _ in range(40):
        report = engine.advance()
        clock.add(report["dt"])
        assert report["simulation_time"] == clock.time


def test_a_flow_at_rest_takes_unit_steps(make_engine, tmp_path):
    calm = tmp_path / "calm"
    calm.write_bytes(struct.pack("<f", 3.5) * 16 * 16)
    engine = make_engine(initial=str(calm))
    assert engine.inspect()["dt"] == 1
    report = engine.advance(steps=3)
    assert report["dt"] == pytest.approx(1, rel=1e-6)
    assert report["simulation_time"] == pytest.approx(3, rel=1e-6)
    landed = engine.advance(steps=100, until=5.5)
    assert landed["steps"] == 6
    assert landed["simulation_time"] == 5.5
