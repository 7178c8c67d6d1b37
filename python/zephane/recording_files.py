"""Where the samples of a recording go: into memory, or row by row into a NetCDF or Zarr file.

A file is written under a temporary name beside its own and gets its name at the end.
"""

from __future__ import annotations

import contextlib
import math
import os
import shutil
import tempfile
from collections.abc import Iterator, Mapping
from dataclasses import dataclass
from pathlib import Path
from typing import Any, Protocol, Union

from .errors import InvalidValueError, ZephaneError
from .extras import need
from .outputs import PathLike, why_not_extended, why_not_writable

# The dimensions along which samples lie.
TIMES = ("time", "spectrum_time", "field_time")

NETCDF_ENDING = ".nc"
ZARR_ENDING = ".zarr"
PURPOSE = "Recording"

# Samples that are appended to a file at once, where they are no fields.
ROWS_AT_ONCE = 256

# Room for what a NetCDF file has beside its samples.
NETCDF_MARGIN = 1 << 16


@dataclass(frozen=True)
class Variable:
    """What a recording says of one of its variables."""

    dimensions: tuple[str, ...]
    dtype: str
    long_name: str
    units: str = "1"

    @property
    def attributes(self) -> dict[str, str]:
        return {"long_name": self.long_name, "units": self.units}


@dataclass(frozen=True)
class Table:
    """Variables that are sampled together, along a dimension of time."""

    time: str
    variables: Mapping[str, Variable]


    def row_bytes(self, lengths: Mapping[str, int]) -> int:
        """The size of a sample; ``lengths`` are those of the dimensions that do not grow."""
        return sum(
            int(one.dtype[1:]) * math.prod(lengths[name] for name in one.dimensions[1:])
            for one in self.variables.values()
        )


@dataclass(frozen=True)
class Layout:
    """All that a recording has besides its samples."""

    tables: tuple[Table, ...]
    coordinates: Mapping[str, tuple[Variable, Any]]
    """Those that do not change, with their values."""
    attributes: Mapping[str, Any]


class _Pending:
    """Samples on their way to a file."""

    def __init__(self, layout: Layout) -> None:
        self._rows: dict[str, list[Mapping[str, Any]]] = {one.time: [] for one in layout.tables}

    def add(self, table: Table, row: Mapping[str, Any]) -> bool:
        """Whether it is time to write the samples of this table."""
        rows = self._rows[table.time]
        rows.append(row)
        has_fields = any(len(one.dimensions) > 2 for one in table.variables.values())
        return has_fields or len(rows) >= ROWS_AT_ONCE

    def take(self, table: Table) -> list[Mapping[str, Any]]:
        rows, self._rows[table.time] = self._rows[table.time], []
        return rows


class MemoryRows:
    """Keeps the samples, and makes a Dataset of them."""

    def __init__(self, layout: Layout) -> None:
        self._layout = layout
        self._rows: dict[str, list[Mapping[str, Any]]] = {one.time: [] for one in layout.tables}

    def append(self, table: Table, row: Mapping[str, Any]) -> None:
        self._rows[table.time].append(row)

    def finish(self) -> Any:
        xr, np = need("xarray", "data", PURPOSE), need("numpy", "data", PURPOSE)
        parts = [dataset_of(xr, np, self._layout, table, self._rows[table.time])
                 for table in self._layout.tables]  # fmt: skip
        return xr.merge(parts, combine_attrs="override")

    def discard(self) -> None:
        self._rows.clear()


def dataset_of(xr: Any, np: Any, layout: Layout, table: Table, rows: Any) -> Any:
    """The Dataset of some rows of one table."""
    variables = {}
    for name, variable in table.variables.items():
        shape = tuple(len(layout.coordinates[one][1]) for one in variable.dimensions[1:])
        values = np.empty((len(rows), *shape), variable.dtype)
        for place, row in enumerate(rows):
            values[place] = row[name]
        variables[name] = (variable.dimensions, values, variable.attributes)
    used = {one for variable in table.variables.values() for one in variable.dimensions}
    fixed = {
        name: (variable.dimensions, values, variable.attributes)
        for name, (variable, values) in layout.coordinates.items()
        if name in used
    }
    made = xr.Dataset({**variables, **fixed}, attrs=dict(layout.attributes))
    return made.set_coords([table.time, *fixed])


