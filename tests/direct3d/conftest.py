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

from wine_host import ROOT, HostProgram, WineHost, WineLibrary, run_wine

BUILD = Path(os.environ.get("ZEPHANE_WINDOWS_BUILD", ROOT / "build" / "windows"))
HOST = BUILD / "tests" / "zephane_windows_host.exe"

def resolution_of(item: pytest.Item) -> float:
    """What a test's parameter `scale` means in dots per inch."""
    parameters = item.callspec.params if hasattr(item, "callspec") else {}
    return 96 * float(parameters.get("scale", 1))

def pytest_collection_modifyitems(items: list[pytest.Item]) -> None:
    """Tests of the same resolution follow one another."""
    own = [item for item in items if Path(__file__).parent in item.path.parents]
    others = [item for item in items if item not in own]
    items[:] = others + sorted(own, key=resolution_of)
    if "ZEPHANE_WINE_SESSION" not in os.environ:
        for item in own:
            item.add_marker(pytest.mark.skip(reason="not in a session of scripts/run_in_wine"))

class Programs:
    """The host program. Windows tells its programs the resolution that it has found at its own
    start, so another resolution needs another start of Wine."""

    def __init__(self) -> None:
        self._resolution = 0.0
        self._library: WineLibrary | None = None

    def library_at(self, resolution: float) -> WineLibrary:
        if self._library is None or resolution != self._resolution:
            self.end()
            key = r"HKCU\Control Panel\Desktop"
            value = str(round(resolution))
            run_wine("reg.exe", "add", key, "/v", "LogPixels", "/t", "REG_DWORD", "/d", value, "/f")
            run_wine("wineserver", "-k")
            run_wine("wineserver", "-w")
            run_wine("wineserver", "-p")
            program = HostProgram(HOST, BUILD / "zephane.dll")
            self._library = WineLibrary(program)
            self._resolution = resolution
            assert "error" not in decode(self._library.zp_initialize().encode())
        return self._library

    def end(self) -> None:
        if self._library is not None:
            assert self._library.program.end() == 0
        self._library = None

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
def host(library: WineLibrary, resolution: float) -> Iterator[WineHost]:
    opened = WineHost(library.program, resolution)
    yield opened
    opened.close()
