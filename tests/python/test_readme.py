"""README.md: its example runs, and its command lines are valid."""

from __future__ import annotations

import re
import shlex
from pathlib import Path

import pytest
from png_reader import read_png

import zephane
from zephane import command_line

README = Path(__file__).resolve().parents[2] / "README.md"


def test_the_example_of_the_readme_runs(
    system: zephane.SystemInfo, tmp_path: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    monkeypatch.chdir(tmp_path)
    # Use the library under test, not the first one found.
    library = zephane._library.load()
    monkeypatch.setattr(zephane._library, "find_library", lambda path: library.path)
    (example,) = re.findall(r"```python\n(.*?)```", README.read_text("utf-8"), re.DOTALL)
    names: dict[str, object] = {}
    exec(compile(example, str(README), "exec"), names)
    assert names["now"].simulation_time == 5.0
    assert read_png(tmp_path / "flow.png").shape == (800, 800, 4)


def test_the_commands_of_the_readme_are_valid() -> None:
    commands = re.findall(r"(?:^    |`)zephane (\w+.*?)(?:$|`)", README.read_text("utf-8"), re.M)
    assert len(commands) >= 2
    for command in commands:
        command_line._parser("zephane").parse_args(shlex.split(command))
