"""The command line, run as its users run it."""

from __future__ import annotations

import json
import os
import pty
import re
import shlex
import signal
import subprocess
import sys
import time
from pathlib import Path
from typing import Any, Callable

import pytest
from png_reader import read_png

import zephane
from zephane import command_line, outputs, progress, run

EVEN = "even numbers from 16 to 16384"
PALETTES = "aurora, ember, glacier or inferno"
PIXELS = "whole numbers from 1 to 8192"
ENDINGS = "raw files end in .raw, .bin, .dat, .f32 or have no ending, NumPy files end in .npy"
SEEDS = "whole numbers from 0 to 18446744073709551615"
SMALL = ("--resolution", "64", "--reynolds", "1000")

Runner = Callable[..., "subprocess.CompletedProcess[str]"]


@pytest.fixture
def environment(python_path: Path) -> dict[str, str]:
    kept = {key: value for key, value in os.environ.items() if key != "ZEPHANE_DEVICE"}
    return {**kept, "PYTHONPATH": str(python_path), "PYTHONDONTWRITEBYTECODE": "1"}


@pytest.fixture
def command(library_path: Path) -> Callable[..., list[str]]:
    def words(name: str, *options: str) -> list[str]:
        return [sys.executable, "-m", "zephane", name, "--library", str(library_path), *options]

    return words


@pytest.fixture
def zeph(command: Callable[..., list[str]], environment: dict[str, str]) -> Runner:
    """Runs a command to its end, without a terminal."""

    def call(
        name: str, *options: str, extra: dict[str, str] | None = None
    ) -> subprocess.CompletedProcess[str]:
        return subprocess.run(
            command(name, *options),
            env={**environment, **(extra or {})},
            stdin=subprocess.DEVNULL,
            capture_output=True,
            text=True,
            timeout=120,
        )

    return call


class Terminal:
    """A terminal of 80 columns that a process writes its standard error to."""

    def __init__(self) -> None:
        self._reader, self.writer = pty.openpty()
        self.text = ""

    def read(self) -> bool:
        """Read what has been written; False once every process has closed the terminal."""
        try:
            data = os.read(self._reader, 65536)
        except OSError:
            data = b""
        self.text += data.decode("utf-8", errors="replace")
        return bool(data)

    def close(self) -> None:
        os.close(self._reader)


@pytest.fixture
def in_terminal(command: Callable[..., list[str]], environment: dict[str, str]) -> Any:
    """Starts a command whose standard error is a terminal; returns the process and the terminal."""
    terminal = Terminal()
    running: list[Any] = []

    def start(*arguments: str) -> Any:
        running.append(
            subprocess.Popen(
                command(*arguments),
                env={**environment, "COLUMNS": "80"},
                stdin=subprocess.DEVNULL,
                stdout=subprocess.PIPE,
                stderr=terminal.writer,
                text=True,
            )
        )
        os.close(terminal.writer)
        return running[-1], terminal

    yield start
    terminal.close()
    for process in running:
        process.kill()
        process.wait()
        process.stdout.close()


def test_a_run_ends_with_a_report(zeph: Runner) -> None:
    result = zeph("run", *SMALL, "--until", "0.5", "--seed", "11")
    assert (result.returncode, result.stderr) == (0, "")
    assert "64 x 64, k0 4, seed 11, Re 1000, etdrk4, stress, PAO" in result.stdout
    for name in ("time  ", "steps", "energy", "enstrophy", "palinstrophy", "wall time"):
        assert re.search(rf"^  {name}", result.stdout, re.MULTILINE)
    assert re.search(r"^  time +0\.5, ", result.stdout, re.MULTILINE)


def test_a_run_matches_the_engine(zeph: Runner, library_path: Path) -> None:
    options = ("--k0", "6", "--seed", "3", "--integrator", "ifHeunRK3", "--operator", "advective")
    more = ("--start-spectrum", "KM3", "--cfl", "1.5", "--steps", "37", "--json")
    report = json.loads(zeph("run", *SMALL, *options, *more).stdout)
    config = zephane.Config(64, 6, 3, 1000.0, 1.5, None, "ifHeunRK3", "advective", "KM3")
    with zephane.Engine(config, library=library_path) as engine:
        engine.advance(37)
        expected = vars(engine.inspect())
    assert set(report) == set(expected)
    assert report.pop("gpu_milliseconds") > 0.0
    assert report == {key: value for key, value in expected.items() if key != "gpu_milliseconds"}


