"""The command ``run``: computes one flow, reports on it and writes its files."""

from __future__ import annotations

import argparse
import dataclasses
import functools
import json
import signal
import sys
import time
from collections.abc import Callable, Mapping
from dataclasses import dataclass
from types import FrameType
from typing import Any

from ._library import ZephaneError
from .checkpoints import Checkpoints
from .engine import Engine, initialize
from .engine_failures import FIELD_BYTES, SPECTRUM_BYTES
from .extras import need
from .films import check_drawing
from .options import chosen_config, chosen_picture
from .outputs import check_outputs, checked_picture, is_numpy_file, write_numpy_file
from .progress import Progress, shown_progress
from .recording import record
from .recording_files import check_recording, is_netcdf
from .records import Clock, PictureSettings, Statistics, SystemInfo
from .refusals import (
    checked_config,
    checked_pixel_size,
    checked_single,
    checked_steps,
    checked_until,
)
from .report import Outcome, describe_run
from .states import state_bytes

# Default length of a run, in turnover times of its start field.
TURNOVERS = 3.0

# Room to ask for before the run, for a picture of so many pixels: it packs to less than this.
PICTURE_BYTES = 4

INTERRUPTED = 128 + signal.SIGINT


def run(options: argparse.Namespace) -> int:
    """Run the command and return its exit code.

    What can be known to fail is refused before the run. Failures after it are raised, except for
    those of output files: these are printed after the report, so that one file does not cost the
    others.
    """
    settings = _picture_settings(options)
    steps = None if options.steps is None else checked_steps(options.steps)
    until = None if options.until is None else checked_until(options.until)
    every = _checked_every(options)
    recording = _checked_recording(options)
    system = initialize(options.library)
    with open_flow(options, system, functools.partial(_sizes, options)) as engine:
        config = engine.config
        if options.png is not None:
            check_drawing(engine, options.png)
        start = engine.inspect()
        if steps is None and until is None:
            until = default_end(start)
        checkpoints = None
        if every is not None:
            checkpoints = Checkpoints(engine, options.save_state, every, start.simulation_time)
        with Interruption() as interruption:
            progress = shown_progress(options.progress, start, steps, until)
            bounds = Bounds(start, steps, until, recording)
            outcome = _advance(engine, bounds, progress, checkpoints, interruption)
            written, failures = _write_files(engine, options, settings)
            if options.record is not None:
                written = {"recording": options.record, **written}
    if options.json:
        print(json.dumps(dataclasses.asdict(outcome.end), indent=2, sort_keys=True), flush=True)
    else:
        print(describe_run(system, config, outcome, written), flush=True)
    for failure in failures:
        print(f"zephane: {failure}", file=sys.stderr)
    if interruption.requested:
        return INTERRUPTED
    return 1 if failures else 0


def default_end(start: Statistics) -> float:
    return start.simulation_time + TURNOVERS * (start.initial_turnover_time or 1.0)


@dataclass(frozen=True)
class Bounds:
    """Where a run begins, what ends it, and how it is recorded, if it is."""

    start: Statistics
    steps: int | None
    until: float | None
    recording: Callable[..., Any] | None


def _checked_recording(options: argparse.Namespace) -> Callable[..., Any] | None:
    """``record`` with the arguments that the options give."""
    if options.record is None:
        for name in ("every", "fields_every", "spectra_every"):
            if getattr(options, name) is not None:
                raise ValueError(f"--{name.replace('_', '-')} needs --record FILE.")
        return None
    if options.every is None:
        raise ValueError("--record needs --every T, the time from one sample to the next.")
    check_recording(options.record)
    need("xarray", "data", "Recording")
    need("netCDF4" if is_netcdf(options.record) else "zarr", "data", "Recording")
    return functools.partial(
        record,
        path=options.record,
        every=options.every,
        fields_every=options.fields_every,
        spectra_every=options.spectra_every,
        at=options.at,
        velocity=options.velocity,
    )


def _checked_every(options: argparse.Namespace) -> float | None:
    if options.save_every is None:
        return None
    if options.save_state is None:
        raise ValueError("--save-every needs --save-state FILE, the file to save to.")
    return checked_single("save_every", options.save_every)


