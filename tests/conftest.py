"""Shared by all Python tests: the library under test, and the package on the path.

The library is named by ``--library PATH``, else by the environment variable ``ZEPHANE_LIBRARY``
(read only by the tests), else it is that of the ``release`` build.
"""

from __future__ import annotations

import os
import shutil
import signal
import sys
from collections.abc import Iterator
from pathlib import Path
from typing import TYPE_CHECKING

import pytest
from xserver import XServer

if TYPE_CHECKING:  # The first imports python-xlib, which most tests do not need.
    from xwindow import Host

    from zephane import SystemInfo

ROOT = Path(__file__).resolve().parent.parent
PYTHON = ROOT / "python"

sys.path.insert(0, str(PYTHON))

# Background jobs of a shell, and their child processes, inherit that Ctrl-C is ignored.
signal.signal(signal.SIGINT, signal.default_int_handler)


def pytest_addoption(parser: pytest.Parser) -> None:
    parser.addoption(
        "--library",
        metavar="PATH",
        default=os.environ.get("ZEPHANE_LIBRARY") or str(ROOT / "build" / "release" / _name()),
        help="the library under test (default: $ZEPHANE_LIBRARY, else the release build)",
    )


def _name() -> str:
    return "zephane.dll" if os.name == "nt" else "libzephane.so"


@pytest.fixture(scope="session")
def library_path(request: pytest.FixtureRequest) -> Path:
    """The shared library under test, as an absolute path; fails if it is missing."""
    path = Path(request.config.getoption("--library")).resolve()
    if not path.is_file():
        pytest.fail(f"No library at {path}: build it, or name it with --library.", pytrace=False)
    return path


@pytest.fixture(scope="session")
def system(library_path: Path) -> SystemInfo:
    """The package, with the library under test made ready."""
    import zephane

    return zephane.initialize(library_path)


@pytest.fixture(scope="session")
def python_path() -> Path:
    """The folder that holds the package, for PYTHONPATH of a subprocess."""
    return PYTHON


@pytest.fixture(scope="session")
def packages(library_path: Path, tmp_path_factory: pytest.TempPathFactory) -> Path:
    """A folder for PYTHONPATH with the package as a wheel holds it: the library inside."""
    folder = tmp_path_factory.mktemp("packages")
    unwanted = shutil.ignore_patterns("__pycache__")
    shutil.copytree(PYTHON / "zephane", folder / "zephane", ignore=unwanted)
    (folder / "zephane" / "libzephane.so").symlink_to(library_path)
    return folder


@pytest.fixture(scope="session")
def x_server() -> Iterator[XServer]:
    with XServer() as server:
        yield server


@pytest.fixture
def display(x_server: XServer, monkeypatch: pytest.MonkeyPatch) -> str:
    """The name of a display, set as DISPLAY for this process and its children during the test."""
    monkeypatch.setenv("DISPLAY", x_server.name)
    return x_server.name


@pytest.fixture
def host(display: str) -> Iterator[Host]:
    """A connection to that display, and the windows that a test makes through it."""
    from xwindow import Host

    connected = Host(display)
    yield connected
    connected.close()
