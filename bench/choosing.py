"""The figures of docs/choosing.md, measured: one table for each name given.

    python3 bench/choosing.py steps stability resolution reynolds operators starts grids
    python3 bench/choosing.py adapted regulation

`steps` and `operators` compare with tests/reference/flow64, a second implementation in double
precision, and need NumPy as the others do. Without a name all of them are made.
"""

from __future__ import annotations

import functools
import math
import sys
import time
from pathlib import Path

import numpy as np

ROOT = Path(__file__).resolve().parents[1]
sys.path[:0] = [str(ROOT / "python"), str(ROOT / "tests" / "reference")]

import zephane  # noqa: E402
from flow64.measures import difference  # noqa: E402
from flow64.stepping import Flow  # noqa: E402
from zephane.viscosity import ViscosityLaw  # noqa: E402

INTEGRATORS = ("imexRK3", "ifHeunRK3", "etdrk4")
STAGES = {"imexRK3": 3, "ifHeunRK3": 3, "etdrk4": 4}
ENOUGH = 10_000_000
K0 = 4


def usual(resolution: int) -> float:
    return zephane.default_reynolds(resolution, K0)


def engine(resolution: int, **changes: object) -> zephane.Engine:
    return zephane.Engine(resolution=resolution, **{"reynolds": usual(resolution), **changes})


