"""Small engines and viewers on the library under test, and a Python without NumPy."""

from __future__ import annotations

import sys
from collections.abc import Iterator
from pathlib import Path
from typing import TYPE_CHECKING, Any, Callable

import pytest

import zephane
from zephane._numpy import numpy

if TYPE_CHECKING:  # It imports tkinter, which other tests do not need.
    from zephane.viewer import Viewer


@pytest.fixture
def make_engine(library_path: Path) -> Iterator[Callable[..., zephane.Engine]]:
    """Makes engines, by default of 64 x 64 points, and closes them at the end."""
    made: list[zephane.Engine] = []

    def make(**changes: Any) -> zephane.Engine:
        settings = {"resolution": 64, "reynolds": 1000.0, **changes}
        made.append(zephane.Engine(library=library_path, **settings))
        return made[-1]

    yield make
    for engine in made:
        engine.close()


@pytest.fixture
def engine(make_engine: Callable[..., zephane.Engine]) -> zephane.Engine:
    return make_engine()


@pytest.fixture
def without_numpy(monkeypatch: pytest.MonkeyPatch) -> Iterator[None]:
    monkeypatch.setitem(sys.modules, "numpy", None)
    numpy.cache_clear()
    yield
    numpy.cache_clear()


@pytest.fixture
def open_viewer(
    library_path: Path,
    system: zephane.SystemInfo,
    display: str,
    monkeypatch: pytest.MonkeyPatch,
) -> Iterator[Callable[..., Viewer]]:
    """Opens viewers of flows of 32 x 32 points that are paused at their start, and closes them.

    Fails if an event handler raised an exception.
    """
    from viewer_driver import wait

    from zephane.viewer import Viewer, open_root

    opened: list[Viewer] = []
    raised: list[BaseException] = []
    monkeypatch.setattr(sys, "excepthook", lambda kind, error, trace: raised.append(error))

    def make(*, paused: bool = True, until: float | None = None, **changes: Any) -> Viewer:
        settings = {"resolution": 32, "fixed_dt": 1e-3, **changes}
        view = zephane.View(library=library_path, **settings)
        if paused:
            view.pause()
        if until is not None:
            view.benchmark(until=until)
        opened.append(Viewer(open_root(), view, until=until, side=400))
        opened[-1].start()
        opened[-1].root.focus_force()
        wait(opened[-1], lambda now: now.ready and now.presentations > 0 and now.focused)
        return opened[-1]

    yield make
    for viewer in opened:
        viewer.close()
    assert raised == []


@pytest.fixture
def viewer(open_viewer: Callable[..., Viewer]) -> Viewer:
    return open_viewer()
