"""The same flow has the same bits: in every run, on any number of threads, beside other engines."""

from __future__ import annotations

import hashlib
import os
import threading

import pytest

from .fresh_process import in_fresh_process
from .harness import INTEGRATORS, OPERATORS, Engine, Library
from .systems import posix_only

FLOWS = [
    {"resolution": n, "integrator": integrator, "operator": operator}
    for n, integrator, operator in [
        (16, "etdrk4", "stress"),
        (64, "imexRK3", "advective"),
        (130, "ifHeunRK3", "stress"),
        (192, "etdrk4", "advective"),
        (256, "etdrk4", "stress"),
    ]
]


def digest_of(engine: Engine) -> str:
    figures = engine.inspect()
    figures["gpu_milliseconds"] = 0
    whole = repr(figures).encode() + engine.spectrum() + engine.fields()
    return hashlib.sha256(whole).hexdigest()


@pytest.mark.parametrize("operator", OPERATORS)
@pytest.mark.parametrize("integrator", INTEGRATORS)
def test_two_engines_and_a_reset_run_the_same_flow_to_the_bit(make_engine, integrator, operator):
    digests = set()
    for _ in range(2):
        engine = make_engine(resolution=48, integrator=integrator, operator=operator)
        engine.advance(steps=15)
        digests.add(digest_of(engine))
        engine.reset()
        engine.advance(steps=15)
        digests.add(digest_of(engine))
    assert len(digests) == 1


def test_a_flow_does_not_depend_on_how_its_steps_are_split_into_calls(make_engine):
    whole, single_steps = make_engine(resolution=48), make_engine(resolution=48)
    whole.advance(steps=300)
    for number in range(300):
        single_steps.advance()
        single_steps.inspect()
        if number % 50 == 0:
            single_steps.fields()
            single_steps.spectrum()
    assert digest_of(whole) == digest_of(single_steps)


def test_a_reset_keeps_nothing_of_the_old_flow(make_engine):
    used, fresh = make_engine(resolution=48), make_engine(resolution=48)
    used.advance(steps=30)
    used.export(snapshot=True)
    used.reset()
    used.advance(steps=10)
    fresh.advance(steps=10)
    assert digest_of(used) == digest_of(fresh)


def test_two_engines_on_two_threads_give_the_same_bits_as_one(library):
    def live() -> str:
        with Engine(library, {"resolution": 96}) as engine:
            for _ in range(10):
                engine.advance(steps=3)
                engine.inspect()
            return digest_of(engine)

    alone = live()
    together: list[str] = []
    threads = [threading.Thread(target=lambda: together.append(live())) for _ in range(2)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert together == [alone, alone]


def digests_on(library: Library, processors: int, flows: list):
    import hashlib

    usable = sorted(os.sched_getaffinity(0))
    os.sched_setaffinity(0, usable[:processors])
    digests = []
    for flow in flows:
        with Engine(library, flow) as engine:
            engine.advance(steps=8)
            whole = engine.spectrum() + engine.fields()
            digests.append(hashlib.sha256(whole).hexdigest())
    return digests


@posix_only
def test_one_processor_gives_the_same_bits_as_all(library_path):
    if len(os.sched_getaffinity(0)) < 2:
        pytest.skip("this machine lends one processor")
    alone = in_fresh_process(library_path, digests_on, 1, FLOWS)
    assert in_fresh_process(library_path, digests_on, 1 << 20, FLOWS) == alone
    assert len(set(alone)) == len(FLOWS)
