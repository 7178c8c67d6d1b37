"""The contents of the host's window, texel by texel, against the exported picture of the
same frame."""

from __future__ import annotations

import time
from pathlib import Path
from typing import Callable

import numpy as np
import pytest
from png_reader import read_png
from xwindow import PATIENCE_SECONDS, Host, Shot, Window, until

from .view import View

CLEAR = (9, 12, 19)
CORNER = 15  # the radius of the picture's lower corners

Place = tuple[float, float, float, float]  # left, top, right, bottom, in device-independent units

BADGE: Place = (14, 14, 204, 40)
BADGE_TEXT: Place = (24, 14, 204, 40)


def bar(side: float) -> Place:
    return (14, side - 49, 128, side - 14)


def glyph(side: float, number: int) -> Place:
    return (26 + 38 * number, side - 49, 52 + 38 * number, side - 14)


def clock(side: float) -> Place:
    return (side - 114, side - 46, side - 14, side - 17)


def message(side: float) -> Place:
    return (20, side / 2 - 15, side - 20, side / 2 + 30)


def part(shot: Shot, place: Place, scale: float = 1) -> Shot:
    left, top, right, bottom = (max(round(value * scale), 0) for value in place)
    return shot[top:bottom, left:right].astype(int)


def outside(shape: tuple[int, ...], places: list[Place], scale: float) -> np.ndarray:
    """What of a picture lies apart from the places, and from its round corners."""
    free = np.ones(shape[:2], bool)
    for left, top, right, bottom in places:
        rows = slice(max(int(top * scale) - 1, 0), max(int(bottom * scale) + 2, 0))
        columns = slice(max(int(left * scale) - 1, 0), max(int(right * scale) + 2, 0))
        free[rows, columns] = False
    corner = int(CORNER * scale) + 1
    free[-corner:, :corner] = free[-corner:, -corner:] = False
    return free


def exported(view: View, side: int, folder: Path) -> Shot:
    path = folder / "picture.png"
    view.call("export", png=str(path), pixel_size=side)
    picture = read_png(path)
    assert picture.shape == (side, side, 4)
    return picture[..., :3]


def expect(holds: Callable[[], np.ndarray | bool]) -> None:
    """Waits until the condition holds for every texel."""
    end = time.monotonic() + PATIENCE_SECONDS
    while not np.all(found := np.asarray(holds())):
        wrong = np.argwhere(~found)
        assert time.monotonic() < end, f"{len(wrong)} are wrong, the first is {wrong[0]}"
        time.sleep(0.02)


def expect_picture(view: View, window: Window, folder: Path, scale: float = 1) -> Shot:
    """Waits until the window shows the view's picture, and returns what was exported of it."""
    pixels = min(window.size())
    side = pixels / scale
    wanted = exported(view, pixels, folder).astype(int)
    free = outside(wanted.shape, [BADGE, bar(side), clock(side)], scale)
    assert free.sum() > 0.3 * pixels * pixels or pixels < 150

    def holds() -> np.ndarray:
        seen = window.shot()[:pixels, :pixels].astype(int)
        return (np.abs(seen - wanted).max(axis=2) <= 1) | ~free

    expect(holds)
    return wanted


def is_clear(shot: Shot) -> np.ndarray:
    return np.abs(shot.astype(int) - CLEAR).max(axis=-1) <= 1


def ink(shot: Shot, place: Place, scale: float = 1) -> np.ndarray:
    """Columns of a place that hold a bright, nearly white texel."""
    return (part(shot, place, scale).min(axis=2) > 150).any(axis=0)


@pytest.fixture
def still(make_view) -> View:
    """A view of a flow with something to see, at its start."""
    view = make_view(resolution=64, k0=3)
    view.call("running", value=False)
    view.call("set", regulated=False)
    view.call("start")
    view.settled()
    return view


@pytest.mark.parametrize("size", [(300, 300), (420, 260), (260, 420)])
def test_the_window_shows_the_picture_that_is_exported(still, host, tmp_path, size):
    window = host.window(*size)
    still.attach(window.id)
    wanted = expect_picture(still, window, tmp_path)
    assert wanted.std() > 10  # There is something to see.


@pytest.mark.parametrize("scale, size", [(1.5, (450, 480)), (2, (640, 600)), (0.75, (333, 300))])
def test_the_picture_fills_the_window_at_every_scale(still, host, tmp_path, scale, size):
    host.set_resolution(96 * scale)
    window = host.window(*size)
    still.attach(window.id)
    expect_picture(still, window, tmp_path, scale)


