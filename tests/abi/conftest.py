"""Fixtures: the library under test, initialized on the main thread, and engines and views that are
closed at the end."""

from __future__ import annotations

import os
import subprocess
import tempfile
from collections.abc import Iterator
from pathlib import Path
from typing import TYPE_CHECKING, Any, Callable

import pytest

from .harness import Engine, Library, Refused, decode
from .view import View
from .words import NO_MATCHING_DRIVER

if TYPE_CHECKING:  # They import python-xlib, which other tests do not need.
    from xwindow import Host, Window


@pytest.fixture(scope="session")
def library(library_path: Path) -> Library:
    loaded = Library(library_path)
    description = decode(loaded.initialize())
    assert "error" not in description, description
    return loaded


@pytest.fixture
def make_engine(library: Library) -> Iterator[Callable[..., Engine]]:
    """Makes engines of the given configuration, by default with 16 points a side."""
    made: list[Engine] = []

    def make(**configuration: Any) -> Engine:
        made.append(Engine(library, {"resolution": 16, **configuration}))
        return made[-1]

    yield make
    for engine in made:
        engine.close()


@pytest.fixture
def engine(make_engine: Callable[..., Engine]) -> Engine:
    return make_engine()


@pytest.fixture(scope="session")
def drawing(library: Library) -> None:
    """Skips tests that need pictures if the GPU of the flow has no Vulkan driver."""
    with Engine(library, {"resolution": 16}) as engine, tempfile.TemporaryDirectory() as folder:
        try:
            engine.export(png=f"{folder}/picture", pixel_size=1)
        except Refused as refused:
            if refused.text != NO_MATCHING_DRIVER:
                raise
            pytest.skip(refused.text)


@pytest.fixture
def make_view(library: Library) -> Iterator[Callable[..., View]]:
    """Makes views of the given configuration, by default with 16 points a side, whose flow has not
    been started."""
    made: list[View] = []

    def make(**configuration: Any) -> View:
        view = View(library)
        made.append(view)
        view.call("configure", **{"resolution": 16, **configuration})
        return view

    yield make
    for view in made:
        view.close()


@pytest.fixture
def view(make_view: Callable[..., View]) -> View:
    return make_view()


@pytest.fixture
def paused(view: View) -> View:
    """A view whose flow is paused at its start, without the regulator."""
    view.call("running", value=False)
    view.call("set", regulated=False)
    view.call("start")
    view.settled()
    return view


@pytest.fixture
def window(host: Host) -> Window:
    """A window of 300 by 300 pixels that is shown."""
    return host.window()


@pytest.fixture
def attached(paused: View, window: Window) -> View:
    """A paused view whose first frame can be seen."""
    paused.attach(window.id)
    paused.wait(lambda now: now["presentations"] > 0)
    return paused


@pytest.fixture(scope="session")
def dynamic_symbols(library_path: Path) -> list[tuple[str, str]]:
    """The kind and name of each dynamic symbol of the library, as listed by nm."""
    if os.name == "nt":
        pytest.skip("the symbols of a library for Windows are listed otherwise")
    listing = subprocess.run(
        ["nm", "--dynamic", "--format=posix", str(library_path)],
        check=True,
        capture_output=True,
        text=True,
    )
    return [(line.split()[1], line.split()[0]) for line in listing.stdout.splitlines()]


@pytest.fixture(scope="session")
def sanitized(dynamic_symbols: list[tuple[str, str]]) -> bool:
    """Whether the library was built with a sanitizer."""
    return any(name.startswith(("__asan_", "__tsan_")) for _, name in dynamic_symbols)
