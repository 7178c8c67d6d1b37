"""The viewer's colours are those of the library's pictures."""

from __future__ import annotations

import math
from array import array
from pathlib import Path
from typing import Any, Callable

import pytest
from png_reader import read_png

import zephane
from zephane.colors import color, color_table

SIDE, PIXELS = 256, 200

# Rounding to 8 bits takes half a level, and so does the table's.
TOLERANCE = 1.5 / 255.0


def vorticity(angle: float) -> float:
    return math.cos(angle) + math.cos(3.0 * angle)


def speed(angle: float) -> float:
    return abs(math.sin(angle) + math.sin(3.0 * angle) / 3.0)


@pytest.fixture
def wave(make_engine: Callable[..., zephane.Engine], tmp_path: Path) -> zephane.Engine:
    """A flow across whose planes two waves run: the vorticity's standard deviation is 1."""
    row = array("f", (vorticity(2.0 * math.pi * i / SIDE) for i in range(SIDE)))
    path = tmp_path / "wave"
    path.write_bytes(row.tobytes() * SIDE)
    return make_engine(resolution=SIDE, initial=path)


def row_of_a_picture(engine: zephane.Engine, folder: Path, **settings: Any) -> Any:
    path = folder / "picture.png"
    engine.export(png=path, pixel_size=PIXELS, include_velocity=True, **settings)
    return read_png(path)[PIXELS // 2, :, :3] / 255.0


def angles() -> list[float]:
    return [2.0 * math.pi * (i + 0.5) / PIXELS for i in range(PIXELS)]


@pytest.mark.parametrize("palette", zephane.PALETTES)
def test_signed_colors_match_a_picture(
    wave: zephane.Engine, tmp_path: Path, palette: str
) -> None:
    sigma = 1.75  # so that both ends of the scale are reached
    row = row_of_a_picture(wave, tmp_path, palette=palette, sigma=sigma)
    for seen, angle in zip(row, angles()):
        place = min(max(vorticity(angle) / sigma, -1.0), 1.0)
        assert seen == pytest.approx(color(place, palette, True), abs=TOLERANCE)


@pytest.mark.parametrize("palette", zephane.PALETTES)
def test_unsigned_colors_match_a_picture(
    wave: zephane.Engine, tmp_path: Path, palette: str
) -> None:
    exposure = 3.0
    row = row_of_a_picture(wave, tmp_path, palette=palette, display="speed", exposure=exposure)
    for seen, angle in zip(row, angles()):
        place = 1.0 - math.exp(-2.1 * exposure * speed(angle) / speed(math.pi / 4.0))
        assert seen == pytest.approx(color(place, palette, False), abs=TOLERANCE)


@pytest.mark.parametrize("signed", [False, True])
@pytest.mark.parametrize("palette", zephane.PALETTES)
def test_a_table_holds_the_colors_of_a_whole_scale(palette: str, signed: bool) -> None:
    table = color_table(palette, signed, 10)
    assert len(table) == 11
    for place, entry in ((0, table[0]), (5, table[5]), (10, table[10])):
        t = place / 5.0 - 1.0 if signed else place / 10.0
        levels = [255.0 * channel for channel in color(t, palette, signed)]
        assert list(entry) == pytest.approx(levels, abs=0.6)
