"""Pictures in hosts with several threads, with another rounding mode, or without a Vulkan driver;
drawing leaks nothing and does not change the state of the process."""

from __future__ import annotations

import ctypes
import hashlib
import os
import threading
import time

import pytest

from .fresh_process import in_fresh_process, on_another_thread
from .harness import Engine, Library
from .picture_reference import drawn
from .test_host_process import UPWARD, on_x86_64_linux
from .words import NO_DRIVER

pytestmark = pytest.mark.usefixtures("drawing")

# Two names of the same setting: the drivers that the Vulkan loader uses.
WITHOUT_DRIVERS = {
    "VK_DRIVER_FILES": "/nonexistent",
    "VK_ICD_FILENAMES": "/nonexistent",
    "VK_ADD_DRIVER_FILES": None,
}


def digest(path):
    with open(path, "rb") as file:
        return hashlib.sha256(file.read()).hexdigest()


# Threads


def test_a_thread_may_draw_with_its_first_call(engine, tmp_path):
    here = drawn(engine, tmp_path, pixel_size=90, flow=True)
    there = on_another_thread(lambda: drawn(engine, tmp_path, pixel_size=90, flow=True))
    assert (here == there).all()


def test_engines_draw_at_the_same_time(make_engine, tmp_path):
    engines = [make_engine(resolution=32, seed=seed) for seed in range(4)]

    def request(k, name):
        path = tmp_path / name
        display = ("vorticity", "speed", "enstrophy", "speed")[k]
        engines[k].export(png=str(path), pixel_size=100 + k, display=display, flow=k % 2 == 0)
        return digest(path)

    expected = [request(k, "alone") for k in range(4)]
    got: list[list[str]] = [[] for _ in engines]

    def work(k):
        for _ in range(6):
            got[k].append(request(k, str(k)))

    threads = [threading.Thread(target=work, args=(k,)) for k in range(4)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert got == [[one] * 6 for one in expected]


def test_several_threads_draw_one_engine(engine, tmp_path):
    engine.export(png=str(tmp_path / "alone"), pixel_size=70)

    def work(k):
        for _ in range(5):
            engine.export(png=str(tmp_path / str(k)), pixel_size=70)

    threads = [threading.Thread(target=work, args=(k,)) for k in range(4)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert len({digest(path) for path in tmp_path.iterdir()}) == 1
    assert len(list(tmp_path.iterdir())) == 5


def test_an_engine_draws_while_another_runs(make_engine, tmp_path):
    still, moving = make_engine(), make_engine(resolution=64)
    expected = drawn(still, tmp_path, pixel_size=60)
    done = threading.Event()

    def work():
        while not done.is_set():
            moving.advance(steps=5)

    thread = threading.Thread(target=work)
    thread.start()
    try:
        for _ in range(5):
            assert (drawn(still, tmp_path, pixel_size=60) == expected).all()
    finally:
        done.set()
        thread.join()
    assert moving.inspect()["is_finite"]


# Leaks


def growth_over_pictures(library: Library, folder: str, count: int):
    from process import open_files, resident_bytes, threads

    def held():
        return open_files(), threads(), resident_bytes()

    with Engine(library, {"resolution": 32}) as engine:

        def call():
            engine.export(png=folder + "/p", pixel_size=64, flow=True)
            engine.refusal({"op": "export", "png": folder, "pixel_size": 8})
            engine.refusal({"op": "export", "png": "/dev/full", "pixel_size": 8})
            engine.refusal({"op": "export", "png": "/dev/full", "pixel_size": 600})
            engine.refusal({"op": "export", "png": folder + "/q", "pixel_size": 0})
            engine.refusal({"op": "export", "png": folder + "/q", "palette": "none"})

        for _ in range(6):
            call()
        before = held()
        for _ in range(count):
            call()
        return [before, held()]


def test_many_pictures_do_not_leak(library_path, tmp_path, sanitized):
    before, after = in_fresh_process(library_path, growth_over_pictures, str(tmp_path), 25)
    assert after[:2] == before[:2]
    # Leaking the pixels of each picture would take 36 MB.
    assert sanitized or after[2] - before[2] < 12 << 20
    assert os.listdir(tmp_path) == ["p"]


def state_around_a_picture(library: Library):
    import locale

    def state():
        mask = os.umask(0)
        os.umask(mask)
        handlers = [str(signal.getsignal(number)) for number in signal.valid_signals()]
        return [dict(os.environ), os.getcwd(), mask, locale.setlocale(locale.LC_ALL), handlers]

    before = state()
    with Engine(library, {"resolution": 16}) as engine:
        engine.export(png="/dev/null", pixel_size=8)
    return state() == before


def test_drawing_does_not_change_the_state_of_the_process(library_path):
    assert in_fresh_process(library_path, state_around_a_picture)


def unloaded_after_a_picture(library: Library):
    import _ctypes

    with Engine(library, {"resolution": 16}) as engine:
        engine.export(png="/dev/null", pixel_size=8)
    _ctypes.dlclose(library.c._handle)
    time.sleep(0.2)
    return "alive"


def test_the_library_may_be_unloaded_after_a_picture(library_path):
    assert in_fresh_process(library_path, unloaded_after_a_picture) == "alive"


# Rounding


def pictures_with_rounding(library: Library, folder: str, mode: int):
    mathematics = ctypes.CDLL("libm.so.6")
    with Engine(library, {"resolution": 32}) as engine:
        engine.advance(steps=3)
        for name, rounding in (("first", mode), ("usual", 0), ("last", mode)):
            mathematics.fesetround(rounding)
            engine.export(png=f"{folder}/{name}", pixel_size=300, display="speed", flow=True)
            kept = mathematics.fegetround()
            mathematics.fesetround(0)
            if kept != rounding:
                return name
    return "kept"


@on_x86_64_linux
def test_the_rounding_mode_of_the_host_does_not_affect_pictures(library_path, tmp_path):
    kept = in_fresh_process(library_path, pictures_with_rounding, str(tmp_path), UPWARD)
    assert kept == "kept"
    assert len({digest(path) for path in tmp_path.iterdir()}) == 1


# Without a driver


def export_without_a_driver(library: Library, folder: str):
    with Engine(library, {"resolution": 16}) as engine:
        files = {"spectrum": folder + "/spectrum", "fields": folder + "/fields"}
        picture = {"png": folder + "/png"}
        return [
            engine.refusal({"op": "export", **files, **picture}),
            engine.refusal({"op": "export", **picture, "pixel_size": 0, "palette": "none"}),
            engine.export(**files)["grid_size"],
            engine.advance(steps=2)["steps"],
            engine.refusal({"op": "export", **picture, "pixel_size": 16}),
        ]


def test_without_a_driver_pictures_are_refused_and_everything_else_works(library_path, tmp_path):
    answer = in_fresh_process(
        library_path, export_without_a_driver, str(tmp_path), environment=WITHOUT_DRIVERS
    )
    if answer[0] != NO_DRIVER:
        pytest.skip(f"a driver was found despite the settings: {answer[0]}")
    assert answer == [NO_DRIVER, NO_DRIVER, 16, 2, NO_DRIVER]
    assert (tmp_path / "spectrum").stat().st_size == 16 * 16 * 8
    assert (tmp_path / "fields").stat().st_size == 16 * 16 * 12
    assert len(os.listdir(tmp_path)) == 2
