"""The command ``run``: one flow, from its options to its report and files."""

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

# Length of a run that is told no other, in turnover times of its start field.
TURNOVERS = 3.0

# Time that one request to the engine should take, so that progress moves and Ctrl-C is heard.
SLICE_SECONDS = 0.15
SLICE_GROWTH = 8
LONGEST_SLICE = 1 << 20

# What helps where the library could not draw.
HINTS = {
    "No Vulkan device found.": "Pictures need a Vulkan driver; Debian's package "
    "mesa-vulkan-drivers has one that draws on the processor.",
    "No CUDA-compatible Vulkan device found.": "Pictures need the Vulkan driver of the GPU that "
    "computes the flow.",
    "libpng 1.6 was not found.": "Debian's package libpng16-16 has it.",
}
SYSTEM_ERROR = re.compile(r"(?:Open|Write|Commit) PNG[ a-z]* failed \(0x([1-9a-f]\w*)\)")


def run(options: argparse.Namespace) -> int:
    """Carry out the command; failures are raised, but those of files at the end are told here."""
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
    """Ctrl-C while it stands: the first is noted, so that a run can end in good order."""

    def __init__(self) -> None:
        self.noted = False
        self._before: Any = None

    def __enter__(self) -> Interruption:
        self._before = signal.signal(signal.SIGINT, self._note)
        return self

    def __exit__(self, *_: object) -> None:
        signal.signal(signal.SIGINT, self._before)

    def _note(self, number: int, frame: FrameType | None) -> None:
        if self.noted:
            raise KeyboardInterrupt
        self.noted = True


class Pace:
    """How many steps to ask for at once, from how long the last ones took."""

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
    """Run to the end, or to Ctrl-C, and take the final figures."""
    pace, now, device_milliseconds = Pace(), start, 0.0
    began = time.perf_counter()
    with progress:
        while not interruption.noted:
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
    return Outcome(start, end, wall, interruption.noted)


def _config(options: argparse.Namespace, system: SystemInfo) -> Config:
    """The defaults with what the command line says; unless it names one, Re suits the grid."""
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
    """A long run should not end in front of a folder that was never there."""
    for path in _files(options).values():
        folder = Path(path).absolute().parent
        if not folder.is_dir():
            raise ValueError(f"No folder {folder} for {path}.")


def _write_files(
    engine: Engine, options: argparse.Namespace, settings: PictureSettings
) -> tuple[dict[str, str], list[str]]:
    """The files that were written, and the words of those that could not be.

    The run is done, and should not be lost for a file.
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


def _explained(words: str) -> str:
    """The library's words, with what helps where that is known."""
    if words in HINTS:
        return f"{words} {HINTS[words]}"
    error = SYSTEM_ERROR.fullmatch(words)
    return words if error is None else f"{words}: {os.strerror(int(error.group(1), 16))}"
