"""What a view notices of its flow over time: that it has come to rest, gains energy, or is lost."""

from __future__ import annotations

import dataclasses
from collections.abc import Iterator
from pathlib import Path
from typing import Any, Callable

import pytest
from test_host_dashboard import RUNNING, STATS

import zephane
from zephane import ViewStatus
from zephane.course import Course
from zephane.errors import LOST_FLOW

SECONDS = 60.0


def report(**figures: Any) -> ViewStatus:
    return dataclasses.replace(RUNNING, stats=dataclasses.replace(STATS, **figures))


def course_of(*reports: ViewStatus) -> Course:
    course = Course(1)
    for status in reports:
        course.follow(status)
    return course


def test_a_flow_whose_step_is_longer_than_a_turnover_is_at_rest() -> None:
    start = report(energy=0.5, dt=0.01)
    assert not course_of(start, report(energy=0.1, dt=0.02)).at_rest
    assert course_of(start, report(energy=0.01, dt=1.7)).at_rest


def test_a_fixed_step_is_no_sign_of_rest() -> None:
    config = dataclasses.replace(RUNNING.config, fixed_dt=2.0)
    start = dataclasses.replace(report(energy=0.5, dt=2.0), config=config)
    later = dataclasses.replace(report(energy=0.4, dt=2.0), config=config)
    assert not course_of(start, later).at_rest
    end = dataclasses.replace(report(energy=0.4e-6, dt=2.0), config=config)
    assert course_of(start, later, end).at_rest


def test_a_step_that_grows_ever_faster_is_seen_before_it_is_too_long() -> None:
    start = report(energy=0.5, dt=0.1)
    assert not course_of(start, report(energy=0.04, dt=0.15)).at_rest
    assert course_of(start, report(energy=0.04, dt=0.15), report(energy=0.02, dt=0.6)).at_rest
    # A larger Courant number makes a longer step, and no rest.
    assert not course_of(start, report(energy=0.45, dt=0.3), report(energy=0.44, dt=0.9)).at_rest


def test_a_flow_lost_while_it_faded_has_come_to_rest() -> None:
    fading = report(energy=0.04, dt=0.2)
    lost = dataclasses.replace(fading, running=False, settled=True, error_message=LOST_FLOW)
    assert course_of(report(energy=0.5, dt=0.18), fading, lost).at_rest
    lively = report(energy=0.4, dt=0.002)
    lost = dataclasses.replace(lively, running=False, settled=True, error_message=LOST_FLOW)
    course = course_of(report(energy=0.5, dt=0.002), lively, lost)
    assert course.failed and not course.at_rest
    # Faster than the energy is computed: the last report has an old one beside the last step.
    late = dataclasses.replace(
        report(energy=0.5, dt=26.0), running=False, settled=True, error_message=LOST_FLOW
    )
    assert course_of(report(energy=0.5, dt=0.18), late).at_rest


def test_growth_of_energy_or_enstrophy_is_noticed_and_rounding_is_not() -> None:
    start = report(energy=0.5, enstrophy=8.0)
    assert not course_of(start, report(energy=0.500001, enstrophy=8.00001)).grows
    assert course_of(start, report(energy=0.5001, enstrophy=7.0)).grows
    assert course_of(start, report(energy=0.499, enstrophy=8.01)).grows
    # Against the least so far, and for good.
    falling = [start, report(energy=0.4, enstrophy=4.0), report(energy=0.41, enstrophy=3.0)]
    assert course_of(*falling, report(energy=0.39, enstrophy=2.0)).grows


def test_a_failure_of_the_drawing_is_not_one_of_the_flow() -> None:
    words = "No Vulkan device found."
    drawing = dataclasses.replace(RUNNING, error_message=words)
    assert not course_of(RUNNING, drawing).failed
    paused = dataclasses.replace(RUNNING, running=False, settled=True)
    assert not course_of(RUNNING, paused, dataclasses.replace(paused, error_message=words)).failed
    unmade = dataclasses.replace(paused, ready=False, stats=None, error_message="no memory")
    assert course_of(unmade).failed


@pytest.fixture
def make_view(library_path: Path, system: zephane.SystemInfo) -> Iterator[Callable[..., Any]]:
    made: list[zephane.View] = []

    def make(**changes: Any) -> zephane.View:
        made.append(zephane.View(library=library_path, **changes))
        return made[-1]

    yield make
    for view in made:
        view.close()


def test_a_view_notices_rest_before_the_solver_gives_up(make_view: Callable[..., Any]) -> None:
    view = make_view(resolution=64, reynolds=100.0)
    view.start()
    status = view.wait(lambda status: view.at_rest, SECONDS)
    assert status.error_message is None or status.error_message == LOST_FLOW
    assert view.reset().generation == 2 and not view.at_rest


def test_a_view_notices_an_unstable_flow(make_view: Callable[..., Any]) -> None:
    view = make_view(resolution=128, integrator="imexRK3", cfl=3.0)
    view.start()
    view.wait(lambda status: view.grows, SECONDS)
    assert not view.configure(cfl=1.5).generation == 1 and not view.grows


def test_a_view_remembers_a_failure_that_was_dismissed(make_view: Callable[..., Any]) -> None:
    view = make_view(resolution=32, fixed_dt=1e6, reynolds=1e6)
    view.start()
    view.wait(lambda status: view.failed, SECONDS)
    assert view.dismiss().error_message is None and view.failed
    view.pause()
    view.configure(fixed_dt=1e-3)
    assert not view.failed
