"""States: saving a flow and going on from it, in Python and on the command line."""

from __future__ import annotations

import json
import os
import pickle
import re
import subprocess
import sys
from pathlib import Path
from typing import Any, Callable

import pytest

import zephane
from zephane import checkpoints

Runner = Callable[..., "subprocess.CompletedProcess[str]"]


@pytest.fixture
def saved(engine: zephane.Engine, tmp_path: Path) -> Path:
    """The state of an engine of 64 x 64 points after a few steps."""
    path = tmp_path / "flow.state"
    engine.advance(steps=5)
    engine.save(path)
    return path


@pytest.fixture
def load(library_path: Path) -> Any:
    opened: list[zephane.Engine] = []

    def make(path: Path, **members: Any) -> zephane.Engine:
        opened.append(zephane.Engine.load(path, library=library_path, **members))
        return opened[-1]

    yield make
    for one in opened:
        one.close()


def bits(engine: zephane.Engine) -> bytes:
    return bytes(engine.spectrum())


def test_an_engine_goes_on_from_its_state(engine, saved, load) -> None:
    loaded = load(str(saved))
    assert bits(loaded) == bits(engine)
    assert loaded.config == engine.config
    for one in (engine, loaded):
        one.advance(until=1.0)
        one.advance(steps=3)
    assert bits(loaded) == bits(engine)
    assert loaded.inspect().steps == engine.inspect().steps


def test_a_state_says_what_it_holds(make_engine, tmp_path: Path, system) -> None:
    path = tmp_path / "flow.state"
    engine = make_engine(resolution=32, seed=2**64 - 1, fixed_dt=0.01, operator="advective")
    engine.set(reynolds=77.0, cfl=0.5)
    now = engine.advance(steps=3)
    engine.save(path)
    found = zephane.read_state(path)
    assert found.config == zephane.Config.from_json(
        {**engine.config.to_json(), "fixed_dt": found.config.fixed_dt}
    )
    assert found.config.fixed_dt == pytest.approx(0.01)
    assert (found.reynolds, found.cfl, found.steps) == (77.0, 0.5, 3)
    assert found.simulation_time == now.simulation_time
    assert found.initial_turnover_time == now.initial_turnover_time
    assert (found.library, found.device) == (zephane.__version__, system.gpu)
    assert path.stat().st_size <= zephane.states.state_bytes(32)


def test_numbers_may_change_and_other_members_may_not(saved, load) -> None:
    loaded = load(saved, reynolds=500, cfl=2.0, resolution=64)
    assert (loaded.config.reynolds, loaded.config.cfl) == (500.0, 2.0)
    assert loaded.inspect().reynolds == 500.0
    with pytest.raises(zephane.InvalidValueError) as refused:
        load(saved, resolution=128)
    assert str(refused.value) == f"{saved} is of another configuration: resolution is 64, not 128."
    with pytest.raises(zephane.InvalidValueError, match="reynolds is 0"):
        load(saved, reynolds=0)
    with pytest.raises(TypeError):
        load(saved, raynolds=500)


def test_a_reset_goes_back_to_a_state(engine, saved, load, tmp_path: Path) -> None:
    then = bits(engine)
    engine.set(reynolds=10.0, cfl=1.0)
    engine.advance(steps=5)
    figures = engine.reset(state=saved)
    assert figures.steps == 5 and figures.reynolds == 1000.0
    assert bits(engine) == then
    with pytest.raises(zephane.InvalidValueError, match="initial and state exclude each other"):
        engine.reset(initial=tmp_path / "start", state=saved)
    with pytest.raises(zephane.ZephaneError, match="Cannot read .*missing: No such file"):
        engine.reset(state=tmp_path / "missing")
    assert bits(engine) == then


