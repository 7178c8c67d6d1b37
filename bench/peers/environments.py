"""Where the peers live: a virtual environment for each group of packages, under build/peers.

python3 environments.py NAME...     makes them, and prints nothing if they are there
"""

from __future__ import annotations

import dataclasses
import json
import os
import subprocess
import sys
import time
from pathlib import Path

REPOSITORY = Path(__file__).resolve().parents[2]
BUILD = REPOSITORY / "build" / "peers"
LOGS = BUILD / "logs"
LONGEST_INSTALLATION = 900  # seconds


@dataclasses.dataclass(frozen=True)
class Environment:
    packages: tuple[str, ...]
    # What has to be there before the packages are built without an environment of their own.
    first: tuple[str, ...] = ()
    # While installing.
    variables: tuple[tuple[str, str], ...] = ()


WITH_MPI = (("CC", "mpicc"), ("MPI_PATH", "/usr"), ("FFTW_PATH", "/usr"))

ENVIRONMENTS = {
    "arrays": Environment(
        ("numpy", "scipy", "pyfftw", "mkl-devel==2026.2.0", "mkl-include==2026.2.0", "matplotlib")
    ),
    "jax": Environment(("jax-cfd==0.2.1", "exponax==0.2.0")),
    # Comes with the libraries for GPUs, 4 GB.
    "torch": Environment(("torch-cfd==0.2.6", "numpy")),
    "pyqg": Environment(
        ("pyqg==0.7.2",),
        ("cython<3", "numpy<2", "setuptools<70", "setuptools_scm", "wheel", "pyfftw", "scipy"),
    ),
    "fluidsim": Environment(
        (
            "fluidsim==26.10.0",
            "fluidfft-fftw==0.0.1",
            "fluidfft-mpi_with_fftw==0.0.1",
            "mpi4py",
        ),
        variables=WITH_MPI,
    ),
    "shenfun": Environment(
        ("shenfun==4.3.0", "mpi4py", "pyyaml", "numba", "sympy", "scipy"), variables=WITH_MPI
    ),
    "dedalus": Environment(
        ("dedalus==3.0.5",),
        ("numpy", "scipy", "cython", "mpi4py", "setuptools", "wheel"),
        WITH_MPI,
    ),
}


def python_of(name: str) -> Path:
    return BUILD / name / "bin" / "python"


def make(name: str) -> Path:
    """Install what is missing; the environment's interpreter. Raises CalledProcessError or
    TimeoutExpired."""
    environment, folder = ENVIRONMENTS[name], BUILD / name
    stamp = folder / "installed.json"
    wanted = json.dumps(dataclasses.asdict(environment))
    if stamp.exists() and stamp.read_text() == wanted:
        return python_of(name)
    print(f"Installing {', '.join(environment.packages)} in {folder}", flush=True)
    LOGS.mkdir(parents=True, exist_ok=True)
    deadline = time.monotonic() + LONGEST_INSTALLATION
    base = getattr(sys, "_base_executable", sys.executable)
    with (LOGS / f"install-{name}.log").open("w") as log:

        def run(*command: str) -> None:
            subprocess.run(
                command,
                check=True,
                stdout=log,
                stderr=log,
                timeout=max(deadline - time.monotonic(), 1),
                env={**os.environ, **dict(environment.variables)},
            )

        run(base, "-m", "venv", "--clear", str(folder))
        install = [str(python_of(name)), "-m", "pip", "install"]
        if environment.first:
            run(*install, *environment.first)
            install.append("--no-build-isolation")
        run(*install, *environment.packages)
    stamp.write_text(wanted)
    return python_of(name)


def versions(name: str) -> dict[str, str]:
    """The packages that are installed, by name."""
    listed = subprocess.run(
        [str(python_of(name)), "-m", "pip", "list", "--format=json"],
        capture_output=True,
        text=True,
        check=True,
    )
    return {package["name"]: package["version"] for package in json.loads(listed.stdout)}


if __name__ == "__main__":
    for wanted_name in sys.argv[1:]:
        make(wanted_name)
