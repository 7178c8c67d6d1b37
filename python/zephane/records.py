"""The library's configuration and reports as frozen dataclasses."""

from __future__ import annotations

import dataclasses
import math
import struct
from collections.abc import Mapping
from dataclasses import dataclass
from typing import Any, TypeVar, cast

from .errors import InvalidValueError
from .suiting import suitable_cfl

INTEGRATORS = ("imexRK3", "ifHeunRK3", "etdrk4")
"""Names for ``Config.integrator``."""
OPERATORS = ("stress", "advective")
"""Names for ``Config.operator``."""
START_SPECTRA = ("PAO", "KM3")
"""Names for ``Config.start_spectrum``."""

DISPLAYS = ("vorticity", "speed", "enstrophy")
"""Names for ``PictureSettings.display``."""
PALETTES = ("aurora", "ember", "glacier", "inferno")
"""Names for ``PictureSettings.palette``."""
COLOR_RANGES = ("sigma", "exposure")
"""Names for ``PictureSettings.color_range``."""

PIXEL_SIZES = range(1, 8193)
DEFAULT_PIXEL_SIZE = 1800
EXPOSURE_LIMITS = (0.25, 3.0)
SIGMA_LIMITS = (1.5, 3.5)

Record = TypeVar("Record")

# The default of a member that follows from others.
SUITED: Any = None


def _pick(record: type[Record], values: Mapping[str, Any]) -> Record:
    """Make a record from the keys that it has; newer libraries may send others too.

    The library writes numbers that are not finite as null, which JSON lacks; they become NaN.
    """
    # Annotations are texts here, as in all files with "from __future__ import annotations".
    types = {field.name: str(field.type) for field in dataclasses.fields(cast(Any, record))}
    return record(
        **{
            key: math.nan if value is None and types[key] == "float" else value
            for key, value in values.items()
            if key in types
        }
    )


def default_reynolds(resolution: int, k0: int) -> float:
    """The Reynolds number that suits a grid: its smallest eddies are as small as the grid resolves.

    ``resolution`` is the number of points per side, N, and ``k0`` the peak wavenumber of the start
    spectrum; both are above 0. The number is 10^(1.06624 log10 N - 0.083911 log10 k0 + 1.286396).
    docs/choosing.md shows how well it suits.
    """
    exponent = 1.06624 * math.log10(resolution) - 0.083911 * math.log10(k0) + 1.286396
    return float(10.0**exponent)


def _suitable_reynolds(resolution: int, k0: int) -> float:
    """The default Reynolds number; that of the default grid for a grid that is none."""
    try:
        return default_reynolds(resolution, k0)
    except (TypeError, ValueError, OverflowError):
        return default_reynolds(1024, 4)


@dataclass(frozen=True)
class PictureSettings:
    """How a picture looks: the arguments that ``Engine.export`` and ``View.set`` share.

    Unknown names, and numbers that are not finite, raise ``InvalidValueError`` when the record is
    made, so that a long run does not fail over them at its end. The library clamps numbers to
    their ranges.
    """

    display: str = "vorticity"
    """One of ``DISPLAYS``."""
    palette: str = "ember"
    """One of ``PALETTES``."""
    color_range: str = "sigma"
    """One of ``COLOR_RANGES``; used for the vorticity only."""
    exposure: float = 1.2
    """Gain of the compressive curves, 0.25 to 3."""
    sigma: float = 2.5
    """Half width of the range "sigma", 1.5 to 3.5 standard deviations."""
    flow: bool = False
    """Whether flow lines are drawn over the picture."""

    def __post_init__(self) -> None:
        for key, names in (
            ("display", DISPLAYS),
            ("palette", PALETTES),
            ("color_range", COLOR_RANGES),
        ):
            if getattr(self, key) not in names:
                known = f"{', '.join(names[:-1])} or {names[-1]}"
                raise InvalidValueError(f'{key} "{getattr(self, key)}" is unknown: {known}')
        for key in ("exposure", "sigma"):
            if not math.isfinite(getattr(self, key)):
                raise InvalidValueError(f"{key} {getattr(self, key)} is not finite")

    @property
    def signed(self) -> bool:
        """Whether the picture shows negative values, as only that of the vorticity does."""
        return self.display == "vorticity"

    @property
    def linear(self) -> bool:
        """Whether colours are proportional to the values, not compressed."""
        return self.signed and self.color_range == "sigma"

    @property
    def needs_velocity(self) -> bool:
        """Whether the picture shows the velocity."""
        return self.flow or self.display == "speed"


# A picture of the vorticity up to its largest value, in which the cores of old vortices keep their
# shading. With "sigma" they become flat discs as the rest of the flow fades.
LIVE_PICTURE = PictureSettings(color_range="exposure", exposure=0.7)


