"""What a view costs while nothing happens: the system calls of its threads, as strace sees them.

The simulation thread of a paused flow looks for commands fifty times a second, without asking
anybody. The render thread wakes sixty times a second while it has something to present, and not at
all while it has not."""

from __future__ import annotations

import re
import subprocess

import pytest

from .fresh_process import in_fresh_process
from .harness import Library

# Of a view that is paused, from one message of strace to the end of its second.
Calls = dict[str, list[str]]


def calls_of_a_second(library: Library, display: str, folder: str, is_hidden: bool):
    """The calls that each thread begins within a second, and the name of its task."""
    import ctypes

    from xwindow import Host

    os.environ["DISPLAY"] = display
    anyone = ctypes.c_ulong(-1)
    ctypes.CDLL(None).prctl(0x59616D61, anyone, 0, 0, 0)  # PR_SET_PTRACER
    library.initialize()
    host = Host(display)
    window = host.window()
    before = set(os.listdir("/proc/self/task"))
    with View(library) as view:
        view.call("configure", resolution=16)
        view.call("running", value=False)
        view.show(window.id, 30)
        view.settled()
        if is_hidden:
            window.hide()
            view.wait(lambda now: not now["canvas"]["visible"])
        time.sleep(0.5)  # for what is still on its way
        count = view.get()["presentations"]
        strace = subprocess.Popen(
            ["strace", "-f", "-ttt", "-o", f"{folder}/calls", "-p", str(os.getpid())],
            stderr=subprocess.PIPE,
            text=True,
        )
        strace.stderr.readline()  # it has attached
        time.sleep(0.5)
        begin = time.time()
        time.sleep(1)
        end = time.time()
        strace.send_signal(signal.SIGINT)
        strace.wait()
        shown = view.get()["presentations"] - count
        threads = sorted(set(os.listdir("/proc/self/task")) - before)
    host.close()
    return [begin, end, threads, shown]


def begun(path: str, begin: float, end: float, threads: list[str]) -> Calls:
    calls: Calls = {}
    with open(path) as lines:
        for line in lines:
            thread, moment, call = line.split(None, 2)
            if begin <= float(moment) <= end and thread in threads and not call.startswith("<... "):
                calls.setdefault(thread, []).append(call)
    return calls


@pytest.fixture
def idle_view(library_path, display, drawing, sanitized, tmp_path):
    if sanitized:
        pytest.skip("a sanitizer has threads of its own")

    def watch(is_hidden: bool) -> tuple[Calls, int]:
        begin, end, threads, shown = in_fresh_process(
            library_path, calls_of_a_second, display, str(tmp_path), is_hidden
        )
        return begun(str(tmp_path / "calls"), begin, end, threads), shown

    return watch


def names(calls: Calls) -> list[set[str]]:
    """The names of the calls of each thread."""
    return [{re.match(r"\w+", call).group() for call in calls[thread]} for thread in calls]


def test_the_render_thread_of_a_hidden_view_makes_no_system_call(idle_view):
    calls, shown = idle_view(True)
    assert shown == 0
    assert names(calls) == [{"futex"}], "the simulation thread's wait"
    assert sum(map(len, calls.values())) < 120


def test_the_render_thread_of_a_paused_view_only_sleeps(idle_view):
    calls, shown = idle_view(False)
    assert shown > 60
    assert sorted(map(sorted, names(calls))) == [["futex"], ["ppoll"]], calls
    assert sum(map(len, calls.values())) < 220
