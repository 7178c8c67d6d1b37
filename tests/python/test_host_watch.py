"""The command ``watch``: its behaviour with and without a terminal."""

from __future__ import annotations

import os
import re
import signal
import subprocess
import sys
import time
from collections.abc import Iterator
from pathlib import Path
from typing import Any, Callable

import pytest
from fake_terminal import TerminalProcess

import zephane

SMALL = ("--resolution", "64")

# With an adaptive step that flow comes to rest within seconds.
LASTING = (*SMALL, "--fixed-dt", "0.0005")


@pytest.fixture
def command(library_path: Path) -> list[str]:
    return [sys.executable, "-m", "zephane", "watch", "--library", str(library_path)]


@pytest.fixture
def environment(python_path: Path) -> dict[str, str]:
    dropped = ("ZEPHANE_DEVICE", "NO_COLOR", "COLUMNS", "LINES")
    kept = {key: value for key, value in os.environ.items() if key not in dropped}
    return {
        **kept,
        "PYTHONPATH": str(python_path),
        "PYTHONDONTWRITEBYTECODE": "1",
        "PYTHONIOENCODING": "utf-8",
        "TERM": "xterm",
    }


@pytest.fixture
def watch(command: list[str], environment: dict[str, str]) -> Iterator[Callable[..., Any]]:
    """Starts the command on a terminal."""
    started: list[TerminalProcess] = []

    def start(
        *options: str, columns: int = 80, lines: int = 24, **variables: str
    ) -> TerminalProcess:
        words = [*command, *SMALL, *options]
        started.append(TerminalProcess(words, {**environment, **variables}, columns, lines))
        return started[-1]

    yield start
    for terminal in started:
        terminal.close()


def steps_on(text: str) -> int:
    return int(re.search(r"step (\d+)", text).group(1))  # type: ignore[union-attr]


def assert_restored(terminal: TerminalProcess) -> None:
    assert terminal.settings_now() == terminal.settings_before
    assert terminal.display.cursor_shown and not terminal.display.alternate


def test_a_flow_is_watched_paused_stepped_and_reset_by_keys(watch: Any) -> None:
    terminal = watch()
    text = terminal.read_until(lambda text: "steps/s" in text and "█" in text)
    assert text.startswith("Zephane  running  64 x 64, k0 4, seed 2, etdrk4, stress, PAO")
    assert terminal.display.alternate and not terminal.display.cursor_shown
    first = steps_on(text)
    terminal.read_until(lambda text: steps_on(text) > first)

    terminal.press(" ")
    resting = steps_on(terminal.read_until(lambda text: "Zephane  paused" in text))
    terminal.press("ss")
    terminal.read_until(lambda text: steps_on(text) == resting + 2)
    terminal.press("r")
    terminal.read_until(lambda text: "step 0 " in text and "Zephane  paused" in text)
    terminal.press("N")
    terminal.read_until(lambda text: "seed 3" in text)
    terminal.press(" ")
    terminal.read_until(lambda text: "Zephane  running" in text)
    terminal.press("h")
    assert "quit, as does Ctrl-C" in terminal.read_until(lambda text: "this help" in text)
    terminal.press("?")
    terminal.read_until(lambda text: "energy" in text)

    terminal.press("q")
    assert terminal.end() == 0
    assert_restored(terminal)
    assert re.match(r"running  time [\d.]+  step \d+  ", terminal.display.text())


def test_keys_of_several_characters_do_nothing(watch: Any) -> None:
    terminal = watch("--paused")
    terminal.read_until(lambda text: "Zephane  paused" in text)
    terminal.press("\x1b[A\x1b[15~\x1bOS\x1b[1;5Sxé\t")
    terminal.read(0.5)
    assert "step 0 " in terminal.display.text()
    terminal.press("s")
    terminal.read_until(lambda text: "step 1 " in text)


