"""Pictures, compared pixel by pixel with the colour formulas worked out one point at a time."""

from __future__ import annotations

import array
import itertools
import math
import random
from collections.abc import Sequence
from pathlib import Path
from typing import Any

import numpy as np
import pytest
from png_reader import read_png

import zephane
from zephane import Fields, PictureSettings, Snapshot

SIZE = 20
PIXELS = 53

CHOICES = list(itertools.product(zephane.DISPLAYS, zephane.PALETTES, zephane.COLOR_RANGES))


def sample_fields() -> Fields:
    """Noise with a mean of its own, so that every part of every formula matters."""
    noise = np.random.default_rng(5).normal(size=(3, SIZE, SIZE)).astype(np.float32)
    noise[0] += 0.3
    vorticity = noise[0].astype(np.float64)
    snapshot = Snapshot(
        sequence=0,
        time=0.0,
        grid_size=SIZE,
        max_vorticity=float(np.abs(vorticity).max()),
        mean_vorticity=float(vorticity.mean()),
        std_vorticity=float(vorticity.std()),
        max_speed=float(np.hypot(noise[1], noise[2]).max()),
    )
    return Fields(noise, snapshot)


def plain(fields: Fields) -> Fields:
    return Fields(array.array("f", fields.data.tobytes()), fields.snapshot)


def pixel_at(picture: bytes, pixels: int, row: int, column: int) -> tuple[int, ...]:
    start = 3 * (row * pixels + column)
    return tuple(picture[start : start + 3])


# The formulas again, in double precision and in another form: colours are looked up by name, and
# a sample is the sum of its four neighbours by their weights.

SIDES = {
    ("aurora", 1): "025 600 580 / 480 1000 840",
    ("aurora", -1): "480 200 790 / 940 670 1000",
    ("ember", 1): "920 190 65 / 1000 880 430",
    ("ember", -1): "280 170 690 / 760 640 1000",
    ("glacier", 1): "10 460 780 / 700 1000 990",
    ("glacier", -1): "140 240 680 / 700 790 1000",
    ("aurora", 0): "300 170 630 / 360 1000 800",
    ("ember", 0): "670 100 170 / 1000 860 410",
    ("glacier", 0): "20 330 720 / 730 970 1000",
}
INFERNO = "1 0 14 / 258 39 406 / 578 148 404 / 865 317 226 / 988 645 40 / 988 998 645"


def thousandths(text: str) -> np.ndarray:
    return np.array([[int(n) / 1000 for n in color.split()] for color in text.split("/")])


def smooth(x: float) -> float:
    return 3 * x**2 - 2 * x**3


def expected_color(t: float, palette: str, signed: bool) -> np.ndarray:
    if palette == "inferno":
        place = 5 * (0.5 * t + 0.5 if signed else t)
        points = thousandths(INFERNO)
        return np.array([np.interp(place, range(6), points[:, c]) for c in range(3)])
    base = np.array([0.017, 0.026, 0.055] if signed else [0.019, 0.028, 0.063])
    side = (1 if t >= 0 else -1) if signed else 0
    middle, end = thousandths(SIDES[palette, side])
    a = abs(t)
    rise, start = (0.6, 0.34) if signed else (0.5, 0.32)
    first, second = smooth(min(a / rise, 1)), smooth(max(a - start, 0) / (1 - start))
    color = base * (1 - first) + middle * first
    return np.asarray(color * (1 - second) + end * second)


def expected_sample(plane: np.ndarray, u: float, v: float) -> float:
    size = len(plane)
    x, y = u * size, v * size
    total = 0.0
    for dj, di in itertools.product((0, 1), repeat=2):
        j, i = math.floor(y) + dj, math.floor(x) + di
        total += float(plane[j % size, i % size]) * (1 - abs(x - i)) * (1 - abs(y - j))
    return total


def expected_place(fields: Fields, settings: PictureSettings, u: float, v: float) -> float:
    w, a, b = (expected_sample(plane, u, v) for plane in fields.data)
    told, gain = fields.snapshot, settings.exposure
    if settings.display == "speed":
        return 1 - math.exp(-2.1 * gain * math.hypot(a, b) / told.max_speed)
    if settings.display == "enstrophy":
        return 1 - math.exp(-8 * gain * (w / told.max_vorticity) ** 2)
    if settings.color_range == "exposure":
        return math.tanh(2.4 * gain * w / told.max_vorticity)
    t = (w - told.mean_vorticity) / (settings.sigma * told.std_vorticity)
    return max(-1.0, min(1.0, t))


def expected_pixel(
    fields: Fields, settings: PictureSettings, pixels: int, row: int, column: int
) -> Sequence[float]:
    u, v = (column + 0.5) / pixels, 1 - (row + 0.5) / pixels
    t = expected_place(fields, settings, u, v)
    color = expected_color(t, settings.palette, settings.display == "vorticity")
    return [255 * c for c in color]


@pytest.mark.parametrize("form", [lambda fields: fields, plain], ids=["numpy", "plain"])
@pytest.mark.parametrize("display, palette, color_range", CHOICES)
def test_pixels_follow_the_formulas(
    form: Any, display: str, palette: str, color_range: str
) -> None:
    fields = sample_fields()
    settings = PictureSettings(display, palette, color_range, exposure=0.9, sigma=1.7)
    picture = zephane.render(form(fields), settings, PIXELS)
    edge = [(0, 0), (0, PIXELS - 1), (PIXELS - 1, 0), (PIXELS - 1, PIXELS - 1)]
    pick = random.Random(3)
    inner = [(pick.randrange(PIXELS), pick.randrange(PIXELS)) for _ in range(60)]
    for row, column in edge + inner:
        expected = expected_pixel(fields, settings, PIXELS, row, column)
        # Half a level of rounding to 8 bits, and a little for single precision and the table.
        assert pixel_at(picture, PIXELS, row, column) == pytest.approx(expected, abs=0.65)


