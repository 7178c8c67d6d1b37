"""Sweeps: the product of lists of settings, each member a recorded run, as one xarray Dataset."""

from __future__ import annotations

import dataclasses
import itertools
import os
import tempfile
import warnings
from collections.abc import Iterable, Mapping, Sequence
from typing import Any

from ._library import LibraryPath, load
from .accessor import register_accessor
from .errors import InvalidValueError, ZephaneError
from .extras import need
from .members import Member
from .outputs import PathLike
from .recording import checked_intervals
from .records import Config
from .refusals import (
    check_memory,
    checked_config,
    checked_seconds,
    checked_until,
    checked_whole,
    shown,
    warn_of_config,
)
from .suiting import ZephaneWarning
from .sweep_cluster import connected, run_on
from .sweep_data import combined, failures_of
from .sweep_local import run_here
from .sweep_progress import Board

PURPOSE = "A sweep"

# Seconds of computing between two checkpoints of a member.
CHECKPOINT_SECONDS = 60.0


@dataclasses.dataclass(frozen=True)
class Plan:
    """The members of a sweep, in the order of the product."""

    dimensions: Mapping[str, Sequence[Any]]
    """The lists, each by the member of ``Config`` that it sets."""
    members: Sequence[Member]

    def label(self, place: int) -> str:
        """The settings of a member that others do not share."""
        values = list(itertools.product(*self.dimensions.values()))[place]
        return ", ".join(f"{key} {shown(value)}" for key, value in zip(self.dimensions, values))


def sweep(
    *,
    until: float,
    every: float,
    fields_every: float | None = None,
    spectra_every: float | None = None,
    velocity: bool = False,
    path: PathLike | None = None,
    jobs: int | None = None,
    client: Any = None,
    scheduler: str | None = None,
    checkpoint_seconds: float = CHECKPOINT_SECONDS,
    progress: bool | None = None,
    library: LibraryPath | None = None,
    **settings: Any,
) -> Any:
    """Record a flow for each combination of settings, and return all as one xarray Dataset.

    ``settings`` are members of ``Config``. Each that is a list, a range or an array is a dimension
    of the Dataset: ``sweep(seed=range(8), reynolds=[1000, 2000], resolution=512, ...)`` records 16
    flows, the members of the sweep. ``until``, ``every``, ``spectra_every``, ``fields_every`` and
    ``velocity`` are those of ``record``.

    The members run side by side: one process for each GPU, or as many as the processors and the
    memory allow, each on its share of the processors; ``jobs`` limits them. With ``client``, a
    ``dask.distributed.Client``, or the address of its ``scheduler``, they run on a cluster instead,
    whose workers need ``zephane`` and the folder ``path`` under the same name.

    ``path`` is a folder that keeps a NetCDF file for each member: what is there already is not
    computed again, and a member that was broken off goes on from its last checkpoint, with the same
    bits. A checkpoint is saved each ``checkpoint_seconds`` of computing. Without ``path``
    everything is in memory, and lost if the call ends early.

    A member that blows up does not stop the others. Its samples end there, its ``failed_at`` is the
    time, and a ``ZephaneWarning`` says so. If members cannot be computed for another reason,
    ``ZephaneError`` is raised when all others are complete.

    ``progress`` shows a line for the whole sweep on standard error: by default on a terminal.

    Needs xarray and netCDF4, ``pip install 'zephane[data]'``, and on a cluster dask.distributed,
    ``pip install 'zephane[sweep]'``.
    """
    intervals = {"every": every, "spectra_every": spectra_every, "fields_every": fields_every}
    plan = plan_for(settings, until, intervals, velocity)
    need("xarray", "data", PURPOSE)
    need("netCDF4", "data", PURPOSE)
    register_accessor()
    count = None if jobs is None else checked_whole("jobs", jobs, 1)
    seconds = checked_seconds("checkpoint_seconds", checkpoint_seconds)
    for member in plan.members:
        warn_of_config(member.config)
    with connected(client, scheduler) as cluster:
        if cluster is not None and path is None:
            raise InvalidValueError(
                "path is missing: on a cluster, the folder where all workers keep the members"
            )
        if cluster is None:
            total = load(library).description()["gpu_memory_bytes"]
            for member in plan.members:
                check_memory(member.config, total)
        if path is not None:
            folder = os.path.abspath(path)
            _make_folder(folder)
            _compute(plan, folder, seconds, count, cluster, library, progress)
            return _result(plan, folder, is_kept=True)
        with tempfile.TemporaryDirectory(prefix="zephane-") as folder:
            _compute(plan, folder, seconds, count, cluster, library, progress)
            return _result(plan, folder, is_kept=False)


