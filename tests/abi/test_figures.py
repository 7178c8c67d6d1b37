"""Figures to the bit, and starts from samples. tests/reference compares figures and files with
float64."""

from __future__ import annotations

import math

import numpy as np
import pytest


def spectrum_of(engine, n: int) -> np.ndarray:
    """The coefficients of the vorticity, row ky by column kx."""
    return np.frombuffer(engine.spectrum(), "<c8").reshape(n, n)


def fields_of(engine, n: int, **arguments) -> np.ndarray:
    """Vorticity and the two velocities, row y by column x."""
    return np.frombuffer(engine.fields(**arguments), "<f4").reshape(3, n, n)


def samples_file(path, field: np.ndarray) -> str:
    path.write_bytes(field.astype("<f4").tobytes())
    return str(path)


def grid(n: int) -> tuple[np.ndarray, np.ndarray]:
    at = 2 * np.pi * np.arange(n) / n
    return at[np.newaxis, :], at[:, np.newaxis]


# The statistics report


@pytest.mark.parametrize("n", [16, 18, 64])
def test_the_palinstrophy_ratio_is_taken_at_the_largest_wavenumber(make_engine, n):
    report = make_engine(resolution=n).inspect()
    z, largest = report["enstrophy"], n // 2 - 1
    expected = report["palinstrophy"] / (((z + z) * largest) * largest)
    assert report["palinstrophy_ratio"] == expected


def test_the_initial_turnover_time_follows_from_energy_and_enstrophy(make_engine):
    engine = make_engine(resolution=64)
    report = engine.inspect()
    e, z = report["energy"], report["enstrophy"]
    expected = (math.sqrt(e / z) * (2 * math.pi)) / math.sqrt(e * 2)
    assert report["initial_turnover_time"] == expected
    engine.advance(steps=20)
    assert engine.inspect()["initial_turnover_time"] == expected


# Starts from samples


def test_x_runs_along_the_rows_of_a_file(make_engine, tmp_path):
    n = 16
    x, y = grid(n)
    path = samples_file(tmp_path / "start", 2 * np.cos(2 * x + 3 * y))
    spectrum = spectrum_of(make_engine(resolution=n, initial=path), n)
    expected = np.zeros((n, n))
    expected[3, 2] = expected[-3, -2] = 1
    assert np.abs(spectrum - expected).max() < 1e-6


def test_a_single_wave_has_its_velocity(make_engine, tmp_path):
    n = 32
    x, y = grid(n)
    engine = make_engine(
        resolution=n, initial=samples_file(tmp_path / "start", np.cos(2 * x + 3 * y))
    )
    _, u, v = fields_of(engine, n)
    assert np.abs(u + 3 / 13 * np.sin(2 * x + 3 * y)).max() < 1e-6
    assert np.abs(v - 2 / 13 * np.sin(2 * x + 3 * y)).max() < 1e-6
    report = engine.inspect()
    assert report["enstrophy"] == pytest.approx(1 / 4, rel=1e-5)
    assert report["energy"] == pytest.approx(1 / 4 / 13, rel=1e-5)
    assert report["palinstrophy"] == pytest.approx(13 / 4, rel=1e-5)


@pytest.mark.parametrize("level", [0.0, 1.0, -2.5e30])
def test_a_constant_field_is_a_flow_at_rest(make_engine, tmp_path, level):
    path = samples_file(tmp_path / "start", np.full((16, 16), level))
    engine = make_engine(initial=path)
    report = engine.inspect()
    still = ("energy", "enstrophy", "palinstrophy", "palinstrophy_ratio", "initial_turnover_time")
    assert [report[key] for key in still] == [0] * 5
    assert report["dt"] == 1
    assert report["is_finite"] is True
    snapshot = engine.export(snapshot=True)
    moments = ("max_vorticity", "mean_vorticity", "std_vorticity", "max_speed")
    assert [snapshot[key] for key in moments] == [0] * 4
    assert make_engine(initial=path, fixed_dt=0.5).inspect()["dt"] == 0.5


def test_a_spectrum_exported_and_given_back_is_the_same_flow(make_engine, tmp_path):
    n = 64
    engine = make_engine(resolution=n)
    engine.advance(steps=10)
    start = samples_file(tmp_path / "start", fields_of(engine, n)[0])
    again = make_engine(resolution=n, initial=start)
    one, two = spectrum_of(engine, n), spectrum_of(again, n)
    assert np.abs(one - two).max() < 1e-6 * np.abs(one).max()
