"""The sources are formatted by clang-format."""

from __future__ import annotations

import shutil
import subprocess
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parents[2]
# Versions format some lines differently.
VERSION = "14."


def sources() -> list[str]:
    generated = {"build", "output"}
    folders = [path for path in ROOT.iterdir() if path.is_dir() and path.name not in generated]
    return sorted(
        str(path)
        for folder in folders
        for suffix in ("*.cpp", "*.h")
        for path in folder.rglob(suffix)
    )


def test_every_source_is_formatted() -> None:
    formatter = shutil.which(f"clang-format-{VERSION.rstrip('.')}") or shutil.which("clang-format")
    if formatter is None:
        pytest.skip("there is no clang-format")
    found = subprocess.run([formatter, "--version"], capture_output=True, text=True, check=True)
    if f"version {VERSION}" not in found.stdout:
        pytest.skip(f"clang-format is not version {VERSION}")
    checked = subprocess.run(
        [formatter, "--dry-run", "--Werror", *sources()], capture_output=True, text=True
    )
    if checked.returncode != 0:
        pytest.fail(checked.stderr, pytrace=False)
