"""What the library takes and tells, as frozen records: a configuration and the reports."""

from __future__ import annotations

import dataclasses
import math
import struct
from collections.abc import Mapping
from dataclasses import dataclass
from typing import Any, TypeVar, cast

INTEGRATORS = ("imexRK3", "ifHeunRK3", "etdrk4")
OPERATORS = ("stress", "advective")
START_SPECTRA = ("PAO", "KM3")

DISPLAYS = ("vorticity", "speed", "enstrophy")
PALETTES = ("aurora", "ember", "glacier", "inferno")
COLOR_RANGES = ("sigma", "exposure")

PIXEL_SIZES = range(1, 8193)
DEFAULT_PIXEL_SIZE = 1800
EXPOSURE_LIMITS = (0.25, 3.0)
SIGMA_LIMITS = (1.5, 3.5)

Record = TypeVar("Record")


def _pick(record: type[Record], values: Mapping[str, Any]) -> Record:
    """A record from the keys that it knows; newer libraries may tell more.

    JSON has no number that is not finite: the library writes null, which becomes a NaN.
    """
    # Annotations are kept as texts.
    types = {field.name: str(field.type) for field in dataclasses.fields(cast(Any, record))}
    return record(
        **{
            key: math.nan if value is None and types[key] == "float" else value
            for key, value in values.items()
            if key in types
        }
    )


def default_reynolds(resolution: int, k0: int) -> float:
    """A Reynolds number whose smallest eddies a grid of ``resolution`` just resolves."""
    exponent = 1.06624 * math.log10(resolution) - 0.083911 * math.log10(k0) + 1.286396
    return float(10.0**exponent)


@dataclass(frozen=True)
class PictureSettings:
    """The choice of picture: the members that ``Engine.export`` and ``View.set`` take.

    Names are checked when a record is made, so that a long run does not end at a wrong one. The
    library brings numbers out of range into it.
    """

    display: str = "vorticity"
    """One of ``DISPLAYS``."""
    palette: str = "ember"
    """One of ``PALETTES``."""
    color_range: str = "sigma"
    """One of ``COLOR_RANGES``; matters to the vorticity only."""
    exposure: float = 1.2
    """Gain of the compressive curves, 0.25 to 3."""
    sigma: float = 2.5
    """Multiple of the standard deviation that fills the "sigma" range, 1.5 to 3.5."""
    flow: bool = False
    """Whether flow lines are drawn over the picture."""

    def __post_init__(self) -> None:
        for key, names in (
            ("display", DISPLAYS),
            ("palette", PALETTES),
            ("color_range", COLOR_RANGES),
        ):
            if getattr(self, key) not in names:
                raise ValueError(f"Unknown {key}: {getattr(self, key)}")
        for key in ("exposure", "sigma"):
            if not math.isfinite(getattr(self, key)):
                raise ValueError(f"Non-finite {key}")

    @property
    def signed(self) -> bool:
        """Whether the colours run from -1 to 1, and not from 0."""
        return self.display == "vorticity"

    @property
    def linear(self) -> bool:
        return self.signed and self.color_range == "sigma"

    @property
    def needs_velocity(self) -> bool:
        return self.flow or self.display == "speed"


@dataclass(frozen=True)
class Config:
    """What decides a simulation. The library checks the values when an engine is made of them."""

    resolution: int = 1024
    """Grid points per side of the periodic square: even, 16 to 16384."""
    k0: int = 4
    """Peak wavenumber of the start spectrum: 1 to 1000000."""
    seed: int = 2
    """Seed of the start field: 0 to 2**64 - 1."""
    reynolds: float = 27898.36614974335
    """Reynolds number; the viscosity is its reciprocal. Does not follow the resolution."""
    cfl: float = 3.0
    """Courant number of the adaptive time step."""
    fixed_dt: float | None = None
    """A fixed time step, or None for the adaptive one."""
    integrator: str = "etdrk4"
    """One of ``INTEGRATORS``."""
    operator: str = "stress"
    """Form of the nonlinear term, one of ``OPERATORS``."""
    start_spectrum: str = "PAO"
    """One of ``START_SPECTRA``."""

    @property
    def padded_resolution(self) -> int:
        """Points per side of the grid on which products are formed."""
        return 3 * self.resolution // 2

    @property
    def viscosity(self) -> float:
        """1 / reynolds, rounded to single precision as the solver sees it."""
        (rounded,) = struct.unpack("<f", struct.pack("<f", 1.0 / self.reynolds))
        return float(rounded)

    def to_json(self) -> dict[str, Any]:
        """The library's form. The seed travels as text, for 64 bits do not fit a double."""
        return {**dataclasses.asdict(self), "seed": str(self.seed)}

    @classmethod
    def from_json(cls, values: Mapping[str, Any]) -> Config:
        return _pick(cls, {**values, "seed": int(values["seed"])})


