"""One member of a sweep: a recorded run that goes on from its last checkpoint after a break.

A folder holds a NetCDF file for each member that is complete, and for each that runs another folder
with the parts of its recording, its last state, and ``checkpoint.json``, which names them.
"""

from __future__ import annotations

import contextlib
import dataclasses
import hashlib
import json
import os
import shutil
import threading
import time
import uuid
from collections.abc import Callable, Iterator, Mapping
from pathlib import Path
from typing import Any

from ._library import LibraryPath
from .engine import Engine
from .errors import FlowFailedError, ZephaneError
from .extras import need
from .recording import Course, Sampler, run_course
from .recording_files import PURPOSE, Layout, NetCDFRows, Table
from .records import Clock, Config

FAILURE = "failure"
FAILED_AT = "failed_at"

CHECKPOINT = "checkpoint.json"

# Samples that wait in memory for the next checkpoint take at most about so many bytes.
PENDING_BYTES = 1 << 28

# HDF5 serves one thread of a process at a time.
_writing_netcdf = threading.Lock()


class Stopped(Exception):
    """A member was asked to stop. It has a checkpoint."""


@dataclasses.dataclass(frozen=True)
class Member:
    """What a recorded run is made of: its result depends on nothing else."""

    config: Config
    until: float
    intervals: Mapping[str, float]
    """``every``, and ``spectra_every`` and ``fields_every`` where they are wanted."""
    velocity: bool = False

    @property
    def name(self) -> str:
        """A file name without ending: equal for equal members, different for all others."""
        digest = hashlib.sha256(json.dumps(self.to_json(), sort_keys=True).encode()).hexdigest()
        config = self.config
        return f"N{config.resolution}-Re{config.reynolds:g}-seed{config.seed}-{digest[:12]}"

    def path(self, folder: str) -> Path:
        """Of its recording, once it is complete."""
        return Path(folder) / f"{self.name}.nc"

    def to_json(self) -> dict[str, Any]:
        return {
            "config": self.config.to_json(),
            "until": self.until,
            "intervals": dict(self.intervals),
            "velocity": self.velocity,
        }

    @classmethod
    def from_json(cls, values: Mapping[str, Any]) -> Member:
        config = Config.from_json(values["config"])
        return cls(config, values["until"], values["intervals"], values["velocity"])


def run_member(
    member: Member,
    folder: str,
    *,
    checkpoint_seconds: float,
    library: LibraryPath | None = None,
    progress: Callable[[Clock], object] | None = None,
) -> None:
    """Compute a member and write its file, unless it is there already.

    Each ``checkpoint_seconds``, and where ``progress`` returns False, a checkpoint is saved; in the
    latter case ``Stopped`` is raised. A member that blows up is complete with what was recorded.
    """
    if member.path(folder).exists():
        return
    need("xarray", "data", PURPOSE)
    parts = _Parts(member, folder)
    engine, saved = _engine(member, parts, library)
    with engine:
        sampler = Sampler(engine, member.velocity, dict(member.intervals))
        layout = sampler.layout()
        if saved is None:
            sampler.start()
        else:
            sampler.restore(saved["sampler"])
            now = engine.advance(steps=0, fresh=False)
            resumed = f"went on from a checkpoint at t = {now.simulation_time:g}"
            layout = _with(layout, history=f"{saved['history']}\n{resumed}")
        checkpoints = _Checkpoints(engine, sampler, parts, layout, checkpoint_seconds, progress)
        course = Course("time", None, member.until, checkpoints.update)
        try:
            run_course(engine, sampler, parts, course)
        except FlowFailedError as failure:
            failed_at = checkpoints.time if failure.time is None else failure.time
            layout = _with(layout, **{FAILURE: str(failure), FAILED_AT: failed_at})
    parts.finish(layout)


def _engine(
    member: Member, parts: _Parts, library: LibraryPath | None
) -> tuple[Engine, Mapping[str, Any] | None]:
    """The flow and its last checkpoint; at its start, and None, where there is no whole one."""
    saved = parts.load()
    if saved is not None:
        try:
            return Engine.load(parts.folder / saved["state"], library=library), saved
        except ZephaneError:
            parts.forget()
    return Engine(member.config, library=library), None


def _with(layout: Layout, **attributes: Any) -> Layout:
    return dataclasses.replace(layout, attributes={**layout.attributes, **attributes})


class _Checkpoints:
    """Saves a checkpoint from time to time, between two requests of a run."""

    def __init__(
        self,
        engine: Engine,
        sampler: Sampler,
        parts: _Parts,
        layout: Layout,
        seconds: float,
        progress: Callable[[Clock], object] | None,
    ) -> None:
        self._engine = engine
        self._sampler = sampler
        self._parts = parts
        self._layout = layout
        self._seconds = seconds
        self._progress = progress
        self._last = time.monotonic()
        self.time = 0.0
        """Of the flow, at the last report."""

    def update(self, now: Clock) -> None:
        self.time = now.simulation_time
        is_stopped = self._progress is not None and self._progress(now) is False
        is_due = time.monotonic() - self._last >= self._seconds
        if is_stopped or is_due or self._parts.pending_bytes >= PENDING_BYTES:
            history = self._layout.attributes["history"]
            self._parts.save(self._engine, self._sampler, history)
            self._last = time.monotonic()
        if is_stopped:
            raise Stopped


