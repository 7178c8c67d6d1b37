"""A terminal that a process writes to, and the contents of its screen."""

from __future__ import annotations

import fcntl
import os
import pty
import re
import select
import signal
import struct
import subprocess
import termios
import time
from collections.abc import Mapping, Sequence
from typing import Callable

TOKEN = re.compile(
    r"\x1b\[(?P<private>\??)(?P<numbers>[0-9;]*)(?P<command>[A-Za-z])"
    r"|(?P<broken>\x1b)|(?P<control>[\r\n])|(?P<text>[^\x1b\r\n]+)"
)
INCOMPLETE = re.compile(r"\x1b(\[[0-9;?]*)?$")


class Display:
    """The part of a terminal that the commands use; anything else is an error."""

    def __init__(self, columns: int, lines: int) -> None:
        self.alternate = False
        self.cursor_shown = True
        self.styles: set[str] = set()
        self.written = ""
        self._waiting = ""
        self.resize(columns, lines)

    def resize(self, columns: int, lines: int) -> None:
        self.columns, self.lines = columns, lines
        self._clear()

    def rows(self) -> list[str]:
        return ["".join(row).rstrip() for row in self._cells]

    def text(self) -> str:
        return "\n".join(self.rows()).rstrip()

    def feed(self, text: str) -> None:
        self.written += text
        text = self._waiting + text
        broken = INCOMPLETE.search(text)
        self._waiting = text[broken.start() :] if broken else ""
        for token in TOKEN.finditer(text[: broken.start()] if broken else text):
            if token["broken"]:
                raise AssertionError(f"unknown escape sequence in {text!r}")
            if token["command"]:
                self._command(token["private"], token["numbers"], token["command"])
            elif token["control"] == "\r":
                self._column = 0
            elif token["control"] == "\n":
                self._line_feed()
            else:
                self._put(token["text"])

    def _clear(self) -> None:
        self._cells = [[" "] * self.columns for _ in range(self.lines)]
        self._line = self._column = 0

    def _line_feed(self) -> None:
        if self._line < self.lines - 1:
            self._line += 1
        else:
            self._cells = self._cells[1:] + [[" "] * self.columns]

    def _put(self, text: str) -> None:
        for character in text:
            if self._column == self.columns:
                self._column = 0
                self._line_feed()
            self._cells[self._line][self._column] = character
            self._column += 1

    def _command(self, private: str, numbers: str, command: str) -> None:
        if private and numbers == "1049":
            self.alternate = command == "h"
            self._clear()
        elif private and numbers == "25":
            self.cursor_shown = command == "h"
        elif command == "H":
            line, column = (int(n) for n in (numbers or "1;1").split(";"))
            self._line, self._column = min(line, self.lines) - 1, min(column, self.columns) - 1
        elif command == "J" and numbers == "2":
            self._cells = [[" "] * self.columns for _ in range(self.lines)]
        elif command == "K" and numbers in ("", "0"):
            self._cells[self._line][self._column :] = [" "] * (self.columns - self._column)
        elif command == "m":
            self.styles.add(numbers)
        else:
            raise AssertionError(f"unknown command ESC [ {private}{numbers}{command}")


class TerminalProcess:
    """A process whose three streams are one terminal, with a keyboard for the test."""

    def __init__(
        self, command: Sequence[str], environment: Mapping[str, str], columns: int, lines: int
    ) -> None:
        self._host, self._terminal = pty.openpty()
        self.display = Display(columns, lines)
        self.resize(columns, lines)
        self.settings_before = termios.tcgetattr(self._terminal)
        self.process = subprocess.Popen(
            command,
            env={**environment},
            stdin=self._terminal,
            stdout=self._terminal,
            stderr=self._terminal,
            start_new_session=True,
            preexec_fn=_take_terminal,
        )

    def resize(self, columns: int, lines: int) -> None:
        fcntl.ioctl(self._terminal, termios.TIOCSWINSZ, struct.pack("HHHH", lines, columns, 0, 0))
        self.display.resize(columns, lines)

    def press(self, keys: str) -> None:
        os.write(self._host, keys.encode("utf-8"))

    def read(self, seconds: float) -> None:
        """Read what is written in this time."""
        end = time.monotonic() + seconds
        while (left := end - time.monotonic()) > 0:
            if select.select([self._host], [], [], left)[0]:
                self.display.feed(os.read(self._host, 65536).decode("utf-8"))

    def read_until(self, condition: Callable[[str], object], seconds: float = 30.0) -> str:
        """Read until the condition holds of the screen's text, and return that."""
        deadline = time.monotonic() + seconds
        while not condition(self.display.text()):
            assert time.monotonic() < deadline, f"not within {seconds} s:\n{self.display.text()}"
            self.read(0.05)
        return self.display.text()

    def end(self, seconds: float = 30.0) -> int:
        """The exit code, once the process has ended and all of its output has been read."""
        deadline = time.monotonic() + seconds
        while self.process.poll() is None:
            assert time.monotonic() < deadline, f"still running:\n{self.display.text()}"
            self.read(0.05)
        self.read(0.1)
        return int(self.process.returncode)

    def settings_now(self) -> list[object]:
        return termios.tcgetattr(self._terminal)

    def close(self) -> None:
        if self.process.poll() is None:
            self.process.kill()
        self.process.wait()
        os.close(self._host)
        os.close(self._terminal)


def _take_terminal() -> None:
    """In the new process: make the terminal its own, and ignore no signals, even under nohup."""
    fcntl.ioctl(0, termios.TIOCSCTTY, 0)
    for number in (signal.SIGHUP, signal.SIGINT, signal.SIGTERM, signal.SIGTSTP):
        signal.signal(number, signal.SIG_DFL)
