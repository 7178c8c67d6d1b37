"""The package's type hints are complete and agree with each other."""

from __future__ import annotations

import subprocess
import sys
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parents[2]
PACKAGE = ROOT / "python" / "zephane"


def test_the_package_is_clean_under_strict_type_checking(tmp_path: Path) -> None:
    options = ["--strict", f"--cache-dir={tmp_path}", f"--config-file={ROOT / 'pyproject.toml'}"]
    command = [sys.executable, "-m", "mypy", *options, str(PACKAGE)]
    done = subprocess.run(command, cwd=ROOT, capture_output=True, text=True)
    if done.returncode != 0:
        pytest.fail(done.stdout + done.stderr, pytrace=False)


def test_the_package_declares_its_type_hints() -> None:
    assert (PACKAGE / "py.typed").is_file()
