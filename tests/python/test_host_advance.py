"""How an engine runs: to a time or for some steps, in requests, with fresh figures."""

from __future__ import annotations

import copy
import pickle
import signal
import threading
import time
import warnings
from typing import Any, Callable

import pytest

import zephane
from zephane import FlowFailedError, ZephaneError, ZephaneWarning, pacing

Maker = Callable[..., zephane.Engine]


@pytest.fixture
def short_requests(monkeypatch: pytest.MonkeyPatch) -> None:
    """Requests of one to three steps each."""
    monkeypatch.setattr(pacing, "LONGEST", 3)


def test_until_alone_goes_there(engine: zephane.Engine) -> None:
    end = engine.advance(until=0.5)
    assert end.simulation_time == pytest.approx(0.5, rel=1e-13)
    assert end.steps > 1
    assert engine.advance(until=0.5).steps == end.steps
    assert engine.advance(until=0.25).steps == end.steps


def test_the_first_of_two_bounds_ends_a_run(engine: zephane.Engine) -> None:
    assert engine.advance(steps=3, until=100.0).steps == 3
    assert engine.advance(10**6, 0.5).simulation_time == pytest.approx(0.5, rel=1e-13)


def test_the_figures_are_fresh(engine: zephane.Engine) -> None:
    enstrophies = [engine.advance(20).enstrophy for _ in range(4)]
    assert enstrophies == sorted(set(enstrophies), reverse=True)
    assert enstrophies[-1] == engine.inspect().enstrophy


def test_without_fresh_figures_there_are_none(engine: zephane.Engine) -> None:
    clock = engine.advance(20, fresh=False)
    assert isinstance(clock, zephane.Clock)
    figures = engine.inspect()
    for name in ("steps", "simulation_time", "dt", "reynolds", "gpu_milliseconds"):
        assert getattr(clock, name) == getattr(figures, name)
    for name in ("energy", "enstrophy", "palinstrophy", "palinstrophy_ratio"):
        assert not hasattr(clock, name)


@pytest.mark.parametrize("integrator", zephane.INTEGRATORS)
def test_cutting_a_run_changes_no_bit(
    make_engine: Maker, short_requests: None, integrator: str
) -> None:
    whole, cut = make_engine(integrator=integrator), make_engine(integrator=integrator)
    whole._library.call(whole._handle, {"op": "advance", "steps": 10**6, "until": 0.7})
    clocks: list[zephane.Clock] = []
    cut.advance(until=0.7, progress=clocks.append)
    assert len(clocks) > 5
    assert cut.spectrum().tobytes() == whole.spectrum().tobytes()
    ends = [engine.inspect() for engine in (whole, cut)]
    assert ends[0].steps == ends[1].steps
    assert ends[0].simulation_time == ends[1].simulation_time


def test_the_time_of_the_device_is_that_of_the_whole_run(
    make_engine: Maker, short_requests: None
) -> None:
    engine = make_engine()
    last: list[float] = []
    call = engine._library.call

    def recorded(handle: Any, request: Any) -> Any:
        reply = call(handle, request)
        if request["op"] == "advance":
            last.append(reply["gpu_milliseconds"])
        return reply

    engine._library.call = recorded  # type: ignore[method-assign]
    try:
        end = engine.advance(20)
    finally:
        del engine._library.call  # type: ignore[method-assign]
    assert len(last) > 5
    assert end.gpu_milliseconds == pytest.approx(sum(last))
    assert engine.inspect().gpu_milliseconds == end.gpu_milliseconds
    assert engine.advance(0).gpu_milliseconds == 0.0


def test_requests_take_about_a_tenth_of_a_second() -> None:
    pace = pacing.Pace()
    asked = []
    for _ in range(8):
        asked.append(pace.ask(None))
        pace.took(asked[-1], 0.01 * asked[-1])
    assert asked[0] == 1 and asked[-1] == 10
    assert pace.ask(3) == 3
    pace.took(10, 1.0)
    assert pace.ask(None) == 1


def test_progress_can_end_a_run(engine: zephane.Engine, short_requests: None) -> None:
    end = engine.advance(10**9, progress=lambda now: now.steps < 20)
    assert 20 <= end.steps < 24


def test_control_c_ends_a_long_run(engine: zephane.Engine) -> None:
    timer = threading.Timer(0.4, signal.raise_signal, [signal.SIGINT])
    timer.start()
    began = time.monotonic()
    with pytest.raises(KeyboardInterrupt):
        engine.set(reynolds=1e5)  # far from rest for all that time
        engine.advance(10**9)
    assert time.monotonic() - began < 5.0
    steps = engine.inspect().steps
    assert engine.advance(3).steps == steps + 3


def test_other_threads_get_a_word_in_a_long_run(engine: zephane.Engine) -> None:
    stop = threading.Event()
    worker = threading.Thread(
        target=lambda: engine.advance(10**9, fresh=False, progress=lambda now: not stop.is_set())
    )
    worker.start()
    seen = [engine.inspect().steps for _ in range(5)]
    stop.set()
    worker.join()
    assert seen == sorted(seen)
    assert engine.inspect().steps >= seen[-1]


