"""The binding: the operations and reports of the library in Python."""

from __future__ import annotations

import dataclasses
import gc
import math
import os
import subprocess
import sys
import threading
from pathlib import Path
from typing import Any, Callable

import pytest

import zephane
from zephane import ZephaneError, _library

Maker = Callable[..., zephane.Engine]


def test_the_description_of_the_system_has_every_member(system: zephane.SystemInfo) -> None:
    assert system.abi_version == 1
    assert system.precision == "float32"
    assert system.gpu
    assert 0 < system.available_memory_bytes <= system.gpu_memory_bytes
    assert set(system.capabilities) == {"native_rendering", "forcing", "drag", "vortex_injection"}


def test_the_defaults_of_the_package_match_the_library(system: zephane.SystemInfo) -> None:
    assert system.defaults == zephane.Config()
    assert system.defaults.reynolds == zephane.default_reynolds(1024, 4)


def test_derived_figures_of_a_configuration_match_the_library(library_path: Path) -> None:
    defaults = _library.load(library_path).initialize()["defaults"]
    config = zephane.Config.from_json(defaults)
    assert config.padded_resolution == defaults["padded_resolution"]
    assert config.viscosity == defaults["viscosity"]


def test_a_configuration_survives_a_round_trip_through_json() -> None:
    config = zephane.Config(128, 7, 2**64 - 1, 5e3, 1.5, 0.01, "ifHeunRK3", "advective", "KM3")
    assert config.to_json()["seed"] == "18446744073709551615"
    assert zephane.Config.from_json(config.to_json()) == config


def test_records_are_frozen(engine: zephane.Engine, system: zephane.SystemInfo) -> None:
    for record in (engine.config, engine.inspect(), system):
        with pytest.raises(dataclasses.FrozenInstanceError):
            record.reynolds = 1.0  # type: ignore[misc, union-attr]


def test_an_engine_starts_at_time_zero(engine: zephane.Engine) -> None:
    start = engine.inspect()
    assert (start.steps, start.simulation_time, start.is_finite) == (0, 0.0, True)
    assert start.energy == pytest.approx(0.5, rel=0.1)
    assert start.reynolds == 1000.0
    assert start.allocated_bytes > 0


def test_advance_takes_one_step_by_default(engine: zephane.Engine) -> None:
    assert engine.advance().steps == 1
    assert engine.advance(4).steps == 5
    assert engine.advance(0).steps == 5


def test_advance_stops_exactly_at_the_given_time(engine: zephane.Engine) -> None:
    end = engine.advance(steps=100_000, until=0.5)
    assert end.simulation_time == pytest.approx(0.5, rel=1e-13)
    assert 0 < end.steps < 100_000


def test_set_changes_only_the_given_numbers(make_engine: Maker) -> None:
    engine, other = make_engine(), make_engine()
    engine.set()
    engine.set(reynolds=500.0)
    assert engine.advance().reynolds == 500.0
    assert other.advance().dt == engine.inspect().dt
    engine.set(cfl=0.5)
    assert engine.advance(5).dt < other.advance(5).dt
    assert engine.config.reynolds == 1000.0


def test_reset_returns_to_the_seeded_start(engine: zephane.Engine) -> None:
    start = engine.inspect()
    engine.advance(3)
    again = engine.reset()
    assert (again.steps, again.simulation_time) == (0, 0.0)
    assert (again.energy, again.enstrophy) == (start.energy, start.enstrophy)


def test_a_flow_starts_from_a_file_or_an_array(make_engine: Maker, tmp_path: Path) -> None:
    source = make_engine()
    source.advance(10)
    expected = source.inspect()
    vorticity = source.fields(include_velocity=False).vorticity
    path = tmp_path / "Größe 漢字" / "start.raw"
    path.parent.mkdir()
    path.write_bytes(vorticity.tobytes())
    for initial in (vorticity, path, str(path)):
        for start in (source.reset(initial), make_engine(initial=initial).inspect()):
            assert start.steps == 0
            assert start.energy == pytest.approx(expected.energy, rel=1e-5)
            assert start.enstrophy == pytest.approx(expected.enstrophy, rel=1e-5)


