"""Two-dimensional decaying turbulence, computed by the Zephane library.

    import zephane

    with zephane.Engine(resolution=512, reynolds=13_000) as engine:
        figures = engine.advance(steps=1_000_000, until=4.0)
        print(figures.simulation_time, engine.inspect().enstrophy)
        vorticity = engine.fields().vorticity

The package needs nothing but Python and the library. Where NumPy is installed, fields and spectra
are NumPy arrays and pictures are drawn faster.
"""

from __future__ import annotations

from ._library import ZephaneError
from .engine import Engine, initialize
from .fields import Fields
from .picture import PictureSettings, render
from .png import write_png
from .records import (
    COLOR_RANGES,
    DISPLAYS,
    INTEGRATORS,
    OPERATORS,
    PALETTES,
    START_SPECTRA,
    Config,
    Snapshot,
    Statistics,
    SystemInfo,
    default_reynolds,
)
from .shells import radial_spectrum

__version__ = "0.1.0"

__all__ = [
    "COLOR_RANGES",
    "Config",
    "DISPLAYS",
    "Engine",
    "Fields",
    "INTEGRATORS",
    "OPERATORS",
    "PALETTES",
    "PictureSettings",
    "START_SPECTRA",
    "Snapshot",
    "Statistics",
    "SystemInfo",
    "ZephaneError",
    "default_reynolds",
    "initialize",
    "radial_spectrum",
    "render",
    "write_png",
]
