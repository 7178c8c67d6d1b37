"""Films: what they show, how long they last, and what is left where one fails."""

from __future__ import annotations

import dataclasses
import json
import os
import signal
import subprocess
import sys
import time
from pathlib import Path
from typing import Any, Callable

import numpy as np
import pytest

import zephane
from zephane import film_files
from zephane.records import LIVE_PICTURE

av = pytest.importorskip("av", reason="python3-av is missing")
Image = pytest.importorskip("PIL.Image", reason="python3-pil is missing")

FORMATS = ("mp4", "gif", "webp")

# The least likeness of a picture of the film to that of an export, in decibels. All but the GIF
# halve the resolution of the colours.
LIKENESS = {"mp4": 27.0, "gif": 45.0, "webp": 27.0}


@dataclasses.dataclass
class Seen:
    """A film as a player sees it."""

    pictures: list[Any]
    starts: list[float]
    """When each picture appears, in seconds."""
    seconds: float


def play(path: Path) -> Seen:
    return play_video(path) if path.suffix == ".mp4" else play_animation(path)


def play_video(path: Path) -> Seen:
    with av.open(str(path)) as film:
        stream = film.streams.video[0]
        frames = list(film.decode(stream))
        return Seen(
            [one.to_ndarray(format="rgb24", src_colorspace="itu709") for one in frames],
            [float(one.pts * one.time_base) for one in frames],
            float(stream.duration * stream.time_base),
        )


def play_animation(path: Path) -> Seen:
    pictures, starts, now = [], [], 0
    with Image.open(path) as film:
        for index in range(film.n_frames):
            film.seek(index)
            pictures.append(np.array(film.convert("RGB")))
            starts.append(now / 1000.0)
            now += film.info["duration"]
        assert film.info["loop"] == 0, "it plays without end"
    return Seen(pictures, starts, now / 1000.0)


def draw(engine: zephane.Engine, path: Path, side: int, **picture: Any) -> Any:
    settings = dataclasses.asdict(dataclasses.replace(LIVE_PICTURE, **picture))
    engine.export(png=path, pixel_size=side, **settings)
    with Image.open(path) as png:
        return np.array(png.convert("RGB"))


def likeness(one: Any, other: Any) -> float:
    return float(10.0 * np.log10(255.0**2 / np.mean((one.astype(float) - other) ** 2)))


@pytest.mark.parametrize("kind", FORMATS)
def test_a_film_shows_the_flow_at_even_steps_of_its_time(make_engine, tmp_path, kind) -> None:
    engine, path = make_engine(), tmp_path / f"flow.{kind}"
    engine.advance(until=1.0)
    zephane.film(engine, path, until=3.0, seconds=0.6, fps=10, pixels=160)
    assert engine.inspect().simulation_time == 3.0
    assert os.listdir(tmp_path) == [path.name]

    seen = play(path)
    assert seen.starts == pytest.approx([0.0, 0.1, 0.2, 0.3, 0.4, 0.5])
    assert seen.seconds == pytest.approx(0.6)
    other, expected = make_engine(), []
    for moment in (1.0, 1.4, 1.8, 2.2, 2.6, 3.0):
        other.advance(until=moment)
        expected.append(draw(other, tmp_path / "now.png", 160))
    for index, picture in enumerate(seen.pictures):
        alike = [likeness(picture, one) for one in expected]
        assert alike.index(max(alike)) == index and max(alike) > LIKENESS[kind]
        # Another matrix of colours would shift them.
        assert picture.mean((0, 1)) == pytest.approx(expected[index].mean((0, 1)), abs=2.5)


@pytest.mark.parametrize(
    "kind, pixels, side",
    [("mp4", 101, 102), ("mp4", 1, 16), ("gif", 101, 101), ("gif", 1, 1), ("webp", 101, 101)],
)
def test_any_size_is_a_film(engine, tmp_path: Path, kind, pixels, side) -> None:
    path = tmp_path / f"flow.{kind}"
    zephane.film(engine, path, until=0.1, seconds=0.3, fps=10, pixels=pixels)
    assert {one.shape for one in play(path).pictures} == {(side, side, 3)}