def test_a_lost_flow_comes_back(make_engine, tmp_path: Path) -> None:
    path = tmp_path / "flow.state"
    engine = make_engine(fixed_dt=1e30, reynolds=1e30)
    engine.save(path)
    with pytest.raises(zephane.FlowFailedError):
        engine.advance()
    with pytest.raises(zephane.FlowFailedError):
        engine.save(path)
    assert engine.reset(state=path).steps == 0
    assert engine.inspect().is_finite


@pytest.mark.parametrize(
    "content, words",
    [
        (None, "Cannot read {}: No such file or directory"),
        (b"", "Cannot go on from {}: Not a state file: it is too short."),
        (b"x" * 5000, "Cannot go on from {}: Not a state file: it has no header."),
    ],
)
def test_a_file_that_is_no_state_is_named(load, tmp_path: Path, content, words) -> None:
    path = tmp_path / "file"
    if content is not None:
        path.write_bytes(content)
    with pytest.raises(zephane.ZephaneError) as refused:
        load(path)
    assert str(refused.value) == words.format(path)
    with pytest.raises(zephane.ZephaneError, match=re.escape(str(path))):
        zephane.read_state(path)


def test_a_state_that_cannot_be_written_is_named(engine, tmp_path: Path) -> None:
    path = tmp_path / "missing" / "flow.state"
    with pytest.raises(zephane.ZephaneError, match=re.escape(f"Cannot write {path}: ")):
        engine.save(path)
    if os.name != "nt":
        with pytest.raises(zephane.ZephaneError, match="Cannot write /dev/full: No space left"):
            engine.save("/dev/full")


def test_an_engine_that_is_not_pickled_says_how_to_save_it(engine) -> None:
    with pytest.raises(TypeError, match=r"Engine\.load\(path\)"):
        pickle.dumps(engine)


def test_a_view_saves_and_goes_on(library_path: Path, load, tmp_path: Path) -> None:
    path, later = tmp_path / "flow.state", tmp_path / "later.state"
    with zephane.View(library=library_path, resolution=32, fixed_dt=1 / 128) as view:
        with pytest.raises(zephane.ZephaneError, match="No flow to save."):
            view.export(state=path)
        view.benchmark(until=0.25)
        view.start()
        view.wait(lambda status: status.settled and not status.running, timeout=60)
        view.export(state=path)
    engine = load(path)
    assert engine.inspect().steps == 32
    with zephane.View(engine.config, library=library_path) as view:
        view.benchmark(state=path, until=0.5)
        view.start()
        end = view.wait(lambda status: status.settled and not status.running, timeout=60)
        assert end.stats is not None and end.stats.steps == 64
        view.export(state=later)
    engine.advance(until=0.5)
    assert bits(load(later)) == bits(engine)


# The command line


@pytest.fixture
def zeph(library_path: Path, python_path: Path, tmp_path: Path) -> Runner:
    """Runs the command ``run`` in the folder of the test."""

    def call(*options: str) -> subprocess.CompletedProcess[str]:
        return subprocess.run(
            [sys.executable, "-m", "zephane", "run", "--library", str(library_path), *options],
            env={**os.environ, "PYTHONPATH": str(python_path)},
            cwd=tmp_path,
            stdin=subprocess.DEVNULL,
            capture_output=True,
            text=True,
            timeout=120,
        )

    return call


SMALL = ("--resolution", "32", "--seed", "9", "--json", "--no-progress")


def figures(done: subprocess.CompletedProcess[str]) -> dict[str, Any]:
    assert done.returncode == 0 and done.stderr == "", done.stderr
    found: dict[str, Any] = json.loads(done.stdout)
    return {key: value for key, value in found.items() if key != "gpu_milliseconds"}


def test_two_runs_are_one_run(zeph: Runner, tmp_path: Path) -> None:
    whole = figures(zeph(*SMALL, "--until", "0.5", "--spectrum", "whole.raw"))
    first = zeph(*SMALL, "--steps", "7", "--save-state", "flow.state")
    second = zeph("--json", "--state", "flow.state", "--until", "0.5", "--spectrum", "parts.raw")
    assert figures(first)["steps"] == 7
    assert figures(second) == whole
    assert (tmp_path / "parts.raw").read_bytes() == (tmp_path / "whole.raw").read_bytes()


