"""What a recorded Dataset shows in a notebook: curves and the last field, above its variables."""

from __future__ import annotations

import io
import sys
from typing import Any, Protocol

from .errors import ZephaneError
from .extras import need
from .notebook_pages import POINTS, SHOWN_PIXELS, image
from .records import LIVE_PICTURE
from .shading import picture_png

PURPOSE = "A plot"

# Of one plot, in inches. It is as high as the picture beside it.
PIXELS_PER_INCH = 96
WIDTH, HEIGHT = 3.4, SHOWN_PIXELS / PIXELS_PER_INCH
DOTS_PER_INCH = 144

SPECTRUM = {"spectrum_time", "wavenumber"}
FIELD = ("field_time", "y", "x")


class Plots(Protocol):
    """The plots of a Dataset, as its accessor has them."""

    def plot_decay(self, quantity: str, *, relative: bool, ax: Any) -> Any: ...
    def plot_spectra(self, *, ax: Any) -> Any: ...


def dataset_page(dataset: Any, plots: Plots) -> str:
    """The picture and the plots alone, as HTML."""
    parts = [_field(dataset), _plots(dataset, plots)]
    return f'<div style="display: flex; flex-wrap: wrap; gap: 1em">{"".join(parts)}</div>'


def show_in_notebooks(dataset_type: Any) -> None:
    """Let Datasets of this package show their page above what all Datasets show. Does nothing where
    no notebook runs.
    """
    ipython = sys.modules.get("IPython")
    shell = None if ipython is None else ipython.get_ipython()
    if shell is not None:
        shell.display_formatter.formatters["text/html"].for_type(dataset_type, _whole_page)


def _whole_page(dataset: Any) -> str:
    page: str = dataset._repr_html_()
    if not str(dataset.attrs.get("source", "")).startswith("Zephane "):
        return page
    try:
        return str(dataset.zephane._repr_html_()) + page
    except ZephaneError:  # Without Matplotlib.
        return page


def _field(dataset: Any) -> str:
    """The last vorticity of a single flow."""
    if "vorticity" not in dataset or dataset["vorticity"].dims != FIELD:
        return ""
    last = dataset["vorticity"][-1]
    every = -(-last.shape[0] // POINTS)
    png = picture_png(LIVE_PICTURE, last[::every, ::every].values)
    return image(png, f"Vorticity at time {float(last['field_time']):g}")


def _plots(dataset: Any, plots: Plots) -> str:
    series = [
        name
        for name in ("energy", "enstrophy")
        if name in dataset and "time" in dataset[name].dims
    ]
    has_spectra = "energy_spectrum" in dataset and SPECTRUM <= set(dataset["energy_spectrum"].dims)
    count = len(series) + has_spectra
    if count == 0:
        return ""
    figure = need("matplotlib.figure", "sweep", PURPOSE).Figure(
        figsize=(WIDTH * count, HEIGHT), layout="constrained"
    )
    places = iter(figure.subplots(1, count, squeeze=False)[0])
    for name in series:
        plots.plot_decay(name, relative=True, ax=next(places))
    if has_spectra:
        plots.plot_spectra(ax=next(places))
    file = io.BytesIO()
    figure.savefig(file, format="png", dpi=DOTS_PER_INCH)
    style = f"width: {WIDTH * count * PIXELS_PER_INCH:.0f}px; max-width: 100%; align-self: center"
    return image(file.getvalue(), "Decay and spectra", style)