def test_a_run_lasts_a_few_turnover_times_by_default(zeph: Runner) -> None:
    report = json.loads(zeph("run", *SMALL, "--json").stdout)
    assert report["simulation_time"] == pytest.approx(3 * report["initial_turnover_time"], rel=1e-12)


def test_a_run_ends_at_whichever_bound_it_reaches_first(zeph: Runner) -> None:
    by_time = json.loads(zeph("run", *SMALL, "--json", "--until", "0.2", "--steps", "9999").stdout)
    by_steps = json.loads(zeph("run", *SMALL, "--json", "--until", "9999", "--steps", "5").stdout)
    assert by_time["simulation_time"] == pytest.approx(0.2, rel=1e-12)
    assert by_steps["steps"] == 5


def test_a_run_may_take_no_steps(zeph: Runner) -> None:
    assert json.loads(zeph("run", *SMALL, "--json", "--steps", "0").stdout)["steps"] == 0


def test_a_fixed_time_step_is_used(zeph: Runner) -> None:
    report = json.loads(
        zeph("run", *SMALL, "--fixed-dt", "0.0078125", "--steps", "8", "--json").stdout
    )
    assert (report["dt"], report["simulation_time"]) == (0.0078125, 0.0625)


def test_the_default_reynolds_number_suits_the_grid(zeph: Runner) -> None:
    report = json.loads(
        zeph("run", "--resolution", "64", "--k0", "3", "--steps", "1", "--json").stdout
    )
    assert report["reynolds"] == zephane.default_reynolds(64, 3)


def test_a_run_writes_its_files(zeph: Runner, library_path: Path, tmp_path: Path) -> None:
    paths = {kind: tmp_path / kind for kind in ("spectrum", "fields", "png")}
    outputs = [word for kind, path in paths.items() for word in (f"--{kind}", str(path))]
    result = zeph("run", *SMALL, "--steps", "20", "--pixels", "90", *outputs)
    assert result.returncode == 0
    assert all(str(path) in result.stdout for path in paths.values())
    with zephane.Engine(resolution=64, reynolds=1000.0, library=library_path) as engine:
        engine.advance(20)
        assert paths["fields"].read_bytes() == engine.fields().data.tobytes()
        assert paths["spectrum"].read_bytes() == engine.spectrum().tobytes()
        engine.export(png=tmp_path / "expected", pixel_size=90)
    assert paths["png"].read_bytes() == (tmp_path / "expected").read_bytes()


def test_every_option_of_the_picture_reaches_the_library(
    zeph: Runner, library_path: Path, tmp_path: Path
) -> None:
    settings: list[dict[str, Any]] = [
        {"display": "speed", "palette": "aurora", "exposure": 0.6, "flow": True},
        {"palette": "inferno", "color_range": "exposure", "exposure": 2.5},
        {"palette": "glacier", "sigma": 1.6},
        {"display": "enstrophy"},
    ]
    with zephane.Engine(resolution=64, reynolds=1000.0, library=library_path) as engine:
        engine.advance(10)
        for number, chosen in enumerate(settings):
            drawn, expected = tmp_path / f"{number}.png", tmp_path / f"{number}.expected"
            words = [f"--{key.replace('_', '-')}={value}" for key, value in chosen.items()]
            words = ["--flow" if word == "--flow=True" else word for word in words]
            done = zeph(
                "run", *SMALL, "--steps", "10", "--pixels", "77", "--png", str(drawn), *words
            )
            assert (done.returncode, done.stderr) == (0, "")
            engine.export(png=expected, pixel_size=77, **chosen)
            assert drawn.read_bytes() == expected.read_bytes()


NO_DRIVER = {"VK_DRIVER_FILES": "/nonexistent", "VK_ICD_FILENAMES": "/nonexistent"}


