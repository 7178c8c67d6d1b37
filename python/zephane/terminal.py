"""Full-screen output on a terminal, with single key presses.

``Screen`` needs the module ``termios``, which Windows lacks.
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

# Escape sequences, as arrow and function keys send them.
SEQUENCE = re.compile(r"\x1b(?:\[[0-?]*[ -/]*[@-~]|O.|.)?", re.DOTALL)

USUAL_SIZE = (80, 24)


def can_draw(stream: TextIO) -> bool:
    """Whether the stream is a terminal that can move its cursor."""
    if termios is None or not stream.isatty():
        return False
    return os.environ.get("TERM", "") not in ("", "dumb")


def wants_colors() -> bool:
    """Whether NO_COLOR is unset or empty, as https://no-color.org says."""
    return not os.environ.get("NO_COLOR")


def draws_blocks(stream: TextIO) -> bool:
    """Whether the stream's encoding has block characters."""
    return (stream.encoding or "").lower().startswith("utf")


class Screen:
    """Takes over the terminal in a ``with`` block, and restores it afterwards.

    It is restored too when an exception, SIGTERM or SIGHUP ends the block, and while Ctrl-Z
    suspends the process. Ctrl-C raises ``KeyboardInterrupt`` as usual.
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
        """Usable columns and lines. The last column stays empty: a full line would wrap."""
        columns, lines = os.get_terminal_size(self._terminal)
        if columns <= 0 or lines <= 0:
            columns, lines = USUAL_SIZE
        return max(columns - 1, 1), lines

    def show(self, lines: Sequence[str]) -> None:
        """Show these lines. Only those that have changed are written, with one system call."""
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
        """Wait for typed characters, at most so many seconds; "" if there are none.

        Raises ``EOFError`` when the terminal has been closed.
        """
        if self._keys is None:
            select.select([], [], [], seconds)
            return ""
        ready, _, _ = select.select([self._keys], [], [], seconds)
        if not ready:
            return ""
        typed = os.read(self._keys, 4096)
        if not typed:
            raise EOFError("The terminal has been closed.")
        return SEQUENCE.sub("", typed.decode("utf-8", errors="ignore"))

    def __enter__(self) -> Screen:
        for number, handler in (
            (signal.SIGTERM, self._end),
            (signal.SIGHUP, self._end),
            (signal.SIGTSTP, self._suspend),
        ):
            # A signal that the parent process has set to be ignored stays ignored.
            if signal.getsignal(number) is signal.SIG_DFL:
                self._handlers[number] = signal.signal(number, handler)
        try:
            self._enter()
        except BaseException:
            self.__exit__(*sys.exc_info())
            raise
        return self

    def __exit__(self, *_: object) -> None:
        try:
            self._leave()
        finally:
            while self._handlers:
                signal.signal(*self._handlers.popitem())

    def _enter(self) -> None:
        if self._keys is not None:
            self._settings = termios.tcgetattr(self._keys)
            tty.setcbreak(self._keys)
        self._size = (0, 0)
        self._write(ENTER)

    def _leave(self) -> None:
        try:
            self._write(LEAVE)
        except OSError:
            pass  # The terminal has been closed.
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
        self._leave()
        os.kill(os.getpid(), signal.SIGSTOP)
        self._enter()
