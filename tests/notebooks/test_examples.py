"""The notebooks among the examples: kept without outputs, and run from a clean start."""

from __future__ import annotations

import json
import shutil
import subprocess
from pathlib import Path
from typing import Any

import jupyter
import pytest

NOTEBOOKS = sorted((jupyter.ROOT / "examples" / "notebooks").glob("*.ipynb"))
LIMIT_SECONDS = 240
LARGEST_BYTES = 10_000

each = pytest.mark.parametrize("path", NOTEBOOKS, ids=lambda path: path.stem)


def cells(path: Path) -> list[dict[str, Any]]:
    found: list[dict[str, Any]] = json.loads(path.read_text(encoding="utf-8"))["cells"]
    return found


@each
def test_a_notebook_is_kept_small_and_without_outputs(path: Path) -> None:
    assert path.stat().st_size < LARGEST_BYTES
    for cell in cells(path):
        assert not cell.get("outputs") and cell.get("execution_count") is None
    assert "".join(cells(path)[0]["source"]).startswith("# ")


@each
def test_a_notebook_runs_and_draws(path: Path, packages: Path, tmp_path: Path) -> None:
    copy = tmp_path / path.name  # Cells run in the folder of their notebook.
    shutil.copy(path, copy)
    options = ("--to", "notebook", "--execute", "--inplace")
    done = subprocess.run(
        [jupyter.program("jupyter-nbconvert"), *options, str(copy)],
        env=jupyter.variables(tmp_path, packages),
        cwd=tmp_path,
        capture_output=True,
        text=True,
        timeout=LIMIT_SECONDS,
    )
    assert done.returncode == 0, done.stderr[-2000:]
    outputs = [out for cell in cells(copy) for out in cell.get("outputs", ())]
    assert not [out for out in outputs if out.get("name") == "stderr"]
    pictures = [out for out in outputs if "image/png" in str(out.get("data", {}))]
    assert len(pictures) >= 3, outputs


def test_there_is_a_notebook_of_each_subject() -> None:
    names = [path.stem for path in NOTEBOOKS]
    assert names == ["decay", "double_cascade", "initial_fields", "reynolds_sweep"]
    table = (jupyter.ROOT / "examples" / "README.md").read_text(encoding="utf-8")
    assert all(f"notebooks/{name}.ipynb" in table for name in names)
