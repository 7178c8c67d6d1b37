"""The same flow has the same bits, however it is run."""

import os
import subprocess
import sys
from pathlib import Path

import numpy as np
import pytest

from flow64.equation import FORMS
from flow64.integrators import INTEGRATORS

HERE = Path(__file__).parent
CONFIGS = [
    dict(resolution=64, reynolds=2000.0, integrator=integrator, operator=operator)
    for integrator in INTEGRATORS
    for operator in FORMS
] + [dict(resolution=258, reynolds=2000.0), dict(resolution=256, start_spectrum="KM3")]


def bits(flow):
    planes, report = flow.fields()
    return flow.raw_spectrum().tobytes(), planes.tobytes(), report


@pytest.mark.parametrize("config", CONFIGS)
def test_a_reset_and_a_second_engine_repeat_a_flow(engine, config):
    flow = engine(**config)
    flow.advance(20)
    first = bits(flow)
    flow.reset()
    flow.advance(20)
    assert bits(flow) == first
    other = engine(**config)
    other.advance(20)
    assert bits(other) == first


def test_engines_side_by_side_do_not_disturb_each_other(engine):
    alone = engine(resolution=64)
    alone.advance(12)
    pair = [engine(resolution=64), engine(resolution=96, operator="advective")]
    for _ in range(12):
        for flow in pair:
            flow.advance()
    assert bits(pair[0]) == bits(alone)


def test_steps_one_by_one_with_looks_in_between_are_the_steps_of_one_call(engine):
    together, apart = engine(resolution=64), engine(resolution=64)
    together.advance(300)
    for number in range(300):
        apart.advance(1)
        apart.inspect()
        if number % 50 == 0:
            apart.fields()
            apart.raw_spectrum()
    assert bits(apart) == bits(together)


PROGRAM = """
import json, os, sys
if sys.argv[2] == "one":
    os.sched_setaffinity(0, {min(os.sched_getaffinity(0))})
from abi.harness import Library
from zeph_engine import Engine
library = Library(sys.argv[1])
library.initialize()
flow = Engine(library, **json.loads(sys.argv[3]))
flow.advance(20)
sys.stdout.buffer.write(flow.raw_spectrum().tobytes() + flow.fields()[0].tobytes())
sys.stdout.buffer.write(repr(flow.inspect()["palinstrophy"]).encode())
"""


@pytest.mark.skipif(not hasattr(os, "sched_setaffinity"), reason="no way to bind a process")
@pytest.mark.parametrize(
    "config",
    (
        '{"resolution": 192}',
        '{"resolution": 130, "operator": "advective", "integrator": "imexRK3"}',
        '{"resolution": 258, "integrator": "ifHeunRK3"}',
    ),
)
def test_one_thread_and_all_threads_give_the_same_bits(library_path, config):
    if len(os.sched_getaffinity(0)) < 2:
        pytest.skip("one processor alone")

    def run(threads):
        command = [sys.executable, "-c", PROGRAM, str(library_path), threads, config]
        environment = {**os.environ, "PYTHONPATH": str(HERE.parent)}
        return subprocess.run(
            command, cwd=HERE, env=environment, check=True, capture_output=True
        ).stdout

    one = run("one")
    assert np.count_nonzero(np.frombuffer(one[:4096], "<f4")) > 0
    assert one == run("all")
