"""The view as Python sees it: a flow that runs by itself and takes commands."""

from __future__ import annotations

import dataclasses
import gc
import math
import subprocess
import sys
import threading
from collections.abc import Iterator
from pathlib import Path
from typing import Any, Callable

import pytest

import zephane
from zephane import ViewStatus, ZephaneError, _library

SECONDS = 60.0
THREAD = "^UI calls require the main thread.$"
CLOSED = "^Closed UI.$"

Maker = Callable[..., zephane.View]


@pytest.fixture
def make_view(library_path: Path, system: zephane.SystemInfo) -> Iterator[Maker]:
    """Makes views, by default of 32 x 32 points, and closes them at the end.

    Their step is fixed: a flow of this size with an adaptive step decays within a second.
    """
    made: list[zephane.View] = []

    def make(*configs: zephane.Config, **changes: Any) -> zephane.View:
        settings = changes if configs else {"resolution": 32, "fixed_dt": 1e-3, **changes}
        made.append(zephane.View(*configs, library=library_path, **settings))
        return made[-1]

    yield make
    for view in made:
        view.close()


@pytest.fixture
def view(make_view: Maker) -> zephane.View:
    return make_view()


def settled(status: ViewStatus) -> bool:
    return status.ready and status.settled


def on_another_thread(work: Callable[[], Any]) -> BaseException | None:
    """The exception that ``work()`` raises on another thread."""
    raised: list[BaseException] = []

    def run() -> None:
        try:
            work()
        except BaseException as error:
            raised.append(error)

    thread = threading.Thread(target=run)
    thread.start()
    thread.join()
    return raised[0] if raised else None


def test_a_new_view_is_idle(view: zephane.View, system: zephane.SystemInfo) -> None:
    status = view.status()
    assert (status.generation, status.ready, status.running) == (0, False, True)
    assert (status.stats, status.frame, status.canvas, status.history) == (None, None, None, ())
    assert (status.gpu, status.backend) == (system.gpu, system.backend)
    assert status.performance == zephane.Performance(0.0, 0.0, 0.0, 0.0, 1)
    assert status.error_message is None


def test_a_started_view_runs(view: zephane.View) -> None:
    assert view.start().generation == 1
    status = view.wait(lambda status: len(status.history) > 2, SECONDS)
    assert status.running and status.ready and not status.settled
    assert status.stats is not None and status.stats.steps > 0
    assert status.frame is not None and status.frame.grid_size == 32
    assert status.performance.steps_per_s > 0.0
    assert status.performance.milliseconds_per_step == 1000.0 / status.performance.steps_per_s
    assert status.elapsed_seconds > 0.0 and status.allocated_bytes > 0
    assert list(status.history) == sorted(status.history, reverse=True)


def test_the_status_has_every_key_of_the_report(view: zephane.View, library_path: Path) -> None:
    view.start()
    view.pause()
    view.wait(settled, SECONDS)
    report = _library.load(library_path).call_view(view._handle, {"op": "get"})
    status = dataclasses.asdict(view.status())
    assert set(report) == set(status) - {"canvas"}
    for key in ("performance", "stats", "frame"):
        assert set(report[key]) == set(status[key])
    for key, value in report.items():
        if key not in ("config", "history"):
            assert status[key] == value
    assert list(status["history"]) == report["history"]


def test_a_view_pauses_steps_and_runs_on(view: zephane.View) -> None:
    view.pause()
    view.start()
    status = view.wait(settled, SECONDS)
    assert status.stats is not None and status.stats.steps == 0
    view.step()
    view.step()
    status = view.wait(lambda s: settled(s) and s.stats.steps == 2, SECONDS)  # type: ignore
    assert not status.running
    assert view.toggle().running
    view.wait(lambda s: s.stats.steps > 10, SECONDS)  # type: ignore[union-attr]
    assert not view.toggle().running
    assert view.run().running


def test_new_flows_are_numbered(view: zephane.View) -> None:
    view.start()
    assert view.reset().generation == 2
    status = view.next_seed()
    assert (status.generation, status.config.seed) == (3, 3)
    assert view.configure(resolution=64).generation == 4
    assert view.configure(resolution=64).generation == 4
    assert view.status().config.reynolds == zephane.default_reynolds(64, 4)


