"""Pictures, pixel by pixel: colours, sampling, orientation and flow lines."""

from __future__ import annotations

import itertools
import os

import numpy as np
import pytest

from .picture_reference import (
    COLOR_RANGES,
    DISPLAYS,
    FLOW_COLOR,
    PALETTES,
    Scene,
    Settings,
    drawn,
)

pytestmark = pytest.mark.usefixtures("drawing")

PIXELS = 157

# Rounding to 8 bits takes half a level. The rest allows for single precision, and for the
# accuracy of a graphics driver's exponentials and pixel centres.
TOLERANCE = 1.5 / 255.0

# Each of several lines over a pixel is rounded to 8 bits by itself.
LINES_TOLERANCE = 4.0 / 255.0

OPAQUE = 255


@pytest.fixture
def moved(make_engine):
    engine = make_engine(resolution=32, k0=3, reynolds=400, seed=5)
    engine.advance(steps=40)
    return engine


def disagreement(picture, expected):
    return np.abs(picture[..., :3] / 255.0 - expected).max()


def compared_with_the_formulas(engine, folder, every=1, **request):
    """Compares the picture of a request with the reference and returns it."""
    chosen = {key: request[key] for key in Settings.__annotations__ if key in request}
    picture = drawn(engine, folder, **{"pixel_size": PIXELS, **request})
    expected = Scene.of(engine, folder).picture(Settings(**chosen), len(picture), every)
    assert disagreement(picture[::every, ::every], expected) <= TOLERANCE
    assert (picture[..., 3] == OPAQUE).all()
    return picture


@pytest.mark.parametrize("color_range", COLOR_RANGES)
@pytest.mark.parametrize("palette", PALETTES)
@pytest.mark.parametrize("display", DISPLAYS)
def test_pixels_follow_the_formulas(moved, tmp_path, display, palette, color_range):
    chosen = {"display": display, "palette": palette, "color_range": color_range}
    picture = compared_with_the_formulas(moved, tmp_path, **chosen)
    assert len(np.unique(picture[..., :3].reshape(-1, 3), axis=0)) > 200


@pytest.mark.parametrize("exposure", [0.25, 0.7, 3])
@pytest.mark.parametrize(
    "display, color_range",
    [("vorticity", "exposure"), ("speed", "sigma"), ("enstrophy", "exposure")],
)
def test_the_exposure_is_the_gain_of_the_compressive_curves(
    moved, tmp_path, display, color_range, exposure
):
    chosen = {"display": display, "color_range": color_range, "palette": "glacier"}
    compared_with_the_formulas(moved, tmp_path, exposure=exposure, **chosen)


@pytest.mark.parametrize("palette", PALETTES)
@pytest.mark.parametrize("sigma", [1.5, 2.1, 3.5])
def test_the_sigma_is_the_deviations_that_fill_the_range(moved, tmp_path, palette, sigma):
    compared_with_the_formulas(moved, tmp_path, palette=palette, sigma=sigma)


def test_the_default_picture_is_the_vorticity_in_ember(moved, tmp_path):
    defaults = {
        "display": "vorticity",
        "palette": "ember",
        "color_range": "sigma",
        "exposure": 1.2,
        "sigma": 2.5,
        "flow": False,
    }
    explicit = drawn(moved, tmp_path, pixel_size=PIXELS, **defaults)
    left_out = drawn(moved, tmp_path, pixel_size=PIXELS)
    nulls = {**dict.fromkeys(defaults), "flow": False}
    nothing = drawn(moved, tmp_path, pixel_size=PIXELS, **nulls)
    assert np.array_equal(explicit, left_out) and np.array_equal(explicit, nothing)


@pytest.mark.parametrize(
    "display, color_range, without_effect",
    [
        ("vorticity", "sigma", {"exposure": 3}),
        ("vorticity", "exposure", {"sigma": 1.5}),
        ("speed", "sigma", {"sigma": 1.5, "color_range": "exposure"}),
        ("enstrophy", "sigma", {"sigma": 1.5, "color_range": "exposure"}),
    ],
)
def test_settings_that_a_display_does_not_use_change_nothing(
    moved, tmp_path, display, color_range, without_effect
):
    request = {"pixel_size": PIXELS, "display": display, "color_range": color_range}
    usual = drawn(moved, tmp_path, **request)
    assert np.array_equal(drawn(moved, tmp_path, **{**request, **without_effect}), usual)