@dataclass(frozen=True)
class Statistics:
    """Figures of a flow. Energies are means over the square, of u²/2, ω²/2 and |∇ω|²/2."""

    steps: int
    simulation_time: float
    dt: float
    """The last time step."""
    energy: float
    enstrophy: float
    palinstrophy: float
    palinstrophy_ratio: float
    """Mean squared wavenumber of the vorticity, over twice the square of the largest one kept."""
    reynolds: float
    initial_turnover_time: float
    """Turnover time of the eddies at the start; 0 for a fluid at rest."""
    gpu_milliseconds: float
    """Time that the device spent on the last advance."""
    allocated_bytes: int
    """Device memory of the solver."""
    is_finite: bool

    @classmethod
    def from_json(cls, values: Mapping[str, Any]) -> Statistics:
        return _pick(cls, values)


@dataclass(frozen=True)
class Snapshot:
    """Moments of a field at one time."""

    sequence: int
    """Number of steps taken."""
    time: float
    grid_size: int
    max_vorticity: float
    """Largest magnitude of the vorticity."""
    mean_vorticity: float
    std_vorticity: float
    max_speed: float
    """Largest speed; 0 when the velocity was not asked for."""

    @classmethod
    def from_json(cls, values: Mapping[str, Any]) -> Snapshot:
        return _pick(cls, values)


@dataclass(frozen=True)
class SystemInfo:
    """What the library runs on, and its default configuration."""

    abi_version: int
    backend: str
    os: str
    gpu: str
    """Name of the device, be it a GPU or the processor."""
    device_index: int
    compute_capability: str
    precision: str
    physical_memory_bytes: int
    gpu_memory_bytes: int
    available_memory_bytes: int
    """Device memory that is free now."""
    capabilities: Mapping[str, bool]
    defaults: Config
    cuda_runtime_version: int | None = None
    cuda_driver_version: int | None = None

    @classmethod
    def from_json(cls, values: Mapping[str, Any]) -> SystemInfo:
        return _pick(cls, {**values, "defaults": Config.from_json(values["defaults"])})


@dataclass(frozen=True)
class Performance:
    """How fast a view's flow runs."""

    simtime_per_s: float
    """Time of the flow per second of free running, since the flow began."""
    turnovers_per_s: float
    """The same in turnover times of the start."""
    steps_per_s: float
    """Steps per second over the last quarter of a second or more."""
    milliseconds_per_step: float
    """Its reciprocal, or 0 where there is no rate yet."""
    batch_steps: int
    """Steps that the device is asked for at once."""

    @classmethod
    def from_json(cls, values: Mapping[str, Any]) -> Performance:
        return _pick(cls, values)


@dataclass(frozen=True)
class Canvas:
    """The host's window that a view is drawn into."""

    width_points: float
    height_points: float
    scale: float
    """Pixels per point."""
    visible: bool

    @classmethod
    def from_json(cls, values: Mapping[str, Any]) -> Canvas:
        return _pick(cls, values)


@dataclass(frozen=True)
class ViewStatus:
    """What a view has come to: the answer to each of its operations."""

    config: Config
    ready: bool
    """A frame of this flow has been completed."""
    running: bool
    settled: bool
    """The flow rests, and everything that it had to tell has been told."""
    generation: int
    """Number of the flow: 0 before the start, and one more for each new flow."""
    gpu: str
    """Name of the device, be it a GPU or the processor."""
    backend: str
    error_message: str | None
    """What stopped the flow or the drawing, until it is dismissed."""
    regulated: bool
    """The Reynolds number follows the flow."""
    effective_reynolds: float
    """The Reynolds number in effect; the regulator moves it, and never ``config.reynolds``."""
    palinstrophy_control: float
    """What the regulator holds at 20: 10000 times the palinstrophy ratio."""
    display: str
    palette: str
    color_range: str
    flow: bool
    exposure: float
    sigma: float
    focused: bool
    exporting: bool
    elapsed_seconds: float
    """Time of free running on the clock of the host."""
    presentations: int
    """Pictures shown."""
    allocated_bytes: int
    """Device memory of the solver."""
    history: tuple[float, ...]
    """Energies, oldest first, at most 120."""
    performance: Performance
    stats: Statistics | None = None
    """Figures of the flow, once it is ready."""
    frame: Snapshot | None = None
    """The newest frame."""
    canvas: Canvas | None = None
    """The window, where there is one."""

    @classmethod
    def from_json(cls, values: Mapping[str, Any]) -> ViewStatus:
        parts: dict[str, Any] = {
            "config": Config.from_json(values["config"]),
            "performance": Performance.from_json(values["performance"]),
            "history": tuple(math.nan if x is None else x for x in values["history"]),
        }
        records: dict[str, type] = {"stats": Statistics, "frame": Snapshot, "canvas": Canvas}
        for key in records.keys() & values.keys():
            parts[key] = _pick(records[key], values[key])
        return _pick(cls, {**values, **parts})