@dataclass(frozen=True)
class Config:
    """The configuration of a flow. The values are checked when the flow is made.

    ``Config(resolution=512)`` takes the Reynolds number that suits the grid and the Courant number
    that suits the integrator, unless they are given. ``changed`` makes another configuration, in
    which they follow; ``dataclasses.replace`` makes one in which they stay.
    """

    resolution: int = 1024
    """Grid points per side of the periodic square: even, 16 to 16384."""
    k0: int = 4
    """Peak wavenumber of the start spectrum: 1 to 1000000."""
    seed: int = 2
    """Seed of the start field: 0 to 2**64 - 1."""
    reynolds: float = SUITED
    """Reynolds number, above 0: the reciprocal of the viscosity. By default that of the grid,
    ``default_reynolds(resolution, k0)``.
    """
    cfl: float = SUITED
    """Courant number of the adaptive time step, above 0. By default 3 for "etdrk4" and 1.5 for the
    other integrators.
    """
    fixed_dt: float | None = None
    """A fixed time step, above 0, or None for the adaptive one."""
    integrator: str = "etdrk4"
    """One of ``INTEGRATORS``."""
    operator: str = "stress"
    """Form of the nonlinear term, one of ``OPERATORS``."""
    start_spectrum: str = "PAO"
    """One of ``START_SPECTRA``."""

    def __post_init__(self) -> None:
        if self.reynolds is SUITED:
            object.__setattr__(self, "reynolds", _suitable_reynolds(self.resolution, self.k0))
        if self.cfl is SUITED:
            object.__setattr__(self, "cfl", suitable_cfl(self.integrator))

    def changed(self, **changes: Any) -> Config:
        """This configuration with some members changed.

        A Reynolds number that suited the grid follows it, and a Courant number that suited the
        integrator does too, unless ``changes`` has a number for it.
        """
        if self.reynolds == _suitable_reynolds(self.resolution, self.k0):
            changes.setdefault("reynolds", SUITED)
        if self.cfl == suitable_cfl(self.integrator):
            changes.setdefault("cfl", SUITED)
        return dataclasses.replace(self, **changes)

    @property
    def padded_resolution(self) -> int:
        """Points per side of the grid on which products are formed."""
        return 3 * self.resolution // 2

    @property
    def viscosity(self) -> float:
        """The viscosity: 1 / ``reynolds``, rounded to single precision as in the solver."""
        (rounded,) = struct.unpack("<f", struct.pack("<f", 1.0 / self.reynolds))
        return float(rounded)

    def to_json(self) -> dict[str, Any]:
        """The library's JSON object. The seed is a text: numbers of JSON lose digits of 64 bits."""
        return {**dataclasses.asdict(self), "seed": str(self.seed)}

    @classmethod
    def from_json(cls, values: Mapping[str, Any]) -> Config:
        return _pick(cls, {**values, "seed": int(values["seed"])})


@dataclass(frozen=True)
class Clock:
    """The time and steps of a flow, without the figures that are sums over the whole field."""

    steps: int
    """Steps taken since time 0."""
    simulation_time: float
    """Time of the flow."""
    dt: float
    """The last time step."""
    reynolds: float
    """The Reynolds number in effect."""
    initial_turnover_time: float
    """Turnover time of the eddies at the start; 0 for a fluid at rest."""
    gpu_milliseconds: float
    """Milliseconds that the device, GPU or processor, spent on the last advance."""
    allocated_bytes: int
    """Device memory of the solver."""

    @classmethod
    def from_json(cls, values: Mapping[str, Any]) -> Clock:
        return _pick(cls, values)


@dataclass(frozen=True)
class Statistics:
    """Figures of a flow at one time.

    The side of the square is 2 pi, and velocities are those of the start field, so that lengths
    and times have no units. Energy, enstrophy and palinstrophy are means over the square.
    """

    steps: int
    """Steps taken since time 0."""
    simulation_time: float
    """Time of the flow."""
    dt: float
    """The last time step."""
    energy: float
    """Mean of (u² + v²)/2."""
    enstrophy: float
    """Mean of ω²/2, with the vorticity ω = dv/dx - du/dy."""
    palinstrophy: float
    """Mean of |∇ω|²/2."""
    palinstrophy_ratio: float
    """palinstrophy / (2 enstrophy (N/2 - 1)²): small where the grid is fine for the flow."""
    reynolds: float
    """The Reynolds number in effect."""
    initial_turnover_time: float
    """Turnover time of the eddies at the start; 0 for a fluid at rest."""
    gpu_milliseconds: float
    """Milliseconds that the device, GPU or processor, spent on the last advance."""
    allocated_bytes: int
    """Device memory of the solver."""
    is_finite: bool
    """False once a value of the flow has become infinite or NaN."""

    @classmethod
    def from_json(cls, values: Mapping[str, Any]) -> Statistics:
        return _pick(cls, values)