@pytest.mark.parametrize(
    "key, given, limit",
    [
        ("exposure", 10, 3),
        ("exposure", 1e300, 3),
        ("exposure", 0, 0.25),
        ("exposure", -5, 0.25),
        ("sigma", 9, 3.5),
        ("sigma", 1, 1.5),
    ],
)
def test_a_number_out_of_range_is_clamped(moved, tmp_path, key, given, limit):
    color_range = "sigma" if key == "sigma" else "exposure"
    request = {"pixel_size": PIXELS, "color_range": color_range}
    cut = drawn(moved, tmp_path, **request, **{key: given})
    assert np.array_equal(cut, drawn(moved, tmp_path, **request, **{key: limit}))
    assert not np.array_equal(cut, drawn(moved, tmp_path, **request))


# Sampling


@pytest.mark.parametrize("pixels", [1, 2, 15, 16, 17, 32, 33, 500])
def test_samples_lie_between_the_points_of_the_grid(engine, tmp_path, pixels):
    # At 500 pixels a side, 16 of them beyond the last point and before the first of the grid.
    engine.advance(steps=5)
    compared_with_the_formulas(engine, tmp_path, pixel_size=pixels)


@pytest.mark.parametrize("resolution", [18, 34, 100])
def test_grids_of_any_size_are_sampled(make_engine, tmp_path, resolution):
    engine = make_engine(resolution=resolution, reynolds=1000)
    engine.advance(steps=5)
    compared_with_the_formulas(engine, tmp_path, display="speed")


def from_samples(make_engine, folder, samples):
    path = folder / "start"
    samples.astype("<f4").tofile(path)
    return make_engine(resolution=len(samples), initial=str(path))


def test_row_zero_lies_at_the_bottom(make_engine, tmp_path):
    angle = 2 * np.pi * np.arange(16) / 16
    engine = from_samples(make_engine, tmp_path, np.sin(angle)[:, None] + 0 * angle)
    picture = drawn(engine, tmp_path, pixel_size=8).astype(int)
    # Above zero "ember" is red, below it blue.
    redness = picture[..., 0] - picture[..., 2]
    assert (redness[4:] > 0).all() and (redness[:4] < 0).all()


def test_columns_run_to_the_right(make_engine, tmp_path):
    angle = 2 * np.pi * np.arange(16) / 16
    engine = from_samples(make_engine, tmp_path, np.sin(angle)[None, :] + 0 * angle[:, None])
    picture = drawn(engine, tmp_path, pixel_size=8).astype(int)
    redness = picture[..., 0] - picture[..., 2]
    assert (redness[:, :4] > 0).all() and (redness[:, 4:] < 0).all()


