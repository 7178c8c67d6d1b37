"""A sweep on a dask.distributed cluster: a task for each member, reports through its events."""

from __future__ import annotations

import contextlib
import os
import time
import uuid
from collections.abc import Callable, Iterator, Mapping
from typing import Any

from ._library import LibraryPath
from .errors import ZephaneError
from .extras import need
from .members import Member, run_member
from .records import Clock
from .sweep_progress import Board, Report

PURPOSE = "A sweep on a cluster"

REPORT_SECONDS = 0.5
WAIT_SECONDS = 0.2
CONNECTION_SECONDS = 30


@contextlib.contextmanager
def connected(client: Any, scheduler: str | None) -> Iterator[Any]:
    """The client that is given, or one of this scheduler; None without either."""
    if client is not None or scheduler is None:
        yield client
        return
    distributed = need("distributed", "sweep", PURPOSE)
    try:
        made = distributed.Client(scheduler, timeout=CONNECTION_SECONDS, set_as_default=False)
    except (OSError, ValueError) as failure:
        raise ZephaneError(f"No scheduler answers at {scheduler}: {failure}") from failure
    try:
        yield made
    finally:
        made.close()


def run_on(
    client: Any,
    members: Mapping[int, Member],
    folder: str,
    checkpoint_seconds: float,
    library: LibraryPath | None,
    board: Board,
) -> None:
    """Compute the members, given by their places in the sweep, and report to the board.

    The scheduler gives the members of a worker that is lost to others.
    """
    topic = f"zephane-{uuid.uuid4().hex}"
    client.subscribe_topic(topic, _handler(board))
    path = None if library is None else os.fspath(library)
    futures = {
        place: client.submit(
            _run, member.to_json(), folder, checkpoint_seconds, path, topic, place, pure=False,
            key=f"{member.name}-{topic}",
        )
        for place, member in members.items()
    }  # fmt: skip
    try:
        waiting = dict(futures)
        while waiting:
            board.update(WAIT_SECONDS)
            for place in [place for place, future in waiting.items() if future.done()]:
                error = _error(waiting.pop(place))
                board.reports.put(Report(place, is_done=error is None, error=error))
        board.update(0.0)
    finally:
        client.cancel(list(futures.values()))
        client.unsubscribe_topic(topic)


def _handler(board: Board) -> Callable[[Any], None]:
    def take(event: Any) -> None:
        _, message = event
        board.reports.put(Report(message["place"], time=message["time"]))

    return take


def _error(future: Any) -> str | None:
    if future.status == "finished":
        return None
    if future.status == "cancelled":
        return "its task was cancelled"
    failure = future.exception()
    return str(failure) or type(failure).__name__


def _run(
    member: Mapping[str, Any],
    folder: str,
    checkpoint_seconds: float,
    library: str | None,
    topic: str,
    place: int,
) -> None:
    """The task of a member, on a worker."""
    worker = need("distributed", "sweep", PURPOSE).get_worker()
    last = 0.0

    def report(now: Clock) -> None:
        nonlocal last
        moment = time.monotonic()
        if moment - last >= REPORT_SECONDS:
            last = moment
            worker.log_event(topic, {"place": place, "time": now.simulation_time})

    if not os.path.isdir(folder):
        raise ZephaneError(f"{folder} is no folder on the worker {worker.address}")
    run_member(
        Member.from_json(member),
        folder,
        checkpoint_seconds=checkpoint_seconds,
        library=library,
        progress=report,
    )
