"""An X server without a screen, for tests with windows.

The fixtures are in conftest.py: ``x_server``, one for all tests, and ``display``, which sets
DISPLAY while a test runs. Child processes get its ``name`` as DISPLAY.
"""

from __future__ import annotations

import os
import select
import signal
import subprocess
from collections.abc import Iterator
from contextlib import contextmanager
from types import TracebackType

START_SECONDS = 60


class XServer:
    """A new server with a free number, which ends with the ``with`` block."""

    def __init__(self, width: int = 1600, height: int = 1400) -> None:
        reader, writer = os.pipe()
        try:
            self._process = subprocess.Popen(
                [
                    "Xvfb",
                    "-displayfd",
                    str(writer),
                    "-screen",
                    "0",
                    f"{width}x{height}x24",
                    # Does not reset when its last client leaves.
                    "-noreset",
                    "-nolisten",
                    "tcp",
                ],
                pass_fds=[writer],
                stdin=subprocess.DEVNULL,
                stdout=subprocess.DEVNULL,
                stderr=subprocess.DEVNULL,
                # The server must not preload a sanitizer of the tests.
                env={key: value for key, value in os.environ.items() if key != "LD_PRELOAD"},
            )
        finally:
            os.close(writer)
        with open(reader, "rb") as numbers:
            ready, _, _ = select.select([numbers], [], [], START_SECONDS)
            number = numbers.readline().strip().decode() if ready else ""
        if not number:
            self.close()
            raise RuntimeError("Xvfb did not start.")
        self.name = f":{number}"

    def close(self) -> None:
        self._process.terminate()
        self._process.wait()

    def kill(self) -> None:
        self._process.kill()
        self._process.wait()

    @contextmanager
    def stopped(self) -> Iterator[None]:
        """It lives but does nothing while the block runs."""
        self._process.send_signal(signal.SIGSTOP)
        try:
            yield
        finally:
            self._process.send_signal(signal.SIGCONT)

    def __enter__(self) -> XServer:
        return self

    def __exit__(
        self,
        kind: type[BaseException] | None,
        error: BaseException | None,
        trace: TracebackType | None,
    ) -> None:
        self.close()
