"""The other end of contestant.py: a process that computes a flow, with a limit for each request."""

from __future__ import annotations

import contextlib
import dataclasses
import json
import os
import selectors
import shutil
import signal
import subprocess
import time
from collections.abc import Sequence
from pathlib import Path
from typing import Any

import numpy as np
from contestant import MARKER
from environments import BUILD, LOGS
from problem import Problem

HERE = Path(__file__).resolve().parent
LONGEST_START = 120.0  # seconds, to import the libraries
LONGEST_MAKING = 180.0  # FFTW plans, compilers, ...
LONGEST_TURN = 60.0

MPIRUN = (
    # Ranks give way while they wait, which costs nothing on an idle machine.
    "mpirun --allow-run-as-root --oversubscribe --bind-to none --mca mpi_yield_when_idle 1 -n"
).split()


class PeerFailed(Exception):
    """It broke, took too long or computed another flow; the text says which."""


@dataclasses.dataclass(frozen=True)
class Turn:
    seconds: float
    steps: int

    @property
    def per_step(self) -> float:
        return self.seconds / self.steps


class Contestant:
    def __init__(
        self,
        name: str,
        python: Path,
        module: str,
        *,
        mpi: bool = False,
        processors: Sequence[int] | None = None,
    ) -> None:
        """``processors`` are those it may run on; all that this process may use, if not given."""
        self.name = name
        own = sorted(os.sched_getaffinity(0) if processors is None else processors)
        command = [str(python), str(HERE / "contestant.py"), module]
        variables = {"FLUIDSIM_PATH": str(BUILD / "scratch")}
        if mpi:
            if shutil.which("mpirun") is None:
                raise PeerFailed("there is no mpirun")
            command = [*MPIRUN, str(len(own)), *command, "--mpi"]
            # One rank for each processor.
            variables |= dict.fromkeys(("OMP_NUM_THREADS", "NUMEXPR_MAX_THREADS"), "1")
        LOGS.mkdir(parents=True, exist_ok=True)
        with (LOGS / f"{name.replace(' ', '-').replace('/', '-')}.log").open("a") as log:
            self._process = subprocess.Popen(
                command,
                stdin=subprocess.PIPE,
                stdout=subprocess.PIPE,
                stderr=log,
                env={**os.environ, **variables},
                preexec_fn=lambda: os.sched_setaffinity(0, own),
                start_new_session=True,
            )
        assert self._process.stdout is not None
        self._unread = b""
        self._readable = selectors.DefaultSelector()
        self._readable.register(self._process.stdout, selectors.EVENT_READ)
        try:
            self._reply(LONGEST_START)
        except PeerFailed:
            self.close()
            raise

    def __enter__(self) -> Contestant:
        return self

    def __exit__(self, *_: object) -> None:
        self.close()

    def make(self, problem: Problem, limit: float = LONGEST_MAKING) -> None:
        self._ask({"make": problem.to_json()}, limit)

    def take(self, steps: int, limit: float = LONGEST_TURN) -> Turn:
        reply = self._ask({"take": steps}, limit)
        return Turn(reply["seconds"], reply["steps"])

    def coefficients(self, limit: float = LONGEST_TURN) -> np.ndarray:
        path = BUILD / "scratch" / f"{os.getpid()}.npy"
        path.parent.mkdir(parents=True, exist_ok=True)
        self._ask({"save": str(path)}, limit)
        found = np.load(path)
        path.unlink()
        return found  # type: ignore[no-any-return]

    def close(self) -> None:
        """End it with all processes that it has started."""
        assert self._process.stdin is not None and self._process.stdout is not None
        with contextlib.suppress(OSError, ValueError, subprocess.TimeoutExpired):
            self._process.stdin.write(b'{"stop": true}\n')
            self._process.stdin.close()
            self._process.wait(5)
        # mpirun ends its ranks if it is asked to end.
        for ending in (signal.SIGTERM, signal.SIGKILL):
            with contextlib.suppress(ProcessLookupError, subprocess.TimeoutExpired):
                os.killpg(self._process.pid, ending)
                self._process.wait(5)
        self._process.wait()
        self._readable.close()
        self._process.stdout.close()

    def _ask(self, request: dict[str, Any], limit: float) -> dict[str, Any]:
        assert self._process.stdin is not None
        try:
            self._process.stdin.write(json.dumps(request).encode() + b"\n")
            self._process.stdin.flush()
        except OSError as failure:
            raise PeerFailed("its process has ended") from failure
        return self._reply(limit)

    def _reply(self, limit: float) -> dict[str, Any]:
        deadline = time.monotonic() + limit
        while True:
            line = self._line(deadline, limit)
            if line.startswith(MARKER):
                break
        reply: dict[str, Any] = json.loads(line[len(MARKER) :])
        if "failure" in reply:
            raise PeerFailed(reply["failure"])
        return reply

    def _line(self, deadline: float, limit: float) -> str:
        assert self._process.stdout is not None
        while b"\n" not in self._unread:
            if not self._readable.select(max(deadline - time.monotonic(), 0)):
                raise PeerFailed(f"takes longer than {limit:.0f} s")
            read = os.read(self._process.stdout.fileno(), 65536)
            if not read:
                raise PeerFailed("its process has ended; see its log")
            self._unread += read
        line, self._unread = self._unread.split(b"\n", 1)
        return line.decode(errors="replace")
