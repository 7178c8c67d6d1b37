"""A host's locale and its signals do not reach into the library, nor the other way round."""

from __future__ import annotations

import subprocess
from pathlib import Path

import numpy as np
import pytest

from .fresh_process import in_fresh_process
from .harness import Engine, Library
from .view import View

COMMA = ("de_DE", ",")
TWO_BYTES = ("ps_AF", "\u066b")


@pytest.fixture(scope="session")
def locales(tmp_path_factory: pytest.TempPathFactory) -> Path:
    folder = tmp_path_factory.mktemp("locales")
    for name, _ in (COMMA, TWO_BYTES):
        subprocess.run(
            ["localedef", "-i", name, "-f", "UTF-8", str(folder / f"{name}.UTF-8")], check=True
        )
    return folder


def under(name: str, locales: Path) -> dict[str, str]:
    return {"LOCPATH": str(locales), "LC_ALL": f"{name}.UTF-8"}


def replies(library: Library, point: str):
    import locale

    locale.setlocale(locale.LC_ALL, "")
    assert locale.localeconv()["decimal_point"] == point
    library.initialize()
    with View(library) as view:
        view.call("running", value=False)
        config = view.call("configure", resolution=16, cfl=0.75)["config"]
    with Engine(library, {"resolution": 16, "cfl": 0.75, "reynolds": 123.5}) as engine:
        report = engine.call('{"op":"advance","steps":100,"until":0.125}')
        report.pop("gpu_milliseconds")
        refusal = engine.refusal({"op": "reset", "initial": "missing"})
    return [config["cfl"], report["reynolds"], report, refusal, locale.localeconv()["decimal_point"]]


@pytest.mark.parametrize("name, point", [COMMA, TWO_BYTES], ids=["comma", "two-bytes"])
def test_numbers_are_the_same_in_every_locale(library_path, locales, name, point):
    plain = in_fresh_process(library_path, replies, ".", environment={"LC_ALL": "C.UTF-8"})
    found = in_fresh_process(library_path, replies, point, environment=under(name, locales))
    assert plain[:2] == [0.75, 123.5] and plain[2]["simulation_time"] == 0.125
    assert found[:4] == plain[:4]
    assert found[4] == point


def overlay_shots(library: Library, path: str):
    """What the canvas shows of a flow of a long seed: that it is being prepared, that it cannot be,
    and its time after a step."""
    import locale

    import numpy
    from xwindow import Host, until

    locale.setlocale(locale.LC_ALL, "")
    library.initialize()
    host = Host(os.environ["DISPLAY"])
    shots = []

    def shoot(window) -> None:
        seen = [window.shot()]
        until(lambda: seen.append(window.shot()) or (len(seen) > 9 and (seen[-1] == seen[-9]).all()))
        shots.append(seen[-1])

    times = []
    for state, step in (("new", None), ("failed", None), ("shown", 1.25), ("shown", 1234.5)):
        window = host.window()
        with View(library) as view:
            view.call("running", value=False)
            view.call("configure", resolution=16, seed=1234567890123, fixed_dt=step)
            view.call("set", regulated=False)
            if state == "failed":
                view.call("benchmark", initial="/nonexistent/flow")
            view.attach(window.id)
            if state != "new":
                view.call("start")
            if state == "failed":
                view.wait(lambda now: now["error_message"])
            elif state == "shown":
                view.wait(lambda now: now["presentations"] > 0)
                view.call("step")
                report = view.wait(
                    lambda now: now["error_message"] or now.get("stats", {"steps": 0})["steps"]
                )
                times.append(report["stats"]["simulation_time"])
            until(lambda: (window.shot() != window.shot()[0, 150]).any(), "a picture")
            time.sleep(0.3)
            shoot(window)
        window.hide()
    numpy.save(path, numpy.stack(shots))
    host.close()
    return times


def test_the_texts_on_the_canvas_are_the_same_in_every_locale(
    library_path, locales, display, drawing, tmp_path
):
    shots = []
    for environment in ({"LC_ALL": "C.UTF-8"}, under(COMMA[0], locales)):
        path = tmp_path / f"{len(shots)}.npy"
        times = in_fresh_process(
            library_path, overlay_shots, str(path), environment=environment
        )
        assert times == pytest.approx([1.25, 1234.5])
        shots.append(np.load(path))
    assert np.array_equal(*shots)
    preparing, failed, early, late = shots[0]
    for one, other in ((preparing, failed), (failed, early), (early, late)):
        assert not np.array_equal(one, other)


def blocked_signals(library: Library, display: str):
    """The signals that each thread of the process but this one blocks, by the thread's number."""
    from xwindow import Host

    def masks() -> dict[str, int]:
        found = {}
        for task in os.listdir("/proc/self/task"):
            with open(f"/proc/self/task/{task}/status") as status:
                lines = dict(line.split(":", 1) for line in status)
            found[task] = int(lines["SigBlk"], 16)
        return found

    own = masks()
    library.initialize()
    os.environ["DISPLAY"] = display
    host = Host(display)
    window = host.window()
    with Engine(library, {"resolution": 128}) as engine, View(library) as view:
        engine.advance(steps=2)
        view.show(window.id, 3)
        found = masks()
    host.close()
    return [{task: mask for task, mask in found.items() if task not in own}, own]


def test_signals_for_the_process_are_left_to_the_hosts_threads(
    library_path, display, drawing, sanitized
):
    import signal

    if sanitized:
        pytest.skip("a sanitizer has threads of its own")
    threads, _ = in_fresh_process(library_path, blocked_signals, display)
    assert len(threads) >= 2, "a simulation and a render thread"
    for number in (signal.SIGTERM, signal.SIGPROF, signal.SIGINT, signal.SIGALRM, signal.SIGUSR1):
        open_to = [task for task, mask in threads.items() if not mask >> (number - 1) & 1]
        assert open_to == [], f"{signal.Signals(number).name} may land on a thread of the library"
