"""Pictures as files: sizes, paths, full disks, and the order of refusals."""

from __future__ import annotations

import errno
import os

import numpy as np
import pytest
from png_reader import read_png

from .picture_reference import Scene, Settings, drawn
from .words import BAD_PICTURE_SIZE, UNWRITABLE, type_error

pytestmark = pytest.mark.usefixtures("drawing")

SAMPLES = 16 * 16


def cannot_open(code):
    return f"Open PNG failed (0x{code:x})"


# Sizes


def test_a_picture_is_1800_pixels_a_side_by_default(engine, tmp_path):
    assert drawn(engine, tmp_path).shape == (1800, 1800, 4)


@pytest.mark.parametrize("value, pixels", [("1", 1), ("1.9", 1), ("true", 1), ("4294967303", 7)])
def test_a_size_is_read_as_an_integer(engine, tmp_path, value, pixels):
    path = tmp_path / "picture"
    engine.call(f'{{"op":"export","png":"{path}","pixel_size":{value}}}')
    assert read_png(path).shape == (pixels, pixels, 4)


def test_the_largest_picture_is_whole(engine, tmp_path):
    picture = drawn(engine, tmp_path, pixel_size=8192)
    assert picture.shape == (8192, 8192, 4)
    every = 61
    expected = Scene.of(engine, tmp_path).picture(Settings(), 8192, every)
    assert np.abs(picture[::every, ::every, :3] / 255.0 - expected).max() <= 1.5 / 255.0
    assert (picture[..., 3] == 255).all()


@pytest.mark.parametrize("pixels", [0, 8193])
def test_files_written_before_a_refused_picture_are_kept(engine, tmp_path, pixels):
    spectrum, fields, png = (tmp_path / name for name in ("spectrum", "fields", "png"))
    request = {"spectrum": str(spectrum), "fields": str(fields), "png": str(png)}
    words = engine.refusal({"op": "export", **request, "pixel_size": pixels})
    assert words == BAD_PICTURE_SIZE
    assert spectrum.stat().st_size == SAMPLES * 8
    assert fields.stat().st_size == SAMPLES * 12
    assert not png.exists()
    assert engine.advance()["is_finite"]


# The order of refusals


@pytest.mark.parametrize(
    "first, second, words",
    [
        ({"fields": "/"}, {"pixel_size": 0}, UNWRITABLE),
        ({"pixel_size": 0}, {"palette": "none"}, BAD_PICTURE_SIZE),
        ({"pixel_size": "1"}, {"flow": 1}, type_error("number", "string")),
        ({"display": "none"}, {"palette": "none"}, "Unknown display: none"),
        ({"palette": "none"}, {"color_range": "none"}, "Unknown palette: none"),
        ({"color_range": "none"}, {"exposure": "x"}, "Unknown color_range: none"),
        ({"exposure": "x"}, {"sigma": []}, type_error("number", "string")),
        ({"sigma": []}, {"flow": None}, type_error("number", "array")),
        ({"flow": None}, {"png": "/"}, type_error("boolean", "null")),
        ({"palette": "none"}, {"png": "/"}, "Unknown palette: none"),
    ],
)
def test_only_the_first_of_two_faults_is_reported(engine, first, second, words):
    request = {"op": "export", "png": "/dev/null", "pixel_size": 8}
    assert engine.refusal({**request, **second, **first}) == words


def test_a_refused_picture_keeps_the_existing_file(engine, tmp_path):
    path = tmp_path / "picture"
    engine.export(png=str(path), pixel_size=8)
    before = path.read_bytes()
    engine.refusal({"op": "export", "png": str(path), "pixel_size": 0})
    engine.refusal({"op": "export", "png": str(path), "palette": "none"})
    assert path.read_bytes() == before


# Paths


@pytest.mark.parametrize("name", ["é.png", "渦度", "🌀", "a b", "a\\b", 'a"b', "a\nb", "no.jpg"])
def test_a_picture_may_have_any_name(engine, tmp_path, name):
    engine.export(png=str(tmp_path / name), pixel_size=3)
    assert os.listdir(os.fsencode(tmp_path)) == [name.encode("utf-8")]
    assert read_png(tmp_path / name).shape == (3, 3, 4)


