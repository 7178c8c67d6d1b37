"""A headless engine of the library, driven through its C functions alone."""

import ctypes
import json
import tempfile
from pathlib import Path

import numpy as np


class Failure(Exception):
    """An error that the library reported."""


class Library:
    def __init__(self, path):
        self._c = ctypes.CDLL(str(path))
        self._c.zp_initialize.restype = ctypes.c_void_p
        self._c.zp_string_free.argtypes = [ctypes.c_void_p]
        self._c.zp_engine_create.restype = ctypes.c_void_p
        self._c.zp_engine_create.argtypes = [ctypes.c_char_p, ctypes.POINTER(ctypes.c_void_p)]
        self._c.zp_engine_call.restype = ctypes.c_void_p
        self._c.zp_engine_call.argtypes = [ctypes.c_void_p, ctypes.c_char_p]
        self._c.zp_engine_destroy.argtypes = [ctypes.c_void_p]
        self.system = self.reply(self._c.zp_initialize())

    def text(self, pointer):
        taken = ctypes.string_at(pointer).decode()
        self._c.zp_string_free(pointer)
        return taken

    def reply(self, pointer):
        answer = json.loads(self.text(pointer))
        if "error" in answer:
            raise Failure(answer["error"])
        return answer

    def create(self, config):
        error = ctypes.c_void_p()
        handle = self._c.zp_engine_create(json.dumps(config).encode(), ctypes.byref(error))
        if not handle:
            raise Failure(self.text(error))
        return handle

    def call(self, handle, request):
        return self.reply(self._c.zp_engine_call(handle, json.dumps(request).encode()))

    def destroy(self, handle):
        self._c.zp_engine_destroy(handle)


class Engine:
    """`samples`, where given, are the physical vorticity at the start, [y, x]."""

    def __init__(self, library, samples=None, **config):
        self._library = library
        self._folder = tempfile.TemporaryDirectory(prefix="zephane-")
        self.points = config["resolution"]
        if samples is not None:
            config["initial"] = self._write(samples)
        self._handle = library.create(config)

    def call(self, op, **arguments):
        return self._library.call(self._handle, {"op": op, **arguments})

    def inspect(self):
        return self.call("inspect")

    def advance(self, steps=1, until=None):
        return self.call("advance", steps=steps, until=until)

    def set(self, **values):
        self.call("set", **values)

    def reset(self, samples=None):
        return self.call("reset", initial=None if samples is None else self._write(samples))

    def raw_spectrum(self):
        """The exported bits: N x N single-precision coefficients, [row, kx]."""
        path = self._path("spectrum")
        self.call("export", spectrum=path)
        return np.fromfile(path, "<c8").reshape(self.points, self.points)

    def vorticity(self):
        """The half spectrum in double precision, as the model stores it."""
        return self.raw_spectrum()[:, : self.points // 2 + 1].astype(complex)

    def fields(self, include_velocity=True):
        """The planes w, u, v and the snapshot's report."""
        path = self._path("fields")
        report = self.call("export", fields=path, include_velocity=include_velocity)
        planes = np.fromfile(path, "<f4").reshape(3, self.points, self.points)
        return planes, report

    def close(self):
        self._library.destroy(self._handle)
        self._handle = None
        self._folder.cleanup()

    def _path(self, name):
        return str(Path(self._folder.name) / name)

    def _write(self, samples):
        path = self._path("initial")
        np.asarray(samples, "<f4").tofile(path)
        return path
