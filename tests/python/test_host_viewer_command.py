"""The command ``view`` in a separate process, and the window of the guide's example."""

from __future__ import annotations

import re
import signal
import subprocess
import sys
import time
from collections.abc import Iterator
from pathlib import Path
from typing import Any, Callable

import pytest

tk = pytest.importorskip("tkinter")
pytest.importorskip("Xlib")

from Xlib import XK, X
from xwindow import Host

import zephane
from zephane import View, ViewStatus
from zephane.viewer_speed import CHOICES, suitable_resolution

SECONDS = 60.0
ROOT = Path(__file__).resolve().parents[2]

FLOW = ("--resolution", "32", "--fixed-dt", "0.001")


class Command:
    """``python3 -m zephane view`` in a separate process."""

    def __init__(self, library: Path, python_path: Path, *arguments: str, **more: str) -> None:
        environment = {"PATH": "/usr/bin:/bin", "PYTHONPATH": str(python_path), **more}
        self.process = subprocess.Popen(
            [sys.executable, "-m", "zephane", "view", "--library", str(library), *arguments],
            env=environment,
            stdout=subprocess.PIPE,
            stderr=subprocess.PIPE,
            text=True,
        )

    def end(self) -> tuple[int, str, str]:
        out, err = self.process.communicate(timeout=SECONDS)
        return self.process.returncode, out, err


@pytest.fixture
def run_view(library_path: Path, python_path: Path) -> Iterator[Callable[..., Command]]:
    started: list[Command] = []

    def start(*arguments: str, **more: str) -> Command:
        started.append(Command(library_path, python_path, *arguments, **more))
        return started[-1]

    yield start
    for command in started:
        command.process.kill()
        command.end()


def window_named(host: Host, words: str) -> Any:
    """The topmost window with that title, once it exists."""
    end = time.monotonic() + SECONDS
    while time.monotonic() < end:
        for window in host.root.query_tree().children:
            for one in (window, *window.query_tree().children):
                if words in (one.get_wm_name() or "") and _is_seen(one):
                    return one
        time.sleep(0.02)
    raise AssertionError(f"no window named {words}")


def _is_seen(window: Any) -> bool:
    return bool(window.get_attributes().map_state == X.IsViewable)


def test_the_command_takes_its_options_and_ends_by_a_key(
    run_view: Callable[..., Command], host: Host, display: str
) -> None:
    options = ("--seed", "41", "--display", "speed", "--palette", "aurora", "--flow", "--paused")
    command = run_view(*FLOW, *options, "--size", "300", DISPLAY=display)
    window = window_named(host, "32 x 32, k0 4, seed 41")
    window.set_input_focus(X.RevertToPointerRoot, X.CurrentTime)
    host.press_key(host.display.keysym_to_keycode(XK.XK_Escape))
    assert command.end() == (0, "", "")


def test_the_command_goes_on_from_a_state(
    run_view: Callable[..., Command],
    make_engine: Callable[..., zephane.Engine],
    tmp_path: Path,
    host: Host,
    display: str,
) -> None:
    engine = make_engine(resolution=32, seed=29, fixed_dt=1e-3)
    engine.save(tmp_path / "flow.state")
    command = run_view("--state", str(tmp_path / "flow.state"), DISPLAY=display)
    window = window_named(host, "32 x 32, k0 4, seed 29")
    window.set_input_focus(X.RevertToPointerRoot, X.CurrentTime)
    host.press_key(host.display.keysym_to_keycode(XK.XK_Escape))
    assert command.end() == (0, "", "")


def test_ctrl_c_closes_the_window(
    run_view: Callable[..., Command], host: Host, display: str
) -> None:
    command = run_view(*FLOW, DISPLAY=display)
    window_named(host, "seed 2")
    command.process.send_signal(signal.SIGINT)
    assert command.end() == (0, "", "")


def test_without_a_display_the_command_reports_it(run_view: Callable[..., Command]) -> None:
    assert run_view().end() == (
        1,
        "",
        "zephane: The viewer needs a display: DISPLAY is not set.\n",
    )
    code, out, err = run_view(DISPLAY=":65432").end()
    assert (code, out) == (1, "")
    assert err.startswith("zephane: The viewer needs a display: ") and ":65432" in err


@pytest.mark.parametrize(
    "options", [("--display", "sound"), ("--seed", "-1"), ("--resolution", "33")]
)
def test_bad_options_are_reported(
    run_view: Callable[..., Command], display: str, options: tuple[str, str]
) -> None:
    code, out, err = run_view(*options, DISPLAY=display).end()
    assert (code, out) == (1, "") and err.startswith("zephane: ") and err.count("\n") == 1


