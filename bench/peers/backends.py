"""The array libraries that a peer can stand on.

A backend has the padded spectra of the velocity (``spectra``, two planes) and the means to work on
them: ``clear`` (makes the band beyond the kept modes zero, where a transform has spoilt it),
``transformed_products`` (the spectra of u^2 - v^2 and u v), ``combine(out, (value, factor), ...)``
(the sum of products, into ``out``), ``synchronize``, and the way from and to NumPy.
"""

from __future__ import annotations

import os
import statistics
import time
from collections.abc import Callable
from typing import Any

import numpy as np


def processors() -> int:
    return len(os.sched_getaffinity(0))


def thread_counts() -> list[int]:
    """More threads are not always faster, least of all on a busy machine."""
    return sorted({1, processors()})


def seconds(work: Callable[[], object]) -> float:
    """The median of a few runs."""
    taken = []
    for _ in range(9):
        began = time.perf_counter()
        work()
        taken.append(time.perf_counter() - began)
    return statistics.median(taken)


class InPlace:
    """Sums and products by a library's functions of whole arrays, without new arrays."""

    def __init__(self, library: Any) -> None:
        self.library = library
        self._scratch: dict[Any, Any] = {}

    def combine(self, out: Any, first: tuple[Any, Any], *others: tuple[Any, Any]) -> None:
        self.library.multiply(*first, out=out)
        for value, factor in others:
            scratch = self._like(out)
            self.library.multiply(value, factor, out=scratch)
            self.library.add(out, scratch, out=out)

    def products(self, u: Any, v: Any, difference: Any, product: Any) -> None:
        self.library.multiply(u, v, out=product)
        self.library.multiply(u, u, out=difference)
        self.library.multiply(v, v, out=v)
        self.library.subtract(difference, v, out=difference)

    def _like(self, array: Any) -> Any:
        key = tuple(array.shape)
        if key not in self._scratch:
            self._scratch[key] = self.library.empty_like(array)
        return self._scratch[key]


