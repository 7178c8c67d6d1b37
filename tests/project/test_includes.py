"""The folders depend on each other as docs/architecture.md shows."""

from __future__ import annotations

import re
from collections.abc import Iterator
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parents[2]
PAGE = ROOT / "docs" / "architecture.md"
SOURCES = {".h", ".cpp", ".cu"}

# The only folders whose files may include headers of an operating system or a graphics system.
SEAMS = ("device/", "platform/", "render/vulkan/", "render/d3d11/", "render/x11/", "render/win32/")
SYSTEM_HEADERS = re.compile(
    r"(?:sys|linux|netinet|arpa|X11|xcb|vulkan|GL|EGL|dbus)/.*"
    r"|(?:unistd|dlfcn|fcntl|pthread|sched|signal|poll|spawn|windows|winuser|immintrin)\.h"
    r"|(?:cuda|nvrtc|vkFFT|d3d|dxgi|d2d1|dwrite|wincodec)\w*\.h"
)


def order_on_the_page() -> list[str]:
    line = re.search(r"^    (boundary -> .*)$", PAGE.read_text(encoding="utf-8"), re.MULTILINE)
    assert line, "the page draws the order of includes"
    return line[1].split(" -> ")


def exceptions_on_the_page() -> set[tuple[str, str]]:
    text = PAGE.read_text(encoding="utf-8")
    return set(re.findall(r"^    (\S+) includes (\S+)$", text, re.MULTILINE))


def includes_of(folder: str) -> Iterator[tuple[str, str]]:
    """The path of each file of the folder with each path that it includes in quotes."""
    for file in sorted((ROOT / folder).rglob("*")):
        if file.suffix in SOURCES:
            text = file.read_text(encoding="utf-8")
            for path in re.findall(r'^#include "([^"]+)"', text, re.MULTILINE):
                yield file.relative_to(ROOT).as_posix(), path


def violations(includes: list[tuple[str, str]], order: list[str]) -> set[tuple[str, str]]:
    """The includes that point to a folder further left than their own."""
    rank = {folder: place for place, folder in enumerate(order)}
    return {
        (file, path)
        for file, path in includes
        if rank[path.partition("/")[0]] < rank[file.partition("/")[0]]
    }


def all_includes() -> list[tuple[str, str]]:
    return [include for folder in order_on_the_page() for include in includes_of(folder)]


def test_the_page_names_every_folder_of_the_library() -> None:
    build = (ROOT / "CMakeLists.txt").read_text(encoding="utf-8")
    built = re.search(r"zephane_objects\(zephane_core ([^)]*)\)", build)
    assert built
    folders = {word.partition("/")[0] for word in built[1].split()}
    assert folders == set(order_on_the_page())


def test_includes_follow_the_order_with_the_listed_exceptions() -> None:
    assert violations(all_includes(), order_on_the_page()) == exceptions_on_the_page()


def test_an_include_against_the_order_is_found() -> None:
    upward = ("solver/solver.cpp", "boundary/config.h")
    downward = ("boundary/config.h", "solver/config_record.h")
    assert violations([upward, downward], order_on_the_page()) == {upward}


def test_every_include_path_starts_at_the_root() -> None:
    missing = [(file, path) for file, path in all_includes() if not (ROOT / path).is_file()]
    assert missing == []


@pytest.mark.parametrize("folder", ["boundary", "render", "controller", "solver", "kernels"])
def test_only_the_seams_include_headers_of_a_system(folder: str) -> None:
    found = []
    for file in sorted((ROOT / folder).rglob("*")):
        place = file.relative_to(ROOT).as_posix()
        if file.suffix in SOURCES and not place.startswith(SEAMS):
            text = file.read_text(encoding="utf-8")
            headers = re.findall(r"^#include <([^>]+)>", text, re.MULTILINE)
            found += [(place, header) for header in headers if SYSTEM_HEADERS.fullmatch(header)]
    assert found == []


def test_file_names_are_unique() -> None:
    """With two headers of the same name a reader must guess which one an include means. Only what
    is done for each operating system has the same name in the folder of each."""
    places: dict[str, set[str]] = {}
    for folder in order_on_the_page():
        for file in (ROOT / folder).rglob("*"):
            if file.suffix in SOURCES:
                place = file.relative_to(ROOT).as_posix()
                system = re.sub(r"^platform/(linux|windows)/", "platform/SYSTEM/", place)
                places.setdefault(file.name, set()).add(system)
    assert [found for found in places.values() if len(found) > 1] == []


def test_the_page_names_files_that_exist() -> None:
    text = PAGE.read_text(encoding="utf-8")
    folders = "|".join(order_on_the_page())
    named = set(re.findall(rf"\b(?:{folders}|tests|python|examples|bench)/[\w./*]*", text))
    missing = [path for path in sorted(named) if not any(ROOT.glob(path.rstrip("./")))]
    assert missing == []
