"""Sweeps on this machine: members and their Dataset, checkpoints, killed processes, failures."""

from __future__ import annotations

import dataclasses
import json
import os
import signal
import subprocess
import sys
import time
from collections.abc import Iterator
from pathlib import Path
from typing import Any, Callable

import numpy as np
import pytest

import zephane
from zephane.members import Member, Stopped, run_member
from zephane.records import Config
from zephane.sweeping import plan_for
from zephane.sweep_local import Place, places_for, share_out
from zephane.sweep_progress import Board, Report

xr = pytest.importorskip("xarray", reason="python3-xarray is missing")
pytest.importorskip("netCDF4", reason="python3-netcdf4 is missing")

SMALL = {"resolution": 32, "until": 0.3, "every": 0.1}


@pytest.fixture
def sweep(library_path: Path, system: zephane.SystemInfo) -> Callable[..., Any]:
    def call(**arguments: Any) -> Any:
        return zephane.sweep(library=library_path, **{**SMALL, **arguments})

    return call


def same(one: Any, other: Any) -> bool:
    """Whether two Datasets have the same bits, NaN included."""
    return bool(one.identical(other.assign_attrs(one.attrs)))


def member(**changes: Any) -> Member:
    until = changes.pop("until", 2.0)
    config = Config().changed(**{"resolution": 32, "reynolds": 500.0, **changes})
    return Member(config, until, {"every": 0.1, "fields_every": 0.5, "spectra_every": 0.3}, True)


def opened(path: Path) -> Any:
    with xr.open_dataset(path, engine="netcdf4") as ds:
        return ds.load()


# The product and its Dataset


def test_each_member_is_the_recorded_run_of_its_settings(sweep, make_engine, tmp_path) -> None:
    ds = sweep(seed=range(3), reynolds=[300.0, 900.0], spectra_every=0.2, fields_every=0.3,
               velocity=True, path=tmp_path / "made")  # fmt: skip
    assert dict(ds.energy.sizes) == {"seed": 3, "reynolds": 2, "time": 4}
    assert list(ds.seed) == [0, 1, 2] and list(ds.reynolds) == [300.0, 900.0]
    assert ds.attrs["resolution"] == 32 and not {"seed", "reynolds", "viscosity"} & set(ds.attrs)
    engine = make_engine(resolution=32, seed=2, reynolds=300.0)
    wanted = zephane.record(engine, until=0.3, every=0.1, spectra_every=0.2, fields_every=0.3,
                            velocity=True)  # fmt: skip
    one = ds.sel(seed=2, reynolds=300.0)
    for name in set(wanted.data_vars) - {"reynolds"}:
        assert one[name].dtype == wanted[name].dtype
        assert (one[name].values == wanted[name].values).all(), name


def test_resolutions_share_their_wavenumbers(sweep) -> None:
    ds = sweep(resolution=[16, 32], spectra_every=0.3, jobs=1)
    assert ds.sizes["wavenumber"] == 24
    assert ds.energy_spectrum.sel(resolution=16)[0].notnull().sum() == 12
    assert ds.energy_spectrum.sel(resolution=32).notnull().all()


def test_what_is_there_is_not_computed_again(sweep, tmp_path: Path) -> None:
    first = sweep(seed=[1, 2], path=tmp_path)
    stamps = {name: os.stat(tmp_path / name).st_mtime_ns for name in os.listdir(tmp_path)}
    assert len(stamps) == 2
    more = sweep(seed=[2, 1, 3], reynolds=[first.attrs["reynolds"]], path=tmp_path)
    assert len(os.listdir(tmp_path)) == 3
    for name, stamp in stamps.items():
        assert os.stat(tmp_path / name).st_mtime_ns == stamp
    assert (more.energy.sel(seed=1)[0].values == first.energy.sel(seed=1).values).all()
    sweep(seed=1, path=tmp_path, until=0.2)  # Another run, not a part of it.
    assert len(os.listdir(tmp_path)) == 4


def test_a_member_that_blows_up_is_told_with_its_time_and_the_others_go_on(
    sweep, tmp_path: Path
) -> None:
    wanted = {"fixed_dt": [1e-2, 0.5], "reynolds": 1e6, "until": 20.0, "every": 1.0}
    for _ in range(2):  # It is told again where it is there already.
        with pytest.warns(zephane.ZephaneWarning, match="fixed_dt 0.5: the flow blew") as told:
            ds = sweep(**wanted, path=tmp_path)
        failed_at = float(ds.failed_at.sel(fixed_dt=0.5))
        assert f"blew up at time {failed_at:g};" in str(told[-1].message)
        assert 0.0 < failed_at < 20.0 and np.isnan(ds.failed_at.sel(fixed_dt=1e-2))
        assert ds.energy.sel(fixed_dt=1e-2).notnull().all()
        lost = ds.energy.sel(fixed_dt=0.5)
        assert 0 < lost.notnull().sum() < 21
        assert float(lost.time[lost.notnull()][-1]) <= failed_at
    assert len(os.listdir(tmp_path)) == 2


