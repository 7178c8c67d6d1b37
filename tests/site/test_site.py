"""The site: links, names of the reference, and what the pages load."""

from __future__ import annotations

import inspect
import re
from dataclasses import dataclass, field
from functools import lru_cache
from html.parser import HTMLParser
from pathlib import Path
from urllib.parse import unquote, urlsplit

import pytest
import xarray
from pages import PAGES, ROOT
from reference import accessor_name

import zephane


@dataclass
class Page(HTMLParser):
    """What a page links to, what it loads, and its anchors."""

    links: list[str] = field(default_factory=list)
    loaded: list[str] = field(default_factory=list)
    anchors: set[str] = field(default_factory=set)

    def __post_init__(self) -> None:
        super().__init__()

    def handle_starttag(self, tag: str, attributes: list[tuple[str, str | None]]) -> None:
        found = {name: value or "" for name, value in attributes}
        if "id" in found:
            assert found["id"] not in self.anchors or tag in ("input", "svg"), found["id"]
            self.anchors.add(found["id"])
        if tag == "a" and "href" in found:
            self.links.append(found["href"])
        elif tag == "form":
            self.links.append(found["action"])
        else:
            self.loaded += [found[name] for name in ("src", "href", "srcset") if name in found]


@lru_cache(maxsize=None)
def read(path: Path) -> Page:
    page = Page()
    page.feed(path.read_text("utf-8"))
    return page


def pages(site: Path) -> list[Path]:
    found = sorted(site.rglob("*.html"))
    assert len(found) > len(PAGES)
    return found


def test_every_link_leads_to_a_page_and_an_anchor_that_exist(site: Path) -> None:
    broken = []
    for path in pages(site):
        for link in read(path).links:
            parts = urlsplit(link)
            if parts.scheme == "https":
                continue
            target = (path.parent / unquote(parts.path)).resolve() if parts.path else path
            anchor = unquote(parts.fragment)
            if not target.is_file() or anchor and anchor not in read(target).anchors:
                broken.append(f"{path.relative_to(site)}: {link}")
    assert not broken


def test_every_picture_and_style_is_a_file_of_the_site(site: Path) -> None:
    files = {path.parent / unquote(urlsplit(name).path)
             for path in pages(site) for name in read(path).loaded}  # fmt: skip
    assert [str(path) for path in files if not path.is_file()] == []
    styles = {path.resolve() for path in files if path.suffix == ".css"}
    assert len(styles) == 1
    for style in styles:
        assert not re.search(r"@import|url\(\s*['\"]?(?!data:)", style.read_text("utf-8")), style


def test_only_the_search_has_scripts(site: Path) -> None:
    with_scripts = [path.name for path in pages(site) if "<script" in path.read_text("utf-8")]
    assert with_scripts == ["search.html"]


def public_names() -> list[str]:
    """The public names of the package, and the public members of its classes."""
    public = {f"zephane.{name}": getattr(zephane, name) for name in zephane.__all__}
    names = list(public)
    for name, value in {**public, accessor_name(): type(xarray.Dataset().zephane)}.items():
        if inspect.isclass(value):
            own = {*vars(value), *getattr(value, "__annotations__", {})}
            hidden = ("_", "from_json", "to_json")
            names += [f"{name}.{one}" for one in sorted(own) if not one.startswith(hidden)]
    return names


def test_every_public_name_is_in_the_reference(site: Path) -> None:
    found = set().union(*(read(path).anchors for path in (site / "reference").glob("*.html")))
    names = public_names()
    assert len(names) > 150
    assert [name for name in names if name not in found] == []


@pytest.mark.parametrize("folder", ["docs", "bench", "examples", "."])
def test_every_document_is_a_page(folder: str) -> None:
    documents = {str(path.relative_to(ROOT)) for path in (ROOT / folder).glob("*.md")}
    assert documents and documents <= set(PAGES)