class NumPy(InPlace):
    """numpy.fft, which has no threads."""

    name = "NumPy"

    def __init__(self, library: Any = np) -> None:
        super().__init__(library)

    def array(self, values: np.ndarray) -> Any:
        return self.library.asarray(values)

    def to_host(self, array: Any) -> np.ndarray:
        return np.asarray(array)

    def prepare(self, m: int) -> None:
        self.m = m
        self.spectra = self.library.zeros((2, m, m // 2 + 1), dtype=self.library.complex64)
        self.planes = self.library.empty((2, m, m), dtype=self.library.float32)

    def clear(self) -> None:
        pass

    def transformed_products(self) -> Any:
        velocity = self.inverse()
        self.products(velocity[0], velocity[1], self.planes[0], self.planes[1])
        return self.forward()

    def inverse(self) -> Any:
        side = (self.m, self.m)
        velocity = np.fft.irfft2(self.spectra, s=side, axes=(1, 2), norm="forward")
        return velocity.astype(np.float32, copy=False)

    def forward(self) -> Any:
        return np.fft.rfft2(self.planes, axes=(1, 2)).astype(np.complex64, copy=False)

    def synchronize(self) -> None:
        pass


class SciPy(NumPy):
    """scipy.fft with a worker for each processor."""

    name = "SciPy"

    def __init__(self) -> None:
        super().__init__()
        import scipy.fft

        self.fft = scipy.fft

    def inverse(self) -> Any:
        side = (self.m, self.m)
        return self.fft.irfft2(
            self.spectra, s=side, axes=(1, 2), norm="forward", workers=processors()
        )

    def forward(self) -> Any:
        return self.fft.rfft2(self.planes, axes=(1, 2), workers=processors())


class PyFFTW(NumPy):
    """FFTW with measured plans."""

    name = "pyFFTW"

    def __init__(self) -> None:
        super().__init__()
        import pyfftw

        self.fftw = pyfftw

    def prepare(self, m: int) -> None:
        empty = self.fftw.empty_aligned
        self.spectra = empty((2, m, m // 2 + 1), "complex64")
        self.planes, self.velocity = empty((2, m, m), "float32"), empty((2, m, m), "float32")
        plans = [self._plans(threads) for threads in thread_counts()]
        self.back, self.there = min(plans, key=self._seconds)

    def _plans(self, threads: int) -> tuple[Any, Any]:
        plan = {"axes": (1, 2), "threads": threads, "flags": ("FFTW_MEASURE", "FFTW_DESTROY_INPUT")}
        back = self.fftw.FFTW(self.spectra, self.velocity, direction="FFTW_BACKWARD", **plan)
        return back, self.fftw.FFTW(self.planes, self.spectra, **plan)

    def _seconds(self, plans: tuple[Any, Any]) -> float:
        self.spectra[:] = 0
        self.planes[:] = 0
        return seconds(lambda: [plan.execute() for plan in plans])

    def clear(self) -> None:
        self.spectra[:] = 0

    def inverse(self) -> Any:
        self.back.execute()
        return self.velocity

    def forward(self) -> Any:
        self.there.execute()
        return self.spectra


class CuPy(NumPy):
    """cuFFT through CuPy, with a kernel of its own for each sum of products."""

    name = "CuPy"

    def __init__(self, device: int) -> None:
        import cupy

        super().__init__(cupy)
        cupy.cuda.Device(device).use()
        self._products = cupy.ElementwiseKernel(
            "T u, T v", "T difference, T product", "difference = u * u - v * v; product = u * v"
        )
        self._sums = {terms: self._sum(terms) for terms in (1, 2, 3, 5)}

    def _sum(self, terms: int) -> Any:
        return self.library.ElementwiseKernel(
            ", ".join(f"V v{k}, F f{k}" for k in range(terms)),
            "V out",
            "out = " + " + ".join(f"v{k} * f{k}" for k in range(terms)),
            f"sum{terms}",
        )

    def combine(self, out: Any, *pairs: tuple[Any, Any]) -> None:
        self._sums[len(pairs)](*(array for pair in pairs for array in pair), out)

    def products(self, u: Any, v: Any, difference: Any, product: Any) -> None:
        self._products(u, v, difference, product)

    def inverse(self) -> Any:
        side = (self.m, self.m)
        return self.library.fft.irfft2(self.spectra, s=side, axes=(1, 2), norm="forward")

    def forward(self) -> Any:
        return self.library.fft.rfft2(self.planes, axes=(1, 2))

    def synchronize(self) -> None:
        self.library.cuda.get_current_stream().synchronize()

    def to_host(self, array: Any) -> np.ndarray:
        return self.library.asnumpy(array)  # type: ignore[no-any-return]


class PyTorch(NumPy):
    """torch.fft: cuFFT on a GPU; on the processor whatever PyTorch was built with."""

    name = "PyTorch"

    def __init__(self, device: str) -> None:
        import torch

        super().__init__(torch)
        self.device = torch.device(device)
        # Raises where there is no such device.
        torch.empty(1, device=self.device)

    def array(self, values: np.ndarray) -> Any:
        return self.library.as_tensor(values, device=self.device)

    def to_host(self, array: Any) -> np.ndarray:
        return array.cpu().numpy()  # type: ignore[no-any-return]

    def prepare(self, m: int) -> None:
        torch = self.library
        self.m = m
        self.spectra = torch.zeros((2, m, m // 2 + 1), dtype=torch.complex64, device=self.device)
        self.planes = torch.empty((2, m, m), dtype=torch.float32, device=self.device)
        self.velocity, self.transformed = self.planes.clone(), self.spectra.clone()
        if self.device.type == "cpu":
            torch.set_num_threads(min(thread_counts(), key=self._seconds))

    def _seconds(self, threads: int) -> float:
        self.library.set_num_threads(threads)
        self.planes[:] = 0
        return seconds(lambda: (self.inverse(), self.forward()))

    def inverse(self) -> Any:
        side = (self.m, self.m)
        return self.library.fft.irfft2(self.spectra, s=side, norm="forward", out=self.velocity)

    def forward(self) -> Any:
        return self.library.fft.rfft2(self.planes, out=self.transformed)

    def synchronize(self) -> None:
        if self.device.type == "cuda":
            self.library.cuda.synchronize(self.device)


# By the kind of device that the library runs on.
ON_PROCESSOR: dict[str, Callable[[int], Any]] = {
    "NumPy": lambda device: NumPy(),
    "SciPy": lambda device: SciPy(),
    "pyFFTW": lambda device: PyFFTW(),
    "PyTorch": lambda device: PyTorch("cpu"),
}
ON_GPU: dict[str, Callable[[int], Any]] = {
    "CuPy": CuPy,
    "PyTorch": lambda device: PyTorch(f"cuda:{device}"),
}
