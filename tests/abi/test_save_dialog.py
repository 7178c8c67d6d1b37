"""The operation "save": how the desktop is asked for a path, and how its answers are used."""

from __future__ import annotations

import json
import os
import socket
import subprocess
import sys
import time
from collections.abc import Iterator
from pathlib import Path
from typing import Any, Callable

import pytest

from .fresh_process import in_fresh_process
from .harness import Library, decode

NO_DIALOG = "Could not open Save PNG dialog."
NO_FRAME = "No completed frame."
NO_RENDERER = "No native renderer."

SERVICE = Path(__file__).with_name("portal_service.py")
BUS = """<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>session</type>
  <listen>unix:dir={folder}</listen>
  <policy context="default">
    <allow send_destination="*" eavesdrop="true"/>
    <allow eavesdrop="true"/>
    <allow own="*"/>
  </policy>
</busconfig>
"""


def save_before_and_after_a_frame(library: Library):
    """The replies to "save" in a new view, and once the view has a frame."""
    import time

    library.initialize()
    view = library.c.zp_ui_create()

    def call(**request: Any):
        return decode(library.ui_call(view, json.dumps(request).encode()))

    call(op="configure", resolution=16)
    outcomes = [call(op="save")]
    call(op="start")
    deadline = time.monotonic() + 60
    while "frame" not in call(op="get") and time.monotonic() < deadline:
        time.sleep(0.01)
    outcomes.append(call(op="save"))
    library.c.zp_ui_destroy(view)
    return outcomes


class Desktop:
    """The variables of a desktop, and the programs on its path."""

    def __init__(self, library_path: Path, folder: Path) -> None:
        self._library_path = library_path
        self._programs = folder / "bin"
        self._programs.mkdir()
        self.folder = folder
        self.variables: dict[str, str | None] = {
            "PATH": str(self._programs),
            "DISPLAY": ":99",
            "WAYLAND_DISPLAY": None,
            "XDG_RUNTIME_DIR": None,
            "DBUS_SESSION_BUS_ADDRESS": None,
        }

    def add_program(self, name: str, commands: str) -> Path:
        """Adds a dialog program of shell commands; returns the file that records its calls."""
        program, notes = self._programs / name, self.folder / f"{name}.calls"
        program.write_text(f"#!/bin/sh\necho \"$@\" >>'{notes}'\n{commands}\n", encoding="utf-8")
        program.chmod(0o755)
        return notes

    def save(self) -> list[dict[str, Any]]:
        return in_fresh_process(
            self._library_path, save_before_and_after_a_frame, environment=self.variables
        )

    def errors(self) -> list[str | None]:
        return [reply.get("error") for reply in self.save()]


@pytest.fixture
def desktop(library_path: Path, tmp_path: Path) -> Desktop:
    return Desktop(library_path, tmp_path)


def interpreter_with(*modules: str) -> str | None:
    for python in (sys.executable, "/usr/bin/python3"):
        probe = [python, "-c", f"import {', '.join(modules)}"]
        if Path(python).exists() and subprocess.run(probe, capture_output=True).returncode == 0:
            return python
    return None


@pytest.fixture
def bus(desktop: Desktop) -> Iterator[None]:
    """An empty session bus for the desktop."""
    settings = desktop.folder / "bus.conf"
    settings.write_text(BUS.format(folder=desktop.folder), encoding="utf-8")
    command = ["dbus-daemon", f"--config-file={settings}", "--nofork", "--print-address"]
    try:
        daemon = subprocess.Popen(
            command,
            env={"PATH": os.environ.get("PATH", os.defpath)},
            stdout=subprocess.PIPE,
            stderr=subprocess.DEVNULL,
            text=True,
        )
    except FileNotFoundError:
        pytest.skip("there is no dbus-daemon")
    assert daemon.stdout
    desktop.variables["DBUS_SESSION_BUS_ADDRESS"] = daemon.stdout.readline().strip()
    yield
    daemon.kill()
    daemon.communicate()


@pytest.fixture
def add_portal(
    library_path: Path, desktop: Desktop, bus: None
) -> Iterator[Callable[..., Path]]:
    """Puts a portal with this behaviour on the bus; returns the file that records requests."""
    if b"org.freedesktop.portal" not in library_path.read_bytes():
        pytest.skip("the library was built without the portal")
    python = interpreter_with("dbus", "gi")
    if python is None:
        pytest.skip("no Python has the modules dbus and gi")
    started: list[subprocess.Popen[str]] = []

    def add(*behaviour: str) -> Path:
        notes = desktop.folder / "question.json"
        address = str(desktop.variables["DBUS_SESSION_BUS_ADDRESS"])
        service = subprocess.Popen(
            [python, str(SERVICE), str(notes), *behaviour],
            env={"DBUS_SESSION_BUS_ADDRESS": address},
            stdout=subprocess.PIPE,
            text=True,
        )
        started.append(service)
        assert service.stdout and service.stdout.readline() == "ready\n"
        return notes

    yield add
    for service in started:
        service.kill()
        service.communicate()


def test_without_a_portal_or_a_program_there_is_no_dialog(desktop):
    assert desktop.errors() == [NO_DIALOG, NO_DIALOG]


def test_a_view_works_after_a_failed_dialog(library_path):
    def body(library: Library):
        library.initialize()
        view = library.c.zp_ui_create()
        first = decode(library.ui_call(view, b'{"op":"save"}'))
        second = decode(library.ui_call(view, b'{"op":"get"}'))
        library.c.zp_ui_destroy(view)
        return [first, second["generation"]]

    nowhere = {"PATH": "/nowhere", "DBUS_SESSION_BUS_ADDRESS": None, "XDG_RUNTIME_DIR": None}
    answer = in_fresh_process(library_path, body, environment=nowhere)
    assert answer == [{"error": NO_DIALOG}, 0]