@pytest.mark.parametrize("display, palette, color_range", CHOICES)
def test_pictures_are_the_same_without_numpy(display: str, palette: str, color_range: str) -> None:
    fields = sample_fields()
    settings = PictureSettings(display, palette, color_range)
    with_numpy = zephane.render(fields, settings, PIXELS)
    without = zephane.render(plain(fields), settings, PIXELS)
    differences = [abs(a - b) for a, b in zip(with_numpy, without)]
    assert len(with_numpy) == len(without) == 3 * PIXELS * PIXELS
    assert max(differences) <= 1
    assert sum(map(bool, differences)) <= 0.01 * len(differences)


def test_row_zero_lies_at_the_bottom() -> None:
    fields = sample_fields()
    fields.data[0] = 0.0
    fields.data[0][0:2] = 1.0
    picture = zephane.render(fields, PictureSettings(color_range="exposure"), SIZE)
    brightness = [sum(picture[3 * SIZE * row : 3 * SIZE * (row + 1)]) for row in range(SIZE)]
    # The bottom pixels lie between rows 0 and 1; those above them and, since the field is
    # periodic, those at the top lie between a row of ones and a row of zeros.
    assert brightness[-1] > brightness[-2] == brightness[0] > max(brightness[1:-2])


def test_a_picture_is_seamless_across_its_edges() -> None:
    fields = sample_fields()
    rolled = Fields(np.roll(fields.data, (SIZE // 2, SIZE // 2), axis=(1, 2)), fields.snapshot)
    here = np.frombuffer(zephane.render(fields, pixels=40), np.uint8).reshape(40, 40, 3)
    there = np.frombuffer(zephane.render(rolled, pixels=40), np.uint8).reshape(40, 40, 3)
    assert np.array_equal(np.roll(here, (20, 20), axis=(0, 1)), there)


def test_a_fluid_at_rest_is_dark_and_raises_nothing() -> None:
    nothing = np.zeros((3, SIZE, SIZE), np.float32)
    fields = Fields(nothing, Snapshot(0, 0.0, SIZE, 0.0, 0.0, 0.0, 0.0))
    for form in (fields, plain(fields)):
        for display in zephane.DISPLAYS:
            picture = zephane.render(form, PictureSettings(display), 8)
            assert set(picture) == set(picture[:3]) and max(picture) < 20


@pytest.mark.parametrize(
    "changes, words",
    [
        ({"display": "pressure"}, "Unknown display: pressure"),
        ({"palette": "Ember"}, "Unknown palette: Ember"),
        ({"color_range": ""}, "Unknown color_range: "),
        ({"exposure": math.inf}, "Non-finite exposure"),
        ({"sigma": math.nan}, "Non-finite sigma"),
    ],
)
def test_unknown_settings_are_refused(changes: Any, words: str) -> None:
    with pytest.raises(ValueError) as refusal:
        PictureSettings(**changes)
    assert str(refusal.value) == words


def test_numbers_out_of_range_are_brought_into_it() -> None:
    assert PictureSettings(exposure=10, sigma=9) == PictureSettings(exposure=3.0, sigma=3.5)
    assert PictureSettings(exposure=0, sigma=1) == PictureSettings(exposure=0.25, sigma=1.5)


@pytest.mark.parametrize("pixels", [0, 8193])
def test_sizes_out_of_range_are_refused(pixels: int) -> None:
    with pytest.raises(ValueError, match="^PNG size must be 1 through 8192.$"):
        zephane.render(sample_fields(), pixels=pixels)


@pytest.mark.parametrize("width, height", [(1, 1), (7, 3), (64, 50)])
def test_a_png_file_holds_the_pixels(tmp_path: Path, width: int, height: int) -> None:
    pixels = random.Random(9).randbytes(3 * width * height)
    zephane.write_png(tmp_path / "a.png", width, height, pixels)
    read: list[bytes]
    *size, read = read_png(tmp_path / "a.png")
    assert size == [width, height]
    assert b"".join(read) == pixels


def test_a_png_file_of_too_few_pixels_is_not_written(tmp_path: Path) -> None:
    with pytest.raises(ValueError):
        zephane.write_png(tmp_path / "a.png", 2, 2, bytes(11))
    assert not (tmp_path / "a.png").exists()


def test_a_flow_of_the_library_becomes_a_picture(engine: zephane.Engine, tmp_path: Path) -> None:
    engine.advance(20)
    fields = engine.fields()
    for display in zephane.DISPLAYS:
        settings = PictureSettings(display)
        picture = zephane.render(fields, settings, 100)
        zephane.write_png(tmp_path / "flow.png", 100, 100, picture)
        width, height, rows = read_png(tmp_path / "flow.png")
        assert (width, height) == (100, 100)
        for row, column in ((0, 0), (31, 77), (99, 50)):
            expected = expected_pixel(fields, settings, 100, row, column)
            assert rows[row][3 * column : 3 * column + 3] == pytest.approx(expected, abs=0.65)
