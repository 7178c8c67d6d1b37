"""Clicks on the canvas, and the keys and the focus, which stay with the host."""

from __future__ import annotations

import pytest
from xwindow import Host, Window, until
from Xlib import X
from Xlib.ext import xtest

from .view import View

SIDE = 300
TOGGLE, STEP, RESET = (33, 71, 109)  # the middle of each button, from the left
ROW = SIDE - 31
SHIFT = 50  # its key's code


def expect_nothing(view: View, window: Window, step: tuple[int, int] = (STEP, ROW)) -> None:
    """Clicks are handled in order, so a step that was taken follows all earlier clicks."""
    before = view.get()["stats"]["steps"]
    window.click(*step)
    report = view.wait(lambda now: now["settled"] and now["stats"]["steps"] > before)
    assert report["stats"]["steps"] == before + 1
    assert report["generation"] == 1 and not report["running"]


def test_the_first_button_pauses_and_runs(attached, window):
    for running in (True, False, True, False):
        window.click(TOGGLE, ROW)
        attached.wait(lambda now, running=running: now["running"] == running)
    assert not attached.call("reset")["running"]


def test_the_second_button_takes_a_step_each(attached, window):
    for count in (1, 2, 3):
        window.click(STEP, ROW)
        attached.steps(count)
    assert attached.settled()["stats"]["steps"] == 3


def test_the_second_button_pauses_a_running_flow(attached, window):
    attached.call("running", value=True)
    window.click(STEP, ROW)
    attached.wait(lambda now: not now["running"] and now["settled"])


def test_the_third_button_resets_the_flow(attached, window):
    attached.call("step")
    attached.steps(1)
    window.click(RESET, ROW)
    report = attached.wait(lambda now: now["generation"] == 2 and now["settled"])
    assert report["stats"]["steps"] == 0


@pytest.mark.parametrize(
    "x, y",
    [
        (13, ROW),
        (128, ROW),
        (TOGGLE, SIDE - 50),
        (TOGGLE, SIDE - 13),
        (RESET, SIDE - 50),
        (RESET, SIDE - 13),
        (0, 0),
        (150, 150),
        (299, 299),
        (250, ROW),
    ],
)
def test_a_click_beside_the_buttons_does_nothing(attached, window, x, y):
    window.click(x, y)
    expect_nothing(attached, window)


@pytest.mark.parametrize(
    "x, y", [(52, ROW), (89, ROW), (STEP, SIDE - 49), (STEP, SIDE - 14)]
)
def test_a_click_on_a_buttons_edge_counts(attached, window, x, y):
    window.click(x, y)
    attached.steps(1)


@pytest.mark.parametrize("x, generation", [(14, 1), (51, 1), (90, 2), (127, 2)])
def test_the_outer_edges_of_the_bar_count(attached, window, x, generation):
    window.click(x, ROW)
    if generation == 1:
        attached.wait(lambda now: now["running"])
    else:
        attached.wait(lambda now: now["generation"] == 2)


@pytest.mark.parametrize("button", [2, 3, 4, 5])
def test_other_buttons_of_the_mouse_do_nothing(attached, window, button):
    for x in (TOGGLE, STEP, RESET):
        window.click(x, ROW, button)
    expect_nothing(attached, window)


@pytest.mark.parametrize("locks", [[], [SHIFT]], ids=["alone", "with Shift"])
def test_other_buttons_of_the_mouse_and_the_wheel_go_to_the_host(attached, host, window, locks):
    window.handle.change_attributes(event_mask=X.ButtonPressMask | X.ButtonReleaseMask)
    for key in locks:
        xtest.fake_input(host.display, X.KeyPress, key)
    for button, place in enumerate([(TOGGLE, ROW), (150, 120), (STEP, ROW), (0, 0), (299, 299)], 1):
        window.click(*place, button)
    for key in locks:
        xtest.fake_input(host.display, X.KeyRelease, key)
    host.display.sync()
    attached.wait(lambda now: now["running"])  # by the left button
    expected = [
        (kind, button, *place)
        for button, place in ((2, (150, 120)), (3, (STEP, ROW)), (4, (0, 0)), (5, (299, 299)))
        for kind in (X.ButtonPress, X.ButtonRelease)
    ]
    seen = window.events(X.ButtonPress, X.ButtonRelease)
    assert [(e.type, e.detail, e.event_x, e.event_y) for e in seen] == expected