def test_a_film_of_a_configuration_has_the_settings_of_its_picture(
    make_engine, library_path: Path, tmp_path: Path
) -> None:
    picture = {"display": "speed", "palette": "glacier", "exposure": 2.0, "flow": True}
    config = zephane.Config(resolution=64, reynolds=1000.0)
    path = tmp_path / "flow.gif"
    zephane.film(config, path, until=0.5, seconds=0.08, pixels=200, library=library_path, **picture)
    pictures = play(path).pictures
    assert len(pictures) == 2
    engine = make_engine()
    for moment, shown in zip((0.0, 0.5), pictures):
        engine.advance(until=moment)
        assert likeness(shown, draw(engine, tmp_path / "now.png", 200, **picture)) > LIKENESS["gif"]


def test_the_times_of_a_gif_are_rounded_without_a_drift(engine, tmp_path: Path) -> None:
    zephane.film(engine, tmp_path / "a.gif", until=0.2, seconds=0.4, fps=30, pixels=8)
    seen = play(tmp_path / "a.gif")
    assert seen.starts == pytest.approx([k / 30 for k in range(12)], abs=0.0051)
    assert seen.seconds == pytest.approx(0.4, abs=0.011)


# Failures


@pytest.mark.parametrize("kind", FORMATS)
def test_a_film_that_fails_leaves_what_was_there(engine, tmp_path: Path, kind) -> None:
    path = tmp_path / f"flow.{kind}"
    path.write_bytes(b"earlier")

    def stop(now: zephane.Clock) -> None:
        if now.simulation_time > 0.5:
            raise KeyboardInterrupt

    with pytest.raises(KeyboardInterrupt):
        zephane.film(engine, path, until=1.0, seconds=1.0, fps=10, pixels=32, progress=stop)
    assert os.listdir(tmp_path) == [path.name] and path.read_bytes() == b"earlier"


def test_a_flow_that_blows_up_leaves_no_film(make_engine, tmp_path: Path) -> None:
    engine = make_engine(fixed_dt=1.0, reynolds=1e9)
    with pytest.raises(zephane.FlowFailedError):
        zephane.film(engine, tmp_path / "a.mp4", until=100.0, seconds=1.0, fps=5, pixels=32)
    assert os.listdir(tmp_path) == []


def test_a_film_without_pyav_is_refused_before_the_first_step(
    engine, tmp_path: Path, monkeypatch
) -> None:
    monkeypatch.setitem(sys.modules, "av", None)
    with pytest.raises(zephane.ZephaneError) as refused:
        zephane.film(engine, tmp_path / "a.mp4", until=1.0)
    assert str(refused.value) == (
        "A film needs av, which is missing: pip install 'zephane[film]'"
    )
    assert engine.inspect().steps == 0


def test_a_missing_encoder_is_named(engine, tmp_path: Path, monkeypatch) -> None:
    without = dataclasses.replace(film_files.FORMATS[".mp4"], codec="libnone")
    monkeypatch.setitem(film_files.FORMATS, ".mp4", without)
    with pytest.raises(zephane.ZephaneError, match=r"a\.mp4: PyAV .* without the encoder libnone"):
        zephane.film(engine, tmp_path / "a.mp4", until=1.0)


def test_a_film_ends_after_it_begins(engine, tmp_path: Path) -> None:
    engine.advance(until=1.0)
    with pytest.raises(zephane.InvalidValueError, match="until 1 is not after the time of the flo"):
        zephane.film(engine, tmp_path / "a.mp4", until=1.0)


# The command line


@pytest.fixture
def start(
    library_path: Path, python_path: Path, tmp_path: Path
) -> Callable[..., subprocess.Popen[str]]:
    def call(*words: str, file_limit: int | None = None) -> subprocess.Popen[str]:
        script = "from zephane.command_line import main; import sys; sys.exit(main(sys.argv[1:]))"
        if file_limit is not None:
            script = (
                "import resource; resource.setrlimit(resource.RLIMIT_FSIZE, "
                f"({file_limit}, {file_limit})); {script}"
            )
        command, *options = words
        return subprocess.Popen(
            [sys.executable, "-c", script, command, "--library", str(library_path),
             "--resolution", "32", *options],
            env={**os.environ, "PYTHONPATH": str(python_path), "PYTHONDONTWRITEBYTECODE": "1"},
            cwd=tmp_path,
            stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE,
            stderr=subprocess.PIPE,
            text=True,
        )  # fmt: skip

    return call


