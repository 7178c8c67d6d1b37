"""Forked children of a host: what other threads of the parent were doing does not reach them, they
end at once, and they may be hosts themselves."""

from __future__ import annotations

import hashlib
import os
import sys
import threading
import time

import pytest

from .fresh_process import end_of_forked_child, in_fresh_process
from .harness import Engine, Library
from .view import View

CHILDREN = int(os.environ.get("ZEPHANE_FORKS", "20"))


@pytest.fixture(autouse=True)
def forks(sanitized):
    if sanitized or sys.platform != "linux":
        pytest.skip("the sanitizers do not follow a fork")


def ends_beside_threads(library: Library, children: int, parents_work: str, folder: str):
    """The ends of children that each do everything an engine can, while four threads of the
    parent do the same work over and over."""
    done = threading.Event()

    def advance():
        with Engine(library, {"resolution": 256}) as engine:
            while not done.is_set():
                engine.advance(steps=20)

    def create():
        while not done.is_set():
            Engine(library, {"resolution": 32}).close()

    def draw():
        with Engine(library, {"resolution": 16}) as engine:
            while not done.is_set():
                engine.export(png=os.devnull, pixel_size=40, flow=True)

    def child():
        with Engine(library, {"resolution": 96}) as engine:
            assert engine.advance(steps=3)["steps"] == 3
            if parents_work == "draw":
                engine.export(png=f"{folder}/{os.getpid()}", pixel_size=40, flow=True)

    work = {"advance": advance, "create": create, "draw": draw}.get(parents_work)
    threads = [threading.Thread(target=work) for _ in range(4 if work else 0)]
    for thread in threads:
        thread.start()
    ends = []
    for number in range(children):
        time.sleep(0.001 * (number % 7))
        ends.append(end_of_forked_child(child, limit_seconds=30))
        if ends[-1] == "hung":
            break
    done.set()
    for thread in threads:
        thread.join()
    return ends


@pytest.mark.parametrize("parents_work", ["nothing", "advance", "create", "draw"])
def test_a_forked_child_works_whatever_the_threads_of_its_parent_do(
    library_path, tmp_path, parents_work
):
    ends = in_fresh_process(
        library_path, ends_beside_threads, CHILDREN, parents_work, str(tmp_path), limit_seconds=600
    )
    assert ends == [0] * CHILDREN
    pictures = [hashlib.sha256(path.read_bytes()).digest() for path in tmp_path.iterdir()]
    assert len(pictures) == (CHILDREN if parents_work == "draw" else 0)
    assert len(set(pictures)) <= 1


def first_uses_beside_forks(library: Library, children: int):
    """The ends of children of fresh parents, forked while a thread uses the library for the first
    time."""

    def parent(number):
        first = threading.Thread(target=lambda: Engine(library, {"resolution": 32}).close())
        first.start()
        time.sleep(0.0002 * number)
        end = end_of_forked_child(lambda: Engine(library, {"resolution": 32}).close(), 20)
        first.join()
        assert end == 0, end

    return [end_of_forked_child(lambda: parent(number)) for number in range(children)]


def test_a_fork_amid_the_first_use_of_the_library(library_path):
    assert in_fresh_process(library_path, first_uses_beside_forks, CHILDREN) == [0] * CHILDREN


def seconds_to_exit(library: Library):
    """Of a child that exits as a program does while its parent's view draws."""
    import ctypes

    from xserver import XServer
    from xwindow import Host

    library.initialize()
    seconds = []
    with XServer() as server, View(library) as view:
        os.environ["DISPLAY"] = server.name
        view.call("configure", resolution=64)
        view.show(Host(server.name).window().id, 3)
        for _ in range(10):
            begin = time.monotonic()
            assert end_of_forked_child(lambda: ctypes.CDLL(None).exit(0)) == 0
            seconds.append(time.monotonic() - begin)
        shown = view.get()["presentations"]
        view.wait(lambda report: report["presentations"] > shown + 3)
    return seconds


def test_a_child_of_a_process_with_a_view_exits_at_once(library_path):
    assert max(in_fresh_process(library_path, seconds_to_exit)) < 2


def views_of_children(library: Library, forking: str):
    """The ends of children that have a view of their own beside their parent's."""
    import ctypes

    from xserver import XServer
    from xwindow import Host

    library.initialize()
    with XServer() as server, View(library) as view:
        os.environ["DISPLAY"] = server.name
        view.call("configure", resolution=64)
        view.show(Host(server.name).window().id, 3)

        def child():
            assert view.refusal({"op": "get"}) == UI_THREAD
            assert not library.c.zp_ui_create()
            description = decode(library.initialize())
            assert "error" not in description, description
            assert view.refusal({"op": "get"}) == UI_THREAD
            library.c.zp_ui_destroy(view.handle)
            with View(library) as own:
                own.call("configure", resolution=64)
                own.show(Host(server.name).window().id, 3)
            ctypes.CDLL(None).exit(0)

        ends = []
        for _ in range(3):
            if forking == "main":
                ends.append(end_of_forked_child(child))
            else:
                ends.append(on_another_thread(lambda: end_of_forked_child(child)))
        shown = view.get()["presentations"]
        view.wait(lambda report: report["presentations"] > shown + 3)
    return ends


@pytest.mark.parametrize("forking", ["main", "another"])
def test_a_forked_child_has_views_of_its_own(library_path, forking):
    assert in_fresh_process(library_path, views_of_children, forking) == [0] * 3
