"""Two-dimensional decaying turbulence, computed by the Zephane library.

    import zephane

    with zephane.Engine(resolution=512) as engine:
        figures = engine.advance(until=4.0)
        print(figures.steps, figures.enstrophy)
        vorticity = engine.fields().vorticity
        engine.export(png="flow.png", palette="glacier")

    with zephane.View(resolution=512) as view:
        view.start()
        print(view.wait(lambda status: status.ready).stats)

The package needs nothing but Python and the library. Where NumPy is installed, fields and spectra
are NumPy arrays.
"""

from __future__ import annotations

from ._version import read_version
from .comparison import compare
from .engine import Engine, initialize
from .errors import FlowFailedError, InvalidValueError, ZephaneError
from .fields import Fields
from .films import film
from .notebooks import widget
from .recording import record
from .records import (
    COLOR_RANGES,
    DISPLAYS,
    INTEGRATORS,
    OPERATORS,
    PALETTES,
    START_SPECTRA,
    Canvas,
    Clock,
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
from .states import SavedState, read_state
from .suiting import ZephaneWarning, largest_cfl, suitable_cfl
from .sweeping import sweep
from .transfers import shell_spectra, spectral_fluxes
from .view import KEEP, View
from .viscosity import AdaptedViscosity, resolution_number

__version__ = read_version()

__all__ = [
    "AdaptedViscosity",
    "COLOR_RANGES",
    "Canvas",
    "Clock",
    "Config",
    "DISPLAYS",
    "Engine",
    "Fields",
    "FlowFailedError",
    "INTEGRATORS",
    "InvalidValueError",
    "KEEP",
    "OPERATORS",
    "PALETTES",
    "Performance",
    "PictureSettings",
    "START_SPECTRA",
    "SavedState",
    "Snapshot",
    "Statistics",
    "SystemInfo",
    "View",
    "ViewStatus",
    "ZephaneError",
    "ZephaneWarning",
    "compare",
    "default_reynolds",
    "film",
    "initialize",
    "largest_cfl",
    "radial_spectrum",
    "read_state",
    "record",
    "resolution_number",
    "shell_spectra",
    "spectral_fluxes",
    "suitable_cfl",
    "sweep",
    "widget",
]
