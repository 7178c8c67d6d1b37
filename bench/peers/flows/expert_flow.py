"""What an expert writes: the same scheme in C++ over FFTW or MKL (../expert).

Options: "library" (the compiled file), "form" (one of FORMS) or "bare" for the four transforms of a
stage alone, and "double" for a library in double precision.
"""

from __future__ import annotations

import ctypes
import os

import numpy as np
from problem import Problem

FORMS = ["plain", "pruned", "fused"]


def load(path: str) -> ctypes.CDLL:
    library = ctypes.CDLL(path)
    pointer, integer, real = ctypes.c_void_p, ctypes.c_int, ctypes.c_double
    for name, result, arguments in (
        ("flow_create", pointer, [integer, integer, pointer, real, real, integer]),
        ("flow_steps", real, [pointer, integer]),
        ("flow_state", None, [pointer, pointer]),
        ("flow_destroy", None, [pointer]),
        ("bare_create", pointer, [integer, integer]),
        ("bare_stages", real, [pointer, integer]),
        ("bare_destroy", None, [pointer]),
    ):
        function = getattr(library, name)
        function.restype, function.argtypes = result, arguments
    return library


def made(handle: int | None) -> int:
    if not handle:
        raise RuntimeError("the library could not make it; the log says why")
    return handle


class ExpertFlow:
    def __init__(self, problem: Problem) -> None:
        if problem.resolution % 32:
            raise ValueError("works for multiples of 32")
        self.shape = (problem.resolution, problem.resolution // 2)
        self.library = load(problem.options["library"])
        self.dtype = np.complex128 if "double" in problem.options else np.complex64
        start = np.ascontiguousarray(problem.coefficients(), self.dtype)
        self.handle = made(
            self.library.flow_create(
                FORMS.index(problem.options["form"]),
                problem.resolution,
                start.ctypes.data,
                problem.viscosity,
                problem.dt,
                len(os.sched_getaffinity(0)),
            )
        )

    def take(self, steps: int) -> None:
        self.library.flow_steps(self.handle, steps)

    def coefficients(self) -> np.ndarray:
        state = np.empty(self.shape, self.dtype)
        self.library.flow_state(self.handle, state.ctypes.data)
        return state.astype(np.complex128)

    def close(self) -> None:
        self.library.flow_destroy(self.handle)


class BareTransforms:
    """A step is one stage's transforms."""

    def __init__(self, problem: Problem) -> None:
        self.library = load(problem.options["library"])
        threads = len(os.sched_getaffinity(0))
        self.handle = made(self.library.bare_create(problem.resolution, threads))

    def take(self, stages: int) -> None:
        self.library.bare_stages(self.handle, stages)

    def close(self) -> None:
        self.library.bare_destroy(self.handle)


def make(problem: Problem) -> ExpertFlow | BareTransforms:
    return BareTransforms(problem) if "bare" in problem.options else ExpertFlow(problem)