@pytest.mark.parametrize(
    "settings",
    [
        {"palette": "aurora"},
        {"palette": "inferno", "display": "enstrophy"},
        {"palette": "glacier", "display": "speed"},
        {"color_range": "exposure", "exposure": 3},
        {"flow": True},
    ],
)
def test_the_picture_follows_the_settings(still, window, tmp_path, settings):
    still.attach(window.id)
    before = expect_picture(still, window, tmp_path)
    still.call("set", **settings)
    if settings.get("display") == "speed" or settings.get("flow"):
        still.wait(lambda now: now["frame"]["max_speed"] > 0)
    after = expect_picture(still, window, tmp_path)
    assert np.abs(after - before).max() > 30


def test_the_picture_follows_the_flow(still, window, tmp_path):
    still.attach(window.id)
    before = expect_picture(still, window, tmp_path)
    still.call("seed")
    still.settled()
    assert np.abs(expect_picture(still, window, tmp_path) - before).max() > 30


def test_the_first_row_of_the_field_lies_at_the_bottom(make_view, window, tmp_path):
    side, column, row = 64, 40, 20
    x, y = np.meshgrid(np.arange(side), np.arange(side))
    blob = np.exp(-((x - column) ** 2 + (y - row) ** 2) / 18.0)
    field = tmp_path / "start"
    field.write_bytes((20 * (blob - blob.mean())).astype("<f4").tobytes())
    view = make_view(resolution=side)
    view.call("running", value=False)
    view.call("benchmark", initial=str(field))
    view.call("start")
    view.settled()
    view.attach(window.id)
    expect_picture(view, window, tmp_path)
    shot = window.shot().astype(int)

    def colour(column: int, row: int) -> np.ndarray:
        return shot[299 - int((row + 0.5) / side * 300), int((column + 0.5) / side * 300)]

    usual = colour(side - column, side - row)
    assert np.abs(colour(column, row) - usual).max() > 60
    for mirrored in ((side - column, row), (column, side - row), (row, column)):
        assert np.abs(colour(*mirrored) - usual).max() < 20


@pytest.mark.parametrize("size", [(300, 300), (420, 260), (260, 420)])
def test_the_rest_of_the_window_is_clear(still, host, tmp_path, size):
    window = host.window(*size)
    still.attach(window.id)
    expect_picture(still, window, tmp_path)
    side = min(size)
    shot = window.shot()
    assert is_clear(shot[side:]).all() and is_clear(shot[:, side:]).all()


def test_only_the_lower_corners_of_the_picture_are_round(still, window, tmp_path):
    still.attach(window.id)
    wanted = expect_picture(still, window, tmp_path)
    shot = window.shot()
    assert not is_clear(wanted[297:, :3]).any() and not is_clear(wanted[297:, 297:]).any()
    assert is_clear(shot[297:, :3]).all() and is_clear(shot[297:, 297:]).all()
    assert not is_clear(shot[:3]).any()
    assert np.abs(shot[:3] - wanted[:3]).max() <= 1
    centre = shot[300 - CORNER - 1 : 300 - CORNER + 1, CORNER - 1 : CORNER + 1]
    assert not is_clear(centre).any()


def shown_at(view: View, host: Host, folder: Path, scale: float) -> tuple[Shot, Shot]:
    """A window of 300 units with the view's picture, and the picture alone."""
    host.set_resolution(96 * scale)
    pixels = round(300 * scale)
    window = host.window(pixels, pixels)
    view.attach(window.id)
    wanted = expect_picture(view, window, folder, scale)
    return window.shot(), wanted


@pytest.mark.parametrize("scale", [1, 1.5, 2])
def test_panels_darken_the_picture_where_they_have_no_text(still, host, tmp_path, scale):
    shot, wanted = shown_at(still, host, tmp_path, scale)
    # The right end of the badge, and the left ends of the bar and of the clock's panel.
    for place in [(160, 20, 196, 34), (19, 260, 24, 276), (190, 262, 194, 276)]:
        seen, beneath = part(shot, place, scale), part(wanted, place, scale)
        assert seen.size > 0
        assert np.abs(seen - 0.65 * beneath).max() <= 1.5, place


