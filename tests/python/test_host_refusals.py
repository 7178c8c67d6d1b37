"""What the package refuses itself, each in a sentence, before the library is asked."""

from __future__ import annotations

import math
import os
from pathlib import Path
from typing import Any, Callable

import numpy as np
import pytest

import zephane
from zephane import (
    InvalidValueError,
    ZephaneError,
    ZephaneWarning,
    command_line,
    options,
    refusals,
)

Maker = Callable[..., zephane.Engine]

EVEN = "even numbers from 16 to 16384"
SAMPLES = "64 x 64 real numbers, row y and column x"


@pytest.mark.parametrize(
    "changes, words",
    [
        ({"resolution": 127}, f"resolution 127 is odd: {EVEN}"),
        ({"resolution": 0}, f"resolution 0 is too small: {EVEN}"),
        ({"resolution": -2}, f"resolution -2 is negative: {EVEN}"),
        ({"resolution": 16386}, f"resolution 16386 is too large: {EVEN}"),
        ({"resolution": 64.5}, f"resolution 64.5 is no whole number: {EVEN}"),
        ({"resolution": math.nan}, f"resolution nan is no whole number: {EVEN}"),
        ({"resolution": "big"}, f'resolution "big" is no whole number: {EVEN}'),
        ({"resolution": "64"}, f'resolution "64" is no whole number: {EVEN}'),
        ({"resolution": True}, f"resolution True is no whole number: {EVEN}"),
        ({"k0": 0}, "k0 0 is too small: whole numbers from 1 to 1000000"),
        ({"k0": 10**6 + 1}, "k0 1000001 is too large: whole numbers from 1 to 1000000"),
        ({"seed": -1}, "seed -1 is negative: whole numbers from 0 to 18446744073709551615"),
        (
            {"seed": 2**64},
            "seed 18446744073709551616 is too large: whole numbers from 0 to 18446744073709551615",
        ),
        ({"reynolds": 0}, "reynolds is 0: numbers above 0"),
        ({"reynolds": -5.0}, "reynolds -5 is negative: numbers above 0"),
        ({"reynolds": math.inf}, "reynolds inf is not finite: numbers above 0"),
        ({"reynolds": 1e-39}, "reynolds 1e-39 is too small: its viscosity leaves single precision"),
        ({"reynolds": "100"}, 'reynolds "100" is no number: numbers above 0'),
        ({"reynolds": 1j}, "reynolds 1j is no number: numbers above 0"),
        ({"cfl": math.nan}, "cfl nan is not finite: numbers above 0"),
        ({"cfl": 1e39}, "cfl 1e+39 is too large for single precision"),
        ({"cfl": 1e-46}, "cfl 1e-46 is too small for single precision"),
        ({"fixed_dt": 0}, "fixed_dt is 0: numbers above 0"),
        (
            {"integrator": "ETDRK4"},
            'integrator "ETDRK4" is unknown: imexRK3, ifHeunRK3 or etdrk4',
        ),
        ({"operator": 3}, "operator 3 is unknown: stress or advective"),
        ({"initial": "/nowhere/a"}, "Cannot read /nowhere/a: No such file or directory"),
        ({"initial": "/"}, "Cannot read /: Is a directory"),
        ({"initial": ""}, "initial is an empty path: a file, or None for no file"),
        ({"initial": np.zeros((64, 32))}, f"initial is 64 x 32: {SAMPLES}"),
        ({"initial": np.zeros((8, 8, 64))}, f"initial is 8 x 8 x 64: {SAMPLES}"),
        ({"initial": 3.0}, f"initial is a single number: {SAMPLES}"),
        ({"initial": [["a"]]}, f"initial holds no numbers (<U1): {SAMPLES}"),
        (
            {"initial": np.full((64, 64), [np.nan] + [0.0] * 63)},
            "initial has 64 numbers that are infinite, or NaN, in single precision",
        ),
    ],
)
def test_a_value_is_refused_in_a_sentence(make_engine: Maker, changes: Any, words: str) -> None:
    with pytest.raises(ZephaneError) as refusal:
        make_engine(**changes)
    assert str(refusal.value) == words


def test_the_library_agrees_on_what_is_refused(library_path: Path) -> None:
    """Both sides of every limit: what the package takes, the library takes, and no more."""
    library = zephane._library.load(library_path)
    library.description()
    changes: list[dict[str, Any]] = [
        {"resolution": n} for n in (14, 16, 17, 16385, 16386)
    ] + [{"k0": k} for k in (0, 1, 10**6, 10**6 + 1)]
    changes += [{"seed": seed} for seed in (-1, 0, 2**64 - 1, 2**64)]
    changes += [{"reynolds": re} for re in (2.0**-128, 2.0**-128 * (1 + 2**-23), 1e-38, 1e300)]
    changes += [{"cfl": c} for c in (1e-46, 3.4e38, 3.5e38)]
    changes += [{"fixed_dt": dt} for dt in (1e-46, 1e-40, 3.5e38)]
    for change in changes:
        config = zephane.Config(resolution=16).changed(**change)
        try:
            refusals.checked_config(config)
            taken = True
        except InvalidValueError:
            taken = False
        try:
            library.destroy(library.create(config.to_json()))
            words = ""
        except ZephaneError as refusal:
            words = str(refusal)
        # A flow of extreme numbers may fail at its start, which is no refusal of the numbers.
        assert taken == (words == "" or "non-finite field" in words), (change, words)


