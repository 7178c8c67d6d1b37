"""What zephane.dll exports, imports and contains."""

from __future__ import annotations

import re
import subprocess
from collections.abc import Iterator
from pathlib import Path

import pytest

from abi.harness import FUNCTIONS

# Parts of every Windows 10.
SYSTEM = {
    "advapi32", "bcrypt", "combase", "comdlg32", "d2d1", "d3d11", "dwrite", "dxgi", "gdi32",
    "kernel32", "msvcrt", "ole32", "shell32", "user32", "windowscodecs", "winmm",
}  # fmt: skip


def objdump(*arguments: str | Path) -> Iterator[str]:
    command = ["x86_64-w64-mingw32-objdump", *map(str, arguments)]
    with subprocess.Popen(command, stdout=subprocess.PIPE, text=True) as process:
        assert process.stdout
        yield from process.stdout
    assert process.returncode == 0


@pytest.fixture(scope="module")
def tables(dll: Path) -> str:
    return "".join(objdump("--private-headers", dll))


def test_the_nine_functions_are_exported_and_nothing_else(tables: str) -> None:
    names = tables.partition("[Ordinal/Name Pointer] Table")[2].partition("\n\n")[0]
    listed = re.findall(r"^\s*\[ *\d+\].* (\w+)$", names, re.MULTILINE)
    assert sorted(listed) == sorted(FUNCTIONS)


def test_only_libraries_of_the_system_are_needed(tables: str) -> None:
    needed = re.findall(r"DLL Name: (\S+)\.dll", tables, re.IGNORECASE)
    assert "KERNEL32" in needed
    assert {name.lower() for name in needed} <= SYSTEM


def test_no_vector_on_the_stack_is_moved_as_if_it_were_aligned(dll: Path) -> None:
    """Windows aligns the stack to 16 bytes, and the compiler believes in 32 and 64."""
    moves = re.compile(r"\sv(?:mov(?:ap[sd]|dqa|nt)\w*)\s.*[yz]mm")
    on_stack = re.compile(r"\(%rsp")
    vectors = aligned = 0
    wrong = []
    for line in objdump("--disassemble", "--no-show-raw-insn", dll):
        vectors += "vmovups" in line and "ymm" in line
        if moves.search(line):
            aligned += 1
            # Stores past the cache go to arrays of whole pages, which any register may point to.
            if on_stack.search(line) or ("(" in line and "vmovnt" not in line):
                wrong.append(line.strip())
    assert vectors > 1000
    assert wrong == []