class _Parts:
    """The samples of a member that runs, those before its last checkpoint in files.

    All names are new ones. Where a cluster has given up a worker that still runs, it and the one
    that took over do not write to the same files.
    """

    def __init__(self, member: Member, folder: str) -> None:
        self._target = member.path(folder)
        self.folder = Path(folder) / f"{member.name}.part"
        self._names: list[str] = []
        self._rows: dict[str, list[Mapping[str, Any]]] = {}
        self.pending_bytes = 0

    def load(self) -> dict[str, Any] | None:
        """The last checkpoint, or None if there is no whole one."""
        try:
            saved: dict[str, Any] = json.loads((self.folder / CHECKPOINT).read_text("utf-8"))
        except (OSError, ValueError):
            return None
        files = [*saved["parts"], saved["state"]]
        if not all((self.folder / name).is_file() for name in files):
            return None
        self._names = list(saved["parts"])
        return saved

    def append(self, table: Table, row: Mapping[str, Any]) -> None:
        np = need("numpy", "data", PURPOSE)
        kept = {name: np.asarray(row[name]) for name in table.variables}
        self._rows.setdefault(table.time, []).append(kept)
        self.pending_bytes += sum(value.nbytes for value in kept.values())

    def forget(self) -> None:
        """Begin anew."""
        self._names.clear()

    def save(self, engine: Engine, sampler: Sampler, history: str) -> None:
        with _failing_to_write(self.folder):
            self.folder.mkdir(parents=True, exist_ok=True)
            before = self._state_in_force()
            mark = uuid.uuid4().hex
            if self._rows:
                self._save_rows(f"{mark}.npz")
            state = f"{mark}.state"
            engine.save(self.folder / state)
            saved = {
                "state": state,
                "parts": self._names,
                "sampler": sampler.save(),
                "history": history,
            }
            _write_whole(self.folder / CHECKPOINT, json.dumps(saved).encode())
            if before is not None:
                (self.folder / before).unlink(missing_ok=True)

    def _state_in_force(self) -> str | None:
        try:
            return str(json.loads((self.folder / CHECKPOINT).read_text("utf-8"))["state"])
        except (OSError, ValueError, KeyError):
            return None

    def _save_rows(self, name: str) -> None:
        np = need("numpy", "data", PURPOSE)
        arrays = {
            f"{time}/{key}": np.stack([row[key] for row in rows])
            for time, rows in self._rows.items()
            for key in rows[0]
        }
        path = self.folder / name
        with open(path, "xb") as file:
            np.savez(file, **arrays)
            file.flush()
            os.fsync(file.fileno())
        self._names.append(name)
        self._rows.clear()
        self.pending_bytes = 0

    def finish(self, layout: Layout) -> None:
        """Write the file of the member, and remove the parts."""
        with _failing_to_write(self.folder):
            self.folder.mkdir(parents=True, exist_ok=True)
        path = self.folder / f"{uuid.uuid4().hex}.nc"
        with _writing_netcdf:
            file = NetCDFRows(str(path), layout)
            try:
                for table in layout.tables:
                    for row in self._all_rows(table):
                        file.append(table, row)
                file.finish().close()
            except BaseException:
                file.discard()
                raise
        with _failing_to_write(self._target):
            os.replace(path, self._target)
        shutil.rmtree(self.folder, ignore_errors=True)

    def _all_rows(self, table: Table) -> Iterator[Mapping[str, Any]]:
        np = need("numpy", "data", PURPOSE)
        for name in self._names:
            with np.load(self.folder / name) as part:
                keys = [key for key in table.variables if f"{table.time}/{key}" in part]
                columns = {key: part[f"{table.time}/{key}"] for key in keys}
            for place in range(len(columns[table.time]) if columns else 0):
                yield {key: column[place] for key, column in columns.items()}
        yield from self._rows.get(table.time, ())


@contextlib.contextmanager
def _failing_to_write(path: Path) -> Iterator[None]:
    try:
        yield
    except OSError as failure:
        raise ZephaneError(f"Cannot write {path}: {failure.strerror or failure}") from failure


def _write_whole(path: Path, data: bytes) -> None:
    """Write a file that is whole or not there, and stays so if the machine stops."""
    temporary = path.with_name(f"{uuid.uuid4().hex}.tmp")
    try:
        with open(temporary, "xb") as file:
            file.write(data)
            file.flush()
            os.fsync(file.fileno())
        os.replace(temporary, path)
    except BaseException:
        temporary.unlink(missing_ok=True)
        raise
