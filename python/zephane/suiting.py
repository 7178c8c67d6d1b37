"""Which settings suit each other: the Courant number and the integrator, as measured.

docs/choosing.md has the tables and the commands that make them.
"""

from __future__ import annotations

import warnings

# The largest Courant numbers, in steps of 1/4, with which the enstrophy of an unforced flow only
# falls until t = 10, for grids up to each resolution. Finer grids have not been measured for long
# enough; the last line is used for them.
STABLE_CFL = {
    128: {"imexRK3": 2.25, "ifHeunRK3": 2.25, "etdrk4": 3.75},
    256: {"imexRK3": 2.0, "ifHeunRK3": 2.0, "etdrk4": 3.25},
    512: {"imexRK3": 1.75, "ifHeunRK3": 1.75, "etdrk4": 3.0},
}

SUITABLE_CFL = {"imexRK3": 1.5, "ifHeunRK3": 1.5, "etdrk4": 3.0}


class ZephaneWarning(UserWarning):
    """A flow that is probably wrong, by its settings or because its energy or enstrophy has grown;
    or a member of a sweep that blew up.

    ``warnings.simplefilter("error", zephane.ZephaneWarning)`` makes it an error.
    """


def suitable_cfl(integrator: str) -> float:
    """The Courant number to take with an integrator unless a number is given.

    It is 3 for "etdrk4", the library's default, and 1.5 for "imexRK3" and "ifHeunRK3", which are
    unstable at 3: the flow stays finite there and is wrong. At these numbers each integrator has an
    error of 7e-4 at N = 256 and t = 1.5. An unknown name has the library's default; the library
    refuses the name itself.
    """
    return SUITABLE_CFL.get(integrator, SUITABLE_CFL["etdrk4"])


def largest_cfl(integrator: str, resolution: int) -> float:
    """The largest Courant number with which an integrator is stable on a grid, as measured.

    ``resolution`` is the number of points per side. Beyond this number the flow may stay finite and
    be wrong. Grids above 512 have the number of 512, for want of longer measurements.
    """
    measured = min((n for n in STABLE_CFL if n >= resolution), default=max(STABLE_CFL))
    return STABLE_CFL[measured].get(integrator, SUITABLE_CFL["etdrk4"])


def cfl_objection(integrator: str, resolution: int, cfl: float) -> str | None:
    """The sentence that warns of a Courant number beyond stability, or None if it is stable."""
    largest = largest_cfl(integrator, resolution)
    if not cfl > largest:
        return None
    return (
        f"cfl {cfl:g} is beyond what {integrator} bears on a grid of {resolution} x {resolution}: "
        f"it is stable up to {largest:g}, and {suitable_cfl(integrator):g} suits it. The flow may "
        "stay finite and be wrong."
    )


def warn_of_cfl(integrator: str, resolution: int, cfl: float, stacklevel: int = 3) -> None:
    """Warn, with a ``ZephaneWarning``, where a Courant number is beyond stability.

    ``stacklevel`` is that of ``warnings.warn``: 3 names the caller of the function that calls this.
    """
    objection = cfl_objection(integrator, resolution, cfl)
    if objection is not None:
        warnings.warn(objection, ZephaneWarning, stacklevel=stacklevel)
