"""A process that computes one flow when it is asked to: python contestant.py MODULE [--mpi]

``MODULE`` is one of flows/, with a function ``make(problem)`` whose result has ``take(steps)``,
which returns when the steps are done, and ``coefficients()``. Requests are lines of JSON on the
standard input; replies are lines of JSON after a marker, because libraries print too. With --mpi
all ranks run this, and the first one reads and replies.
"""

from __future__ import annotations

import importlib
import json
import sys
import time
import traceback
from pathlib import Path
from typing import Any

import numpy as np

sys.path.insert(0, str(Path(__file__).resolve().parent / "flows"))
sys.path.insert(0, str(Path(__file__).resolve().parent))

from problem import Problem  # noqa: E402

MARKER = "reply: "


class Alone:
    first = True

    def request(self) -> dict[str, Any] | None:
        line = sys.stdin.readline()
        return json.loads(line) if line else None

    def meet(self) -> None:
        pass


class Ranks:
    """MPI waits by spinning, which would disturb whoever has the turn: a rank sleeps instead."""

    PAUSE = 1e-3

    def __init__(self) -> None:
        from mpi4py import MPI

        self.world = MPI.COMM_WORLD
        self.first = self.world.rank == 0

    def request(self) -> dict[str, Any] | None:
        text = np.zeros(4096, np.uint8)
        if self.first:
            line = sys.stdin.readline().encode()
            text[: len(line)] = np.frombuffer(line, np.uint8)
        pending = self.world.Ibcast(text)
        while not pending.Test():
            time.sleep(self.PAUSE)
        line = text.tobytes().rstrip(b"\0")
        return json.loads(line) if line else None

    def meet(self) -> None:
        self.world.Barrier()


def main() -> None:
    module = importlib.import_module(sys.argv[1])
    ranks = Ranks() if "--mpi" in sys.argv[2:] else Alone()
    _reply(ranks, {"ready": True})
    flow = None
    while (request := ranks.request()) is not None and "stop" not in request:
        try:
            if "make" in request:
                # The old one's memory first.
                if hasattr(flow, "close"):
                    flow.close()
                flow = None
                began = time.perf_counter()
                flow = module.make(Problem.from_json(request["make"]))
                reply = {"seconds": time.perf_counter() - began}
            elif "take" in request:
                ranks.meet()
                began = time.perf_counter()
                taken = flow.take(request["take"])
                ranks.meet()
                reply = {"seconds": time.perf_counter() - began, "steps": taken or request["take"]}
            else:
                coefficients = flow.coefficients()
                if ranks.first:
                    np.save(request["save"], coefficients)
                reply = {}
        except Exception as failure:  # every library has failures of its own
            traceback.print_exc()
            reply = {"failure": f"{type(failure).__name__}: {failure}"}
        _reply(ranks, reply)


def _reply(ranks: Alone | Ranks, reply: dict[str, Any]) -> None:
    if ranks.first:
        print(MARKER + json.dumps(reply), flush=True)


if __name__ == "__main__":
    main()
