"""The version, from the file VERSION: inside the package in a wheel, or at a checkout's root."""

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
