"""The resources of a view, and that they are all released promptly."""

from __future__ import annotations

import sys

import pytest

from .fresh_process import in_fresh_process
from .harness import Library
from .test_host_process import LEAVING
from .test_resources import SANITIZER_SLACK
from .view import View

# A batch is near 8 milliseconds; the rest is a margin for busy machines and sanitizers.
# Finishing the queued work would take much longer.
PROMPT_SECONDS = 5.0


def seconds_to_end(library: Library, state: str):
    import time

    library.initialize()
    view = View(library)
    side = {"building": 1024, "stepping": 512, "rebuilding": 64}.get(state, 128)
    step = 1e30 if state == "lost" else None
    number = {"reynolds": 1e30} if state == "lost" else {}
    view.call("configure", resolution=side, fixed_dt=step, **number)
    view.call("running", value=state not in ("idle", "stepping"))
    if state == "finished":
        view.call("benchmark", until=0.1)
    if state == "lost":
        view.call("set", regulated=False)
    if state != "new":
        view.call("start")
    if state in ("idle", "finished", "lost"):
        view.settled()
    elif state == "running":
        view.steps(20)
    elif state == "stepping":
        for _ in range(2000):
            view.call("step")
        view.steps(2)
    elif state == "rebuilding":
        view.steps(20)
        view.call("configure", resolution=1024)
    begin = time.monotonic()
    view.close()
    return time.monotonic() - begin


@pytest.mark.parametrize("state", ["new", "idle", "running", "stepping", "finished", "lost"])
def test_a_view_ends_promptly(library_path, state):
    seconds = in_fresh_process(library_path, seconds_to_end, state)
    assert seconds < PROMPT_SECONDS


@pytest.mark.parametrize("state", ["building", "rebuilding"])
def test_a_view_ends_once_its_flow_is_made(library_path, state):
    seconds = in_fresh_process(library_path, seconds_to_end, state)
    assert seconds < 30


def growth_over_lives(library: Library, lives: int):
    from process import open_files, resident_bytes, threads

    library.initialize()

    def counts():
        return [resident_bytes(), open_files(), threads()]

    def live(number):
        with View(library) as view:
            view.call("configure", resolution=16, seed=number)
            view.call("start")
            if number % 3 == 0:
                view.wait(lambda report: report["ready"])
            if number % 5 == 0:
                view.call("reset")
            view.refusal("{")
        # A view that is not started makes no flow.
        View(library).close()

    for number in range(60):
        live(number)
    before = counts()
    for number in range(lives):
        live(number)
    return [before, counts()]


def test_creating_and_destroying_views_does_not_leak(library_path, sanitized):
    lives = 150 if sanitized else 500
    before, after = in_fresh_process(library_path, growth_over_lives, lives)
    assert after[1:] == before[1:]
    # Leaking the flow of one view in two would take 8 MB.
    assert after[0] - before[0] < (4 << 20) + (SANITIZER_SLACK if sanitized else 0)


def processor_time_of_a_paused_view(library: Library, visible: bool):
    import time

    library.initialize()
    with View(library) as view:
        view.call("configure", resolution=256)
        view.call("start")
        view.steps(20)
        view.call("running", value=False)
        view.call("visible", value=visible)
        view.settled()
        time.sleep(0.2)
        before = time.process_time()
        time.sleep(2)
        return (time.process_time() - before) / 2


@pytest.mark.parametrize("visible", [True, False])
def test_a_paused_view_uses_almost_no_processor_time(library_path, sanitized, visible):
    share = in_fresh_process(library_path, processor_time_of_a_paused_view, visible)
    assert share < (0.2 if sanitized else 0.03)


def steps_kept_pending(library: Library, state: str):
    import time

    library.initialize()
    with View(library) as view:
        view.call("configure", resolution=16)
        view.call("set", regulated=False)
        if state == "lost":
            view.call("configure", reynolds=1e30, fixed_dt=1e30)
        view.call("benchmark", until=0.1)
        view.call("start")
        view.settled()
        view.call("step")
        time.sleep(0.1)
        before = time.process_time()
        time.sleep(1)
        return time.process_time() - before


@pytest.mark.parametrize("state", ["finished", "lost"])
def test_a_pending_step_uses_no_processor_time(library_path, sanitized, state):
    share = in_fresh_process(library_path, steps_kept_pending, state)
    assert share < (0.2 if sanitized else 0.03)


def left_running(library: Library):
    import time

    library.initialize()
    view = View(library)
    view.call("configure", resolution=256)
    view.call("start")
    view.steps(5)
    sys.modules["open view"] = view  # Kept until the interpreter exits.
    time.sleep(0.1)
    return view.get()["running"]


def test_a_host_may_exit_while_a_view_runs(library_path):
    for _ in range(3):
        assert in_fresh_process(library_path, left_running, environment=LEAVING, limit_seconds=30)


def memory_of_grids(library: Library, sides: list):
    library.initialize()
    held = []
    with View(library) as view:
        view.call("running", value=False)
        view.call("configure", resolution=sides[0])
        view.call("start")
        for side in sides:
            view.call("configure", resolution=side)
            report = view.settled()
            held.append([report["frame"]["grid_size"], report["allocated_bytes"]])
    return held


def test_a_view_holds_the_memory_of_one_grid(library_path):
    small, large, again = in_fresh_process(library_path, memory_of_grids, [64, 512, 64])
    assert [small[0], large[0], again[0]] == [64, 512, 64]
    assert again == small and large[1] > 30 * small[1]
