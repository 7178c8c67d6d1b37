"""Small engines on the library under test, and a Python that has no NumPy."""

from __future__ import annotations

import sys
from collections.abc import Iterator
from pathlib import Path
from typing import Any, Callable

import pytest

import zephane
from zephane._numpy import numpy


@pytest.fixture(scope="session")
def system(library_path: Path) -> zephane.SystemInfo:
    return zephane.initialize(library_path)


@pytest.fixture
def make_engine(library_path: Path) -> Iterator[Callable[..., zephane.Engine]]:
    """Makes engines, of 64 x 64 points unless told otherwise, and closes them in the end."""
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