def test_the_screen_follows_the_size_of_the_terminal(watch: Any) -> None:
    terminal = watch()
    terminal.read_until(lambda text: "memory" in text)
    for columns, lines in ((40, 10), (132, 50), (12, 3), (1, 1), (80, 24)):
        terminal.resize(columns, lines)
        terminal.read(0.4)

        def fits(text: str, columns: int = columns) -> bool:
            rows = text.splitlines()
            begins = text.startswith("Zephane"[: columns - 1])
            return begins and all(len(row) < columns or columns == 1 for row in rows)

        terminal.read_until(fits)
    terminal.read_until(lambda text: "memory" in text)


def test_an_unchanged_screen_is_not_written_again(watch: Any) -> None:
    terminal = watch("--paused")
    terminal.read_until(lambda text: "Zephane  paused" in text)
    terminal.read(0.5)
    before = len(terminal.display.written)
    terminal.read(1.0)
    assert len(terminal.display.written) == before


def test_colours_can_be_switched_off(watch: Any) -> None:
    colored, plain_one = watch(), watch(NO_COLOR="1")
    for terminal in (colored, plain_one):
        terminal.read_until(lambda text: "steps/s" in text)
    assert {"1", "32"} <= colored.display.styles
    assert plain_one.display.styles == set()


def test_a_terminal_without_unicode_gets_ascii(watch: Any) -> None:
    terminal = watch(PYTHONIOENCODING="ascii")
    text = terminal.read_until(lambda text: "steps/s" in text and "#" in text)
    assert text.isascii()


def test_control_c_quits(watch: Any) -> None:
    terminal = watch()
    terminal.read_until(lambda text: "running" in text)
    terminal.press("\x03")
    assert terminal.end() == 0
    assert_restored(terminal)
    assert "Traceback" not in terminal.display.written


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGHUP])
def test_a_terminated_watch_restores_the_terminal(watch: Any, number: int) -> None:
    terminal = watch()
    terminal.read_until(lambda text: "running" in text)
    terminal.process.send_signal(number)
    assert terminal.end() == 128 + number
    assert_restored(terminal)
    assert "Traceback" not in terminal.display.written


def test_control_z_restores_the_terminal_until_resumed(watch: Any) -> None:
    terminal = watch()
    terminal.read_until(lambda text: "running" in text)
    # A new session has no shell to resume the process, so the test sends the signal.
    terminal.process.send_signal(signal.SIGTSTP)
    deadline = time.monotonic() + 10
    while "T (stopped)" not in Path(f"/proc/{terminal.process.pid}/status").read_text():
        assert time.monotonic() < deadline
        terminal.read(0.05)
    terminal.read(0.1)
    assert_restored(terminal)
    terminal.process.send_signal(signal.SIGCONT)
    terminal.read_until(lambda text: text.startswith("Zephane"))
    assert terminal.display.alternate
    terminal.press("q")
    assert terminal.end() == 0
    assert_restored(terminal)


def test_an_exception_restores_the_terminal(
    command: list[str], environment: dict[str, str]
) -> None:
    script = (
        "import sys, zephane.watch\n"
        "from zephane.command_line import main\n"
        "def broken(*_, **__): raise ZeroDivisionError('made up')\n"
        "zephane.watch.dashboard = broken\n"
        "main(sys.argv[1:])\n"
    )
    words = [sys.executable, "-c", script, *command[3:], *SMALL]
    terminal = TerminalProcess(words, environment, 80, 24)
    try:
        assert terminal.end() == 1
        assert_restored(terminal)
        assert "ZeroDivisionError: made up" in terminal.display.text()
    finally:
        terminal.close()


def test_a_finished_flow_stays_on_the_screen(watch: Any) -> None:
    terminal = watch("--until", "2")
    text = terminal.read_until(lambda text: "Zephane  finished" in text)
    assert "2.0000 of 2 " in text
    terminal.press("q")
    assert terminal.end() == 0
    assert terminal.display.text().startswith("finished  time 2.0000  ")


def test_a_failure_is_shown_and_fails_the_command(watch: Any) -> None:
    terminal = watch("--initial", "/nowhere/start")
    assert "/nowhere/start" in terminal.read_until(lambda text: "failure" in text)
    terminal.press("q")
    assert terminal.end() == 1
    assert_restored(terminal)
    assert "zephane: " in terminal.display.text()


