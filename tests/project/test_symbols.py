"""Symbols that the objects of the library may share."""

from __future__ import annotations

import shutil
import subprocess
from pathlib import Path

import pytest

INSTRUCTION_SETS = ["sse2", "avx2", "avx512"]


def symbols(*arguments: str | Path) -> list[tuple[str, str]]:
    """Kind and demangled name of each symbol that nm lists."""
    nm = shutil.which("nm")
    assert nm, "nm is part of the compiler's tools"
    command = [nm, "--demangle", "--format=posix", *map(str, arguments)]
    listing = subprocess.run(command, check=True, capture_output=True, text=True).stdout
    found = []
    for line in listing.splitlines():
        if line.endswith(":"):
            continue
        words = line.split(" ")
        kind = next(i for i in range(len(words) - 1, 0, -1) if len(words[i]) == 1)
        found.append((words[kind], " ".join(words[:kind])))
    return found


def objects_of(library: Path, instruction_set: str) -> list[Path]:
    folder = library.parent / "CMakeFiles" / f"zephane_core_{instruction_set}.dir"
    objects = sorted(folder.rglob("*.o"))
    if not objects:
        pytest.skip("the library under test does not stand in its build folder")
    return objects


@pytest.mark.parametrize("instruction_set", INSTRUCTION_SETS)
def test_code_for_an_instruction_set_shares_no_symbol(
    library_path: Path, instruction_set: str
) -> None:
    """A symbol that several sets define may be linked from the widest, and fail on older machines.
    """
    own = f"zeph::cpu::{instruction_set}::"
    defined = symbols("--defined-only", "--extern-only", *objects_of(library_path, instruction_set))
    assert defined
    strays = [f"{kind} {name}" for kind, name in defined if kind in "VWuvw" or own not in name]
    assert strays == []