def test_export_writes_the_requested_files(engine: zephane.Engine, tmp_path: Path) -> None:
    assert engine.export() is None
    assert engine.export(spectrum=tmp_path / "spectrum") is None
    snapshot = engine.export(fields=str(tmp_path / "fields"))
    assert snapshot is not None and snapshot.grid_size == 64
    assert (tmp_path / "spectrum").stat().st_size == 8 * 64 * 64
    assert (tmp_path / "fields").stat().st_size == 12 * 64 * 64


def test_export_reports_a_snapshot_on_request(engine: zephane.Engine) -> None:
    engine.advance(3)
    snapshot = engine.export(snapshot=True)
    still = engine.export(snapshot=True, include_velocity=False)
    assert snapshot is not None and still is not None
    assert snapshot.sequence == 3
    assert snapshot.max_vorticity >= snapshot.std_vorticity > 0.0
    assert snapshot.max_speed > 0.0
    assert still.max_speed == 0.0


def test_an_unknown_member_of_the_configuration_is_refused(make_engine: Maker) -> None:
    with pytest.raises(TypeError, match="viscosity"):
        make_engine(viscosity=1e-3)


def test_a_closed_engine_refuses_requests(make_engine: Maker) -> None:
    with make_engine() as engine:
        assert not engine.closed
    assert engine.closed
    engine.close()
    with pytest.raises(ZephaneError, match=r"^Closed engine\.$"):
        engine.inspect()


def test_several_threads_use_and_close_one_engine(make_engine: Maker) -> None:
    engine = make_engine()
    together(6, lambda: engine.advance(5))
    assert engine.inspect().steps == 30
    together(6, engine.close)
    assert engine.closed