def test_a_weaker_integrator_gets_a_courant_number_that_suits_it(
    view: zephane.View, make_view: Maker
) -> None:
    assert view.configure(integrator="imexRK3").config.cfl == 1.5
    assert view.configure(integrator="ifHeunRK3", cfl=2.5).config.cfl == 2.5
    assert view.configure(integrator="imexRK3", cap_cfl=False).config.cfl == 2.5
    for integrator, cfl in (("imexRK3", 1.5), ("ifHeunRK3", 1.5), ("etdrk4", 3.0)):
        assert make_view(integrator=integrator).status().config.cfl == cfl
        assert make_view(integrator=integrator, cfl=2.0).status().config.cfl == 2.0
        record = zephane.Config(64, integrator=integrator)
        assert make_view(record).status().config.cfl == cfl
        assert make_view(zephane.Config(64), integrator=integrator).status().config.cfl == cfl
        given = zephane.Config(64, integrator=integrator, cfl=2.0)
        assert make_view(given).status().config.cfl == 2.0


def test_a_view_begins_unregulated(view: zephane.View, make_view: Maker) -> None:
    assert not view.status().regulated
    assert make_view(regulated=True).status().regulated
    view.start()
    status = view.wait(lambda status: len(status.history) > 2, SECONDS)
    assert status.effective_reynolds == status.config.reynolds


def test_a_view_begins_with_the_configuration_that_it_is_given(make_view: Maker) -> None:
    config = zephane.Config(64, 7, 2**64 - 1, 5e3, 1.5, 2**-7, "ifHeunRK3", "advective", "KM3")
    for regulated in (False, True):
        assert make_view(config, regulated=regulated).status().config == config
    assert make_view(resolution=64, reynolds=900.0).status().config.reynolds == 900.0
    suited = make_view(resolution=64, k0=5, fixed_dt=None).status().config
    assert suited == zephane.Config(64, 5, reynolds=zephane.default_reynolds(64, 5))


def test_an_invalid_configuration_is_refused(make_view: Maker, view: zephane.View) -> None:
    odd = "^resolution 17 is odd: even numbers from 16 to 16384$"
    with pytest.raises(zephane.InvalidValueError, match=odd):
        make_view(resolution=17)
    with pytest.raises(zephane.InvalidValueError, match=odd):
        make_view(zephane.Config(resolution=17))
    unknown = '^integrator "RK9" is unknown: imexRK3, ifHeunRK3 or etdrk4$'
    with pytest.raises(zephane.InvalidValueError, match=unknown):
        view.configure(integrator="RK9")
    for work in (lambda: make_view(colour=3), lambda: view.configure(colour=3)):
        with pytest.raises(TypeError, match="colour"):
            work()
    assert view.status().config.resolution == 32


def test_live_settings_keep_the_flow(view: zephane.View) -> None:
    view.start()
    status = view.set(regulated=False, cfl=2.0, log_reynolds=3.5)
    assert (status.generation, status.regulated, status.config.cfl) == (1, False, 2.0)
    assert status.effective_reynolds == pytest.approx(10**3.5)
    status = view.set(display="speed", palette="aurora", color_range="exposure", flow=True)
    picture = (status.display, status.palette, status.color_range, status.flow)
    assert picture == ("speed", "aurora", "exposure", True)
    status = view.set(exposure=10.0, sigma=0.0, focused=True)
    assert (status.exposure, status.sigma, status.focused) == (3.0, 1.5, True)
    with pytest.raises(ZephaneError, match="^Unknown palette: Ember$"):
        view.set(palette="Ember")


def test_limits_end_the_flows_that_follow(view: zephane.View, tmp_path: Path) -> None:
    spectrum = tmp_path / "spectrum"
    view.benchmark(until=0.5, batch=4, spectrum=spectrum)
    view.start()
    status = view.wait(lambda status: not status.running and status.settled, SECONDS)
    assert status.stats is not None
    assert status.stats.simulation_time == pytest.approx(0.5, rel=1e-12)
    assert spectrum.stat().st_size == 8 * 32 * 32
    view.benchmark(until=None, spectrum=None)
    view.reset()
    view.run()
    view.wait(lambda s: s.stats is not None and s.stats.simulation_time > 0.6, SECONDS)
    with pytest.raises(ZephaneError, match="^Invalid benchmark limits.$"):
        view.benchmark(batch=33)


def test_waiting_raises_the_failure_of_the_flow(view: zephane.View) -> None:
    view.benchmark(initial="/nowhere/start")
    view.start()
    with pytest.raises(ZephaneError, match="/nowhere/start"):
        view.wait(lambda status: status.ready, SECONDS)
    assert view.dismiss().error_message is None
    view.benchmark(initial=None)
    view.reset()
    assert view.wait(lambda status: status.ready, SECONDS).error_message is None


