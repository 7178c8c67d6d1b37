"""Plots of recordings and sweeps with Matplotlib: the accessor ``zephane`` of xarray's Datasets."""

from __future__ import annotations

import functools
import itertools
from collections.abc import Iterator
from typing import Any

from .dataset_pages import dataset_page, show_in_notebooks
from .errors import InvalidValueError
from .extras import need
from .recording_files import TIMES
from .refusals import shown

PURPOSE = "A plot"

SYMBOLS = {"reynolds": "Re", "resolution": "N", "fixed_dt": "dt"}
LABELS = {
    "energy_spectrum": "energy E(k)",
    "enstrophy_spectrum": "enstrophy Z(k)",
    "energy_flux": "flux of energy Π(k)",
    "enstrophy_flux": "flux of enstrophy Π(k)",
}
# The dimensions of samples and shells, which are no settings.
OWN = (*TIMES, "wavenumber", "x", "y")

SPREAD_OPACITY = 0.2
# With more lines than Matplotlib has colours, they are taken from a scale.
COLORS = 10
# Spectra below their maximum by more than this are rounding.
SMALLEST_SHARE = 1e-14


@functools.cache
def register_accessor() -> None:
    """Give xarray's Datasets the accessor ``zephane``."""
    xarray = need("xarray", "data", PURPOSE)
    xarray.register_dataset_accessor("zephane")(Accessor)
    show_in_notebooks(xarray.Dataset)


class Accessor:
    """``ds.zephane``: plots and ensemble means of a Dataset of ``record``, ``sweep``, ``compare``.

    Each plot draws into ``ax``, axes of Matplotlib, or into a new figure, and returns the axes.
    Along the dimension ``over``, if the Dataset has it, the mean is drawn with a band of one
    standard deviation; each combination of the other settings has a line. Arguments that a plot
    does not know, such as ``color`` or ``label``, go to Matplotlib's ``plot``.

    A quantity that the Dataset lacks raises ``InvalidValueError``.
    """

    def __init__(self, dataset: Any) -> None:
        self._dataset = dataset

    def _repr_html_(self) -> str:
        return dataset_page(self._dataset, self)

    def ensemble(self, over: str = "seed") -> Any:
        """A Dataset of the means over a dimension, with the standard deviations as ``NAME_spread``.

        Members that blew up count until then.
        """
        self._check(over)
        data = self._dataset[[name for name, one in self._dataset.items() if over in one.dims]]
        data = data.drop_vars("failed_at", errors="ignore")
        spread = _deviation(data, over)
        names = {name: f"{name}_spread" for name in data.data_vars}
        made = data.mean(over, keep_attrs=True).assign(
            {names[name]: spread[name].assign_attrs(_spread_of(data[name], over)) for name in names}
        )
        return made.assign_attrs(self._dataset.attrs)

    def plot_decay(
        self,
        quantity: str = "energy",
        *,
        over: str | None = "seed",
        relative: bool = False,
        ax: Any = None,
        **style: Any,
    ) -> Any:
        """A series over time: ``quantity`` is "energy", "enstrophy", "palinstrophy" or another one.

        ``relative=True`` divides it by its first value.
        """
        values = self._variable(quantity, "time")
        if relative:
            values = values / values.isel(time=0)
        ax = _axes(ax)
        _draw(ax, values, "time", over, style)
        name = _name(self._dataset[quantity])
        ax.set(xlabel="time", ylabel=f"{name}, relative to the start" if relative else name)
        return ax

    def plot_ensemble(
        self,
        quantity: str = "enstrophy",
        *,
        over: str = "seed",
        members: bool = True,
        ax: Any = None,
        **style: Any,
    ) -> Any:
        """The mean of a series over ``over``, its spread, and a thin line for each member.

        ``members=False`` leaves the thin lines out.
        """
        self._check(over)
        values = self._variable(quantity, "time")
        ax = _axes(ax)
        _draw(ax, values, "time", over, style)
        if members:
            for line, (_, part) in zip(list(ax.get_lines()), _lines(values, "time", over)):
                for _, one in _lines(part, "time", None):
                    ax.plot(one["time"], one, color=line.get_color(), linewidth=0.5, alpha=0.5)
        ax.set(xlabel="time", ylabel=_name(self._dataset[quantity]))
        return ax

    def plot_spectra(
        self,
        quantity: str = "energy_spectrum",
        *,
        time: float | None = None,
        slope: float | None = -3.0,
        over: str | None = "seed",
        ax: Any = None,
        **style: Any,
    ) -> Any:
        """A spectrum over the wavenumber, at the sample nearest to ``time``, or at the last one.

        ``quantity`` is "energy_spectrum", "enstrophy_spectrum", "energy_flux" or "enstrophy_flux".
        ``slope`` is the exponent of a dashed line for the eye; None leaves it out. Fluxes are drawn
        with a linear scale and without that line.
        """
        values = self._variable(quantity, "spectrum_time")
        last = float(values["spectrum_time"][-1])
        at = values.sel(spectrum_time=last if time is None else time, method="nearest")
        at = at.isel(wavenumber=slice(1, None))
        ax = _axes(ax)
        ax.set_xscale("log")
        is_flux = quantity.endswith("flux")
        if not is_flux:
            at = at.where(at > SMALLEST_SHARE * at.max("wavenumber"))
            ax.set_yscale("log")
        _draw(ax, at, "wavenumber", over, style)
        if is_flux:
            ax.axhline(0.0, color="0.7", linewidth=0.8, zorder=0)
        elif slope is not None:
            _draw_slope(ax, at, slope)
        moment = float(at["spectrum_time"])
        ax.set(xlabel="wavenumber k", ylabel=_name(self._dataset[quantity]),
               title=f"time {moment:g}")  # fmt: skip
        return ax

    def _variable(self, name: str, dimension: str) -> Any:
        known = [key for key, one in self._dataset.items() if dimension in one.dims]
        if name not in known:
            reason = f"the Dataset has {', '.join(map(str, known))}" if known else (
                "the Dataset has no spectra: record them with spectra_every"
                if dimension == "spectrum_time" else "the Dataset has no series"
            )  # fmt: skip
            raise InvalidValueError(f'No "{name}" along {dimension}: {reason}')
        return self._dataset[name]

    def _check(self, over: str) -> None:
        settings = [name for name in self._dataset.dims if name not in OWN]
        if over not in settings:
            has = ", ".join(map(str, settings)) or "none"
            raise InvalidValueError(f'No dimension "{over}" of a sweep: the Dataset has {has}')


