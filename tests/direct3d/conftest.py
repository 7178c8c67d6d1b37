"""Fixtures for tests on Windows: the library in a host program under Wine, with its windows.

The tests run in a session of Wine:

    scripts/run_in_wine --session python3 -m pytest tests/direct3d
"""

from __future__ import annotations

import os
from collections.abc import Iterator
from pathlib import Path

import pytest
from abi.conftest import (  # noqa: F401
    attached,
    engine,
    make_engine,
    make_view,
    paused,
    view,
    window,
)
from abi.harness import decode
from abi.test_ui_pictures import still  # noqa: F401

from wine_host import HostProgram, WineHost, WineLibrary, run_wine

if "ZEPHANE_WINE_SESSION" not in os.environ:
    collect_ignore_glob = ["test_*.py"]


def resolution_of(item: pytest.Item) -> float:
    """What a test's parameter `scale` means in dots per inch."""
    parameters = item.callspec.params if hasattr(item, "callspec") else {}
    return 96 * float(parameters.get("scale", 1))


def pytest_collection_modifyitems(items: list[pytest.Item]) -> None:
    """Tests of the same resolution follow one another."""
    own = [item for item in items if Path(__file__).parent in item.path.parents]
    others = [item for item in items if item not in own]
    items[:] = others + sorted(own, key=resolution_of)


class Programs:
    """The host program. Windows finds its resolution when it starts, so that another resolution
    needs another start of Wine."""

    def __init__(self) -> None:
        self._resolution = 0.0
        self._library: WineLibrary | None = None

    def library_at(self, resolution: float) -> WineLibrary:
        if self._library is None or resolution != self._resolution:
            self.end()
            self._set_resolution(round(resolution))
            self._library = WineLibrary(HostProgram())
            self._resolution = resolution
            assert "error" not in decode(self._library.zp_initialize().encode())
        return self._library

    def end(self) -> None:
        if self._library is not None:
            assert self._library.program.end() == 0
        self._library = None

    @staticmethod
    def _set_resolution(dots: int) -> None:
        key = r"HKCU\Control Panel\Desktop"
        kind = ("/t", "REG_DWORD", "/d", str(dots), "/f")
        run_wine("reg.exe", "add", key, "/v", "LogPixels", *kind)
        for option in ("-k", "-w", "-p"):
            run_wine("wineserver", option)


@pytest.fixture(scope="session")
def programs() -> Iterator[Programs]:
    made = Programs()
    yield made
    made.end()


@pytest.fixture
def resolution(request: pytest.FixtureRequest) -> float:
    return resolution_of(request.node)


@pytest.fixture
def library(programs: Programs, resolution: float) -> WineLibrary:
    return programs.library_at(resolution)


@pytest.fixture
def drawing() -> None:
    """Pictures are drawn wherever these tests run."""


@pytest.fixture
def host(library: WineLibrary, resolution: float) -> Iterator[WineHost]:
    opened = WineHost(library.program, resolution)
    yield opened
    opened.close()