def open_flow(
    options: argparse.Namespace, system: SystemInfo, sizes: Callable[[int], Mapping[str, int]]
) -> Engine:
    """The flow to run, after a check that its files can be written, the ``sizes`` of which follow
    from its resolution.
    """
    if options.state is None:
        config = checked_config(system.defaults.changed(**chosen_config(options)))
        check_outputs(sizes(config.resolution))
        return Engine(config, initial=options.initial)
    if options.initial is not None:
        raise ValueError("--initial and --state exclude each other: a flow has one start.")
    engine = Engine.load(options.state, **chosen_config(options))
    try:
        check_outputs(sizes(engine.config.resolution))
    except BaseException:
        engine.close()
        raise
    return engine


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


def _advance(
    engine: Engine,
    bounds: Bounds,
    progress: Progress,
    checkpoints: Checkpoints | None,
    interruption: Interruption,
) -> Outcome:
    """Run to the end or until Ctrl-C, and compute the final figures."""

    milliseconds = 0.0

    def show(now: Clock) -> bool:
        nonlocal milliseconds
        milliseconds = now.gpu_milliseconds
        progress.update(now)
        if checkpoints is not None:
            checkpoints.update(now)
        return not interruption.requested

    began = time.perf_counter()
    with progress:
        if bounds.recording is None:
            engine.advance(bounds.steps, bounds.until, fresh=False, progress=show)
        else:
            made = bounds.recording(engine, steps=bounds.steps, until=bounds.until, progress=show)
            made.close()
    wall = time.perf_counter() - began
    end = dataclasses.replace(engine.inspect(), gpu_milliseconds=milliseconds)
    return Outcome(bounds.start, end, wall, interruption.requested)


def _picture_settings(options: argparse.Namespace) -> PictureSettings:
    if options.png is not None:
        checked_picture(options.png)
        checked_pixel_size(options.pixels)
    return chosen_picture(options)


def _files(options: argparse.Namespace) -> dict[str, str]:
    files = {
        "spectrum": options.spectrum,
        "fields": options.fields,
        "state": options.save_state,
        "picture": options.png,
    }
    return {kind: path for kind, path in files.items() if path is not None}


def _sizes(options: argparse.Namespace, resolution: int) -> dict[str, int]:
    """The paths of the files with the bytes that they take, after a check of their endings."""
    sizes: dict[str, int] = {}
    for kind, path in _files(options).items():
        if path in sizes:
            raise ValueError(f"{path} is named for two outputs.")
        if kind == "picture":
            sizes[path] = PICTURE_BYTES * options.pixels**2
            continue
        if kind == "state":
            sizes[path] = state_bytes(resolution)
            continue
        is_numpy_file(path)
        sizes[path] = (SPECTRUM_BYTES if kind == "spectrum" else FIELD_BYTES) * resolution**2
    return sizes


def _write_files(
    engine: Engine, options: argparse.Namespace, settings: PictureSettings
) -> tuple[dict[str, str], list[str]]:
    """Write the files. Returns the paths of those written, by kind, and the messages of failures.

    Each file is written by itself, so that a failure does not prevent the others.
    """
    written: dict[str, str] = {}
    failures: list[str] = []
    for kind, path in _files(options).items():
        try:
            if kind == "picture":
                _draw(engine, path, options.pixels, settings)
            elif kind == "state":
                engine.save(path)
            elif kind == "spectrum":
                _write_spectrum(engine, path)
            else:
                _write_fields(engine, path)
        except ZephaneError as failure:
            failures.append(str(failure))
        else:
            written[kind] = path
    return written, failures


def _draw(engine: Engine, path: str, pixels: int, settings: PictureSettings) -> None:
    engine.export(
        png=path,
        pixel_size=pixels,
        include_velocity=settings.needs_velocity,
        **dataclasses.asdict(settings),
    )


def _write_spectrum(engine: Engine, path: str) -> None:
    if not is_numpy_file(path):
        engine.export(spectrum=path)
        return
    size = engine.config.resolution
    write_numpy_file(path, engine.spectrum(), "<c8", (size, size))


def _write_fields(engine: Engine, path: str) -> None:
    if not is_numpy_file(path):
        engine.export(fields=path)
        return
    size = engine.config.resolution
    write_numpy_file(path, engine.fields().data, "<f4", (3, size, size))
