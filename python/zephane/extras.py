"""Packages that only some functions need, and that come as extras of this one."""

from __future__ import annotations

import importlib
from typing import Any

from .errors import ZephaneError


def need(module: str, extra: str, purpose: str) -> Any:
    """A module; where it is missing, ``ZephaneError`` says what it is for and how to get it."""
    try:
        return importlib.import_module(module)
    except ImportError as failure:
        raise ZephaneError(
            f"{purpose} needs {module}, which is missing: pip install 'zephane[{extra}]'"
        ) from failure
