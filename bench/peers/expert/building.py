"""Compiles the expert's code, with what an expert would pass to the compiler."""

from __future__ import annotations

import hashlib
import shutil
import subprocess
import sys
from pathlib import Path

FOLDER = Path(__file__).resolve().parent
sys.path.insert(0, str(FOLDER.parent))

from environments import BUILD  # noqa: E402

FLAGS = "-std=c++20 -O3 -march=native -ffast-math -fopenmp -shared -fPIC".split()


class CannotBuild(Exception):
    pass


def fftw(double: bool = False) -> Path:
    precision = "" if double else "f"
    libraries = [f"-lfftw3{precision}_threads", f"-lfftw3{precision}"]
    defined = ["-DEXPERT_DOUBLE"] if double else []
    return _build(f"expert-fftw{'64' if double else ''}", "with_fftw.cpp", defined, libraries)


def mkl(environment: Path) -> Path:
    """``environment`` is where pip has put MKL: headers in include, libraries in lib."""
    libraries = sorted((environment / "lib").glob("libmkl_rt.so*"))
    if not libraries:
        raise CannotBuild("MKL is not installed")
    linked = [str(libraries[-1]), f"-Wl,-rpath,{environment / 'lib'}"]
    return _build("expert-mkl", "with_mkl.cpp", [f"-I{environment / 'include'}"], linked)


def _build(name: str, source: str, options: list[str], libraries: list[str]) -> Path:
    compiler = shutil.which("g++")
    if compiler is None:
        raise CannotBuild("there is no g++")
    command = [compiler, *FLAGS, *options, str(FOLDER / source)]
    inputs = sorted(FOLDER.glob("*.h")) + [FOLDER / source]
    # "native" is another instruction set on another machine.
    flags = next(line for line in Path("/proc/cpuinfo").open() if line.startswith("flags"))
    made_of = repr((command, libraries, flags)).encode()
    made_of += b"".join(file.read_bytes() for file in inputs)
    library = BUILD / "lib" / f"{name}-{hashlib.sha256(made_of).hexdigest()[:12]}.so"
    if not library.exists():
        library.parent.mkdir(parents=True, exist_ok=True)
        done = subprocess.run(
            [*command, "-o", str(library), *libraries], capture_output=True, text=True
        )
        if done.returncode:
            raise CannotBuild(done.stderr.strip().splitlines()[0])
    return library