def test_a_relative_path_is_relative_to_the_working_folder(engine, tmp_path, monkeypatch):
    monkeypatch.chdir(tmp_path)
    engine.export(png="a.png", pixel_size=3)
    assert read_png(tmp_path / "a.png").shape == (3, 3, 4)


def test_a_picture_replaces_an_existing_file(engine, tmp_path):
    path = tmp_path / "picture"
    path.write_bytes(b"x" * 100000)
    engine.export(png=str(path), pixel_size=3)
    assert read_png(path).shape == (3, 3, 4)


def test_a_null_device_accepts_any_picture(engine):
    assert engine.export(png="/dev/null")["grid_size"] == 16


@pytest.mark.parametrize(
    "name, code",
    [
        ("no/picture", errno.ENOENT),
        ("", errno.ENOENT),
        ("picture/below", errno.ENOTDIR),
        ("/", errno.EISDIR),
        (".", errno.EISDIR),
        ("a" * 256, errno.ENAMETOOLONG),
        ("a/" * 2500 + "b", errno.ENAMETOOLONG),
    ],
    ids=["missing", "nothing", "below a file", "root", "here", "long part", "long path"],
)
def test_an_unwritable_path_is_reported(engine, tmp_path, monkeypatch, name, code):
    monkeypatch.chdir(tmp_path)
    (tmp_path / "picture").write_bytes(b"x")
    assert engine.refusal({"op": "export", "png": name, "pixel_size": 3}) == cannot_open(code)
    assert (tmp_path / "picture").read_bytes() == b"x" and len(os.listdir(tmp_path)) == 1
    assert engine.advance()["is_finite"]


@pytest.mark.parametrize("name", ["\0", "a\0b", "picture\0"])
def test_a_name_with_a_nul_is_refused(engine, tmp_path, monkeypatch, name):
    monkeypatch.chdir(tmp_path)
    words = engine.refusal({"op": "export", "png": name, "pixel_size": 3})
    assert words.startswith("Open PNG failed (0x")
    assert os.listdir(tmp_path) == []


# Small pictures stay in a buffer until the file is closed.
@pytest.mark.parametrize("pixels, step", [(3, "Commit PNG file"), (900, "Write PNG pixels")])
def test_a_full_disk_is_reported(engine, tmp_path, pixels, step):
    fields = tmp_path / "fields"
    request = {"op": "export", "fields": str(fields), "png": "/dev/full", "pixel_size": pixels}
    assert engine.refusal(request) == f"{step} failed (0x{errno.ENOSPC:x})"
    assert fields.stat().st_size == SAMPLES * 12
    assert drawn(engine, tmp_path, pixel_size=3).shape == (3, 3, 4)


def test_the_report_of_a_picture_is_that_of_its_snapshot(engine):
    engine.advance(steps=3)
    report = engine.export(png="/dev/null", pixel_size=3)
    assert report == engine.export(snapshot=True)
    without = engine.export(png="/dev/null", pixel_size=3, include_velocity=False)
    assert without == {**report, "max_speed": 0}


def test_fields_and_picture_of_one_request_show_the_same_frame(engine, tmp_path):
    engine.advance(steps=3)
    fields, png = tmp_path / "fields", tmp_path / "png"
    report = engine.export(fields=str(fields), png=str(png), pixel_size=50)
    planes = np.fromfile(fields, "<f4").reshape(3, 16, 16).astype(float)
    expected = Scene(planes, report).picture(Settings(), 50)
    assert np.abs(read_png(png)[..., :3] / 255.0 - expected).max() <= 1.5 / 255.0


def test_a_lost_flow_is_not_drawn(make_engine, tmp_path):
    engine = make_engine(fixed_dt=1e30, reynolds=1e30)
    lost = engine.refusal({"op": "advance"})
    assert "non-finite" in lost
    path = tmp_path / "picture"
    assert "Reset to recover." in engine.refusal({"op": "export", "png": str(path)})
    assert not path.exists()
    engine.reset()
    assert drawn(engine, tmp_path, pixel_size=3).shape == (3, 3, 4)
