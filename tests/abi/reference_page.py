"""docs/api.md as data: its sections, their tables and their examples."""

from __future__ import annotations

import json
import re
from dataclasses import dataclass, field
from pathlib import Path
from typing import Any, Iterator

ROOT = Path(__file__).resolve().parents[2]
PAGE = ROOT / "docs" / "api.md"
NONE = "—"


@dataclass(frozen=True)
class Row:
    section: str
    cells: dict[str, str]

    def __getitem__(self, column: str) -> str:
        return self.cells[column]

    def code(self, column: str) -> str:
        """The first text between backticks in a cell."""
        found = re.search(r"`([^`]*)`", self[column])
        assert found, f"{self.section}: no code in {self[column]!r}"
        return found.group(1)

    @property
    def name(self) -> str:
        """The name of this row in test ids."""
        return f"{self.section}: {next(iter(self.cells.values()))}".replace("`", "")


@dataclass(frozen=True)
class Example:
    """A fenced block: the text after "json" on the opening fence, and the object."""

    words: list[str]
    text: str


@dataclass
class Section:
    title: str
    tables: list[list[Row]] = field(default_factory=list)
    examples: list[Example] = field(default_factory=list)
    text: str = ""


def sections() -> list[Section]:
    page = PAGE.read_text(encoding="utf-8")
    return [_section(part) for part in re.split(r"^#+ ", page, flags=re.MULTILINE)[1:]]


def section(title: str) -> Section:
    (found,) = (one for one in sections() if one.title == title)
    return found


def rows(*columns: str) -> list[Row]:
    """The rows of all tables that have exactly these columns."""
    return [row for one in sections() for row in _with(columns, one)]


def requests() -> list[Row]:
    return rows("Key", "Type", "Range", "Default", "Meaning")


def replies(title: str) -> Iterator[list[Row]]:
    """The tables of a section that describe replies."""
    for table in section(title).tables:
        if list(table[0].cells) == ["Key", "Type", "Meaning"]:
            yield table


def refusals() -> list[Row]:
    return rows("Refusal", "Cause", "For example")


def _with(columns: tuple[str, ...], one: Section) -> Iterator[Row]:
    for table in one.tables:
        if tuple(table[0].cells) == columns:
            yield from table


def _section(part: str) -> Section:
    title, _, body = part.partition("\n")
    made = Section(title.strip(), text=body)
    for words, text in re.findall(r"^```json ([^\n]*)\n(.*?)^```", body, re.DOTALL | re.MULTILINE):
        made.examples.append(Example(words.split(), text))
    for block in re.findall(r"(?:^\|.*\n?)+", body, re.MULTILINE):
        header, _, *lines = [_cells(line) for line in block.splitlines()]
        made.tables.append([Row(made.title, dict(zip(header, line))) for line in lines])
        assert all(len(line) == len(header) for line in lines), block
    return made


def _cells(line: str) -> list[str]:
    return [cell.strip().replace("\\|", "|") for cell in re.split(r"(?<!\\)\|", line)[1:-1]]


@dataclass(frozen=True)
class Range:
    """The contents of a cell of the column "Range"."""

    accepted: list[Any]
    refused: list[Any]
    clamped: list[tuple[Any, Any]]  # the value given, and the value kept


def range_of(row: Row) -> Range:
    text = row["Range"]
    if text == "true, false":
        return Range([True, False], ["yes"], [])
    if text == "a file":
        return Range([], [1, True], [])
    if text.startswith('"'):
        names = json.loads(f"[{text}]")
        return Range(names, [names[0].swapcase(), names[0] + " ", ""], [])
    if found := re.fullmatch(r"above (\S+)", text):
        low = float(found.group(1))
        return Range([low + 1e-30, low + 1], [low, low - 1], [])
    if found := re.fullmatch(r"(\S+) or more", text):
        low = float(found.group(1))
        return Range([low, low + 1], [low - 1e-3], [])
    found = re.fullmatch(r"(\S+) to (\S+?)(, even|, clamped)?", text)
    assert found, f"{row.name}: a range {text!r}"
    low, high = (json.loads(end) for end in found.group(1, 2))
    if found.group(3) == ", clamped":
        beyond = [(low - 0.01, low), (high + 0.01, high), (-1e300, low), (1e300, high)]
        return Range([low, high], [], beyond)
    step = 2 if found.group(3) else 1
    odd = [low + 1] if found.group(3) else []
    return Range([low, high], [low - step, high + step, *odd], [])
