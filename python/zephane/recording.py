"""Recording a flow: figures, spectra, fluxes and fields at chosen times, as one xarray Dataset."""

from __future__ import annotations

import dataclasses
import math
from collections.abc import Callable, Mapping
from datetime import datetime, timezone
from typing import Any

from ._version import read_version
from .accessor import register_accessor
from .engine import Engine
from .errors import FlowFailedError, InvalidValueError
from .extras import need
from .outputs import PathLike
from .pacing import has_reached
from .records import Clock
from .recording_files import PURPOSE, Appending, Layout, Rows, Table, Variable, rows_for
from .refusals import checked_name, checked_single, checked_steps, checked_until, checked_whole
from .transfers import shell_spectra, spectral_fluxes

MEETINGS = ("time", "steps")

TIME = "time of the flow"

SERIES = Table(
    "time",
    {
        "time": Variable(("time",), "f8", TIME),
        "steps": Variable(("time",), "i8", "steps taken since time 0"),
        "energy": Variable(("time",), "f8", "energy, the mean of (u² + v²)/2"),
        "enstrophy": Variable(("time",), "f8", "enstrophy, the mean of ω²/2"),
        "palinstrophy": Variable(("time",), "f8", "palinstrophy, the mean of |∇ω|²/2"),
        "dt": Variable(("time",), "f8", "last time step"),
        "reynolds": Variable(("time",), "f8", "Reynolds number in force"),
        "max_speed": Variable(("time",), "f8", "largest speed"),
        "max_vorticity": Variable(("time",), "f8", "largest magnitude of the vorticity"),
    },
)

SHELL = ("spectrum_time", "wavenumber")
SPECTRA = Table(
    "spectrum_time",
    {
        "spectrum_time": Variable(("spectrum_time",), "f8", TIME),
        "energy_spectrum": Variable(SHELL, "f8", "energy in the shell of a wavenumber"),
        "enstrophy_spectrum": Variable(SHELL, "f8", "enstrophy in the shell of a wavenumber"),
        "energy_flux": Variable(
            SHELL, "f8", "flux of energy through a wavenumber towards larger ones"
        ),
        "enstrophy_flux": Variable(
            SHELL, "f8", "flux of enstrophy through a wavenumber towards larger ones"
        ),
    },
)

POINT = ("field_time", "y", "x")
FIELD_TIME = {"field_time": Variable(("field_time",), "f8", TIME)}
VORTICITY = {"vorticity": Variable(POINT, "f4", "vorticity, ∂v/∂x - ∂u/∂y")}
VELOCITY = {
    "u": Variable(POINT, "f4", "velocity along x"),
    "v": Variable(POINT, "f4", "velocity along y"),
}


def record(
    engine: Engine,
    *,
    until: float | None = None,
    steps: int | None = None,
    every: float,
    fields_every: float | None = None,
    spectra_every: float | None = None,
    at: str = "time",
    velocity: bool = False,
    path: PathLike | None = None,
    progress: Callable[[Clock], object] | None = None,
) -> Any:
    """Run a flow, and return what it did as an xarray Dataset.

    The recording ends at the time ``until`` or after so many ``steps``, whichever comes first.
    From the present time of the flow on, and at the end, these are sampled:

    - each ``every``, along the dimension ``time``: ``energy``, ``enstrophy``, ``palinstrophy``,
      ``dt``, ``reynolds``, ``max_speed``, ``max_vorticity`` and ``steps``;
    - each ``spectra_every``, if given, along ``spectrum_time`` and ``wavenumber``:
      ``energy_spectrum``, ``enstrophy_spectrum``, ``energy_flux`` and ``enstrophy_flux``;
    - each ``fields_every``, if given, along ``field_time``, ``y`` and ``x``: ``vorticity``, with
      ``velocity=True`` also ``u`` and ``v``.

    The intervals are times of the flow, which are met exactly: the step before a sample is cut
    short. With ``at="steps"`` they count steps instead; no step is cut, and the flow has the same
    bits as one that nobody records.

    With ``path``, a file that ends in .nc (NetCDF) or a store that ends in .zarr, samples are
    written as they are taken, and the Dataset reads them when they are used. If the flow blows up,
    ``FlowFailedError`` is raised, and what has been recorded is kept there. ``progress`` is that of
    ``Engine.advance``, with the milliseconds of the device since the recording began: if it returns
    False, the recording ends.

    Recording needs xarray, and the packages of the file: ``pip install 'zephane[data]'``.
    """
    need("xarray", "data", PURPOSE)
    register_accessor()
    left = None if steps is None else checked_steps(steps)
    end = None if until is None else checked_until(until)
    if left is None and end is None:
        raise InvalidValueError("until and steps are missing: a recording needs an end")
    checked_name("at", at, MEETINGS)
    intervals = {"every": every, "spectra_every": spectra_every, "fields_every": fields_every}
    tables = Sampler(engine, velocity, checked_intervals(intervals, at), at)
    course = Course(at, left, end, progress)
    layout = tables.layout()
    rows = rows_for(path, layout, tables.size(layout, course.length(engine)))
    try:
        try:
            tables.start()
            run_course(engine, tables, rows, course)
        except FlowFailedError:
            if path is not None:
                rows.finish().close()
            raise
        return rows.finish()
    except BaseException:
        rows.discard()
        raise


