"""NumPy, if it is installed. Imported at first use, so that importing the package stays quick."""

from __future__ import annotations

import functools
from typing import Any


@functools.cache
def numpy() -> Any:
    """The NumPy module, or None without NumPy."""
    try:
        import numpy as module
    except ImportError:
        return None
    return module
