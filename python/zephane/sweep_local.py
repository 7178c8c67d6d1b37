"""A sweep on this machine: one process for each GPU, or the processors shared out to several."""

from __future__ import annotations

import json
import os
import re
import subprocess
import sys
import threading
import time
from collections import deque
from collections.abc import Callable, Mapping, Sequence
from dataclasses import dataclass
from pathlib import Path
from typing import Any

from ._library import load
from .gpus import OLDEST_CAPABILITY, ask_driver
from .members import Member
from .records import SystemInfo
from .refusals import memory_needed
from .sweep_progress import Board, Report

# A process whose member ended so many times without a word, killed perhaps, is not begun again.
ATTEMPTS = 3

# Memory of a process besides its flow: Python, xarray and the library.
PROCESS_BYTES = 200 << 20

WAIT_SECONDS = 0.2
# For a checkpoint at the end.
PATIENCE_SECONDS = 20.0


@dataclass(frozen=True)
class Place:
    """Where members run one after another."""

    device: int | None = None
    """What ZEPHANE_DEVICE shall be, or None to leave it."""
    processors: tuple[int, ...] | None = None
    """Those that the process may use, or None for all."""


def places_for(
    system: SystemInfo,
    members: Sequence[Member],
    jobs: int | None,
    environment: Mapping[str, str] = os.environ,
) -> list[Place]:
    """Where members may run side by side on this machine, at most ``jobs`` of them."""
    most = len(members) if jobs is None else min(jobs, len(members))
    if system.backend.startswith("CUDA"):
        if "ZEPHANE_DEVICE" in environment:
            return [Place()]
        gpus = [n for n, gpu in enumerate(ask_driver().gpus) if gpu[1:] >= OLDEST_CAPABILITY]
        return [Place(device=n) for n in gpus[:most]] or [Place()]
    processors = usable_processors(system)
    if jobs is None:
        most = min(most, max(len(processors), 1), _fitting(system, members))
    if not processors:
        return [Place()] * most
    return [Place(processors=share) for share in share_out(processors, most)]


def usable_processors(system: SystemInfo) -> list[int]:
    """The processors of this process, as many as the library uses; none where nobody can say."""
    if not hasattr(os, "sched_getaffinity"):
        return []
    known = sorted(os.sched_getaffinity(0))
    threads = re.search(r"\((\d+) threads?\)$", system.gpu)
    return known if threads is None else known[: int(threads.group(1))]


