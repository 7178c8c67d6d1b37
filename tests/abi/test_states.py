"""Saving the state of a flow and going on from it: the same bits, the file, and what is refused."""

from __future__ import annotations

import json
import os
import signal
import struct
import subprocess
import sys
import time
import zlib
from pathlib import Path
from typing import Any

import pytest

from .fresh_process import TESTS, in_fresh_process
from .harness import INTEGRATORS, OPERATORS, Engine, Library
from .systems import posix_only
from .test_determinism import digest_of
from .words import FLOW_LOST, NO_FLOW, NO_FRAME, TWO_STARTS, UNWRITABLE, type_error

STEPS = 12
FLOWS = [
    {"resolution": 48, "integrator": integrator, "operator": operator, "fixed_dt": dt}
    for integrator in INTEGRATORS
    for operator in OPERATORS
    for dt in (None, 0.013)
]
ENDPOINT = 0.5


def without_time(report: dict[str, Any]) -> dict[str, Any]:
    return {**report, "gpu_milliseconds": 0}


@pytest.fixture
def state(make_engine, tmp_path) -> Path:
    """The state of a flow after a few steps."""
    path = tmp_path / "flow.state"
    engine = make_engine(seed=7)
    engine.advance(steps=5)
    engine.export(state=str(path))
    return path


def header_of(path: Path) -> dict[str, Any]:
    content = path.read_bytes()
    (length,) = struct.unpack_from("<Q", content)
    return json.loads(content[8 : 8 + length])


# The same bits


def second_halves(library: Library, processors: int, paths: list, endpoint: float, steps: int):
    from abi.test_determinism import digest_of

    os.sched_setaffinity(0, sorted(os.sched_getaffinity(0))[:processors])
    digests = []
    for path in paths:
        with Engine(library, {"state": path}) as engine:
            engine.advance(steps=1000000, until=endpoint)
            engine.advance(steps=steps)
            digests.append(digest_of(engine))
    return digests


@posix_only
def test_a_flow_goes_on_in_another_process_on_one_processor_with_the_same_bits(
    library_path, make_engine, tmp_path
):
    wholes, paths = [], []
    for number, flow in enumerate(FLOWS):
        engine = make_engine(**flow)
        engine.advance(steps=STEPS)
        paths.append(str(tmp_path / f"{number}.state"))
        engine.export(state=paths[-1])
        engine.advance(steps=1000000, until=ENDPOINT)
        engine.advance(steps=STEPS)
        wholes.append(digest_of(engine))
    assert in_fresh_process(library_path, second_halves, 1, paths, ENDPOINT, STEPS) == wholes
    assert len(set(wholes)) == len(FLOWS)


def test_a_reset_from_a_state_is_the_flow_again(make_engine, state):
    saved = make_engine(state=str(state))
    engine = make_engine(seed=7)
    engine.advance(steps=30)
    assert without_time(engine.reset(state=str(state))) == without_time(saved.inspect())
    for one in (engine, saved):
        one.advance(steps=STEPS)
    assert digest_of(engine) == digest_of(saved)
    assert engine.reset()["steps"] == 0


def test_saving_does_not_change_the_flow(make_engine, tmp_path):
    quiet, saved = make_engine(), make_engine()
    for _ in range(5):
        saved.advance(steps=2)
        assert saved.export(state=str(tmp_path / "state")) == {}
    quiet.advance(steps=10)
    assert digest_of(quiet) == digest_of(saved)


def test_a_lost_flow_is_not_saved_and_goes_on_from_an_older_state(make_engine, tmp_path):
    path = tmp_path / "state"
    engine = make_engine(fixed_dt=1e30, reynolds=1e30)
    engine.export(state=str(path))
    before = path.read_bytes()
    engine.refusal({"op": "advance"})
    assert engine.refusal({"op": "export", "state": str(path)}) == FLOW_LOST
    assert path.read_bytes() == before
    assert engine.reset(state=str(path))["steps"] == 0


# What a configuration beside a state may say


def test_a_state_brings_its_configuration_and_the_numbers_in_force(make_engine, tmp_path):
    path = tmp_path / "state"
    engine = make_engine(resolution=18, k0=2, seed="18446744073709551615", integrator="imexRK3")
    engine.set(reynolds=123.5, cfl=0.7)
    engine.export(state=str(path))
    continued = make_engine(resolution=None, state=str(path))
    assert continued.inspect()["reynolds"] == 123.5
    assert continued.export(snapshot=True)["grid_size"] == 18
    for one in (engine, continued):
        one.reset()
        one.advance(steps=3)
    assert digest_of(engine) == digest_of(continued)


