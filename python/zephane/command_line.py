"""The command line: ``run`` computes a flow, ``watch`` shows a running one, ``info`` describes the
machine.

Exit codes: 0 for success, 1 for a failure, told on the standard error stream in the words of the
library or the system, and 2 for a command line that cannot be understood.
"""

from __future__ import annotations

import argparse
import dataclasses
import json
import sys
from collections.abc import Sequence

from . import __version__
from ._library import ZephaneError
from .engine import initialize
from .records import (
    COLOR_RANGES,
    DEFAULT_PIXEL_SIZE,
    DISPLAYS,
    INTEGRATORS,
    OPERATORS,
    PALETTES,
    PIXEL_SIZES,
    START_SPECTRA,
    Config,
    PictureSettings,
)
from .report import describe_system
from .run import TURNOVERS, run
from .watch import watch

LIBRARY_HELP = "path of the library (default: look for it)"


def main(arguments: Sequence[str] | None = None) -> int:
    options = _parser().parse_args(arguments)
    try:
        return int(options.command(options))
    except (ZephaneError, OSError, ValueError, MemoryError) as failure:
        print(f"zephane: {failure}", file=sys.stderr)
    except KeyboardInterrupt:
        print("zephane: interrupted", file=sys.stderr)
    return 1


def _info(options: argparse.Namespace) -> int:
    system = initialize(options.library)
    if options.json:
        print(json.dumps(dataclasses.asdict(system), indent=2, sort_keys=True))
    else:
        print(describe_system(system))
    return 0


def _parser() -> argparse.ArgumentParser:
    parser = argparse.ArgumentParser(
        prog="python3 -m zephane", description="Two-dimensional decaying turbulence."
    )
    parser.add_argument("--version", action="version", version=f"zephane {__version__}")
    commands = parser.add_subparsers(required=True, metavar="COMMAND")
    _add_run(commands)
    _add_watch(commands)
    info = commands.add_parser("info", help="describe the library and the device")
    info.add_argument("--library", metavar="PATH", help=LIBRARY_HELP)
    info.add_argument("--json", action="store_true", help="as JSON")
    info.set_defaults(command=_info)
    return parser


def _add_run(commands: argparse._SubParsersAction[argparse.ArgumentParser]) -> None:
    parser = commands.add_parser(
        "run",
        help="compute a flow",
        description="Compute a flow, show how it goes on, and report its figures at the end. "
        "Ctrl-C ends the run early; the report and the files are then of the flow so far.",
    )
    _add_flow(parser)
    _add_length(parser)
    _add_output(parser)
    _add_picture(parser)
    parser.set_defaults(command=run)


def _add_watch(commands: argparse._SubParsersAction[argparse.ArgumentParser]) -> None:
    parser = commands.add_parser(
        "watch",
        help="watch a running flow",
        description="Let a flow run and show its figures on the terminal. Keys: space pauses it "
        "and lets it run, s takes one step, r starts it again, n starts the next seed, h tells "
        "the keys, q quits. Where the output is no terminal, a line per second tells the figures.",
    )
    _add_flow(parser)
    run = parser.add_argument_group("course")
    run.add_argument(
        "--regulated",
        action=argparse.BooleanOptionalAction,
        default=True,
        help="let the Reynolds number follow the flow, so that the grid is well used "
        "(default: regulated)",
    )
    run.add_argument(
        "--until",
        metavar="T",
        type=float,
        help="stop at this time exactly (default: never)",
    )
    run.add_argument("--paused", action="store_true", help="begin with a pause")
    parser.set_defaults(command=watch)


def _add_flow(parser: argparse.ArgumentParser) -> None:
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
        help=f"Courant number of the adaptive time step (default: {default.cfl:g})",
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
        help="start from this raw file of N*N float32 samples of the vorticity, row by row "
        "(default: the seeded start field)",
    )
    flow.add_argument("--library", metavar="PATH", help=LIBRARY_HELP)


def _add_length(parser: argparse.ArgumentParser) -> None:
    length = parser.add_argument_group("length", "With both, whichever comes first.")
    length.add_argument(
        "--until",
        metavar="T",
        type=float,
        help=f"run to this time exactly (default: {TURNOVERS:g} turnover times of the start "
        "field, unless --steps is given)",
    )
    length.add_argument("--steps", metavar="N", type=int, help="take this many steps")


def _add_output(parser: argparse.ArgumentParser) -> None:
    output = parser.add_argument_group("output")
    output.add_argument(
        "--json", action="store_true", help="print the final figures as JSON, and nothing else"
    )
    output.add_argument(
        "--progress",
        action=argparse.BooleanOptionalAction,
        help="show how the run goes on: a line that moves on a terminal, a line every few seconds "
        "elsewhere (default: on a terminal only)",
    )
    output.add_argument(
        "--spectrum", metavar="FILE", help="write the raw spectrum, N*N complex64, FFT order"
    )
    output.add_argument(
        "--fields", metavar="FILE", help="write raw vorticity, u and v, 3*N*N float32"
    )
    output.add_argument("--png", metavar="FILE", help="draw a picture; needs a Vulkan driver")


def _add_picture(parser: argparse.ArgumentParser) -> None:
    default = PictureSettings()
    picture = parser.add_argument_group("picture, with --png")
    picture.add_argument(
        "--display",
        metavar="NAME",
        default=default.display,
        help=_names(DISPLAYS, default.display),
    )
    picture.add_argument(
        "--palette",
        metavar="NAME",
        default=default.palette,
        help=_names(PALETTES, default.palette),
    )
    picture.add_argument(
        "--color-range",
        metavar="NAME",
        default=default.color_range,
        help=_names(COLOR_RANGES, default.color_range),
    )
    picture.add_argument(
        "--exposure",
        metavar="GAIN",
        type=float,
        default=default.exposure,
        help="gain of the compressive curves, 0.25 to 3 (default: %(default)g)",
    )
    picture.add_argument(
        "--sigma",
        metavar="S",
        type=float,
        default=default.sigma,
        help="standard deviations that fill the range, 1.5 to 3.5 (default: %(default)g)",
    )
    picture.add_argument("--flow", action="store_true", help="draw flow lines over the picture")
    picture.add_argument(
        "--pixels",
        metavar="P",
        type=int,
        default=DEFAULT_PIXEL_SIZE,
        help=f"side of the picture, {PIXEL_SIZES[0]} to {PIXEL_SIZES[-1]} (default: %(default)d)",
    )


def _names(names: Sequence[str], default: str) -> str:
    return f"{', '.join(names[:-1])} or {names[-1]} (default: {default})"
