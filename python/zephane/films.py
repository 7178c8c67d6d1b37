"""Films of a flow: pictures at even steps of its time."""

from __future__ import annotations

import dataclasses
import os
import tempfile
from collections.abc import Callable
from concurrent.futures import Future, ThreadPoolExecutor
from dataclasses import dataclass
from fractions import Fraction
from typing import Any, Union

from ._library import LibraryPath, given
from .engine import Engine
from .errors import InvalidValueError, ZephaneError
from .film_files import Encoder, Format, check_film, film_file, film_format
from .outputs import PathLike
from .records import LIVE_PICTURE, Clock, Config, PictureSettings
from .refusals import checked_pixel_size, checked_single, checked_until

FILM_SECONDS = 10.0
FILM_PIXELS = 1080
MOST_FRAMES = 1_000_000
SMALLEST_FPS = 0.01

# Rates are fractions with a denominator up to this one, that of 30000/1001.
LARGEST_DENOMINATOR = 1001


@dataclass(frozen=True)
class FilmPlan:
    """The pictures of a film."""

    frames: int
    fps: Fraction
    pixels: int
    """The side as it was asked for. ``Format.side`` is that of the film."""
    picture: PictureSettings


def film(
    engine: Union[Engine, Config],
    path: PathLike,
    *,
    until: float,
    seconds: float = FILM_SECONDS,
    fps: float | None = None,
    pixels: int = FILM_PIXELS,
    display: str | None = None,
    palette: str | None = None,
    color_range: str | None = None,
    exposure: float | None = None,
    sigma: float | None = None,
    flow: bool | None = None,
    progress: Callable[[Clock], object] | None = None,
    library: LibraryPath | None = None,
) -> None:
    """Run a flow to the time ``until``, and make a film of it that lasts so many ``seconds``.

    With a configuration instead of an engine, an engine is made for the film and closed after it.

    The ending of ``path`` chooses the format: .mp4 (H.264), .gif, or .webp (animated). The film has
    ``fps`` pictures a second, by default 30, or 25 for a GIF. They lie at even steps of the flow's
    time: the first shows the flow as it is now, the last shows it at ``until``.

    ``pixels`` is the side of the film; that of an MP4 is even and at least 16, and an odd one
    becomes the next. The arguments after it are those of ``PictureSettings``, with the defaults of
    the viewer: the range "exposure" at 0.7, in which vortices keep their shading as the rest of the
    flow fades.

    ``progress`` is called with the clock of the flow as it goes. The file is complete or not there:
    it gets its name at the end, and a failure or an exception of ``progress`` leaves nothing.

    Films need PyAV, ``pip install 'zephane[film]'``, and pictures a Vulkan driver.
    """
    changes = given(
        display=display,
        palette=palette,
        color_range=color_range,
        exposure=exposure,
        sigma=sigma,
        flow=flow,
    )
    picture = dataclasses.replace(LIVE_PICTURE, **changes)
    plan = checked_plan(film_format(path), seconds, fps, pixels, picture)
    end = checked_until(until)
    check_film(path)
    if isinstance(engine, Engine):
        make_film(engine, path, end, plan, progress)
        return
    with Engine(engine, library=library) as made:
        make_film(made, path, end, plan, progress)


def checked_plan(
    chosen: Format, seconds: Any, fps: Any, pixels: Any, picture: PictureSettings
) -> FilmPlan:
    """The pictures that were asked for; ``InvalidValueError`` where a number is refused."""
    length = checked_single("seconds", seconds)
    rate = checked_single("fps", chosen.fps if fps is None else fps)
    if rate < SMALLEST_FPS:
        raise InvalidValueError(f"fps {rate:g} is too small: numbers from {SMALLEST_FPS:g}")
    if rate > chosen.largest_fps:
        raise InvalidValueError(
            f"fps {rate:g} is too large: numbers up to {chosen.largest_fps:g} for a "
            f"{chosen.container} file"
        )
    fraction = Fraction(rate).limit_denominator(LARGEST_DENOMINATOR)
    frames = round(length * rate)
    if frames < 2:
        raise InvalidValueError(
            f"{length:g} seconds at {rate:g} pictures a second are no film: at least 2 pictures"
        )
    if frames > MOST_FRAMES:
        raise InvalidValueError(
            f"{length:g} seconds at {rate:g} pictures a second are {frames} pictures: at most "
            f"{MOST_FRAMES}"
        )
    return FilmPlan(frames, fraction, checked_pixel_size(pixels, "pixels"), picture)


def make_film(
    engine: Engine,
    path: PathLike,
    until: float,
    plan: FilmPlan,
    progress: Callable[[Clock], object] | None,
) -> float:
    """Run the flow to its last picture, and write the film. Returns the milliseconds that the
    device took for the steps.
    """
    begin = engine.advance(steps=0, fresh=False).simulation_time
    if not until > begin:
        raise InvalidValueError(f"until {until:g} is not after the time of the flow, {begin:g}")
    check_drawing(engine, path)

    def show(now: Clock) -> None:
        if progress is not None:
            progress(now)

    milliseconds = 0.0
    side = film_format(path).side(plan.pixels)
    with film_file(path, side, plan.fps) as encoder, _Frames(encoder) as frames:
        for index in range(plan.frames):
            share = index / (plan.frames - 1)
            time = until if share == 1.0 else begin + share * (until - begin)
            now = engine.advance(until=time, fresh=False, progress=show)
            milliseconds += now.gpu_milliseconds
            _draw(engine, frames.next(), side, plan.picture)
            frames.encode()
        frames.wait()
    return milliseconds


class _Frames:
    """Pictures on their way to an encoder, which works on one while the next one is made."""

    def __init__(self, encoder: Encoder) -> None:
        self._encoder = encoder
        self._folder = tempfile.TemporaryDirectory(prefix="zephane-")
        self._names = [os.path.join(self._folder.name, name) for name in ("even.png", "odd.png")]
        self._thread = ThreadPoolExecutor(1, "zephane-film")
        self._encoding: Future[None] | None = None

    def __enter__(self) -> _Frames:
        return self

    def __exit__(self, *_: object) -> None:
        self._thread.shutdown()
        self._folder.cleanup()

    def next(self) -> str:
        """The path of the PNG file to draw next."""
        return self._names[0]

    def encode(self) -> None:
        """Append the picture that was drawn, as soon as the one before it is encoded."""
        self.wait()
        self._encoding = self._thread.submit(self._encoder.add, self._names[0])
        self._names.reverse()

    def wait(self) -> None:
        if self._encoding is not None:
            self._encoding.result()


def _draw(engine: Engine, png: str, side: int, picture: PictureSettings) -> None:
    engine.export(
        png=png,
        pixel_size=side,
        include_velocity=picture.needs_velocity,
        **dataclasses.asdict(picture),
    )


def check_drawing(engine: Engine, path: PathLike) -> None:
    """Draw a picture of one point to nowhere, to find out whether this machine can draw."""
    try:
        engine.export(png=os.devnull, pixel_size=1, include_velocity=False)
    except ZephaneError as failure:
        text = str(failure).replace(os.devnull, os.fspath(path), 1)
        raise ZephaneError(text) from failure