def checked_intervals(intervals: Mapping[str, Any], at: str = "time") -> dict[str, float]:
    """Those intervals between samples that are not None."""
    return {
        key: _interval(key, value, at) for key, value in intervals.items() if value is not None
    }


def _interval(key: str, value: Any, at: str) -> float:
    if at == "time":
        return checked_single(key, value)
    return float(checked_whole(key, value, 1))


@dataclasses.dataclass
class Course:
    """What ends a recording."""

    at: str
    left: int | None
    end: float | None
    progress: Callable[[Clock], object] | None
    is_stopped: bool = False
    milliseconds: float = 0.0
    """What the device took for the advances that are finished."""

    def length(self, engine: Engine) -> float:
        """Between the beginning and the end, in the unit of the intervals; 0 if it is unknown."""
        if self.at == "steps":
            return float(self.left or 0)
        now = engine.advance(steps=0, fresh=False).simulation_time
        return 0.0 if self.end is None else max(self.end - now, 0.0)

    def advance(self, engine: Engine, left: int | None, end: float | None) -> Clock:
        now = engine.advance(left, end, fresh=False, progress=self._show)
        self.milliseconds += now.gpu_milliseconds
        return now

    def _show(self, now: Clock) -> bool:
        """Show the clock with the milliseconds of the whole recording, not of this advance."""
        total = self.milliseconds + now.gpu_milliseconds
        shown = dataclasses.replace(now, gpu_milliseconds=total)
        if self.progress is not None and self.progress(shown) is False:
            self.is_stopped = True
        return not self.is_stopped


def run_course(engine: Engine, tables: Sampler, rows: Appending, course: Course) -> None:
    """Run a flow to the end of its course, with all samples that are due on the way."""
    now = engine.advance(steps=0, fresh=False)
    begin = now
    while True:
        position = float(now.steps - begin.steps) if course.at == "steps" else now.simulation_time
        tables.sample(position, rows)
        done = now.steps - begin.steps
        is_over = course.left is not None and done >= course.left
        if is_over or course.is_stopped or has_reached(now.simulation_time, course.end):
            break
        now = _advance(engine, tables.next(), position, done, course)
    tables.sample_end(now, rows)


def _advance(engine: Engine, due: float, position: float, done: int, course: Course) -> Clock:
    """Run to the next sample, or to the end of the recording."""
    end, left = course.end, None if course.left is None else course.left - done
    if course.at == "time":
        end = due if end is None else min(due, end)
    else:
        left = int(due - position) if left is None else min(int(due - position), left)
    return course.advance(engine, left, end)