@pytest.mark.parametrize("program", ["zenity", "kdialog", "qarma", "yad"])
def test_a_cancelled_dialog_replies_with_the_usual_report(desktop, program):
    notes = desktop.add_program(program, "exit 1")
    before, after = desktop.save()
    assert (before["generation"], after["generation"]) == (0, 1)
    assert "frame" in after and after["error_message"] is None
    assert "2DZephane.png" in notes.read_text()


def test_the_export_uses_the_chosen_path(desktop):
    desktop.add_program("zenity", "echo '/tmp/Wirbelstärke und mehr.png'")
    assert desktop.errors() == [NO_FRAME, NO_RENDERER]


def test_programs_are_tried_in_turn(desktop):
    for program in ("zenity", "kdialog", "qarma"):
        desktop.add_program(program, "kill -KILL $$")
    last = desktop.add_program("yad", "echo /tmp/flow.png")
    assert desktop.errors() == [NO_FRAME, NO_RENDERER]
    assert len(last.read_text().splitlines()) == 2


def test_save_fails_when_every_program_fails(desktop):
    for program in ("zenity", "kdialog", "qarma", "yad"):
        desktop.add_program(program, "echo /tmp/flow.png; exit 9")
    assert desktop.errors() == [NO_DIALOG, NO_DIALOG]


def test_the_error_output_of_a_dialog_program_is_hidden(desktop):
    """in_fresh_process fails on any output to the console."""
    desktop.add_program("zenity", "echo 'Gtk-WARNING: no theme' >&2; exit 1")
    assert desktop.errors() == [None, None]


def test_the_portal_is_asked_first(desktop, add_portal):
    question = add_portal("answer", "0", "file:///tmp/two%20words.png")
    program = desktop.add_program("zenity", "echo /tmp/flow.png")
    assert desktop.errors() == [NO_FRAME, NO_RENDERER]
    assert not program.exists()
    pattern = ["PNG image", [[0, "*.png"]]]
    assert json.loads(question.read_text()) == [
        "",
        "Save PNG",
        {"filters": [pattern], "current_filter": pattern, "current_name": "2DZephane.png"},
    ]


def test_an_answer_of_the_portal_may_come_before_the_call_returns(desktop, add_portal):
    add_portal("early", "0", "file:///tmp/flow.png")
    assert desktop.errors() == [NO_FRAME, NO_RENDERER]


def test_the_portals_dialog_can_be_cancelled(desktop, add_portal):
    add_portal("answer", "1")
    program = desktop.add_program("zenity", "echo /tmp/flow.png")
    assert desktop.errors() == [None, None]
    assert not program.exists()


def test_the_portal_asks_again_about_an_existing_file_with_its_folder(desktop, add_portal):
    folder = desktop.folder / "Größe 漢字"
    folder.mkdir()
    (folder / "flow.png").write_bytes(b"kept")
    question = add_portal("answer", "0", (folder / "flow").as_uri())
    assert desktop.errors() == [None, None]
    options = json.loads(question.read_text())[2]
    assert (options["current_name"], options["current_folder"]) == ("flow.png", f"{folder}\0")
    assert (folder / "flow.png").read_bytes() == b"kept"


@pytest.mark.parametrize(
    "behaviour", [("answer", "2"), ("refuse",), ("vanish",), ("junk",)], ids=lambda words: words[0]
)
def test_a_program_is_used_when_the_portal_fails(desktop, add_portal, behaviour):
    add_portal(*behaviour)
    assert desktop.errors() == [NO_DIALOG, NO_DIALOG]


@pytest.mark.parametrize("behaviour", [("answer", "2"), ("refuse",)], ids=lambda words: words[0])
def test_the_answer_of_a_program_is_used_when_the_portal_fails(desktop, add_portal, behaviour):
    add_portal(*behaviour)
    desktop.add_program("kdialog", "exit 1")
    assert desktop.errors() == [None, None]


@pytest.mark.parametrize("address", [(), ("https://example.org/flow.png",), ("file:///a%zz",)])
def test_an_address_without_a_path_is_a_failure(desktop, add_portal, address):
    add_portal("answer", "0", *address)
    desktop.add_program("zenity", "exit 1")
    assert desktop.errors() == [NO_DIALOG, NO_DIALOG]


def test_the_programs_are_used_on_a_bus_without_a_portal(desktop, bus):
    desktop.add_program("zenity", "exit 1")
    assert desktop.errors() == [None, None]


def test_the_bus_is_found_in_the_folder_of_the_session(desktop, add_portal):
    add_portal("answer", "1")
    address = str(desktop.variables["DBUS_SESSION_BUS_ADDRESS"])
    socket = Path(address.removeprefix("unix:path=").split(",")[0])
    (desktop.folder / "bus").symlink_to(socket)
    desktop.variables["DBUS_SESSION_BUS_ADDRESS"] = None
    desktop.variables["XDG_RUNTIME_DIR"] = str(desktop.folder)
    assert desktop.errors() == [None, None]


def test_a_bus_that_never_answers_leaves_the_question_to_the_programs(desktop, tmp_path):
    desktop.add_program("zenity", "exit 1")
    place = tmp_path / "silent"
    with socket.socket(socket.AF_UNIX) as silent:
        silent.bind(str(place))
        silent.listen()
        desktop.variables["DBUS_SESSION_BUS_ADDRESS"] = f"unix:path={place}"
        begin = time.monotonic()
        before, after = desktop.save()
        assert time.monotonic() - begin < 20, "two questions"
    assert "error" not in before and "error" not in after