def test_the_reynolds_and_the_courant_number_may_be_others(make_engine, state):
    usual, other, later = (make_engine(state=str(state), **members) for members in
                           ({}, {"reynolds": 40, "cfl": 0.5}, {}))  # fmt: skip
    later.set(reynolds=40, cfl=0.5)
    assert other.inspect()["reynolds"] == 40
    for one in (usual, other, later):
        one.advance(steps=3)
    assert digest_of(other) == digest_of(later) != digest_of(usual)


def test_other_members_may_be_those_of_the_state_alone(library, make_engine, state):
    same = {"resolution": 16, "k0": 4, "seed": 7, "fixed_dt": None, "integrator": "etdrk4",
            "operator": "stress", "start_spectrum": "PAO"}  # fmt: skip
    make_engine(state=str(state), **same)
    others = {"resolution": 18, "k0": 5, "seed": "8", "fixed_dt": 0.25, "integrator": "imexRK3",
              "operator": "advective", "start_spectrum": "KM3"}  # fmt: skip
    for key, value in others.items():
        words = library.creation_refusal({"state": str(state), key: value})
        shown = same[key] if key != "fixed_dt" else "adaptive"
        assert words == f"State of another configuration: {key} is {shown}, not {value}."


def test_a_configuration_beside_a_state_is_checked_as_any_other(library, state):
    words = library.creation_refusal({"state": str(state), "reynolds": -1})
    assert words.startswith("Invalid resolution, Reynolds number")
    assert library.creation_refusal({"state": str(state), "integrator": "RK4"}) == (
        "Unknown integrator: RK4"
    )


def test_a_reset_refuses_the_state_of_another_configuration(make_engine, state):
    engine = make_engine(seed=8)
    engine.advance(steps=2)
    before = engine.inspect()
    words = engine.refusal({"op": "reset", "state": str(state)})
    assert words == "State of another configuration: seed is 7, not 8."
    assert engine.inspect() == before


# Requests


def test_a_starting_field_beside_a_state_is_refused(library, engine, state):
    request = {"state": str(state), "initial": "noise"}
    assert library.creation_refusal(request) == TWO_STARTS
    assert engine.refusal({"op": "reset", **request}) == TWO_STARTS


@pytest.mark.parametrize("none", [None, ""])
def test_no_path_is_no_state(make_engine, engine, tmp_path, state, none):
    assert make_engine(state=none).spectrum() == engine.spectrum()
    assert make_engine(state=str(state), initial=none).inspect()["steps"] == 5
    assert engine.reset(state=none)["steps"] == 0


@pytest.mark.parametrize("value", [1, True, [], {}])
def test_a_state_that_is_no_text_is_refused(library, engine, value):
    names = {int: "number", bool: "boolean", list: "array", dict: "object"}
    words = type_error("string", names[type(value)])
    assert library.creation_refusal({"resolution": 16, "state": value}) == words
    for op in ("reset", "export"):
        assert engine.refusal({"op": op, "state": value}) == words


def test_a_state_is_written_with_the_other_files_of_an_export(engine, tmp_path):
    paths = {key: str(tmp_path / key) for key in ("spectrum", "state", "fields")}
    assert engine.export(**paths)["grid_size"] == 16
    assert sorted(os.listdir(tmp_path)) == sorted(paths)
    paths["fields"] = str(tmp_path / "missing" / "fields")
    os.unlink(paths["state"])
    assert engine.refusal({"op": "export", **paths}) == UNWRITABLE
    assert os.path.exists(paths["state"])


# The file


