"""The command ``watch``: shows a running flow on a terminal, or prints a line per second."""

from __future__ import annotations

import argparse
import os
import sys
import time

from ._library import ZephaneError
from .dashboard import dashboard, paint, status_line
from .figures import is_finished, notes
from .keeper import FLOW_OPERATIONS, Keeper
from .options import open_view
from .records import ViewStatus
from .terminal import Screen, can_draw, draws_blocks, wants_colors
from .view import View

FRAME_SECONDS = 0.1
LINE_SECONDS = 1.0


def watch(options: argparse.Namespace) -> int:
    """Run the command and return its exit code; failures are raised."""
    with open_view(options) as view:
        view.start()
        watched = Watch(view, options.until, options.adapt_viscosity)
        if can_draw(sys.stdout):
            watched.on_screen()
        else:
            watched.in_lines()
    return 0


class Watch:
    """Shows a view on the terminal, or in lines of a log."""

    def __init__(self, view: View, until: float | None, adapts: bool = False) -> None:
        self._view = view
        self._keeper = Keeper(view, adapts)
        self._until = until
        self._visible = True
        self._help = False
        self._noted: set[str] = set()

    def on_screen(self) -> None:
        """Show the dashboard until the user quits, then print a last line of figures."""
        status = self._look()
        try:
            with Screen(sys.stdout, sys.stdin) as screen:
                while True:
                    status = self._look()
                    screen.show(self._lines(status, screen))
                    if not all(self._press(key) for key in screen.keys(FRAME_SECONDS)):
                        break
        except (KeyboardInterrupt, EOFError):
            pass
        self._print(status)
        _raise_failure(status)

    def in_lines(self) -> None:
        """Print a line per second until the flow ends or comes to rest, or Ctrl-C."""
        status, due = self._look(), time.monotonic() + LINE_SECONDS
        try:
            while not self._has_ended(status):
                time.sleep(FRAME_SECONDS)
                status = self._look()
                if time.monotonic() >= due:
                    due += LINE_SECONDS
                    self._print(status)
        except KeyboardInterrupt:
            pass
        except BrokenPipeError:
            # The reader has gone. Send what is still buffered to /dev/null, so that the exit does
            # not fail over it.
            os.dup2(os.open(os.devnull, os.O_WRONLY), sys.stdout.fileno())
            return
        _raise_failure(status)
        self._print(status)

    def _has_ended(self, status: ViewStatus) -> bool:
        rests = self._view.at_rest and not status.running
        return status.error_message is not None or rests or is_finished(status, self._until)

    def _print(self, status: ViewStatus) -> None:
        """Print the line of figures, after each note that has not been printed yet."""
        standing = self._keeper.standing(status)
        for sentence, _ in notes(status, standing):
            if sentence not in self._noted:
                self._noted.add(sentence)
                print(sentence)
        print(status_line(status, self._until, standing), flush=True)

    def _look(self) -> ViewStatus:
        """The view's status. A flow makes frames until it is ready and none after that: figures
        need none, and it runs faster without.
        """
        status = self._keeper.update()
        if self._visible == status.ready:
            self._visible = not status.ready
            status = self._view.visible(self._visible)
        return status

    def _lines(self, status: ViewStatus, screen: Screen) -> list[str]:
        width, height = screen.size()
        lines = dashboard(
            status,
            width,
            height,
            until=self._until,
            standing=self._keeper.standing(status),
            help_shown=self._help,
            fine=draws_blocks(sys.stdout),
        )
        colored = wants_colors()
        return [paint(line, colored) for line in lines]

    def _press(self, key: str) -> bool:
        """Carry out a key. False ends the watch."""
        key = key.lower()
        if key == "q":
            return False
        if key in ("h", "?"):
            self._help = not self._help
        operation = FLOW_OPERATIONS.get("space" if key == " " else key)
        if operation is not None:
            operation(self._keeper)
        return True


def _raise_failure(status: ViewStatus) -> None:
    if status.error_message is not None:
        raise ZephaneError(status.error_message)
