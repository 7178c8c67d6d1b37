"""The version, read from the file VERSION: a wheel has it in the package, a checkout at its root."""

from __future__ import annotations

from pathlib import Path


def read_version() -> str:
    package = Path(__file__).resolve().parent
    for folder in (package, package.parent.parent):
        try:
            return (folder / "VERSION").read_text(encoding="utf-8").strip()
        except OSError:
            continue
    return "unknown"
