"""The command ``sweep``: records a flow for each combination of settings."""

from __future__ import annotations

import argparse
from collections.abc import Callable
from typing import Any

from ._library import given, load
from .members import FAILED_AT
from .outputs import PathLike
from .recording_files import TIMES, check_recording, write_dataset
from .sweeping import sweep

# What can be swept, with its help.
SETTINGS = {
    "resolution": "grid points per side, even, 16 to 16384",
    "k0": "peak wavenumber of the start spectrum",
    "seed": "seed of the start field",
    "reynolds": "Reynolds number (default: what the grid resolves)",
    "cfl": "Courant number of the adaptive time step (default: what suits the integrator)",
    "fixed_dt": "a fixed time step (default: the adaptive one)",
    "integrator": "integrator",
    "operator": "form of the nonlinear term",
    "start_spectrum": "start spectrum",
}

WHOLE = ("resolution", "k0", "seed")
NUMBERS = ("reynolds", "cfl", "fixed_dt")

# Longer ranges are mistakes.
LONGEST_RANGE = 1_000_000


def listed_values(name: str, text: str) -> Any:
    """The value of an option, or a list of them where the text has a comma or a colon."""
    if "," not in text and not (name in WHOLE and ":" in text):
        return _value(name, text)
    values: list[Any] = []
    for part in text.split(","):
        low, colon, high = part.partition(":")
        if colon and name in WHOLE:
            values += _range(name, low, high)
        else:
            values.append(_value(name, part))
    return values


def _range(name: str, low: str, high: str) -> range:
    made = range(_value(name, low), _value(name, high))
    if not 0 < len(made) <= LONGEST_RANGE:
        raise argparse.ArgumentTypeError(f"{low}:{high} has {len(made)} numbers")
    return made


def _value(name: str, text: str) -> Any:
    kind: Callable[[str], Any] = int if name in WHOLE else float if name in NUMBERS else str
    try:
        return kind(text)
    except ValueError:
        wanted = "a whole number" if name in WHOLE else "a number"
        raise argparse.ArgumentTypeError(f'"{text}" is not {wanted}') from None


def run_sweep(options: argparse.Namespace) -> int:
    """Run the command and return its exit code, 1 where a member has blown up."""
    if options.dataset is not None:
        check_recording(options.dataset)
    if options.scheduler is None:
        load(options.library)
    made = sweep(
        until=options.until,
        every=options.every,
        fields_every=options.fields_every,
        spectra_every=options.spectra_every,
        velocity=options.velocity,
        path=options.folder,
        jobs=options.jobs,
        scheduler=options.scheduler,
        checkpoint_seconds=options.checkpoint_seconds,
        progress=options.progress,
        library=options.library,
        **given(**{name: getattr(options, name) for name in SETTINGS}),
    )
    with made:
        if options.dataset is not None:
            write_dataset(made, options.dataset)
        failed = int(made[FAILED_AT].notnull().sum())
        print(_described(made, options.folder, failed), flush=True)
    return 1 if failed else 0


def _described(made: Any, folder: PathLike, failed: int) -> str:
    lengths = {name: size for name, size in made[FAILED_AT].sizes.items()}
    product = " x ".join(f"{size} {name}" for name, size in lengths.items())
    samples = ", ".join(f"{made.sizes[name]} along {name}" for name in TIMES if name in made.sizes)
    count = int(made[FAILED_AT].size)
    blown = f", {failed} of which blew up" if failed else ""
    return "\n".join(
        [
            f"  members   {count}{f' ({product})' if product else ''}{blown}",
            f"  samples   {samples}",
            f"  folder    {folder}",
        ]
    )
