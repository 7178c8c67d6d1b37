"""What the figures and the raw files say of a flow, and that they agree with each other."""

from __future__ import annotations

import math

import numpy as np
import pytest

from .harness import INTEGRATORS, OPERATORS

GRIDS = [16, 18, 22, 30, 38, 64]


def spectrum_of(engine, n: int) -> np.ndarray:
    """The coefficients of the vorticity, row ky by column kx."""
    return np.frombuffer(engine.spectrum(), "<c8").reshape(n, n)


def fields_of(engine, n: int, **arguments) -> np.ndarray:
    """Vorticity and the two velocities, row y by column x."""
    return np.frombuffer(engine.fields(**arguments), "<f4").reshape(3, n, n)


def wavenumbers(n: int) -> tuple[np.ndarray, np.ndarray]:
    k = np.fft.fftfreq(n, 1 / n)
    return k[np.newaxis, :], k[:, np.newaxis]


def velocity_coefficients(spectrum: np.ndarray) -> tuple[np.ndarray, np.ndarray]:
    kx, ky = wavenumbers(len(spectrum))
    squares = kx**2 + ky**2
    squares[0, 0] = 1
    omega = spectrum.astype(complex)
    return 1j * ky * omega / squares, -1j * kx * omega / squares


def physical(coefficients: np.ndarray) -> np.ndarray:
    return np.fft.ifft2(coefficients).real * coefficients.size


def samples_file(path, field: np.ndarray) -> str:
    path.write_bytes(field.astype("<f4").tobytes())
    return str(path)


def grid(n: int) -> tuple[np.ndarray, np.ndarray]:
    at = 2 * np.pi * np.arange(n) / n
    return at[np.newaxis, :], at[:, np.newaxis]


# The statistics report


def test_the_figures_are_sums_over_the_spectrum(make_engine):
    n = 64
    engine = make_engine(resolution=n)
    engine.advance(steps=10)
    report = engine.inspect()
    spectrum = spectrum_of(engine, n).astype(complex)
    kx, ky = wavenumbers(n)
    squares = kx**2 + ky**2
    power = np.abs(spectrum) ** 2 / 2
    assert report["enstrophy"] == pytest.approx(power.sum(), rel=1e-5)
    assert report["palinstrophy"] == pytest.approx((power * squares).sum(), rel=1e-5)
    squares[0, 0] = np.inf
    assert report["energy"] == pytest.approx((power / squares).sum(), rel=1e-5)


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


@pytest.mark.parametrize("k0", [3, 5, 8])
def test_a_seeded_start_has_the_energy_of_its_shape(make_engine, k0):
    report = make_engine(resolution=128, k0=k0).inspect()
    assert report["energy"] == pytest.approx(1 / 2, rel=0.15)
    assert report["enstrophy"] == pytest.approx(k0**2 / 2, rel=0.15)
    assert report["initial_turnover_time"] == pytest.approx(2 * math.pi / k0, rel=0.1)


def test_the_first_time_step_follows_from_the_fastest_sample(make_engine):
    n, m = 32, 48
    engine = make_engine(resolution=n, cfl=0.5)
    padded = []
    for coefficients in velocity_coefficients(spectrum_of(engine, n)):
        wide = np.zeros((m, m), complex)
        half = n // 2
        for rows in (slice(None, half), slice(-half + 1, None)):
            for columns in (slice(None, half), slice(-half + 1, None)):
                wide[rows, columns] = coefficients[rows, columns]
        padded.append(np.abs(physical(wide)))
    fastest = (padded[0] + padded[1]).max()
    assert engine.inspect()["dt"] == pytest.approx((0.5 + 0.5) / (fastest * n), rel=1e-5)


def test_a_decaying_flow_loses_energy_and_enstrophy(make_engine):
    engine = make_engine(resolution=64, reynolds=200)
    before = engine.inspect()
    for _ in range(5):
        engine.advance(steps=10)
        after = engine.inspect()
        assert 0 < after["energy"] < before["energy"]
        assert 0 < after["enstrophy"] < before["enstrophy"]
        assert after["is_finite"] is True
        before = after


@pytest.mark.parametrize("integrator", INTEGRATORS)
def test_a_single_wave_decays_at_the_viscous_rate(make_engine, tmp_path, integrator):
    n, k, reynolds = 32, 3, 50
    x, y = grid(n)
    path = samples_file(tmp_path / "wave", np.cos(k * x) + 0 * y)
    engine = make_engine(
        resolution=n, initial=path, reynolds=reynolds, fixed_dt=0.01, integrator=integrator
    )
    before = engine.inspect()
    engine.advance(steps=100)
    after = engine.inspect()
    rate = -math.log(after["energy"] / before["energy"]) / after["simulation_time"]
    assert rate == pytest.approx(2 * k**2 / reynolds, rel=1e-4)


def test_the_two_operators_agree_to_rounding(make_engine):
    spectra = []
    for operator in OPERATORS:
        engine = make_engine(resolution=64, operator=operator, fixed_dt=0.005)
        engine.advance(steps=20)
        spectra.append(spectrum_of(engine, 64))
    assert np.abs(spectra[0] - spectra[1]).max() < 2e-6 * np.abs(spectra[0]).max()
    assert (spectra[0] != spectra[1]).any()