def spectrum(flow: zephane.Engine) -> np.ndarray:
    full = flow.spectrum().astype(complex)
    return full[:, : full.shape[1] // 2 + 1]


def engine_of_one_start(resolution: int, **changes: object) -> zephane.Engine:
    """The start of 128 x 128 points on another grid, where its own seed would draw another."""
    field = np.fft.irfft2(padded(_start(), resolution), s=(resolution, resolution)) * resolution**2
    return engine(resolution, initial=field, **changes)


@functools.cache
def _start() -> np.ndarray:
    with engine(128) as flow:
        return spectrum(flow)


def padded(half: np.ndarray, resolution: int) -> np.ndarray:
    """The same field on a finer grid."""
    kept = half.shape[1] - 1
    wide = np.zeros((resolution, resolution // 2 + 1), complex)
    wide[:kept, :kept] = half[:kept, :kept]
    wide[1 - kept :, :kept] = half[1 - kept :, :kept]
    return wide


@functools.cache
def exact(resolution: int, until: float) -> np.ndarray:
    """The flow in double precision, with a step so short that halving it changes 1e-7 or less."""
    flow = Flow(resolution, usual(resolution), cfl=0.5, operator="advective")
    return flow.advance(ENOUGH, until).vorticity


def steps() -> None:
    """The error of the time step, at one turnover time or so."""
    until = 1.5
    for resolution in (128, 256):
        print(f"N = {resolution}, Re {usual(resolution):.0f}, t = {until}")
        for integrator in INTEGRATORS:
            for cfl in (0.5, 0.75, 1.0, 1.5, 2.0, 2.5, 3.0, 4.0):
                with engine(resolution, integrator=integrator, cfl=cfl) as flow:
                    try:
                        count = flow.advance(ENOUGH, until).steps
                        error = difference(spectrum(flow), exact(resolution, until))
                    except zephane.ZephaneError as refusal:
                        print(f"  {integrator:10s} cfl {cfl:4.2f}   {refusal}")
                        continue
                stages = count * STAGES[integrator]
                print(f"  {integrator:10s} cfl {cfl:4.2f}   {count:5d} steps {stages:5d} stages"
                      f"   error {error:.1e}", flush=True)  # fmt: skip


def stability() -> None:
    """The largest CFL number, in steps of 1/4, with which the enstrophy only falls until t = 10."""
    for resolution in (128, 256, 512):
        for integrator in INTEGRATORS:
            cfl = 1.0
            while _decays(resolution, integrator, cfl + 0.25):
                cfl += 0.25
            print(f"  N {resolution:4d} {integrator:10s} {cfl}", flush=True)


def _decays(resolution: int, integrator: str, cfl: float) -> bool:
    with engine(resolution, integrator=integrator, cfl=float(cfl)) as flow:
        before = flow.inspect().enstrophy
        for until in np.arange(0.5, 10.01, 0.5):
            try:
                flow.advance(ENOUGH, float(until))
                now = flow.inspect().enstrophy
            except zephane.ZephaneError:
                return False
            if not now < before * (1 + 1e-6):
                return False
            before = now
    return True


def dissipation_scale(figures: zephane.Statistics) -> float:
    """(nu^3 / chi)^(1/6), with the dissipation of enstrophy chi = 2 nu P."""
    viscosity = 1 / figures.reynolds
    return (viscosity**3 / (2 * viscosity * figures.palinstrophy)) ** (1 / 6)


def resolved(flow: zephane.Engine, resolution: int, until: float) -> tuple[float, float, float]:
    """The least k_max eta on the way, its time, and 10^4 times the palinstrophy ratio then."""
    worst = (math.inf, 0.0, 0.0)
    for target in np.arange(0.25, until + 0.01, 0.25):
        flow.advance(ENOUGH, float(target))
        figures = flow.inspect()
        reach = (resolution // 2 - 1) * dissipation_scale(figures)
        worst = min(worst, (reach, float(target), 1e4 * figures.palinstrophy_ratio))
    return worst


def resolution() -> None:
    """One flow, Re that of N = 256, on coarser and finer grids."""
    number, finest, times = usual(256), 768, (1.5, 3.0)
    finals = {}
    for points in (128, 192, 256, 384, 512, finest):
        with engine_of_one_start(points, reynolds=number, cfl=1.5) as flow:
            finals[points] = []
            for until in times:
                flow.advance(ENOUGH, until)
                finals[points].append(spectrum(flow))
            flow.reset()
            reach, _, _ = resolved(flow, points, 5.0)
        finals[points].append(reach)
    for points, (*fields, reach) in finals.items():
        errors = [difference(padded(field, finest), best)
                  for field, best in zip(fields, finals[finest])]  # fmt: skip
        print(f"  N {points:4d}   k_max eta {reach:.2f}   errors "
              + "  ".join(f"t {t}: {e:.1e}" for t, e in zip(times, errors)))  # fmt: skip


def reynolds() -> None:
    """Default Reynolds numbers, and multiples of one, with the resolution that is left."""
    for points in (128, 256, 512, 1024):
        with engine(points) as flow:
            reach, when, control = resolved(flow, points, 6.0)
        print(f"  N {points:4d}  Re {usual(points):8.0f}   least k_max eta {reach:.2f} at t {when}"
              f"   control {control:.0f}", flush=True)  # fmt: skip
    points, fine, until = 256, 768, 3.0
    for factor in (0.125, 0.25, 0.5, 1, 2, 4):
        number = factor * usual(points)
        with engine_of_one_start(points, reynolds=number, cfl=1.5) as flow:
            flow.advance(ENOUGH, until)
            coarse = spectrum(flow)
            flow.reset()
            reach, when, control = resolved(flow, points, 5.0)
        with engine_of_one_start(fine, reynolds=number, cfl=1.5) as flow:
            flow.advance(ENOUGH, until)
            error = difference(padded(coarse, fine), spectrum(flow))
        print(f"  N {points}  {factor:5.3f} x default   least k_max eta {reach:.2f} at t {when}"
              f"   control {control:.0f}   error at t {until}: {error:.1e}",
              flush=True)  # fmt: skip


def operators() -> None:
    """Both forms with the same short step: what rounding does to all modes and to the highest."""
    points, until = 256, 1.5
    best = exact(points, until)
    wavenumbers = np.hypot(np.fft.fftfreq(points, 1 / points)[:, None], np.arange(points // 2 + 1))
    highest = wavenumbers >= 0.9 * (points / 2 - 1)
    for operator in ("stress", "advective"):
        with engine(points, operator=operator, cfl=0.5) as flow:
            flow.advance(ENOUGH, until)
            now = spectrum(flow)
            size = flow.inspect().allocated_bytes
        tail = np.linalg.norm((now - best)[highest]) / np.linalg.norm(best[highest])
        print(f"  {operator:10s} error {difference(now, best):.1e}"
              f"   in the highest tenth {tail:.1e}   {size / 2**20:.1f} MiB",
              flush=True)  # fmt: skip


def starts() -> None:
    """Energy, enstrophy and palinstrophy of the start spectra."""
    for kind in ("PAO", "KM3"):
        for k0 in (2, 4, 8, 16):
            with engine(512, start_spectrum=kind, k0=k0) as flow:
                now = flow.inspect()
            print(f"  {kind} k0 {k0:2d}   E {now.energy:.3f}  Z {now.enstrophy:8.2f}"
                  f"  P {now.palinstrophy:10.0f}"
                  f"   turnover {now.initial_turnover_time:.3f}")  # fmt: skip


def grids() -> None:
    """Memory and processor time of a step; that of one core where it is run with taskset -c 0."""
    print(f"  {zephane.initialize().gpu}")
    for points in (128, 256, 512, 1024, 2048, 4096):
        for integrator, operator in (("etdrk4", "stress"), ("etdrk4", "advective"),
                                     ("imexRK3", "stress"), ("ifHeunRK3", "stress")):  # fmt: skip
            with engine(points, integrator=integrator, operator=operator, cfl=1.0) as flow:
                _processor_seconds(flow, 2)
                count = max(1, int(0.2 / _processor_seconds(flow, 2)))
                best = min(_processor_seconds(flow, count) for _ in range(5))
                size = flow.inspect().allocated_bytes
            print(f"  N {points:4d} {integrator:10s} {operator:10s} {1e3 * best:9.2f} ms"
                  f"  {size / 2**20:8.1f} MiB", flush=True)  # fmt: skip


def _processor_seconds(flow: zephane.Engine, count: int) -> float:
    began = time.process_time()
    flow.advance(count, fresh=False)
    return (time.process_time() - began) / count


def adapted() -> None:
    """200 turnovers with the viscosity that keeps k_max eta near its target."""
    for n in (128, 256):
        with engine(n) as flow:
            now = flow.inspect()
            turnover, numbers = now.initial_turnover_time, []
            law, marks = ViscosityLaw(n, turnover), [0.5, 1, 5, 20, 50, 100, 200]
            while marks:
                flow.advance(ENOUGH, now.simulation_time + 0.25)
                now = flow.inspect()
                number = zephane.resolution_number(n, now.reynolds, now.palinstrophy)
                numbers.append((now.simulation_time / turnover, number))
                if numbers[-1][0] >= marks[0]:
                    print(f"  N {n}  turnovers {marks.pop(0):5}  Re {now.reynolds:7.0f}"
                          f"  k_max eta {number:.2f}  enstrophy {now.enstrophy:.3f}",
                          flush=True)  # fmt: skip
                moved = law.next(now.simulation_time, now.palinstrophy, math.log10(now.reynolds))
                flow.set(reynolds=10**moved)
            late = [number for time, number in numbers if time > 5]
            least = min(number for _, number in numbers)
            print(f"  N {n}  least {least:.2f}"
                  f"  after 5 turnovers {min(late):.2f} to {max(late):.2f}",
                  flush=True)  # fmt: skip


def regulation() -> None:
    """The control of unregulated flows of several Reynolds numbers, and two regulated ones."""
    times = (2, 5, 10, 20, 40)
    for factor in (0.25, 0.5, 1, 2, 4):
        with engine(128, reynolds=factor * usual(128)) as flow:
            controls = []
            for until in times:
                flow.advance(ENOUGH, until)
                controls.append(1e4 * flow.inspect().palinstrophy_ratio)
        print(f"  N 128  {factor:5.2f} x default   control at t {times}: "
              + " ".join(f"{control:.1f}" for control in controls), flush=True)  # fmt: skip
    for number in (usual(128), usual(128) / 2):
        with zephane.View(resolution=128, reynolds=number) as view:
            view.set(regulated=True)
            view.start()
            for target in (1, 5, 10, 20, 40, 60):
                now = view.wait(lambda now: now.ready and now.stats.simulation_time >= target,
                                timeout=600)  # fmt: skip
                print(f"  regulated from {number:.0f}: t {now.stats.simulation_time:6.1f}"
                      f"  after {now.elapsed_seconds:5.1f} s  Re {now.effective_reynolds:9.0f}"
                      f"  control {now.palinstrophy_control:8.2f}", flush=True)  # fmt: skip


TABLES = {
    "steps": steps,
    "stability": stability,
    "resolution": resolution,
    "reynolds": reynolds,
    "operators": operators,
    "starts": starts,
    "grids": grids,
    "adapted": adapted,
    "regulation": regulation,
}

if __name__ == "__main__":
    for name in sys.argv[1:] or TABLES:
        print(f"{name}: {TABLES[name].__doc__}")
        TABLES[name]()