def test_a_missing_vulkan_driver_is_reported_before_the_run(zeph: Runner, tmp_path: Path) -> None:
    fields, picture = tmp_path / "fields", tmp_path / "flow.png"
    files = ("--fields", str(fields), "--png", str(picture))
    result = zeph("run", *SMALL, "--steps", "1000000000", *files, extra=NO_DRIVER)
    assert (result.returncode, result.stdout) == (1, "")
    assert result.stderr.startswith(f"zephane: Cannot write {picture}: No Vulkan device found. ")
    assert "a Vulkan driver" in result.stderr and "mesa-vulkan-drivers" in result.stderr
    assert result.stderr.count("\n") == 1
    assert os.listdir(tmp_path) == []


@pytest.mark.parametrize(
    "option, path, reason",
    [
        ("--fields", "/dev/full", "No space left on device"),
        ("--png", "folder.png", "Is a directory"),
        ("--spectrum", "nowhere/a.raw", "No such file or directory"),
        ("--spectrum", "file/a.raw", "Not a directory"),
        ("--png", "n" * 300 + ".png", "File name too long"),
    ],
)
def test_an_unwritable_file_is_reported_before_the_run(
    zeph: Runner, tmp_path: Path, option: str, path: str, reason: str
) -> None:
    (tmp_path / "folder.png").mkdir()
    (tmp_path / "file").touch()
    path = str(tmp_path / path)
    result = zeph("run", *SMALL, "--steps", "1000000000", option, path)
    assert (result.returncode, result.stdout) == (1, "")
    assert result.stderr == f"zephane: Cannot write {path}: {reason}\n"
    assert sorted(os.listdir(tmp_path)) == ["file", "folder.png"]


