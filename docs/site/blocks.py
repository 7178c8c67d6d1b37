"""The blocks of a page whose code is run, and the outputs that the page shows.

    ```python         runs, in one interpreter for the whole page
    ```sh             runs in bash
    ```c decay.c      is written to that file; so is every block with a name
    ```text           directly after a block: what that block prints
"""

from __future__ import annotations

import math
import re
from dataclasses import dataclass

OPENING = re.compile(r"^```(\w+)(?: ([\w.-]+))?$")
MEASURED = re.compile(r'"gpu_milliseconds":[\d.e+-]+,')
NUMBER = re.compile(r"(?<![\w.])[-+]?\d+(?:\.\d+)?(?:e[-+]?\d+)?(?![\w])")
PICTURE = re.compile(r"^!\[[^]]*\]\(pictures/([^)]+)\)", re.MULTILINE)

# Lines of a report that depend on the machine: its name, and its speed.
OF_THE_MACHINE = re.compile(r"^(CPU / built-in FFT|\s+wall time)")

# The flow is the same to the bit wherever it is computed. Sums by NumPy are not.
TOLERANCE = 1e-3


@dataclass
class Block:
    language: str
    name: str | None
    line: int
    """The first line of the code, counted from 0."""
    text: str
    shown: str = ""
    shown_lines: tuple[int, int] | None = None
    """The lines of the output that the page shows, if there is such a block."""
    shows_picture: bool = False
    """Whether the page shows a picture instead of the output."""


def blocks_of(page: str) -> list[Block]:
    """The blocks that are run or written, each with the output shown after it."""
    lines = page.splitlines()
    found: list[Block] = []
    end_of_last = -1
    at = 0
    while at < len(lines):
        opening = OPENING.match(lines[at])
        if not opening:
            at += 1
            continue
        end = lines.index("```", at)
        text = "\n".join(lines[at + 1 : end]) + "\n"
        if opening[1] == "text":
            if found and not any(line.strip() for line in lines[end_of_last + 1 : at]):
                found[-1].shown = text
                found[-1].shown_lines = (at + 1, end)
        elif opening[1] in ("python", "sh") or opening[2]:
            following = next((line for line in lines[end + 1 :] if line.strip()), "")
            is_drawn = following.startswith("![")
            found.append(Block(opening[1], opening[2], at + 1, text, shows_picture=is_drawn))
            end_of_last = end
        at = end + 1
    return found


def pictures_of(page: str) -> list[str]:
    return PICTURE.findall(page)


def with_outputs(page: str, blocks: list[Block], outputs: list[str]) -> str:
    """The page with these outputs in place of those shown, where they differ."""
    lines = page.splitlines()
    for block, output in reversed(list(zip(blocks, outputs))):
        if block.shown_lines and _steady(block.shown) != _steady(output):
            first, end = block.shown_lines
            lines[first:end] = output.rstrip("\n").splitlines()
    return "\n".join(lines) + "\n"


def difference(shown: str, given: str) -> str | None:
    """The first line in which two outputs differ, or None if they agree."""
    expected, actual = _lines(shown), _lines(given)
    for one, other in zip(expected, actual):
        if not _agree(one, other):
            return f"shows {one!r}, prints {other!r}"
    if len(expected) != len(actual):
        return f"shows {len(expected)} lines, prints {len(actual)}"
    return None


def _steady(text: str) -> list[str]:
    """The lines that are the same whenever and wherever a page runs."""
    return [line for line in _lines(text) if not OF_THE_MACHINE.match(line)]


def _lines(text: str) -> list[str]:
    return [MEASURED.sub("", line.rstrip()) for line in text.strip("\n").splitlines()]


def _agree(one: str, other: str) -> bool:
    if machine := OF_THE_MACHINE.match(one):
        return other.startswith(machine[0])
    words, numbers = NUMBER.split(one), NUMBER.findall(one)
    others = NUMBER.findall(other)
    return (
        words == NUMBER.split(other)
        and len(numbers) == len(others)
        and all(math.isclose(float(a), float(b), rel_tol=TOLERANCE)
                for a, b in zip(numbers, others))  # fmt: skip
    )
