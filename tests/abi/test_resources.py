"""The resources of an engine, and that they are all released."""

from __future__ import annotations


from .fresh_process import in_fresh_process
from .harness import Engine, Library

SANITIZER_SLACK = 320 << 20  # Freed memory that a sanitizer keeps in quarantine.


def growth_over_lives(library: Library, lives: int):
    from process import resident_bytes

    def live(number):
        with Engine(library, {"resolution": 128, "seed": number}) as engine:
            engine.advance(steps=1)
            engine.export(snapshot=True)
            engine.refusal("{")
            engine.reset()
        library.creation_refusal({"resolution": 128, "cfl": 1e-45})

    for number in range(20):
        live(number)
    before = resident_bytes()
    for number in range(lives):
        live(number)
    return resident_bytes() - before


def test_creating_and_destroying_engines_does_not_leak(library_path, sanitized):
    # Leaking one engine in ten would take 40 MB.
    growth = in_fresh_process(library_path, growth_over_lives, 150)
    assert growth < (8 << 20) + (SANITIZER_SLACK if sanitized else 0)


def growth_over_calls(library: Library, calls: int):
    from process import resident_bytes

    words = "x" * 20000
    with Engine(library, {"resolution": 16}) as engine:

        def call():
            engine.inspect()
            engine.export(snapshot=True)
            engine.refusal({"op": words})
            library.creation_refusal({"operator": words})

        for _ in range(50):
            call()
        before = resident_bytes()
        for _ in range(calls):
            call()
        return resident_bytes() - before


def test_calls_do_not_leak(library_path, sanitized):
    # Leaking the reply of each call would take 20 MB.
    growth = in_fresh_process(library_path, growth_over_calls, 1000)
    assert growth < (8 << 20) + (SANITIZER_SLACK if sanitized else 0)


def open_files_and_threads(library: Library, folder: str):
    from process import open_files, threads

    def live():
        with Engine(library, {"resolution": 64}) as engine:
            engine.export(spectrum=folder + "/s", fields=folder + "/f")
            engine.refusal({"op": "export", "spectrum": "/dev/full"})
            engine.refusal({"op": "export", "spectrum": folder})
            engine.refusal({"op": "reset", "initial": folder})
            engine.refusal({"op": "reset", "initial": folder + "/none"})
            engine.refusal({"op": "reset", "initial": folder + "/s"})

    live()
    before = [open_files(), threads()]
    for _ in range(30):
        live()
    return [before, [open_files(), threads()]]


def test_no_file_or_thread_is_left_open(library_path, tmp_path):
    before, after = in_fresh_process(library_path, open_files_and_threads, str(tmp_path))
    assert after == before


def threads_of_many_engines(library: Library, count: int):
    from process import threads

    engines = []
    counts = []
    for wanted in (1, count):
        while len(engines) < wanted:
            engines.append(Engine(library, {"resolution": 64}))
            engines[-1].advance(steps=2)
        counts.append(threads())
    for engine in engines:
        engine.close()
    return counts


def test_engines_share_the_threads_of_the_process(library_path):
    one, many = in_fresh_process(library_path, threads_of_many_engines, 12)
    assert many == one


def peak_of_a_small_engine(library: Library):
    with Engine(library, {"resolution": 16}) as engine:
        engine.advance(steps=2)
    with open("/proc/self/status") as file:
        (peak,) = [line.split()[1] for line in file if line.startswith("VmHWM")]
    return int(peak) * 1024


def test_a_small_engine_is_small(library_path, sanitized):
    # The interpreter itself takes some 20 MB.
    limit = (64 << 20) + (SANITIZER_SLACK if sanitized else 0)
    assert in_fresh_process(library_path, peak_of_a_small_engine) < limit
