"""What not every system has."""

from __future__ import annotations

import os

import pytest

posix_only = pytest.mark.skipif(os.name == "nt", reason="only POSIX systems have what it needs")
