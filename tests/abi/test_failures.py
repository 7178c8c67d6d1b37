"""Lost flows: the error at the failing call, the latched error after it, and the recovery."""

from __future__ import annotations

import math
import struct
from array import array

import pytest

from .harness import INTEGRATORS, OPERATORS
from .words import (
    BAD_ADVANCE,
    BAD_CFL,
    BAD_REYNOLDS,
    BAD_SAMPLES,
    BAD_SIZE,
    FLOW_LOST,
    UNHEALTHY,
    UNKNOWN_OPERATION,
)

SPECTRAL = "Non-finite spectral reduction."
MOMENTS = "Non-finite snapshot moments."
CLOCK = "Non-finite clock."
N = 16

# With almost no viscosity, a first step of this length overflows 32-bit floats.
EXPLOSIVE = {"fixed_dt": 1e30, "reynolds": 1e30}


def wave(folder, amplitude: float, name: str = "wave") -> str:
    """A file with the field amplitude · cos x."""
    row = [amplitude * math.cos(2 * math.pi * x / N) for x in range(N)]
    path = folder / name
    path.write_bytes(array("f", row * N).tobytes())
    return str(path)


@pytest.fixture
def lost(make_engine):
    """An engine whose flow has just been lost in an advance."""
    engine = make_engine(**EXPLOSIVE)
    assert engine.refusal({"op": "advance"}) == UNHEALTHY
    return engine


@pytest.mark.parametrize("operator", OPERATORS)
@pytest.mark.parametrize("integrator", INTEGRATORS)
def test_a_flow_that_diverges_is_reported_once_and_then_latched(make_engine, integrator, operator):
    engine = make_engine(**EXPLOSIVE, integrator=integrator, operator=operator)
    assert engine.refusal({"op": "advance", "steps": 300}) == UNHEALTHY
    assert engine.refusal({"op": "advance"}) == FLOW_LOST
    assert engine.refusal({"op": "advance"}) == FLOW_LOST


@pytest.mark.parametrize(
    "request_members",
    [
        {"op": "inspect"},
        {"op": "advance"},
        {"op": "advance", "steps": 0},
        {"op": "advance", "steps": 9, "until": 0},
        {"op": "export", "snapshot": True},
        {"op": "export", "snapshot": True, "include_velocity": False},
    ],
)
def test_a_lost_flow_refuses_requests_that_need_it(lost, request_members):
    assert lost.refusal(request_members) == FLOW_LOST
    assert lost.refusal(request_members) == FLOW_LOST


@pytest.mark.parametrize("kind", ["spectrum", "fields"])
def test_a_lost_flow_writes_no_file(lost, tmp_path, kind):
    path = tmp_path / "file"
    assert lost.refusal({"op": "export", kind: str(path)}) == FLOW_LOST
    assert not path.exists()


def test_bad_steps_and_endpoints_are_reported_before_the_loss(lost):
    assert lost.refusal({"op": "advance", "steps": -1}) == BAD_ADVANCE
    assert lost.refusal({"op": "advance", "until": -1}) == BAD_ADVANCE
    assert lost.refusal({"op": "advance", "until": 1e39}) == BAD_ADVANCE


def test_an_unknown_operation_is_reported_before_the_loss(lost):
    assert lost.refusal({"op": "nothing"}) == UNKNOWN_OPERATION


def test_an_empty_export_works_on_a_lost_flow(lost):
    assert lost.export() == {}


def test_set_works_on_a_lost_flow(lost):
    assert lost.set(reynolds=321, cfl=1) == {}
    assert lost.refusal({"op": "set", "reynolds": 0}) == BAD_REYNOLDS
    assert lost.refusal({"op": "set", "cfl": 0}) == BAD_CFL
    assert lost.refusal({"op": "inspect"}) == FLOW_LOST
    assert lost.reset()["reynolds"] == 321


def test_reset_recovers_a_lost_flow(lost, make_engine):
    report = lost.reset()
    fresh = make_engine(**EXPLOSIVE)
    assert report == fresh.inspect()
    assert lost.spectrum() == fresh.spectrum()
    assert lost.refusal({"op": "advance"}) == UNHEALTHY


