"""Failures that the library reports for an engine, with what the host knows beside its words."""

from __future__ import annotations

import os
import re
import warnings
from collections.abc import Mapping
from typing import Any

from .course import LARGEST_GROWTH, has_grown
from .errors import LOST_FLOW, FlowFailedError, ZephaneError
from .outputs import why_not_writable
from .records import Clock, Config, Statistics
from .refusals import memory_refusal
from .states import state_bytes
from .suiting import ZephaneWarning

FIELD_BYTES = 12
SPECTRUM_BYTES = 8

# Advice for failures of drawing.
HINTS = {
    "No Vulkan device found.": "Pictures need a Vulkan driver; Debian's package "
    "mesa-vulkan-drivers has one that draws on the processor.",
    "No CUDA-compatible Vulkan device found.": "Pictures need the Vulkan driver of the GPU that "
    "computes the flow.",
    "libpng 1.6 was not found.": "Debian's package libpng16-16 has it.",
}
PICTURE_FILE = re.compile(r"(?:Open|Write|Commit) PNG[ a-z]* failed \(0x([1-9a-f][0-9a-f]*)\)")
RAW_FILE = "Cannot write export file."

LOST = "The flow became non-finite or a GPU operation failed. Reset to recover."


def warn_of_growth(before: Statistics, now: Statistics, stacklevel: int) -> None:
    """Warn of figures that only fall in a sound flow, and have grown."""
    for name in LARGEST_GROWTH:
        old, new = getattr(before, name), getattr(now, name)
        if has_grown(name, old, new):
            warnings.warn(
                f"The {name} grew from {old:.6g} to {new:.6g} until t = {now.simulation_time:g}, "
                "which it never does without a force: the flow is wrong. A smaller time step, a "
                "lower Reynolds number or a finer grid may help.",
                ZephaneWarning,
                stacklevel=stacklevel,
            )
            return


def is_loss(failure: ZephaneError) -> bool:
    """Whether a failure means that the flow is lost."""
    return str(failure) in (LOST, LOST_FLOW) or str(failure).startswith("Non-finite ")


def explain_loss(
    failure: ZephaneError,
    config: Config,
    cfl: float,
    last: Clock | None,
    asked: int | None = None,
) -> FlowFailedError:
    """When and where the flow was lost, as far as it is known, and what to try.

    ``last`` is the last good clock, after which so many steps were asked for.
    """
    if str(failure) == LOST:
        return FlowFailedError(str(failure))
    reynolds = config.reynolds if last is None else last.reynolds
    step = f"cfl {cfl:g}" if config.fixed_dt is None else f"fixed_dt {config.fixed_dt:g}"
    advice = (
        f"Try a smaller time step than that of {step}, a lower Reynolds number than {reynolds:g} "
        f"or a finer grid than {config.resolution} x {config.resolution}; reset() starts again."
    )
    if last is None:
        return FlowFailedError(f"The flow failed at its start: {failure} {advice}")
    speed = _max_speed(config, cfl, last)
    fast = "" if speed is None else f", largest |u| + |v| = {speed:.4g}"
    first, end = last.steps + 1, last.steps + (asked or 1)
    steps = f"in step {first}" if end == first else f"in one of the steps {first} to {end}"
    return FlowFailedError(
        f"The flow blew up {steps}, after t = {last.simulation_time:.6g}, dt = {last.dt:.4g}{fast}: "
        f"{failure} {advice}",
        step=last.steps,
        time=last.simulation_time,
        dt=last.dt,
        max_speed=speed,
    )


def explain_creation(failure: ZephaneError, config: Config, available: int) -> ZephaneError:
    """Why an engine could not be made. ``available`` is the memory that was free at first."""
    text = str(failure)
    if text.endswith("out of memory") or text == "std::bad_alloc":
        return ZephaneError(f"{text}. {memory_refusal(config, available)}")
    if is_loss(failure):
        return explain_loss(failure, config, config.cfl, None)
    return failure


def explain_export(
    failure: ZephaneError, request: Mapping[str, Any], resolution: int
) -> ZephaneError:
    """Which file could not be written, and why."""
    text = str(failure)
    if text == RAW_FILE:
        return ZephaneError(_raw_file_refusal(text, request, resolution))
    picture = request.get("png")
    if picture is None:
        return failure
    error = PICTURE_FILE.fullmatch(text)
    if error is not None:
        text = f"{os.strerror(int(error.group(1), 16))} ({text})"
    elif text in HINTS:
        text = f"{text} {HINTS[text]}"
    return ZephaneError(f"Cannot write {picture}: {text}")


def output_sizes(request: Mapping[str, Any], resolution: int) -> dict[str, int]:
    """The paths of an export with the bytes that they take, of which a picture has too few."""
    sizes = {
        "spectrum": SPECTRUM_BYTES * resolution**2,
        "state": state_bytes(resolution),
        "fields": FIELD_BYTES * resolution**2,
        "png": 0,
    }
    return {request[key]: size for key, size in sizes.items() if key in request}


def _raw_file_refusal(text: str, request: Mapping[str, Any], resolution: int) -> str:
    raw = {key: path for key, path in request.items() if key != "png"}
    files = output_sizes(raw, resolution)
    for path, size in files.items():
        reason = why_not_writable(path, size)
        if reason is not None:
            return f"Cannot write {path}: {reason} ({text})"
    return f"Cannot write {' or '.join(files)}: {text}"


def _max_speed(config: Config, cfl: float, last: Clock) -> float | None:
    """The largest |u| + |v| from which the rule of the time step made its last step."""
    if config.fixed_dt is not None or not last.dt > 0.0:
        return None
    return 2.0 * cfl / (config.resolution * last.dt)
