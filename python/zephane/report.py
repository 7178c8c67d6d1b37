"""Readable reports on a finished run and on the machine."""

from __future__ import annotations

from collections.abc import Iterable, Mapping
from dataclasses import dataclass

from .progress import clock
from .records import Config, Statistics, SystemInfo

UNITS = ("bytes", "KiB", "MiB", "GiB", "TiB")

Line = tuple[str, str]


@dataclass(frozen=True)
class Outcome:
    """A finished run: its figures before and after, and how long it took."""

    start: Statistics
    end: Statistics
    """Its ``gpu_milliseconds`` are those of the whole run."""
    wall_seconds: float
    interrupted: bool


def describe_run(
    system: SystemInfo, config: Config, outcome: Outcome, files: Mapping[str, str]
) -> str:
    start, end = outcome.start, outcome.end
    head = [
        f"{system.backend} on {system.gpu}",
        f"{config.resolution} x {config.resolution}, k0 {config.k0}, seed {config.seed}, "
        f"Re {end.reynolds:.6g}, {config.integrator}, {config.operator}, {config.start_spectrum}",
    ]
    if outcome.interrupted:
        head.append("Interrupted: the figures are those of the flow so far.")
    lines = [
        ("time", f"{end.simulation_time:.6g}{_turnovers(end)}"),
        ("steps", f"{end.steps}, the last of {end.dt:.4g}"),
        ("energy", _change(start.energy, end.energy)),
        ("enstrophy", _change(start.enstrophy, end.enstrophy)),
        ("palinstrophy", _change(start.palinstrophy, end.palinstrophy)),
        ("palinstrophy ratio", f"{end.palinstrophy_ratio:.4g}"),
        ("wall time", _pace(outcome)),
        ("device memory", memory(end.allocated_bytes)),
        *files.items(),
    ]
    return "\n".join(head) + "\n\n" + _table(lines)


def describe_system(system: SystemInfo, remarks: Iterable[str] = ()) -> str:
    """The machine and the defaults; ``remarks`` say why a GPU is not used."""
    defaults = system.defaults
    lines = [
        ("device", f"{system.gpu} (index {system.device_index})"),
        ("backend", f"{system.backend}, {system.precision}, {system.os}"),
        ("compute capability", system.compute_capability),
        (
            "device memory",
            f"{memory(system.gpu_memory_bytes)}, {memory(system.available_memory_bytes)} free",
        ),
        ("physical memory", memory(system.physical_memory_bytes)),
    ]
    if system.cuda_driver_version is not None:
        lines.append(("CUDA driver", _cuda_version(system.cuda_driver_version)))
    if system.cuda_runtime_version is not None:
        lines.append(("CUDA runtime", _cuda_version(system.cuda_runtime_version)))
    lines.extend(("GPU not used", remark) for remark in remarks)
    lines.append(
        (
            "default flow",
            f"{defaults.resolution} x {defaults.resolution}, k0 {defaults.k0}, "
            f"seed {defaults.seed}, Re {defaults.reynolds:.6g}, {defaults.integrator}, "
            f"{defaults.operator}, {defaults.start_spectrum}",
        )
    )
    return _table(lines)


def memory(count: int) -> str:
    """A number of bytes in the largest unit of which it is at least 1, such as "6.4 MiB"."""
    size, unit = float(count), 0
    while size >= 1024.0 and unit < len(UNITS) - 1:
        size, unit = size / 1024.0, unit + 1
    return f"{count} bytes" if unit == 0 else f"{size:.1f} {UNITS[unit]}"


def _table(lines: Iterable[Line]) -> str:
    rows = list(lines)
    width = max(len(name) for name, _ in rows)
    return "\n".join(f"  {name:<{width}}  {value}" for name, value in rows)


def _turnovers(end: Statistics) -> str:
    if not end.initial_turnover_time:
        return ""
    return f", {end.simulation_time / end.initial_turnover_time:.3g} turnover times of the start"


def _change(start: float, end: float) -> str:
    share = f" ({100.0 * (end / start - 1.0):+.2f} %)" if start else ""
    return f"{end:.6g}, from {start:.6g}{share}"


def _pace(outcome: Outcome) -> str:
    steps = outcome.end.steps - outcome.start.steps
    total = f"{outcome.wall_seconds:.1f} s"
    if outcome.wall_seconds >= 60.0:
        total += f" ({clock(outcome.wall_seconds)})"
    if not steps or not outcome.wall_seconds:
        return total
    rate = steps / outcome.wall_seconds
    return f"{total}, {rate:.4g} steps/s, {outcome.end.gpu_milliseconds / steps:.3g} ms a step"


def _cuda_version(version: int) -> str:
    return f"{version // 1000}.{version % 1000 // 10}"