def test_the_grid_is_chosen_by_the_speed_of_the_machine(
    run_view: Callable[..., Command], host: Host, display: str
) -> None:
    command = run_view("--seed", "43", "--paused", DISPLAY=display)
    window = window_named(host, "k0 4, seed 43")
    (resolution,) = re.findall(r"Zephane, (\d+) x \d+,", window.get_wm_name())
    assert int(resolution) in CHOICES
    window.set_input_focus(X.RevertToPointerRoot, X.CurrentTime)
    host.press_key(host.display.keysym_to_keycode(XK.XK_Escape))
    assert command.end() == (0, "", "")


def test_a_slower_machine_gets_a_coarser_grid() -> None:
    chosen = [suitable_resolution(seconds) for seconds in (1.0, 5e-3, 1e-3, 3e-4, 1e-4, 1e-6)]
    assert chosen == sorted(chosen) and chosen[0] == 128 and chosen[-1] == 2048
    for seconds in (1e-3, 3e-4, 1e-4):
        resolution = suitable_resolution(seconds)
        assert seconds * (resolution / 128) ** 2 < 1 / 30


def test_without_a_vulkan_driver_the_package_is_named_over_a_plain_canvas(
    run_view: Callable[..., Command], library_path: Path, python_path: Path, display: str
) -> None:
    script = (
        "import sys, time, zephane\n"
        "from zephane.viewer import Viewer, open_root\n"
        "viewer = Viewer(open_root(), zephane.View(resolution=32, fixed_dt=1e-3,"
        " library=sys.argv[1]), side=400)\n"
        "viewer.start()\n"
        "end = time.monotonic() + 60\n"
        "while not (viewer.blank.shown and viewer.status.ready) and time.monotonic() < end:\n"
        "    viewer.root.update()\n"
        "print(viewer.blank.message.split(chr(10))[0])\n"
        "print(viewer.panel.error.text['text'])\n"
        "viewer.dismiss()\n"
        "print(viewer.blank.shown, viewer.view.failed, viewer.status.running)\n"
        "print(viewer.panel.buttons.by_name['save'].instate(('disabled',)))\n"
        "viewer.close()\n"
    )
    done = subprocess.run(
        [sys.executable, "-c", script, str(library_path)],
        env={
            "PATH": "/usr/bin:/bin",
            "PYTHONPATH": str(python_path),
            "DISPLAY": display,
            "VK_DRIVER_FILES": "/nowhere",
            "VK_ICD_FILENAMES": "/nowhere",
        },
        capture_output=True,
        text=True,
        timeout=SECONDS,
    )
    assert done.stderr == ""
    canvas, message, state, save = done.stdout.splitlines()
    assert "mesa-vulkan-drivers" in canvas and "mesa-vulkan-drivers" in message
    assert state == "True False True" and save == "True"


def test_without_tkinter_the_command_names_the_package(python_path: Path) -> None:
    script = (
        "import sys; sys.modules['tkinter'] = None\n"
        "import zephane\n"
        "from zephane.command_line import main\n"
        "sys.exit(main(['view']))\n"
    )
    done = subprocess.run(
        [sys.executable, "-c", script],
        env={"PYTHONPATH": str(python_path)},
        capture_output=True,
        text=True,
    )
    assert done.returncode == 1 and "python3-tk" in done.stderr
    assert done.stderr.count("\n") == 1


def test_the_guides_ten_lines_show_a_flow(
    library_path: Path, system: zephane.SystemInfo, display: str, monkeypatch: pytest.MonkeyPatch
) -> None:
    guide = (ROOT / "docs" / "python.md").read_text(encoding="utf-8")
    (block,) = re.findall(r"\n\n(    import tkinter as tk\n(?:    .*\n)*)", guide)
    lines = [line[4:] for line in block.splitlines() if line.strip()]
    assert len(lines) <= 10
    seen: list[ViewStatus] = []

    def look(root: Any, n: int = 0) -> None:
        root.update()
        view = names["view"]
        assert isinstance(view, View)
        seen.append(view.wait(lambda status: status.presentations > 2, timeout=SECONDS))
        root.destroy()

    monkeypatch.setattr(tk.Misc, "mainloop", look)
    library = zephane._library.load()
    monkeypatch.setattr(zephane._library, "find_library", lambda path: library.path)
    names: dict[str, object] = {}
    exec(compile("\n".join(lines), "docs/python.md", "exec"), names)
    (status,) = seen
    assert status.canvas is not None and status.canvas.visible
    view = names["view"]
    assert isinstance(view, View)
    view.close()
