"""The nine C functions through plain ctypes, with the format of every reply checked.

It is independent of the ``zephane`` package on purpose, so that a mistake in the package cannot
hide one in the library.
"""

from __future__ import annotations

import ctypes
import json
import os
import re
import struct
import tempfile
from pathlib import Path
from typing import Any

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
        """The bytes of a returned string, which is then freed."""
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
        """The text of the refusal of a configuration."""
        try:
            handle = self.engine_create(encode(configuration))
        except Refused as refused:
            return refused.text
        self.c.zp_engine_destroy(handle)
        raise AssertionError(f"{configuration!r} was accepted")


class Engine:
    """One engine. Requests are dicts, or texts and bytes that are passed on unchanged."""

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
        """The text of the refusal of a request."""
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