@contextlib.contextmanager
def _writing(path: str) -> Iterator[None]:
    """Turns the failures of the packages that write into a ``ZephaneError`` with the path."""
    try:
        yield
    except (OSError, RuntimeError, ValueError) as failure:
        reason = getattr(failure, "strerror", None) or str(failure)
        raise ZephaneError(f"Cannot write {path}: {reason}") from failure


class NetCDFRows:
    """Appends samples to a NetCDF file."""

    def __init__(self, path: str, layout: Layout) -> None:
        self._path = path
        netcdf = need("netCDF4", "data", PURPOSE)
        need("xarray", "data", PURPOSE)
        self._layout = layout
        self._pending = _Pending(layout)
        self._target = os.path.realpath(path)
        self._temporary = _temporary_name(self._target)
        self._file: Any = None
        self._lengths = {name: len(values) for name, (_, values) in layout.coordinates.items()}
        try:
            with _writing(path):
                self._file = netcdf.Dataset(self._temporary, "w", clobber=False)
                self._lay_out(layout)
        except BaseException:
            self.discard()
            raise

    def _lay_out(self, layout: Layout) -> None:
        self._file.setncatts(dict(layout.attributes))
        for name, (variable, values) in layout.coordinates.items():
            self._file.createDimension(name, len(values))
            self._add(name, variable)[:] = values
        for table in layout.tables:
            self._file.createDimension(table.time, None)
            for name, variable in table.variables.items():
                self._add(name, variable, layout)

    def _add(self, name: str, variable: Variable, layout: Layout | None = None) -> Any:
        chunks = None
        if layout is not None and len(variable.dimensions) > 1:
            # One sample; the default is a part of several.
            fixed = [len(layout.coordinates[one][1]) for one in variable.dimensions[1:]]
            chunks = (1, *fixed)
        made = self._file.createVariable(
            name, variable.dtype, variable.dimensions, chunksizes=chunks, fill_value=False
        )
        made.setncatts(variable.attributes)
        return made

    def append(self, table: Table, row: Mapping[str, Any]) -> None:
        if self._pending.add(table, row):
            self._flush(table)

    def _flush(self, table: Table) -> None:
        rows = self._pending.take(table)
        # After a write that fails, HDF5 may crash at the end of the process.
        more = NETCDF_MARGIN + len(rows) * table.row_bytes(self._lengths)
        reason = why_not_extended(self._temporary, more)
        if reason is not None:
            raise ZephaneError(f"Cannot write {self._path}: {reason}")
        begin = len(self._file.dimensions[table.time])
        with _writing(self._path):
            for name in table.variables:
                self._file.variables[name][begin : begin + len(rows)] = [row[name] for row in rows]
            self._file.sync()  # So that the room that is left is known.

    def finish(self) -> Any:
        for table in self._layout.tables:
            self._flush(table)
        with _writing(self._path):
            self._file.close()
            os.replace(self._temporary, self._target)
        return need("xarray", "data", PURPOSE).open_dataset(self._target, engine="netcdf4")

    def discard(self) -> None:
        if self._file is not None and self._file.isopen():
            with contextlib.suppress(OSError, RuntimeError):
                self._file.close()
        Path(self._temporary).unlink(missing_ok=True)


class ZarrRows:
    """Appends samples to a Zarr store, a number of rows at once."""

    def __init__(self, path: str, layout: Layout) -> None:
        self._xr = need("xarray", "data", PURPOSE)
        need("zarr", "data", PURPOSE)
        self._np = need("numpy", "data", PURPOSE)
        self._layout = layout
        self._path = path
        self._target = os.path.realpath(path)
        self._temporary = _temporary_name(self._target)
        self._pending = _Pending(layout)
        self._begun: set[str] = set()
        try:
            for table in layout.tables:
                self._flush(table)
        except BaseException:
            self.discard()
            raise

    def append(self, table: Table, row: Mapping[str, Any]) -> None:
        if self._pending.add(table, row):
            self._flush(table)

    def _flush(self, table: Table) -> None:
        with _writing(self._path):
            self._write(table, self._pending.take(table))

    def _write(self, table: Table, rows: list[Mapping[str, Any]]) -> None:
        part = dataset_of(self._xr, self._np, self._layout, table, rows)
        if table.time in self._begun:
            if rows:
                fixed = [name for name in part.variables if table.time not in part[name].dims]
                part.drop_vars(fixed).to_zarr(self._temporary, append_dim=table.time)
        else:
            variables = table.variables.items()
            encoding = {name: {"chunks": self._chunks(one)} for name, one in variables}
            part.to_zarr(self._temporary, mode="a", encoding=encoding)
            self._begun.add(table.time)

    def _chunks(self, variable: Variable) -> tuple[int, ...]:
        fixed = [len(self._layout.coordinates[one][1]) for one in variable.dimensions[1:]]
        return (1 if len(fixed) > 1 else ROWS_AT_ONCE, *fixed)

    def finish(self) -> Any:
        for table in self._layout.tables:
            self._flush(table)
        with _writing(self._path):
            self._put_in_place()
        return self._xr.open_zarr(self._target, consolidated=False)

    def _put_in_place(self) -> None:
        _replace_store(self._temporary, self._target)

    def discard(self) -> None:
        shutil.rmtree(self._temporary, ignore_errors=True)


