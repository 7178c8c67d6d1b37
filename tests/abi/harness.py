"""The nine C functions through bare ctypes, and every promise of a reply checked on the way.

It stands apart from the ``zephane`` package on purpose: both are held against the boundary, and
neither against the other.
"""

from __future__ import annotations

import ctypes
import inspect
import json
import os
import re
import signal
import struct
import subprocess
import sys
import tempfile
import textwrap
import threading
import time
from pathlib import Path
from typing import Any, Callable

TESTS = Path(__file__).resolve().parent.parent

FUNCTIONS = (
    "zp_initialize",
    "zp_string_free",
    "zp_engine_create",
    "zp_engine_call",
    "zp_engine_destroy",
    "zp_ui_create",
    "zp_ui_attach",
    "zp_ui_call",
    "zp_ui_destroy",
)
INTEGRATORS = ("imexRK3", "ifHeunRK3", "etdrk4")
OPERATORS = ("stress", "advective")

NOT_AN_OBJECT = "Expected a JSON object."
BAD_CONFIGURATION = (
    "Invalid resolution, Reynolds number, k0, CFL, fixed timestep, method or start spectrum."
)
BAD_SEED = "Seed must be UInt64."
BAD_ADVANCE = "Invalid steps or endpoint."
BAD_REYNOLDS = "Re must be finite and positive."
BAD_CFL = "CFL must be finite and positive."
UNKNOWN_OPERATION = "Unknown engine operation."
FLOW_LOST = "The flow became non-finite or a GPU operation failed. Reset to recover."
UNHEALTHY = "The solver encountered a non-finite field or timestep."
BAD_SAMPLES = "Initial vorticity must contain exactly N² finite Float32 samples."
BAD_SIZE = "Initial file must contain exactly N² Float32 samples."
UNREADABLE = "Cannot read initial file."
UNWRITABLE = "Cannot write export file."
UI_THREAD = "UI calls require the main thread."
UI_CLOSED = "Closed UI."
UNKNOWN_UI_OPERATION = "Unknown UI operation."
BAD_LIMITS = "Invalid benchmark limits."
NO_FRAME = "No completed frame."
NO_RENDERER = "No native renderer."
NO_DRIVER = "No Vulkan device found."
NO_MATCHING_DRIVER = "No CUDA-compatible Vulkan device found."
BAD_PICTURE_SIZE = "PNG size must be 1 through 8192."
NO_CANVAS = "Cannot create native canvas."
BAD_PARENT = "Invalid parent HWND."
HAS_CANVAS = "Canvas is already attached."
BAD_PICTURE_SIZE = "PNG size must be 1 through 8192."
PARSE_ERROR = "[json.exception.parse_error.101] parse error at line "

# The members of two reports, and their types.
STATISTICS = {
    "allocated_bytes": int,
    "dt": float,
    "energy": float,
    "enstrophy": float,
    "gpu_milliseconds": float,
    "initial_turnover_time": float,
    "is_finite": bool,
    "palinstrophy": float,
    "palinstrophy_ratio": float,
    "reynolds": float,
    "simulation_time": float,
    "steps": int,
}
SNAPSHOT = {
    "grid_size": int,
    "max_speed": float,
    "max_vorticity": float,
    "mean_vorticity": float,
    "sequence": int,
    "std_vorticity": float,
    "time": float,
}


def type_error(wanted: str, got: str) -> str:
    return f"[json.exception.type_error.302] type must be {wanted}, but is {got}"


class Refused(Exception):
    """An error object, or a null handle with its text."""

    def __init__(self, text: str) -> None:
        super().__init__(text)
        self.text = text


