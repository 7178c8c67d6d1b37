"""The documents: their links and file names exist, and the version is that of VERSION."""

from __future__ import annotations

import re
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parents[2]
PAGES = sorted([*ROOT.glob("*.md"), *(ROOT / "docs").glob("*.md"), *ROOT.glob("*/README.md")])


def anchors(page: Path) -> set[str]:
    """The anchors of a page's headings."""
    headings = re.findall(r"^#+ (.*)$", page.read_text("utf-8"), re.MULTILINE)
    return {re.sub(r"[^\w\- ]", "", heading.lower()).replace(" ", "-") for heading in headings}


@pytest.mark.parametrize("page", PAGES, ids=[str(page.relative_to(ROOT)) for page in PAGES])
def test_the_links_of_a_page_resolve(page: Path) -> None:
    text = re.sub(r"^```.*?^```", "", page.read_text("utf-8"), flags=re.MULTILINE | re.DOTALL)
    for link in re.findall(r"\]\(([^)]+)\)", text):
        if link.startswith("https://"):
            continue
        path, _, anchor = link.partition("#")
        target = page.parent / path if path else page
        assert target.exists(), link
        if anchor:
            assert anchor in anchors(target), link


@pytest.mark.parametrize("page", PAGES, ids=[str(page.relative_to(ROOT)) for page in PAGES])
def test_the_files_that_a_page_names_exist(page: Path) -> None:
    folders = {path.name for path in ROOT.iterdir() if path.is_dir()} - {"build", "output"}
    for name in re.findall(r"`([\w.*-]+/[\w./*-]*)`", page.read_text("utf-8")):
        if name.partition("/")[0] in folders:
            assert list(ROOT.glob(name)), name


def test_the_version_is_the_same_everywhere() -> None:
    version = (ROOT / "VERSION").read_text("utf-8").strip()
    citation = (ROOT / "CITATION.cff").read_text("utf-8")
    assert re.findall(r"^version: (.*)$", citation, re.MULTILINE) == [version]
    changes = (ROOT / "CHANGELOG.md").read_text("utf-8")
    released = re.findall(r"^## \[([\d.]+)\] - (\S+)$", changes, re.MULTILINE)
    assert released[0] == (version, re.findall(r"^date-released: (.*)$", citation, re.MULTILINE)[0])
