"""Comparisons, ensemble means, and the plots of recordings and sweeps."""

from __future__ import annotations

import os
import subprocess
import sys
from collections.abc import Iterator
from pathlib import Path
from typing import Any

import numpy as np
import pytest

import zephane

xr = pytest.importorskip("xarray", reason="python3-xarray is missing")
matplotlib = pytest.importorskip("matplotlib", reason="python3-matplotlib is missing")
matplotlib.use("Agg")
from matplotlib import pyplot  # noqa: E402

import zephane.plots  # noqa: E402, F401


@pytest.fixture(autouse=True)
def closed_figures() -> Iterator[None]:
    yield
    pyplot.close("all")


TIMES = np.linspace(0.0, 1.0, 5)
SERIES = {"long_name": "energy, the mean", "units": "1"}


def made_recording(energy: Any = 1.0 - 0.5 * TIMES, times: Any = TIMES) -> Any:
    k = np.arange(65.0)
    spectrum = np.stack([1.0 / (1.0 + k**3), 2.0 / (1.0 + k**3)])
    return xr.Dataset(
        {
            "energy": ("time", energy, SERIES),
            "energy_spectrum": (("spectrum_time", "wavenumber"), spectrum),
            "energy_flux": (("spectrum_time", "wavenumber"), spectrum - 0.1),
            "vorticity": (("field_time", "y", "x"), np.ones((1, 2, 2), "f4")),
        },
        {"time": times, "spectrum_time": [0.0, 1.0], "wavenumber": k, "field_time": [0.0],
         "x": [0.0, 1.0], "y": [0.0, 1.0]},
        {"resolution": 64, "seed": "2"},
    )  # fmt: skip


def made_sweep() -> Any:
    """Two Reynolds numbers; seed 3 of the second one is lost after two samples."""
    slopes = np.array([[0.2, 0.1], [0.4, 0.3], [0.6, 0.5]])
    energy = 1.0 - slopes[:, :, None] * TIMES
    energy[2, 1, 2:] = np.nan
    shells = np.array([1.0, 2.0, 3.0])[:, None, None, None] * np.ones((3, 2, 1, 9))
    return xr.Dataset(
        {
            "energy": (("seed", "reynolds", "time"), energy, SERIES),
            "energy_spectrum": (("seed", "reynolds", "spectrum_time", "wavenumber"), shells),
            "failed_at": (("seed", "reynolds"), np.full((3, 2), np.nan)),
        },
        {"seed": [1, 2, 3], "reynolds": [100.0, 200.0], "time": TIMES, "spectrum_time": [1.0],
         "wavenumber": np.arange(9)},
    )  # fmt: skip


# Means


def test_means_and_spreads_count_the_members_that_are_there() -> None:
    means = made_sweep().zephane.ensemble()
    assert means.energy.sel(reynolds=100.0).values == pytest.approx(1.0 - 0.4 * TIMES)
    assert means.energy_spread.sel(reynolds=100.0).values == pytest.approx(0.2 * TIMES)
    assert means.energy[1, -1] == pytest.approx(0.8)  # Of two members.
    assert means.energy_spread[1, -1] == pytest.approx(np.std([0.9, 0.7], ddof=1))
    assert (means.energy_spectrum_spread == 1.0).all()
    assert "failed_at" not in means
    assert means.energy_spread.attrs["long_name"].startswith("standard deviation over seed: energy")


def test_a_dimension_that_is_missing_is_refused() -> None:
    with pytest.raises(zephane.InvalidValueError, match='"cfl" of a sweep.*has seed, reynolds'):
        made_sweep().zephane.ensemble("cfl")
    with pytest.raises(zephane.InvalidValueError, match='"seed" of a sweep: the Dataset has none'):
        made_recording().zephane.plot_ensemble()


# Plots


def test_the_decay_has_a_line_for_each_setting_and_a_band_of_its_members() -> None:
    ax = made_sweep().zephane.plot_decay()
    assert [line.get_label() for line in ax.get_lines()] == ["Re 100", "Re 200"]
    assert ax.get_lines()[0].get_ydata() == pytest.approx(1.0 - 0.4 * TIMES)
    band = ax.collections[0].get_paths()[0].vertices[:, 1]
    assert (band.min(), band.max()) == pytest.approx((0.4, 1.0))
    assert (ax.get_xlabel(), ax.get_ylabel()) == ("time", "energy")
    made_recording().zephane.plot_decay(ax=ax, label="one more", color="black")
    assert (ax.get_lines()[-1].get_label(), ax.get_lines()[-1].get_color()) == ("one more", "black")


def test_the_decay_of_each_member_can_be_relative_to_its_start() -> None:
    ax = (2.0 * made_sweep()).zephane.plot_decay(over=None, relative=True)
    assert len(ax.get_lines()) == 6 and not ax.collections
    assert all(line.get_ydata()[0] == 1.0 for line in ax.get_lines())


def test_an_ensemble_is_drawn_with_its_members() -> None:
    ax = made_sweep().zephane.plot_ensemble("energy")
    lines = ax.get_lines()
    assert len(lines) == 2 + 6
    assert lines[2].get_ydata() == pytest.approx(1.0 - 0.2 * TIMES)
    assert lines[2].get_color() == lines[0].get_color() != lines[5].get_color()
    assert [text.get_text() for text in ax.get_legend().get_texts()] == ["Re 100", "Re 200"]


