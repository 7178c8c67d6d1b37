"""The guide to the package: its examples run."""

from __future__ import annotations

import re
from pathlib import Path

import pytest
from png_reader import read_png

import zephane

GUIDE = Path(__file__).resolve().parents[2] / "docs" / "python.md"


def test_the_examples_of_the_guide_run(
    system: zephane.SystemInfo, tmp_path: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    monkeypatch.chdir(tmp_path)
    # Use the library under test, not the first one found.
    library = zephane._library.load()
    monkeypatch.setattr(zephane._library, "find_library", lambda path: library.path)
    examples = re.findall(r"```python\n(.*?)```", GUIDE.read_text(encoding="utf-8"), re.DOTALL)
    assert len(examples) >= 7
    names: dict[str, object] = {}
    for example in examples:
        exec(compile(example, str(GUIDE), "exec"), names)
    assert read_png(tmp_path / "enstrophy.png").shape == (600, 600, 4)
