"""Checks of values before the library is asked, with a sentence for each that is refused."""

from __future__ import annotations

import dataclasses
import math
import operator
import struct
import warnings
from collections.abc import Sequence
from typing import Any

from .errors import InvalidValueError
from .records import (
    COLOR_RANGES,
    DISPLAYS,
    INTEGRATORS,
    OPERATORS,
    PALETTES,
    PIXEL_SIZES,
    START_SPECTRA,
    Config,
)
from .suiting import ZephaneWarning, warn_of_cfl

RESOLUTIONS = (16, 16384)
NOTEBOOK_SIDES = (64, 2048)
LARGEST_K0 = 1_000_000
LARGEST_SEED = 2**64 - 1
# The reciprocal of a smaller one leaves single precision.
SMALLEST_REYNOLDS = 2.0**-128

# Device memory per grid point, and what the other form of the nonlinear term adds.
BYTES_PER_POINT = {"imexRK3": 78.1, "ifHeunRK3": 88.1, "etdrk4": 102.2}
ADVECTIVE_BYTES = 18.1


def checked_config(config: Config) -> Config:
    """The configuration with its numbers as plain ones; ``InvalidValueError`` if one is refused."""
    return dataclasses.replace(
        config,
        resolution=checked_resolution(config.resolution),
        k0=_whole("k0", config.k0, 1, LARGEST_K0),
        seed=_whole("seed", config.seed, 0, LARGEST_SEED),
        reynolds=checked_reynolds(config.reynolds),
        cfl=checked_single("cfl", config.cfl),
        fixed_dt=None if config.fixed_dt is None else checked_single("fixed_dt", config.fixed_dt),
        integrator=checked_name("integrator", config.integrator, INTEGRATORS),
        operator=checked_name("operator", config.operator, OPERATORS),
        start_spectrum=checked_name("start_spectrum", config.start_spectrum, START_SPECTRA),
    )


def checked_resolution(value: Any) -> int:
    low, high = RESOLUTIONS
    allowed = f"even numbers from {low} to {high}"
    number = _whole("resolution", value, low, high, allowed)
    if number % 2:
        raise InvalidValueError(f"resolution {number} is odd: {allowed}")
    return number


def checked_reynolds(value: Any) -> float:
    number = _above_zero("reynolds", value)
    if number <= SMALLEST_REYNOLDS:
        raise InvalidValueError(
            f"reynolds {number:g} is too small: its viscosity leaves single precision"
        )
    return number


def checked_single(key: str, value: Any) -> float:
    """A number that is above 0 and finite in single precision too."""
    number = _above_zero(key, value)
    rounded = single(number)
    if math.isinf(rounded) or rounded == 0.0:
        word = "large" if rounded else "small"
        raise InvalidValueError(f"{key} {number:g} is too {word} for single precision")
    return number


def checked_name(key: str, value: Any, names: Sequence[str]) -> str:
    if isinstance(value, str) and value in names:
        return value
    raise InvalidValueError(f"{key} {_quoted(value)} is unknown: {listed(names)}")


def checked_steps(value: Any) -> int:
    return _whole("steps", value, 0, None, "whole numbers from 0")


def checked_until(value: Any) -> float:
    number = _number("until", value, "times from 0")
    if number < 0.0:
        raise InvalidValueError(f"until {number:g} is negative: times from 0")
    if math.isinf(single(number)):
        raise InvalidValueError(f"until {number:g} is too large for single precision")
    return number


def checked_whole(key: str, value: Any, low: int) -> int:
    return _whole(key, value, low, None, f"whole numbers from {low}")


def checked_seconds(key: str, value: Any) -> float:
    number = _number(key, value, "numbers from 0")
    if number < 0.0:
        raise InvalidValueError(f"{key} {number:g} is negative: numbers from 0")
    return number


def checked_pixel_size(value: Any, key: str = "pixel_size") -> int:
    return _whole(key, value, PIXEL_SIZES[0], PIXEL_SIZES[-1])


def checked_side(key: str, value: Any) -> int:
    """The side of a picture in a notebook."""
    return _whole(key, value, *NOTEBOOK_SIDES)


def check_picture(**settings: Any) -> None:
    """Check those settings of a picture that are not None."""
    for key, names in (
        ("display", DISPLAYS),
        ("palette", PALETTES),
        ("color_range", COLOR_RANGES),
    ):
        if settings[key] is not None:
            checked_name(key, settings[key], names)
    for key in ("exposure", "sigma"):
        if settings[key] is not None:
            _number(key, settings[key], "finite numbers")
    if settings["pixel_size"] is not None:
        checked_pixel_size(settings["pixel_size"])


