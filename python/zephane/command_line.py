"""The command line: ``run`` computes a flow, ``sweep`` many, ``film`` makes a film of one, ``view``
and ``watch`` show a running one in a window and on a terminal, ``info`` describes the machine.

Exit codes: 0 for success, 1 for a failure, whose message goes to standard error, 2 for wrong
arguments, and 130 after Ctrl-C.
"""

from __future__ import annotations

import argparse
import dataclasses
import functools
import json
import sys
import warnings
from collections.abc import Sequence
from typing import TextIO

from . import __version__
from ._library import ZephaneError
from .engine import initialize
from .gpus import passed_over
from .film_command import film_flow
from .film_files import FORMATS
from .films import FILM_PIXELS, FILM_SECONDS
from .options import LIBRARY_HELP, add_control, add_flow, add_picture
from .records import DEFAULT_PIXEL_SIZE, LIVE_PICTURE, PIXEL_SIZES
from .refusals import listed
from .report import describe_system
from .run import INTERRUPTED, TURNOVERS, run
from .suiting import ZephaneWarning
from .sweeping import CHECKPOINT_SECONDS
from .sweep_command import SETTINGS, listed_values, run_sweep
from .watch import watch


def main(arguments: Sequence[str] | None = None, program: str = "zephane") -> int:
    """Run the command line and return its exit code; ``program`` is its name in the help."""
    options = _parser(program).parse_args(arguments)
    with warnings.catch_warnings():
        warnings.simplefilter("always", ZephaneWarning)
        warnings.showwarning = _show_warning
        try:
            return int(options.command(options))
        except (ZephaneError, OSError, ValueError, MemoryError) as failure:
            print(f"zephane: {failure}", file=sys.stderr)
        except KeyboardInterrupt:
            print("zephane: interrupted", file=sys.stderr)
            return INTERRUPTED
    return 1


def _show_warning(
    message: Warning | str,
    category: type[Warning],
    filename: str,
    lineno: int,
    file: TextIO | None = None,
    line: str | None = None,
) -> None:
    """Print the sentence of a warning, without the place in the code that it came from."""
    print(f"zephane: {message}", file=sys.stderr, flush=True)


def _info(options: argparse.Namespace) -> int:
    system = initialize(options.library)
    if options.json:
        print(json.dumps(dataclasses.asdict(system), indent=2, sort_keys=True))
    else:
        print(describe_system(system, passed_over(system)))
    return 0


def _parser(program: str) -> argparse.ArgumentParser:
    parser = argparse.ArgumentParser(
        prog=program, description="Two-dimensional decaying turbulence."
    )
    parser.add_argument("--version", action="version", version=f"zephane {__version__}")
    commands = parser.add_subparsers(required=True, metavar="COMMAND")
    _add_run(commands)
    _add_film(commands)
    _add_sweep(commands)
    _add_watch(commands)
    _add_view(commands)
    info = commands.add_parser("info", help="describe the library and the device")
    info.add_argument("--library", metavar="PATH", help=LIBRARY_HELP)
    info.add_argument("--json", action="store_true", help="as JSON")
    info.set_defaults(command=_info)
    return parser


def _add_run(commands: argparse._SubParsersAction[argparse.ArgumentParser]) -> None:
    parser = commands.add_parser(
        "run",
        help="compute a flow",
        description="Compute a flow, show its progress, and report its figures at the end. "
        "Ctrl-C ends the run early; the report and the files then show the flow so far, and the "
        "exit code is 130.",
    )
    add_flow(parser)
    _add_length(parser)
    _add_output(parser)
    _add_recording(parser)
    _add_picture(parser)
    parser.set_defaults(command=run)