class Sampler:
    """The tables of a recording, and when the next sample of each is due."""

    def __init__(
        self, engine: Engine, velocity: bool, intervals: dict[str, float], at: str = "time"
    ) -> None:
        self._engine = engine
        self._at = at
        self._velocity = velocity
        fields = Table("field_time", {**FIELD_TIME, **VORTICITY, **(VELOCITY if velocity else {})})
        known = {"every": SERIES, "spectra_every": SPECTRA, "fields_every": fields}
        self._tables = {key: known[key] for key in intervals}
        self._intervals = intervals
        self._counts = dict.fromkeys(intervals, 0)
        self._begin = 0.0
        self._last_steps = -1

    def layout(self) -> Layout:
        np = need("numpy", "data", PURPOSE)
        size = self._engine.config.resolution
        coordinates = {}
        if "spectra_every" in self._tables:
            corner = math.floor(math.sqrt(2.0) * (size // 2) + 0.5)
            shells = Variable(("wavenumber",), "i8", "wavenumber, of a shell of width 1")
            coordinates["wavenumber"] = (shells, np.arange(corner + 1, dtype=np.int64))
        if "fields_every" in self._tables:
            for name in ("x", "y"):
                axis = Variable((name,), "f8", f"{name} on a periodic square of side 2π", "radian")
                coordinates[name] = (axis, np.arange(size) * (2.0 * math.pi / size))
        return Layout(tuple(self._tables.values()), coordinates, _attributes(self._engine))

    def size(self, layout: Layout, length: float) -> int:
        """The bytes of all samples of a recording of this length."""
        lengths = {name: len(values) for name, (_, values) in layout.coordinates.items()}
        return sum(
            (int(length / self._intervals[key]) + 1) * table.row_bytes(lengths)
            for key, table in self._tables.items()
        )

    def start(self) -> None:
        """Begin with samples of the flow as it is. Steps are counted from here."""
        if self._at == "time":
            self._begin = self._engine.advance(steps=0, fresh=False).simulation_time

    def save(self) -> dict[str, Any]:
        """What ``restore`` needs to go on with the same samples, for JSON."""
        return {"begin": self._begin, "counts": self._counts, "last_steps": self._last_steps}

    def restore(self, saved: Mapping[str, Any]) -> None:
        """Go on where another recording of the same flow was when it was saved."""
        self._begin = float(saved["begin"])
        self._counts = {key: int(saved["counts"][key]) for key in self._intervals}
        self._last_steps = int(saved["last_steps"])

    def next(self) -> float:
        """When the next sample of any table is due."""
        return min(self._due(key) for key in self._tables)

    def _due(self, key: str) -> float:
        return self._begin + self._counts[key] * self._intervals[key]

    def sample(self, position: float, rows: Appending) -> None:
        """Take the samples that are due, of the flow as it is."""
        due = [key for key in self._tables if has_reached(position, self._due(key))]
        for key in due:
            while has_reached(position, self._due(key)):
                self._counts[key] += 1
        if "fields_every" in due:
            self._sample_fields(rows)
        if "spectra_every" in due:
            self._sample_spectra(rows)
        if "every" in due:
            self._sample_series(rows)

    def sample_end(self, now: Clock, rows: Appending) -> None:
        if self._last_steps != now.steps:
            self._sample_series(rows)

    def _sample_series(self, rows: Appending) -> None:
        now = self._engine.inspect()
        snapshot = self._engine.export(snapshot=True)
        assert snapshot is not None
        self._last_steps = now.steps
        row = {
            **dataclasses.asdict(now),
            "time": now.simulation_time,
            "max_speed": snapshot.max_speed,
            "max_vorticity": snapshot.max_vorticity,
        }
        rows.append(SERIES, row)

    def _sample_spectra(self, rows: Appending) -> None:
        spectrum = self._engine.spectrum()
        energy, enstrophy = shell_spectra(spectrum)
        energy_flux, enstrophy_flux = spectral_fluxes(spectrum)
        row = {
            "spectrum_time": self._engine.advance(steps=0, fresh=False).simulation_time,
            "energy_spectrum": energy,
            "enstrophy_spectrum": enstrophy,
            "energy_flux": energy_flux,
            "enstrophy_flux": enstrophy_flux,
        }
        rows.append(SPECTRA, row)

    def _sample_fields(self, rows: Appending) -> None:
        fields = self._engine.fields(include_velocity=self._velocity)
        row = {"field_time": fields.snapshot.time, "vorticity": fields.vorticity}
        if self._velocity:
            row.update(u=fields.u, v=fields.v)
        rows.append(self._tables["fields_every"], row)


def _attributes(engine: Engine) -> dict[str, Any]:
    """The configuration and where the samples come from. Numbers of 64 bits are texts."""
    config = engine.config
    now = engine.advance(steps=0, fresh=False)
    system = engine.system
    moment = datetime.now(timezone.utc).strftime("%Y-%m-%dT%H:%M:%SZ")
    return {
        "Conventions": "CF-1.10",
        "title": "Two-dimensional decaying turbulence",
        "source": f"Zephane {read_version()}, {system.backend} on {system.gpu}",
        "history": f"{moment}: recorded by zephane.record from t = {now.simulation_time:g}",
        "resolution": config.resolution,
        "padded_resolution": config.padded_resolution,
        "k0": config.k0,
        "seed": str(config.seed),
        "reynolds": config.reynolds,
        "viscosity": config.viscosity,
        "cfl": config.cfl,
        "fixed_dt": "adaptive" if config.fixed_dt is None else config.fixed_dt,
        "integrator": config.integrator,
        "operator": config.operator,
        "start_spectrum": config.start_spectrum,
        "initial_turnover_time": now.initial_turnover_time,
    }
