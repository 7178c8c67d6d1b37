"""Several recordings or sweeps as one Dataset, to compare and plot them."""

from __future__ import annotations

import os
from collections.abc import Mapping
from typing import Any

from .accessor import register_accessor
from .errors import InvalidValueError, ZephaneError
from .extras import need
from .recording_files import TIMES, is_netcdf

PURPOSE = "A comparison"

# Times that differ by less, relative to the last one, are the same.
TOLERANCE = 1e-9


def compare(recordings: Mapping[str, Any] | None = None, **named: Any) -> Any:
    """Put recordings beside each other, as one xarray Dataset along a dimension ``run``.

    Each is a Dataset of ``record`` or ``sweep``, or the path of its file, under a name of your own:
    ``compare(coarse=ds, fine="fine.nc")``, or a dictionary for names with spaces.

    Series and spectra with the same times stay as they are. Others are interpolated linearly onto
    those times of the first recording that all of them cover. Fields are kept if all have the same
    points and times, and left out otherwise. Dimensions of a sweep are joined; what one of the
    recordings lacks is missing there. Raises ``InvalidValueError`` if the recordings have no times
    in common.
    """
    xr = need("xarray", "data", PURPOSE)
    register_accessor()
    given = {**(recordings or {}), **named}
    if not given:
        raise InvalidValueError("There is nothing to compare: give recordings by their names")
    parts = [_opened(xr, name, value) for name, value in given.items()]
    if not _share_fields(parts):
        parts = [part.drop_dims(["field_time", "x", "y"], errors="ignore") for part in parts]
    for name in TIMES:
        parts = _on_common_times(parts, name)
    made = xr.concat(
        parts, "run", join="outer", combine_attrs="drop_conflicts", data_vars="all",
        coords="minimal", compat="override",
    )  # fmt: skip
    made = made.assign_coords(run=("run", list(given), {"long_name": "recording"}))
    made.attrs["history"] = f"{len(parts)} recordings combined by zephane.compare"
    return made


def _opened(xr: Any, name: str, value: Any) -> Any:
    if isinstance(value, (str, os.PathLike)):
        path = os.fspath(value)
        kind = "netcdf4" if is_netcdf(path) else "zarr"
        try:
            value = xr.open_dataset(path, engine=kind)
        except (OSError, ValueError) as failure:
            raise ZephaneError(f"Cannot read {path}: {failure}") from failure
    if not isinstance(value, xr.Dataset) or "time" not in value.dims:
        raise InvalidValueError(f"{name} is no recording: a Dataset with times, or its file")
    # Settings by which a member was selected are no dimensions, and differ.
    return value.drop_vars([key for key, one in value.coords.items() if not one.dims])


def _share_fields(parts: list[Any]) -> bool:
    first = parts[0]
    if any("field_time" not in part.dims for part in parts):
        return False
    return all(
        part.sizes[name] == first.sizes[name]
        and (name != "field_time" or _are_same(part[name], first[name]))
        for part in parts
        for name in ("x", "y", "field_time")
    )


def _are_same(one: Any, other: Any) -> bool:
    if one.size != other.size:
        return False
    scale = float(abs(other).max()) or 1.0
    return bool((abs(one.values - other.values) <= TOLERANCE * scale).all())


def _on_common_times(parts: list[Any], name: str) -> list[Any]:
    """The parts with the same times in one dimension; without it, where one of them lacks it."""
    if any(name not in part.dims for part in parts):
        return [part.drop_dims(name, errors="ignore") for part in parts]
    first = parts[0][name]
    if all(_are_same(part[name], first) for part in parts):
        return [part.assign_coords({name: first}) for part in parts]
    low = max(float(part[name].min()) for part in parts)
    high = min(float(part[name].max()) for part in parts)
    margin = TOLERANCE * (abs(high) or 1.0)
    wanted = first[(first >= low - margin) & (first <= high + margin)]
    if not wanted.size:
        raise InvalidValueError(f"The recordings share no {name} of the first one")
    return [_interpolated(part, name, wanted) for part in parts]


def _interpolated(part: Any, name: str, wanted: Any) -> Any:
    """A part at other times, which it covers up to rounding."""
    with_time = [key for key in part.data_vars if name in part[key].dims]
    rest = part.drop_dims(name)
    within = wanted.clip(float(part[name].min()), float(part[name].max()), keep_attrs=True)
    moved = part[with_time]
    if part.sizes[name] > 1:
        moved = moved.interp({name: within.values})
    moved = moved.assign_coords({name: wanted})
    return rest.merge(moved, combine_attrs="override", compat="override")