def _add_film(commands: argparse._SubParsersAction[argparse.ArgumentParser]) -> None:
    parser = commands.add_parser(
        "film",
        help="make a film of a flow",
        description="Compute a flow and make a film of it, whose pictures lie at even steps of the "
        "flow's time. Needs pip install 'zephane[film]' and a Vulkan driver. The film is complete "
        "or not there: Ctrl-C leaves nothing, with exit code 130.",
    )
    parser.add_argument(
        "film", metavar="FILE", help=f"the film, whose name ends in {listed(tuple(FORMATS))}"
    )
    add_flow(parser)
    length = parser.add_argument_group("length")
    length.add_argument(
        "--until",
        metavar="T",
        type=float,
        help=f"time of the flow in the last picture (default: {TURNOVERS:g} turnover times of the "
        "start field after the first)",
    )
    length.add_argument(
        "--seconds",
        metavar="S",
        type=float,
        default=FILM_SECONDS,
        help="how long the film lasts (default: %(default)g)",
    )
    length.add_argument(
        "--fps",
        metavar="F",
        type=float,
        help="pictures a second (default: "
        + ", ".join(f"{one.fps:g} for {ending}" for ending, one in FORMATS.items())
        + ")",
    )
    output = parser.add_argument_group("output")
    _add_report(output)
    picture = parser.add_argument_group("picture")
    add_picture(picture, LIVE_PICTURE)
    picture.add_argument(
        "--pixels",
        metavar="P",
        type=int,
        default=FILM_PIXELS,
        help="side of the film (default: %(default)d); that of a .mp4 file is even, so that an odd "
        f"number becomes the next, and at least {FORMATS['.mp4'].smallest}",
    )
    parser.set_defaults(command=film_flow)


def _add_sweep(commands: argparse._SubParsersAction[argparse.ArgumentParser]) -> None:
    parser = commands.add_parser(
        "sweep",
        help="record a flow for each combination of settings",
        description="Record a flow for each combination of settings, side by side, into a folder. "
        "What is there already is not computed again, and a member that was broken off goes on "
        "from its last checkpoint. Lists have commas, ranges of whole numbers a colon: --seed 0:8 "
        "--reynolds 1000,2000 records 16 flows. Needs pip install 'zephane[data]'.",
    )
    parser.add_argument("folder", metavar="FOLDER", help="keeps a NetCDF file for each member")
    settings = parser.add_argument_group("settings, each one value, a list or a range")
    for name in SETTINGS:
        settings.add_argument(
            f"--{name.replace('_', '-')}",
            metavar="LIST",
            type=functools.partial(listed_values, name),
            help=SETTINGS[name],
        )
    settings.add_argument("--library", metavar="PATH", help=LIBRARY_HELP)
    recording = parser.add_argument_group("recording")
    recording.add_argument(
        "--until", metavar="T", type=float, required=True, help="run to this time exactly"
    )
    _add_intervals(recording, is_needed=True)
    recording.add_argument("--velocity", action="store_true", help="record u and v with the fields")
    recording.add_argument(
        "--dataset",
        metavar="FILE",
        help="write all members as one Dataset: a NetCDF file, .nc, or a Zarr store, .zarr",
    )
    course = parser.add_argument_group("course")
    course.add_argument(
        "--jobs",
        metavar="N",
        type=int,
        help="members side by side on this machine (default: as its devices, processors and memory "
        "allow)",
    )
    course.add_argument(
        "--scheduler",
        metavar="ADDRESS",
        help="compute on the dask.distributed cluster of this scheduler, whose workers have the "
        "folder under the same name; needs pip install 'zephane[sweep]'",
    )
    course.add_argument(
        "--checkpoint-seconds",
        metavar="S",
        type=float,
        default=CHECKPOINT_SECONDS,
        help="seconds of computing between two checkpoints of a member (default: %(default)g)",
    )
    course.add_argument(
        "--progress",
        action=argparse.BooleanOptionalAction,
        default=True,
        help="show a line for the whole sweep, every ten seconds a new one where the output is no "
        "terminal (default: shown)",
    )
    parser.set_defaults(command=run_sweep)


def _add_watch(commands: argparse._SubParsersAction[argparse.ArgumentParser]) -> None:
    parser = commands.add_parser(
        "watch",
        help="watch a running flow",
        description="Let a flow run and show its figures on the terminal. Keys: space pauses and "
        "resumes it, s takes one step, r starts it again, n starts the next seed, h lists the "
        "keys, q quits. If the output is not a terminal, the figures are printed once a second.",
    )
    add_flow(parser)
    add_control(parser)
    parser.set_defaults(command=watch)


