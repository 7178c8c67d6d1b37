"""The files of films: their formats, and an encoder that is fed with pictures."""

from __future__ import annotations

import contextlib
import os
import threading
from collections.abc import Iterator, Mapping
from dataclasses import dataclass, field
from fractions import Fraction
from pathlib import Path
from typing import Any

from .errors import InvalidValueError, ZephaneError
from .extras import need
from .outputs import PathLike, replaced_file, why_not_writable, writing
from .refusals import listed

PURPOSE = "A film"
LARGEST_FPS = 240.0


@dataclass(frozen=True)
class Format:
    """How films of one format are encoded."""

    container: str
    codec: str
    pixel_format: str
    fps: float
    """The default for the pictures a second."""
    largest_fps: float
    unit: int
    """The side in pixels is a multiple of this."""
    smallest: int
    """The least side in pixels."""
    colors: str | None = None
    """The matrix from red, green and blue to the colours of the codec, unless it is the default."""
    codec_options: Mapping[str, str] = field(default_factory=dict)
    container_options: Mapping[str, str] = field(default_factory=dict)

    def side(self, pixels: int) -> int:
        """The side of a film for which so many pixels were asked."""
        return max(pixels + -pixels % self.unit, self.smallest)


BT709 = "colorprim=bt709:transfer=bt709:colormatrix=bt709"

FORMATS = {
    # Players need sides that are even, as colours have half the resolution, and the table of
    # contents at the beginning to start before the file is read to its end.
    ".mp4": Format("mp4", "libx264", "yuv420p", 30.0, LARGEST_FPS, 2, 16, "itu709",
                   {"crf": "18", "x264-params": BT709}, {"movflags": "+faststart"}),
    # Times are hundredths of a second, and browsers slow down pictures of a single one.
    ".gif": Format("gif", "gif", "pal8", 25.0, 50.0, 1, 1),
    ".webp": Format("webp", "libwebp_anim", "yuv420p", 30.0, LARGEST_FPS, 1, 1, None,
                    {"quality": "90"}, {"loop": "0"}),
}  # fmt: skip


def film_format(path: PathLike) -> Format:
    """The format that the ending of a name asks for."""
    text = os.fspath(path)
    ending = Path(text).suffix
    if ending.lower() not in FORMATS:
        shown = f"ends in {ending}" if ending else "has no ending"
        raise InvalidValueError(f"{text} {shown}: a film ends in {listed(tuple(FORMATS))}")
    return FORMATS[ending.lower()]


def check_film(path: PathLike) -> None:
    """Refuse a film that cannot be written or encoded on this machine."""
    chosen = film_format(path)
    av = need("av", "film", PURPOSE)
    try:
        av.codec.Codec(chosen.codec, "w")
    except ValueError:
        raise ZephaneError(
            f"Cannot write {os.fspath(path)}: PyAV was built without the encoder {chosen.codec}"
        ) from None
    reason = why_not_writable(path)
    if reason is None and os.path.exists(path) and not os.path.isfile(path):
        reason = "it is no regular file"
    if reason is not None:
        raise ZephaneError(f"Cannot write {os.fspath(path)}: {reason}")


class Encoder:
    """Writes the film ``path``, picture by picture, to a temporary file. Any thread may call it."""

    def __init__(self, path: PathLike, temporary: str, side: int, fps: Fraction) -> None:
        self._path = path
        self._lock = threading.Lock()
        self._av = need("av", "film", PURPOSE)
        self._format = chosen = film_format(path)
        self._tick = 1 / fps
        self._count = 0
        with self._writing():
            self._container = self._av.open(
                temporary, "w", format=chosen.container, options=dict(chosen.container_options)
            )
        self._stream = self._container.add_stream(chosen.codec, rate=fps)
        self._stream.width = self._stream.height = side
        self._stream.pix_fmt = chosen.pixel_format
        self._stream.options = dict(chosen.codec_options)
        self._palettes = _Palettes(self._av) if chosen.pixel_format == "pal8" else None

    def add(self, png: PathLike) -> None:
        """Append a picture, given as a PNG file."""
        with self._writing():
            frame = self._convert(self._read(png))
            frame.pts = self._count
            frame.time_base = self._tick
            self._count += 1
            self._write(frame)

    def finish(self) -> None:
        with self._writing():
            self._write(None)
            self._container.close()

    def discard(self) -> None:
        with contextlib.suppress(ZephaneError), self._writing():
            self._container.close()

    @contextlib.contextmanager
    def _writing(self) -> Iterator[None]:
        """Names the film in failures, and hides the remarks that encoders print on their input."""
        named = writing(self._path, self._av.error.FFmpegError)
        with self._lock, named, self._av.logging.Capture():
            yield

    def _read(self, png: PathLike) -> Any:
        with self._av.open(os.fspath(png), "r", format="png_pipe") as picture:
            return next(picture.decode(video=0))

    def _convert(self, frame: Any) -> Any:
        if self._palettes is not None:
            return self._palettes.reduce(frame)
        chosen = self._format
        return frame.reformat(format=chosen.pixel_format, dst_colorspace=chosen.colors)

    def _write(self, frame: Any) -> None:
        for packet in self._stream.encode(frame):
            self._container.mux(packet)


class _Palettes:
    """Reduces pictures to 256 colours, chosen for each."""

    def __init__(self, av: Any) -> None:
        self._av = av
        self._graph: Any = None

    def reduce(self, frame: Any) -> Any:
        if self._graph is None:
            self._graph = self._make(frame)
        self._graph.push(frame)
        return self._graph.pull()

    def _make(self, frame: Any) -> Any:
        graph = self._av.filter.Graph()
        source = graph.add_buffer(template=None, width=frame.width, height=frame.height,
                                  format=frame.format, time_base=Fraction(1, 1000))  # fmt: skip
        split = graph.add("split")
        colors = graph.add("palettegen", "stats_mode=single:reserve_transparent=0")
        reduced = graph.add("paletteuse", "new=1:dither=none")
        sink = graph.add("buffersink")
        source.link_to(split)
        split.link_to(reduced, 0, 0)
        split.link_to(colors, 1, 0)
        colors.link_to(reduced, 0, 1)
        reduced.link_to(sink)
        graph.configure()
        return graph


@contextlib.contextmanager
def film_file(path: PathLike, side: int, fps: Fraction) -> Iterator[Encoder]:
    """An encoder in a ``with`` block, at whose end the film is in its place; where the block fails,
    nothing is left of it.
    """
    with replaced_file(path) as temporary:
        encoder = Encoder(path, temporary, side, fps)
        try:
            yield encoder
            encoder.finish()
        except BaseException:
            encoder.discard()
            raise
