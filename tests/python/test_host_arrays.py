"""Fields and spectra as arrays, with NumPy and without, and the shells binned from them."""

from __future__ import annotations

import array
from typing import Any, Callable

import numpy as np
import pytest

import zephane

Maker = Callable[..., zephane.Engine]

SIZE = 64


@pytest.fixture
def moved(engine: zephane.Engine) -> zephane.Engine:
    engine.advance(10)
    return engine


def test_fields_are_three_planes_of_single_precision(moved: zephane.Engine) -> None:
    fields = moved.fields()
    assert fields.data.dtype == np.float32
    assert fields.data.shape == (3, SIZE, SIZE)
    for plane, data in zip((fields.vorticity, fields.u, fields.v), fields.data):
        assert np.array_equal(plane, data) and np.shares_memory(plane, fields.data)
    vorticity, u, v = fields
    assert np.array_equal(np.stack([vorticity, u, v]), fields.data)


def test_the_snapshot_holds_the_moments_of_its_fields(moved: zephane.Engine) -> None:
    fields = moved.fields()
    snapshot = fields.snapshot
    vorticity = fields.vorticity.astype(np.float64)
    assert snapshot.sequence == 10
    assert snapshot.grid_size == SIZE
    assert snapshot.max_vorticity == np.abs(fields.vorticity).max()
    assert snapshot.mean_vorticity == pytest.approx(vorticity.mean(), abs=1e-6)
    assert snapshot.std_vorticity == pytest.approx(vorticity.std(), rel=1e-5)
    assert snapshot.max_speed == pytest.approx(np.hypot(fields.u, fields.v).max(), rel=1e-6)


def test_fields_without_velocity_say_so(moved: zephane.Engine) -> None:
    fields = moved.fields(include_velocity=False)
    assert not fields.has_velocity and moved.fields().has_velocity
    assert np.array_equal(fields.vorticity, moved.fields().vorticity)
    for read in (lambda: fields.u, lambda: fields.v, lambda: list(fields)):
        with pytest.raises(zephane.ZephaneError, match="without their velocity"):
            read()


def test_rows_are_y_and_columns_are_x(make_engine: Maker) -> None:
    angle = 2 * np.pi * np.arange(SIZE) / SIZE
    y, x = np.meshgrid(angle, angle, indexing="ij")
    fields = make_engine(initial=np.sin(3 * x) + 0 * y).fields()
    # The vorticity dv/dx - du/dy = sin 3x belongs to v = -cos(3x)/3 and u = 0.
    assert fields.vorticity == pytest.approx(np.sin(3 * x), abs=1e-5)
    assert fields.v == pytest.approx(-np.cos(3 * x) / 3, abs=1e-5)
    assert fields.u == pytest.approx(0 * x, abs=1e-5)


def test_the_spectrum_is_the_transform_of_the_vorticity(moved: zephane.Engine) -> None:
    spectrum = moved.spectrum()
    assert spectrum.dtype == np.complex64
    expected = np.fft.fft2(moved.fields().vorticity.astype(np.float64)) / SIZE**2
    assert spectrum == pytest.approx(expected, abs=1e-6)


def test_without_numpy_the_same_numbers_are_plain_arrays(
    moved: zephane.Engine, without_numpy: None
) -> None:
    fields, spectrum = moved.fields(), moved.spectrum()
    for values, count in ((fields.data, 3), (fields.v, 1), (spectrum, 2)):
        assert isinstance(values, array.array) and values.typecode == "f"
        assert len(values) == count * SIZE * SIZE
    assert fields.vorticity + fields.u + fields.v == fields.data


def test_plain_arrays_hold_what_numpy_arrays_hold(
    moved: zephane.Engine, request: pytest.FixtureRequest
) -> None:
    fields, spectrum = moved.fields(), moved.spectrum()
    request.getfixturevalue("without_numpy")
    assert moved.fields().data.tobytes() == fields.data.tobytes()
    assert moved.spectrum().tobytes() == spectrum.tobytes()


def test_a_plain_array_starts_a_flow(make_engine: Maker, without_numpy: None) -> None:
    source = make_engine()
    copy = make_engine(initial=source.fields().vorticity)
    assert copy.inspect().energy == pytest.approx(source.inspect().energy, rel=1e-5)


def test_the_shells_add_up_to_the_energy(moved: zephane.Engine) -> None:
    shells = zephane.radial_spectrum(moved.spectrum())
    assert shells.dtype == np.float64
    assert shells[0] == 0.0
    assert shells.sum() == pytest.approx(moved.inspect().energy, rel=1e-6)


def test_a_wave_lies_in_the_shell_of_its_number() -> None:
    spectrum = np.zeros((16, 16), np.complex64)
    spectrum[-4, 3] = 2 + 1j  # |k| = 5
    spectrum[4, -3] = 2 - 1j
    spectrum[1, 1] = 1  # |k| = 1.41 rounds to 1
    spectrum[0, 0] = 7
    expected = np.zeros(12)
    expected[5] = 2 * 0.5 * 5 / 25
    expected[1] = 0.5 * 1 / 2
    assert zephane.radial_spectrum(spectrum) == pytest.approx(expected)


@pytest.mark.parametrize("size", [16, 18, 31])
def test_shells_are_the_same_without_numpy(size: int) -> None:
    random = np.random.default_rng(1)
    spectrum = random.normal(size=(size, size, 2)).astype(np.float32)
    plain = array.array("f", spectrum.tobytes())
    expected: Any = zephane.radial_spectrum(spectrum.view(np.complex64)[:, :, 0])
    shells = zephane.radial_spectrum(plain)
    assert isinstance(shells, array.array) and shells.typecode == "d"
    assert list(shells) == pytest.approx(list(expected), rel=1e-12)