def test_a_refusal_is_a_value_error_too(make_engine: Maker) -> None:
    with pytest.raises(ValueError):
        make_engine(resolution=127)


def test_numbers_of_numpy_are_numbers(make_engine: Maker) -> None:
    engine = make_engine(resolution=np.int64(32), reynolds=np.float32(100), seed=np.uint64(2**63))
    assert engine.config == zephane.Config(32, reynolds=100.0, seed=2**63)
    assert engine.advance(np.int32(3), until=np.float64(9.0)).steps == 3


def test_nothing_changes_where_one_of_two_is_refused(engine: zephane.Engine) -> None:
    for wrong in (-1.0, math.nan, 1e39, "3"):
        with pytest.raises(InvalidValueError, match="^cfl "):
            engine.set(reynolds=500.0, cfl=wrong)  # type: ignore[arg-type]
    assert engine.advance().reynolds == 1000.0
    with pytest.raises(InvalidValueError, match="^reynolds "):
        engine.set(reynolds=-1.0, cfl=0.1)
    assert engine.advance(9).dt > 0.01


def test_a_start_field_that_is_refused_leaves_the_flow(engine: zephane.Engine) -> None:
    engine.advance(3)
    for wrong in (np.zeros((64, 64), complex), np.zeros(7), "/nowhere/a"):
        with pytest.raises(ZephaneError):
            engine.reset(wrong)
    assert engine.inspect().steps == 3


def test_a_failed_operation_leaves_the_engine_usable(engine: zephane.Engine) -> None:
    for fail, words in (
        (lambda: engine.advance(-1), "steps -1 is negative: whole numbers from 0"),
        (lambda: engine.advance(1.5), "steps 1.5 is no whole number: whole numbers from 0"),
        (lambda: engine.advance(until=math.nan), "until nan is not finite: times from 0"),
        (lambda: engine.advance(until=-1), "until -1 is negative: times from 0"),
        (lambda: engine.set(reynolds=-1.0), "reynolds -1 is negative: numbers above 0"),
    ):
        with pytest.raises(InvalidValueError) as refusal:
            fail()
        assert str(refusal.value) == words
    assert engine.advance().steps == 1


def test_a_complex_start_is_refused_with_the_way_out(
    make_engine: Maker, engine: zephane.Engine
) -> None:
    spectrum = engine.spectrum()
    with pytest.raises(InvalidValueError, match="^initial is complex: ") as refusal:
        make_engine(initial=spectrum)
    assert "numpy.fft.ifft2(spectrum).real * N**2" in str(refusal.value)
    again = make_engine(initial=np.fft.ifft2(spectrum).real * 64**2)
    assert again.inspect().energy == pytest.approx(engine.inspect().energy, rel=1e-5)


def test_a_numpy_file_starts_a_flow(make_engine: Maker, tmp_path: Path) -> None:
    source = make_engine()
    vorticity = source.fields().vorticity
    path = tmp_path / "start.npy"
    np.save(path, vorticity.astype(np.float64))
    assert make_engine(initial=path).spectrum().tobytes() == (
        make_engine(initial=vorticity).spectrum().tobytes()
    )
    np.save(path, vorticity[:32])
    with pytest.raises(InvalidValueError, match="^initial is 32 x 64: "):
        source.reset(path)
    path.write_bytes(b"no array")
    with pytest.raises(InvalidValueError, match="start.npy is no NumPy file of numbers"):
        source.reset(path)
    with pytest.raises(ZephaneError, match="^Cannot read .*gone.npy: No such file"):
        source.reset(tmp_path / "gone.npy")


def test_a_numpy_file_needs_numpy(
    engine: zephane.Engine, tmp_path: Path, without_numpy: None
) -> None:
    with pytest.raises(ZephaneError, match="needs NumPy; a raw file"):
        engine.reset(tmp_path / "start.npy")
    with pytest.raises(InvalidValueError, match="^initial has 3 numbers: "):
        engine.reset([1.0, 2.0, 3.0])
    with pytest.raises(InvalidValueError, match="^initial is no flat sequence"):
        engine.reset([[1.0]])


