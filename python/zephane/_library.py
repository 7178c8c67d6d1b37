"""The native library: where it is found, and its C functions as Python sees them.

Requests and replies are UTF-8 JSON. A string from the library is copied and freed at once, and a
failure that it reports is raised as ``ZephaneError`` with the library's text.
"""

from __future__ import annotations

import ctypes
import ctypes.util
import json
import os
import sys
import threading
from collections.abc import Iterator, Mapping
from pathlib import Path
from typing import Any, Union

from .errors import ZephaneError as ZephaneError

ABI_VERSION = 1

VIEW_CLOSED = "Closed UI."

LibraryPath = Union[str, "os.PathLike[str]"]


def library_name() -> str:
    return "zephane.dll" if sys.platform == "win32" else "libzephane.so"


def candidates() -> Iterator[Path]:
    """Where the library may be, in this order: inside the package, in the builds of a checkout."""
    package = Path(__file__).resolve().parent
    checkout = package.parent.parent
    builds = ("windows", "release") if sys.platform == "win32" else ("release",)
    for folder in (package, *(checkout / "build" / name for name in builds), checkout / "build"):
        yield folder / library_name()


def find_library(path: LibraryPath | None = None) -> str:
    """The path of the library, or a name under which the system's loader finds it.

    Raises ``ZephaneError`` if there is none.
    """
    if path is not None:
        if not Path(path).is_file():
            raise ZephaneError(f"No library at {os.fspath(path)}.")
        return str(Path(path).resolve())
    for candidate in candidates():
        if candidate.is_file():
            return str(candidate)
    known = ctypes.util.find_library("zephane")
    if known is not None:
        return known
    looked = "".join(f"\n  {candidate}" for candidate in candidates())
    raise ZephaneError(
        f"The library was not found. Build it, or name its path. Looked at:{looked}\n"
        "  the libraries that the system's loader knows"
    )


