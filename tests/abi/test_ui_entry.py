"""The four functions of the view, as far as they go without a window."""

from __future__ import annotations

import os

import pytest

from .fresh_process import in_fresh_process, on_another_thread
from .harness import Library, error_of
from .view import View
from .words import BAD_PARENT, NOT_AN_OBJECT, NO_CANVAS, PARSE_ERROR, UI_CLOSED, UI_THREAD


def test_attaching_a_null_view_reports_that_it_is_closed(library):
    assert library.ui_attach(None, None) == b'{"error":"Closed UI."}'
    assert error_of(library.ui_attach(None, 0xDEAD)) == UI_CLOSED


@pytest.mark.parametrize("request_text", [None, b"", b"{", b"[]", b"{}", b'{"op":"status"}'])
def test_calling_a_null_view_reports_that_it_is_closed(library, request_text):
    assert error_of(library.ui_call(None, request_text)) == UI_CLOSED


def test_another_thread_is_refused_before_a_null_view(library):
    assert error_of(on_another_thread(lambda: library.ui_call(None, b"{}"))) == UI_THREAD
    assert error_of(on_another_thread(lambda: library.ui_attach(None, None))) == UI_THREAD


def test_a_view_is_created_only_on_the_main_thread(library):
    assert not on_another_thread(library.c.zp_ui_create)
    with View(library) as view:
        assert view.get()["generation"] == 0


def test_views_are_independent(make_view):
    one, other = make_view(), make_view(seed="7")
    one.call("running", value=False)
    one.call("start")
    one.settled()
    assert one.get()["generation"] == 1 and not one.get()["running"]
    assert other.get()["generation"] == 0 and other.get()["running"]
    assert (one.get()["config"]["seed"], other.get()["config"]["seed"]) == ("2", "7")


def test_another_thread_is_refused_with_a_view(paused):
    library, handle = paused.library, paused.handle
    assert error_of(on_another_thread(lambda: paused.raw({"op": "reset"}))) == UI_THREAD
    assert error_of(on_another_thread(lambda: paused.raw(None))) == UI_THREAD
    assert error_of(on_another_thread(lambda: library.ui_attach(handle, None))) == UI_THREAD
    assert paused.get()["generation"] == 1


def test_destroying_on_another_thread_leaves_the_view_as_it_is(paused):
    on_another_thread(lambda: paused.library.c.zp_ui_destroy(paused.handle))
    assert paused.get()["settled"]
    paused.call("step")
    assert paused.steps(1)["stats"]["steps"] == 1


@pytest.mark.parametrize(
    "window, words", [(None, BAD_PARENT), (0xDEAD, BAD_PARENT if os.name == "nt" else NO_CANVAS)]
)
def test_an_impossible_attachment_is_reported(paused, monkeypatch, window, words):
    monkeypatch.delenv("DISPLAY", raising=False)
    assert error_of(paused.library.ui_attach(paused.handle, window)) == words
    assert "canvas" not in paused.get()


@pytest.mark.parametrize("text", [None, b"[]", b"3", b'"get"', b"null", b"true"])
def test_a_request_to_a_view_that_is_not_an_object_is_refused(view, text):
    assert view.refusal(text) == NOT_AN_OBJECT


@pytest.mark.parametrize("text", [b"", b"{", b'{"op":"get",}', b'{"op":"get"}/**/', b"{'op':1}"])
def test_a_request_to_a_view_that_is_not_json_is_refused(view, text):
    assert view.refusal(text).startswith(PARSE_ERROR)


def test_destroying_a_null_view_does_nothing(library):
    library.c.zp_ui_destroy(None)
    on_another_thread(lambda: library.c.zp_ui_destroy(None))
    assert error_of(library.ui_call(None, b"{}")) == UI_CLOSED


def view_before_initialize(library: Library):
    made = library.c.zp_ui_create()
    library.c.zp_ui_destroy(None)
    return [
        made,
        error_of(library.ui_call(None, b"{}")),
        error_of(library.ui_attach(None, None)),
    ]


def test_no_thread_is_the_main_thread_before_zp_initialize(library_path):
    answer = in_fresh_process(library_path, view_before_initialize)
    assert answer == [None, UI_THREAD, UI_THREAD]


def view_after_a_worker_initialized(library: Library):
    on_another_thread(library.initialize)
    return [library.c.zp_ui_create(), error_of(library.ui_call(None, b"{}"))]


def test_the_main_thread_of_views_is_the_one_that_initialized(library_path):
    answer = in_fresh_process(library_path, view_after_a_worker_initialized)
    assert answer == [None, UI_THREAD]
