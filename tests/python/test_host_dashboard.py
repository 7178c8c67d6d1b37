"""The status of a running view as lines of text."""

from __future__ import annotations

import dataclasses
import math
import re
from typing import Any

import pytest

import zephane
from zephane import ViewStatus
from zephane.dashboard import ASCII_BLOCKS, Line, chart_rows, dashboard, paint, state, status_line
from zephane.figures import ADAPTED, AT_REST, FOLLOWS, GROWS, Standing
from zephane.figures import LOST as LOST_WORDS

STATS = zephane.Statistics(
    steps=1234,
    simulation_time=3.25,
    dt=0.0025,
    energy=0.4875,
    enstrophy=7.5,
    palinstrophy=512.0,
    palinstrophy_ratio=0.0019,
    reynolds=6500.0,
    initial_turnover_time=1.625,
    gpu_milliseconds=1.0,
    allocated_bytes=6 << 20,
    is_finite=True,
)
RUNNING = ViewStatus(
    config=zephane.Config(256, reynolds=6250.0),
    ready=True,
    running=True,
    settled=False,
    generation=1,
    gpu="Device",
    backend="Backend",
    error_message=None,
    regulated=False,
    effective_reynolds=6500.0,
    palinstrophy_control=19.0,
    display="vorticity",
    palette="ember",
    color_range="sigma",
    flow=False,
    exposure=1.2,
    sigma=2.5,
    focused=False,
    exporting=False,
    elapsed_seconds=75.0,
    presentations=0,
    allocated_bytes=6 << 20,
    history=tuple(0.5 - 0.001 * n for n in range(30)),
    performance=zephane.Performance(0.5, 0.25, 200.0, 5.0, 2),
    stats=STATS,
)
PREPARING = dataclasses.replace(
    RUNNING,
    ready=False,
    stats=None,
    history=(),
    allocated_bytes=0,
    performance=zephane.Performance(0.0, 0.0, 0.0, 0.0, 1),
)
PAUSED = dataclasses.replace(RUNNING, running=False, settled=True)
FAILED = dataclasses.replace(PAUSED, error_message="The flow became non-finite.")
LOST = dataclasses.replace(
    RUNNING,
    effective_reynolds=math.nan,
    palinstrophy_control=math.nan,
    history=(0.5, math.nan),
    stats=dataclasses.replace(STATS, energy=math.nan, enstrophy=math.nan, palinstrophy=math.nan),
)
ALL = (RUNNING, PREPARING, PAUSED, FAILED, LOST)


def plain(lines: list[Line]) -> list[str]:
    return [paint(line, colored=False) for line in lines]


def row(label: str, status: ViewStatus, width: int = 100, **options: Any) -> str:
    """The text beside a label."""
    found = [x for x in plain(dashboard(status, width, 40, **options)) if x.startswith(label)]
    assert len(found) == 1
    return found[0][len(label) :].strip()


def test_the_screen_shows_the_state_of_the_flow() -> None:
    lines = plain(dashboard(RUNNING, 100, 24))
    assert lines[0] == "Zephane  running  256 x 256, k0 4, seed 2, etdrk4, stress, PAO"
    turnovers = "3.2500   2.00 turnovers   step 1234   dt 0.0025   1:15 elapsed"
    assert row("time", RUNNING) == turnovers
    assert row("time", RUNNING, until=5.0) == turnovers.replace("3.2500", "3.2500 of 5")
    speed = "200 steps/s   5 ms a step   0.5 time/s   batch 2   0.25 turnovers/s"
    assert row("speed", RUNNING) == speed
    assert row("Reynolds", RUNNING) == "6500   fixed"
    assert row("eddies", RUNNING) == "k_max eta 2.14   resolved   palinstrophy ratio 0.0019"
    assert row("energy", RUNNING) == "0.4875   enstrophy 7.5   palinstrophy 512"
    assert row("memory", RUNNING) == "6.0 MiB on Device   Backend"


def test_the_screen_says_whether_the_grid_resolves_the_eddies() -> None:
    for reynolds, words in ((12_000, "1.75   resolved"), (20_000, "1.47   too coarse")):
        status = dataclasses.replace(RUNNING, effective_reynolds=float(reynolds))
        assert row("eddies", status).startswith(f"k_max eta {words}")


