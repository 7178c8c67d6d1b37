"""fluidsim's solver ns2d with MPI: vorticity, Runge-Kutta of fourth order with exact viscosity,
double precision, its 2/3 rule on 3N/2 points, which keeps the modes of our N. Nothing is written or
printed."""

from __future__ import annotations

import numpy as np
from fluidsim.solvers.ns2d.solver import Simul
from problem import Problem, from_grid, on_grid


class FluidsimFlow:
    def __init__(self, problem: Problem) -> None:
        self.n = problem.resolution
        params = Simul.create_default_params()
        params.oper.nx = params.oper.ny = problem.padded
        params.oper.Lx = params.oper.Ly = 2 * np.pi
        params.oper.type_fft = problem.options.get("transforms", "fft2d.mpi_with_fftw1d")
        params.nu_2 = problem.viscosity
        params.time_stepping.USE_CFL = False
        params.time_stepping.deltat0 = problem.dt
        params.time_stepping.USE_T_END = False
        params.time_stepping.it_end = 10**9
        params.init_fields.type = "in_script"
        params.output.HAS_TO_SAVE = False
        params.output.periods_print.print_stdout = 0
        self.simulation = Simul(params)
        vorticity = on_grid(problem.coefficients(), problem.padded)
        oper = self.simulation.oper
        first = oper.oper_fft.get_seq_indices_first_X()[0]
        rows = oper.shapeX_loc[0]
        part = np.ascontiguousarray(vorticity[first : first + rows])
        self.simulation.state.init_statephys_from(rot=part)
        self.simulation.state.statespect_from_statephys()
        self.simulation.state.statephys_from_statespect()
        self.simulation.time_stepping.prepare_main_loop()

    def take(self, steps: int) -> None:
        for _ in range(steps):
            self.simulation.time_stepping.one_time_step()

    def coefficients(self) -> np.ndarray | None:
        oper = self.simulation.oper
        part = self.simulation.state.get_var("rot")
        vorticity = part if oper.is_sequential else oper.gather_Xspace(part)
        return None if vorticity is None else from_grid(np.array(vorticity), self.n)


make = FluidsimFlow