def together(count: int, action: Callable[[], Any]) -> None:
    threads = [threading.Thread(target=action) for _ in range(count)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()


class Recorder:
    """The library's functions, recording every string and handle that they return and free."""

    def __init__(self, functions: Any) -> None:
        self._functions = functions
        self.held: list[int] = []
        self.destroyed: list[int] = []

    def zp_string_free(self, address: int) -> None:
        self.held.remove(address)
        self._functions.zp_string_free(address)

    def zp_engine_destroy(self, handle: int) -> None:
        self.destroyed.append(handle)
        self._functions.zp_engine_destroy(handle)

    def zp_engine_create(self, config: bytes, error: Any) -> Any:
        handle = self._functions.zp_engine_create(config, error)
        if not handle:
            self.held.append(error._obj.value)
        return handle

    def zp_engine_call(self, handle: Any, request: bytes) -> Any:
        self.held.append(self._functions.zp_engine_call(handle, request))
        return self.held[-1]


@pytest.fixture
def recorder(library_path: Path, system: Any, monkeypatch: pytest.MonkeyPatch) -> Recorder:
    library = _library.load(library_path)
    recorder = Recorder(library._functions)
    monkeypatch.setattr(library, "_functions", recorder)
    return recorder


def test_every_argument_of_export_reaches_the_library(
    engine: zephane.Engine, monkeypatch: pytest.MonkeyPatch
) -> None:
    requests: list[Any] = []
    monkeypatch.setattr(engine._library, "call", lambda handle, asked: requests.append(asked) or {})
    arguments: dict[str, Any] = {
        "spectrum": "a",
        "fields": "b",
        "png": "c",
        "snapshot": False,
        "include_velocity": False,
        "pixel_size": 7,
        "display": "speed",
        "palette": "aurora",
        "color_range": "exposure",
        "exposure": 0.5,
        "sigma": 2.0,
        "flow": True,
    }
    engine.export(**arguments)
    engine.export(fields=Path("b"))
    assert requests == [{"op": "export", **arguments}, {"op": "export", "fields": "b"}]


def test_engines_of_many_threads_initialize_once(library_path: Path, python_path: Path) -> None:
    program = """
import sys, threading, zephane
made = []
make = lambda: made.append(zephane.Engine(resolution=32, library=sys.argv[1]).advance(20).steps)
threads = [threading.Thread(target=make) for _ in range(8)]
[thread.start() for thread in threads]
[thread.join() for thread in threads]
assert made == [20] * 8, made
"""
    words = [sys.executable, "-c", program, str(library_path)]
    environment = {**os.environ, "PYTHONPATH": str(python_path)}
    subprocess.run(words, env=environment, check=True, timeout=60)


def test_every_string_is_freed_once(recorder: Recorder, make_engine: Maker) -> None:
    engine = make_engine()
    engine.inspect()
    with pytest.raises(ZephaneError):
        engine.advance(-1)
    with pytest.raises(ZephaneError):
        make_engine(resolution=1)
    assert recorder.held == []


def test_an_engine_is_destroyed_once(recorder: Recorder, make_engine: Maker) -> None:
    engine = make_engine()
    engine.close()
    engine.close()
    assert len(recorder.destroyed) == 1


def test_a_garbage_collected_engine_is_destroyed(recorder: Recorder, library_path: Path) -> None:
    engine = zephane.Engine(resolution=16, library=library_path)
    del engine
    gc.collect()
    assert len(recorder.destroyed) == 1


def test_the_loaded_library_is_the_default(library_path: Path) -> None:
    chosen = _library.load(library_path)
    assert _library.load() is chosen
    assert _library.load(os.path.relpath(library_path)) is chosen


def test_the_library_is_searched_for_beside_the_package_and_in_the_builds(
    monkeypatch: pytest.MonkeyPatch, tmp_path: Path
) -> None:
    package = tmp_path / "checkout" / "python" / "zephane"
    package.mkdir(parents=True)
    monkeypatch.setattr(_library, "__file__", str(package / "_library.py"))
    monkeypatch.setattr(_library.ctypes.util, "find_library", lambda name: None)
    name = _library.library_name()
    checkout = tmp_path / "checkout"
    with pytest.raises(ZephaneError, match="The library was not found") as refusal:
        _library.find_library()
    for place in (checkout / "build", checkout / "build" / "release", package):
        assert str(place / name) in str(refusal.value)
        place.mkdir(parents=True, exist_ok=True)
        (place / name).touch()
        assert _library.find_library() == str(place / name)


def test_the_system_loader_is_tried_last(monkeypatch: pytest.MonkeyPatch, tmp_path: Path) -> None:
    monkeypatch.setattr(_library, "__file__", str(tmp_path / "a" / "b" / "c.py"))
    monkeypatch.setattr(_library.ctypes.util, "find_library", lambda name: f"lib{name}.so.7")
    assert _library.find_library() == "libzephane.so.7"


def test_a_missing_or_invalid_library_is_refused(tmp_path: Path) -> None:
    with pytest.raises(ZephaneError, match="No library at .*absent.so"):
        zephane.initialize(tmp_path / "absent.so")
    (tmp_path / "text.so").write_text("no machine code\n")
    with pytest.raises(ZephaneError, match="text.so cannot be used"):
        zephane.initialize(tmp_path / "text.so")


def test_the_version_matches_the_project() -> None:
    version = Path(__file__).resolve().parents[2] / "VERSION"
    assert zephane.__version__ == version.read_text().strip()


def test_the_default_reynolds_number_grows_with_the_grid() -> None:
    assert zephane.default_reynolds(1024, 4) == 27898.36614974335
    doubled = zephane.default_reynolds(2048, 4) / zephane.default_reynolds(1024, 4)
    assert math.log2(doubled) == pytest.approx(1.06624)