def test_a_run_from_a_state_lasts_as_many_turnover_times_more(zeph: Runner) -> None:
    zeph(*SMALL, "--until", "0.5", "--save-state", "flow.state")
    end = figures(zeph("--json", "--state", "flow.state"))
    assert end["simulation_time"] == pytest.approx(0.5 + 3 * end["initial_turnover_time"])


def test_the_report_names_the_state_and_the_flow_of_a_state(zeph: Runner) -> None:
    zeph(*SMALL, "--steps", "1", "--save-state", "flow.state")
    done = zeph("--state", "flow.state", "--steps", "1", "--save-state", "flow.state")
    assert "32 x 32, k0 4, seed 9, Re" in done.stdout
    assert "state               flow.state" in done.stdout
    assert "steps               2, " in done.stdout


@pytest.mark.parametrize(
    "options, words",
    [
        (("--state", "missing"), "Cannot read missing: No such file or directory"),
        (("--state", "flow.state", "--initial", "x"), "--initial and --state exclude each other"),
        (("--state", "flow.state", "--k0", "5"), "another configuration: k0 is 4, not 5."),
        (("--save-every", "1"), "--save-every needs --save-state FILE"),
        (("--save-state", "s", "--save-every", "0"), "save_every is 0: numbers above 0"),
        (("--save-state", "no/s"), "Cannot write no/s: No such file or directory"),
        (("--save-state", "x", "--fields", "x"), "x is named for two outputs."),
    ],
)
def test_nonsense_is_refused_before_the_run(zeph: Runner, engine, tmp_path, options, words) -> None:
    engine.save(tmp_path / "flow.state")
    done = zeph("--steps", "1", *options)
    assert done.returncode == 1 and words in done.stderr and done.stdout == ""


def test_checkpoints_follow_the_time_of_the_flow(engine, tmp_path: Path) -> None:
    path = tmp_path / "flow.state"
    saves: list[int] = []
    checkpoint = checkpoints.Checkpoints(engine, str(path), 0.25, 0.0)
    for _ in range(60):
        now = engine.advance(fresh=False)
        path.unlink(missing_ok=True)
        checkpoint.update(now)
        if path.exists():
            saves.append(int(now.simulation_time // 0.25))
            assert zephane.read_state(path).steps == now.steps
    assert saves == list(range(1, saves[-1] + 1)) and len(saves) > 2


def test_a_checkpoint_that_fails_is_printed_once(engine, tmp_path, capsys) -> None:
    checkpoint = checkpoints.Checkpoints(engine, str(tmp_path / "no" / "state"), 0.01, 0.0)
    for _ in range(3):
        checkpoint.update(engine.advance(steps=5, fresh=False))
    assert capsys.readouterr().err.count("zephane: Cannot write") == 1


def test_a_run_that_is_killed_leaves_its_last_checkpoint(
    library_path: Path, python_path: Path, load, tmp_path: Path
) -> None:
    path = tmp_path / "flow.state"
    words = ["--resolution", "64", "--until", "1e6", "--fixed-dt", "0.001", "--no-progress"]
    saving = ["--save-state", str(path), "--save-every", "0.01"]
    running = subprocess.Popen(
        [sys.executable, "-m", "zephane", "run", "--library", str(library_path), *words, *saving],
        env={**os.environ, "PYTHONPATH": str(python_path)},
        stdout=subprocess.DEVNULL,
    )
    try:
        while not path.exists():
            assert running.poll() is None
    finally:
        running.kill()
        running.wait()
    engine = load(path)
    fresh = zephane.Engine(library=library_path, resolution=64, fixed_dt=0.001)
    with fresh:
        fresh.advance(steps=engine.inspect().steps)
        assert bits(fresh) == bits(engine)
