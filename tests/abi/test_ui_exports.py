"""Exports of a view with a canvas: files that are written between two presentations."""

from __future__ import annotations

import os
import select
import struct
import threading
import time
from pathlib import Path

import numpy as np
import pytest
from png_reader import read_png
from xwindow import Host
from Xlib import X

from .harness import Refused
from .test_ui_pictures import expect_picture
from .view import View
from .words import BAD_PICTURE_SIZE, NO_FRAME, UNWRITABLE, type_error


def size_of(path: Path) -> tuple[int, int]:
    return struct.unpack(">II", path.read_bytes()[16:24])


def test_an_empty_export_does_nothing(attached):
    assert attached.call("export")["error_message"] is None


def test_an_export_needs_a_frame_whatever_it_asks_for(view, window, tmp_path):
    view.attach(window.id)
    for members in ({}, {"png": str(tmp_path / "p")}, {"png": 3}, {"pixel_size": 0}):
        assert view.refusal({"op": "export", **members}) == NO_FRAME
    assert not list(tmp_path.iterdir())


@pytest.mark.parametrize("size", [1, 2, 63, 500])
def test_a_picture_has_the_size_asked(attached, tmp_path, size):
    path = tmp_path / "picture.png"
    attached.call("export", png=str(path), pixel_size=size)
    assert read_png(path).shape == (size, size, 4)


def test_a_picture_has_1800_texels_a_side_unless_asked_otherwise(attached, tmp_path):
    path = tmp_path / "picture.png"
    attached.call("export", png=str(path))
    assert size_of(path) == (1800, 1800)


@pytest.mark.parametrize("side", [16, 64])
def test_exported_fields_match_the_frame(make_view, make_engine, window, tmp_path, side):
    view = make_view(resolution=side)
    view.call("running", value=False)
    view.call("set", regulated=False)
    view.call("start")
    report = view.settled()
    view.attach(window.id)
    engine = make_engine(resolution=side, reynolds=report["config"]["reynolds"])
    path = tmp_path / "fields"
    view.call("export", fields=str(path))
    assert path.read_bytes() == engine.fields(include_velocity=False)
    view.call("set", flow=True)
    view.wait(lambda now: now["frame"]["max_speed"] > 0)
    view.call("export", fields=str(path))
    assert path.read_bytes() == engine.fields(include_velocity=True)
    assert path.stat().st_size == 12 * side * side


@pytest.mark.parametrize(
    "settings",
    [
        {},
        {"palette": "aurora", "sigma": 1.5},
        {"display": "enstrophy", "palette": "inferno", "color_range": "exposure"},
        {"flow": True},
    ],
)
def test_a_view_exports_the_picture_that_an_engine_exports(
    attached, make_engine, tmp_path, settings
):
    attached.call("set", **settings)
    needs_velocity = bool(settings.get("flow"))
    report = attached.wait(lambda now: (now["frame"]["max_speed"] > 0) == needs_velocity)
    engine = make_engine(reynolds=report["config"]["reynolds"])
    of_view, of_engine = tmp_path / "view.png", tmp_path / "engine.png"
    attached.call("export", png=str(of_view), pixel_size=200)
    engine.export(
        png=str(of_engine), pixel_size=200, include_velocity=needs_velocity, **settings
    )
    assert (read_png(of_view) == read_png(of_engine)).all()


def test_a_flow_keeps_running_during_exports(make_view, window, tmp_path):
    view = make_view(resolution=128)
    view.show(window.id)
    for number in range(5):
        path, fields = tmp_path / f"{number}.png", tmp_path / f"{number}"
        before = view.get()
        view.call("export", png=str(path), pixel_size=256, fields=str(fields))
        assert size_of(path) == (256, 256)
        assert np.isfinite(np.fromfile(fields, "<f4")).all()
        view.steps(before["stats"]["steps"] + 1)
        report = view.wait(
            lambda now, before=before: now["presentations"] > before["presentations"] + 1
        )
        assert report["running"] and report["error_message"] is None


def test_a_hidden_view_exports(attached, window, tmp_path):
    path = tmp_path / "picture.png"
    window.hide()
    attached.call("export", png=str(path), pixel_size=64)
    assert size_of(path) == (64, 64)
    attached.call("visible", value=False)
    attached.call("export", png=str(path), pixel_size=32)
    assert size_of(path) == (32, 32)