def test_the_target_of_each_reynolds_mode_is_shown() -> None:
    adapted = Standing(ADAPTED)
    assert row("Reynolds", RUNNING, standing=adapted) == "6500   adapted"
    assert row("eddies", RUNNING, standing=adapted).endswith("resolved   target 1.75")
    follows, regulated = Standing(FOLLOWS), dataclasses.replace(RUNNING, regulated=True)
    assert row("Reynolds", regulated, standing=follows) == "6500   follows the flow"
    ratio = "palinstrophy ratio 0.0019   target 0.002   -5.0 %"
    assert row("eddies", regulated, standing=follows).endswith(ratio)
    stats = dataclasses.replace(STATS, palinstrophy_ratio=0.002001)
    there = dataclasses.replace(regulated, stats=stats)
    assert row("eddies", there, standing=follows).endswith("on target")


def test_rest_growth_and_loss_are_reported_in_sentences() -> None:
    def text(status: ViewStatus, **standing: Any) -> str:
        lines = plain(dashboard(status, 80, 24, standing=Standing(**standing)))
        return " ".join(" ".join(lines).split())

    assert AT_REST in text(PAUSED, at_rest=True) and "Zephane at rest" in text(PAUSED, at_rest=True)
    assert "Zephane running" in text(RUNNING, at_rest=True)
    assert GROWS in text(RUNNING, grows=True)
    assert LOST_WORDS in text(PAUSED, failed=True) and "Zephane failed" in text(PAUSED, failed=True)
    assert LOST_WORDS not in text(FAILED, failed=True), "the failure itself is shown"
    lines = dashboard(RUNNING, 80, 24, standing=Standing(grows=True))
    spans = [span for line in lines for span in line]
    assert any(style == "bad" and "gains energy" in words for words, style in spans)
    assert status_line(PAUSED, None, Standing(at_rest=True)).startswith("at rest  ")


def test_a_courant_number_beyond_stability_is_reported() -> None:
    config = dataclasses.replace(RUNNING.config, integrator="imexRK3")
    status = dataclasses.replace(RUNNING, config=config)
    assert "cfl 3 is beyond what imexRK3 bears" in row("note", status, width=200)
    fixed = dataclasses.replace(status, config=dataclasses.replace(config, fixed_dt=0.001))
    assert "beyond" not in " ".join(plain(dashboard(fixed, 200, 40)))


@pytest.mark.parametrize(
    "status, until, word",
    [
        (PREPARING, None, "preparing the flow"),
        (RUNNING, None, "running"),
        (RUNNING, 3.25, "running"),
        (PAUSED, None, "paused"),
        (PAUSED, 3.25, "finished"),
        (PAUSED, 3.5, "paused"),
        (PAUSED, 0.0, "finished"),
        (dataclasses.replace(PAUSED, settled=False), 3.25, "pausing"),
    ],
)
def test_the_state_is_shown_in_a_word_or_two(
    status: ViewStatus, until: float | None, word: str
) -> None:
    assert state(status, until) == word
    assert f"  {word}" in plain(dashboard(status, 100, 24, until=until))[0]
    assert status_line(status, until).startswith(word)


def test_a_failure_is_reported() -> None:
    assert state(FAILED, 3.25, Standing(failed=True)) == "failed"
    assert row("failure", FAILED) == "The flow became non-finite."
    assert "The flow became non-finite." in status_line(FAILED)


def test_a_flow_in_preparation_has_no_figures_yet() -> None:
    assert row("time", PREPARING) == "" and row("energy", PREPARING) == ""
    assert row("speed", PREPARING) == "no rate yet"
    assert status_line(PREPARING) == "preparing the flow"


@pytest.mark.parametrize("status", ALL)
def test_the_screen_fits_any_terminal(status: ViewStatus) -> None:
    for fine in (True, False):
        for help_shown in (False, True):
            for width in (1, 2, 7, 12, 13, 24, 25, 47, 48, 79, 80, 131, 400):
                for height in (1, 2, 3, 5, 9, 10, 11, 24, 60):
                    options = {"help_shown": help_shown, "fine": fine}
                    lines = plain(dashboard(status, width, height, **options))
                    assert 1 <= len(lines) <= height
                    assert all(len(line) <= width for line in lines)
                    assert all("\n" not in line and "\x1b" not in line for line in lines)


