"""The viewer's page of a new flow, and the line that shows errors."""

from __future__ import annotations

import dataclasses

import pytest

pytest.importorskip("tkinter")
pytest.importorskip("Xlib")

from viewer_driver import Maker, click_on, edit, live_on, press, texts_of, wait
from xwindow import Host

from zephane import Config, View
from zephane.figures import AT_REST, GROWS, LOST
from zephane.viewer import Viewer
from zephane.viewer_style import NEWS
from zephane.viewer_widgets import Field


def test_every_member_of_the_configuration_has_a_field(viewer: Viewer) -> None:
    members = [field.name for field in dataclasses.fields(Config)]
    assert list(viewer.panel.configuration.fields) == members


def test_apply_sends_the_whole_configuration(open_viewer: Maker) -> None:
    viewer = open_viewer(regulated=False)
    configuration = viewer.panel.configuration
    assert configuration.apply_button.instate(("disabled",))
    wanted = Config(64, 3, 2**64 - 1, 777.5, 1.25, 0.002, "ifHeunRK3", "advective", "KM3")
    texts = {key: str(value) for key, value in dataclasses.asdict(wanted).items()}
    edit(viewer, **texts)
    assert configuration.apply_button.instate(("!disabled",))
    configuration.apply_button.invoke()
    config = viewer.status.config
    for key, value in dataclasses.asdict(wanted).items():
        expected = pytest.approx(value) if isinstance(value, float) else value
        assert getattr(config, key) == expected
    assert viewer.status.generation == 2
    assert configuration.apply_button.instate(("disabled",))
    assert not viewer.panel.error.shown


def test_each_field_is_sent_alone(open_viewer: Maker) -> None:
    viewer = open_viewer(regulated=False)
    changes = {
        "resolution": 48,
        "k0": 5,
        "seed": 9,
        "reynolds": 321.5,
        "cfl": 1.5,
        "fixed_dt": 0.25,
        "integrator": "imexRK3",
        "operator": "advective",
        "start_spectrum": "KM3",
    }
    assert set(changes) == set(viewer.panel.configuration.fields)
    for key, value in changes.items():
        before = dataclasses.asdict(viewer.status.config)
        edit(viewer, **{key: str(value)})
        viewer.panel.configuration.apply()
        after = dataclasses.asdict(viewer.status.config)
        assert after[key] == value != before[key]
        changed = {name for name in after if after[name] != before[name]}
        # Another grid has another default Reynolds number.
        assert changed - {"reynolds"} == {key} - {"reynolds"}


def test_an_integrator_gets_a_cfl_that_suits_it_unless_one_is_given(open_viewer: Maker) -> None:
    viewer = open_viewer(fixed_dt=None)
    configuration, notes = viewer.panel.configuration, viewer.panel.notes
    edit(viewer, integrator="imexRK3")
    configuration.apply()
    assert viewer.status.config.cfl == 1.5 and not notes.texts
    edit(viewer, integrator="ifHeunRK3", cfl="2.5")
    configuration.apply()
    assert viewer.status.config.cfl == 2.5
    (warning,) = notes.texts
    assert "cfl 2.5 is beyond what ifHeunRK3 bears" in warning


@pytest.mark.parametrize("text", ["", "adaptive"])
def test_a_fixed_time_step_can_be_removed(viewer: Viewer, text: str) -> None:
    assert viewer.status.config.fixed_dt is not None
    edit(viewer, fixed_dt=text)
    viewer.panel.configuration.apply()
    assert viewer.status.config.fixed_dt is None
    assert viewer.panel.configuration.fields["fixed_dt"].text.get() == "adaptive"


def test_an_invalid_number_is_reported_and_stays_in_its_field(viewer: Viewer) -> None:
    edit(viewer, resolution="12e3", k0="2")
    viewer.panel.configuration.apply()
    live_on(viewer)
    assert viewer.panel.error.text["text"] == "Resolution: '12e3' is not a whole number."
    assert viewer.panel.error.shown
    assert viewer.panel.configuration.fields["k0"].text.get() == "2"
    assert viewer.status.generation == 1
    viewer.panel.configuration.revert()
    assert viewer.panel.configuration.fields["resolution"].text.get() == "32"


def test_a_refusal_is_shown_until_it_is_dismissed(viewer: Viewer, host: Host) -> None:
    edit(viewer, resolution="33")
    viewer.panel.configuration.apply()
    live_on(viewer)
    assert viewer.panel.error.shown and viewer.status.generation == 1
    assert str(viewer.panel.error.text["text"]).startswith("resolution 33 is odd")
    click_on(viewer, host, viewer.panel.error.button)
    wait(viewer, lambda status: not viewer.panel.error.shown)


