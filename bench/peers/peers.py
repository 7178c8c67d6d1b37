"""Who is compared with the library on the processor."""

from __future__ import annotations

import dataclasses
from typing import Any

import environments
from contest import Contestant
from environments import BUILD
from expert import building

OURS = "Zephane"


@dataclasses.dataclass(frozen=True)
class Peer:
    name: str
    module: str
    environment: str
    # "same": our scheme, and the result must agree to rounding. "own": the package's scheme.
    # "bare": the transforms of one stage, no flow.
    scheme: str
    group: str
    options: dict[str, Any] = dataclasses.field(default_factory=dict)
    mpi: bool = False
    # What it computes with, for the report.
    method: str = ""

    def start(self) -> Contestant:
        return Contestant(self.name, environments.make(self.environment), self.module, mpi=self.mpi)


def ours(**options: Any) -> Peer:
    return Peer(OURS, "zephane_flow", "arrays", "same", "Zephane", options)


EXPERT = {  # by name: transforms and form
    f"expert, {library} {form}": (library, form)
    for form in ("plain", "pruned", "fused")
    for library in ("FFTW", "MKL")
}
BARE = {f"bare {library}": library for library in ("FFTW", "MKL")}
ARRAYS = ("SciPy", "pyFFTW", "NumPy")

PACKAGES = {
    peer.name: peer
    for peer in (
        Peer(
            "jax-cfd",
            "jax_cfd_flow",
            "jax",
            "own",
            "packages",
            method="float32, Crank-Nicolson RK4, 2/3 rule",
        ),
        Peer(
            "exponax", "exponax_flow", "jax", "own", "packages", method="float32, ETDRK4, 2/3 rule"
        ),
        Peer(
            "torch-cfd",
            "torch_cfd_flow",
            "torch",
            "own",
            "packages",
            method="float32, Crank-Nicolson RK4, 2/3 rule",
        ),
        Peer("pyqg", "pyqg_flow", "pyqg", "own", "packages", method="float64, AB3, 2/3 rule"),
        Peer(
            "fluidsim",
            "fluidsim_flow",
            "fluidsim",
            "own",
            "packages",
            mpi=True,
            method="float64, RK4, 2/3 rule, MPI",
        ),
        Peer(
            "shenfun",
            "shenfun_flow",
            "shenfun",
            "own",
            "packages",
            mpi=True,
            method="float64, ETDRK4, 3/2 padding, MPI",
        ),
        Peer(
            "Dedalus",
            "dedalus_flow",
            "dedalus",
            "own",
            "packages",
            mpi=True,
            method="float64, IMEX RK222, 3/2 padding, MPI",
        ),
    )
}

NAMES = [*BARE, *EXPERT, *ARRAYS, *PACKAGES]


def find(name: str) -> Peer:
    """The peer, installed and compiled. Raises what hinders that."""
    if name in ARRAYS:
        environments.make("arrays")
        return Peer(name, "array_flow", "arrays", "same", "arrays", {"library": name})
    if name in PACKAGES:
        environments.make(PACKAGES[name].environment)
        return PACKAGES[name]
    if name in BARE:
        options = {"library": _compiled(BARE[name]), "bare": True}
        return Peer(name, "expert_flow", "arrays", "bare", "bare", options)
    library, form = EXPERT[name]
    options = {"library": _compiled(library), "form": form}
    return Peer(name, "expert_flow", "arrays", "same", "expert", options)


def reference() -> Peer:
    """The expert's code in double precision."""
    options = {"library": str(building.fftw(double=True)), "form": "fused", "double": True}
    return Peer("reference", "expert_flow", "arrays", "same", "reference", options)


def _compiled(library: str) -> str:
    if library == "FFTW":
        return str(building.fftw())
    environments.make("arrays")
    return str(building.mkl(BUILD / "arrays"))
