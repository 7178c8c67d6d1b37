"""The canvas: how it is attached to the host's window, follows it, and is removed."""

from __future__ import annotations

import time

import pytest
from xserver import XServer
from xwindow import Host, until

from .fresh_process import on_another_thread
from .harness import Refused, error_of
from .view import View
from .words import BAD_PARENT, HAS_CANVAS, NO_CANVAS, UI_CLOSED, UI_THREAD


def refusal_of(view: View, window: int | None) -> str:
    with pytest.raises(Refused) as refused:
        view.attach(window)
    return refused.value.text


def test_attaching_is_answered_with_an_empty_object(view, window):
    assert view.library.ui_attach(view.handle, window.id) == b"{}"


def test_a_second_canvas_is_refused_and_the_first_stays(view, host, window):
    view.attach(window.id)
    for second in (window.id, host.window(200, 200).id, 0, 0xDEAD):
        assert refusal_of(view, second) == HAS_CANVAS
    assert window.children() == [(0, 0, 300, 300)]
    assert view.get()["canvas"]["width_points"] == 300


@pytest.mark.parametrize("number", [None, 0, 0xDEAD, 1, 2**32 - 1, 2**32, 2**63, 2**64 - 1])
def test_a_number_that_is_not_a_window_is_refused_and_a_window_is_accepted_after_it(
    view, window, number
):
    assert refusal_of(view, number) == BAD_PARENT
    assert "canvas" not in view.get()
    view.attach(window.id)
    assert window.children() == [(0, 0, 300, 300)]


def test_a_destroyed_window_is_refused(view, host):
    gone = host.window()
    gone.destroy()
    assert refusal_of(view, gone.id) == BAD_PARENT


@pytest.mark.parametrize("name", [None, "", ":54321", "no.such.host:0", "nonsense"])
def test_without_a_display_attaching_fails_and_the_view_goes_on(
    paused, window, monkeypatch, x_server, name
):
    if name is None:
        monkeypatch.delenv("DISPLAY")
    else:
        monkeypatch.setenv("DISPLAY", name)
    assert refusal_of(paused, window.id) == NO_CANVAS
    report = paused.get()
    assert "canvas" not in report and report["error_message"] is None
    paused.call("step")
    paused.steps(1)
    monkeypatch.setenv("DISPLAY", x_server.name)
    paused.attach(window.id)


def test_another_thread_is_refused_before_a_closed_view_and_that_before_a_bad_window(
    view, library, window
):
    assert error_of(on_another_thread(lambda: library.ui_attach(None, 0))) == UI_THREAD
    assert error_of(on_another_thread(lambda: library.ui_attach(view.handle, window.id))) == (
        UI_THREAD
    )
    assert error_of(library.ui_attach(None, 0)) == UI_CLOSED
    assert error_of(library.ui_attach(None, window.id)) == UI_CLOSED
    assert window.children() == []


def test_the_canvas_fills_the_window_and_follows_its_size(view, host):
    window = host.window(321, 123)
    view.attach(window.id)
    assert window.children() == [(0, 0, 321, 123)]
    for size in [(640, 480), (100, 500), (7, 3), (1, 1), (300, 300)]:
        window.resize(*size)
        until(lambda size=size: window.children() == [(0, 0, *size)], f"a canvas of {size}")
        canvas = view.get()["canvas"]
        assert (canvas["width_points"], canvas["height_points"]) == size
    assert view.get()["error_message"] is None


def test_a_canvas_in_a_hidden_window_follows_once_it_is_shown(view, host):
    window = host.window(300, 200, shown=False)
    view.attach(window.id)
    window.resize(400, 250)
    assert not view.get()["canvas"]["visible"]
    window.show()
    until(lambda: window.children() == [(0, 0, 400, 250)], "the size")
    assert view.get()["canvas"]["visible"]


@pytest.mark.parametrize("resolution, scale", [(None, 1), (96, 1), (144, 1.5), (192, 2)])
def test_the_canvas_is_reported_in_device_independent_units(view, host, resolution, scale):
    host.set_resolution(resolution)
    window = host.window(600, 300)
    view.attach(window.id)
    assert view.get()["canvas"] == {
        "width_points": 600 / scale,
        "height_points": 300 / scale,
        "scale": scale,
        "visible": True,
    }


def test_a_resolution_that_changes_is_followed(view, host, window):
    view.attach(window.id)
    assert view.get()["canvas"]["scale"] == 1
    host.set_resolution(144)
    canvas = view.get()["canvas"]
    assert canvas["scale"] == 1.5 and canvas["width_points"] == 200


def test_the_visibility_of_the_canvas_is_reported(view, host, window):
    view.attach(window.id)

    def seen() -> bool:
        return view.get()["canvas"]["visible"]

    assert seen()
    window.hide()
    assert not seen()
    window.show()
    assert seen()
    window.set_state(3)
    assert not seen()
    window.set_state(1)
    assert seen()
    assert not view.call("visible", value=False)["canvas"]["visible"]
    assert view.call("visible", value=True)["canvas"]["visible"]