def test_another_reader_of_the_layout_finds_the_flow(make_engine, tmp_path):
    path, n = tmp_path / "state", 20
    engine = make_engine(resolution=n, fixed_dt=0.01)
    engine.set(reynolds=250, cfl=0.5)
    now = engine.advance(steps=7)
    engine.export(state=str(path))
    header = header_of(path)
    metadata = header.pop("__metadata__")
    assert all(isinstance(value, str) for value in metadata.values())
    assert metadata["format"] == "zephane state" and metadata["version"] == "1"
    assert json.loads(metadata["configuration"])["resolution"] == n
    assert json.loads(metadata["settings"]) == {"reynolds": 250.0, "cfl": 0.5}
    clock = json.loads(metadata["clock"])
    assert clock["steps"] == now["steps"] and clock["dt"] == now["dt"]
    assert clock["time_high"] + clock["time_low"] == now["simulation_time"]
    assert clock["initial_turnover_time"] == now["initial_turnover_time"]

    content = path.read_bytes()
    data = content[8 + struct.unpack_from("<Q", content)[0] :]
    checksums = json.loads(metadata["checksums"])
    arrays = {}
    for name, array in header.items():
        begin, end = array["data_offsets"]
        assert array["dtype"] == "F32" and array["shape"] == [n, n // 2 + 1, 2]
        assert zlib.crc32(data[begin:end]) == int(checksums[name], 16)
        arrays[name] = struct.unpack(f"<{n * (n // 2 + 1) * 2}f", data[begin:end])
    assert set(arrays) == {"vorticity_spectrum", "compensation"}
    whole = struct.unpack(f"<{2 * n * n}f", engine.spectrum())
    for row in range(n):
        for column in range(2 * (n // 2 + 1)):
            scaled = arrays["vorticity_spectrum"][row * 2 * (n // 2 + 1) + column] / n**2
            assert whole[2 * row * n + column] == pytest.approx(scaled, rel=1e-6, abs=1e-30)
    assert any(arrays["compensation"])


@pytest.mark.parametrize(
    "damage, beginning",
    [
        (lambda content: content[:-1], "State file is truncated:"),
        (lambda content: content[:300], "State file is truncated:"),
        (lambda content: content + b"\0", "State file is too long:"),
        (lambda content: content[:-9] + b"\x01" + content[-8:], "State file is damaged:"),
        (lambda content: content.replace(b'"seed', b'"sEed', 1), "State file is damaged:"),
        (lambda content: content.replace(b'"1"', b'"9"', 1), "State file has layout 9,"),
        (lambda content: b"", "Not a state file:"),
        (lambda content: bytes(1024), "Not a state file:"),
        (lambda content: b"\xff" * 4096, "Not a state file:"),
    ],
)
def test_a_file_that_is_no_whole_state_is_refused(library, engine, state, damage, beginning):
    state.write_bytes(damage(state.read_bytes()))
    before = engine.inspect()
    for words in (
        library.creation_refusal({"state": str(state)}),
        engine.refusal({"op": "reset", "state": str(state)}),
    ):
        assert words.startswith(beginning) and words.endswith(".")
    assert engine.inspect() == before


@pytest.mark.parametrize("name", ["missing", ".", "state/below", "/dev/zero", "a" * 300])
def test_a_path_without_a_file_is_refused_with_the_reason(library, tmp_path, monkeypatch, name):
    monkeypatch.chdir(tmp_path)
    (tmp_path / "state").touch()
    words = library.creation_refusal({"state": name})
    assert words.startswith("Cannot read state file: ") and words.endswith(f'"{name}"')


def go_on_from_a_pipe(library: Library, path: str) -> str:
    os.mkfifo(path)
    return library.creation_refusal({"state": path})


@posix_only
def test_a_pipe_is_refused_without_waiting(library_path, tmp_path):
    words = in_fresh_process(
        library_path, go_on_from_a_pipe, str(tmp_path / "pipe"), limit_seconds=30
    )
    assert words.startswith("Cannot read state file: ")


def test_a_huge_file_is_refused_before_it_is_read(library, state):
    os.truncate(state, 2**40)
    assert library.creation_refusal({"state": str(state)}).startswith("State file is too long:")


SAVE_FOR_EVER = """
import sys
from abi.harness import Engine, Library
with Engine(Library(sys.argv[1]), {"resolution": 256, "integrator": "imexRK3"}) as engine:
    while True:
        engine.export(state=sys.argv[2])
        print(".", flush=True)
"""


@posix_only
def test_a_process_that_is_killed_leaves_a_whole_state(library, library_path, tmp_path):
    path = tmp_path / "state"
    for wait in (0.0, 0.003, 0.007):
        saver = subprocess.Popen(
            [sys.executable, "-c", SAVE_FOR_EVER, str(library_path), str(path)],
            env={**os.environ, "PYTHONPATH": str(TESTS)},
            stdout=subprocess.PIPE,
        )
        assert saver.stdout is not None and saver.stdout.read(2)
        time.sleep(wait)
        saver.send_signal(signal.SIGKILL)
        saver.wait()
        saver.stdout.close()
        with Engine(library, {"state": str(path)}) as engine:
            assert engine.inspect()["is_finite"]


# Views


def test_a_view_saves_its_flow_without_a_window(paused, make_engine, tmp_path):
    path = tmp_path / "state"
    for _ in range(3):
        paused.call("step")
    paused.steps(3)
    assert paused.call("export", state=str(path))["stats"]["steps"] == 3
    engine = make_engine(state=str(path))
    assert engine.inspect()["steps"] == 3
    fresh = make_engine(reynolds=paused.get()["config"]["reynolds"])
    fresh.advance(steps=3)
    assert digest_of(engine) == digest_of(fresh)


def test_a_view_saves_a_running_flow(paused, make_engine, tmp_path):
    path = tmp_path / "state"
    paused.call("running", value=True)
    for least in (20, 60):
        paused.steps(least)
        paused.call("export", state=str(path))
        assert make_engine(state=str(path)).inspect()["steps"] >= least
    assert paused.get()["running"]


def test_a_view_without_a_flow_has_no_state(view, tmp_path):
    path = tmp_path / "state"
    assert view.refusal({"op": "export", "state": str(path)}) == NO_FLOW
    assert not path.exists()


def test_a_state_is_written_before_the_other_files_of_a_view_are_refused(paused, tmp_path):
    path = tmp_path / "state"
    words = paused.refusal({"op": "export", "state": str(path), "png": str(tmp_path / "png")})
    assert words == "No native renderer."
    assert os.listdir(tmp_path) == ["state"]
    assert paused.refusal({"op": "export", "state": str(tmp_path / "no" / "state")}) == UNWRITABLE


def test_a_view_goes_on_from_a_state(paused, make_engine, state, tmp_path):
    end = tmp_path / "end.spectrum"
    engine = make_engine(state=str(state))
    reynolds = engine.inspect()["reynolds"]
    paused.call("benchmark", state=str(state), until=2, spectrum=str(end))
    paused.call("configure", seed=7, reynolds=reynolds)
    report = paused.settled()
    assert report["stats"]["steps"] == 5 and report["error_message"] is None
    paused.call("running", value=True)
    report = paused.settled()
    engine.advance(steps=100000, until=2)
    assert report["stats"]["steps"] == engine.inspect()["steps"]
    assert end.read_bytes() == engine.spectrum()


def test_a_state_that_cannot_be_used_stops_the_view(paused, state):
    paused.call("benchmark", state=str(state))
    paused.call("reset")
    words = "State of another configuration: seed is 7, not 2."
    paused.wait(lambda report: report["error_message"] == words)
    paused.call("benchmark", state=str(state) + ".missing")
    paused.call("configure", seed=7)
    report = paused.wait(lambda report: report["settled"])
    assert report["error_message"].startswith("Cannot read state file: ")
    paused.call("benchmark", state=None)
    paused.call("reset")
    assert paused.settled()["error_message"] is None


def test_the_start_of_a_view_that_is_named_last_holds(paused, state, tmp_path):
    calm = tmp_path / "calm"
    calm.write_bytes(bytes(16 * 16 * 4))
    paused.call("configure", seed=7)
    paused.settled()

    def started_with(**members: Any) -> dict[str, Any]:
        paused.call("benchmark", **members)
        paused.call("reset")
        return paused.settled()["stats"]

    assert started_with(initial=str(calm))["energy"] == 0
    assert started_with(state=str(state))["steps"] == 5
    assert started_with(until=9, initial="")["steps"] == 5
    assert started_with(initial=str(calm))["steps"] == 0
    both = {"op": "benchmark", "until": 1, "initial": str(calm), "state": str(state)}
    assert paused.refusal(both) == TWO_STARTS
    paused.call("reset")
    assert paused.settled()["stats"]["energy"] == 0


def test_an_export_without_a_state_is_as_before(view, engine):
    assert view.refusal({"op": "export"}) == NO_FRAME
    assert view.refusal({"op": "export", "state": None}) == NO_FRAME
    assert engine.export(state=None) == {}
