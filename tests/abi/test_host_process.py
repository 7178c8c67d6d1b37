"""The flow does not depend on the floating-point modes of the host, the host may unload the library
or exit at any time, and the library does not change the state of the host's process."""

from __future__ import annotations

import ctypes
import os
import platform
import signal
import struct
import sys
import threading

import pytest

from .fresh_process import in_fresh_process
from .harness import Engine, Library, decode, single
from .words import UNHEALTHY

on_x86_64_linux = pytest.mark.skipif(
    not (sys.platform == "linux" and platform.machine() == "x86_64"),
    reason="the modes are set as the C library of Linux has them on x86-64",
)

# Bits of <fenv.h> on x86-64.
UPWARD = 0x800
INVALID, DIVISION_BY_ZERO, OVERFLOW = 0x01, 0x04, 0x08


def flow_with_rounding(library: Library, mode: int):
    import hashlib

    mathematics = ctypes.CDLL("libm.so.6")
    digests = []
    for at_creation, at_run in ((0, 0), (mode, 0), (0, mode)):
        mathematics.fesetround(at_creation)
        with Engine(library, {"resolution": 96}) as engine:
            mathematics.fesetround(at_run)
            engine.advance(steps=10)
            mathematics.fesetround(0)
            digests.append(hashlib.sha256(engine.spectrum()).hexdigest())
    return digests


def flow_with_rounding_from_initialize_on(library: Library, mode: int):
    import hashlib

    mathematics = ctypes.CDLL("libm.so.6")
    mathematics.fesetround(mode)
    with Engine(library, {"resolution": 96}) as engine:
        engine.advance(steps=1)
        mathematics.fesetround(0)
        engine.reset()
        engine.advance(steps=10)
        return hashlib.sha256(engine.spectrum()).hexdigest()


@on_x86_64_linux
def test_the_rounding_mode_of_the_host_does_not_affect_the_flow(library_path):
    usual, *others = in_fresh_process(library_path, flow_with_rounding, UPWARD)
    assert others == [usual, usual]
    assert in_fresh_process(library_path, flow_with_rounding_from_initialize_on, UPWARD) == usual


def denormals_flushed(library: Library, seconds: float):
    mathematics = ctypes.CDLL("libm.so.6")
    environment = ctypes.create_string_buffer(64)
    mathematics.fegetenv(environment)
    usual = environment.raw
    # The control word of the vector unit is at byte 28; its bits 15 and 6 flush denormals.
    (control,) = struct.unpack_from("<I", usual, 28)
    struct.pack_into("<I", environment, 28, control | 0x8040)
    with Engine(library, {"resolution": 16, "fixed_dt": seconds}) as engine:
        mathematics.fesetenv(environment)
        reply = engine.raw({"op": "advance", "steps": 2})
        mathematics.fesetenv(ctypes.create_string_buffer(usual))
        return decode(reply)


@on_x86_64_linux
def test_denormals_flushed_by_the_host_are_not_flushed_in_the_flow(library_path):
    seconds = single(1e-42)
    report = in_fresh_process(library_path, denormals_flushed, seconds)
    assert report.get("simulation_time") == 2 * seconds


def mode_of_the_host(library: Library, mode: int):
    mathematics = ctypes.CDLL("libm.so.6")
    mathematics.fesetround(mode)
    with Engine(library, {"resolution": 16}) as engine:
        engine.advance(steps=2)
        engine.refusal({"op": "nothing"})
        library.initialize()
    kept = mathematics.fegetround()
    mathematics.fesetround(0)
    return kept


@on_x86_64_linux
def test_the_rounding_mode_of_the_host_is_preserved(library_path):
    assert in_fresh_process(library_path, mode_of_the_host, UPWARD) == UPWARD


def loss_with_traps(library: Library, traps: int):
    mathematics = ctypes.CDLL("libm.so.6")
    with Engine(library, {"resolution": 16, "fixed_dt": 1e30, "reynolds": 1e30}) as engine:
        mathematics.feenableexcept(traps)
        text = engine.refusal({"op": "advance"})
        mathematics.fedisableexcept(traps)
        return text