def test_a_simple_terminal_gets_lines(watch: Any) -> None:
    terminal = watch("--until", "2", TERM="dumb")
    assert terminal.end() == 0
    assert "\x1b" not in terminal.display.written
    assert "finished  time 2.0000" in terminal.display.text()


def run_in_pipes(
    command: list[str], environment: dict[str, str], *options: str
) -> subprocess.CompletedProcess[str]:
    return subprocess.run(
        [*command, *SMALL, *options],
        env=environment,
        stdin=subprocess.DEVNULL,
        capture_output=True,
        text=True,
        timeout=60,
    )


@pytest.fixture
def state(make_engine: Callable[..., zephane.Engine], tmp_path: Path) -> Path:
    """A state of a flow at the time 1."""
    engine = make_engine(seed=7)
    engine.advance(until=1.0)
    engine.save(tmp_path / "flow.state")
    return tmp_path / "flow.state"


def test_a_watch_goes_on_from_a_state(
    command: list[str], environment: dict[str, str], state: Path
) -> None:
    rest = zephane.Engine.load(state).advance(until=1.5)
    done = run_in_pipes(command, environment, "--state", str(state), "--until", "1.5")
    assert (done.returncode, done.stderr) == (0, "")
    last = done.stdout.splitlines()[-1]
    assert last.startswith(f"finished  time 1.5000  step {rest.steps}  ") and "  Re 1000  " in last
    done = run_in_pipes(command, environment, "--state", str(state), "--until", "1.1",
                        "--reynolds", "3000")  # fmt: skip
    assert "  Re 3000  " in done.stdout.splitlines()[-1]


def test_a_watched_state_can_be_reset_and_left_for_another_seed(watch: Any, state: Path) -> None:
    terminal = watch("--state", str(state), "--paused")
    resting = terminal.read_until(lambda text: "time        1.0000" in text)
    assert "seed 7" in resting and steps_on(resting) > 0
    first = steps_on(resting)
    terminal.press("s")
    terminal.read_until(lambda text: f"step {first + 1} " in text)
    terminal.press("r")
    terminal.read_until(lambda text: f"step {first} " in text)
    terminal.press("n")
    terminal.read_until(lambda text: "seed 8" in text and "time        0.0000" in text)
    terminal.press("s")
    terminal.read_until(lambda text: "step 1 " in text)
    terminal.press("q")
    assert terminal.end() == 0


@pytest.mark.parametrize(
    "options, words",
    [
        (("--seed", "8"), "flow.state is of another configuration: seed is 7, not 8"),
        (("--initial", "start.raw"), "--initial and --state exclude each other"),
        (("--cfl", "-1"), "cfl -1 is negative"),
        (("--state", "/nowhere/flow.state"), "Cannot read /nowhere/flow.state: No such file"),
        (("--state", __file__), f"{__file__} is no state of a flow"),
    ],
)
def test_a_state_that_does_not_fit_is_refused(
    command: list[str],
    environment: dict[str, str],
    state: Path,
    options: tuple[str, ...],
    words: str,
) -> None:
    refused = run_in_pipes(command, environment, "--state", str(state), *options)
    assert (refused.returncode, refused.stdout) == (1, "")
    assert refused.stderr.startswith("zephane: ") and words in refused.stderr


def test_a_damaged_state_ends_the_watch(
    command: list[str], environment: dict[str, str], state: Path
) -> None:
    state.write_bytes(state.read_bytes()[:-1])
    done = run_in_pipes(command, environment, "--state", str(state))
    assert done.returncode == 1 and "State file is truncated" in done.stderr


