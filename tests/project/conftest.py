"""The library as `cmake --install` leaves it, for tests that use it like any user."""

from __future__ import annotations

import subprocess
from pathlib import Path

import pytest


def pytest_configure(config: pytest.Config) -> None:
    """Registers the mark of pytest-xdist, so that tests also run without it."""
    config.addinivalue_line("markers", "xdist_group(name): run these tests in one process")


@pytest.fixture(scope="session")
def installed(library_path: Path, tmp_path_factory: pytest.TempPathFactory) -> Path:
    """The prefix of an installation. It was moved, so that files that name the old prefix fail."""
    build = library_path.parent
    if not (build / "cmake_install.cmake").is_file():
        pytest.skip("the library under test is not in its build folder")
    folder = tmp_path_factory.mktemp("install")
    command = ["cmake", "--install", str(build), "--prefix", str(folder / "first")]
    subprocess.run(command, check=True, capture_output=True)
    return (folder / "first").rename(folder / "prefix")