@on_x86_64_linux
def test_a_lost_flow_is_reported_when_the_host_traps_floating_point_errors(library_path):
    traps = INVALID | DIVISION_BY_ZERO | OVERFLOW
    assert in_fresh_process(library_path, loss_with_traps, traps) == UNHEALTHY


def without_file_descriptors(library: Library):
    import resource

    library.initialize()
    _, hard = resource.getrlimit(resource.RLIMIT_NOFILE)
    resource.setrlimit(resource.RLIMIT_NOFILE, (64, hard))
    taken = []
    try:
        while True:
            taken.append(os.open(os.devnull, os.O_RDONLY))
    except OSError:
        pass
    with Engine(library, {"resolution": 32}) as engine:
        answers = [engine.advance(steps=2)["steps"]]
        answers.append(engine.refusal({"op": "export", "png": "/dev/null"}))
        for number in taken:
            os.close(number)
        return answers


@pytest.mark.skipif(sys.platform != "linux", reason="limits descriptors as Linux does")
def test_without_file_descriptors_engines_work_and_pictures_are_refused_with_the_reason(
    library_path, drawing, sanitized
):
    if sanitized:
        pytest.skip("a sanitizer needs descriptors for its own checks")
    answers = in_fresh_process(library_path, without_file_descriptors)
    assert answers == [2, "No file descriptor is left."]


def unloaded_after_use(library: Library):
    import _ctypes
    import time

    with Engine(library, {"resolution": 96}) as engine:
        engine.advance(steps=3)
    _ctypes.dlclose(library.c._handle)
    time.sleep(0.2)
    return "alive"


@pytest.mark.skipif(sys.platform != "linux", reason="unloads as Linux does")
def test_the_library_may_be_unloaded_right_after_use(library_path):
    for _ in range(4):
        assert in_fresh_process(library_path, unloaded_after_use) == "alive"


# Memory and threads that are still in use when the host exits are not leaks.
LEAVING = {
    "ASAN_OPTIONS": os.environ.get("ASAN_OPTIONS", "") + ":detect_leaks=0",
    "TSAN_OPTIONS": os.environ.get("TSAN_OPTIONS", "") + ":report_thread_leaks=0",
}


def left_open(library: Library):
    engine = Engine(library, {"resolution": 96})
    sys.modules["open engine"] = engine  # Kept until the interpreter exits.
    return engine.advance(steps=3)["steps"]


def test_a_host_may_exit_with_engines_open(library_path):
    assert in_fresh_process(library_path, left_open, environment=LEAVING) == 3


def left_running(library: Library):
    import time

    engine = Engine(library, {"resolution": 96})
    work = threading.Thread(target=lambda: engine.advance(steps=2**31 - 1), daemon=True)
    work.start()
    time.sleep(0.2)
    return work.is_alive()


def test_a_host_may_exit_while_an_engine_runs(library_path):
    assert in_fresh_process(library_path, left_running, environment=LEAVING, limit_seconds=30)


def idle_processor_time(library: Library):
    import time

    with Engine(library, {"resolution": 256}) as engine:
        engine.advance(steps=30)
        time.sleep(0.2)
        before = time.process_time()
        time.sleep(0.5)
        return time.process_time() - before


def test_an_idle_engine_uses_no_processor_time(library_path):
    assert in_fresh_process(library_path, idle_processor_time) < 0.1


def state_of_the_process(library: Library):
    import locale

    def state():
        mask = os.umask(0)
        os.umask(mask)
        handlers = [str(signal.getsignal(number)) for number in signal.valid_signals()]
        return [dict(os.environ), os.getcwd(), mask, locale.setlocale(locale.LC_ALL), handlers]

    before = state()
    library.initialize()
    with Engine(library, {"resolution": 16}) as engine:
        engine.advance(steps=2)
    return state() == before


def test_the_state_of_the_process_is_unchanged(library_path):
    assert in_fresh_process(library_path, state_of_the_process)