def test_a_member_that_cannot_be_kept_does_not_stop_the_others(sweep, tmp_path: Path) -> None:
    plan = plan_for({"resolution": 32, "seed": [5, 6]}, 0.3, {"every": 0.1}, False)
    blocked = tmp_path / f"{plan.members[0].name}.part"
    blocked.touch()
    with pytest.raises(zephane.ZephaneError, match=r"^1 of 2 members .*computed. seed 5: Cannot w"):
        sweep(seed=[5, 6], path=tmp_path)
    assert plan.members[1].path(str(tmp_path)).exists()
    blocked.unlink()
    assert sweep(seed=[5, 6], path=tmp_path).energy.notnull().all()


@pytest.mark.parametrize(
    "arguments, words",
    [
        ({"seed": []}, "seed is an empty list"),
        ({"seed": [1, 2, 1]}, "seed 1 is listed twice"),
        ({"reynolds": [100, -1]}, "reynolds -1 is negative"),
        ({"reynolds": [100, None]}, "reynolds None is in a list"),
        ({"resolution": [16, 32], "fields_every": 1}, "fields_every with several resolutions"),
        ({"every": 0}, "every is 0"),
        ({"jobs": 0}, "jobs 0 is too small"),
        ({"checkpoint_seconds": -1}, "checkpoint_seconds -1 is negative"),
        ({"path": "/dev/null/x"}, "Cannot write /dev/null/x: Not a directory"),
    ],
)
def test_nonsense_is_refused_before_the_first_member(sweep, arguments, words) -> None:
    with pytest.raises(zephane.ZephaneError, match=words):
        sweep(**arguments)


def test_unknown_settings_are_refused(sweep) -> None:
    with pytest.raises(TypeError, match="viscosity"):
        sweep(viscosity=[1.0])


# Checkpoints


def test_a_member_goes_on_from_its_checkpoints_with_the_same_bits(
    system, tmp_path: Path, library_path: Path
) -> None:
    whole, broken = tmp_path / "whole", tmp_path / "broken"
    whole.mkdir()
    broken.mkdir()
    one = member()
    run_member(one, str(whole), checkpoint_seconds=1e9, library=library_path)
    breaks = 0
    for last in (3, 5, 9, 12):  # So many reports, each of some steps.
        calls = iter(range(last))
        try:
            run_member(one, str(broken), checkpoint_seconds=1e9, library=library_path,
                       progress=lambda now: next(calls, None) is not None)  # fmt: skip
        except Stopped:
            breaks += 1
    assert breaks >= 2
    run_member(one, str(broken), checkpoint_seconds=0.0, library=library_path)
    made, wanted = opened(one.path(str(broken))), opened(one.path(str(whole)))
    assert made.attrs["history"].count("went on from a checkpoint at t = ") == breaks
    assert same(made, wanted)
    assert {key for key in wanted.attrs if made.attrs[key] != wanted.attrs[key]} == {"history"}
    assert os.listdir(broken) == os.listdir(whole) == [f"{one.name}.nc"]


@pytest.mark.parametrize("damage", ["checkpoint.json", "*.state", "*.npz"])
def test_a_damaged_checkpoint_costs_its_member_a_new_start(
    system, tmp_path: Path, library_path: Path, damage: str
) -> None:
    one = member(until=0.5)
    calls = iter(range(3))
    with pytest.raises(Stopped):
        run_member(one, str(tmp_path), checkpoint_seconds=1e9, library=library_path,
                   progress=lambda now: next(calls, None) is not None)  # fmt: skip
    (found,) = (tmp_path / f"{one.name}.part").glob(damage)
    if damage == "*.npz":
        found.unlink()
    else:
        found.write_bytes(found.read_bytes()[:100])
    run_member(one, str(tmp_path), checkpoint_seconds=1e9, library=library_path)
    ds = opened(one.path(str(tmp_path)))
    assert "checkpoint" not in ds.attrs["history"]
    assert len(ds.time) == 6 and len(ds.field_time) == 2