class Library:
    """The loaded library. Any thread may use it, but for two things: the first thread that
    initializes it becomes its main thread, and only that one may initialize again or use views.
    """

    def __init__(self, path: str) -> None:
        self.path = path
        self._abandoned: list[int] = []
        self._initializing = threading.Lock()
        self._description: Mapping[str, Any] | None = None
        try:
            self._functions = ctypes.CDLL(path)
            self._declare()
        except (OSError, AttributeError) as failure:
            raise ZephaneError(f"{path} cannot be used: {failure}") from failure

    def _declare(self) -> None:
        # Replies are addresses: ctypes would turn a c_char_p into bytes and drop the address, which
        # zp_string_free needs.
        functions, text, reply, handle = (
            self._functions,
            ctypes.c_char_p,
            ctypes.c_void_p,
            ctypes.c_void_p,
        )
        functions.zp_initialize.argtypes = []
        functions.zp_initialize.restype = reply
        functions.zp_string_free.argtypes = [reply]
        functions.zp_string_free.restype = None
        functions.zp_engine_create.argtypes = [text, ctypes.POINTER(reply)]
        functions.zp_engine_create.restype = handle
        functions.zp_engine_call.argtypes = [handle, text]
        functions.zp_engine_call.restype = reply
        functions.zp_engine_destroy.argtypes = [handle]
        functions.zp_engine_destroy.restype = None
        functions.zp_ui_create.argtypes = []
        functions.zp_ui_create.restype = handle
        functions.zp_ui_attach.argtypes = [handle, handle]
        functions.zp_ui_attach.restype = reply
        functions.zp_ui_call.argtypes = [handle, text]
        functions.zp_ui_call.restype = reply
        functions.zp_ui_destroy.argtypes = [handle]
        functions.zp_ui_destroy.restype = None

    def initialize(self) -> Mapping[str, Any]:
        """Choose the device for all engines, and describe it, the machine and the defaults."""
        with self._initializing:
            return self._initialize()

    def description(self) -> Mapping[str, Any]:
        """The description from the last initialization; initializes if nobody has yet."""
        with self._initializing:
            return self._initialize() if self._description is None else self._description

    def _initialize(self) -> Mapping[str, Any]:
        description = self._result(self._functions.zp_initialize())
        version = description.get("abi_version")
        if version != ABI_VERSION:
            raise ZephaneError(
                f"{self.path} has interface version {version}; "
                f"this package works with version {ABI_VERSION}."
            )
        self._description = description
        return description

    def create(self, config: Mapping[str, Any]) -> int:
        """The handle of a new engine."""
        error = ctypes.c_void_p()
        handle = self._functions.zp_engine_create(_encode(config), ctypes.byref(error))
        if handle:
            return int(handle)
        raise ZephaneError(self._copy_and_free(error.value))

    def call(self, handle: int | None, request: Mapping[str, Any]) -> dict[str, Any]:
        """Run one operation on an engine. The handle of a closed engine is None."""
        return self._result(self._functions.zp_engine_call(handle, _encode(request)))

    def destroy(self, handle: int) -> None:
        self._functions.zp_engine_destroy(handle)

    def create_view(self) -> int:
        """The handle of a new view. First ends the views that were abandoned on other threads."""
        self.require_main_thread()
        while self._abandoned:
            self._functions.zp_ui_destroy(self._abandoned.pop())
        handle = self._functions.zp_ui_create()
        if not handle:
            raise ZephaneError("The library could not make a view.")
        return int(handle)

    def call_view(self, handle: int | None, request: Mapping[str, Any]) -> dict[str, Any]:
        """Run one operation on a view. The handle of a closed view is None."""
        return self._result(self._functions.zp_ui_call(handle, _encode(request)))

    def attach_view(self, handle: int | None, parent: int) -> None:
        self._result(self._functions.zp_ui_attach(handle, parent))

    def release_view(self, handle: int) -> None:
        """End a view: at once on the main thread, otherwise when the next view is made."""
        if self._view_refusal() == VIEW_CLOSED:
            self._functions.zp_ui_destroy(handle)
        else:
            self._abandoned.append(handle)

    def require_main_thread(self) -> None:
        """Raise ``ZephaneError`` on any thread but the one that initialized the library."""
        refusal = self._view_refusal()
        if refusal != VIEW_CLOSED:
            raise ZephaneError(refusal)

    def _view_refusal(self) -> str:
        """The error of a call without a view. The library checks the thread before the view, so it
        is ``VIEW_CLOSED`` on the main thread only.
        """
        reply = json.loads(self._copy_and_free(self._functions.zp_ui_call(None, b"{}")))
        return str(reply["error"])

    def _result(self, address: int | None) -> dict[str, Any]:
        reply: dict[str, Any] = json.loads(self._copy_and_free(address))
        if "error" in reply:
            raise ZephaneError(reply["error"])
        return reply

    def _copy_and_free(self, address: int | None) -> str:
        """Copy a string of the library, and free it."""
        if not address:
            raise MemoryError("The library could not allocate its reply.")
        try:
            return ctypes.string_at(address).decode("utf-8", errors="replace")
        finally:
            self._functions.zp_string_free(address)


def _encode(request: Mapping[str, Any]) -> bytes:
    return json.dumps(request, ensure_ascii=False).encode("utf-8", errors="surrogateescape")


_loading = threading.Lock()
_loaded: dict[str, Library] = {}
_current: Library | None = None


def load(path: LibraryPath | None = None) -> Library:
    """The library at ``path``; without one, the library last loaded, else the first one found."""
    global _current
    with _loading:
        if path is None and _current is not None:
            return _current
        found = find_library(path)
        if found not in _loaded:
            _loaded[found] = Library(found)
        _current = _loaded[found]
        return _current


def given(**arguments: Any) -> dict[str, Any]:
    """The arguments that are not None, with paths as texts."""
    return {key: path_as_text(value) for key, value in arguments.items() if value is not None}


def path_as_text(value: Any) -> Any:
    """The text of a path; any other value as it is."""
    return os.fspath(value) if isinstance(value, os.PathLike) else value
