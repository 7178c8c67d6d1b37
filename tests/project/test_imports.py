"""The modules of the package import each other without circles."""

from __future__ import annotations

import ast
from graphlib import TopologicalSorter
from pathlib import Path

PACKAGE = Path(__file__).resolve().parents[2] / "python" / "zephane"


def imported(module: Path) -> set[str]:
    """The modules of the package that a module imports, at its top or in its functions."""
    tree = ast.parse(module.read_text(encoding="utf-8"))
    found: set[str] = set()
    for node in ast.walk(tree):
        if isinstance(node, ast.ImportFrom) and node.level == 1:
            found |= {node.module} if node.module else {alias.name for alias in node.names}
        elif isinstance(node, ast.Constant) and str(node.value).startswith("zephane."):
            found.add(str(node.value).partition(".")[2])  # import_module("zephane.plots")
    return found & {path.stem for path in PACKAGE.glob("*.py")}


def test_no_module_imports_itself_through_others() -> None:
    graph = {path.stem: imported(path) for path in PACKAGE.glob("*.py")}
    assert graph["accessor"] and "engine" in graph["__init__"]
    TopologicalSorter(graph).prepare()