def test_a_picture_is_seamless_across_its_edges(make_engine, tmp_path):
    size = 24
    noise = np.random.default_rng(8).normal(size=(size, size))
    here = drawn(from_samples(make_engine, tmp_path, noise), tmp_path, pixel_size=5 * size)
    rolled = np.roll(noise, (size // 2, size // 3), axis=(0, 1))
    there = drawn(from_samples(make_engine, tmp_path, rolled), tmp_path, pixel_size=5 * size)
    # Up in the field is up in the picture, whose rows are counted from the top.
    moved = np.roll(here, (-5 * size // 2, 5 * size // 3), axis=(0, 1))
    assert np.abs(moved.astype(int) - there).max() <= 1


# Displays without a velocity, and a fluid at rest


@pytest.mark.parametrize(
    "palette, color", [*((name, (5, 7, 16)) for name in PALETTES[:3]), ("inferno", (0, 0, 4))]
)
def test_the_speed_of_a_frame_without_velocity_is_dark(moved, tmp_path, palette, color):
    request = {"display": "speed", "palette": palette, "include_velocity": False}
    picture = drawn(moved, tmp_path, pixel_size=20, **request)
    assert (picture == (*color, OPAQUE)).all()


@pytest.mark.parametrize("display", ["vorticity", "enstrophy"])
def test_the_vorticity_needs_no_velocity(moved, tmp_path, display):
    request = {"display": display, "pixel_size": PIXELS}
    without = drawn(moved, tmp_path, include_velocity=False, **request)
    assert np.array_equal(without, drawn(moved, tmp_path, **request))


@pytest.mark.parametrize("display, base", [("vorticity", (4, 7, 14)), ("speed", (5, 7, 16))])
def test_a_fluid_at_rest_has_the_base_colour(make_engine, tmp_path, display, base):
    engine = from_samples(make_engine, tmp_path, np.zeros((16, 16)))
    picture = drawn(engine, tmp_path, pixel_size=20, display=display, flow=True)
    assert (picture == (*base, OPAQUE)).all()


# Flow lines


@pytest.mark.parametrize("display, palette", itertools.product(DISPLAYS, ("ember", "aurora")))
def test_flow_lines_lie_over_the_picture_in_their_own_colour(moved, tmp_path, display, palette):
    request = {"pixel_size": 400, "display": display, "palette": palette}
    below = drawn(moved, tmp_path, **request)[..., :3] / 255.0
    lines = drawn(moved, tmp_path, flow=True, **request)
    assert (lines[..., 3] == OPAQUE).all()
    lines = lines[..., :3] / 255.0
    changed = (lines != below).any(axis=-1)
    assert 0.05 < changed.mean() < 0.5
    # Each changed pixel lies between the colour below and the colour of the lines.
    way = FLOW_COLOR - below
    share = ((lines - below) * way).sum(axis=-1) / (way**2).sum(axis=-1)
    assert np.abs(below + share[..., None] * way - lines).max() <= LINES_TOLERANCE
    # A line has at most a quarter of its colour; where lines overlap, less than all of it.
    assert share.min() >= -1.0 / 255.0
    assert np.quantile(share[changed], 0.9) < 0.26
    assert 0.2 < share.max() < 0.9


def test_without_a_velocity_there_are_no_flow_lines(moved, tmp_path):
    request = {"pixel_size": PIXELS, "include_velocity": False}
    lines = drawn(moved, tmp_path, flow=True, **request)
    assert np.array_equal(lines, drawn(moved, tmp_path, **request))


def mean_run(marks):
    """The mean length of unbroken runs of marks along the rows."""
    starts = np.diff(marks.astype(int), axis=1, prepend=0) == 1
    return marks.sum() / starts.sum()


@pytest.mark.parametrize("level", [True, False])
def test_flow_lines_follow_the_flow(make_engine, tmp_path, level):
    # The vorticity sin y belongs to a flow along x alone, and sin x to one along y.
    angle = 2 * np.pi * np.arange(16) / 16
    wave = np.sin(angle)[:, None] + 0 * angle
    engine = from_samples(make_engine, tmp_path, wave if level else wave.T)
    below = drawn(engine, tmp_path, pixel_size=512).astype(int)
    lines = drawn(engine, tmp_path, pixel_size=512, flow=True).astype(int)
    marks = (lines - below)[..., :3].sum(axis=-1) > 6
    along, across = (marks, marks.T) if level else (marks.T, marks)
    assert mean_run(along) > 30 and mean_run(across) < 3


# Files of the same request


@pytest.mark.parametrize("flow", [False, True])
def test_the_same_request_gives_the_same_bytes(moved, make_engine, tmp_path, flow):
    other = make_engine(resolution=32, k0=3, reynolds=400, seed=5)
    other.advance(steps=40)
    files = []
    for engine in (moved, moved, other):
        path = tmp_path / f"{len(files)}.png"
        engine.export(png=str(path), pixel_size=PIXELS, display="speed", flow=flow)
        files.append(path.read_bytes())
    assert files[1:] == files[:1] * 2


def test_drawing_does_not_change_the_flow(moved, make_engine, tmp_path):
    other = make_engine(resolution=32, k0=3, reynolds=400, seed=5)
    other.advance(steps=40)
    drawn(moved, tmp_path, pixel_size=64, flow=True)
    assert moved.advance(steps=5)["simulation_time"] == other.advance(steps=5)["simulation_time"]
    assert moved.spectrum() == other.spectrum()
    assert os.listdir(tmp_path) == ["picture.png"]
