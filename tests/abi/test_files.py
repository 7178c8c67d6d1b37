"""Files in and out: sizes, names, unwritable paths, and special files."""

from __future__ import annotations

import math
import os
import random
import struct
import threading
from array import array
from pathlib import Path

import pytest

from .fresh_process import in_fresh_process
from .harness import Engine, Library, decode
from .systems import posix_only
from .words import BAD_SAMPLES, BAD_SIZE, UNREADABLE, UNWRITABLE

N = 16
SAMPLES = N * N
NO_SIZE = "file_size"

# Places where no file can be written.
NOWHERE = {
    "nothing": "",
    "here": ".",
    "root": "/",
    "missing folder": "no/file",
    "below a file": "noise/below",
    "system": "/proc/none",
    "long part": "a" * 256,
    "long path": "a/" * 2500 + "b",
    "nul": "\0",
    "nul inside": "a\0b",
}


def white_noise(path: Path, n: int = N, seed: int = 1) -> Path:
    source = random.Random(seed)
    path.write_bytes(array("f", (source.gauss(0, 1) for _ in range(n * n))).tobytes())
    return path


def refusals(library, engine, path) -> set[str]:
    """The texts of the refusals of a start file, at creation and at reset."""
    before = engine.raw({"op": "inspect"})
    words = {
        library.creation_refusal({"resolution": N, "initial": str(path)}),
        engine.refusal({"op": "reset", "initial": str(path)}),
    }
    assert engine.raw({"op": "inspect"}) == before
    return words


# Initial files


def test_a_file_gives_the_same_start_at_creation_and_at_reset(engine, make_engine, tmp_path):
    path = white_noise(tmp_path / "noise")
    created = make_engine(initial=str(path))
    engine.advance(steps=3)
    assert engine.reset(initial=str(path)) == created.inspect()
    assert engine.spectrum() == created.spectrum()


def test_a_reset_without_the_file_returns_to_the_seed(engine, make_engine, tmp_path):
    from_file = make_engine(initial=str(white_noise(tmp_path / "noise")))
    from_file.reset()
    assert from_file.spectrum() == engine.spectrum()


def test_a_file_is_read_anew_at_every_reset(make_engine, tmp_path):
    path = white_noise(tmp_path / "noise", seed=1)
    engine = make_engine(initial=str(path))
    first = engine.spectrum()
    white_noise(path, seed=2)
    engine.reset(initial=str(path))
    assert engine.spectrum() != first


def test_a_file_may_be_deleted_once_it_is_read(make_engine, tmp_path):
    path = white_noise(tmp_path / "noise")
    engine = make_engine(initial=str(path))
    path.unlink()
    assert engine.advance(steps=3)["is_finite"]


@pytest.mark.parametrize("size", [0, 1, 4, SAMPLES * 4 - 1, SAMPLES * 4 + 1, SAMPLES * 8])
def test_a_file_of_another_size_is_refused(library, engine, tmp_path, size):
    path = tmp_path / "start"
    path.write_bytes(bytes(size))
    assert refusals(library, engine, path) == {BAD_SIZE}


def test_a_file_for_another_grid_is_refused(make_engine, tmp_path):
    path = white_noise(tmp_path / "noise", n=18)
    assert make_engine(resolution=18, initial=str(path)).inspect()["is_finite"]
    assert make_engine(resolution=16).refusal({"op": "reset", "initial": str(path)}) == BAD_SIZE


@pytest.mark.parametrize("huge", [2**32 + SAMPLES * 4, 2**40])
def test_a_huge_file_is_refused_by_its_size(library, engine, tmp_path, huge):
    path = tmp_path / "sparse"
    path.touch()
    os.truncate(path, huge)
    assert refusals(library, engine, path) == {BAD_SIZE}


@pytest.mark.parametrize("value", [math.nan, -math.nan, math.inf, -math.inf])
@pytest.mark.parametrize("place", [0, 37, SAMPLES - 1])
def test_a_sample_that_is_not_finite_is_refused(library, engine, tmp_path, value, place):
    samples = [0.5] * SAMPLES
    samples[place] = value
    path = tmp_path / "start"
    path.write_bytes(array("f", samples).tobytes())
    assert refusals(library, engine, path) == {BAD_SAMPLES}


def test_a_signalling_nan_is_refused(library, engine, tmp_path):
    path = tmp_path / "start"
    path.write_bytes(struct.pack("<I", 0x7F800001) + bytes(SAMPLES * 4 - 4))
    assert refusals(library, engine, path) == {BAD_SAMPLES}


