"""Hosts with a canvas, each in a separate process: what they keep, and what they survive."""

from __future__ import annotations

import os
import sys
import time

import pytest

from .fresh_process import in_fresh_process
from .harness import Library, error_of
from .test_host_process import LEAVING
from .test_resources import SANITIZER_SLACK
from .view import View
from .words import HAS_CANVAS

ROUNDS = int(os.environ.get("ZEPHANE_ATTACH_ROUNDS", "100"))


def view_of_a_server_that_dies(library: Library, state: str):
    from xserver import XServer
    from xwindow import Host

    library.initialize()
    server = XServer(500, 500)
    os.environ["DISPLAY"] = server.name
    host = Host(server.name)
    window = host.window()
    answers = {}
    with View(library) as view:
        view.call("configure", resolution=64)
        view.call("running", value=state == "running")
        view.attach(window.id)
        if state != "new":
            view.call("start")
            view.wait(lambda now: now["presentations"] > 3)
        server.kill()
        report = view.wait(lambda now: now["error_message"] is not None)
        answers["error"] = report["error_message"]
        answers["canvas"] = report["canvas"]
        answers["second"] = view.refusal({"op": "export"})
        if state != "new":
            view.call("step")
            view.call("reset")
            answers["ready"] = view.wait(lambda now: now["ready"])["generation"]
            answers["export"] = view.refusal({"op": "export"})
        view.call("dismiss")
        answers["dismissed"] = view.get()["error_message"]
        if state != "new":
            answers["after"] = view.refusal({"op": "export"})
        answers["attach"] = error_of(library.ui_attach(view.handle, window.id))
    with XServer() as other, View(library) as view:
        os.environ["DISPLAY"] = other.name
        window = Host(other.name).window()
        view.call("configure", resolution=64)
        view.show(window.id, 4)
    return answers


@pytest.mark.parametrize("state", ["new", "paused", "running"])
def test_losing_the_server_ends_only_the_pictures(library_path, state):
    answers = in_fresh_process(library_path, view_of_a_server_that_dies, state)
    assert answers["error"]
    assert answers["canvas"] == {
        "height_points": 0.0,
        "scale": 1.0,
        "visible": False,
        "width_points": 0.0,
    }
    assert answers["dismissed"] is None and answers["attach"] == HAS_CANVAS
    if state == "new":
        assert answers["second"] == "No completed frame."
    else:
        assert answers["second"] == answers["export"] == answers["error"]
        assert answers["ready"] == 2
        assert answers["after"] == "No native renderer."


def handlers_after_a_canvas(library: Library, display: str):
    import ctypes

    from xwindow import Host

    x = ctypes.CDLL("libX11.so.6")
    kind = ctypes.CFUNCTYPE(ctypes.c_int, ctypes.c_void_p, ctypes.c_void_p)
    called = []
    own = kind(lambda *_: called.append(1) or 0)
    for function in (x.XSetErrorHandler, x.XSetIOErrorHandler):
        function.restype = ctypes.c_void_p
        function.argtypes = [ctypes.c_void_p]
        function(ctypes.cast(own, ctypes.c_void_p))
    library.initialize()
    host = Host(display)
    window = host.window()
    with View(library) as view:
        view.show(window.id, 4)
        assert error_of(library.ui_attach(view.handle, 0xDEAD))
        window.destroy()
        view.wait(lambda now: not now["canvas"]["visible"])
    mine = ctypes.cast(own, ctypes.c_void_p).value
    kept = [f(None) == mine for f in (x.XSetErrorHandler, x.XSetIOErrorHandler)]
    return [*kept, len(called)]


def test_the_error_handlers_of_the_host_are_kept(library_path, display):
    assert in_fresh_process(library_path, handlers_after_a_canvas, display) == [True, True, 0]


def growth_over_attachments(library: Library, display: str, rounds: int):
    from process import open_files, resident_bytes, threads
    from xwindow import Host

    library.initialize()
    window = Host(display).window()

    def counts():
        return [resident_bytes(), open_files(), threads()]

    def live(number):
        with View(library) as view:
            view.call("configure", resolution=16, seed=number)
            view.attach(window.id)
            if number % 4 != 0:
                view.call("start")
            if number % 4 == 2:
                view.wait(lambda now: now["presentations"] > 0)
            if number % 4 == 3:
                view.wait(lambda now: now["ready"])
                view.call("export")

    for number in range(60):
        live(number)
    before = counts()
    for number in range(rounds):
        live(number)
    after = counts()
    return [before, after, len(window.children())]


def test_creating_and_destroying_canvases_does_not_leak(library_path, sanitized, display):
    rounds = min(ROUNDS, 40) if sanitized else ROUNDS
    before, after, children = in_fresh_process(
        library_path,
        growth_over_attachments,
        display,
        rounds,
        # All threads share one arena, so that any growth is a leak.
        environment={"MALLOC_ARENA_MAX": "1"},
        limit_seconds=1200,
    )
    assert after[1:] == before[1:] and children == 0
    # The driver keeps some 8 KB a round. An interface's memory alone would be 360 KB.
    limit = (4 << 20) + 20_000 * rounds
    assert after[0] - before[0] < limit + (SANITIZER_SLACK if sanitized else 0)


