"""The process that computes members of a sweep on this machine, one after another.

Each line of its input is one job, and each line of its output one report, both JSON objects:
``time`` of the flow, ``warning``, and at the end of a job ``done`` or ``error``. It ends with its
input. After SIGTERM, or where nobody reads its output any more, it saves a checkpoint and ends.
"""

from __future__ import annotations

import contextlib
import json
import os
import signal
import sys
import time
import traceback
import warnings
from typing import Any, TextIO

from .errors import ZephaneError
from .members import Member, Stopped, run_member
from .records import Clock

REPORT_SECONDS = 0.1


class Reports:
    """The output. ``is_ending`` is set where the process shall end."""

    def __init__(self, stream: TextIO) -> None:
        self._stream = stream
        self._last = 0.0
        self.is_ending = False

    def send(self, **report: Any) -> None:
        try:
            print(json.dumps(report), file=self._stream, flush=True)
        except BrokenPipeError:
            self.is_ending = True

    def progress(self, now: Clock) -> bool:
        moment = time.monotonic()
        if moment - self._last >= REPORT_SECONDS:
            self._last = moment
            self.send(time=now.simulation_time)
        return not self.is_ending

    def end(self, *_: object) -> None:
        self.is_ending = True

    def warn(self, message: Warning | str, *_: object) -> None:
        self.send(warning=str(message))


def main() -> int:
    # What anything else prints must not get between the reports.
    stream = os.fdopen(os.dup(1), "w", encoding="utf-8")
    os.dup2(2, 1)
    reports = Reports(stream)
    signal.signal(signal.SIGTERM, reports.end)
    warnings.simplefilter("always")
    warnings.showwarning = reports.warn  # type: ignore[assignment]
    for line in sys.stdin:
        _run(json.loads(line), reports)
        if reports.is_ending:
            break
    with contextlib.suppress(BrokenPipeError):
        stream.close()
    return 0


def _run(job: dict[str, Any], reports: Reports) -> None:
    if job["processors"] is not None:
        os.sched_setaffinity(0, job["processors"])
    try:
        run_member(
            Member.from_json(job["member"]),
            job["folder"],
            checkpoint_seconds=job["checkpoint_seconds"],
            library=job["library"],
            progress=reports.progress,
        )
    except Stopped:
        return
    except (ZephaneError, OSError, MemoryError) as failure:
        reports.send(error=str(failure) or type(failure).__name__)
    except Exception:
        reports.send(error=traceback.format_exc())
    else:
        reports.send(done=True)


if __name__ == "__main__":
    sys.exit(main())