@pytest.mark.parametrize("scale", [1, 1.5, 2])
def test_texts_are_at_their_places(still, host, tmp_path, scale):
    shot, _ = shown_at(still, host, tmp_path, scale)
    left, *_, right = np.flatnonzero(ink(shot, BADGE_TEXT, scale)) / scale
    assert left < 4 and 60 < right < 130
    for number in range(3):
        found = np.flatnonzero(ink(shot, glyph(300, number), scale)) / scale
        assert found.size > 0 and found[0] < 6, number
    left, *_, right = np.flatnonzero(ink(shot, clock(300), scale)) / scale
    assert 9 < left < 14 and 40 < right < 75


def test_the_first_glyph_shows_whether_the_flow_runs(make_view, window):
    view = make_view(resolution=64, fixed_dt=1e-4)
    view.show(window.id)

    def marks() -> bytes:
        return (part(window.shot(), glyph(300, 0)).min(axis=2) > 150).tobytes()

    view.call("running", value=False)
    count = view.settled()["presentations"]
    view.wait(lambda now: now["presentations"] > count + 5)
    until(lambda: any(marks()), "the first glyph")
    paused = marks()
    view.call("running", value=True)
    until(lambda: marks() != paused, "pause")
    running = marks()
    view.call("running", value=False)
    until(lambda: marks() == paused, "play")
    assert running != paused


def test_the_clock_follows_the_flow(still, window, tmp_path):
    still.call("configure", fixed_dt=0.125)
    still.settled()
    still.attach(window.id)
    expect_picture(still, window, tmp_path)

    def marks() -> bytes:
        return (part(window.shot(), clock(300)).min(axis=2) > 150).tobytes()

    seen = [marks()]
    for count in range(1, 4):
        still.call("step")
        still.steps(count)
        until(lambda: marks() not in seen, "another time")
        seen.append(marks())


@pytest.mark.parametrize("scale", [1, 2])
def test_a_flow_in_preparation_is_shown_as_such(make_view, host, scale):
    host.set_resolution(96 * scale)
    window = host.window(300 * scale, 300 * scale)
    view = make_view()
    view.attach(window.id)
    until(lambda: ink(window.shot(), message(300), scale).any(), "the message")
    shot = window.shot()
    left, *_, right = np.flatnonzero(ink(shot, message(300), scale)) / scale
    assert left < 5 and 90 < right < 140
    free = outside(shot.shape, [BADGE, bar(300), clock(300), message(300)], scale)
    assert is_clear(shot)[free].all()
    assert ink(shot, BADGE_TEXT, scale).any()
    view.call("start")
    view.wait(lambda now: now["presentations"] > 0)
    until(lambda: not ink(window.shot(), (20, 130, 60, 170), scale).all(), "the message to go")


def test_a_flow_that_cannot_be_created_is_shown_as_failed(make_view, host):
    window = host.window(400, 400)
    view = make_view()
    view.attach(window.id)
    until(lambda: ink(window.shot(), message(400)).any(), "the message")
    length = np.flatnonzero(ink(window.shot(), message(400)))[-1]
    view.call("benchmark", initial="/nowhere/start")
    view.call("start")
    view.wait(lambda now: now["error_message"])
    until(lambda: np.flatnonzero(ink(window.shot(), message(400)))[-1] > 2 * length, "failure")
    assert view.get()["presentations"] == 0


@pytest.mark.parametrize("size", [(1, 1), (20, 20), (1, 400), (400, 2), (60, 60)])
def test_a_tiny_window_shows_what_it_can(still, host, tmp_path, size):
    window = host.window(*size)
    still.attach(window.id)
    until(lambda: still.get()["presentations"] > 3, "presentations")
    expect_picture(still, window, tmp_path)
    background = (0x3A, 0x7F, 0x5C)
    assert not (window.shot() == background).all(axis=2).any()
    assert still.get()["error_message"] is None


def test_a_covered_area_is_redrawn(still, host, window, tmp_path):
    still.attach(window.id)
    expect_picture(still, window, tmp_path)
    shot = window.shot()
    cover = host.window(120, 120)
    until(lambda: (cover.shot() == (0x3A, 0x7F, 0x5C)).all(), "the cover")
    assert not (window.shot() == shot).all()
    cover.destroy()
    until(lambda: (window.shot() == shot).all(), "what was covered")


def test_changes_while_hidden_are_shown_afterwards(still, window, tmp_path):
    still.attach(window.id)
    before = expect_picture(still, window, tmp_path)
    window.hide()
    still.call("set", palette="aurora")
    window.show()
    assert np.abs(expect_picture(still, window, tmp_path) - before).max() > 30
    still.call("visible", value=False)
    still.call("set", palette="ember")
    still.call("visible", value=True)
    assert (expect_picture(still, window, tmp_path) == before).all()