@pytest.mark.parametrize(
    "members, words",
    [
        ({"pixel_size": 0}, BAD_PICTURE_SIZE),
        ({"pixel_size": 8193}, BAD_PICTURE_SIZE),
        ({"pixel_size": -1}, BAD_PICTURE_SIZE),
        ({"pixel_size": "300"}, type_error("number", "string")),
    ],
)
def test_a_picture_that_is_refused_leaves_the_fields_and_the_view(
    attached, window, tmp_path, members, words
):
    fields, png = tmp_path / "fields", tmp_path / "picture.png"
    request = {"op": "export", "fields": str(fields), "png": str(png), **members}
    assert attached.refusal(request) == words
    assert fields.stat().st_size == 12 * 16 * 16 and not png.exists()
    expect_live(attached, window, tmp_path)


def test_unwritable_files_are_reported_and_the_view_goes_on(attached, window, tmp_path):
    nowhere = str(tmp_path / "no" / "file")
    assert attached.refusal({"op": "export", "fields": nowhere}) == UNWRITABLE
    png = tmp_path / "picture.png"
    request = {"op": "export", "fields": nowhere, "png": str(png), "pixel_size": 64}
    assert attached.refusal(request) == UNWRITABLE
    assert not png.exists()
    assert attached.refusal({"op": "export", "png": nowhere}).startswith("Open PNG failed (0x")
    for members in ({"png": 3}, {"fields": []}):
        with pytest.raises(Refused, match="type must be string"):
            attached.call("export", **members)
    expect_live(attached, window, tmp_path)


def expect_live(view: View, window, folder: Path) -> None:
    assert view.get()["error_message"] is None
    count = view.get()["presentations"]
    view.wait(lambda now: now["presentations"] > count + 2)
    view.call("set", palette="glacier")
    expect_picture(view, window, folder)


@pytest.fixture
def answer(monkeypatch, tmp_path):
    """Installs a dialog program of shell commands that answers for the user."""
    programs = tmp_path / "bin"
    programs.mkdir()
    for name in ("WAYLAND_DISPLAY", "XDG_RUNTIME_DIR", "DBUS_SESSION_BUS_ADDRESS"):
        monkeypatch.delenv(name, raising=False)
    monkeypatch.setenv("PATH", str(programs))

    def make(commands: str) -> None:
        program = programs / "zenity"
        program.write_text(f"#!/bin/sh\n{commands}\n", encoding="utf-8")
        program.chmod(0o755)

    return make


def test_a_picture_is_saved_at_the_path_from_the_dialog(attached, window, tmp_path, answer):
    path = tmp_path / "flow.png"
    answer(f"echo '{path}'")
    assert attached.call("save")["error_message"] is None
    assert size_of(path) == (1800, 1800)
    expect_live(attached, window, tmp_path)


def test_nothing_is_saved_when_the_dialog_is_cancelled(attached, window, tmp_path, answer):
    answer("exit 1")
    attached.call("save")
    assert not list(tmp_path.glob("*.png"))
    expect_live(attached, window, tmp_path)


def test_the_picture_on_the_screen_goes_on_while_a_file_is_written(make_view, window, tmp_path):
    """The file's reader begins to read only once it has seen the screen change."""
    view = make_view(resolution=64)
    view.show(window.id, 5)
    pipe = tmp_path / "picture.png"
    os.mkfifo(pipe)
    # A pipe that nobody has opened for reading is refused.
    descriptor = os.open(pipe, os.O_RDONLY | os.O_NONBLOCK)
    os.set_blocking(descriptor, True)
    seen: list[bool] = []

    def read_late() -> None:
        host = Host(window.host.display.get_display_name())
        screen = host.display.create_resource_object("window", window.id)

        def shot() -> bytes:
            return screen.get_image(0, 0, 300, 300, X.ZPixmap, 0xFFFFFFFF).data

        with open(descriptor, "rb") as file:
            select.select([file], [], [], 60)
            first = shot()
            end = time.monotonic() + 20
            while not seen and time.monotonic() < end:
                if shot() != first:
                    seen.append(True)
            file.read()
        host.display.close()

    reader = threading.Thread(target=read_late)
    reader.start()
    view.call("export", png=str(pipe), pixel_size=1000)
    reader.join()
    assert seen, "nothing new was shown"
