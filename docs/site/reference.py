"""The reference of the Python package, as pages that Sphinx fills from the docstrings."""

from __future__ import annotations

import importlib
from pathlib import Path

from sphinx.pycode import ModuleAnalyzer

INTRODUCTION = """\
Python reference
================

What ``import zephane`` offers, from the docstrings. :doc:`../python` shows it at work.

"""

# The public names by page. Names in capitals are constants.
SECTIONS = {
    "flows": ("Flows", "initialize Engine Config INTEGRATORS OPERATORS START_SPECTRA Fields "
              "default_reynolds suitable_cfl largest_cfl"),
    "figures": ("What a flow reports", "Clock Statistics Snapshot SystemInfo"),
    "states": ("States", "SavedState read_state"),
    "spectra": ("Spectra and fluxes", "radial_spectrum shell_spectra spectral_fluxes"),
    "recordings": ("Recordings and sweeps", "record sweep compare"),
    "pictures": ("Pictures and films", "PictureSettings DISPLAYS PALETTES COLOR_RANGES film"),
    "views": ("Views", "View KEEP ViewStatus Performance Canvas AdaptedViscosity "
              "resolution_number"),
    "notebooks": ("Notebooks", "widget"),
    "errors": ("Errors and warnings", "ZephaneError InvalidValueError FlowFailedError "
               "ZephaneWarning"),
}  # fmt: skip

# The plots are methods of an accessor of xarray's.
PLOTS = """\
Plots
-----

The Datasets of ``record``, ``sweep`` and ``compare`` have these as ``ds.zephane.plot_decay()`` and
so on; ``import zephane.plots`` adds them to one that was read from a file.

.. autoclass:: {accessor}
   :members:

"""


def write_reference(folder: Path) -> None:
    folder.mkdir(parents=True, exist_ok=True)
    index = INTRODUCTION
    for name, (title, names) in SECTIONS.items():
        listed = ", ".join(f":py:obj:`~zephane.{one}`" for one in names.split())
        index += f":doc:`{name}`\n   {listed}\n\n"
        body = "".join(entry(one) for one in names.split())
        body += PLOTS.format(accessor=accessor_name()) if name == "recordings" else ""
        (folder / f"{name}.rst").write_text(headed(title) + body, "utf-8")
    index += ".. toctree::\n   :hidden:\n\n" + "".join(f"   {name}\n" for name in SECTIONS)
    (folder / "index.rst").write_text(index, "utf-8")


def accessor_name() -> str:
    """The class of ``ds.zephane``."""
    importlib.import_module("zephane.plots")
    accessor = type(importlib.import_module("xarray").Dataset().zephane)
    return f"{accessor.__module__}.{accessor.__qualname__}"


def headed(title: str) -> str:
    return f"{title}\n{'=' * len(title)}\n\n.. py:currentmodule:: zephane\n\n"


def entry(name: str) -> str:
    package = importlib.import_module("zephane")
    value = getattr(package, name)
    if name.isupper():
        return constant(name, value)
    if not isinstance(value, type):
        return f".. autofunction:: zephane.{name}\n\n"
    options = "   :members:\n   :exclude-members: from_json, to_json\n"
    if issubclass(value, Exception):
        options += "   :show-inheritance:\n"
    return f".. autoclass:: zephane.{name}\n{options}\n"


def constant(name: str, value: object) -> str:
    """A constant with the text below its definition; autodoc looks for it in the package alone."""
    for module in ("zephane.records", "zephane.view"):
        comments = ModuleAnalyzer.for_module(module).find_attr_docs()
        if ("", name) in comments:
            text = " ".join(line.strip() for line in comments["", name]).strip()
            return f".. py:data:: {name}\n   :value: {value}\n\n   {text}\n\n"
    raise LookupError(f"zephane.{name} has no docstring")
