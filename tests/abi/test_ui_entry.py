"""The four functions of the view, as far as they go without a window."""

from __future__ import annotations

import pytest

from .harness import UI_CLOSED, UI_THREAD, Library, error_of, in_fresh_process, on_another_thread


def test_attaching_a_null_view_says_that_it_is_closed(library):
    assert library.ui_attach(None, None) == b'{"error":"Closed UI."}'
    assert error_of(library.ui_attach(None, 0xDEAD)) == UI_CLOSED


@pytest.mark.parametrize("request_text", [None, b"", b"{", b"[]", b"{}", b'{"op":"status"}'])
def test_calling_a_null_view_says_that_it_is_closed(library, request_text):
    assert error_of(library.ui_call(None, request_text)) == UI_CLOSED


def test_another_thread_is_refused_before_a_null_view(library):
    assert error_of(on_another_thread(lambda: library.ui_call(None, b"{}"))) == UI_THREAD
    assert error_of(on_another_thread(lambda: library.ui_attach(None, None))) == UI_THREAD


def test_a_view_is_not_made_on_another_thread(library):
    assert not on_another_thread(library.c.zp_ui_create)


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
