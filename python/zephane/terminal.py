"""A terminal as a screen: redrawn in place, with single keys, and left as it was found.

Without ``termios``, as on Windows, ``Screen`` cannot be used.
"""

from __future__ import annotations

import os
import re
import select
import signal
import sys
from collections.abc import Sequence
from types import FrameType
from typing import Any, TextIO

try:
    import termios
    import tty
except ImportError:
    termios = None  # type: ignore[assignment]

ENTER = "\x1b[?1049h\x1b[?25l"
LEAVE = "\x1b[?25h\x1b[?1049l"
CLEAR = "\x1b[H\x1b[2J"
CLEAR_TO_END_OF_LINE = "\x1b[K"

# What arrow keys and their like send.
SEQUENCE = re.compile(r"\x1b(?:\[[0-?]*[ -/]*[@-~]|O.|.)?", re.DOTALL)

USUAL_SIZE = (80, 24)


def can_draw(stream: TextIO) -> bool:
    """Whether the stream is a terminal that moves its cursor."""
    if termios is None or not stream.isatty():
        return False
    return os.environ.get("TERM", "") not in ("", "dumb")


def wants_colors() -> bool:
    """https://no-color.org"""
    return not os.environ.get("NO_COLOR")


def draws_blocks(stream: TextIO) -> bool:
    return (stream.encoding or "").lower().startswith("utf")


class Screen:
    """The terminal of the standard output, as long as the ``with`` block lasts.

    Whatever ends the block, the terminal is as before: also an exception, SIGTERM, SIGHUP, and
    Ctrl-Z, after which the screen comes back. Ctrl-C stays a ``KeyboardInterrupt``.
    """

    def __init__(self, output: TextIO, keys: TextIO | None) -> None:
        self._output = output
        self._terminal = output.fileno()
        self._keys = keys.fileno() if keys is not None and keys.isatty() else None
        self._settings: Any = None
        self._handlers: dict[int, Any] = {}
        self._shown: list[str] = []
        self._size = (0, 0)

    def size(self) -> tuple[int, int]:
        """Columns and lines that can be written to. A full line would move the cursor on."""
        columns, lines = os.get_terminal_size(self._terminal)
        if columns <= 0 or lines <= 0:
            columns, lines = USUAL_SIZE
        return max(columns - 1, 1), lines

    def show(self, lines: Sequence[str]) -> None:
        """Make the screen read so. Only lines that differ are written, all of them at once."""
        size = self.size()
        text = ""
        if size != self._size:
            text, self._shown, self._size = CLEAR, [], size
        for n in range(max(len(lines), len(self._shown))):
            line = lines[n] if n < len(lines) else ""
            if n >= len(self._shown) or self._shown[n] != line:
                text += f"\x1b[{n + 1};1H{line}{CLEAR_TO_END_OF_LINE}"
        self._shown = list(lines)
        self._write(text)

    def keys(self, seconds: float) -> str:
        """The characters typed, once there are any, or nothing after so many seconds."""
        if self._keys is None:
            select.select([], [], [], seconds)
            return ""
        ready, _, _ = select.select([self._keys], [], [], seconds)
        if not ready:
            return ""
        typed = os.read(self._keys, 4096)
        if not typed:
            raise EOFError("The terminal is gone.")
        return SEQUENCE.sub("", typed.decode("utf-8", errors="ignore"))

    def __enter__(self) -> Screen:
        for number, handler in (
            (signal.SIGTERM, self._end),
            (signal.SIGHUP, self._end),
            (signal.SIGTSTP, self._suspend),
        ):
            # What the parent has had ignored stays so.
            if signal.getsignal(number) is signal.SIG_DFL:
                self._handlers[number] = signal.signal(number, handler)
        try:
            self._take()
        except BaseException:
            self.__exit__(*sys.exc_info())
            raise
        return self

    def __exit__(self, *_: object) -> None:
        try:
            self._give_back()
        finally:
            while self._handlers:
                signal.signal(*self._handlers.popitem())

    def _take(self) -> None:
        if self._keys is not None:
            self._settings = termios.tcgetattr(self._keys)
            tty.setcbreak(self._keys)
        self._size = (0, 0)
        self._write(ENTER)

    def _give_back(self) -> None:
        try:
            self._write(LEAVE)
        except OSError:
            pass  # A terminal that is gone.
        if self._keys is not None and self._settings is not None:
            settings, self._settings = self._settings, None
            try:
                termios.tcsetattr(self._keys, termios.TCSADRAIN, settings)
            except termios.error:
                pass

    def _write(self, text: str) -> None:
        if text:
            encoded = text.encode(self._output.encoding or "ascii", errors="replace")
            self._output.buffer.write(encoded)
            self._output.buffer.flush()

    def _end(self, number: int, frame: FrameType | None) -> None:
        raise SystemExit(128 + number)

    def _suspend(self, number: int, frame: FrameType | None) -> None:
        self._give_back()
        os.kill(os.getpid(), signal.SIGSTOP)
        self._take()