def test_a_recovered_flow_runs_like_a_new_one(make_engine, tmp_path):
    engine, fresh = make_engine(), make_engine()
    assert engine.refusal({"op": "reset", "initial": wave(tmp_path, 3e38)}) == UNHEALTHY
    engine.reset()
    engine.advance(steps=20)
    fresh.advance(steps=20)
    assert engine.spectrum() == fresh.spectrum()


@pytest.mark.parametrize(
    ("content", "words"),
    [(b"short", BAD_SIZE), (struct.pack("<f", math.nan) * N * N, BAD_SAMPLES)],
)
def test_a_reset_that_refuses_its_samples_does_not_recover_the_flow(
    lost, tmp_path, content, words
):
    path = tmp_path / "bad"
    path.write_bytes(content)
    assert lost.refusal({"op": "reset", "initial": str(path)}) == words
    assert lost.refusal({"op": "inspect"}) == FLOW_LOST


def test_a_lost_flow_does_not_affect_other_engines(lost, make_engine):
    assert make_engine().advance(steps=3)["is_finite"]
    assert lost.refusal({"op": "inspect"}) == FLOW_LOST


# Invalid starts


def test_a_field_too_large_to_transform_loses_the_flow(library, engine, tmp_path):
    path = wave(tmp_path, 3e38)
    assert library.creation_refusal({"resolution": N, "initial": path}) == UNHEALTHY
    assert engine.refusal({"op": "reset", "initial": path}) == UNHEALTHY
    assert engine.refusal({"op": "inspect"}) == FLOW_LOST


def test_a_field_too_large_to_square_loses_the_flow(library, engine, tmp_path):
    path = wave(tmp_path, 1e30)
    assert library.creation_refusal({"resolution": N, "initial": path}) == SPECTRAL
    assert engine.refusal({"op": "reset", "initial": path}) == SPECTRAL
    assert engine.refusal({"op": "inspect"}) == FLOW_LOST
    assert engine.reset()["is_finite"]


def test_a_snapshot_whose_moments_overflow_loses_the_flow(make_engine, tmp_path):
    engine = make_engine(initial=wave(tmp_path, 2e18))
    assert engine.inspect()["is_finite"]
    spectrum, fields = tmp_path / "s", tmp_path / "f"
    request = {"op": "export", "spectrum": str(spectrum), "fields": str(fields)}
    assert engine.refusal(request) == MOMENTS
    assert spectrum.stat().st_size == N * N * 8
    assert not fields.exists()
    assert engine.refusal({"op": "export", "snapshot": True}) == FLOW_LOST
    assert engine.refusal({"op": "inspect"}) == FLOW_LOST
    assert engine.reset()["is_finite"]


# Clock overflow


def test_a_clock_that_overflows_32_bits_loses_the_flow(make_engine, tmp_path):
    engine = make_engine(initial=wave(tmp_path, 0.0), fixed_dt=3e38)
    assert engine.advance()["steps"] == 1
    assert engine.refusal({"op": "advance"}) == CLOCK
    assert engine.refusal({"op": "advance"}) == FLOW_LOST
    assert engine.refusal({"op": "inspect"}) == FLOW_LOST
    assert engine.reset()["simulation_time"] == 0


def test_a_clock_overflow_is_found_anywhere_in_a_batch(make_engine, tmp_path):
    engine = make_engine(initial=wave(tmp_path, 0.0), fixed_dt=3e38)
    assert engine.refusal({"op": "advance", "steps": 600}) == CLOCK
    assert engine.refusal({"op": "advance"}) == FLOW_LOST


def test_an_endpoint_keeps_the_clock_from_overflowing(make_engine, tmp_path):
    engine = make_engine(initial=wave(tmp_path, 0.0), fixed_dt=3e38)
    report = engine.advance(steps=600, until=3.25e38)
    assert report["steps"] == 2
    assert math.isfinite(report["simulation_time"])


def test_a_time_step_of_zero_loses_the_flow(engine):
    engine.set(cfl=1e-45)
    assert engine.refusal({"op": "advance"}) == UNHEALTHY
    assert engine.refusal({"op": "reset"}) == UNHEALTHY
    assert engine.refusal({"op": "inspect"}) == FLOW_LOST
    engine.set(cfl=3)
    assert engine.reset()["is_finite"]
