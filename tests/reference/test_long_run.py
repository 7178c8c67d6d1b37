"""A long decay of the library has the statistics of the model's."""

import pytest

from flow64 import measures
from flow64.stepping import Flow


def test_a_decay_of_many_turnovers_has_the_statistics_of_the_model(engine):
    config = dict(resolution=128, k0=6, reynolds=1500.0, cfl=2.5)
    config.update(start_spectrum="KM3", integrator="ifHeunRK3")
    flow, model = engine(**config), Flow(**config)
    begun = flow.inspect()
    for end in (1.5, 3.0):
        flow.advance(10000, until=end)
        model.advance(10000, until=end)
        report = flow.inspect()
        for name, tolerance in (("energy", 1e-4), ("enstrophy", 1e-3), ("palinstrophy", 1e-2)):
            expected = getattr(measures, name)(model.grid, model.vorticity)
            assert report[name] == pytest.approx(expected, rel=tolerance)
        assert report["steps"] == pytest.approx(model.steps, rel=0.01)
    assert report["enstrophy"] < 0.7 * begun["enstrophy"]
    shells = measures.shell_energies(model.grid, model.vorticity)[:40]
    found = measures.shell_energies(model.grid, flow.vorticity())[:40]
    assert found == pytest.approx(shells, rel=0.02)
