"""Tests of the library for Windows that run outside of Wine, by ./test windows.

ZEPHANE_WINDOWS_LIBRARY is the library for Windows, ZEPHANE_WINDOWS_PYTHON the interpreter that runs
it in Wine; without them there is nothing to test here.
"""

from __future__ import annotations

import os
import subprocess
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parents[2]
LIMIT_SECONDS = 300

if "ZEPHANE_WINDOWS_LIBRARY" not in os.environ:
    collect_ignore_glob = ["*"]


@pytest.fixture(scope="session")
def dll() -> Path:
    return Path(os.environ["ZEPHANE_WINDOWS_LIBRARY"]).resolve()


class WindowsPython:
    """Windows' Python, in Wine."""

    def __init__(self, interpreter: Path) -> None:
        self.interpreter = interpreter

    def run(
        self,
        *arguments: str | Path,
        environment: dict[str, str] | None = None,
        folder: Path = ROOT,
    ) -> subprocess.CompletedProcess[str]:
        """The finished process. Its output has the line ends of this system."""
        command = [ROOT / "scripts" / "run_in_wine", self.interpreter, *arguments]
        return subprocess.run(
            [str(word) for word in command],
            capture_output=True,
            text=True,
            stdin=subprocess.DEVNULL,
            timeout=LIMIT_SECONDS,
            env={**os.environ, "PYTHONUTF8": "1", **(environment or {})},
            cwd=folder,
        )


@pytest.fixture(scope="session")
def windows_python() -> WindowsPython:
    return WindowsPython(Path(os.environ["ZEPHANE_WINDOWS_PYTHON"]))