def test_spectra_are_drawn_of_the_nearest_time_with_a_slope_for_the_eye(tmp_path: Path) -> None:
    figure, ax = pyplot.subplots()
    drawn = made_recording().zephane.plot_spectra(time=0.2, slope=-3.0, ax=ax, color="red")
    assert drawn is ax and (ax.get_xscale(), ax.get_yscale()) == ("log", "log")
    spectrum, slope = ax.get_lines()
    assert spectrum.get_ydata()[0] == 0.5 and spectrum.get_xdata()[0] == 1.0  # Without k = 0.
    assert spectrum.get_color() == "red" and ax.get_title() == "time 0"
    (x1, x2), (y1, y2) = slope.get_xdata(), slope.get_ydata()
    assert np.log(y2 / y1) / np.log(x2 / x1) == pytest.approx(-3.0)
    figure.savefig(tmp_path / "spectra.png")
    assert made_recording().zephane.plot_spectra(slope=None).get_lines()[0].get_ydata()[0] == 1.0


def test_the_band_of_a_spectrum_stays_above_zero() -> None:
    ds = made_sweep()
    ds["energy_spectrum"] = ds.energy_spectrum ** 4
    ax = ds.zephane.plot_spectra()
    assert all(band.get_paths()[0].vertices[:, 1].min() >= 1.0 for band in ax.collections)


def test_fluxes_have_a_linear_scale() -> None:
    ax = made_recording().zephane.plot_spectra("energy_flux")
    assert ax.get_yscale() == "linear" and ax.get_lines()[0].get_ydata().min() < 0.0


@pytest.mark.parametrize(
    "plot, words",
    [
        (lambda ds: ds.zephane.plot_decay("energi"), 'No "energi" along time: the Dataset has en'),
        (lambda ds: ds.drop_dims("spectrum_time").zephane.plot_spectra(), "with spectra_every"),
    ],
)
def test_what_a_dataset_lacks_is_told(plot, words) -> None:
    with pytest.raises(zephane.InvalidValueError, match=words):
        plot(made_recording())


def test_a_plot_without_matplotlib_says_how_to_get_it(monkeypatch) -> None:
    monkeypatch.setitem(sys.modules, "matplotlib.pyplot", None)
    with pytest.raises(zephane.ZephaneError, match=r"needs matplotlib.*'zephane\[sweep\]'"):
        made_recording().zephane.plot_decay()


# Comparisons


def test_recordings_with_the_same_times_stay_as_they_are(tmp_path: Path) -> None:
    one, other = made_recording(), made_recording(2.0 - TIMES, TIMES * (1.0 + 1e-15))
    other.attrs["seed"] = "3"
    other.to_netcdf(tmp_path / "other.nc")
    both = zephane.compare({"one": one}, other=tmp_path / "other.nc")
    assert list(both.run.values) == ["one", "other"]
    assert (both.energy.sel(run="other") == 2.0 - TIMES).all() and len(both.time) == 5
    assert "vorticity" in both
    assert both.attrs["resolution"] == 64 and "seed" not in both.attrs
    ax = both.zephane.plot_decay()
    assert [line.get_label() for line in ax.get_lines()] == ["one", "other"]


def test_other_times_are_interpolated_onto_those_of_the_first_that_all_cover() -> None:
    later = np.array([0.2, 0.5, 0.6, 0.8])
    both = zephane.compare(one=made_recording(), other=made_recording(3.0 * later, later))
    assert both.time.values == pytest.approx([0.25, 0.5, 0.75])
    assert both.energy.sel(run="one").values == pytest.approx([0.875, 0.75, 0.625])
    assert both.energy.sel(run="other").values == pytest.approx([0.75, 1.5, 2.25])


def test_fields_on_other_grids_are_left_out_and_shells_are_joined() -> None:
    small = made_recording().isel(x=[0], wavenumber=slice(0, 9))
    both = zephane.compare(small=small, large=made_recording())
    assert "vorticity" not in both and both.sizes["wavenumber"] == 65
    assert both.energy_spectrum.sel(run="small")[0].notnull().sum() == 9


def test_members_that_were_selected_can_be_compared() -> None:
    ds = made_sweep()
    both = zephane.compare(low=ds.sel(reynolds=100.0), high=ds.sel(reynolds=200.0))
    assert both.energy.sizes == {"run": 2, "seed": 3, "time": 5}
    assert (both.energy.sel(run="high", seed=1) == ds.energy.sel(reynolds=200.0, seed=1)).all()
    assert "reynolds" not in both.coords


@pytest.mark.parametrize(
    "recordings, words",
    [
        ({}, "nothing to compare"),
        ({"one": 3}, "one is no recording"),
        ({"one": "no.nc"}, "Cannot read no.nc: "),
    ],
)
def test_what_is_no_recording_is_refused(recordings, words) -> None:
    with pytest.raises(zephane.ZephaneError, match=words):
        zephane.compare(**recordings)


def test_recordings_without_common_times_are_refused() -> None:
    with pytest.raises(zephane.InvalidValueError, match="share no time"):
        zephane.compare(one=made_recording(), other=made_recording(TIMES, TIMES + 7.0))


def test_importing_the_package_imports_none_of_these(python_path: Path) -> None:
    script = (
        "import sys, zephane, zephane.command_line\n"
        "print(sorted({'xarray', 'matplotlib', 'dask', 'distributed'} & set(sys.modules)))"
    )
    done = subprocess.run(
        [sys.executable, "-c", script],
        env={**os.environ, "PYTHONPATH": str(python_path)},
        capture_output=True, text=True, check=True,
    )  # fmt: skip
    assert done.stdout == "[]\n"