def test_a_raw_file_of_another_size_is_told_with_its_grid(
    engine: zephane.Engine, tmp_path: Path
) -> None:
    path = tmp_path / "start.raw"
    path.write_bytes(bytes(4 * 32 * 32))
    with pytest.raises(InvalidValueError) as refusal:
        engine.reset(path)
    assert str(refusal.value) == (
        f"{path} has 4096 bytes, a grid of 32 x 32: a start field of 64 x 64 float32 numbers has "
        "16384"
    )


def test_a_peak_beyond_the_grid_is_warned_of(make_engine: Maker) -> None:
    with pytest.warns(ZephaneWarning, match="^k0 40 is beyond the grid: .* up to 31"):
        make_engine(k0=40)


def test_memory_that_will_not_do_is_told_before_the_library_is_asked(
    make_engine: Maker, library_path: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    library = zephane._library.load(library_path)
    description = {**library.description(), "gpu_memory_bytes": 2**30}
    monkeypatch.setattr(library, "_description", description)
    monkeypatch.setattr(library, "create", lambda config: pytest.fail("The library was asked."))
    with pytest.raises(InvalidValueError) as refusal:
        make_engine(resolution=4096)
    assert str(refusal.value) == (
        "A flow of 4096 x 4096 points with etdrk4 and stress needs 1.6 GiB of device memory, and "
        "there are 1 GiB: resolution 3232 fits."
    )


def test_memory_that_runs_out_is_told_with_what_fits(
    make_engine: Maker, library_path: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    library = zephane._library.load(library_path)
    monkeypatch.setattr(
        library, "_description", {**library.description(), "available_memory_bytes": 2**20}
    )

    def create(config: Any) -> int:
        raise ZephaneError("cudaMalloc(&ptr,bytes): out of memory")

    monkeypatch.setattr(library, "create", create)
    with pytest.raises(ZephaneError) as refusal:
        make_engine(resolution=256, integrator="imexRK3", operator="advective")
    assert str(refusal.value) == (
        "cudaMalloc(&ptr,bytes): out of memory. A flow of 256 x 256 points with imexRK3 and "
        "advective needs 6.01 MiB of device memory, and there are 1 MiB: resolution 96 fits."
    )


@pytest.mark.parametrize("integrator", zephane.INTEGRATORS)
@pytest.mark.parametrize("operator", zephane.OPERATORS)
def test_the_memory_that_is_told_is_that_of_the_library(
    make_engine: Maker, integrator: str, operator: str
) -> None:
    engine = make_engine(resolution=512, integrator=integrator, operator=operator)
    needed = refusals.memory_needed(engine.config)
    assert needed == pytest.approx(engine.inspect().allocated_bytes, rel=0.02)


@pytest.mark.parametrize(
    "name, reason",
    [("nowhere/a", "No such file or directory"), ("folder", "Is a directory")],
)
@pytest.mark.parametrize("kind", ["fields", "spectrum"])
def test_a_file_that_cannot_be_written_is_named_with_the_reason(
    engine: zephane.Engine, tmp_path: Path, kind: str, name: str, reason: str
) -> None:
    (tmp_path / "folder").mkdir()
    path = tmp_path / name
    with pytest.raises(ZephaneError) as refusal:
        engine.export(**{kind: path})  # type: ignore[arg-type]
    assert str(refusal.value) == f"Cannot write {path}: {reason} (Cannot write export file.)"
    assert os.listdir(tmp_path) == ["folder"]
    assert engine.advance().steps == 1


def test_a_full_disk_is_named(engine: zephane.Engine) -> None:
    with pytest.raises(ZephaneError) as refusal:
        engine.export(fields="/dev/full")
    assert str(refusal.value) == (
        "Cannot write /dev/full: No space left on device (Cannot write export file.)"
    )


def test_of_several_files_none_is_written_where_one_cannot_be(
    engine: zephane.Engine, tmp_path: Path
) -> None:
    spectrum, lost = tmp_path / "spectrum", tmp_path / "nowhere" / "flow.png"
    with pytest.raises(ZephaneError) as refusal:
        engine.export(spectrum=spectrum, png=lost, pixel_size=8)
    assert str(refusal.value) == f"Cannot write {lost}: No such file or directory"
    assert os.listdir(tmp_path) == []


def test_a_view_of_the_command_line_starts_from_a_numpy_file(
    system: zephane.SystemInfo, engine: zephane.Engine, tmp_path: Path
) -> None:
    path = tmp_path / "start.npy"
    np.save(path, engine.fields().vorticity)
    words = ["watch", "--resolution", "64", "--initial", str(path), "--paused"]
    parsed = command_line._parser("zephane").parse_args(words)
    with options.open_view(parsed) as view:
        for make in (view.start, view.reset):
            make()
            status = view.wait(lambda status: status.ready and status.settled, timeout=60)
            assert status.stats is not None
            assert status.stats.enstrophy == pytest.approx(engine.inspect().enstrophy, rel=1e-5)
