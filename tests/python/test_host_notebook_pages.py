"""What engines, fields and recordings show in a notebook, and its colours."""

from __future__ import annotations

import base64
import io
import re
import sys
import types
from collections.abc import Callable
from pathlib import Path
from typing import Any

import numpy as np
import pytest
from PIL import Image
from png_reader import read_png

import zephane
from zephane.shading import picture_png

Maker = Callable[..., zephane.Engine]


def colors(png: bytes) -> Any:
    """The colours of a picture, row 0 at the bottom."""
    return np.asarray(Image.open(io.BytesIO(png)).convert("RGB")).astype(int)[::-1]


def pictures_in(page: str) -> list[bytes]:
    return [base64.b64decode(data) for data in re.findall(r"data:image/png;base64,([^\"]+)", page)]


@pytest.mark.parametrize("palette", zephane.PALETTES)
@pytest.mark.parametrize(
    "settings",
    [{}, {"color_range": "exposure", "exposure": 0.7}, {"display": "speed"},
     {"display": "enstrophy", "exposure": 2.0}],
    ids=["sigma", "exposure", "speed", "enstrophy"],
)  # fmt: skip
def test_the_colors_are_those_of_the_library(
    make_engine: Maker, tmp_path: Path, settings: dict[str, Any], palette: str
) -> None:
    engine = make_engine(resolution=128)
    engine.advance(until=1.0)
    fields = engine.fields()
    drawn = tmp_path / "drawn.png"
    # Half as many pixels lie on every second point of the grid, beginning with the point 1.
    engine.export(png=drawn, pixel_size=64, palette=palette, **settings)
    expected = read_png(drawn)[::-1, :, :3].astype(int)
    seen = colors(picture_png(zephane.PictureSettings(palette=palette, **settings), *fields))
    assert np.abs(seen[1::2, 1::2] - expected).max() <= 3


def test_samples_that_are_not_finite_are_dark() -> None:
    plane = np.ones((4, 4), "f4")
    plane[0, 0] = np.nan
    for display in zephane.DISPLAYS:
        colors(picture_png(zephane.PictureSettings(display=display), plane, plane, plane))


def test_a_fluid_at_rest_has_the_middle_color() -> None:
    still = np.zeros((4, 4), "f4")
    assert (colors(picture_png(zephane.PictureSettings(), still)) == [4, 7, 14]).all()


def test_an_engine_shows_its_picture_and_figures(make_engine: Maker) -> None:
    engine = make_engine(seed=9)
    engine.advance(5)
    page = engine._repr_html_()
    assert page and "Flow of 64 x 64, k0 4, seed 9" in page and "palinstrophy" in page
    assert engine.system.gpu in page
    (png,) = pictures_in(page)
    assert png == engine._repr_png_() and colors(png).shape == (64, 64, 3)
    settings = zephane.PictureSettings(color_range="exposure", exposure=0.7)
    fields = colors(picture_png(settings, engine.fields().vorticity))
    assert np.abs(colors(png) - fields).max() <= 3


def test_a_fine_grid_is_shown_by_fewer_points(make_engine: Maker) -> None:
    engine = make_engine(resolution=512)
    assert colors(engine._repr_png_()).shape == (384, 384, 3)
    fields = engine.fields(include_velocity=False)
    assert colors(fields._repr_png_()).shape == (256, 256, 3)
    assert "largest speed" not in fields._repr_html_()


def test_what_a_closed_or_lost_engine_shows(make_engine: Maker) -> None:
    engine = make_engine(fixed_dt=10.0)
    with pytest.raises(zephane.FlowFailedError):
        engine.advance(50)
    page = engine._repr_html_()
    assert page and "failure" in page and "reset() starts again" in page
    assert engine._repr_png_() is None
    engine.close()
    assert engine._repr_html_() is None and engine._repr_png_() is None


def test_without_numpy_figures_are_shown(make_engine: Maker, without_numpy: None) -> None:
    engine = make_engine()
    page, fields = engine._repr_html_(), engine.fields()
    assert page and "energy" in page and pictures_in(page) == []
    assert engine._repr_png_() is None and fields._repr_png_() is None
    assert "largest speed" in fields._repr_html_() and pictures_in(fields._repr_html_()) == []


# Datasets


@pytest.fixture
def recording(make_engine: Maker) -> Any:
    pytest.importorskip("xarray", reason="python3-xarray is missing")
    engine = make_engine()
    return zephane.record(engine, until=0.5, every=0.1, spectra_every=0.5, fields_every=0.25)


def test_a_recording_shows_its_last_field_and_curves(recording: Any) -> None:
    pytest.importorskip("matplotlib", reason="python3-matplotlib is missing")
    field, curves = pictures_in(recording.zephane._repr_html_())
    settings = zephane.PictureSettings(color_range="exposure", exposure=0.7)
    assert field == picture_png(settings, recording.vorticity[-1].values)
    assert colors(curves).shape[1] > 3 * 400
    (curves,) = pictures_in(recording[["energy"]].zephane._repr_html_())
    assert colors(curves).shape[1] < 600
    assert pictures_in(recording[["dt"]].zephane._repr_html_()) == []


def test_in_a_notebook_only_datasets_of_this_package_show_more(
    recording: Any, monkeypatch: pytest.MonkeyPatch
) -> None:
    import xarray

    from zephane.dataset_pages import show_in_notebooks

    # Matplotlib looks for IPython with its first figures, and must not find the one below.
    recording.zephane._repr_html_()
    shown: dict[type, Callable[[Any], str]] = {}
    formatter = types.SimpleNamespace(for_type=shown.__setitem__)
    shell = types.SimpleNamespace(
        display_formatter=types.SimpleNamespace(formatters={"text/html": formatter})
    )
    monkeypatch.setitem(
        sys.modules, "IPython", types.SimpleNamespace(get_ipython=lambda: shell)
    )
    show_in_notebooks(xarray.Dataset)
    show = shown[xarray.Dataset]
    assert len(pictures_in(show(recording))) == 2 and "palinstrophy" in show(recording)
    other = recording.copy()
    other.attrs = {}
    assert pictures_in(show(other)) == [] and "palinstrophy" in show(other)
    monkeypatch.setitem(sys.modules, "matplotlib.figure", None)
    assert pictures_in(show(recording)) == [] and "palinstrophy" in show(recording)


def test_nothing_is_registered_outside_a_notebook(monkeypatch: pytest.MonkeyPatch) -> None:
    from zephane.dataset_pages import show_in_notebooks

    monkeypatch.setitem(sys.modules, "IPython", types.SimpleNamespace(get_ipython=lambda: None))
    show_in_notebooks(dict)
    monkeypatch.delitem(sys.modules, "IPython")
    show_in_notebooks(dict)