def warn_of_config(config: Config, stacklevel: int = 3) -> None:
    """Warn of settings that the library accepts and with which the flow is probably wrong."""
    if config.fixed_dt is None:
        warn_of_cfl(config.integrator, config.resolution, config.cfl, stacklevel + 1)
    largest = config.resolution // 2 - 1
    if config.k0 > largest:
        warnings.warn(
            f"k0 {config.k0} is beyond the grid: {config.resolution} x {config.resolution} points "
            f"keep wavenumbers up to {largest}, so that the start field lacks its peak.",
            ZephaneWarning,
            stacklevel=stacklevel,
        )


def memory_needed(config: Config) -> int:
    """The bytes of device memory that a flow takes, without the work space of the transforms."""
    return round(_bytes_per_point(config) * config.resolution**2)


def largest_resolution(config: Config, available: int) -> int:
    """The largest grid, in steps of 32 points, whose flow fits into so many bytes."""
    side = math.isqrt(int(max(available, 0) / _bytes_per_point(config)))
    return min(max(side - side % 32, 0), RESOLUTIONS[1])


def check_memory(config: Config, total: int) -> None:
    """Refuse a flow that the device has not the memory for, whatever else uses it."""
    if memory_needed(config) > total:
        raise InvalidValueError(memory_refusal(config, total))


def memory_refusal(config: Config, available: int) -> str:
    """The sentence for a flow that does not fit into so many bytes."""
    largest = largest_resolution(config, available)
    fits = f"resolution {largest} fits" if largest >= RESOLUTIONS[0] else "no grid fits"
    return (
        f"A flow of {config.resolution} x {config.resolution} points with {config.integrator} and "
        f"{config.operator} needs {_gibibytes(memory_needed(config))} of device memory, and "
        f"there are {_gibibytes(available)}: {fits}."
    )


def single(value: float) -> float:
    """A number in single precision; infinite where it is too large for it."""
    try:
        return float(struct.unpack("<f", struct.pack("<f", value))[0])
    except OverflowError:
        return math.copysign(math.inf, value)


def listed(names: Sequence[str]) -> str:
    return f"{', '.join(names[:-1])} or {names[-1]}"


def shown(value: Any) -> str:
    """A setting, for a sentence."""
    return f"{value:g}" if isinstance(value, float) else str(value)


def _bytes_per_point(config: Config) -> float:
    more = ADVECTIVE_BYTES if config.operator == "advective" else 0.0
    return BYTES_PER_POINT[config.integrator] + more


def _gibibytes(count: int) -> str:
    return f"{count / 2**30:.3g} GiB" if count >= 2**30 else f"{count / 2**20:.3g} MiB"


def _whole(key: str, value: Any, low: int, high: int | None, allowed: str | None = None) -> int:
    allowed = allowed or f"whole numbers from {low} to {high}"
    number = _digits(value) if key == "seed" and isinstance(value, str) else _as_whole(value)
    if number is None:
        raise InvalidValueError(f"{key} {_quoted(value)} is no whole number: {allowed}")
    if number < 0:
        raise InvalidValueError(f"{key} {number} is negative: {allowed}")
    if number < low:
        raise InvalidValueError(f"{key} {number} is too small: {allowed}")
    if high is not None and number > high:
        raise InvalidValueError(f"{key} {number} is too large: {allowed}")
    return number


def _digits(text: str) -> int | None:
    """The number of a seed that is a text, as the command line and JSON have it."""
    digits = text.removeprefix("-")
    return int(text) if digits.isdecimal() and digits.isascii() else None


def _as_whole(value: Any) -> int | None:
    if isinstance(value, bool):
        return None
    if isinstance(value, float) and value.is_integer():
        return int(value)
    try:
        return operator.index(value)
    except TypeError:
        return None


def _above_zero(key: str, value: Any) -> float:
    allowed = "numbers above 0"
    number = _number(key, value, allowed)
    if number == 0.0:
        raise InvalidValueError(f"{key} is 0: {allowed}")
    if number < 0.0:
        raise InvalidValueError(f"{key} {number:g} is negative: {allowed}")
    return number


def _number(key: str, value: Any, allowed: str) -> float:
    try:
        if isinstance(value, (str, bytes, bool)):
            raise TypeError
        number = float(value)
    except (TypeError, ValueError, OverflowError):
        raise InvalidValueError(f"{key} {_quoted(value)} is no number: {allowed}") from None
    if not math.isfinite(number):
        raise InvalidValueError(f"{key} {number:g} is not finite: {allowed}")
    return number


def _quoted(value: Any) -> str:
    return f'"{value}"' if isinstance(value, str) else repr(value)
