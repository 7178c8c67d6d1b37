"""The site of the documentation, as docs/site/build.py leaves it."""

from __future__ import annotations

import sys
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parents[2]
SITE = ROOT / "build" / "site"

sys.path.insert(0, str(ROOT / "docs" / "site"))


@pytest.fixture(scope="session")
def site() -> Path:
    if not (SITE / "index.html").is_file():
        pytest.fail("there is no site: run ./test docs", pytrace=False)
    return SITE