def test_a_disk_without_room_for_the_files_is_reported_before_the_run(
    tmp_path: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    free = type("Usage", (), {"free": 1000})
    monkeypatch.setattr(outputs.shutil, "disk_usage", lambda folder: free)
    first, second = str(tmp_path / "a"), str(tmp_path / "b")
    outputs.check_outputs({first: 600})
    with pytest.raises(zephane.ZephaneError, match="b: No space left .*: 1200 bytes are needed"):
        outputs.check_outputs({first: 600, second: 600})
    assert os.listdir(tmp_path) == []


def test_a_file_beyond_the_limit_of_the_process_is_reported_before_the_run(
    environment: dict[str, str], command: Callable[..., list[str]], tmp_path: Path
) -> None:
    words = shlex.join(command("run", *SMALL, "--steps", "3", "--fields", str(tmp_path / "f")))
    result = subprocess.run(
        ["bash", "-c", f"ulimit -f 10; {words}"], env=environment, capture_output=True, text=True
    )
    assert result.returncode == 1
    assert "File too large: the limit of this process is 10240 bytes" in result.stderr


@pytest.mark.parametrize("form", [(), ("--json",)], ids=["report", "json"])
def test_the_report_and_the_other_files_are_written_when_one_file_fails(
    library_path: Path,
    tmp_path: Path,
    monkeypatch: pytest.MonkeyPatch,
    capsys: pytest.CaptureFixture[str],
    form: tuple[str, ...],
) -> None:
    folder, fields = tmp_path / "folder", tmp_path / "fields.raw"
    folder.mkdir()
    advance = run._advance

    def lose_the_folder(*arguments: Any) -> Any:
        folder.rmdir()
        return advance(*arguments)

    monkeypatch.setattr(run, "_advance", lose_the_folder)
    spectrum, numbers = folder / "spectrum.raw", folder / "spectrum.npy"
    words = ["run", "--library", str(library_path), *SMALL, "--steps", "3", "--fields", str(fields)]
    for path, library_text in ((spectrum, " (Cannot write export file.)"), (numbers, "")):
        folder.mkdir(exist_ok=True)
        assert command_line.main([*words, "--spectrum", str(path), *form]) == 1
        written = capsys.readouterr()
        lost = f"zephane: Cannot write {path}: No such file or directory{library_text}\n"
        assert written.err == lost
        assert fields.stat().st_size == 12 * 64 * 64
        if form:
            assert json.loads(written.out)["steps"] == 3
        else:
            assert "  energy " in written.out and str(fields) in written.out
            assert str(path) not in written.out


def test_the_suffix_of_a_file_name_selects_the_format(zeph: Runner, tmp_path: Path) -> None:
    import numpy as np

    files = [tmp_path / name for name in ("f.npy", "f.raw", "s.npy", "s.raw")]
    names = ("--fields", str(files[0]), "--spectrum", str(files[2]))
    raw = ("--fields", str(files[1]), "--spectrum", str(files[3]))
    for outputs_ in (names, raw):
        assert zeph("run", *SMALL, "--steps", "3", *outputs_).returncode == 0
    fields, spectrum = np.load(files[0]), np.load(files[2])
    assert (fields.dtype, fields.shape) == (np.float32, (3, 64, 64))
    assert (spectrum.dtype, spectrum.shape) == (np.complex64, (64, 64))
    assert fields.tobytes() == files[1].read_bytes()
    assert spectrum.tobytes() == files[3].read_bytes()
    assert files[0].stat().st_mode == files[1].stat().st_mode
    assert len(os.listdir(tmp_path)) == 4


def test_a_run_starts_from_the_fields_of_another(zeph: Runner, tmp_path: Path) -> None:
    path = str(tmp_path / "start")
    zeph("run", *SMALL, "--steps", "10", "--fields", path)
    os.truncate(path, 4 * 64 * 64)
    first = json.loads(zeph("run", *SMALL, "--steps", "10", "--json").stdout)
    report = json.loads(zeph("run", *SMALL, "--initial", path, "--steps", "0", "--json").stdout)
    assert report["enstrophy"] == pytest.approx(first["enstrophy"], rel=1e-5)


def test_a_run_needs_no_numpy(zeph: Runner, python_path: Path, tmp_path: Path) -> None:
    hidden = tmp_path / "hidden"
    hidden.mkdir()
    (hidden / "numpy.py").write_text("raise ImportError('hidden')\n")
    options = (*SMALL, "--steps", "10", "--pixels", "60", "--display", "speed", "--png")
    with_numpy, without = tmp_path / "a.png", tmp_path / "b.png"
    without_path = f"{hidden}{os.pathsep}{python_path}"
    assert zeph("run", *options, str(with_numpy)).returncode == 0
    plain = zeph("run", *options, str(without), extra={"PYTHONPATH": without_path})
    assert plain.returncode == 0, plain.stderr
    assert with_numpy.read_bytes() == without.read_bytes()


@pytest.mark.parametrize(
    "options, words",
    [
        (("--resolution", "17"), f"resolution 17 is odd: {EVEN}"),
        (("--resolution", "-4"), f"resolution -4 is negative: {EVEN}"),
        (("--k0", "0"), "k0 0 is too small: whole numbers from 1 to 1000000"),
        (("--k0", "1000001"), "k0 1000001 is too large: whole numbers from 1 to 1000000"),
        (("--reynolds", "0"), "reynolds is 0: numbers above 0"),
        (("--cfl", "-1"), "cfl -1 is negative: numbers above 0"),
        (("--cfl", "1e39"), "cfl 1e+39 is too large for single precision"),
        (("--seed", "-1"), f"seed -1 is negative: {SEEDS}"),
        (("--seed", "one"), f'seed "one" is no whole number: {SEEDS}'),
        (("--fixed-dt", "0"), "fixed_dt is 0: numbers above 0"),
        (("--integrator", "RK9"), 'integrator "RK9" is unknown: imexRK3, ifHeunRK3 or etdrk4'),
        (("--operator", ""), 'operator "" is unknown: stress or advective'),
        (("--start-spectrum", "pao"), 'start_spectrum "pao" is unknown: PAO or KM3'),
        (("--steps", "-1"), "steps -1 is negative: whole numbers from 0"),
        (("--until", "-1"), "until -1 is negative: times from 0"),
        (("--until", "nan"), "until nan is not finite: times from 0"),
        (("--until", "1e39"), "until 1e+39 is too large for single precision"),
        (("--palette", "Ember"), f'palette "Ember" is unknown: {PALETTES}'),
        (("--display", "heat"), 'display "heat" is unknown: vorticity, speed or enstrophy'),
        (("--color-range", "all"), 'color_range "all" is unknown: sigma or exposure'),
        (("--exposure", "nan"), "exposure nan is not finite"),
        (("--png", "a.png", "--pixels", "0"), f"pixel_size 0 is too small: {PIXELS}"),
        (("--png", "a.png", "--pixels", "8193"), f"pixel_size 8193 is too large: {PIXELS}"),
        (("--png", "a.jpg"), "a.jpg ends in .jpg: a picture is a .png file"),
        (("--fields", "a.nc"), f"a.nc ends in .nc: {ENDINGS}"),
        (("--spectrum", "a.png"), f"a.png ends in .png: {ENDINGS}"),
        (("--fields", "a.raw", "--spectrum", "a.raw"), "a.raw is named for two outputs."),
    ],
)
def test_an_invalid_value_is_refused_in_a_sentence(
    zeph: Runner, options: list[str], words: str
) -> None:
    result = zeph("run", *SMALL, *options)
    assert (result.returncode, result.stdout) == (1, "")
    assert result.stderr == f"zephane: {words}\n"


def test_a_missing_start_file_is_named(zeph: Runner) -> None:
    result = zeph("run", *SMALL, "--initial", "/nowhere/start")
    assert result.returncode == 1
    assert "/nowhere/start" in result.stderr


def test_an_unknown_palette_is_refused_before_the_run(zeph: Runner) -> None:
    options = ("--steps", "1000000000", "--png", "a.png", "--palette", "gray")
    result = zeph("run", *SMALL, *options)
    assert result.returncode == 1
    assert result.stderr == f'zephane: palette "gray" is unknown: {PALETTES}\n'


@pytest.mark.parametrize("name", ["run", "info"])
def test_an_invalid_device_is_refused(zeph: Runner, name: str) -> None:
    result = zeph(name, extra={"ZEPHANE_DEVICE": "first"})
    assert result.returncode == 1
    assert result.stderr == "zephane: ZEPHANE_DEVICE must be a nonnegative device index.\n"


def test_a_missing_library_is_reported(zeph: Runner) -> None:
    result = zeph("run", "--library", "/nowhere/libzephane.so")
    assert result.returncode == 1
    assert result.stderr == "zephane: No library at /nowhere/libzephane.so.\n"


@pytest.mark.parametrize(
    "arguments",
    [("fly",), ("run", "--resolution", "big"), ("run", "--viscosity", "1"), ("run", "stray")],
)
def test_an_invalid_command_line_exits_with_2(
    environment: dict[str, str], arguments: list[str]
) -> None:
    result = subprocess.run(
        [sys.executable, "-m", "zephane", *arguments], env=environment, capture_output=True
    )
    assert result.returncode == 2
    assert result.stderr.startswith(b"usage: ")


def test_help_shows_the_defaults_without_a_library(environment: dict[str, str]) -> None:
    words = [sys.executable, "-m", "zephane", "run", "--help"]
    text = subprocess.run(words, env=environment, capture_output=True, text=True, check=True).stdout
    text = " ".join(text.split())
    for option in ("resolution", "k0", "seed", "reynolds", "cfl", "fixed-dt", "integrator"):
        assert f"--{option} " in text
    for default in ("1024", "4", "2", "etdrk4", "stress", "PAO", "vorticity", "ember", "1800"):
        assert f"(default: {default})" in text
    assert "27898" in text
    assert "(default: what suits the integrator, 3 for etdrk4)" in text


def test_info_describes_the_machine(zeph: Runner, system: zephane.SystemInfo) -> None:
    result = zeph("info")
    assert (result.returncode, result.stderr) == (0, "")
    assert system.gpu in result.stdout and system.backend in result.stdout
    report = json.loads(zeph("info", "--json").stdout)
    assert report["gpu"] == system.gpu
    assert report["defaults"]["resolution"] == 1024


def test_progress_is_updated_on_a_terminal_and_erased_at_the_end(in_terminal: Any) -> None:
    process, terminal = in_terminal("run", *SMALL, "--until", "8")
    while terminal.read():
        pass
    output, _ = process.communicate()
    assert process.returncode == 0
    assert "steps" in output and "steps/s" in output
    lines = [line for line in terminal.text.replace("\x1b[K", "").split("\r") if line]
    assert all(len(line) < 80 and "\n" not in line for line in lines)
    assert re.search(r"100 %  0:00 left  time 8\.000 of 8  step \d+  [\d.]+ steps/s", lines[-1])
    assert terminal.text.endswith("\r\x1b[K")


def test_progress_can_be_switched_off_on_a_terminal(in_terminal: Any) -> None:
    process, terminal = in_terminal("run", *SMALL, "--steps", "3", "--no-progress")
    while terminal.read():
        pass
    process.communicate()
    assert (process.returncode, terminal.text) == (0, "")


def test_control_c_ends_a_run_with_the_report_so_far(in_terminal: Any, tmp_path: Path) -> None:
    picture = tmp_path / "a.png"
    endless = ("--fixed-dt", "0.001", "--steps", "1000000000")
    process, terminal = in_terminal(
        "run", *SMALL, *endless, "--png", str(picture), "--pixels", "20"
    )
    while "  step " not in terminal.text:
        assert terminal.read()
    process.send_signal(signal.SIGINT)
    asked = time.monotonic()
    output, _ = process.communicate(timeout=60)
    assert time.monotonic() - asked < 10.0
    assert process.returncode == 130
    assert "Interrupted: the figures are those of the flow so far." in output
    assert int(re.search(r"^  steps +(\d+)", output, re.MULTILINE).group(1)) > 0  # type: ignore
    assert read_png(picture).shape == (20, 20, 4)


def test_without_a_terminal_progress_is_written_as_lines(
    engine: zephane.Engine, monkeypatch: pytest.MonkeyPatch, capsys: pytest.CaptureFixture[str]
) -> None:
    monkeypatch.setattr(progress, "LOG_SECONDS", 0.0)
    with progress.shown_progress(True, engine.inspect(), 8, None) as shown:
        for _ in range(2):
            shown.update(engine.advance(4))
    lines = capsys.readouterr().err.splitlines()
    assert [line.split()[:2] for line in lines] == [["50", "%"], ["100", "%"]]
    assert "step 8 of 8" in lines[1]


def test_without_a_terminal_a_line_comes_every_ten_seconds_unless_switched_off(
    engine: zephane.Engine, monkeypatch: pytest.MonkeyPatch, capsys: pytest.CaptureFixture[str]
) -> None:
    times = iter(float(second) for second in range(1000))
    monkeypatch.setattr(progress.time, "perf_counter", lambda: next(times) / 2)
    now = engine.inspect()
    for wanted, count in ((None, 4), (True, 4), (False, 0)):
        with progress.shown_progress(wanted, now, 8, None) as shown:
            for _ in range(40):  # Each takes a second, by two looks at the clock.
                shown.update(now)
        assert len(capsys.readouterr().err.splitlines()) == count


def test_the_default_courant_number_suits_the_integrator(zeph: Runner) -> None:
    options = ("--resolution", "64", "--integrator", "imexRK3", "--steps", "0", "--json")
    suited, given = zeph("run", *options), zeph("run", *options, "--cfl", "1.5")
    beyond = zeph("run", *options, "--cfl", "3")
    assert suited.stdout == given.stdout != beyond.stdout
    assert suited.stderr == ""
    assert beyond.returncode == 0
    assert beyond.stderr == (
        "zephane: cfl 3 is beyond what imexRK3 bears on a grid of 64 x 64: it is stable up to "
        "2.25, and 1.5 suits it. The flow may stay finite and be wrong.\n"
    )


@pytest.mark.parametrize(
    "seconds, text", [(0.2, "0:00"), (59.6, "1:00"), (754.0, "12:34"), (3723.0, "1:02:03")]
)
def test_durations_are_written_like_a_clock(seconds: float, text: str) -> None:
    assert progress.clock(seconds) == text
