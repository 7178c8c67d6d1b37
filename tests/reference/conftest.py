"""Engines of the library under test, closed when their test ends."""

import pytest

from abi.harness import Library
from zeph_engine import Engine


@pytest.fixture(scope="session")
def library(library_path):
    loaded = Library(library_path)
    loaded.initialize()
    return loaded


@pytest.fixture
def engine(library):
    """Makes engines: engine(resolution=32, ...), engine(samples=field, resolution=32, ...)."""
    made = []

    def make(**config):
        made.append(Engine(library, **config))
        return made[-1]

    yield make
    for each in made:
        each.close()