def started(library: Path, python: Path, folder: Path, *more: str) -> subprocess.Popen[str]:
    """The command, with a sweep of two members that takes a few seconds."""
    return subprocess.Popen(
        [sys.executable, "-m", "zephane", "sweep", str(folder), "--library", str(library),
         "--resolution", "128", "--reynolds", "800", "--seed", "0:2", "--until", "6",
         "--every", "0.5", "--fields-every", "3", "--jobs", "2",
         "--checkpoint-seconds", "0.05", *more],
        env={**os.environ, "PYTHONPATH": str(python)},
        stdout=subprocess.PIPE,
        stderr=subprocess.PIPE,
        text=True,
    )  # fmt: skip


def until(condition: Callable[[], Any], seconds: float = 60.0) -> Any:
    deadline = time.monotonic() + seconds
    while time.monotonic() < deadline:
        found = condition()
        if found:
            return found
        time.sleep(0.01)
    raise AssertionError("timeout")


def children(process: int) -> list[int]:
    found: list[int] = []
    for thread in Path(f"/proc/{process}/task").iterdir():
        found += map(int, (thread / "children").read_text().split())
    return found


@pytest.fixture(scope="module")
def undisturbed(
    library_path: Path, python_path: Path, tmp_path_factory: pytest.TempPathFactory
) -> Iterator[Path]:
    folder = tmp_path_factory.mktemp("undisturbed")
    process = started(library_path, python_path, folder)
    output, errors = process.communicate(timeout=120)
    assert process.returncode == 0 and errors == "", errors
    assert "members   2 (2 seed)\n  samples   13 along time, 3 along field_time" in output
    yield folder


def assert_same_files(made: Path, wanted: Path, resumed: int) -> None:
    assert sorted(os.listdir(made)) == sorted(os.listdir(wanted))
    histories = ""
    for name in os.listdir(wanted):
        assert same(opened(made / name), opened(wanted / name))
        histories += opened(made / name).attrs["history"]
    assert histories.count("went on from a checkpoint") >= resumed


def test_a_process_that_is_killed_costs_its_last_checkpoint(
    library_path: Path, python_path: Path, tmp_path: Path, undisturbed: Path
) -> None:
    sweep = started(library_path, python_path, tmp_path)
    until(lambda: list(tmp_path.glob("*/checkpoint.json")))
    workers = children(sweep.pid)
    assert workers
    for worker in workers:
        os.kill(worker, signal.SIGKILL)
    _, errors = sweep.communicate(timeout=120)
    assert sweep.returncode == 0 and errors == "", errors
    assert_same_files(tmp_path, undisturbed, 1)


@pytest.mark.parametrize("how", [signal.SIGKILL, signal.SIGINT])
def test_a_sweep_that_is_ended_goes_on_with_the_next_call(
    library_path: Path, python_path: Path, tmp_path: Path, undisturbed: Path, how: int
) -> None:
    sweep = started(library_path, python_path, tmp_path)
    until(lambda: list(tmp_path.glob("*/checkpoint.json")))
    workers = children(sweep.pid)
    assert workers
    sweep.send_signal(how)
    _, errors = sweep.communicate(timeout=60)
    if how == signal.SIGINT:
        assert sweep.returncode == 130 and errors == "zephane: interrupted\n"
    until(lambda: not any(os.path.exists(f"/proc/{worker}") for worker in workers))
    again = started(library_path, python_path, tmp_path)
    _, errors = again.communicate(timeout=120)
    assert again.returncode == 0, errors
    assert_same_files(tmp_path, undisturbed, 1)


# Where members run


def test_processors_are_shared_out_without_overlap() -> None:
    assert share_out([0, 1, 2, 5, 7], 2) == [(0, 1), (2, 5, 7)]
    assert share_out([4, 6], 3) == [(4,), (6,), (4,)]
    shares = share_out(range(13), 5)
    assert sorted(sum(shares, ())) == list(range(13))
    assert {len(share) for share in shares} == {2, 3}


def test_members_share_the_processor_as_its_memory_allows(system: zephane.SystemInfo) -> None:
    if not system.backend.startswith("CPU"):
        pytest.skip("The device is a GPU.")
    members = [member(seed=n) for n in range(3)]
    roomy = dataclasses.replace(system, available_memory_bytes=1 << 40)
    places = places_for(roomy, members, None)
    used = [n for place in places for n in place.processors or ()]
    assert len(places) == min(3, len(used)) and len(set(used)) == len(used)
    tight = dataclasses.replace(system, available_memory_bytes=1 << 20)
    assert len(places_for(tight, members, None)) == 1
    assert len(places_for(tight, members, 2)) == 2