def test_short_terminals_show_the_most_important_rows() -> None:
    def labels(height: int, status: ViewStatus = RUNNING) -> list[str]:
        return [line.split(" ")[0] for line in plain(dashboard(status, 100, height))]

    assert labels(1) == ["Zephane"]
    assert labels(2) == ["Zephane", "time"]
    assert labels(2, FAILED) == ["Zephane", "failure"]
    assert labels(3) == ["Zephane", "time", "space"]
    assert labels(4) == ["Zephane", "time", "speed", "space"]
    assert labels(8) == ["Zephane", "time", "speed", "Reynolds", "eddies", "energy", "", "space"]


def test_narrow_terminals_leave_out_whole_facts() -> None:
    assert row("time", RUNNING, 40) == "3.2500   2.00 turnovers"
    assert row("speed", RUNNING, 25) == "200 steps/s"
    assert row("speed", RUNNING, 20) == "200 step"
    assert plain(dashboard(RUNNING, 30, 24))[0] == "Zephane  running  256 x 256"
    assert plain(dashboard(RUNNING, 30, 24))[-1] == "space pause   h help   q quit"
    assert plain(dashboard(RUNNING, 24, 24))[-1] == "space pause   q quit"


def test_the_key_line_says_whether_space_runs_or_pauses() -> None:
    keys = "s step   r reset   n new seed   a adapt   h help   q quit"
    assert plain(dashboard(RUNNING, 80, 24))[-1] == f"space pause   {keys}"
    assert plain(dashboard(PAUSED, 80, 24))[-1] == f"space run   {keys}"


def test_help_replaces_the_figures() -> None:
    lines = plain(dashboard(RUNNING, 80, 24, help_shown=True))
    assert not any(line.startswith("energy") for line in lines)
    for key in ("space", "s", "r", "n", "a", "h", "q"):
        assert any(line.startswith(f"{key:<12}") for line in lines)


def test_without_colours_no_styles_are_written() -> None:
    head = dashboard(RUNNING, 80, 24)[0]
    assert paint(head, colored=True).startswith("\x1b[1mZephane\x1b[0m  \x1b[32mrunning\x1b[0m  ")
    assert re.sub(r"\x1b\[[0-9;]*m", "", paint(head, colored=True)) == paint(head, colored=False)


def test_a_chart_spans_its_extremes() -> None:
    assert chart_rows([0, 1, 2, 3, 4, 5, 6, 7], 8, 1) == ["▁▂▃▄▅▆▇█"]
    assert chart_rows([0, 15], 8, 2) == [" █", "▁█"]
    assert chart_rows([0, 3], 2, 1, ASCII_BLOCKS) == [".#"]


def test_a_chart_shows_the_newest_values() -> None:
    assert chart_rows([9, 0, 7], 2, 1) == ["▁█"]
    assert chart_rows([9, 0, 7], 0, 2) == ["", ""]


def test_a_chart_of_no_values_or_of_equal_ones_is_drawn() -> None:
    assert chart_rows([], 5, 2) == ["", ""]
    assert chart_rows([math.nan], 5, 1) == [""]
    assert chart_rows([3.0] * 4, 5, 1) == ["▅▅▅▅"]  # half of the height
    assert chart_rows([0, math.nan, 7], 5, 1) == ["▁ █"]


def test_the_chart_grows_with_the_terminal_and_has_a_scale() -> None:
    def charts(width: int, height: int) -> list[str]:
        return [line for line in plain(dashboard(RUNNING, width, height)) if "█" in line]

    assert [len(charts(80, height)) for height in (11, 14, 24, 50)] == [1, 4, 6, 6]
    assert charts(80, 24)[0].endswith(" 0.5") and charts(80, 24)[-1].endswith(" 0.471")
    assert all(set(line) <= set(" ▁▂▃▄▅▆▇█") for line in charts(40, 24))
    assert "#" in "".join(plain(dashboard(RUNNING, 80, 24, fine=False)))


def test_the_log_line_shows_the_same_figures() -> None:
    assert status_line(RUNNING) == (
        "running  time 3.2500  step 1234  200 steps/s  0.5 time/s  5 ms a step  Re 6500  "
        "k_max eta 2.14  energy 0.4875"
    )
    regulated = status_line(dataclasses.replace(RUNNING, regulated=True))
    assert regulated.endswith("  palinstrophy ratio 0.0019 of 0.002")