def share_out(processors: Sequence[int], shares: int) -> list[tuple[int, ...]]:
    """The processors in so many shares, equal ones up to one processor. Where there are more shares
    than processors, some have the same one.
    """
    count = len(processors)
    if shares >= count:
        return [(processors[n % count],) for n in range(shares)]
    bounds = [n * count // shares for n in range(shares + 1)]
    return [tuple(processors[low:high]) for low, high in zip(bounds, bounds[1:])]


def _fitting(system: SystemInfo, members: Sequence[Member]) -> int:
    """How many members the memory holds at once."""
    largest = max((memory_needed(member.config) for member in members), default=0)
    return max(system.available_memory_bytes // (largest + PROCESS_BYTES), 1)


def run_here(
    members: Mapping[int, Member],
    folder: str,
    checkpoint_seconds: float,
    jobs: int | None,
    board: Board,
) -> None:
    """Compute the members, given by their places in the sweep, and report to the board."""
    library = load()
    system = SystemInfo.from_json(library.description())
    queue = _Queue(members)
    settings = {
        "folder": folder,
        "checkpoint_seconds": checkpoint_seconds,
        "library": library.path,
    }
    places = places_for(system, list(members.values()), jobs)
    lanes = [_Lane(place, queue, settings, board) for place in places]
    for lane in lanes:
        lane.start()
    try:
        while any(lane.is_alive() for lane in lanes):
            board.update(WAIT_SECONDS)
        board.update(0.0)
    finally:
        queue.close()
        for lane in lanes:
            lane.stop(subprocess.Popen.terminate)
        deadline = time.monotonic() + PATIENCE_SECONDS
        for lane in lanes:
            lane.join(max(deadline - time.monotonic(), 0.0))
            if lane.is_alive():
                lane.stop(subprocess.Popen.kill)
                lane.join()


class _Queue:
    """Members that no lane has taken yet, with the number of earlier attempts."""

    def __init__(self, members: Mapping[int, Member]) -> None:
        self._waiting = deque((place, member, 0) for place, member in members.items())
        self._lock = threading.Lock()
        self._is_closed = False

    def take(self) -> tuple[int, Member, int] | None:
        with self._lock:
            if self._is_closed or not self._waiting:
                return None
            return self._waiting.popleft()

    def close(self) -> None:
        with self._lock:
            self._is_closed = True

    @property
    def is_closed(self) -> bool:
        return self._is_closed


class _Lane(threading.Thread):
    """Gives the members, one after another, to a process."""

    def __init__(
        self, place: Place, queue: _Queue, settings: Mapping[str, Any], board: Board
    ) -> None:
        super().__init__(name="zephane sweep", daemon=True)
        self._place = place
        self._queue = queue
        self._settings = settings
        self._board = board
        self._lock = threading.Lock()
        self._process: subprocess.Popen[str] | None = None
        self._is_stopped = False

    def run(self) -> None:
        try:
            while True:
                taken = self._queue.take()
                if taken is None:
                    break
                self._compute(*taken)
        finally:
            self._close()

    def _compute(self, place: int, member: Member, attempts: int) -> None:
        while not self._queue.is_closed:
            try:
                code = self._try(place, member)
            except OSError as failure:
                self._board.reports.put(Report(place, error=f"Cannot start a process: {failure}"))
                return
            if code is None or self._queue.is_closed:
                return
            attempts += 1
            if attempts == ATTEMPTS:
                how = f"by signal {-code}" if code < 0 else f"with exit code {code}"
                text = f"its process ended {how}, {attempts} times"
                self._board.reports.put(Report(place, error=text))
                return

    def _try(self, place: int, member: Member) -> int | None:
        """Let the process compute a member. The exit code if it ends before the member does."""
        process = self._running()
        if process is None:
            return None
        job = {
            **self._settings,
            "member": member.to_json(),
            "processors": self._place.processors,
        }
        assert process.stdin is not None and process.stdout is not None
        try:
            print(json.dumps(job), file=process.stdin, flush=True)
        except BrokenPipeError:
            return self._end(process)
        for line in process.stdout:
            try:
                report = json.loads(line)
            except ValueError:  # The process was killed while it wrote.
                break
            self._board.reports.put(
                Report(
                    place,
                    time=report.get("time"),
                    is_done=report.get("done", False),
                    error=report.get("error"),
                    warning=report.get("warning"),
                )
            )
            if "done" in report or "error" in report:
                return None
        return self._end(process)

    def _running(self) -> subprocess.Popen[str] | None:
        with self._lock:
            if self._process is None and not self._is_stopped:
                self._process = _start(self._place)
            return self._process

    def _end(self, process: subprocess.Popen[str]) -> int:
        code = process.wait()
        with self._lock:
            self._process = None
        return code

    def _close(self) -> None:
        """Let the process end."""
        with self._lock:
            process, self._process = self._process, None
        if process is not None:
            assert process.stdin is not None
            process.stdin.close()
            process.wait()

    def stop(self, how: Callable[[subprocess.Popen[str]], None]) -> None:
        """End the process: ``terminate`` lets it save a checkpoint, ``kill`` does not."""
        with self._lock:
            self._is_stopped = True
            if self._process is not None and self._process.poll() is None:
                how(self._process)


def _start(place: Place) -> subprocess.Popen[str]:
    package = str(Path(__file__).resolve().parent.parent)
    path = os.pathsep.join(filter(None, (package, os.environ.get("PYTHONPATH"))))
    environment = {**os.environ, "PYTHONPATH": path}
    if place.device is not None:
        environment["ZEPHANE_DEVICE"] = str(place.device)
    return subprocess.Popen(
        [sys.executable, "-m", "zephane.sweep_worker"],
        stdin=subprocess.PIPE,
        stdout=subprocess.PIPE,
        env=environment,
        encoding="utf-8",
        start_new_session=True,  # Ctrl-C is for the process that has the members.
    )