class Library:
    """The loaded library. Texts go in as bytes and come out as bytes, each freed once."""

    def __init__(self, path: os.PathLike[str] | str) -> None:
        self.path = os.fspath(path)
        c = ctypes.CDLL(self.path)
        pointer = ctypes.c_void_p
        signatures = {
            "zp_initialize": (pointer, []),
            "zp_string_free": (None, [pointer]),
            "zp_engine_create": (pointer, [ctypes.c_char_p, ctypes.POINTER(pointer)]),
            "zp_engine_call": (pointer, [pointer, ctypes.c_char_p]),
            "zp_engine_destroy": (None, [pointer]),
            "zp_ui_create": (pointer, []),
            "zp_ui_attach": (pointer, [pointer, pointer]),
            "zp_ui_call": (pointer, [pointer, ctypes.c_char_p]),
            "zp_ui_destroy": (None, [pointer]),
        }
        for name, (result, arguments) in signatures.items():
            function = getattr(c, name)
            function.restype = result
            function.argtypes = arguments
        self.c = c

    def take(self, text: int | None) -> bytes:
        """The bytes of a returned string, which goes back to the library."""
        assert text, "a reply is never null"
        try:
            return ctypes.string_at(text)
        finally:
            self.c.zp_string_free(text)

    def initialize(self) -> bytes:
        return self.take(self.c.zp_initialize())

    def engine_call(self, handle: int | None, request: bytes | None) -> bytes:
        return self.take(self.c.zp_engine_call(handle, request))

    def ui_call(self, handle: int | None, request: bytes | None) -> bytes:
        return self.take(self.c.zp_ui_call(handle, request))

    def ui_attach(self, handle: int | None, window: int | None) -> bytes:
        return self.take(self.c.zp_ui_attach(handle, window))

    def engine_create(self, configuration: bytes | None) -> int:
        error = ctypes.c_void_p()
        handle = self.c.zp_engine_create(configuration, ctypes.byref(error))
        if handle:
            assert not error.value, "a success leaves the error alone"
            return int(handle)
        raise Refused(self.take(error.value).decode("utf-8"))

    def creation_refusal(self, configuration: Any) -> str:
        """The words with which a configuration is refused."""
        try:
            handle = self.engine_create(encode(configuration))
        except Refused as refused:
            return refused.text
        self.c.zp_engine_destroy(handle)
        raise AssertionError(f"{configuration!r} was accepted")


class Engine:
    """One engine. Requests are dicts, or texts and bytes that are passed on as they stand."""

    def __init__(self, library: Library, configuration: Any) -> None:
        self.library = library
        self.handle: int | None = library.engine_create(encode(configuration))

    def close(self) -> None:
        handle, self.handle = self.handle, None
        self.library.c.zp_engine_destroy(handle)

    def __enter__(self) -> Engine:
        return self

    def __exit__(self, *_: object) -> None:
        self.close()

    def raw(self, request: Any) -> bytes:
        return self.library.engine_call(self.handle, encode(request))

    def call(self, request: Any) -> dict[str, Any]:
        reply = decode(self.raw(request))
        if "error" in reply:
            raise Refused(reply["error"])
        return reply

    def refusal(self, request: Any) -> str:
        """The words with which a request is refused."""
        return error_of(self.raw(request))

    def inspect(self) -> dict[str, Any]:
        return self.call({"op": "inspect"})

    def advance(self, **arguments: Any) -> dict[str, Any]:
        return self.call({"op": "advance", **arguments})

    def set(self, **arguments: Any) -> dict[str, Any]:
        return self.call({"op": "set", **arguments})

    def reset(self, **arguments: Any) -> dict[str, Any]:
        return self.call({"op": "reset", **arguments})

    def export(self, **arguments: Any) -> dict[str, Any]:
        return self.call({"op": "export", **arguments})

    def spectrum(self) -> bytes:
        return self._exported("spectrum")

    def fields(self, **arguments: Any) -> bytes:
        return self._exported("fields", **arguments)

    def _exported(self, kind: str, **arguments: Any) -> bytes:
        with tempfile.TemporaryDirectory() as folder:
            path = Path(folder, kind)
            self.export(**{kind: str(path)}, **arguments)
            return path.read_bytes()