def test_the_integrators_agree_for_short_steps(make_engine):
    spectra = []
    for integrator in INTEGRATORS:
        engine = make_engine(resolution=64, integrator=integrator, fixed_dt=0.002)
        engine.advance(steps=100)
        spectra.append(spectrum_of(engine, 64))
    for other in spectra[:-1]:
        assert np.abs(other - spectra[-1]).max() < 2e-5 * np.abs(spectra[-1]).max()


# The spectrum file


@pytest.mark.parametrize("start_spectrum", ["PAO", "KM3"])
@pytest.mark.parametrize("n", GRIDS)
def test_a_spectrum_holds_both_halves_of_a_real_field(make_engine, n, start_spectrum):
    engine = make_engine(resolution=n, start_spectrum=start_spectrum)
    spectrum = spectrum_of(engine, n)
    mirror = np.roll(spectrum[::-1, ::-1], 1, axis=(0, 1))
    assert (spectrum == mirror.conj()).all()


@pytest.mark.parametrize("n", GRIDS)
def test_the_outer_half_of_a_spectrum_mirrors_the_inner_after_steps_too(make_engine, n):
    engine = make_engine(resolution=n)
    engine.advance(steps=5)
    spectrum = spectrum_of(engine, n)
    mirror = np.roll(spectrum[::-1, ::-1], 1, axis=(0, 1)).conj()
    inside = slice(1, n // 2)
    assert (spectrum[:, inside] == mirror[:, inside]).all()
    assert np.abs(spectrum - mirror).max() < 1e-5 * np.abs(spectrum).max()


@pytest.mark.parametrize("integrator", INTEGRATORS)
def test_the_mean_and_the_highest_wavenumbers_stay_empty(make_engine, integrator):
    n = 32
    engine = make_engine(resolution=n, integrator=integrator, k0=20)
    for steps in (0, 7):
        engine.advance(steps=steps)
        spectrum = spectrum_of(engine, n)
        assert spectrum[0, 0] == 0
        assert not spectrum[n // 2, :].any() and not spectrum[:, n // 2].any()
        assert spectrum[n // 2 - 1, n // 2 - 1] != 0


# The fields file


@pytest.mark.parametrize("n", GRIDS)
def test_the_fields_are_the_inverse_transform_of_the_spectrum(make_engine, n):
    engine = make_engine(resolution=n)
    engine.advance(steps=5)
    spectrum = spectrum_of(engine, n)
    fields = fields_of(engine, n)
    expected = [physical(spectrum), *map(physical, velocity_coefficients(spectrum))]
    for field, wanted in zip(fields, expected):
        assert np.abs(field - wanted).max() < 3e-6 * np.abs(wanted).max()


def test_the_velocity_has_no_divergence(make_engine):
    n = 64
    engine = make_engine(resolution=n)
    engine.advance(steps=5)
    kx, ky = wavenumbers(n)
    _, u, v = np.fft.fft2(fields_of(engine, n))
    assert np.abs(kx * u + ky * v).max() < 1e-5 * np.abs(kx * u).max()


def test_the_fields_without_velocity_end_in_two_planes_of_zeros(make_engine):
    n = 16
    engine = make_engine(resolution=n)
    whole = fields_of(engine, n)
    without = fields_of(engine, n, include_velocity=False)
    assert (without[0] == whole[0]).all()
    assert not without[1:].any() and whole[1:].all()


@pytest.mark.parametrize("n", [16, 18, 64])
def test_the_snapshot_report_describes_the_fields(make_engine, n, tmp_path):
    engine = make_engine(resolution=n)
    engine.advance(steps=5)
    path = tmp_path / "fields"
    report = engine.export(fields=str(path))
    omega, u, v = np.fromfile(path, "<f4").reshape(3, n, n)
    assert report["max_vorticity"] == np.abs(omega).max()
    assert report["max_speed"] == np.sqrt(u * u + v * v).max()
    assert report["std_vorticity"] == pytest.approx(omega.astype(float).std(), rel=1e-5)
    assert abs(report["mean_vorticity"]) < 1e-5 * report["max_vorticity"]
    assert report["sequence"] == 5


# Starts from samples


@pytest.mark.parametrize("n", GRIDS)
def test_a_start_from_samples_has_those_samples(make_engine, tmp_path, n):
    x, y = grid(n)
    field = np.sin(2 * x + 3 * y) - 0.5 * np.cos(5 * x - y) + 0.25 * np.sin(4 * y)
    engine = make_engine(resolution=n, initial=samples_file(tmp_path / "start", field))
    assert np.abs(fields_of(engine, n)[0] - field).max() < 2e-6


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


def test_a_start_loses_its_mean_and_what_the_grid_cannot_hold(make_engine, tmp_path):
    n = 16
    x, y = grid(n)
    kept = np.cos(7 * x) + np.sin(7 * y)
    lost = 5 + np.cos(8 * x) + np.cos(8 * y) + np.cos(8 * x + 2 * y) + np.cos(3 * x + 8 * y)
    path = samples_file(tmp_path / "start", kept + lost)
    engine = make_engine(resolution=n, initial=path)
    spectrum = spectrum_of(engine, n)
    assert spectrum[0, 0] == 0
    assert not spectrum[8, :].any() and not spectrum[:, 8].any()
    assert np.abs(fields_of(engine, n)[0] - kept).max() < 1e-5


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
