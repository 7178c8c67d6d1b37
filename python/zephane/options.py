"""Command-line options that several commands share, and the records and views made from them."""

from __future__ import annotations

import argparse
import dataclasses
import weakref
from collections.abc import Sequence
from typing import Any

from ._library import given
from .outputs import NUMPY_ENDING
from .records import (
    COLOR_RANGES,
    DISPLAYS,
    INTEGRATORS,
    OPERATORS,
    PALETTES,
    START_SPECTRA,
    Config,
    PictureSettings,
)
from .refusals import checked_config, checked_until
from .start_fields import StartField
from .states import state_config
from .view import View

LIBRARY_HELP = "path of the library (default: search for it)"


def chosen_config(options: argparse.Namespace) -> dict[str, Any]:
    """The members of ``Config`` that the options set."""
    return given(**_members(options, Config))


def chosen_picture(options: argparse.Namespace) -> PictureSettings:
    return PictureSettings(**_members(options, PictureSettings))


def _members(options: argparse.Namespace, record: type) -> dict[str, Any]:
    names = [field.name for field in dataclasses.fields(record)]
    return {name: getattr(options, name) for name in names}


def open_view(options: argparse.Namespace) -> View:
    """A view configured by the options, not yet started."""
    chosen = chosen_config(options)
    if options.until is not None:
        checked_until(options.until)
    if options.state is None:
        config = checked_config(Config().changed(**chosen))
    elif options.initial is None:
        config = state_config(options.state, chosen)
    else:
        raise ValueError("--initial and --state exclude each other: a flow has one start.")
    view = View(config, library=options.library, regulated=options.regulated)
    try:
        view.benchmark(until=options.until)
        if options.state is not None:
            view.benchmark(state=options.state)
        else:
            view.benchmark(initial=_raw_file(view, options.initial, config.resolution))
        if options.paused:
            view.pause()
    except BaseException:
        view.close()
        raise
    return view


def _raw_file(view: View, path: str | None, resolution: int) -> str | None:
    """The path of a raw start file; a NumPy file becomes a raw one that lasts as long as the view,
    which reads it for each new flow.
    """
    if path is None or not path.endswith(NUMPY_ENDING):
        return path
    start = StartField(path, resolution)
    raw = start.__enter__()["initial"]
    weakref.finalize(view, start.__exit__)
    return raw


def add_flow(parser: argparse.ArgumentParser) -> None:
    default = Config()
    flow = parser.add_argument_group("flow")
    flow.add_argument(
        "--resolution",
        metavar="N",
        type=int,
        help=f"grid points per side, even, 16 to 16384 (default: {default.resolution})",
    )
    flow.add_argument(
        "--k0",
        metavar="K",
        type=int,
        help=f"peak wavenumber of the start spectrum (default: {default.k0})",
    )
    flow.add_argument(
        "--seed", metavar="SEED", help=f"seed of the start field (default: {default.seed})"
    )
    flow.add_argument(
        "--reynolds",
        metavar="RE",
        type=float,
        help="Reynolds number (default: what the grid resolves, "
        f"{default.reynolds:.5g} at the default resolution and k0)",
    )
    flow.add_argument(
        "--cfl",
        metavar="C",
        type=float,
        help="Courant number of the adaptive time step (default: what suits the integrator, "
        f"{default.cfl:g} for {default.integrator})",
    )
    flow.add_argument(
        "--fixed-dt",
        metavar="DT",
        type=float,
        help="a fixed time step (default: the adaptive one)",
    )
    flow.add_argument("--integrator", metavar="NAME", help=_names(INTEGRATORS, default.integrator))
    flow.add_argument("--operator", metavar="NAME", help=_names(OPERATORS, default.operator))
    flow.add_argument(
        "--start-spectrum", metavar="NAME", help=_names(START_SPECTRA, default.start_spectrum)
    )
    flow.add_argument(
        "--initial",
        metavar="FILE",
        help="start from this file of the vorticity, N*N float32 numbers row by row, or a NumPy "
        "file if the name ends in .npy (default: the seeded start field)",
    )
    flow.add_argument("--library", metavar="PATH", help=LIBRARY_HELP)
    flow.add_argument(
        "--state",
        metavar="FILE",
        help="go on from this state of a flow, with its configuration; --reynolds and --cfl "
        "replace the numbers in force",
    )


def add_control(parser: argparse.ArgumentParser) -> None:
    control = parser.add_argument_group("control")
    reynolds = control.add_mutually_exclusive_group()
    reynolds.add_argument(
        "--adapt-viscosity",
        action="store_true",
        help="move the Reynolds number with the flow, so that the grid resolves the smallest "
        "eddies (default: it stays)",
    )
    reynolds.add_argument(
        "--regulated",
        action=argparse.BooleanOptionalAction,
        default=False,
        help="let the library move the Reynolds number; its law does not hold its target "
        "(default: it stays)",
    )
    control.add_argument(
        "--until",
        metavar="T",
        type=float,
        help="stop at this time exactly (default: never)",
    )
    control.add_argument("--paused", action="store_true", help="start paused")


def add_picture(
    group: argparse._ArgumentGroup, default: PictureSettings = PictureSettings()
) -> None:
    group.add_argument(
        "--display",
        metavar="NAME",
        default=default.display,
        help=_names(DISPLAYS, default.display),
    )
    group.add_argument(
        "--palette",
        metavar="NAME",
        default=default.palette,
        help=_names(PALETTES, default.palette),
    )
    group.add_argument(
        "--color-range",
        metavar="NAME",
        default=default.color_range,
        help=_names(COLOR_RANGES, default.color_range),
    )
    group.add_argument(
        "--exposure",
        metavar="GAIN",
        type=float,
        default=default.exposure,
        help="gain of the compressive curves, 0.25 to 3 (default: %(default)g)",
    )
    group.add_argument(
        "--sigma",
        metavar="S",
        type=float,
        default=default.sigma,
        help="standard deviations that fill the range, 1.5 to 3.5 (default: %(default)g)",
    )
    group.add_argument("--flow", action="store_true", help="draw flow lines over the picture")


def _names(names: Sequence[str], default: str) -> str:
    return f"{', '.join(names[:-1])} or {names[-1]} (default: {default})"
