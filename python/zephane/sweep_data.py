"""The Dataset of a sweep, made of the files of its members."""

from __future__ import annotations

import importlib.util
import itertools
import math
from collections.abc import Iterator, Mapping, Sequence
from dataclasses import dataclass
from typing import Any

from .extras import need
from .members import FAILED_AT, FAILURE
from .recording_files import TIMES
from .refusals import shown

PURPOSE = "A sweep"

LONG_NAMES = {
    "resolution": "grid points per side",
    "k0": "peak wavenumber of the start spectrum",
    "seed": "seed of the start field",
    "reynolds": "Reynolds number",
    "cfl": "Courant number",
    "fixed_dt": "fixed time step; missing where it is adaptive",
    "integrator": "integrator",
    "operator": "form of the nonlinear term",
    "start_spectrum": "start spectrum",
}


@dataclass(frozen=True)
class Failure:
    """A member that blew up."""

    label: str
    time: float

    def __str__(self) -> str:
        name = f"{self.label}: the" if self.label else "The"
        return f"{name} flow blew up at time {self.time:.6g}; its samples end there."


def combined(paths: Sequence[str], dimensions: Mapping[str, Sequence[Any]], is_kept: bool) -> Any:
    """One Dataset of the files, which are in the order of the product of the dimensions.

    Where dask is installed and the files stay, fields are read when they are used.
    """
    xr = need("xarray", "data", PURPOSE)
    parts = [_opened(xr, path, is_kept) for path in paths]
    times = {name: _longest(parts, name) for name in TIMES if name in parts[0].dims}
    # A Reynolds number that is a dimension needs no series besides.
    parts = [_ready(part, times).drop_vars(list(dimensions), errors="ignore") for part in parts]
    made = _stacked(xr, parts, [len(values) for values in dimensions.values()], list(dimensions))
    made = made.assign_coords({key: _coordinate(key, values) for key, values in dimensions.items()})
    for key in (*dimensions, FAILURE, FAILED_AT):
        made.attrs.pop(key, None)
    made.attrs["history"] = f"{len(parts)} recordings combined by zephane.sweep"
    return made


def _opened(xr: Any, path: str, is_kept: bool) -> Any:
    if is_kept and importlib.util.find_spec("dask") is not None:
        part = xr.open_dataset(path, engine="netcdf4", chunks={})
        # Only fields are large.
        small = [name for name in part.variables if "field_time" not in part[name].dims]
        return part.assign({name: part[name].load() for name in small if name in part.data_vars})
    with xr.open_dataset(path, engine="netcdf4") as part:
        return part.load()


def _longest(parts: Sequence[Any], name: str) -> Any:
    return max((part[name] for part in parts), key=len)


def _ready(part: Any, times: Mapping[str, Any]) -> Any:
    """With the times of the sweep: those of members may differ in their last bits."""
    for name, all_times in times.items():
        # The last sample of a member that blew up is always one of those that all have.
        part = part.assign_coords({name: all_times[: part.sizes[name]]})
    failed_at = part.attrs.get(FAILED_AT, math.nan)
    attributes = {
        "long_name": "time of the flow at which it blew up; missing where it did not",
        "units": "1",
    }
    return part.assign({FAILED_AT: ((), failed_at, attributes)})


def _stacked(xr: Any, parts: Sequence[Any], lengths: Sequence[int], names: Sequence[str]) -> Any:
    """The parts along all dimensions; the last one varies fastest."""
    made = list(parts)
    for length, name in reversed(list(zip(lengths, names))):
        groups = [made[n : n + length] for n in range(0, len(made), length)]
        made = [
            xr.concat(
                group, name, join="outer", combine_attrs="drop_conflicts", coords="minimal",
                compat="override", data_vars="all",
            )
            for group in groups
        ]  # fmt: skip
    return made[0]


def _coordinate(key: str, values: Sequence[Any]) -> Any:
    np = need("numpy", "data", PURPOSE)
    if key == "seed":
        data = np.array(values, "u8" if max(values) >= 2**63 else "i8")
    elif key == "fixed_dt":
        data = np.array([math.nan if value is None else value for value in values], "f8")
    else:
        data = np.array(values)
    attributes = {"long_name": LONG_NAMES[key]}
    if data.dtype.kind != "U":
        attributes["units"] = "1"
    return ((key,), data, attributes)


def failures_of(made: Any, dimensions: Mapping[str, Sequence[Any]]) -> Iterator[Failure]:
    """The members of a sweep that blew up."""
    times = made[FAILED_AT].values.ravel()
    for values, time in zip(itertools.product(*dimensions.values()), times):
        if not math.isnan(time):
            named = (f"{key} {shown(value)}" for key, value in zip(dimensions, values))
            yield Failure(", ".join(named), float(time))