def _add_view(commands: argparse._SubParsersAction[argparse.ArgumentParser]) -> None:
    parser = commands.add_parser(
        "view",
        help="show a running flow in a window",
        description="Let a flow run and show its picture in a window, with a panel that steers it. "
        "The key h lists the keys. Without --resolution the grid is as fine as the machine can "
        "move at 30 pictures a second.",
    )
    add_flow(parser)
    add_control(parser)
    picture = parser.add_argument_group("picture")
    add_picture(picture, LIVE_PICTURE)
    picture.add_argument(
        "--size",
        metavar="S",
        type=int,
        default=800,
        help="side of the picture at first, in units of 1/96 inch, if the screen has the room "
        "(default: %(default)d)",
    )
    parser.set_defaults(command=_view)


def _view(options: argparse.Namespace) -> int:
    """Import the viewer only here, so that all other commands work without tkinter."""
    try:
        from .viewer import view
    except ImportError as failure:
        raise ZephaneError(
            f"The viewer needs tkinter, which Debian has as python3-tk: {failure}"
        ) from None
    return view(options)


def _add_length(parser: argparse.ArgumentParser) -> None:
    length = parser.add_argument_group("length", "With both, whichever comes first.")
    length.add_argument(
        "--until",
        metavar="T",
        type=float,
        help=f"run to this time exactly (default: {TURNOVERS:g} turnover times of the start "
        "field, or as many more after --state, unless --steps is given)",
    )
    length.add_argument("--steps", metavar="N", type=int, help="take this many steps")


def _add_output(parser: argparse.ArgumentParser) -> None:
    output = parser.add_argument_group("output")
    _add_report(output)
    output.add_argument(
        "--spectrum",
        metavar="FILE",
        help="write the spectrum, N*N complex64, FFT order: raw, or a NumPy file if the name ends "
        "in .npy",
    )
    output.add_argument(
        "--fields",
        metavar="FILE",
        help="write vorticity, u and v, 3*N*N float32: raw, or a NumPy file if the name ends in "
        ".npy",
    )
    output.add_argument(
        "--save-state", metavar="FILE", help="save the state at the end, for --state"
    )
    output.add_argument(
        "--save-every",
        metavar="T",
        type=float,
        help="save it also during the run, each time that so much time of the flow has passed",
    )
    output.add_argument("--png", metavar="FILE", help="draw a picture; needs a Vulkan driver")


def _add_report(output: argparse._ArgumentGroup) -> None:
    output.add_argument(
        "--json", action="store_true", help="print the final figures as JSON, and nothing else"
    )
    output.add_argument(
        "--progress",
        action=argparse.BooleanOptionalAction,
        help="show progress: a line that is updated on a terminal, a new line every ten seconds "
        "elsewhere (default: shown)",
    )


def _add_recording(parser: argparse.ArgumentParser) -> None:
    recording = parser.add_argument_group("recording, with --record")
    recording.add_argument(
        "--record",
        metavar="FILE",
        help="record figures, spectra and fields: a NetCDF file if the name ends in .nc, a Zarr "
        "store if it ends in .zarr; needs pip install 'zephane[data]'",
    )
    _add_intervals(recording)
    recording.add_argument(
        "--at",
        metavar="NAME",
        default="time",
        help='meet these times exactly, "time", or count steps instead and cut none, "steps" '
        "(default: %(default)s)",
    )
    recording.add_argument("--velocity", action="store_true", help="record u and v with the fields")


def _add_intervals(group: argparse._ArgumentGroup, is_needed: bool = False) -> None:
    for name, what in (
        ("--every", "the figures"),
        ("--spectra-every", "spectra and fluxes by wavenumber"),
        ("--fields-every", "the vorticity"),
    ):
        group.add_argument(
            name,
            metavar="T",
            type=float,
            required=is_needed and name == "--every",
            help=f"time of the flow between two samples of {what}",
        )


def _add_picture(parser: argparse.ArgumentParser) -> None:
    picture = parser.add_argument_group("picture, with --png")
    add_picture(picture)
    picture.add_argument(
        "--pixels",
        metavar="P",
        type=int,
        default=DEFAULT_PIXEL_SIZE,
        help=f"side of the picture, {PIXEL_SIZES[0]} to {PIXEL_SIZES[-1]} (default: %(default)d)",
    )
