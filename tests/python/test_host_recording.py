"""Recordings: spectra and fluxes, what is sampled when, and the files."""

from __future__ import annotations

import json
import math
import os
import subprocess
import sys
from pathlib import Path
from typing import Any, Callable

import numpy as np
import pytest

import zephane
from zephane import recording_files
from zephane.extras import need

xr = pytest.importorskip("xarray", reason="python3-xarray is missing")
pytest.importorskip("netCDF4", reason="python3-netcdf4 is missing")
pytest.importorskip("zarr", reason="python3-zarr is missing")

FILES = ("flow.nc", "flow.zarr")


def bits(engine: zephane.Engine) -> bytes:
    return bytes(engine.spectrum())


def grid(size: int) -> tuple[Any, Any]:
    points = np.arange(size) * (2.0 * np.pi / size)
    return points[None, :], points[:, None]


def slope(field: Any, axis: str) -> Any:
    """The derivative of a periodic field along one of its axes."""
    number = field.get_axis_num(axis)
    k = np.fft.fftfreq(field.sizes[axis], 1.0 / field.sizes[axis])
    k[field.sizes[axis] // 2] = 0.0
    shape = [-1 if place == number else 1 for place in range(2)]
    return np.fft.ifft(1j * k.reshape(shape) * np.fft.fft(field, axis=number), axis=number).real


# Spectra and fluxes


def test_the_shells_add_up_to_the_figures(engine) -> None:
    engine.advance(until=0.5)
    spectrum, now = engine.spectrum(), engine.inspect()
    energy, enstrophy = zephane.shell_spectra(spectrum)
    assert energy.sum() == pytest.approx(now.energy, rel=1e-6)
    assert enstrophy.sum() == pytest.approx(now.enstrophy, rel=1e-6)
    assert energy == pytest.approx(zephane.radial_spectrum(spectrum), rel=1e-9, abs=1e-15)


@pytest.mark.parametrize("size", [32, 34])
def test_three_waves_exchange_energy_and_enstrophy_as_calculated(size: int) -> None:
    # w = a cos(p x) + b cos(q y) + c sin(p x) sin(q y). The first two waves drive the third by
    # -a b (p/q - q/p) sin(p x) sin(q y); what the three gain adds up to zero.
    a, b, c, p, q = 1.5, -0.75, 0.5, 3, 5
    x, y = grid(size)
    omega = a * np.cos(p * x) + b * np.cos(q * y) + c * np.sin(p * x) * np.sin(q * y)
    energy, enstrophy = zephane.spectral_fluxes(np.fft.fft2(omega) / size**2)
    third = -a * b * c * (p / q - q / p) / 4.0
    squares = {p: p**2, q: q**2}
    both = p**2 + q**2
    # T_p + T_q = -third, and T_p / p² + T_q / q² = -third / (p² + q²).
    gain_q = (-third / both + third / squares[p]) / (1.0 / squares[q] - 1.0 / squares[p])
    gain_p = -third - gain_q
    shell = math.floor(math.sqrt(both) + 0.5)
    assert enstrophy[:p] == pytest.approx(0.0, abs=1e-15)
    assert enstrophy[p:q] == pytest.approx(-gain_p)
    assert enstrophy[q:shell] == pytest.approx(third)
    assert enstrophy[shell:] == pytest.approx(0.0, abs=1e-14)
    assert energy[p:q] == pytest.approx(-gain_p / squares[p])
    assert energy[q:shell] == pytest.approx(third / both)
    assert energy[shell:] == pytest.approx(0.0, abs=1e-15)


def test_nothing_is_lost_through_the_largest_wavenumber(engine) -> None:
    engine.advance(until=1.0)
    energy, enstrophy = zephane.spectral_fluxes(engine.spectrum())
    assert abs(energy[-1]) < 1e-12 * np.abs(energy).max()
    assert abs(enstrophy[-1]) < 1e-12 * np.abs(enstrophy).max()
    assert np.abs(enstrophy).max() > 0.1


def test_each_shell_changes_by_its_transfer_and_its_dissipation(make_engine) -> None:
    engine = make_engine(reynolds=200.0, fixed_dt=1e-3)
    engine.advance(until=0.5)
    ds = zephane.record(engine, steps=40, every=20, spectra_every=20, at="steps")
    transfer = -np.diff(ds.energy_flux[1], prepend=0.0)
    dissipation = 2.0 / 200.0 * ds.enstrophy_spectrum[1]
    times = ds.spectrum_time
    change = (ds.energy_spectrum[2] - ds.energy_spectrum[0]) / float(times[2] - times[0])
    assert change.values == pytest.approx((transfer - dissipation).values, abs=3e-4)
    assert np.abs(transfer).max() > 0.02 and dissipation.max() > 0.005


def test_energy_is_lost_to_viscosity_alone(make_engine) -> None:
    engine = make_engine(reynolds=100.0)
    ds = zephane.record(engine, until=1.0, every=0.02)
    lost = float(ds.energy[0] - ds.energy[-1])
    assert lost == pytest.approx(2.0 / 100.0 * float(ds.enstrophy.integrate("time")), rel=1e-3)
    assert lost > 0.05


# What is sampled when


def test_times_are_met_exactly(engine) -> None:
    ds = zephane.record(engine, until=0.55, every=0.1, spectra_every=0.25, fields_every=0.2)
    assert ds.time.values == pytest.approx([0, 0.1, 0.2, 0.3, 0.4, 0.5, 0.55], rel=1e-12, abs=0)
    assert ds.spectrum_time.values == pytest.approx([0, 0.25, 0.5], rel=1e-12, abs=0)
    assert ds.field_time.values == pytest.approx([0, 0.2, 0.4], rel=1e-12, abs=0)
    assert engine.inspect().simulation_time == pytest.approx(0.55, rel=1e-12)


def test_a_later_recording_begins_at_the_time_of_the_flow(engine) -> None:
    engine.advance(until=0.3)
    ds = zephane.record(engine, until=0.6, every=0.2)
    assert ds.time.values == pytest.approx([0.3, 0.5, 0.6])


def test_steps_are_counted_and_none_is_cut(engine, make_engine) -> None:
    unrecorded = make_engine()
    unrecorded.advance(steps=25)
    ds = zephane.record(engine, steps=25, every=10, fields_every=5, spectra_every=20, at="steps")
    assert list(ds.steps) == [0, 10, 20, 25]
    assert ds.sizes["field_time"] == 6 and ds.sizes["spectrum_time"] == 2
    assert bits(engine) == bits(unrecorded)


def test_the_first_end_counts(engine) -> None:
    ds = zephane.record(engine, until=100.0, steps=7, every=0.05)
    assert ds.steps[-1] == 7
    ds = zephane.record(engine, until=float(ds.time[-1]) + 0.01, steps=1000, every=30, at="steps")
    assert float(ds.time[-1]) < 1.0 and len(ds.time) == 2


def test_the_samples_are_those_of_the_flow(engine, make_engine) -> None:
    ds = zephane.record(engine, until=0.4, every=0.2, fields_every=0.4, velocity=True)
    other = make_engine()
    other.advance(until=0.2)
    other.advance(until=0.4)
    now, fields = other.inspect(), other.fields()
    last = ds.isel(time=-1)
    for name in ("steps", "energy", "enstrophy", "palinstrophy", "dt", "reynolds"):
        assert float(last[name]) == getattr(now, name)
    assert float(last.max_speed) == fields.snapshot.max_speed
    assert float(last.max_vorticity) == fields.snapshot.max_vorticity
    for name in ("vorticity", "u", "v"):
        assert (ds[name][-1].values == getattr(fields, name)).all()
    field = ds.isel(field_time=-1)
    curl = slope(field.v, "x") - slope(field.u, "y")
    assert curl == pytest.approx(field.vorticity.values, abs=1e-3)


def test_the_velocity_is_left_out_unless_it_is_wanted(engine) -> None:
    ds = zephane.record(engine, steps=1, every=1, fields_every=1, at="steps")
    assert "vorticity" in ds and "u" not in ds


def test_everything_has_a_name_and_units_and_the_whole_configuration(make_engine, system) -> None:
    engine = make_engine(seed=2**64 - 1, fixed_dt=0.01)
    ds = zephane.record(engine, steps=1, every=1, fields_every=1, spectra_every=1, at="steps")
    for name, variable in ds.variables.items():
        assert variable.attrs["long_name"] and variable.attrs["units"] in ("1", "radian"), name
    assert set(ds.coords) == {"time", "spectrum_time", "field_time", "wavenumber", "x", "y"}
    assert ds.attrs["Conventions"] == "CF-1.10" and system.gpu in ds.attrs["source"]
    expected = {**engine.config.to_json(), "viscosity": engine.config.viscosity}
    assert {key: ds.attrs[key] for key in expected} == expected
    assert make_engine().config.fixed_dt is None


def test_progress_is_shown_and_can_end_a_recording(engine) -> None:
    seen: list[int] = []

    def show(now: zephane.Clock) -> bool:
        seen.append(now.steps)
        return now.steps < 6

    ds = zephane.record(engine, steps=100, every=3, at="steps", progress=show)
    assert ds.steps[-1] == seen[-1] and 6 <= seen[-1] < 100


def test_progress_has_the_milliseconds_of_all_pieces(engine, monkeypatch) -> None:
    call, taken, shown = engine._library.call, [], []

    def note(handle: int, request: dict) -> dict:
        reply = call(handle, request)
        if request["op"] == "advance" and request["steps"]:
            taken.append(reply["gpu_milliseconds"])
        return reply

    monkeypatch.setattr(engine._library, "call", note)
    zephane.record(engine, steps=12, every=3, spectra_every=6, at="steps",
                   progress=lambda now: shown.append(now.gpu_milliseconds))  # fmt: skip
    assert len(taken) >= 4
    assert shown[-1] == pytest.approx(sum(taken)) and shown == sorted(shown)


@pytest.mark.parametrize(
    "arguments, words",
    [
        ({"every": 1}, "until and steps are missing"),
        ({"until": 1, "every": 0}, "every is 0: numbers above 0"),
        ({"until": 1, "every": 1, "fields_every": -1}, "fields_every -1 is negative"),
        ({"until": 1, "every": 0.5, "at": "steps"}, "every 0.5 is no whole number"),
        ({"until": 1, "every": 1, "at": "step"}, 'at "step" is unknown: time or steps'),
        ({"until": -1, "every": 1}, "until -1 is negative"),
        ({"until": 1, "every": 1, "path": "flow.h5"}, "flow.h5 ends in .h5: a recording is"),
        ({"until": 1, "every": 1, "path": "no/flow.nc"}, "Cannot write no/flow.nc: No such file"),
        ({"until": 1, "every": 1, "path": "no/a.zarr"}, "Cannot write no/a.zarr: No such file"),
    ],
)
def test_nonsense_is_refused_before_the_first_step(engine, arguments, words) -> None:
    with pytest.raises(zephane.ZephaneError, match=words):
        zephane.record(engine, **arguments)
    assert engine.inspect().steps == 0


# Files


@pytest.mark.parametrize("name", FILES)
def test_a_file_has_what_memory_has(make_engine, tmp_path: Path, monkeypatch, name) -> None:
    monkeypatch.setattr(recording_files, "ROWS_AT_ONCE", 4)
    wanted = {"until": 0.5, "every": 0.05, "spectra_every": 0.1, "fields_every": 0.25}
    expected = zephane.record(make_engine(), **wanted, velocity=True)
    for _ in range(2):  # The second replaces the first.
        with zephane.record(make_engine(), **wanted, velocity=True, path=tmp_path / name) as ds:
            assert not isinstance(ds.vorticity.variable._data, np.ndarray)
            assert set(ds.variables) == set(expected.variables)
            for key, variable in expected.variables.items():
                assert ds[key].dtype == variable.dtype and ds[key].dims == variable.dims
                assert (ds[key].values == variable.values).all()
                assert ds[key].attrs == variable.attrs
            different = {key for key in expected.attrs if ds.attrs[key] != expected.attrs[key]}
            assert different <= {"history"}
        assert os.listdir(tmp_path) == [name]


@pytest.mark.parametrize("name", FILES)
def test_a_flow_that_blows_up_leaves_its_recording(make_engine, tmp_path: Path, name) -> None:
    engine = make_engine(fixed_dt=1.0, reynolds=1e9)
    with pytest.raises(zephane.FlowFailedError):
        zephane.record(engine, steps=100, every=1, at="steps", path=tmp_path / name)
    kind = "netcdf4" if name.endswith(".nc") else "zarr"
    with xr.open_dataset(tmp_path / name, engine=kind) as ds:
        assert list(ds.steps) == list(range(len(ds.steps))) and len(ds.steps) > 1


@pytest.mark.parametrize("name", FILES)
def test_a_recording_that_fails_leaves_what_was_there(engine, tmp_path: Path, name) -> None:
    with zephane.record(engine, steps=1, every=1, at="steps", path=tmp_path / name) as ds:
        before = ds.load()

    def fail(now: zephane.Clock) -> bool:
        raise KeyboardInterrupt

    with pytest.raises(KeyboardInterrupt):
        zephane.record(engine, steps=9, every=1, at="steps", path=tmp_path / name, progress=fail)
    assert os.listdir(tmp_path) == [name]
    kind = "netcdf4" if name.endswith(".nc") else "zarr"
    with xr.open_dataset(tmp_path / name, engine=kind) as ds:
        assert ds.load().equals(before)


def test_a_folder_that_is_no_store_is_not_replaced(engine, tmp_path: Path) -> None:
    path = tmp_path / "flow.zarr"
    path.mkdir()
    (path / "thesis.tex").touch()
    with pytest.raises(zephane.InvalidValueError, match="is no Zarr store: nothing is replaced"):
        zephane.record(engine, steps=1, every=1, at="steps", path=path)
    assert os.listdir(path) == ["thesis.tex"]


@pytest.mark.parametrize("name, limit", [("flow.nc", 150000), ("flow.zarr", 200)])
def test_a_file_limit_ends_a_run_with_a_sentence_and_no_debris(
    zeph, tmp_path: Path, name: str, limit: int
) -> None:
    # HDF5 may crash at the end of a process in which a write has failed.
    earlier = zeph("--steps", "1", "--record", name, "--every", "1", "--at", "steps")
    assert earlier.returncode == 0
    options = ("--until", "50", "--record", name, "--every", "1", "--at", "steps",
               *(("--fields-every", "1") if name.endswith(".nc") else ()))  # fmt: skip
    done = zeph(*options, file_limit=limit)
    assert done.returncode == 1 and done.stderr.startswith(f"zephane: Cannot write {name}: ")
    assert "Traceback" not in done.stderr
    assert os.listdir(tmp_path) == [name]
    kind = "netcdf4" if name.endswith(".nc") else "zarr"
    with xr.open_dataset(tmp_path / name, engine=kind) as ds:
        assert list(ds.steps) == [0, 1]


# Without the extras


def test_a_missing_package_is_named_with_the_command_that_installs_it(monkeypatch) -> None:
    monkeypatch.setitem(sys.modules, "netCDF4", None)
    with pytest.raises(zephane.ZephaneError) as refused:
        need("netCDF4", "data", "Recording")
    assert str(refused.value) == (
        "Recording needs netCDF4, which is missing: pip install 'zephane[data]'"
    )


def test_a_recording_without_xarray_is_refused_before_the_first_step(engine, monkeypatch) -> None:
    monkeypatch.setitem(sys.modules, "xarray", None)
    with pytest.raises(zephane.ZephaneError, match=r"needs xarray.*pip install 'zephane\[data\]'"):
        zephane.record(engine, steps=1, every=1, at="steps")
    assert engine.inspect().steps == 0


def test_importing_the_package_imports_no_other(python_path: Path) -> None:
    script = (
        "import sys, zephane, zephane.command_line\n"
        "others = {'numpy', 'xarray', 'netCDF4', 'zarr', 'av', 'anywidget', 'matplotlib'}\n"
        "print(sorted(others & set(sys.modules)))"
    )
    done = subprocess.run(
        [sys.executable, "-c", script],
        env={**os.environ, "PYTHONPATH": str(python_path)},
        capture_output=True,
        text=True,
        check=True,
    )
    assert done.stdout == "[]\n"


# The command line


@pytest.fixture
def zeph(
    library_path: Path, python_path: Path, tmp_path: Path
) -> Callable[..., subprocess.CompletedProcess[str]]:
    def call(
        *options: str, file_limit: int | None = None
    ) -> subprocess.CompletedProcess[str]:
        script = "from zephane.command_line import main; import sys; sys.exit(main(sys.argv[1:]))"
        if file_limit is not None:
            script = (
                "import resource; resource.setrlimit(resource.RLIMIT_FSIZE, "
                f"({file_limit}, {file_limit})); {script}"
            )
        return subprocess.run(
            [sys.executable, "-c", script, "run", "--library", str(library_path),
             "--resolution", "32", "--no-progress", *options],
            env={**os.environ, "PYTHONPATH": str(python_path)},
            cwd=tmp_path,
            stdin=subprocess.DEVNULL,
            capture_output=True,
            text=True,
            timeout=120,
        )  # fmt: skip

    return call


def test_a_run_is_recorded(zeph, tmp_path: Path) -> None:
    done = zeph("--until", "0.5", "--record", "flow.nc", "--every", "0.1", "--fields-every",
                "0.5", "--spectra-every", "0.25", "--velocity", "--save-state", "s")  # fmt: skip
    assert done.returncode == 0 and done.stderr == ""
    assert "recording           flow.nc" in done.stdout
    with xr.open_dataset(tmp_path / "flow.nc") as ds:
        assert dict(ds.sizes) == {
            "time": 6, "spectrum_time": 3, "field_time": 2, "wavenumber": 24, "x": 32, "y": 32
        }  # fmt: skip
        assert {"u", "energy_flux"} <= set(ds)


def test_a_recorded_run_at_steps_is_the_run(zeph, tmp_path: Path) -> None:
    plain = json.loads(zeph("--steps", "20", "--json").stdout)
    done = zeph("--steps", "20", "--json", "--record", "a.zarr", "--every", "4", "--at", "steps")
    recorded = json.loads(done.stdout)
    for figures in (plain, recorded):
        del figures["gpu_milliseconds"]
    assert recorded == plain
    with xr.open_dataset(tmp_path / "a.zarr", engine="zarr") as ds:
        assert list(ds.steps) == [0, 4, 8, 12, 16, 20]


def test_the_report_of_a_recorded_run_has_the_milliseconds_of_all_steps(zeph) -> None:
    options = ("--steps", "400", "--json")
    plain = json.loads(zeph(*options).stdout)["gpu_milliseconds"]
    done = zeph(*options, "--record", "flow.nc", "--every", "4", "--at", "steps")
    assert json.loads(done.stdout)["gpu_milliseconds"] > 0.2 * plain


@pytest.mark.parametrize(
    "options, words",
    [
        (("--every", "1"), "--every needs --record FILE."),
        (("--record", "a.nc"), "--record needs --every T"),
        (("--record", "a.csv", "--every", "1"), "a.csv ends in .csv: a recording is a NetCDF file"),
        (("--record", "a.nc", "--every", "x"), "invalid float value"),
    ],
)
def test_a_wrong_recording_is_refused_in_a_sentence(zeph, options, words) -> None:
    done = zeph("--steps", "1", *options)
    assert done.returncode != 0 and words in done.stderr and done.stdout == ""
