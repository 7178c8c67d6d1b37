"""How often the view is presented, and which presentations are counted."""

from __future__ import annotations

import pytest
from xwindow import until

from .test_ui_pictures import ink, message
from .view import View


def after_turns(view: View, turns: int = 1) -> int:
    """The count of presentations after so many turns of the render thread."""
    for _ in range(turns):
        view.call("export")
    return view.get()["presentations"]


def test_presentations_without_a_frame_are_not_counted(view, window):
    view.attach(window.id)
    until(lambda: ink(window.shot(), message(300)).any(), "the message")
    assert view.get()["presentations"] == 0


def test_presentations_are_counted_while_the_flow_runs(make_view, window):
    view = make_view(resolution=128)
    first = view.show(window.id)
    later = view.wait(lambda now: now["presentations"] > first["presentations"] + 20)
    assert later["stats"]["steps"] > first["stats"]["steps"]


def test_presentations_are_counted_while_nothing_changes(attached):
    count = attached.get()["presentations"]
    report = attached.wait(lambda now: now["presentations"] > count + 20)
    assert report["stats"]["steps"] == 0


@pytest.mark.parametrize("op", ["reset", "seed"])
def test_each_flow_is_counted_separately(attached, op):
    attached.wait(lambda now: now["presentations"] > 60)
    for generation in range(2, 12):
        report = attached.call(op)
        assert report["generation"] == generation and report["presentations"] < 10
        attached.wait(lambda now: now["presentations"] > 10)
    attached.wait(lambda now: now["presentations"] > 60)


@pytest.mark.parametrize("way", ["visible", "unmapped", "iconic"])
def test_a_hidden_canvas_is_not_presented(attached, window, way):
    def hide(hidden: bool) -> None:
        if way == "visible":
            attached.call("visible", value=not hidden)
        elif way == "iconic":
            window.set_state(3 if hidden else 1)
        elif hidden:
            window.hide()
        else:
            window.show()

    hide(True)
    count = after_turns(attached, 2)
    assert after_turns(attached, 20) == count
    hide(False)
    assert attached.wait(lambda now: now["presentations"] > count + 5)["error_message"] is None


def test_a_window_without_a_size_is_not_presented(attached, window):
    window.destroy()
    count = after_turns(attached, 2)
    assert after_turns(attached, 20) == count
    assert attached.get()["error_message"] is None
