"""The environment with JupyterLab that scripts/setup makes, and processes in it."""

from __future__ import annotations

import os
import sysconfig
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parents[2]
FOLDER = ROOT / "build" / "jupyter"


def program(name: str) -> str:
    """The path of a program of the environment."""
    path = FOLDER / "bin" / name
    if not path.exists():
        pytest.fail(f"No {path}: ./test notebooks makes this environment.", pytrace=False)
    return str(path)


def modules() -> str:
    """The folder of the environment's modules."""
    base = {"base": str(FOLDER), "platbase": str(FOLDER)}
    return sysconfig.get_path("purelib", "posix_prefix", base)


def variables(folder: Path, packages: Path) -> dict[str, str]:
    """The environment variables of a process that keeps all that it writes in ``folder``."""
    kept = {key: value for key, value in os.environ.items() if not key.startswith("JUPYTER")}
    kept.pop("DISPLAY", None)
    names = ("JUPYTER_CONFIG_DIR", "JUPYTER_DATA_DIR", "JUPYTER_RUNTIME_DIR",
             "JUPYTERLAB_SETTINGS_DIR", "JUPYTERLAB_WORKSPACES_DIR", "IPYTHONDIR",
             "MPLCONFIGDIR")  # fmt: skip
    return {
        **kept,
        "PYTHONPATH": str(packages),
        "PYTHONDONTWRITEBYTECODE": "1",
        **{name: str(folder / name.lower()) for name in names},
    }