def _deviation(data: Any, over: str) -> Any:
    """The standard deviation of the members that are there; 0 of a single one."""
    squares = ((data - data.mean(over)) ** 2).sum(over, min_count=1)
    return (squares / (data.count(over) - 1).clip(min=1)) ** 0.5


def _spread_of(variable: Any, over: str) -> dict[str, Any]:
    name = variable.attrs.get("long_name", variable.name)
    return {**variable.attrs, "long_name": f"standard deviation over {over}: {name}"}


def _name(variable: Any) -> str:
    """For an axis, such as "energy" of the long name "energy, the mean of (u² + v²)/2"."""
    if variable.name in LABELS:
        return LABELS[variable.name]
    return str(variable.attrs.get("long_name", variable.name)).partition(",")[0]


def _axes(ax: Any) -> Any:
    pyplot = need("matplotlib.pyplot", "sweep", PURPOSE)
    if ax is not None:
        return ax
    _, made = pyplot.subplots(layout="constrained")
    return made


def _lines(values: Any, along: str, over: str | None) -> Iterator[tuple[str, Any]]:
    """Each combination of the settings besides ``over``, with its label."""
    names = [name for name in values.dims if name not in (along, over)]
    for places in itertools.product(*(range(values.sizes[name]) for name in names)):
        part = values.isel(dict(zip(names, places)))
        yield ", ".join(_label(str(name), part[name].item()) for name in names), part


def _label(name: str, value: Any) -> str:
    return str(value) if name == "run" else f"{SYMBOLS.get(name, name)} {shown(value)}"


def _draw(ax: Any, values: Any, along: str, over: str | None, style: dict[str, Any]) -> None:
    over = over if over in values.dims else None
    lines = list(_lines(values, along, over))
    scale = None
    if len(lines) > COLORS:
        scale = need("matplotlib", "sweep", PURPOSE).colormaps["viridis"]
    for n, (label, part) in enumerate(lines):
        chosen = {} if scale is None else {"color": scale(n / (len(lines) - 1))}
        mean = part if over is None else part.mean(over)
        (line,) = ax.plot(mean[along], mean, **{"label": label or None, **chosen, **style})
        if over is not None and part.sizes[over] > 1:
            _draw_spread(ax, part, mean, along, over, line.get_color())
    if len(lines) > 1:
        ax.legend(frameon=False, ncols=1 + len(lines) // 13, fontsize="small")


def _draw_spread(ax: Any, part: Any, mean: Any, along: str, over: str, color: Any) -> None:
    spread = _deviation(part, over)
    low = mean - spread
    if ax.get_yscale() == "log":  # The band ends at the smallest member instead of below zero.
        low = low.where(low > 0.0, part.min(over))
    ax.fill_between(
        mean[along], low, mean + spread, color=color, alpha=SPREAD_OPACITY, linewidth=0.0
    )


def _draw_slope(ax: Any, values: Any, slope: float) -> None:
    """A dashed line through the inertial range, above the spectra."""
    others = [name for name in values.dims if name != "wavenumber"]
    top = values.max(others) if others else values
    k = top["wavenumber"]
    peak = float(k[int(top.fillna(0.0).argmax("wavenumber"))])
    low, high = 2.0 * peak, min(12.0 * peak, float(k[-1]) / 2.0)
    if high < 1.5 * low:
        return
    height = 3.0 * float(top.sel(wavenumber=low, method="nearest"))
    ends = [low, high]
    ax.plot(ends, [height * (one / low) ** slope for one in ends], "--", color="0.5", linewidth=1.0)
    middle = (low * high) ** 0.5
    ax.annotate(
        f"$k^{{{slope:g}}}$", (middle, 1.2 * height * (middle / low) ** slope), color="0.4"
    )
