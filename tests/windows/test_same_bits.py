"""A flow has the same bits on Windows and on Linux, and goes on from one on the other."""

from __future__ import annotations

import os
import subprocess
import sys
from pathlib import Path

import pytest

from windows.flows import FLOWS

SCRIPT = Path(__file__).with_name("flows.py")


@pytest.fixture(scope="module")
def results(library_path: Path, dll: Path, windows_python, tmp_path_factory) -> tuple[Path, Path]:
    """The folders of both systems. Each has gone on from the states of Linux."""
    here, there = tmp_path_factory.mktemp("linux"), tmp_path_factory.mktemp("windows")
    first = [sys.executable, SCRIPT, library_path, here]
    on_the_processor = {**os.environ, "CUDA_VISIBLE_DEVICES": ""}
    subprocess.run(first, check=True, env=on_the_processor)
    subprocess.run([*first, here], check=True, env=on_the_processor)
    done = windows_python.run(SCRIPT, dll, there, here)
    assert done.returncode == 0, done.stderr
    return here, there


@pytest.mark.parametrize("kind", ["spectrum", "state", "later"])
@pytest.mark.parametrize("flow", FLOWS)
def test_the_bits_are_the_same_as_on_linux(results: tuple[Path, Path], flow: str, kind: str) -> None:
    expected, found = (folder / f"{flow}.{kind}" for folder in results)
    assert expected.stat().st_size > 1000
    assert found.read_bytes() == expected.read_bytes()
