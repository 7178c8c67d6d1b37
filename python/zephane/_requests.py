"""What becomes of arguments on their way into a request."""

from __future__ import annotations

import os
from typing import Any


def given(**arguments: Any) -> dict[str, Any]:
    """The arguments that are not None, with paths as texts."""
    return {key: plain(value) for key, value in arguments.items() if value is not None}


def plain(value: Any) -> Any:
    return os.fspath(value) if isinstance(value, os.PathLike) else value