def test_a_failure_of_the_flow_is_shown_until_it_is_dismissed(open_viewer: Maker) -> None:
    viewer = open_viewer(fixed_dt=1e6, reynolds=1e6)
    viewer.do(View.run)
    status = wait(viewer, lambda status: status.error_message is not None)
    error, buttons = viewer.panel.error, viewer.panel.buttons.by_name
    assert str(error.text["text"]).startswith(str(status.error_message))
    assert "smaller CFL number" in str(error.text["text"])
    assert "Failed" in texts_of(viewer.panel.head)
    error.button.invoke()
    assert viewer.status.error_message is None and not error.shown
    # What is left leads to a new flow.
    assert "Failed" in texts_of(viewer.panel.head) and viewer.panel.notes.texts == [LOST]
    assert buttons["toggle"].instate(("disabled",)) and buttons["step"].instate(("disabled",))
    viewer.keys["space"]()
    assert not viewer.status.running


@pytest.mark.parametrize("button, seed", [("reset_button", 2), ("seed_button", 3)])
def test_buttons_beside_a_failure_start_the_lost_flow_again(
    open_viewer: Maker, button: str, seed: int
) -> None:
    viewer = open_viewer(fixed_dt=1e6, reynolds=1e6)
    error = viewer.panel.error
    viewer.show_message("A refusal.")
    assert error.shown and not error.ways_on.winfo_manager()
    viewer.do(View.run)
    wait(viewer, lambda status: status.error_message is not None)
    assert error.ways_on.winfo_manager()
    getattr(error, button).invoke()
    status = wait(viewer, lambda status: status.generation == 2)
    assert status.config.seed == seed


def test_a_flow_at_rest_is_paused_and_reported(open_viewer: Maker) -> None:
    viewer = open_viewer(resolution=64, reynolds=100.0, fixed_dt=None, paused=False)
    wait(viewer, lambda status: AT_REST in viewer.panel.notes.texts)
    status = wait(viewer, lambda status: not status.running)
    assert "At rest" in texts_of(viewer.panel.head)
    assert status.error_message is None and not viewer.panel.error.shown


def test_growth_of_a_flow_is_reported_in_red(open_viewer: Maker) -> None:
    viewer = open_viewer(
        resolution=128, integrator="imexRK3", cfl=3.0, fixed_dt=None, paused=False
    )
    wait(viewer, lambda status: GROWS in viewer.panel.notes.texts)
    (label,) = (one for one in viewer.panel.notes.labels if one["text"] == GROWS)
    assert str(label["foreground"]) == NEWS["bad"]


def field_with_a_seven(viewer: Viewer, host: Host, key: str) -> Field:
    """The field, into which a 7 has been typed."""
    viewer.panel.tabs.select(viewer.panel.configuration)
    field = viewer.panel.configuration.fields[key]
    field.widget.focus_force()
    live_on(viewer)
    press(viewer, host, "7")
    wait(viewer, lambda status: field.text.get() == "7")
    return field


def test_letters_typed_into_a_field_do_not_act_as_shortcuts(viewer: Viewer, host: Host) -> None:
    field = field_with_a_seven(viewer, host, "k0")
    for key in ("n", "a", "n", "space", "r"):
        press(viewer, host, key)
    wait(viewer, lambda status: field.text.get() == "7nan r")
    live_on(viewer)
    assert viewer.status.generation == 1 and not viewer.status.running
    press(viewer, host, "Return")
    wait(viewer, lambda status: viewer.panel.error.shown)
    assert viewer.panel.error.text["text"] == "k0: '7nan r' is not a whole number."
    # The keyboard is the picture's again.
    press(viewer, host, "n")
    wait(viewer, lambda status: status.config.seed == 3)


@pytest.mark.parametrize("text", ["nan", "inf", "-inf"])
def test_a_number_that_is_not_finite_is_refused(viewer: Viewer, text: str) -> None:
    edit(viewer, reynolds=text)
    viewer.panel.configuration.apply()
    assert viewer.panel.error.text["text"] == f"Reynolds: {text!r} is not a number."


def test_control_a_selects_all_of_a_field(viewer: Viewer, host: Host) -> None:
    field = field_with_a_seven(viewer, host, "seed")
    for key in ("8", "9"):
        press(viewer, host, key)
    wait(viewer, lambda status: field.text.get() == "789")
    field.widget.event_generate("<Control-a>")
    live_on(viewer)
    assert field.widget.selection_present()
    press(viewer, host, "5")
    wait(viewer, lambda status: field.text.get() == "5")
    assert viewer.status.generation == 1


def test_escape_in_a_field_reverts_the_edits(viewer: Viewer, host: Host) -> None:
    field = field_with_a_seven(viewer, host, "seed")
    press(viewer, host, "Escape")
    wait(viewer, lambda status: field.text.get() == "2")
    assert not viewer.view.closed