@pytest.mark.parametrize("started", [False, True])
def test_a_click_before_the_first_frame_only_passes_the_focus(view, host, window, started):
    view.call("running", value=False)
    view.call("set", regulated=False)
    if started:
        view.call("visible", value=False)
        view.call("start")
        view.settled()
        view.call("reset")
        assert not view.settled()["ready"]
    view.attach(window.id)
    for x in (TOGGLE, STEP, RESET):
        host.root.set_input_focus(X.RevertToNone, X.CurrentTime)
        host.display.sync()
        window.click(x, ROW)
        until(lambda: host.focus() == window.id, "the focus")
    view.call("visible", value=True)
    view.call("start")
    report = view.wait(lambda now: now["ready"] and now["settled"])
    assert report["generation"] == (2 if started else 1)
    assert report["stats"]["steps"] == 0 and not report["running"]


@pytest.mark.parametrize("x, y", [(TOGGLE, ROW), (150, 150)])
def test_a_click_anywhere_leaves_the_focus_with_the_host(attached, host, window, x, y):
    host.root.set_input_focus(X.RevertToNone, X.CurrentTime)
    host.display.sync()
    assert host.focus() != window.id
    window.click(x, y)
    until(lambda: host.focus() == window.id, "the focus")


def test_buttons_act_on_release(attached, host, window):
    def drag(begin: tuple[int, int], end: tuple[int, int]) -> None:
        for (x, y), kind in ((begin, X.ButtonPress), (end, X.ButtonRelease)):
            xtest.fake_input(host.display, X.MotionNotify, x=x, y=y)
            xtest.fake_input(host.display, kind, 1)
        host.display.sync()

    window.handle.raise_window()
    drag((TOGGLE, ROW), (150, 150))
    expect_nothing(attached, window)
    drag((150, 150), (RESET, ROW))
    attached.wait(lambda now: now["generation"] == 2)


@pytest.mark.parametrize("scale", [1.5, 2])
def test_buttons_lie_where_they_are_drawn_at_every_scale(paused, host, scale):
    host.set_resolution(96 * scale)
    pixels = round(SIDE * scale)
    window = host.window(pixels, pixels)
    paused.attach(window.id)
    paused.wait(lambda now: now["presentations"] > 0)
    step = (round(STEP * scale), round(ROW * scale))
    # The last texel before the bar, and the first of it.
    window.click(round(14 * scale) - 1, step[1])
    expect_nothing(paused, window, step)
    window.click(round(14 * scale), step[1])
    paused.wait(lambda now: now["running"])
    window.click(round(128 * scale) - 1, step[1])
    paused.wait(lambda now: now["generation"] == 2)


def test_on_a_window_higher_than_wide_the_buttons_lie_below_the_bar(paused, host):
    window = host.window(200, 400)
    paused.attach(window.id)
    paused.wait(lambda now: now["presentations"] > 0)
    for x in (TOGGLE, STEP, RESET):
        window.click(x, 200 - 31)
    expect_nothing(paused, window, (STEP, 400 - 31))


def test_buttons_follow_the_height_of_the_window(attached, window):
    window.resize(300, 200)
    until(lambda: window.children() == [(0, 0, 300, 200)], "the canvas")
    expect_nothing(attached, window, (STEP, 200 - 31))


def test_buttons_work_on_a_canvas_that_has_not_been_drawn(paused, window):
    paused.call("visible", value=False)
    paused.attach(window.id)
    expect_nothing(paused, window)


def test_clicks_are_handled_in_order(attached, window):
    for _ in range(50):
        window.click(STEP, ROW)
    assert attached.steps(50)["stats"]["steps"] == 50
    assert attached.settled()["stats"]["steps"] == 50


def keys_of(host: Host, window: Window) -> list[tuple[int, int, int, int, int]]:
    """Kind, code, state and place of the keys that arrive at a window after Shift and two more."""
    window.events()
    xtest.fake_input(host.display, X.MotionNotify, x=150, y=120)
    xtest.fake_input(host.display, X.KeyPress, SHIFT)
    host.press_key(38)
    xtest.fake_input(host.display, X.KeyRelease, SHIFT)
    host.press_key(65)
    seen: list[tuple[int, int, int, int, int]] = []

    def come() -> bool:
        for event in window.events(X.KeyPress, X.KeyRelease):
            place = (event.event_x, event.event_y)
            seen.append((event.type, event.detail, event.state, *place))
        return len(seen) >= 6

    until(come, "the keys")
    return seen


def test_keys_reach_the_host_as_without_a_canvas(paused, host, window):
    window.take_focus()
    without = keys_of(host, window)
    assert [code for _, code, *_ in without] == [SHIFT, 38, 38, SHIFT, 65, 65]
    paused.attach(window.id)
    paused.wait(lambda now: now["presentations"] > 0)
    assert keys_of(host, window) == without
    window.click(150, 120)
    assert keys_of(host, window) == without
