"""Importing this module gives xarray's Datasets the accessor ``zephane``, with which recordings and
sweeps are plotted. ``record``, ``sweep`` and ``compare`` do that too.
"""

from __future__ import annotations

from .accessor import register_accessor

register_accessor()
