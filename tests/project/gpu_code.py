"""The GPU code that a library holds: one block of entries, for machine code and for PTX each.

A block has a header (magic, version, bytes of the header, bytes of the entries) and entries, each
with a separate header (kind, version, bytes of the header, bytes of the code, ..., processor).
"""

from __future__ import annotations

import re
import struct
from typing import NamedTuple

MAGIC = struct.pack("<I", 0xBA55ED50)
KINDS = {1: "PTX", 2: "machine code"}

KERNELS = [
    "projectState",
    "velocityToPadded",
    "reduceCFLAndProducts",
    "selectTimeStep",
    "nonlinearProducts",
    "advanceStage",
    "commitStep",
    "spectralStatistics",
    "prepareSnapshot",
    "extractSnapshot",
]


class Entry(NamedTuple):
    kind: str
    processor: int  # 86 for sm_86
    code: bytes


def entries(library: bytes) -> list[Entry]:
    found = []
    block = library.find(MAGIC)
    while block >= 0:
        _, header, size = struct.unpack_from("<HHQ", library, block + 4)
        at = block + header
        end = at + size
        while at < end:
            kind, _, header, size = struct.unpack_from("<HHIQ", library, at)
            (processor,) = struct.unpack_from("<I", library, at + 28)
            code = library[at + header : at + header + size]
            found.append(Entry(KINDS[kind], processor, code))
            at += header + size
        block = library.find(MAGIC, end)
    return found


def kernels_of(entry: Entry) -> list[str]:
    """The library's kernels in an entry."""
    form = ".entry %s(" if entry.kind == "PTX" else ".text.%s\0"
    return [name for name in KERNELS if (form % name).encode() in entry.code]


def operations(ptx: str) -> list[str]:
    """The operation of each instruction, such as add.rn.f32."""
    found = []
    for line in ptx.splitlines():
        match = re.match(r"\s*(?:@!?%\w+\s+)?([a-z][a-z0-9]*(?:[.:]+[a-z0-9_]+)*)\s", line)
        if match and line.rstrip().endswith(";"):
            found.append(match.group(1))
    return found


def is_inexact(operation: str) -> bool:
    """Whether an operation on floats may not round each result separately and to the nearest.

    Operations with explicit rounding (.rn) are never contracted when PTX is compiled further.
    """
    name, *modifiers = operation.split(".")
    if not {"f32", "f64", "f32x2", "f16", "f16x2", "bf16"} & set(modifiers):
        return False
    if {"ftz", "approx", "full", "sat"} & set(modifiers):
        return True
    if name in ("fma", "mad", "rsqrt", "ex2", "lg2", "sin", "cos", "tanh"):
        return True
    return name in ("add", "sub", "mul", "div", "sqrt", "rcp") and "rn" not in modifiers