def test_waiting_times_out(view: zephane.View) -> None:
    with pytest.raises(TimeoutError, match="0.05 seconds"):
        view.wait(lambda status: status.ready, 0.05)


def test_an_unseen_view_makes_no_frames(view: zephane.View) -> None:
    view.visible(False)
    view.start()
    view.wait(lambda status: len(status.history) > 1, SECONDS)
    assert view.status().frame is None
    view.visible()
    assert view.wait(lambda status: status.ready, SECONDS).frame is not None


def test_operations_without_a_canvas_are_refused_with_the_text_of_the_library(
    view: zephane.View, monkeypatch: pytest.MonkeyPatch
) -> None:
    monkeypatch.delenv("DISPLAY", raising=False)
    with pytest.raises(ZephaneError, match="^Cannot create native canvas.$"):
        view.attach(1)
    with pytest.raises(ZephaneError, match="^No completed frame.$"):
        view.export(png="flow.png")
    view.start()
    view.wait(lambda status: status.ready, SECONDS)
    with pytest.raises(ZephaneError, match="^No native renderer.$"):
        view.export(png=Path("flow.png"), pixel_size=100)


def test_a_missing_save_dialog_is_reported(
    view: zephane.View, monkeypatch: pytest.MonkeyPatch
) -> None:
    for name in ("DISPLAY", "WAYLAND_DISPLAY", "DBUS_SESSION_BUS_ADDRESS", "XDG_RUNTIME_DIR"):
        monkeypatch.delenv(name, raising=False)
    with pytest.raises(ZephaneError, match="^Could not open Save PNG dialog.$"):
        view.save()


def test_a_closed_view_refuses(view: zephane.View) -> None:
    with view as entered:
        assert entered.flush().generation == 0
    assert view.closed and repr(view) == "<zephane.View closed>"
    for work in (view.status, view.start, lambda: view.attach(1)):
        with pytest.raises(ZephaneError, match=CLOSED):
            work()
    view.close()


def test_views_belong_to_the_thread_that_initialized(view: zephane.View, make_view: Maker) -> None:
    for work in (view.status, view.start, view.close, lambda: view.attach(1), make_view):
        refusal = on_another_thread(work)
        with pytest.raises(ZephaneError, match=THREAD):
            raise refusal or AssertionError("not refused")
    assert not view.closed and view.status().generation == 0


def test_a_forgotten_view_ends(make_view: Maker, monkeypatch: pytest.MonkeyPatch) -> None:
    library = make_view()._library
    ended: list[int] = []
    destroy = library._functions.zp_ui_destroy
    monkeypatch.setattr(
        library, "_functions", Counting(library._functions, lambda h: (ended.append(h), destroy(h)))
    )
    first, second = (zephane.View(library=library.path) for _ in range(2))
    handles = [first._handle, second._handle]
    del first
    gc.collect()
    assert ended == handles[:1]

    box = [second]
    del second
    on_another_thread(lambda: (box.clear(), gc.collect()))
    assert ended == handles[:1], "not on another thread"
    zephane.View(library=library.path).close()
    assert ended[:2] == handles and len(ended) == 3


class Counting:
    """The library's functions, with one of them replaced."""

    def __init__(self, functions: Any, destroy: Callable[[int], Any]) -> None:
        self._functions = functions
        self.zp_ui_destroy = destroy

    def __getattr__(self, name: str) -> Any:
        return getattr(self._functions, name)


def test_a_running_view_does_not_keep_the_interpreter(
    library_path: Path, python_path: Path
) -> None:
    script = (
        "import sys, zephane\n"
        "view = zephane.View(resolution=64, library=sys.argv[1])\n"
        "view.start()\n"
        "view.wait(lambda status: status.ready, 60)\n"
    )
    done = subprocess.run(
        [sys.executable, "-c", script, str(library_path)],
        env={"PYTHONPATH": str(python_path)},
        capture_output=True,
        timeout=60,
    )
    assert (done.returncode, done.stdout, done.stderr) == (0, b"", b"")


def test_numbers_that_json_cannot_hold_are_nans() -> None:
    values = dict.fromkeys(
        ("simtime_per_s", "turnovers_per_s", "steps_per_s", "milliseconds_per_step"), None
    )
    performance = zephane.Performance.from_json({**values, "batch_steps": 1, "newer": 2})
    assert math.isnan(performance.steps_per_s)
    config = zephane.Config.from_json({"seed": "1", "fixed_dt": None})
    assert config.fixed_dt is None
