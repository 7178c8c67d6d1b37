"""The examples: built against an installed library, and run."""

from __future__ import annotations

import os
import subprocess
import sys
from collections.abc import Iterator
from pathlib import Path

import pytest
from png_reader import read_png

ROOT = Path(__file__).resolve().parents[2]
EXAMPLES = ROOT / "examples"
WARNINGS = "-Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror"
LIMIT_SECONDS = 120

# Tests that need the examples in C and C++, so that only one of pytest's processes builds them.
compiled = pytest.mark.xdist_group("examples")


@pytest.fixture(scope="module")
def programs(installed: Path, tmp_path_factory: pytest.TempPathFactory) -> Path:
    """The folder with the examples in C and C++."""
    folder = tmp_path_factory.mktemp("examples")
    for command in (
        [
            *("cmake", "-G", "Ninja", "-S", str(EXAMPLES), "-B", str(folder)),
            f"-DCMAKE_PREFIX_PATH={installed}",
            f"-DCMAKE_C_FLAGS={WARNINGS}",
            f"-DCMAKE_CXX_FLAGS={WARNINGS}",
        ],
        ["cmake", "--build", str(folder)],
    ):
        done = subprocess.run(command, capture_output=True, text=True)
        assert done.returncode == 0, done.stdout + done.stderr
    return folder


def environment(packages: Path, **changes: str) -> dict[str, str]:
    return {**os.environ, "PYTHONPATH": str(packages), **changes}


def run(*command: str | Path, folder: Path, packages: Path | None = None) -> str:
    done = subprocess.run(
        [str(word) for word in command],
        cwd=folder,
        env=None if packages is None else environment(packages),
        capture_output=True,
        text=True,
        timeout=LIMIT_SECONDS,
    )
    assert done.returncode == 0, done.stdout + done.stderr
    return done.stdout


def energies(table: str) -> list[float]:
    """The column of energies, from the lines that begin with a time."""
    rows = [line.split() for line in table.splitlines()]
    return [float(row[2]) for row in rows if row and row[0].replace(".", "").isdigit()]


def assert_decays(table: str) -> None:
    found = energies(table)
    assert len(found) >= 5
    assert 0.5 > found[0] and found == sorted(set(found), reverse=True) and found[-1] > 0.4


@compiled
def test_a_decay_in_c(programs: Path, tmp_path: Path) -> None:
    assert_decays(run(programs / "decay", "flow.png", folder=tmp_path))
    assert read_png(tmp_path / "flow.png").shape == (600, 600, 4)


def test_a_decay_in_python(packages: Path, tmp_path: Path) -> None:
    script = EXAMPLES / "decay.py"
    assert_decays(run(sys.executable, script, "flow.png", folder=tmp_path, packages=packages))
    assert read_png(tmp_path / "flow.png").shape == (600, 600, 4)


@compiled
def test_a_spectrum_in_cpp(programs: Path, tmp_path: Path) -> None:
    printed = run(programs / "spectrum", folder=tmp_path)
    total = float(printed.partition("all shells")[2].split()[0])
    energy = float(printed.partition('"energy":')[2].split(",")[0])
    assert total == pytest.approx(energy, rel=1e-4)
    assert (tmp_path / "spectrum.raw").stat().st_size == 8 * 128 * 128


def test_a_spectrum_in_python(packages: Path, tmp_path: Path) -> None:
    printed = run(sys.executable, EXAMPLES / "spectrum.py", folder=tmp_path, packages=packages)
    assert "falls as k^-" in printed


@compiled
def test_a_start_field_in_cpp(programs: Path, tmp_path: Path) -> None:
    printed = run(programs / "start_field", folder=tmp_path)
    assert len(printed.splitlines()) == 7  # The program itself compares with the exact solution.


def test_a_start_field_in_python(packages: Path, tmp_path: Path) -> None:
    script = EXAMPLES / "start_field.py"
    printed = run(sys.executable, script, "flow.png", folder=tmp_path, packages=packages)
    assert "largest v" in printed
    assert read_png(tmp_path / "flow.png").shape == (600, 600, 4)


@compiled
@pytest.mark.parametrize(
    "command",
    [
        ["decay", "/nowhere/flow.png"],
        ["spectrum", "/nowhere/spectrum.raw"],
        ["start_field", "/nowhere/start.raw"],
    ],
    ids=lambda command: command[0],
)
def test_a_failing_example_prints_the_reason(programs: Path, tmp_path: Path, command) -> None:
    program = [str(programs / command[0]), *command[1:]]
    done = subprocess.run(program, cwd=tmp_path, capture_output=True, text=True)
    assert done.returncode == 1
    assert done.stderr.strip()


def test_a_window_without_a_display_prints_the_reason(packages: Path) -> None:
    command = [sys.executable, str(EXAMPLES / "window_tk.py")]
    without = environment(packages)
    without.pop("DISPLAY", None)
    done = subprocess.run(command, env=without, capture_output=True, text=True)
    assert done.returncode == 1
    assert done.stderr.startswith("window_tk.py: no display")


@pytest.fixture
def example_window(host, display: str, packages: Path) -> Iterator:
    """Starts an example; returns its process and its window once it shows a flow."""
    from xwindow import until

    started: list[subprocess.Popen[str]] = []

    def shown(script: str, title: str):
        process = subprocess.Popen(
            [sys.executable, str(EXAMPLES / script)],
            env=environment(packages, DISPLAY=display),
            stdout=subprocess.PIPE,
            stderr=subprocess.PIPE,
            text=True,
        )
        started.append(process)

        def window():
            assert process.poll() is None, process.communicate()
            found = host.root.query_tree().children
            return next((each for each in found if each.get_wm_name() == title), None)

        handle = until(window, "the window")
        until(lambda: colors_of(handle) > 500, "the picture")
        return process, handle

    yield shown
    for process in started:
        process.kill()
        process.communicate()


def colors_of(handle) -> int:
    """The number of colours in a square of the window away from its labels."""
    from Xlib import X, error

    try:
        data = handle.get_image(100, 100, 300, 300, X.ZPixmap, 0xFFFFFFFF).data
    except error.BadMatch:  # The window is not shown yet.
        return 0
    return len({data[k : k + 3] for k in range(0, len(data), 4)})


def close(host, handle) -> None:
    """Asks the program to close the window, as a window manager does."""
    from Xlib import X
    from Xlib.protocol import event

    data = (32, [host.display.intern_atom("WM_DELETE_WINDOW"), X.CurrentTime, 0, 0, 0])
    kind = host.display.intern_atom("WM_PROTOCOLS")
    handle.send_event(event.ClientMessage(window=handle, client_type=kind, data=data))
    host.display.sync()


@pytest.mark.parametrize(
    "script, title",
    [("window_tk.py", "Zephane in Tk"), ("window_qt.py", "Zephane in Qt")],
    ids=["tk", "qt"],
)
def test_a_window_shows_the_flow_until_it_is_closed(host, example_window, script, title) -> None:
    process, handle = example_window(script, title)
    close(host, handle)
    printed, failure = process.communicate(timeout=LIMIT_SECONDS)
    assert process.returncode == 0, failure
    steps, _, pictures, _ = printed.split()
    assert int(steps) > 0 and int(pictures) > 0