def test_without_a_terminal_there_are_lines(
    command: list[str], environment: dict[str, str]
) -> None:
    process = subprocess.Popen(
        [*command, *LASTING], env=environment, stdout=subprocess.PIPE, text=True
    )
    assert process.stdout
    began = time.monotonic()
    lines = [process.stdout.readline() for _ in range(3)]
    took = time.monotonic() - began
    process.send_signal(signal.SIGINT)
    rest, _ = process.communicate(timeout=30)
    assert process.returncode == 0
    lines += rest.splitlines(keepends=True)
    assert 1.8 < took
    assert all(re.match(r"running  time [\d.]+  step \d+ .* energy 0\.\d+\n", x) for x in lines)
    assert sorted(map(steps_on, lines)) == list(map(steps_on, lines))


def test_options_control_a_watch(
    command: list[str], environment: dict[str, str]
) -> None:
    flow = ("--k0", "5", "--seed", "9", "--cfl", "2", "--reynolds", "2000", "--until", "1.5")
    free = run_in_pipes(command, environment, *flow)
    assert (free.returncode, free.stderr) == (0, "")
    last = free.stdout.splitlines()[-1]
    assert last.startswith("finished  time 1.5000  ") and "  Re 2000  " in last
    regulated = run_in_pipes(command, environment, *flow, "--regulated")
    assert " of 0.002\n" in regulated.stdout and "  Re 2000  " not in regulated.stdout
    both = run_in_pipes(command, environment, *flow, "--regulated", "--adapt-viscosity")
    assert both.returncode == 2


def test_the_viscosity_is_adapted_by_option_and_key(
    command: list[str], environment: dict[str, str], watch: Any
) -> None:
    flow = ("--resolution", "128", "--k0", "2", "--until", "12")
    adapted = run_in_pipes(command, environment, *flow, "--adapt-viscosity")
    last = adapted.stdout.splitlines()[-1]
    assert last.startswith("finished  time 12.0000") and "  Re 3220  " not in last
    terminal = watch("--paused", "--resolution", "128")
    terminal.read_until(lambda text: "   fixed" in text)
    terminal.press("a")
    terminal.read_until(lambda text: "   adapted" in text and "target 1.75" in text)
    terminal.press("a")
    terminal.read_until(lambda text: "   fixed" in text)


def test_a_flow_that_dies_away_ends_in_a_sentence(
    command: list[str], environment: dict[str, str]
) -> None:
    done = run_in_pipes(command, environment, "--reynolds", "100")
    assert (done.returncode, done.stderr) == (0, "")
    *_, sentence, last = done.stdout.splitlines()
    assert sentence == "The flow has come to rest." and last.startswith("at rest  time ")


def test_an_unstable_flow_is_told(command: list[str], environment: dict[str, str]) -> None:
    flow = ("--resolution", "128", "--integrator", "imexRK3", "--until", "30")
    unstable = run_in_pipes(command, environment, *flow, "--cfl", "3")
    assert "cfl 3 is beyond what imexRK3 bears" in unstable.stdout
    assert unstable.stdout.count("gains energy or enstrophy") == 1
    suited = run_in_pipes(command, environment, *flow)
    assert "beyond" not in suited.stdout and "gains" not in suited.stdout


@pytest.mark.parametrize(
    "options, words",
    [
        (("--resolution", "17"), "resolution 17 is odd: even numbers from 16 to 16384"),
        (("--seed", "one"), 'seed "one" is no whole number: '),
        (("--until", "-1"), "until -1 is negative: times from 0"),
        (("--initial", "/nowhere/start"), "/nowhere/start"),
    ],
)
def test_invalid_options_are_refused(
    command: list[str], environment: dict[str, str], options: tuple[str, ...], words: str
) -> None:
    refused = run_in_pipes(command, environment, *options)
    assert (refused.returncode, refused.stdout) == (1, "")
    assert refused.stderr.startswith("zephane: ") and words in refused.stderr


def test_a_closed_output_pipe_ends_the_command(
    command: list[str], environment: dict[str, str]
) -> None:
    process = subprocess.Popen(
        [*command, *SMALL],
        env=environment,
        stdout=subprocess.PIPE,
        stderr=subprocess.PIPE,
        text=True,
    )
    assert process.stdout and process.stderr
    process.stdout.readline()
    process.stdout.close()
    assert process.wait(30) == 0
    assert process.stderr.read() == ""
    process.stderr.close()
