"""The command ``film``: makes a film of one flow and reports on the flow."""

from __future__ import annotations

import argparse
import dataclasses
import json
import time

from .engine import initialize
from .film_files import check_film, film_format
from .films import FilmPlan, checked_plan, make_film
from .options import chosen_picture
from .progress import shown_progress
from .refusals import checked_until
from .report import Outcome, describe_run
from .run import default_end, open_flow


def film_flow(options: argparse.Namespace) -> int:
    """Run the command and return its exit code."""
    chosen = film_format(options.film)
    picture = chosen_picture(options)
    plan = checked_plan(chosen, options.seconds, options.fps, options.pixels, picture)
    until = None if options.until is None else checked_until(options.until)
    check_film(options.film)
    system = initialize(options.library)
    with open_flow(options, system, lambda resolution: {options.film: 0}) as engine:
        start = engine.inspect()
        end = default_end(start) if until is None else until
        progress = shown_progress(options.progress, start, None, end)
        began = time.perf_counter()
        with progress:
            milliseconds = make_film(engine, options.film, end, plan, progress.update)
        wall = time.perf_counter() - began
        last = dataclasses.replace(engine.inspect(), gpu_milliseconds=milliseconds)
        outcome = Outcome(start, last, wall, interrupted=False)
        config = engine.config
    if options.json:
        print(json.dumps(dataclasses.asdict(outcome.end), indent=2, sort_keys=True))
    else:
        film = {"film": f"{options.film}, {_describe(plan, chosen.side(plan.pixels))}"}
        print(describe_run(system, config, outcome, film))
    return 0


def _describe(plan: FilmPlan, side: int) -> str:
    seconds = float(plan.frames / plan.fps)
    pictures = f"{plan.frames} pictures of {side} x {side}"
    return f"{seconds:.6g} s, {pictures}, {float(plan.fps):.6g} a second"
