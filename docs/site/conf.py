"""The settings of Sphinx. build.py writes the pages that it reads."""

from __future__ import annotations

import importlib
import re
import sys
from pathlib import Path
from typing import Any

from sphinx.pycode import ModuleAnalyzer

ROOT = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "python"))

project = "Zephane"
author = "The Zephane developers"
version = release = (ROOT / "VERSION").read_text("utf-8").strip()
extensions = ["myst_parser", "sphinx.ext.autodoc"]
root_doc = "index"
nitpicky = False

# Anchors of headings as code hosts make them.
myst_heading_anchors = 4
highlight_language = "text"

autodoc_member_order = "bysource"
autodoc_preserve_defaults = True
autodoc_typehints = "signature"
add_module_names = False
python_use_unqualified_type_names = True

# Records that the package returns, and the accessor of a Dataset: nobody calls these classes.
REPORTS = ("Accessor", "Canvas", "Clock", "Fields", "Performance", "SavedState", "Snapshot",
           "Statistics", "SystemInfo", "ViewStatus")  # fmt: skip

# Some annotations arrive as they are written, others evaluated.
SHORT_TYPES = {
    r"~typing\.Union\[str, ~os\.PathLike\[str\]\]": "PathLike",
    r"~typing\.Optional\[PathLike\]": "PathLike | None",
    r"~typing\.Union\[~?zephane\.engine\.Engine, ~?zephane\.records\.Config\]": "Engine | Config",
    r"\b(LibraryPath|PathLike)\b": "str | PathLike",
}

# The union of the overloads of Engine.advance says all that they do.
_engine = ModuleAnalyzer.for_module("zephane.engine")
_engine.analyze()
_engine.overloads.clear()

html_theme = "theme"
html_theme_path = [str(Path(__file__).parent)]
html_title = "Zephane"
html_copy_source = False
html_show_search_summary = False
html_domain_indices = False


def without_substitutions(*event: Any) -> None:
    """Absolute values of docstrings, as in |u|, are no substitutions of reStructuredText."""
    lines: list[str] = event[-1]
    lines[:] = [line.replace("|", r"\|") for line in lines]


def with_short_signature(
    _app: Any, what: str, name: str, _object: Any, _options: Any, arguments: str, returned: str
) -> tuple[str, str]:
    """Paths by a short name, and no arguments of records that only the package makes."""
    if what == "class" and name.rpartition(".")[2] in REPORTS:
        return "", returned
    for long, short in SHORT_TYPES.items():
        arguments, returned = (text and re.sub(long, short, text) for text in (arguments, returned))
    return arguments and re.sub(r"(?<== )[A-Z_]+\b", value, arguments), returned


def value(constant: re.Match[str]) -> str:
    """The value of a constant that is the default of an argument."""
    for module in ("zephane.films", "zephane.sweeping", "zephane.viscosity"):
        found = getattr(importlib.import_module(module), constant[0], None)
        if isinstance(found, float):
            return f"{found:g}"
        if isinstance(found, int):
            return str(found)
    return constant[0]


def setup(app: Any) -> None:
    app.connect("autodoc-process-signature", with_short_signature)
    app.connect("autodoc-process-docstring", without_substitutions)
