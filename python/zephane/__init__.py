"""Two-dimensional decaying turbulence, computed by the Zephane library.

    import zephane

    with zephane.Engine(resolution=512, reynolds=13_000) as engine:
        figures = engine.advance(steps=1_000_000, until=4.0)
        print(figures.simulation_time, engine.inspect().enstrophy)
        vorticity = engine.fields().vorticity
        engine.export(png="flow.png", palette="glacier")

    with zephane.View(resolution=512) as view:
        view.start()
        print(view.wait(lambda status: status.ready).stats)

The package needs nothing but Python and the library. Where NumPy is installed, fields and spectra
are NumPy arrays.
"""

from __future__ import annotations

from ._library import ZephaneError
from ._version import read_version
from .engine import Engine, initialize
from .fields import Fields
from .records import (
    COLOR_RANGES,
    DISPLAYS,
    INTEGRATORS,
    OPERATORS,
    PALETTES,
    START_SPECTRA,
    Canvas,
    Config,
    Performance,
    PictureSettings,
    Snapshot,
    Statistics,
    SystemInfo,
    ViewStatus,
    default_reynolds,
)
from .shells import radial_spectrum
from .view import KEEP, View

__version__ = read_version()

__all__ = [
    "COLOR_RANGES",
    "Canvas",
    "Config",
    "DISPLAYS",
    "Engine",
    "Fields",
    "INTEGRATORS",
    "KEEP",
    "OPERATORS",
    "PALETTES",
    "Performance",
    "PictureSettings",
    "START_SPECTRA",
    "Snapshot",
    "Statistics",
    "SystemInfo",
    "View",
    "ViewStatus",
    "ZephaneError",
    "default_reynolds",
    "initialize",
    "radial_spectrum",
]