class Appending(Protocol):
    """What a run gives its samples to."""

    def append(self, table: Table, row: Mapping[str, Any]) -> None: ...


Rows = Union[MemoryRows, NetCDFRows, ZarrRows]


def rows_for(path: PathLike | None, layout: Layout, size: int) -> Rows:
    """Memory, or the kind of file that the ending of its name asks for, with room for its bytes."""
    if path is None:
        return MemoryRows(layout)
    text = os.fspath(path)
    check_recording(text, size)
    return NetCDFRows(text, layout) if is_netcdf(text) else ZarrRows(text, layout)


def check_recording(path: str, size: int = 0) -> None:
    """Refuse a path where no recording of so many bytes can be written."""
    reason = why_not_writable(path, size) if is_netcdf(path) else _why_no_folder(path)
    if reason is not None:
        raise ZephaneError(f"Cannot write {path}: {reason}")
    if not is_netcdf(path) and os.path.exists(path) and not _is_zarr(path):
        raise InvalidValueError(f"{path} exists and is no Zarr store: nothing is replaced")


def is_netcdf(path: str) -> bool:
    """Whether a recording is to be a NetCDF file, not a Zarr store."""
    ending = Path(path).suffix.lower()
    if ending not in (NETCDF_ENDING, ZARR_ENDING):
        shown = f"ends in {ending}" if ending else "has no ending"
        raise InvalidValueError(
            f"{path} {shown}: a recording is a NetCDF file, {NETCDF_ENDING}, or a Zarr store, "
            f"{ZARR_ENDING}"
        )
    return ending == NETCDF_ENDING


def write_dataset(dataset: Any, path: str) -> None:
    """Write a whole Dataset to a NetCDF file or a Zarr store. It is whole or not there."""
    check_recording(path, 0)
    target = os.path.realpath(path)
    temporary = _temporary_name(target)
    # How the files were laid out that it was read from does not suit it.
    plain = dataset.copy()
    for variable in plain.variables.values():
        variable.encoding = {}
    try:
        with _writing(path):
            if is_netcdf(path):
                plain.to_netcdf(temporary, engine="netcdf4")
                os.replace(temporary, target)
            else:
                plain.to_zarr(temporary)
                _replace_store(temporary, target)
    finally:
        shutil.rmtree(temporary, ignore_errors=True)
        with contextlib.suppress(OSError):
            os.unlink(temporary)


def _replace_store(temporary: str, target: str) -> None:
    if not os.path.exists(target):
        os.rename(temporary, target)
        return
    old = _temporary_name(target)
    os.rename(target, old)
    os.rename(temporary, target)
    shutil.rmtree(old)


def _temporary_name(target: str) -> str:
    """A new name in the folder of the target."""
    folder, name = os.path.split(target)
    made = tempfile.mkdtemp(prefix=".zephane-", suffix=Path(name).suffix, dir=folder)
    os.rmdir(made)
    return made


def _why_no_folder(path: str) -> str | None:
    folder = os.path.dirname(os.path.realpath(path))
    try:
        with tempfile.TemporaryDirectory(dir=folder):
            return None
    except OSError as failure:
        return failure.strerror or str(failure)


def _is_zarr(path: str) -> bool:
    return any(os.path.exists(os.path.join(path, name)) for name in (".zgroup", "zarr.json"))