def test_a_canvas_deep_in_a_minimised_window_is_not_seen(view, host, window):
    inner = host.window(200, 200, shown=False)
    inner.handle.reparent(window.handle, 10, 10)
    inner.show()
    view.attach(inner.id)
    assert view.get()["canvas"]["visible"]
    window.set_state(3)
    assert not view.get()["canvas"]["visible"]
    window.set_state(1)
    assert view.get()["canvas"]["visible"]
    window.hide()
    assert not view.get()["canvas"]["visible"]


@pytest.mark.parametrize("state", ["new", "running", "paused", "hidden", "lost"])
def test_a_view_is_destroyed_with_its_canvas_in_every_state(make_view, host, window, state):
    view = make_view(resolution=128)
    view.attach(window.id)
    if state == "lost":
        view.call("configure", fixed_dt=1e30)
    if state != "new":
        view.call("start")
        view.wait(lambda now: now["ready"] or now["error_message"])
    if state == "paused":
        view.call("running", value=False)
        view.settled()
    if state == "lost":
        view.wait(lambda now: now["error_message"])
    if state == "hidden":
        window.hide()
    view.close()
    until(lambda: window.children() == [], "the canvas to go")
    assert window.size() == (300, 300)


def test_a_window_may_get_a_canvas_again_once_the_first_is_gone(make_view, window):
    for _ in range(3):
        view = make_view()
        view.attach(window.id)
        assert len(window.children()) == 1
        view.close()
        until(lambda: window.children() == [], "the canvas to go")


def test_a_window_may_be_destroyed_before_its_view(make_view, host):
    view = make_view(resolution=128)
    window = host.window()
    view.show(window.id)
    window.destroy()
    canvas = view.wait(lambda now: not now["canvas"]["visible"])["canvas"]
    assert (canvas["width_points"], canvas["height_points"]) == (0, 0)
    steps = view.get()["stats"]["steps"]
    assert view.steps(steps + 5)["error_message"] is None
    view.close()


def test_a_window_may_be_destroyed_during_a_frame(make_view, host):
    for number in range(20):
        view = make_view(resolution=64)
        window = host.window()
        view.show(window.id, 2)
        time.sleep(0.0011 * number)
        window.destroy()
        view.wait(lambda now: not now["canvas"]["visible"])
        steps = view.get()["stats"]["steps"]
        assert view.steps(steps + 5)["error_message"] is None
        view.close()


def test_a_window_destroyed_before_the_first_frame_is_reported(make_view, host):
    for number in range(10):
        view = make_view(resolution=64)
        window = host.window()
        view.attach(window.id)
        time.sleep(0.002 * number)
        window.destroy()
        view.call("start")
        view.steps(5)
        assert view.get()["error_message"] in (None, BAD_PARENT)
        view.close()


def test_the_last_of_many_sizes_is_kept(make_view, host, window):
    view = make_view(resolution=64)
    view.show(window.id)
    for k in range(300):
        window.resize(1 + 37 * k % 500, 1 + 53 * k % 400)
        if k % 50 == 0:
            window.hide()
            window.show()
    window.resize(256, 256)
    until(lambda: window.children() == [(0, 0, 256, 256)], "the last size")
    before = view.get()["presentations"]
    assert view.wait(lambda now: now["presentations"] > before + 5)["error_message"] is None


def test_two_views_show_in_two_windows_at_once(make_view, host):
    windows = [host.window(200, 200), host.window(150, 250)]
    views = [make_view(resolution=64, seed=seed) for seed in (1, 2)]
    for view, window in zip(views, windows):
        view.attach(window.id)
        view.call("start")
    for view in views:
        report = view.wait(lambda now: now["presentations"] > 10)
        assert report["error_message"] is None
    views[0].close()
    before = views[1].get()["presentations"]
    views[1].wait(lambda now: now["presentations"] > before + 10)


def test_two_views_may_lie_in_one_window(make_view, window):
    for seed in (1, 2):
        view = make_view(resolution=64, seed=seed)
        assert view.show(window.id, 6)["error_message"] is None
    assert window.children() == [(0, 0, 300, 300)] * 2


def test_a_stopped_x_server_keeps_no_report_waiting(make_view, monkeypatch):
    with XServer() as server:
        monkeypatch.setenv("DISPLAY", server.name)
        host = Host(server.name)
        window = host.window(320, 200)
        view = make_view()
        view.show(window.id)
        before = view.get()["canvas"]
        with server.stopped():
            begin = time.monotonic()
            reports = [view.get() for _ in range(100)]
            assert time.monotonic() - begin < 2, "the first may wait for 50 ms"
            assert all(report["canvas"] == before for report in reports)
        window.resize(100, 50)
        until(lambda: view.get()["canvas"]["width_points"] == 100, "an answer again")
        until(lambda: window.children() == [(0, 0, 100, 50)], "the canvas")
        view.close()
        host.close()