@dataclass(frozen=True)
class Snapshot:
    """Time and moments of the fields that were read or drawn."""

    sequence: int
    """Number of steps taken."""
    time: float
    """Time of the flow."""
    grid_size: int
    """Points per side of the square, N."""
    max_vorticity: float
    """Largest magnitude of the vorticity."""
    mean_vorticity: float
    """Mean of the vorticity: zero but for rounding."""
    std_vorticity: float
    """Standard deviation of the vorticity."""
    max_speed: float
    """Largest speed, or 0 if the velocity was left out."""

    @classmethod
    def from_json(cls, values: Mapping[str, Any]) -> Snapshot:
        return _pick(cls, values)


@dataclass(frozen=True)
class SystemInfo:
    """The device, the machine and the library's default configuration."""

    abi_version: int
    """Version of the library's interface."""
    backend: str
    """What computes flows: "CUDA / VkFFT", or "CPU / built-in FFT"."""
    os: str
    """The operating system, "Linux" or "Windows"."""
    gpu: str
    """Name of the device, a GPU or the processor."""
    device_index: int
    """The number of the device: GPUs come first, and the processor is last."""
    compute_capability: str
    """Of the GPU, such as "9.0"; "0.0" for the processor."""
    precision: str
    """The type of the flow's numbers, "float32"."""
    physical_memory_bytes: int
    """The machine's memory."""
    gpu_memory_bytes: int
    """The device's memory; that of the machine where the processor is the device."""
    available_memory_bytes: int
    """Device memory that was free when the library described itself."""
    capabilities: Mapping[str, bool]
    """What the library can do: ``native_rendering``, ``forcing``, ``drag``,
    ``vortex_injection``.
    """
    defaults: Config
    """The library's default configuration."""
    cuda_runtime_version: int | None = None
    """1000 * major + 10 * minor; None where the library was built without CUDA."""
    cuda_driver_version: int | None = None
    """The same of the driver; None without one."""

    @classmethod
    def from_json(cls, values: Mapping[str, Any]) -> SystemInfo:
        return _pick(cls, {**values, "defaults": Config.from_json(values["defaults"])})


@dataclass(frozen=True)
class Performance:
    """Speed of a view's flow."""

    simtime_per_s: float
    """Time of the flow per second of running, averaged since the flow began."""
    turnovers_per_s: float
    """The same in turnover times of the start."""
    steps_per_s: float
    """Steps per second, averaged over a quarter of a second or more."""
    milliseconds_per_step: float
    """1000 / steps_per_s, or 0 before there is a rate."""
    batch_steps: int
    """Steps that the device takes in one request."""

    @classmethod
    def from_json(cls, values: Mapping[str, Any]) -> Performance:
        return _pick(cls, values)


@dataclass(frozen=True)
class Canvas:
    """The host's window that a view draws into. A point is 1/96 inch at scale 1."""

    width_points: float
    """Width of the window, in points."""
    height_points: float
    """Height of the window, in points."""
    scale: float
    """Pixels per point."""
    visible: bool
    """Whether the window is shown."""

    @classmethod
    def from_json(cls, values: Mapping[str, Any]) -> Canvas:
        return _pick(cls, values)


@dataclass(frozen=True)
class ViewStatus:
    """The state of a view, as each of its operations returns it."""

    config: Config
    """The configuration in force."""
    ready: bool
    """A frame of this flow has been completed."""
    running: bool
    """The flow is to run; False when it is paused or has ended."""
    settled: bool
    """The flow has stopped, and this status shows its last step."""
    generation: int
    """Number of the flow: 0 before the start, and one more for each new flow."""
    gpu: str
    """Name of the device, a GPU or the processor."""
    backend: str
    """What computes the flow: "CUDA / VkFFT", or "CPU / built-in FFT"."""
    error_message: str | None
    """What stopped the flow or the drawing, until it is dismissed."""
    regulated: bool
    """The Reynolds number follows the flow."""
    effective_reynolds: float
    """The Reynolds number in effect. The regulator changes it, but not ``config.reynolds``."""
    palinstrophy_control: float
    """10000 times the palinstrophy ratio; the regulator's target for it is 20."""
    display: str
    """One of ``DISPLAYS``."""
    palette: str
    """One of ``PALETTES``."""
    color_range: str
    """One of ``COLOR_RANGES``."""
    flow: bool
    """Whether flow lines are drawn."""
    exposure: float
    """Gain of the compressive curves."""
    sigma: float
    """Half width of the range "sigma", in standard deviations."""
    focused: bool
    """The window has the keyboard, as the host has said by ``View.set``."""
    exporting: bool
    """A file is being written."""
    elapsed_seconds: float
    """Seconds of running, by the clock of the host."""
    presentations: int
    """Pictures shown in the window."""
    allocated_bytes: int
    """Device memory of the solver."""
    history: tuple[float, ...]
    """The last energies, at most 120, oldest first."""
    performance: Performance
    """The speed of the flow."""
    stats: Statistics | None = None
    """Figures of the flow, or None before it is ready."""
    frame: Snapshot | None = None
    """The newest frame, or None before there is one."""
    canvas: Canvas | None = None
    """The window, or None before ``View.attach``."""

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
