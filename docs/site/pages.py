"""Which files of the repository are pages of the site, and how their links are carried over.

Pages link to each other, and to source files, by paths in the repository, so that they can be read
on a code host. Here each link gets the place that its target has in the site.
"""

from __future__ import annotations

import json
import os
import posixpath
import re
import shutil
from collections.abc import Callable
from pathlib import Path
from typing import Any

ROOT = Path(__file__).resolve().parents[2]
PICTURES = (".png", ".svg", ".webp")

# The file of each page, and its name in the site, by the captions of the navigation.
NAVIGATION = {
    "Tutorials": {
        "docs/first-flow.md": "first-flow",
        "docs/spectra.md": "spectra",
        "docs/from-c.md": "from-c",
        "docs/long-runs.md": "long-runs",
    },
    "Look": {"docs/gallery.md": "gallery", "examples/README.md": "examples"},
    "Guide": {"docs/python.md": "python", "docs/choosing.md": "choosing"},
    "Reference": {
        "python/zephane/__init__.py": "reference/index",
        "docs/api.md": "api",
        "boundary/zephane.h": "header",
    },
    "Background": {
        "docs/numerics.md": "numerics",
        "docs/architecture.md": "architecture",
        "bench/README.md": "measuring",
    },
    "Project": {"CONTRIBUTING.md": "contributing", "CHANGELOG.md": "changelog"},
}
HOME = {"README.md": "index"}
PAGES = {**HOME, **{file: name for part in NAVIGATION.values() for file, name in part.items()}}

LANGUAGES = {".c": "c", ".h": "cpp", ".cpp": "cpp", ".py": "python"}
LANGUAGES_BY_NAME = {"CMakeLists.txt": "cmake", "CITATION.cff": "yaml"}

# A page that the navigation does not list.
UNLISTED = "---\norphan: true\n---\n"

# Longer than those in any file.
FENCE = "`" * 8
FENCED = re.compile(r"(^```.*?^```[^\n]*$)", re.MULTILINE | re.DOTALL)
LINK = re.compile(r"(\]\()([^)\s]+)(\))")


class Stage:
    """A folder that is filled with the pages as Sphinx reads them."""

    def __init__(self, folder: Path) -> None:
        self._folder = folder
        self._sources: list[str] = []
        shutil.rmtree(folder, ignore_errors=True)
        folder.mkdir(parents=True)

    def add_pages(self) -> None:
        for file, name in PAGES.items():
            if file.endswith(".md"):
                text = self._carried(file, (ROOT / file).read_text("utf-8"), name)
                self._write(f"{name}.md", text + (navigation() if file in HOME else ""))
            elif not file.endswith(".py"):
                self._write(f"{name}.md", source_page(file))
        for source in self._sources:
            self._write(f"{source_name(source)}.md", UNLISTED + self._page(source))

    def _page(self, source: str) -> str:
        if (ROOT / source).is_dir():
            return folder_page(source)
        return notebook_page(source) if source.endswith(".ipynb") else source_page(source)

    def _carried(self, file: str, text: str, name: str) -> str:
        """The text of a page with links that lead to where their targets are in the site."""
        parts = FENCED.split(text)
        parts[::2] = [LINK.sub(self._replacement(file, name), part) for part in parts[::2]]
        return "".join(parts)

    def _replacement(self, file: str, name: str) -> Callable[[re.Match[str]], str]:
        def replace(found: re.Match[str]) -> str:
            path, mark, anchor = found[2].partition("#")
            if not path or "://" in path:
                return found[0]
            target = posixpath.normpath(posixpath.join(posixpath.dirname(file), path))
            place = posixpath.relpath(self._place(target), posixpath.dirname(name) or ".")
            return f"{found[1]}{place}{mark}{anchor}{found[3]}"

        return replace

    def _place(self, target: str) -> str:
        """The file of the stage that a file or folder of the repository becomes."""
        readme = f"{target}/README.md"
        if target in PAGES or readme in PAGES:
            page = PAGES.get(target) or PAGES[readme]
            return f"{page}.rst" if target.endswith(".py") else f"{page}.md"
        if target.endswith(PICTURES):
            (self._folder / target).parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(ROOT / target, self._folder / target)
            return target
        for source in (target, *files_of(target)):
            if source not in self._sources:
                self._sources.append(source)
        return f"{source_name(target)}.md"

    def _write(self, name: str, text: str) -> None:
        path = self._folder / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text, "utf-8")


def navigation() -> str:
    """The pages under their captions, as directives that show nothing in the page itself."""
    lines = []
    for caption, pages in NAVIGATION.items():
        options = [":hidden:", f":caption: {caption}"]
        lines += ["", "```{toctree}", *options, "", *pages.values(), "```"]
    return "\n".join(lines) + "\n"


def source_name(source: str) -> str:
    return f"source/{source}"


def source_page(source: str) -> str:
    """A page that shows a file."""
    name = os.path.basename(source)
    language = LANGUAGES_BY_NAME.get(name) or LANGUAGES.get(Path(name).suffix, "text")
    text = (ROOT / source).read_text("utf-8").rstrip("\n")
    return f"# {source}\n\n{FENCE}{language}\n{text}\n{FENCE}\n"


def notebook_page(notebook: str) -> str:
    """The cells of a notebook, with the texts and pictures that it keeps as their outputs."""
    parts = []
    for cell in json.loads((ROOT / notebook).read_text("utf-8"))["cells"]:
        text = "".join(cell["source"])
        if cell["cell_type"] == "markdown":
            parts.append(text)
        elif cell["cell_type"] == "code" and text:
            parts.append(f"{FENCE}python\n{text}\n{FENCE}")
            parts += [part for output in cell["outputs"] for part in _output(output)]
    return "\n\n".join(parts) + "\n"


def _output(output: dict[str, Any]) -> list[str]:
    data = output.get("data", {})
    if "image/png" in data:
        return [f"![](data:image/png;base64,{''.join(data['image/png'].split())})"]
    text = "".join(output.get("text") or data.get("text/plain", []))
    return [f"{FENCE}text\n{text.rstrip()}\n{FENCE}"] if text else []


def folder_page(folder: str) -> str:
    """A page that lists the files of a folder."""
    listed = "".join(f"- [{file}]({os.path.basename(folder)}/{os.path.basename(file)}.md)\n"
                     for file in files_of(folder))  # fmt: skip
    return f"# {folder}\n\n{listed}"


def files_of(folder: str) -> list[str]:
    if not (ROOT / folder).is_dir():
        return []
    return sorted(f"{folder}/{path.name}" for path in (ROOT / folder).iterdir() if path.is_file())
