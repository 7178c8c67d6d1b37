"""What a view does on Windows alone."""

from __future__ import annotations

import time
from pathlib import Path

import pytest
from abi.harness import Engine, Refused, decode
from abi.test_ui_clicks import RESET, ROW, STEP, TOGGLE
from abi.view import View
from png_reader import read_png

from wine_host import HostProgram, WineHost, WineLibrary, path_inside

WM_ERASEBKGND, WM_PAINT, WM_KEYDOWN, WM_KEYUP, WM_CHAR, WM_LBUTTONUP = (20, 15, 256, 257, 258, 514)
WS_CHILD, WS_VISIBLE, WS_CLIPSIBLINGS, WS_EX_NOPARENTNOTIFY = (1 << 30, 1 << 28, 1 << 26, 4)


def test_the_canvas_is_a_child_window_of_its_class(view, host, window):
    view.attach(window.id)
    canvas = host.ask("class", window.canvas())
    assert canvas["class"] == "ZephanePythonCanvas"
    assert canvas["style"] == WS_CHILD | WS_VISIBLE | WS_CLIPSIBLINGS
    assert canvas["extended_style"] == WS_EX_NOPARENTNOTIFY


@pytest.mark.parametrize("message", [WM_KEYDOWN, WM_KEYUP, WM_CHAR])
def test_keys_are_handed_to_the_host_unchanged_with_its_answer(attached, host, window, message):
    host.ask("received", window.id)
    assert host.ask("send", window.canvas(), message, 0x51, 0x40100001) == 77
    assert host.ask("received", window.id) == [[message, 0x51, 0x40100001]]


def test_nothing_is_erased_and_painting_is_done_at_once(attached, host, window):
    assert host.ask("send", window.canvas(), WM_ERASEBKGND, 0, 0) == 1
    assert host.ask("send", window.canvas(), WM_PAINT, 0, 0) == 0


@pytest.mark.parametrize("x, y", [(TOGGLE, ROW), (150, 150)])
def test_every_click_hands_the_keyboard_to_the_host(attached, host, window, x, y):
    canvas = window.canvas()
    host.ask("set_focus", canvas)
    assert host.focus() == canvas
    assert host.ask("send", canvas, WM_LBUTTONUP, 0, y << 16 | x) == 0
    assert host.focus() == window.id


def test_a_click_before_the_first_frame_only_hands_over_the_keyboard(view, host, window):
    view.attach(window.id)
    for x in (TOGGLE, STEP, RESET):
        host.ask("set_focus", window.canvas())
        assert host.ask("send", window.canvas(), WM_LBUTTONUP, 0, ROW << 16 | x) == 0
        assert host.focus() == window.id
    view.call("start")
    report = view.wait(lambda now: now["ready"])
    assert report["generation"] == 1 and report["running"]


def test_a_place_left_of_or_above_the_canvas_is_negative(attached, host, window):
    for place in (0xFFF0 | ROW << 16, STEP | 0xFFF0 << 16):
        host.ask("send", window.canvas(), WM_LBUTTONUP, 0, place)
    assert attached.get()["generation"] == 1 and not attached.get()["running"]


def test_clicks_are_acted_on_while_the_message_is_handled(attached, host, window):
    host.ask("send", window.canvas(), WM_LBUTTONUP, 0, ROW << 16 | TOGGLE)
    assert attached.get()["running"]


def test_sixty_pictures_a_second_are_shown_and_the_signal_paces_them(attached):
    begin, first = time.monotonic(), attached.get()["presentations"]
    time.sleep(3)
    count = attached.get()["presentations"] - first
    rate = count / (time.monotonic() - begin)
    assert 20 < rate < 61


def test_an_export_of_the_view_comes_from_its_newest_frame(attached, window, tmp_path):
    paths = {kind: str(tmp_path / f"flöw {kind}") for kind in ("png", "fields")}
    attached.call("export", pixel_size=77, **paths)
    assert read_png(paths["png"]).shape == (77, 77, 4)
    assert Path(paths["fields"]).stat().st_size == 12 * 16 * 16