@pytest.mark.parametrize("value", [1e-45, -1e-45, 1e-38, -0.0])
def test_the_smallest_samples_are_accepted(make_engine, tmp_path, value):
    path = tmp_path / "start"
    path.write_bytes(array("f", [value, 0.0] * (SAMPLES // 2)).tobytes())
    report = make_engine(initial=str(path)).advance(steps=2)
    assert report["steps"] == 2 and report["is_finite"]


def test_the_error_for_a_missing_file_names_the_query_and_the_path(library, engine, tmp_path):
    path = tmp_path / "渦.bin"
    (words,) = refusals(library, engine, path)
    assert words.startswith(NO_SIZE) and str(path) in words


def test_the_error_for_a_path_below_a_file_names_the_query(library, engine, tmp_path):
    path = white_noise(tmp_path / "noise") / "below"
    (words,) = refusals(library, engine, path)
    assert words.startswith(NO_SIZE) and str(path) in words


def test_the_error_for_a_circular_link_names_the_query(library, engine, tmp_path):
    path = tmp_path / "circle"
    path.symlink_to(path)
    (words,) = refusals(library, engine, path)
    assert words.startswith(NO_SIZE)


@posix_only
def test_a_link_to_a_file_is_followed(make_engine, tmp_path):
    link = tmp_path / "link"
    link.symlink_to(white_noise(tmp_path / "noise"))
    assert make_engine(initial=str(link)).inspect()["is_finite"]


@pytest.mark.parametrize(
    "name", ["a" * 256, "a/" * 2500 + "b", "x" * 1000000], ids=["part", "path", "megabyte"]
)
def test_the_error_for_an_overlong_name_names_the_query(library, engine, tmp_path, name):
    (words,) = refusals(library, engine, tmp_path / name)
    assert words.startswith(NO_SIZE)


def test_a_folder_is_refused_as_initial_file(library, engine, tmp_path):
    (words,) = refusals(library, engine, tmp_path)
    assert words.startswith((NO_SIZE, UNREADABLE, BAD_SIZE))


@pytest.mark.parametrize("name", ["/dev/zero", "/dev/null", "/dev/full"])
def test_a_device_is_refused_as_initial_file(library, engine, name):
    (words,) = refusals(library, engine, name)
    assert words.startswith((NO_SIZE, UNREADABLE, BAD_SIZE))


@pytest.mark.parametrize("text", ["\0", "\0noise", "noise\0", "noise\0x"])
def test_a_name_with_a_nul_is_refused_as_initial_file(library, engine, tmp_path, text):
    white_noise(tmp_path / "noise")
    (words,) = refusals(library, engine, f"{tmp_path}/{text}")
    assert words.startswith((NO_SIZE, UNREADABLE))
    (words,) = refusals(library, engine, "\0")
    assert words.startswith((NO_SIZE, UNREADABLE))


def start_from_fifo(library: Library, path: str):
    os.mkfifo(path)
    return library.creation_refusal({"resolution": 16, "initial": path})


@posix_only
def test_a_pipe_is_refused_as_initial_file_without_waiting(library_path, tmp_path):
    words = in_fresh_process(
        library_path, start_from_fifo, str(tmp_path / "pipe"), limit_seconds=30
    )
    assert words.startswith((NO_SIZE, UNREADABLE, BAD_SIZE))


def test_a_file_shorter_than_its_reported_size_cannot_be_read(library):
    # Files in /sys report a size of 4096 bytes, that of 32 by 32 samples, but hold only a few.
    path = Path("/sys/devices/system/cpu/online")
    if not path.is_file() or path.stat().st_size != 32 * 32 * 4:
        pytest.skip("this system has no such file")
    configuration = {"resolution": 32, "initial": str(path)}
    assert library.creation_refusal(configuration) == UNREADABLE


def resets_while_the_file_changes(library: Library, path: str):
    n = 256
    whole = n * n * 4
    with open(path, "wb") as file:
        file.truncate(whole)
    outcomes = {}
    stop = threading.Event()

    def shrink_and_grow():
        while not stop.is_set():
            os.truncate(path, 4)
            os.truncate(path, whole)

    thread = threading.Thread(target=shrink_and_grow)
    with Engine(library, {"resolution": n, "integrator": "imexRK3"}) as engine:
        thread.start()
        try:
            for _ in range(60):
                reply = decode(engine.raw({"op": "reset", "initial": path}))
                words = reply.get("error", "")
                outcomes[words] = outcomes.get(words, 0) + 1
        finally:
            stop.set()
            thread.join()
    return outcomes


def test_a_file_may_shrink_while_it_is_read(library_path, tmp_path):
    outcomes = in_fresh_process(
        library_path, resets_while_the_file_changes, str(tmp_path / "changing")
    )
    assert set(outcomes) <= {"", BAD_SIZE, UNREADABLE}
    assert sum(outcomes.values()) == 60


# Exported files


def test_an_export_replaces_an_existing_file(engine, tmp_path):
    path = tmp_path / "file"
    path.write_bytes(b"x" * 100000)
    engine.export(spectrum=str(path))
    assert path.stat().st_size == SAMPLES * 8
    engine.export(fields=str(path))
    assert path.stat().st_size == SAMPLES * 12


def test_a_relative_path_is_relative_to_the_working_folder(engine, tmp_path, monkeypatch):
    monkeypatch.chdir(tmp_path)
    engine.export(spectrum="a.bin")
    assert (tmp_path / "a.bin").stat().st_size == SAMPLES * 8


@pytest.mark.parametrize(
    "name",
    ["é", "渦度", "🌀.bin", "a b", "\x7f", "%41"]
    + ([] if os.name == "nt" else ["a\\b", 'a"b', "a\nb"]),
)
def test_a_file_may_have_any_name(engine, make_engine, tmp_path, name):
    path = tmp_path / name
    engine.export(fields=str(path))
    assert os.listdir(os.fsencode(tmp_path)) == [name.encode("utf-8")]
    os.truncate(path, SAMPLES * 4)
    assert make_engine(initial=str(path)).inspect()["is_finite"]


def export_under_an_ascii_locale(library: Library, folder: str):
    with Engine(library, {"resolution": 16}) as engine:
        engine.export(spectrum=folder + "/渦")
    return [name.hex() for name in os.listdir(os.fsencode(folder))]


def test_names_are_utf8_whatever_the_locale(library_path, tmp_path):
    names = in_fresh_process(
        library_path,
        export_under_an_ascii_locale,
        str(tmp_path),
        environment={"LC_ALL": "C", "LANG": None, "PYTHONUTF8": "1"},
    )
    assert names == ["渦".encode().hex()]


def test_a_file_may_be_in_a_deep_folder(engine, tmp_path):
    folder = tmp_path.joinpath(*["d" * 200] * 8)
    folder.mkdir(parents=True)
    engine.export(spectrum=str(folder / "渦"))
    assert (folder / "渦").stat().st_size == SAMPLES * 8


@pytest.mark.parametrize("kind", ["spectrum", "fields", "state"])
def test_a_full_disk_is_reported(engine, kind):
    assert engine.refusal({"op": "export", kind: "/dev/full"}) == UNWRITABLE


@pytest.mark.parametrize("kind", ["spectrum", "fields", "state"])
def test_a_large_file_on_a_full_disk_is_reported(make_engine, kind):
    engine = make_engine(resolution=128, integrator="imexRK3")
    assert engine.refusal({"op": "export", kind: "/dev/full"}) == UNWRITABLE


@pytest.mark.parametrize("kind", ["spectrum", "fields", "state"])
@pytest.mark.parametrize("name", NOWHERE.values(), ids=NOWHERE.keys())
def test_an_unwritable_path_is_reported(engine, tmp_path, monkeypatch, kind, name):
    monkeypatch.chdir(tmp_path)
    white_noise(tmp_path / "noise")
    assert engine.refusal({"op": "export", kind: name}) == UNWRITABLE
    assert [path.name for path in tmp_path.iterdir()] == ["noise"]
    assert engine.advance()["is_finite"]


def test_a_null_device_accepts_any_export(engine):
    assert engine.export(spectrum="/dev/null") == {}
    assert engine.export(fields="/dev/null")["grid_size"] == N


def files_of_another_user(library: Library, folder: str):
    with Engine(library, {"resolution": 16}) as engine:
        secret = folder + "/secret"
        with open(secret, "wb") as file:
            file.write(bytes(1024))
        os.chmod(secret, 0)
        os.chmod(folder, 0o555)
        if os.geteuid() == 0:
            os.setuid(65534)
        return [
            engine.refusal({"op": "export", "spectrum": folder + "/new"}),
            engine.refusal({"op": "export", "fields": secret}),
            engine.refusal({"op": "reset", "initial": secret}),
            engine.refusal({"op": "reset", "initial": "/proc/1/environ-of-nobody"})[:9],
            engine.advance()["steps"],
        ]


@posix_only
def test_missing_permissions_are_reported(library_path, tmp_path_factory):
    import shutil
    import tempfile

    folder = tempfile.mkdtemp()
    os.chmod(folder, 0o755)
    try:
        answer = in_fresh_process(library_path, files_of_another_user, folder)
    finally:
        os.chmod(folder, 0o755)
        shutil.rmtree(folder)
    assert answer == [UNWRITABLE, UNWRITABLE, UNREADABLE, NO_SIZE, 1]