def plan_for(
    settings: Mapping[str, Any], until: Any, intervals: Mapping[str, Any], velocity: bool
) -> Plan:
    """The members of a sweep; ``InvalidValueError`` if a value is refused."""
    names: dict[str, Any] = dict.fromkeys(settings)
    Config(**names)  # Raises TypeError for unknown ones.
    dimensions = {key: _values(key, value) for key, value in settings.items() if _is_list(value)}
    fixed = {
        key: value
        for key, value in settings.items()
        if key not in dimensions and (value is not None or key == "fixed_dt")
    }
    end, checked = checked_until(until), checked_intervals(intervals)
    if "fields_every" in checked and len(dimensions.get("resolution", ())) > 1:
        raise InvalidValueError("fields_every with several resolutions: their points differ")
    members = []
    for values in itertools.product(*dimensions.values()):
        changes = {**fixed, **dict(zip(dimensions, values))}
        config = checked_config(Config().changed(**changes))
        members.append(Member(config, end, checked, bool(velocity)))
    # As checked: a seed that was a text, or a NumPy number, is a plain one.
    strides = [_stride(dimensions, key) for key in dimensions]
    plain = {
        key: [getattr(members[n * stride].config, key) for n in range(len(values))]
        for (key, values), stride in zip(dimensions.items(), strides)
    }
    for key, values in plain.items():
        for value in values:
            if values.count(value) > 1:
                raise InvalidValueError(f"{key} {shown(value)} is listed twice")
    return Plan(plain, members)


def _stride(dimensions: Mapping[str, Sequence[Any]], key: str) -> int:
    """How many members lie between one value of a dimension and the next."""
    later = list(dimensions)[list(dimensions).index(key) + 1 :]
    stride = 1
    for name in later:
        stride *= len(dimensions[name])
    return stride


def _is_list(value: Any) -> bool:
    """Whether a setting is a dimension. A NumPy number has no length."""
    return isinstance(value, Iterable) and not isinstance(value, (str, bytes)) and _has_items(value)


def _has_items(value: Any) -> bool:
    return getattr(value, "shape", None) != ()


def _values(key: str, value: Any) -> list[Any]:
    values = list(value)
    if not values:
        raise InvalidValueError(f"{key} is an empty list")
    if key != "fixed_dt" and None in values:
        raise InvalidValueError(f"{key} None is in a list: name the value")
    return values


def _labelled(label: str, text: str) -> str:
    return f"{label}: {text}" if label else text


def _make_folder(folder: str) -> None:
    try:
        os.makedirs(folder, exist_ok=True)
    except OSError as failure:
        raise ZephaneError(f"Cannot write {folder}: {failure.strerror}") from failure


def _compute(
    plan: Plan,
    folder: str,
    seconds: float,
    jobs: int | None,
    cluster: Any,
    library: LibraryPath | None,
    progress: bool | None,
) -> None:
    """Compute the members that are not there."""
    all_members = dict(enumerate(plan.members))
    missing = {n: one for n, one in all_members.items() if not one.path(folder).exists()}
    if not missing:
        return
    there = len(all_members) - len(missing)
    board = Board(len(all_members), there, plan.members[0].until, progress)
    try:
        if cluster is None:
            run_here(missing, folder, seconds, jobs, board)
        else:
            run_on(cluster, missing, folder, seconds, library, board)
    finally:
        board.close()
    for place, text in sorted(board.warnings.items()):
        warnings.warn(_labelled(plan.label(place), text), ZephaneWarning, stacklevel=4)
    if board.errors:
        told = [_labelled(plan.label(n), text) for n, text in sorted(board.errors.items())]
        raise ZephaneError(
            f"{len(told)} of {len(all_members)} members could not be computed. " + "; ".join(told)
        )


def _result(plan: Plan, folder: str, is_kept: bool) -> Any:
    paths = [str(member.path(folder)) for member in plan.members]
    made = combined(paths, plan.dimensions, is_kept)
    for failure in failures_of(made, plan.dimensions):
        warnings.warn(str(failure), ZephaneWarning, stacklevel=3)
    return made
