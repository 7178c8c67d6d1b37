"""Pictures from Python: the record of their settings, and the arguments sent to the library."""

from __future__ import annotations

import dataclasses
import math
from pathlib import Path
from typing import Any

import pytest
from png_reader import read_png

import zephane
from zephane import PictureSettings

UNKNOWN_PALETTE = 'palette "Ember" is unknown: aurora, ember, glacier or inferno'


@pytest.mark.parametrize(
    "changes, words",
    [
        ({"display": "pressure"}, 'display "pressure" is unknown: vorticity, speed or enstrophy'),
        ({"palette": "Ember"}, UNKNOWN_PALETTE),
        ({"color_range": ""}, 'color_range "" is unknown: sigma or exposure'),
        ({"exposure": math.inf}, "exposure inf is not finite"),
        ({"sigma": math.nan}, "sigma nan is not finite"),
    ],
)
def test_invalid_settings_are_refused_on_construction(changes: Any, words: str) -> None:
    with pytest.raises(ValueError) as refusal:
        PictureSettings(**changes)
    assert str(refusal.value) == words


def test_the_defaults_of_the_settings_match_the_library(
    engine: zephane.Engine, tmp_path: Path
) -> None:
    given, left_out = tmp_path / "a.png", tmp_path / "b.png"
    engine.export(png=given, pixel_size=90, **dataclasses.asdict(PictureSettings()))
    engine.export(png=left_out, pixel_size=90)
    assert given.read_bytes() == left_out.read_bytes()
    with zephane.View(library=engine._library.path) as view:
        status = view.status()
    for field in dataclasses.fields(PictureSettings):
        assert getattr(status, field.name) == pytest.approx(field.default, rel=1e-7)


def test_the_library_accepts_every_name_of_a_setting(engine: zephane.Engine) -> None:
    names = {
        "display": zephane.DISPLAYS,
        "palette": zephane.PALETTES,
        "color_range": zephane.COLOR_RANGES,
    }
    for key, values in names.items():
        for value in values:
            request: dict[str, Any] = dataclasses.asdict(PictureSettings(**{key: value}))
            assert engine.export(png="/dev/null", pixel_size=2, **request) is not None


@pytest.mark.parametrize(
    "changes, needs", [({}, False), ({"display": "speed"}, True), ({"flow": True}, True)]
)
def test_speeds_and_flow_lines_need_the_velocity(
    engine: zephane.Engine, tmp_path: Path, changes: Any, needs: bool
) -> None:
    settings = PictureSettings(**changes)
    assert settings.needs_velocity == needs
    engine.advance(5)
    files = [tmp_path / "with.png", tmp_path / "without.png"]
    for path, velocity in zip(files, (True, False)):
        request: dict[str, Any] = dataclasses.asdict(settings)
        engine.export(png=path, pixel_size=200, include_velocity=velocity, **request)
    assert (files[0].read_bytes() != files[1].read_bytes()) == needs


def test_a_picture_has_the_requested_size(engine: zephane.Engine, tmp_path: Path) -> None:
    snapshot = engine.export(png=tmp_path / "渦.png", pixel_size=33)
    assert snapshot is not None and snapshot.grid_size == 64
    assert read_png(tmp_path / "渦.png").shape == (33, 33, 4)


def test_pictures_need_no_numpy(
    engine: zephane.Engine, tmp_path: Path, without_numpy: None
) -> None:
    engine.export(png=tmp_path / "a.png", pixel_size=33)
    assert read_png(tmp_path / "a.png").shape == (33, 33, 4)


@pytest.mark.parametrize(
    "request_, words",
    [
        ({"pixel_size": 0}, "pixel_size 0 is too small: whole numbers from 1 to 8192"),
        ({"palette": "Ember"}, UNKNOWN_PALETTE),
        (
            {"png": "/nowhere/a.png"},
            "Cannot write /nowhere/a.png: No such file or directory (Open PNG failed (0x2))",
        ),
    ],
)
def test_a_picture_that_cannot_be_made_is_refused_with_the_reason(
    engine: zephane.Engine, request_: Any, words: str
) -> None:
    with pytest.raises(zephane.ZephaneError) as refusal:
        engine.export(**{"png": "/dev/null", "pixel_size": 8, **request_})
    assert str(refusal.value) == words
