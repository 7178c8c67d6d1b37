"""What engines and fields show in a notebook: a picture beside a table of figures, as HTML."""

from __future__ import annotations

import base64
import html
from collections.abc import Callable, Iterable

from ._numpy import numpy
from .errors import ZephaneError
from .live_pictures import live_png, spectrum_of
from .records import LIVE_PICTURE, Config, Snapshot, Statistics
from .report import memory
from .viscosity import resolution_number

# Of a finer grid the picture shows what so many points a side hold.
POINTS = 384
SHOWN_PIXELS = 256
SQUARE = f"width: {SHOWN_PIXELS}px; height: {SHOWN_PIXELS}px"


def flow_png(save: Callable[[str], object], resolution: int) -> bytes | None:
    """The vorticity of a flow whose state ``save`` writes, or None without NumPy."""
    if numpy() is None:
        return None
    return live_png(spectrum_of(save, resolution, POINTS), LIVE_PICTURE)


def flow_page(
    config: Config, now: Statistics, device: str, save: Callable[[str], object]
) -> str:
    """The picture and the figures of a flow."""
    turnovers = ""
    if now.initial_turnover_time > 0.0:
        turnovers = f", {now.simulation_time / now.initial_turnover_time:.2f} turnovers"
    eddies = resolution_number(config.resolution, now.reynolds, now.palinstrophy)
    rows = (
        ("time", f"{now.simulation_time:.6g}{turnovers}"),
        ("steps", f"{now.steps}, the last of {now.dt:.4g}"),
        ("energy", f"{now.energy:.6g}"),
        ("enstrophy", f"{now.enstrophy:.6g}"),
        ("palinstrophy", f"{now.palinstrophy:.6g}"),
        ("Reynolds", f"{now.reynolds:.6g}"),
        ("k_max eta", f"{eddies:.2f}"),
        ("scheme", f"{config.integrator}, {config.operator}, {config.start_spectrum}"),
        ("memory", f"{memory(now.allocated_bytes)} on {device}"),
    )
    size = config.resolution
    title = f"Flow of {size} x {size}, k0 {config.k0}, seed {config.seed}"
    return page(title, rows, flow_png(save, size))


def fields_page(snapshot: Snapshot, has_velocity: bool, png: bytes | None) -> str:
    """The picture of the vorticity and the moments of the fields."""
    rows = [
        ("time", f"{snapshot.time:.6g}"),
        ("steps", f"{snapshot.sequence}"),
        ("largest |vorticity|", f"{snapshot.max_vorticity:.6g}"),
        ("its deviation", f"{snapshot.std_vorticity:.6g}"),
    ]
    if has_velocity:
        rows.append(("largest speed", f"{snapshot.max_speed:.6g}"))
    planes = "Vorticity, u and v" if has_velocity else "Vorticity"
    return page(f"{planes} on {snapshot.grid_size} x {snapshot.grid_size} points", rows, png)


def failure_page(title: str, failure: ZephaneError) -> str:
    return page(title, (("failure", str(failure)),), None)


def page(title: str, rows: Iterable[tuple[str, str]], png: bytes | None) -> str:
    cell = '<td style="text-align: left; padding: 0 1em 0 0; white-space: pre-wrap">'
    lines = "".join(
        f"<tr>{cell}{html.escape(name)}</td>{cell}{html.escape(value)}</td></tr>"
        for name, value in rows
    )
    return (
        '<div style="display: flex; flex-wrap: wrap; gap: 1.2em; align-items: flex-start">'
        f"{image(png, title)}<div><b>{html.escape(title)}</b>"
        f'<table style="margin: 0.4em 0">{lines}</table></div></div>'
    )


def image(png: bytes | None, title: str, style: str = SQUARE) -> str:
    """A picture within a page; nothing where there is none."""
    if png is None:
        return ""
    data = base64.b64encode(png).decode("ascii")
    return f'<img src="data:image/png;base64,{data}" alt="{html.escape(title)}" style="{style}">'