@pytest.mark.parametrize(
    "path, code", [("/nowhere/flow.png", "80070003"), ("/tmp", "80070005")]
)
def test_a_picture_that_cannot_be_written_is_refused_and_the_view_goes_on(attached, path, code):
    with pytest.raises(Refused) as refused:
        attached.call("export", png=path)
    assert refused.value.text == f"Open PNG failed (0x{code})"
    count = attached.get()["presentations"]
    attached.wait(lambda now: now["presentations"] > count + 3)


def test_an_engine_draws_without_a_window_of_the_host(make_engine, tmp_path):
    engine = make_engine(resolution=32)
    path = tmp_path / "flow.png"
    for size in (1, 640):
        engine.export(png=str(path), pixel_size=size, flow=True)
        assert read_png(path).shape == (size, size, 4)
    with pytest.raises(Refused) as refused:
        engine.export(png=str(path), pixel_size=8193)
    assert refused.value.text == "PNG size must be 1 through 8192."


def test_a_picture_is_saved_where_the_dialog_says(attached, host, window, tmp_path):
    host.ask("answer_dialog", path_inside(tmp_path / "flöw"))
    attached.call("save")
    seen = host.ask("dialog")
    assert seen == {"owner": window.id, "name": "2DZephane.png"}
    assert (tmp_path / "flöw.png").read_bytes()[16:24] == 2 * (1800).to_bytes(4, "big")
    attached.call("step")
    attached.steps(1)


def test_a_dialog_that_is_cancelled_saves_nothing(attached, host, tmp_path):
    host.ask("answer_dialog", None)
    assert attached.call("save")["error_message"] is None
    assert host.ask("dialog")["name"] == "2DZephane.png"
    assert list(tmp_path.iterdir()) == []


def test_pictures_are_written_on_a_thread_that_has_a_com_apartment(
    attached, make_engine, host, tmp_path
):
    assert host.ask("enter_apartment") == 0
    attached.call("export", png=str(tmp_path / "view.png"), pixel_size=10)
    make_engine().export(png=str(tmp_path / "engine.png"), pixel_size=10)
    assert host.ask("enter_apartment") == 1, "the host is in its apartment still"
    for _ in range(2):
        host.ask("leave_apartment")
    for name in ("view.png", "engine.png"):
        assert read_png(tmp_path / name).shape == (10, 10, 4)


def test_views_leave_no_handles_behind(make_view, host, window):
    def show() -> int:
        view = make_view()
        view.show(window.id, 3)
        view.close()
        return int(host.ask("handles"))

    before = max(show() for _ in range(3))
    after = [show() for _ in range(6)]
    assert min(after) <= before


def test_without_a_pacing_signal_the_view_reports_it_and_the_host_lives(tmp_path):
    """Wine's own Direct3D has none."""
    program = HostProgram(ZEPHANE_DIRECT3D="wine")
    library = WineLibrary(program)
    assert "error" not in decode(library.zp_initialize().encode())
    lacking = ("No DXGI frame pacing signal.", "Set frame latency failed (0x80004001)")
    host = WineHost(program, 96)
    window = host.window()
    view = View(library)
    view.call("configure", resolution=16)
    view.attach(window.id)
    view.call("start")
    assert view.wait(lambda now: now["error_message"])["error_message"] in lacking
    steps = view.get()["stats"]["steps"]
    view.steps(steps + 5)
    with pytest.raises(Refused) as refused:
        view.call("export", png=str(tmp_path / "flow.png"))
    assert refused.value.text in lacking
    view.close()
    with Engine(library, {"resolution": 16}) as engine:
        with pytest.raises(Refused) as refused:
            engine.export(png=str(tmp_path / "flow.png"))
        assert refused.value.text in lacking
        assert engine.advance(steps=3)["steps"] == 3
    host.close()
    assert program.end() == 0
