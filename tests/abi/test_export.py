"""The operation "export": its arguments, its files and replies, and their order."""

from __future__ import annotations

import pytest

from .harness import SNAPSHOT, types_of
from .words import UNWRITABLE, type_error


def test_an_empty_export_replies_with_an_empty_object(engine, tmp_path, monkeypatch):
    monkeypatch.chdir(tmp_path)
    assert engine.raw({"op": "export"}) == b"{}"
    nothing = dict.fromkeys(["spectrum", "fields", "png"])
    assert engine.raw({"op": "export", "snapshot": False, **nothing}) == b"{}"
    assert not list(tmp_path.iterdir())


def test_export_of_a_spectrum_replies_with_an_empty_object(engine, tmp_path):
    path = tmp_path / "a.bin"
    assert engine.raw({"op": "export", "spectrum": str(path)}) == b"{}"
    assert path.stat().st_size == 16 * 16 * 8


def test_export_of_a_snapshot_writes_no_file(engine, tmp_path, monkeypatch):
    monkeypatch.chdir(tmp_path)
    engine.advance(steps=3)
    report = engine.export(snapshot=True)
    assert types_of(report) == SNAPSHOT
    assert report["grid_size"] == 16
    assert report["sequence"] == 3
    assert report["time"] == engine.inspect()["simulation_time"]
    assert not list(tmp_path.iterdir())


def test_export_of_fields_replies_with_the_snapshot_report(engine, tmp_path):
    path = tmp_path / "f.bin"
    assert types_of(engine.export(fields=str(path))) == SNAPSHOT
    assert path.stat().st_size == 16 * 16 * 12


def test_export_of_spectrum_and_fields_writes_both(engine, tmp_path):
    spectrum, fields = tmp_path / "s", tmp_path / "f"
    assert types_of(engine.export(spectrum=str(spectrum), fields=str(fields))) == SNAPSHOT
    assert spectrum.stat().st_size == 16 * 16 * 8
    assert fields.stat().st_size == 16 * 16 * 12


def test_a_snapshot_without_velocity_has_no_speed(engine):
    assert engine.export(snapshot=True)["max_speed"] > 0
    without = engine.export(snapshot=True, include_velocity=False)
    assert without["max_speed"] == 0
    whole = engine.export(snapshot=True, include_velocity=True)
    assert {**whole, "max_speed": 0} == without


def test_many_snapshots_in_sequence_reuse_their_blocks(engine):
    reports = [engine.export(snapshot=True) for _ in range(20)]
    assert reports == reports[:1] * 20


@pytest.mark.parametrize("key", ["snapshot", "include_velocity"])
@pytest.mark.parametrize(
    ("value", "name"),
    [("null", "null"), ("1", "number"), ('"true"', "string"), ("[]", "array"), ("{}", "object")],
)
def test_a_switch_that_is_not_a_boolean_is_refused(engine, tmp_path, key, value, name):
    path = tmp_path / "f"
    text = f'{{"op":"export","fields":"{path.as_posix()}","{key}":{value}}}'
    assert engine.refusal(text) == type_error("boolean", name)
    assert not path.exists()


@pytest.mark.parametrize("key", ["spectrum", "fields", "png"])
@pytest.mark.parametrize(
    ("value", "name"), [("1", "number"), ("true", "boolean"), ("[]", "array"), ("{}", "object")]
)
def test_a_path_that_is_not_a_string_is_refused(engine, key, value, name):
    assert engine.refusal(f'{{"op":"export","{key}":{value}}}') == type_error("string", name)


def test_the_velocity_switch_is_read_only_for_a_snapshot(engine, tmp_path):
    assert engine.call({"op": "export", "include_velocity": "x"}) == {}
    path = str(tmp_path / "s")
    assert engine.call({"op": "export", "spectrum": path, "include_velocity": None}) == {}


def test_the_picture_arguments_are_read_only_for_a_picture(engine):
    odd = {"pixel_size": 0, "display": "?", "palette": 1, "color_range": None, "flow": "x"}
    assert engine.call({"op": "export", **odd}) == {}
    assert types_of(engine.call({"op": "export", "snapshot": True, **odd})) == SNAPSHOT


@pytest.mark.usefixtures("drawing")
@pytest.mark.parametrize(
    "value", ["0", "-1", "8193", "0.9", "false", "4294967296", "1e10", "-1e10"]
)
def test_a_picture_size_out_of_range_is_refused(engine, tmp_path, value):
    text = f'{{"op":"export","png":"{tmp_path.as_posix()}/p.png","pixel_size":{value}}}'
    assert engine.refusal(text) == "PNG size must be 1 through 8192."
    assert not list(tmp_path.iterdir())


@pytest.mark.usefixtures("drawing")
@pytest.mark.parametrize(
    ("value", "name"), [("null", "null"), ('"1"', "string"), ("[]", "array"), ("{}", "object")]
)
def test_a_picture_size_that_is_not_a_number_is_refused(engine, tmp_path, value, name):
    text = f'{{"op":"export","png":"{tmp_path.as_posix()}/p.png","pixel_size":{value}}}'
    assert engine.refusal(text) == type_error("number", name)


@pytest.mark.usefixtures("drawing")
@pytest.mark.parametrize(
    ("arguments", "words"),
    [
        ({"display": "Vorticity"}, "Unknown display: Vorticity"),
        ({"display": ""}, "Unknown display: "),
        ({"palette": "Ember"}, "Unknown palette: Ember"),
        ({"palette": "渦"}, "Unknown palette: 渦"),
        ({"color_range": "Sigma"}, "Unknown color_range: Sigma"),
        ({"display": 0}, type_error("string", "number")),
        ({"palette": True}, type_error("string", "boolean")),
        ({"color_range": []}, type_error("string", "array")),
        ({"exposure": "1"}, type_error("number", "string")),
        ({"exposure": True}, type_error("number", "boolean")),
        ({"sigma": {}}, type_error("number", "object")),
        ({"flow": 1}, type_error("boolean", "number")),
        ({"flow": "true"}, type_error("boolean", "string")),
    ],
)
def test_a_picture_of_an_unknown_kind_is_refused(engine, tmp_path, arguments, words):
    path = tmp_path / "p.png"
    request = {"op": "export", "png": str(path), "pixel_size": 16, **arguments}
    assert engine.refusal(request) == words
    assert not path.exists()


def test_a_spectrum_file_is_kept_when_the_fields_are_refused(engine, tmp_path):
    path = tmp_path / "s"
    request = {"op": "export", "spectrum": str(path), "fields": str(tmp_path / "no" / "f")}
    assert engine.refusal(request) == UNWRITABLE
    assert path.stat().st_size == 16 * 16 * 8


def test_no_fields_are_written_after_a_refused_spectrum(engine, tmp_path):
    path = tmp_path / "f"
    request = {"op": "export", "spectrum": str(tmp_path / "no" / "s"), "fields": str(path)}
    assert engine.refusal(request) == UNWRITABLE
    assert not path.exists()


@pytest.mark.usefixtures("drawing")
def test_a_fields_file_is_kept_when_the_picture_is_refused(engine, tmp_path):
    path = tmp_path / "f"
    request = {"op": "export", "fields": str(path), "png": str(tmp_path / "p"), "pixel_size": 0}
    assert engine.refusal(request) == "PNG size must be 1 through 8192."
    assert path.stat().st_size == 16 * 16 * 12
