"""Runs functions in a new interpreter or on another thread."""

from __future__ import annotations

import inspect
import json
import os
import signal
import subprocess
import sys
import textwrap
import threading
import time
from pathlib import Path
from typing import Any, Callable

TESTS = Path(__file__).resolve().parent.parent


def in_fresh_process(
    library_path: os.PathLike[str] | str,
    body: Callable[..., Any],
    *arguments: Any,
    environment: dict[str, str | None] | None = None,
    limit_seconds: float = 120,
) -> Any:
    """What ``body(library, *arguments)`` returns in a new interpreter, where nothing has called
    zp_initialize yet. The body can use only its own source and the names of the modules
    imported before it."""
    source = textwrap.dedent(inspect.getsource(body))
    script = (
        "from __future__ import annotations\n"
        "from abi.fresh_process import *\n"
        "from abi.harness import *\n"
        "from abi.view import *\n"
        "from abi.words import *\n"
        f"{source}\n"
        f"answer = {body.__name__}(Library(sys.argv[1]), *json.loads(sys.argv[2]))\n"
        "print(json.dumps(answer))\n"
    )
    variables = {**os.environ, "PYTHONPATH": str(TESTS), "PYTHONIOENCODING": "utf-8"}
    for name, value in (environment or {}).items():
        variables.pop(name, None)
        if value is not None:
            variables[name] = value
    done = subprocess.run(
        [sys.executable, "-c", script, os.fspath(library_path), json.dumps(arguments)],
        env=variables,
        capture_output=True,
        timeout=limit_seconds,
    )
    words = done.stderr.decode("utf-8", "replace")
    if done.returncode < 0:
        raise AssertionError(f"died of {signal.Signals(-done.returncode).name}\n{words}")
    assert done.returncode == 0, words
    assert not words, f"the library writes nothing to the console, but: {words}"
    return json.loads(done.stdout)


def end_of_forked_child(work: Callable[[], Any], limit_seconds: float = 60) -> Any:
    """The wait status of a forked child that does the work and then ends without ado, or "hung"."""
    child = os.fork()
    if child == 0:
        status = 1
        try:
            work()
            status = 0
        finally:
            os._exit(status)
    end = time.monotonic() + limit_seconds
    while time.monotonic() < end:
        ended, status = os.waitpid(child, os.WNOHANG)
        if ended:
            return status
        time.sleep(0.01)
    os.kill(child, signal.SIGKILL)
    os.waitpid(child, 0)
    return "hung"


def on_another_thread(work: Callable[[], Any]) -> Any:
    """What ``work()`` returns, or raises, on a new thread."""
    outcome: list[Any] = []
    failure: list[BaseException] = []

    def run() -> None:
        try:
            outcome.append(work())
        except BaseException as error:  # Raised again in the caller.
            failure.append(error)

    thread = threading.Thread(target=run)
    thread.start()
    thread.join()
    if failure:
        raise failure[0]
    return outcome[0]
