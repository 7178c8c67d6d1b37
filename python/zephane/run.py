"""The command ``run``: computes one flow, reports on it and writes its files."""

from __future__ import annotations

import argparse
import dataclasses
import json
import os
import re
import signal
import sys
import time
from pathlib import Path
from types import FrameType
from typing import Any

from ._library import ZephaneError
from .engine import Engine, initialize
from .options import chosen_config, chosen_picture
from .progress import Progress, shown_progress
from .records import (
    PIXEL_SIZES,
    Config,
    PictureSettings,
    Statistics,
    SystemInfo,
    default_reynolds,
)
from .report import Outcome, describe_run

# Default length of a run, in turnover times of its start field.
TURNOVERS = 3.0

# Intended duration of one advance(), short enough to show progress and to react to Ctrl-C.
SLICE_SECONDS = 0.15
SLICE_GROWTH = 8
LONGEST_SLICE = 1 << 20

# Advice for failures of drawing.
HINTS = {
    "No Vulkan device found.": "Pictures need a Vulkan driver; Debian's package "
    "mesa-vulkan-drivers has one that draws on the processor.",
    "No CUDA-compatible Vulkan device found.": "Pictures need the Vulkan driver of the GPU that "
    "computes the flow.",
    "libpng 1.6 was not found.": "Debian's package libpng16-16 has it.",
}
SYSTEM_ERROR = re.compile(r"(?:Open|Write|Commit) PNG[ a-z]* failed \(0x([1-9a-f]\w*)\)")


def run(options: argparse.Namespace) -> int:
    """Run the command and return its exit code.

    Failures are raised, except for those of output files: these are printed after the report, so
    that one file does not cost the others.
    """
    settings = _picture_settings(options)
    _check_folders(options)
    system = initialize(options.library)
    config = _config(options, system)
    with Engine(config, initial=options.initial) as engine:
        start = engine.inspect()
        until = _endpoint(options, start)
        with Interruption() as interruption:
            progress = shown_progress(options.progress, start, options.steps, until)
            outcome = _advance(engine, start, options.steps, until, progress, interruption)
        written, failures = _write_files(engine, options, settings)
    if options.json:
        print(json.dumps(dataclasses.asdict(outcome.end), indent=2, sort_keys=True), flush=True)
    else:
        print(describe_run(system, config, outcome, written), flush=True)
    for failure in failures:
        print(f"zephane: {failure}", file=sys.stderr)
    return 1 if failures else 0


class Interruption:
    """Handles Ctrl-C in a ``with`` block: the first one sets ``requested``, so that the run can
    finish with a report; the second one raises ``KeyboardInterrupt``.
    """

    def __init__(self) -> None:
        self.requested = False
        self._before: Any = None

    def __enter__(self) -> Interruption:
        self._before = signal.signal(signal.SIGINT, self._handle)
        return self

    def __exit__(self, *_: object) -> None:
        signal.signal(signal.SIGINT, self._before)

    def _handle(self, number: int, frame: FrameType | None) -> None:
        if self.requested:
            raise KeyboardInterrupt
        self.requested = True


class Pace:
    """Chooses the number of steps per advance() from the duration of the last one."""

    def __init__(self) -> None:
        self.steps = 1

    def took(self, seconds: float) -> None:
        wanted = int(self.steps * SLICE_SECONDS / max(seconds, 1e-6))
        self.steps = max(1, min(wanted, self.steps * SLICE_GROWTH, LONGEST_SLICE))


def _advance(
    engine: Engine,
    start: Statistics,
    steps: int | None,
    until: float | None,
    progress: Progress,
    interruption: Interruption,
) -> Outcome:
    """Run to the end or until Ctrl-C, and compute the final figures."""
    pace, now, device_milliseconds = Pace(), start, 0.0
    began = time.perf_counter()
    with progress:
        while not interruption.requested:
            left = None if steps is None else steps - now.steps
            ask = pace.steps if left is None else min(pace.steps, left)
            asked, before = time.perf_counter(), now.steps
            now = engine.advance(ask, until)
            if now.steps > before:
                device_milliseconds += now.gpu_milliseconds
            progress.update(now)
            if now.steps - before < pace.steps:
                break
            pace.took(time.perf_counter() - asked)
    wall = time.perf_counter() - began
    end = dataclasses.replace(engine.inspect(), gpu_milliseconds=device_milliseconds)
    return Outcome(start, end, wall, interruption.requested)


def _config(options: argparse.Namespace, system: SystemInfo) -> Config:
    """The defaults changed by the options. Without --reynolds the number suits the grid."""
    config = dataclasses.replace(system.defaults, **chosen_config(options))
    if options.reynolds is None and config.resolution > 0 and config.k0 > 0:
        suited = default_reynolds(config.resolution, config.k0)
        config = dataclasses.replace(config, reynolds=suited)
    return config


def _endpoint(options: argparse.Namespace, start: Statistics) -> float | None:
    if options.until is not None or options.steps is not None:
        return options.until  # type: ignore[no-any-return]
    return TURNOVERS * (start.initial_turnover_time or 1.0)


def _picture_settings(options: argparse.Namespace) -> PictureSettings:
    if options.png is not None and options.pixels not in PIXEL_SIZES:
        raise ValueError(f"PNG size must be {PIXEL_SIZES[0]} through {PIXEL_SIZES[-1]}.")
    return chosen_picture(options)


def _files(options: argparse.Namespace) -> dict[str, str]:
    files = {"spectrum": options.spectrum, "fields": options.fields, "picture": options.png}
    return {kind: path for kind, path in files.items() if path is not None}


def _check_folders(options: argparse.Namespace) -> None:
    """Check the output folders before the run, so that a long run does not fail at its end."""
    for path in _files(options).values():
        folder = Path(path).absolute().parent
        if not folder.is_dir():
            raise ValueError(f"No folder {folder} for {path}.")


def _write_files(
    engine: Engine, options: argparse.Namespace, settings: PictureSettings
) -> tuple[dict[str, str], list[str]]:
    """Write the files. Returns the paths of those written, by kind, and the messages of failures.

    Each file has a request of its own, so that a failure does not prevent the others.
    """
    requests: dict[str, dict[str, Any]] = {
        "spectrum": {"spectrum": options.spectrum},
        "fields": {"fields": options.fields},
        "picture": {
            "png": options.png,
            "pixel_size": options.pixels,
            "include_velocity": settings.needs_velocity,
            **dataclasses.asdict(settings),
        },
    }
    written: dict[str, str] = {}
    failures: list[str] = []
    for kind, path in _files(options).items():
        try:
            engine.export(**requests[kind])
        except ZephaneError as failure:
            failures.append(f"Could not write {path}: {_explained(str(failure))}")
        else:
            written[kind] = path
    return written, failures


def _explained(message: str) -> str:
    """The library's message, followed by advice or by the text of the system's error number."""
    if message in HINTS:
        return f"{message} {HINTS[message]}"
    error = SYSTEM_ERROR.fullmatch(message)
    return message if error is None else f"{message}: {os.strerror(int(error.group(1), 16))}"