def picture_in_tk(library: Library, display: str):
    import tkinter

    from xwindow import Host

    library.initialize()
    root = tkinter.Tk()
    root.geometry("300x340+0+0")
    root.report_callback_exception = lambda *error: sys.exit(str(error))
    frame = tkinter.Frame(root, width=300, height=300, background="red")
    frame.pack()
    pressed = []
    root.bind("<KeyPress>", lambda event: pressed.append(event.keysym))
    root.update()
    host = Host(display)
    handle = host.display.create_resource_object("window", frame.winfo_id())
    answers = {}
    with View(library) as view:
        view.call("configure", resolution=64)
        view.attach(frame.winfo_id())
        view.call("start")

        def turn(holds):
            end = time.monotonic() + 60
            while not holds(report := view.get()):
                assert time.monotonic() < end, report
                root.update()
                time.sleep(0.01)

        turn(lambda now: now["presentations"] > 10)
        image = handle.get_image(0, 0, 300, 300, 2, 0xFFFFFFFF).data
        answers["colours"] = len({image[k : k + 3] for k in range(0, len(image), 4)})
        answers["red"] = sum(image[k : k + 3] == b"\0\0\xff" for k in range(0, len(image), 4))
        root.focus_force()

        def key_arrives(now):
            host.press_key(65)
            root.update()
            return pressed

        turn(key_arrives)
        frame.configure(width=200, height=250)
        turn(lambda now: now["canvas"]["width_points"] == 200)
    root.update()
    root.destroy()
    return {**answers, "keys": sorted(set(pressed))}


def test_a_host_with_tk_shows_the_flow_and_keeps_its_keys(library_path, display):
    pytest.importorskip("tkinter")
    answers = in_fresh_process(
        library_path, picture_in_tk, display, environment={"DISPLAY": display}
    )
    assert answers["colours"] > 500 and answers["red"] == 0
    assert answers["keys"] == ["space"]


def canvas_left_open(library: Library, display: str):
    import time

    from xwindow import Host

    library.initialize()
    view = View(library)
    view.call("configure", resolution=64)
    window = Host(display).window()
    view.show(window.id, 4)
    sys.modules["open view"] = view  # Kept until the interpreter exits.
    time.sleep(0.05)
    return view.get()["running"]


def test_a_host_may_exit_while_a_canvas_is_shown(library_path, display):
    for _ in range(5):
        assert in_fresh_process(
            library_path, canvas_left_open, display, environment=LEAVING, limit_seconds=60
        )


def validated_run(library: Library, display: str):
    from xwindow import Host

    library.initialize()
    host = Host(display)
    window = host.window()
    with View(library) as view:
        view.call("configure", resolution=64)
        view.show(window.id, 4)
        for size in [(200, 300), (301, 97), (1, 1), (256, 256)]:
            window.resize(*size)
            before = view.get()["presentations"]
            view.wait(lambda now, before=before: now["presentations"] > before + 3)
        view.call("set", flow=True, palette="aurora")
        view.wait(lambda now: now["frame"]["max_speed"] > 0)
        view.call("export", png=os.devnull, pixel_size=64)
        view.call("configure", resolution=128)
        view.wait(lambda now: now["generation"] == 2 and now["presentations"] > 3)
        window.hide()
        window.show()
        view.call("running", value=False)
        view.settled()
        window.destroy()
        view.wait(lambda now: not now["canvas"]["visible"])
        return view.get()["error_message"]


def test_the_validation_layer_reports_nothing(library_path, display, tmp_path):
    settings, log = tmp_path / "settings.txt", tmp_path / "log"
    settings.write_text(
        "khronos_validation.debug_action = VK_DBG_LAYER_ACTION_LOG_MSG\n"
        "khronos_validation.report_flags = error,warn,info\n"
        "khronos_validation.enables = "
        "VK_VALIDATION_FEATURE_ENABLE_SYNCHRONIZATION_VALIDATION_EXT\n"
        f"khronos_validation.log_filename = {log}\n"
    )
    failure = in_fresh_process(
        library_path,
        validated_run,
        display,
        environment={
            "VK_INSTANCE_LAYERS": "VK_LAYER_KHRONOS_validation",
            "VK_LAYER_SETTINGS_PATH": str(settings),
        },
        limit_seconds=600,
    )
    assert failure is None
    said = log.read_text()
    assert "Khronos Validation Layer Active" in said and "SYNCHRONIZATION" in said
    assert "VUID-" not in said and "SYNC-" not in said and "Validation Error" not in said, said
    assert "Validation Warning" not in said, said


def attached_without_threads(library: Library, side: int):
    import resource

    from xserver import XServer
    from xwindow import Host

    library.initialize()
    # A limit of threads does not hold for root.
    if os.getuid() == 0:
        os.setuid(65534)
    with XServer() as server, View(library) as view:
        os.environ["DISPLAY"] = server.name
        window = Host(server.name).window(side, side)
        view.call("configure", resolution=64)
        view.call("running", value=False)
        view.call("start")
        view.settled()
        _, hard = before = resource.getrlimit(resource.RLIMIT_NPROC)
        resource.setrlimit(resource.RLIMIT_NPROC, (0, hard))
        answers = {"attach": error_of(library.ui_attach(view.handle, window.id))}
        answers["children"] = len(window.children())
        answers["canvas"] = "canvas" in view.get()
        begin = time.monotonic()
        answers["export"] = view.refusal({"op": "export", "png": os.devnull})
        answers["prompt"] = time.monotonic() - begin < 2
        resource.setrlimit(resource.RLIMIT_NPROC, before)
        view.attach(window.id)
        view.wait(lambda now: now["presentations"] > 0)
    return answers


@pytest.mark.skipif(sys.platform != "linux", reason="limits threads as Linux does")
def test_an_attach_without_a_thread_leaves_nothing_behind(library_path, drawing, sanitized):
    if sanitized:
        pytest.skip("the sanitizers need threads of their own")
    assert in_fresh_process(library_path, attached_without_threads, 300) == {
        "attach": "Resource temporarily unavailable",
        "children": 0,
        "canvas": False,
        "export": "No native renderer.",
        "prompt": True,
    }