class View:
    """One view, for the main thread alone. Every report is held against what a report promises."""

    PATIENCE_SECONDS = 120

    ALWAYS = {
        "allocated_bytes": int,
        "backend": str,
        "color_range": str,
        "config": dict,
        "display": str,
        "effective_reynolds": float,
        "elapsed_seconds": float,
        "error_message": (str, type(None)),
        "exporting": bool,
        "exposure": float,
        "flow": bool,
        "focused": bool,
        "generation": int,
        "gpu": str,
        "history": list,
        "palette": str,
        "palinstrophy_control": float,
        "performance": dict,
        "presentations": int,
        "ready": bool,
        "regulated": bool,
        "running": bool,
        "settled": bool,
        "sigma": float,
    }
    CANVAS = {"height_points": float, "scale": float, "visible": bool, "width_points": float}
    PERFORMANCE = {
        "batch_steps": int,
        "milliseconds_per_step": float,
        "simtime_per_s": float,
        "steps_per_s": float,
        "turnovers_per_s": float,
    }

    def __init__(self, library: Library) -> None:
        self.library = library
        self.handle: int | None = library.c.zp_ui_create()
        assert self.handle, "a view is made on the main thread"

    def close(self) -> None:
        handle, self.handle = self.handle, None
        self.library.c.zp_ui_destroy(handle)

    def __enter__(self) -> View:
        return self

    def __exit__(self, *_: object) -> None:
        self.close()

    def raw(self, request: Any) -> bytes:
        return self.library.ui_call(self.handle, encode(request))

    def ask(self, request: Any) -> dict[str, Any]:
        reply = decode(self.raw(request))
        if "error" in reply:
            raise Refused(reply["error"])
        self.check(reply)
        return reply

    def call(self, op: str, **members: Any) -> dict[str, Any]:
        return self.ask({"op": op, **members})

    def refusal(self, request: Any) -> str:
        """The words with which a request is refused."""
        return error_of(self.raw(request))

    def attach(self, window: int) -> None:
        """Lays the view's canvas into a window."""
        reply = decode(self.library.ui_attach(self.handle, window))
        if "error" in reply:
            raise Refused(reply["error"])
        assert reply == {}

    def get(self) -> dict[str, Any]:
        return self.call("get")

    def wait(self, holds: Callable[[dict[str, Any]], bool]) -> dict[str, Any]:
        """The first report of which it holds."""
        end = time.monotonic() + self.PATIENCE_SECONDS
        while not holds(report := self.get()):
            assert time.monotonic() < end, f"waited in vain: {report}"
            time.sleep(0.002)
        return report

    def settled(self) -> dict[str, Any]:
        return self.wait(lambda report: report["settled"])

    def steps(self, count: int) -> dict[str, Any]:
        """The first report of so many steps."""
        return self.wait(lambda report: report.get("stats", {"steps": -1})["steps"] >= count)

    @classmethod
    def check(cls, report: dict[str, Any]) -> None:
        _check_members(report, cls.ALWAYS, {"stats", "frame", "canvas"})
        _check_members(report["performance"], cls.PERFORMANCE)
        assert ("stats" in report) == report["ready"], report
        assert ("frame" in report) == report["ready"], report
        if "canvas" in report:
            _check_members(report["canvas"], cls.CANVAS)
        assert len(report["history"]) <= 120
        assert all(type(value) is float for value in report["history"])


def _check_members(
    members: dict[str, Any], types: dict[str, Any], optional: set[str] | None = None
) -> None:
    assert set(members) - (optional or set()) == set(types), sorted(members)
    for key, kind in types.items():
        value = members[key]
        assert type(value) in (kind if isinstance(kind, tuple) else (kind,)), (key, value)


def encode(request: Any) -> bytes | None:
    if request is None or isinstance(request, bytes):
        return request
    if isinstance(request, str):
        return request.encode("utf-8")
    return json.dumps(request, ensure_ascii=False).encode("utf-8")


def decode(reply: bytes) -> dict[str, Any]:
    """A reply as an object: strict UTF-8 and JSON, sorted keys, no blanks between tokens."""
    text = reply.decode("utf-8")
    value = json.loads(text, parse_constant=_refuse_constant, object_pairs_hook=_sorted_object)
    assert isinstance(value, dict), text
    assert not re.search(r"\s", re.sub(r'"(\\.|[^"\\])*"', "", text)), text
    if "error" in value:
        assert list(value) == ["error"] and isinstance(value["error"], str), text
    return value


def error_of(reply: bytes) -> str:
    value = decode(reply)
    assert "error" in value, f"a failure was expected, not {reply[:300]!r}"
    return value["error"]


def types_of(report: dict[str, Any]) -> dict[str, type]:
    return {key: type(value) for key, value in report.items()}


def _sorted_object(pairs: list[tuple[str, Any]]) -> dict[str, Any]:
    keys = [key for key, _ in pairs]
    assert keys == sorted(set(keys)), keys
    return dict(pairs)


def _refuse_constant(name: str) -> None:
    raise AssertionError(f"{name} is no JSON")


def single(value: float) -> float:
    """The value rounded to 32 bits."""
    return struct.unpack("<f", struct.pack("<f", value))[0]


def in_fresh_process(
    library_path: os.PathLike[str] | str,
    body: Callable[..., Any],
    *arguments: Any,
    environment: dict[str, str | None] | None = None,
    limit_seconds: float = 120,
) -> Any:
    """What ``body(library, *arguments)`` returns in a new interpreter, where nothing has called
    zp_initialize yet. The body sees the names of this module and its own source alone."""
    source = textwrap.dedent(inspect.getsource(body))
    script = (
        "from __future__ import annotations\n"
        "from abi.harness import *\n"
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


def on_another_thread(work: Callable[[], Any]) -> Any:
    """What ``work()`` returns, or raises, on a thread of its own."""
    outcome: list[Any] = []
    failure: list[BaseException] = []

    def run() -> None:
        try:
            outcome.append(work())
        except BaseException as error:  # Handed on to the caller.
            failure.append(error)

    thread = threading.Thread(target=run)
    thread.start()
    thread.join()
    if failure:
        raise failure[0]
    return outcome[0]
