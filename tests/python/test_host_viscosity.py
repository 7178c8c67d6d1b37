"""The viscosity that follows the flow: its law alone, on an engine, and on a running view."""

from __future__ import annotations

import math
from collections.abc import Iterator
from pathlib import Path
from typing import Callable

import pytest

import zephane
from zephane import AdaptedViscosity, resolution_number
from zephane.viscosity import HIGHEST, LOWEST, TARGET, ViscosityLaw

SECONDS = 60.0


def test_the_resolution_number_is_k_max_eta() -> None:
    viscosity, palinstrophy = 1e-3, 500.0
    chi = 2.0 * viscosity * palinstrophy
    eta = (viscosity**3 / chi) ** (1.0 / 6.0)
    assert resolution_number(128, 1e3, palinstrophy) == pytest.approx(63 * eta)
    assert resolution_number(128, 1e3, 0.0) == math.inf


def test_the_suited_number_is_the_one_that_gives_the_target() -> None:
    suited = 10 ** ViscosityLaw(256, 1.57).suited(800.0)
    assert resolution_number(256, suited, 800.0) == pytest.approx(TARGET)


def test_small_eddies_lower_the_reynolds_number_and_large_ones_raise_it() -> None:
    law = ViscosityLaw(256, 1.57)
    suited = law.suited(800.0)
    for start, sign in ((suited + 0.4, -1), (suited - 0.4, 1)):
        law = ViscosityLaw(256, 1.57)
        assert law.next(0.0, 800.0, start) == start, "one sample has no duration"
        moved = law.next(0.5, 800.0, start) - start
        assert math.copysign(1.0, moved) == sign
        assert abs(moved) < 0.4


def test_the_reynolds_number_is_not_raised_while_the_palinstrophy_grows() -> None:
    law = ViscosityLaw(256, 1.57)
    start = law.suited(800.0) - 0.4
    law.next(0.0, 700.0, start)
    assert law.next(0.5, 800.0, start) == start
    assert law.next(1.0, 799.0, start) > start


def test_the_number_stays_within_the_limits_of_the_view() -> None:
    law = ViscosityLaw(4096, 1.57)
    law.next(0.0, 2e-3, 6.0)
    assert law.next(10.0, 1e-3, 5.99) == 6.0
    small = ViscosityLaw(32, 1.57)
    small.next(0.0, 500.0, 3.0)
    assert small.next(1.0, 500.0, 3.2) == 3.0
    assert small.next(2.0, 500.0, math.log10(740)) == math.log10(740), "never up instead of down"


def test_what_is_no_figure_moves_nothing() -> None:
    law = ViscosityLaw(128, 1.57)
    law.next(0.0, 500.0, 4.0)
    for palinstrophy in (0.0, -1.0, math.nan, math.inf):
        assert law.next(1.0, palinstrophy, 4.0) == 4.0


@pytest.mark.parametrize("between", [0.05, 0.4, 3.0, 12.0])
def test_the_law_holds_its_target_however_seldom_it_is_asked(between: float) -> None:
    """On a model flow of 200 turnovers, whose palinstrophy follows the Reynolds number after a
    turnover, with the power 0.8, while both decay.
    """
    turnover, resolution = 1.57, 256
    law = ViscosityLaw(resolution, turnover)
    time, log_reynolds, palinstrophy = 0.0, 4.5, 800.0
    numbers = []
    while time < 200 * turnover:
        log_reynolds = law.next(time, palinstrophy, log_reynolds)
        time += between
        goal = 800.0 * (10**log_reynolds / 6e3) ** 0.8 / (1.0 + time / 3.0)
        palinstrophy += (goal - palinstrophy) * -math.expm1(-between / turnover)
        number = resolution_number(resolution, 10**log_reynolds, palinstrophy)
        if time > 15.0 * turnover:
            numbers.append(number)
    assert LOWEST < min(numbers) and max(numbers) < HIGHEST + 0.3
    assert numbers[-1] == pytest.approx(TARGET, abs=0.15)


def test_a_flow_stays_resolved_while_it_decays(make_engine: Callable[..., zephane.Engine]) -> None:
    resolution = 128
    engine = make_engine(resolution=resolution, reynolds=zephane.default_reynolds(resolution, 4))
    figures = engine.inspect()
    law = ViscosityLaw(resolution, figures.initial_turnover_time)
    numbers, reynolds = [], []
    for n in range(48):
        engine.advance(10**6, 0.25 * (n + 1))
        figures = engine.inspect()
        numbers.append(resolution_number(resolution, figures.reynolds, figures.palinstrophy))
        reynolds.append(figures.reynolds)
        now = math.log10(figures.reynolds)
        engine.set(reynolds=10 ** law.next(figures.simulation_time, figures.palinstrophy, now))
    assert min(numbers) > 1.3 and all(LOWEST < number < HIGHEST for number in numbers[6:])
    # Down while the eddies become small, and up again as the flow decays.
    assert min(reynolds) < 0.6 * reynolds[0] and reynolds[-1] > 1.2 * min(reynolds)


@pytest.fixture
def view(library_path: Path, system: zephane.SystemInfo) -> Iterator[zephane.View]:
    with zephane.View(resolution=128, k0=2, seed=7, library=library_path) as made:
        yield made


def until_moved(adapted: AdaptedViscosity) -> zephane.ViewStatus:
    moved: list[zephane.ViewStatus] = []

    def has_moved(_: zephane.ViewStatus) -> bool:
        moved[:] = [adapted.update()]
        return abs(moved[0].effective_reynolds - adapted.start_reynolds) > 1.0

    adapted._view.wait(has_moved, SECONDS)
    return moved[0]


def test_a_running_view_is_adapted_and_begins_anew_from_its_number(view: zephane.View) -> None:
    adapted = AdaptedViscosity(view)
    start = view.status().config.reynolds
    assert adapted.start_reynolds == start
    assert adapted.update().effective_reynolds == start, "nothing moves before the start"
    view.start()
    until_moved(adapted)

    status = adapted.reset()
    assert (status.config.reynolds, status.config.seed) == (start, 7)
    until_moved(adapted)
    status = adapted.next_seed()
    assert (status.config.reynolds, status.config.seed) == (start, 8)
    until_moved(adapted)
    status = adapted.configure(operator="advective")
    assert (status.config.reynolds, status.config.operator) == (start, "advective")
    until_moved(adapted)
    view.pause()
    assert adapted.configure(reynolds=4321.0).config.reynolds == 4321.0
    adapted.update()
    assert adapted.start_reynolds == 4321.0


def test_a_reset_past_the_adaptation_gets_its_number_back(view: zephane.View) -> None:
    adapted = AdaptedViscosity(view)
    start = adapted.start_reynolds
    view.start()
    until_moved(adapted)
    view.pause()
    assert view.reset().effective_reynolds != start
    for _ in range(2):
        assert adapted.update().effective_reynolds == pytest.approx(start)
    assert adapted.start_reynolds == start


def test_a_paused_or_regulated_view_is_left_alone(view: zephane.View) -> None:
    adapted = AdaptedViscosity(view)
    view.start()
    until_moved(adapted)
    view.pause()
    still = view.wait(lambda status: status.settled, SECONDS).effective_reynolds
    for _ in range(5):
        assert adapted.update().effective_reynolds == still
    assert view.set(regulated=True).regulated
    assert adapted.update().regulated