def test_each_gpu_has_a_process(system: zephane.SystemInfo, monkeypatch) -> None:
    from zephane import sweep_local
    from zephane.gpus import Driver

    gpus = (("old", 6, 1), ("new", 9, 0), ("other", 8, 0))
    monkeypatch.setattr(sweep_local, "ask_driver", lambda: Driver(True, gpus=gpus))
    cuda = dataclasses.replace(system, backend="CUDA / VkFFT")
    members = [member(seed=n) for n in range(3)]
    assert places_for(cuda, members, None, {}) == [Place(device=1), Place(device=2)]
    assert places_for(cuda, members, 1, {}) == [Place(device=1)]
    assert places_for(cuda, members, None, {"ZEPHANE_DEVICE": "1"}) == [Place()]


def test_members_are_named_by_all_that_they_depend_on() -> None:
    names = {one.name for one in (member(), member(seed=3), member(cfl=1.0), member(until=3.0))}
    assert len(names) == 4
    one = member(seed=2**64 - 1, fixed_dt=0.01)
    assert Member.from_json(json.loads(json.dumps(one.to_json()))) == one


# Progress


def test_one_line_shows_all_members(monkeypatch, capsys) -> None:
    board = Board(4, 1, 10.0, True)
    board.reports.put(Report(1, time=5.0))
    board.reports.put(Report(2, time=2.5))
    board.reports.put(Report(3, error="lost"))
    board.reports.put(Report(3, time=1.0))  # A late one.
    board.update(0.0)
    assert board.line().startswith(" 69 %  ") and "2 of 4 members done  2 running" in board.line()
    assert board.errors == {3: "lost"}


# The command line


@pytest.fixture
def command(
    library_path: Path, python_path: Path, tmp_path: Path
) -> Callable[..., subprocess.CompletedProcess[str]]:
    def call(*options: str) -> subprocess.CompletedProcess[str]:
        return subprocess.run(
            [sys.executable, "-m", "zephane", "sweep", "made", "--library", str(library_path),
             *options],
            env={**os.environ, "PYTHONPATH": str(python_path)},
            cwd=tmp_path,
            capture_output=True,
            text=True,
            timeout=120,
        )  # fmt: skip

    return call


@pytest.mark.parametrize("name, kind", [("all.nc", "netcdf4"), ("all.zarr", "zarr")])
def test_the_command_writes_the_dataset(command, tmp_path: Path, name: str, kind: str) -> None:
    done = command("--resolution", "16", "--cfl", "1,2", "--seed", "1,4:6", "--until", "0.2",
                   "--every", "0.1", "--fields-every", "0.1", "--dataset", name)  # fmt: skip
    assert done.returncode == 0 and done.stderr == ""
    assert "members   6 (3 seed x 2 cfl)" in done.stdout
    with xr.open_dataset(tmp_path / name, engine=kind) as ds:
        assert dict(ds.energy.sizes) == {"cfl": 2, "seed": 3, "time": 3}
        assert list(ds.seed) == [1, 4, 5]
        assert ds.vorticity.shape == (3, 2, 3, 16, 16) and ds.vorticity.notnull().all()
    assert sorted(os.listdir(tmp_path)) == sorted((name, "made"))
    assert len(list((tmp_path / "made").glob("*.nc"))) == 6


def test_the_command_tells_of_a_member_that_blew_up(command) -> None:
    done = command("--resolution", "32", "--fixed-dt", "0.01,0.5", "--reynolds", "1e6",
                   "--until", "20", "--every", "1")  # fmt: skip
    assert done.returncode == 1
    assert "zephane: fixed_dt 0.5: the flow blew up at time " in done.stderr
    assert "2 (2 fixed_dt), 1 of which blew up" in done.stdout


@pytest.mark.parametrize(
    "options, words",
    [
        (("--seed", "3:1"), "3:1 has 0 numbers"),
        (("--seed", "1,x"), '"x" is not a whole number'),
        (("--reynolds", "1:3"), '"1:3" is not a number'),
        (("--resolution", "33"), "zephane: resolution 33 is odd"),
        (("--dataset", "all.csv"), "zephane: all.csv ends in .csv"),
    ],
)
def test_a_wrong_option_is_refused_in_a_sentence(command, tmp_path, options, words) -> None:
    done = command("--until", "1", "--every", "1", *options)
    assert done.returncode in (1, 2) and words in done.stderr and "Traceback" not in done.stderr
    assert not (tmp_path / "made").exists()


def test_without_its_packages_a_sweep_says_how_to_get_them(sweep, monkeypatch) -> None:
    monkeypatch.setitem(sys.modules, "netCDF4", None)
    with pytest.raises(zephane.ZephaneError, match=r"needs netCDF4.*install 'zephane\[data\]'"):
        sweep()