def test_closing_ends_a_long_run_after_its_request(engine: zephane.Engine) -> None:
    raised: list[str] = []
    running = threading.Event()

    def work() -> None:
        try:
            engine.advance(10**9, progress=lambda now: running.set())
        except ZephaneError as failure:
            raised.append(str(failure))

    worker = threading.Thread(target=work)
    worker.start()
    running.wait()
    engine.close()
    worker.join()
    assert raised == ["Closed engine."]


def test_the_reynolds_number_suits_the_grid(make_engine: Maker) -> None:
    assert make_engine(resolution=32, k0=3, reynolds=None).config.reynolds == (
        zephane.default_reynolds(32, 3)
    )
    assert make_engine(resolution=32, reynolds=77.0).config.reynolds == 77.0


@pytest.mark.parametrize("integrator", zephane.INTEGRATORS)
def test_the_default_courant_number_suits_the_integrator(
    make_engine: Maker, integrator: str
) -> None:
    with warnings.catch_warnings():
        warnings.simplefilter("error")
        engine = make_engine(integrator=integrator)
    assert engine.config.cfl == zephane.suitable_cfl(integrator)
    with pytest.warns(ZephaneWarning, match="cfl 4 is beyond") as caught:
        given = make_engine(integrator=integrator, cfl=4.0)
        engine.set(cfl=4.0)
    assert given.config.cfl == 4.0
    assert len(caught) == 2 and caught[1].filename == __file__
    with warnings.catch_warnings():
        warnings.simplefilter("error")
        make_engine(integrator=integrator, cfl=4.0, fixed_dt=0.01)


def test_numbers_that_suited_follow_a_configuration() -> None:
    config = zephane.Config()
    changed = config.changed(resolution=128, integrator="imexRK3")
    assert changed == zephane.Config(128, integrator="imexRK3")
    assert (changed.reynolds, changed.cfl) == (zephane.default_reynolds(128, 4), 1.5)
    own = zephane.Config(reynolds=5000.0, cfl=1.0)
    assert own.changed(resolution=128, integrator="imexRK3").reynolds == 5000.0
    assert own.changed(integrator="imexRK3").cfl == 1.0


def test_a_flow_whose_figures_grow_is_warned_of(make_engine: Maker) -> None:
    settings = {"resolution": 128, "reynolds": None, "integrator": "imexRK3"}
    with pytest.warns(ZephaneWarning, match="beyond what imexRK3 bears"):
        engine = make_engine(cfl=4.0, **settings)
    with pytest.warns(ZephaneWarning, match=r"The enstrophy grew from 8 to \d\d") as caught:
        engine.advance(until=1.5)
    assert caught[0].filename == __file__
    with warnings.catch_warnings():
        warnings.simplefilter("error")
        engine.reset()
        engine.inspect()


@pytest.mark.parametrize("integrator", zephane.INTEGRATORS)
@pytest.mark.parametrize("reynolds", [None, 1e5])
def test_a_sound_flow_is_not_warned_of(
    make_engine: Maker, integrator: str, reynolds: float | None
) -> None:
    engine = make_engine(integrator=integrator, reynolds=reynolds)
    with warnings.catch_warnings():
        warnings.simplefilter("error")
        for tenth in range(1, 31):
            engine.advance(until=tenth / 5)


def test_a_flow_that_blows_up_tells_when_and_what_to_try(make_engine: Maker) -> None:
    engine = make_engine()
    engine.advance(50)
    with pytest.warns(ZephaneWarning):
        engine.set(cfl=50.0)
        last = engine.advance(1)
    with pytest.raises(FlowFailedError) as failure:
        engine.advance(10**6)
    lost = failure.value
    assert lost.step is not None and lost.step >= last.steps and lost.time is not None
    assert lost.time >= last.simulation_time and lost.dt and lost.max_speed
    for words in (
        "The flow blew up in ",
        f"after t = {lost.time:.6g}",
        "The solver encountered a non-finite field or timestep.",
        "cfl 50",
        "than 1000",
        "than 64 x 64",
    ):
        assert words in str(lost)
    with pytest.raises(FlowFailedError) as later:
        engine.fields()
    assert (str(later.value), vars(later.value)) == (str(lost), vars(lost))
    assert vars(pickle.loads(pickle.dumps(lost))) == vars(lost)
    assert engine.reset().steps == 0
    engine.set(cfl=1.0)
    assert engine.advance().steps == 1


def test_the_speed_at_the_failure_is_that_of_the_flow(make_engine: Maker) -> None:
    engine = make_engine()
    now = engine.advance()
    fields = engine.reset() and engine.fields()
    speed = (abs(fields.u) + abs(fields.v)).max()
    found = zephane.engine_failures._max_speed(engine.config, 3.0, engine._now)  # type: ignore
    assert found == pytest.approx(speed, rel=0.05)
    assert now.steps == 1


def test_an_engine_is_not_copied(engine: zephane.Engine) -> None:
    for make in (copy.copy, copy.deepcopy, pickle.dumps):
        with pytest.raises(TypeError, match="An engine cannot be copied or pickled"):
            make(engine)  # type: ignore[operator]
    assert engine.advance().steps == 1