def test_the_command_makes_a_film_and_reports_on_the_flow(start, tmp_path: Path) -> None:
    process = start("film", "a.mp4", "--until", "0.5", "--seconds", "0.5", "--fps", "20",
                    "--pixels", "64", "--palette", "aurora")  # fmt: skip
    output, errors = process.communicate(timeout=60)
    assert (process.returncode, errors) == (0, "")
    assert "  time                0.5, " in output
    assert "  film                a.mp4, 0.5 s, 10 pictures of 64 x 64, 20 a second\n" in output
    assert len(play(tmp_path / "a.mp4").pictures) == 10


def test_a_film_goes_on_from_a_state_for_three_turnovers(start, tmp_path: Path) -> None:
    start("run", "--until", "0.5", "--save-state", "s").communicate(timeout=60)
    process = start("film", "a.gif", "--state", "s", "--seconds", "0.2", "--pixels", "8", "--json")
    output, errors = process.communicate(timeout=60)
    assert (process.returncode, errors) == (0, "")
    end = json.loads(output)
    assert end["simulation_time"] == pytest.approx(0.5 + 3.0 * end["initial_turnover_time"])


def test_control_c_leaves_no_film(start, tmp_path: Path) -> None:
    process = start("film", "a.mp4", "--until", "9", "--seconds", "9999", "--pixels", "32")
    deadline = time.monotonic() + 60.0
    while not any(one.startswith(".zephane-") for one in os.listdir(tmp_path)):
        assert process.poll() is None and time.monotonic() < deadline
        time.sleep(0.02)
    process.send_signal(signal.SIGINT)
    output, errors = process.communicate(timeout=60)
    assert (process.returncode, output, errors) == (130, "", "zephane: interrupted\n")
    assert os.listdir(tmp_path) == []


@pytest.mark.parametrize("kind", FORMATS)
def test_a_full_disk_leaves_the_earlier_film(start, tmp_path: Path, kind) -> None:
    path = tmp_path / f"a.{kind}"
    path.write_bytes(b"earlier")
    process = start("film", path.name, "--until", "1", "--seconds", "2", "--fps", "20",
                    "--pixels", "64", file_limit=24000)  # fmt: skip
    output, errors = process.communicate(timeout=60)
    assert (process.returncode, output) == (1, "")
    assert errors == f"zephane: Cannot write a.{kind}: File too large\n"
    assert os.listdir(tmp_path) == [path.name] and path.read_bytes() == b"earlier"


@pytest.mark.parametrize(
    "words, sentence",
    [
        (("a.avi",), "a.avi ends in .avi: a film ends in .mp4, .gif or .webp"),
        (("film",), "film has no ending: a film ends in .mp4, .gif or .webp"),
        (("none/a.mp4",), "Cannot write none/a.mp4: No such file or directory"),
        (("folder.mp4",), "Cannot write folder.mp4: Is a directory"),
        (("pipe.mp4",), "Cannot write pipe.mp4: it is no regular file"),
        (("a.mp4", "--seconds", "nan"), "seconds nan is not finite: numbers above 0"),
        (("a.mp4", "--fps", "0"), "fps is 0: numbers above 0"),
        (("a.gif", "--fps", "60"), "fps 60 is too large: numbers up to 50 for a gif file"),
        (
            ("a.mp4", "--seconds", "0.01"),
            "0.01 seconds at 30 pictures a second are no film: at least 2 pictures",
        ),
        (
            ("a.mp4", "--seconds", "1e6"),
            "1e+06 seconds at 30 pictures a second are 30000000 pictures: at most 1000000",
        ),
        (
            ("a.mp4", "--pixels", "0"),
            "pixels 0 is too small: whole numbers from 1 to 8192",
        ),
        (("a.mp4", "--until", "0"), "until 0 is not after the time of the flow, 0"),
        (("a.mp4", "--palette", "gray"), 'palette "gray" is unknown: aurora, ember, glacier or'),
    ],
)
def test_a_wrong_film_is_refused_in_a_sentence(start, tmp_path: Path, words, sentence) -> None:
    (tmp_path / "folder.mp4").mkdir()
    os.mkfifo(tmp_path / "pipe.mp4")
    process = start("film", *words)
    output, errors = process.communicate(timeout=60)
    assert (process.returncode, output) == (1, "")
    assert errors.startswith(f"zephane: {sentence}") and errors.count("\n") == 1
    assert sorted(os.listdir(tmp_path)) == ["folder.mp4", "pipe.mp4"]
