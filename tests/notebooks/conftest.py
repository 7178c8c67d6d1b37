"""The library under test, made ready for the package."""

from __future__ import annotations

from pathlib import Path

import pytest

import zephane


@pytest.fixture(scope="session")
def system(library_path: Path) -> zephane.SystemInfo:
    return zephane.initialize(library_path)
