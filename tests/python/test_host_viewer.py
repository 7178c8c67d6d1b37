"""The viewer: its window on an X server without a screen, operated by keys, mouse and controls."""

from __future__ import annotations

import inspect
import math
from pathlib import Path
from typing import Any

import pytest

tk = pytest.importorskip("tkinter")
pytest.importorskip("Xlib")

from png_reader import read_png
from viewer_driver import (
    Maker,
    click,
    click_on,
    close_by_events,
    live_on,
    press,
    wait,
    wait_for_steps,
    wait_until,
)
from Xlib import X
from xwindow import Host

from zephane import View, viewer_help
from zephane.figures import ADAPTED, FIXED, FOLLOWS
from zephane.viewer import Viewer
from zephane.viewer_widgets import Choice, Slider, Switch


def test_every_live_setting_has_a_control(viewer: Viewer) -> None:
    settings = set(inspect.signature(View.set).parameters) - {"self", "focused"}
    mode = {"reynolds_mode"}  # Sets "regulated", among other things.
    assert set(viewer.panel.live.controls) == settings - {"regulated"} | mode


def test_the_picture_is_drawn_in_the_window(viewer: Viewer) -> None:
    status = wait(viewer, lambda status: status.presentations > 3)
    assert status.canvas is not None and status.canvas.visible
    assert status.canvas.width_points == viewer.picture.winfo_width()


def test_space_pauses_and_runs(viewer: Viewer, host: Host) -> None:
    for running in (True, False):
        press(viewer, host, "space")
        wait(viewer, lambda status, running=running: status.running is running)


def test_s_takes_a_step(viewer: Viewer, host: Host) -> None:
    for count in (1, 2):
        press(viewer, host, "s")
        wait_for_steps(viewer, count)


def test_r_starts_the_flow_again(viewer: Viewer, host: Host) -> None:
    press(viewer, host, "r")
    status = wait(viewer, lambda status: status.generation == 2)
    assert status.config.seed == 2


def test_n_starts_the_next_seed(viewer: Viewer, host: Host) -> None:
    press(viewer, host, "n")
    status = wait(viewer, lambda status: status.generation == 2)
    assert status.config.seed == 3


@pytest.mark.parametrize(
    ("key", "setting", "values"),
    [
        ("d", "display", ["speed", "enstrophy", "vorticity"]),
        ("c", "palette", ["glacier", "inferno", "aurora", "ember"]),
        ("f", "flow", [True, False]),
    ],
)
def test_keys_cycle_the_picture(
    viewer: Viewer, host: Host, key: str, setting: str, values: list[Any]
) -> None:
    for value in values:
        press(viewer, host, key)
        wait(viewer, lambda status, value=value: getattr(status, setting) == value)


def test_b_hides_the_panel_and_enlarges_the_picture(viewer: Viewer, host: Host) -> None:
    picture, panel = viewer.picture, viewer.panel
    viewer.root.geometry("900x600")
    wait_until(viewer, lambda: panel.winfo_height() == 600)
    live_on(viewer)
    width = picture.winfo_width()
    assert width < 600
    press(viewer, host, "b")
    wait_until(viewer, lambda: not panel.winfo_ismapped() and picture.winfo_width() == 600)
    press(viewer, host, "b")
    wait_until(viewer, lambda: panel.winfo_ismapped() and picture.winfo_width() == width)


def test_h_shows_the_keys(viewer: Viewer, host: Host) -> None:
    press(viewer, host, "h")
    wait(viewer, lambda status: viewer.help.shown)
    lines = viewer.help.text.get("1.0", "end").splitlines()
    names = {line.split("\t")[0] for line in lines}
    assert {key for key, _ in viewer_help.KEYS} < names
    for term in ("palinstrophy", "sigma", "exposure", "batch", "turnover", "k_max eta"):
        assert term in names
    press(viewer, host, "h")
    wait(viewer, lambda status: not viewer.help.shown)


def test_the_help_lists_every_key(viewer: Viewer) -> None:
    listed = {{"Esc": "escape"}.get(key, key.lower()) for key, _ in viewer_help.KEYS}
    assert listed == set(viewer.keys) - {"question"}


def test_escape_closes_the_help_and_then_the_viewer(viewer: Viewer, host: Host) -> None:
    viewer.help.toggle()
    press(viewer, host, "Escape")
    wait(viewer, lambda status: not viewer.help.shown)
    assert not viewer.view.closed
    press(viewer, host, "Escape")
    close_by_events(viewer)


def test_the_window_managers_button_closes_the_view(viewer: Viewer) -> None:
    viewer.root.tk.call(viewer.root.protocol("WM_DELETE_WINDOW"))
    assert viewer.view.closed
    with pytest.raises(tk.TclError):
        viewer.root.winfo_width()
    viewer.close()


def test_keys_still_work_after_a_click_on_the_picture(
    viewer: Viewer, host: Host
) -> None:
    picture = viewer.picture
    left, bottom = picture.winfo_rootx(), picture.winfo_rooty() + picture.winfo_height()
    click(host, left + 71, bottom - 31)
    wait_for_steps(viewer, 1)
    press(viewer, host, "s")
    wait_for_steps(viewer, 2)


def test_the_buttons_do_what_their_labels_say(viewer: Viewer, host: Host) -> None:
    buttons = viewer.panel.buttons.by_name
    click_on(viewer, host, buttons["step"])
    wait_for_steps(viewer, 1)
    assert buttons["toggle"]["text"] == "Run"
    click_on(viewer, host, buttons["toggle"])
    wait(viewer, lambda status: status.running)
    assert buttons["toggle"]["text"] == "Pause"
    click_on(viewer, host, buttons["toggle"])
    wait(viewer, lambda status: not status.running)
    click_on(viewer, host, buttons["reset"])
    wait(viewer, lambda status: status.generation == 2)
    click_on(viewer, host, buttons["seed"])
    assert wait(viewer, lambda status: status.generation == 3).config.seed == 3


def test_space_still_pauses_after_a_button_was_clicked(viewer: Viewer, host: Host) -> None:
    click_on(viewer, host, viewer.panel.live.controls["flow"])
    wait(viewer, lambda status: status.flow)
    press(viewer, host, "space")
    assert wait(viewer, lambda status: status.running).flow


@pytest.mark.parametrize("key", ["display", "palette", "color_range"])
def test_a_choice_is_sent_at_once(viewer: Viewer, host: Host, key: str) -> None:
    control = viewer.panel.live.controls[key]
    assert isinstance(control, Choice)
    for name, button in control.buttons.items():
        click_on(viewer, host, button)
        wait(viewer, lambda status, name=name: getattr(status, key) == name)


def test_a_switch_is_sent_at_once(viewer: Viewer, host: Host) -> None:
    control = viewer.panel.live.controls["flow"]
    assert isinstance(control, Switch)
    for _ in range(2):
        before = viewer.status.flow
        assert control.value is before
        click_on(viewer, host, control)
        wait(viewer, lambda status, before=before: status.flow is not before)


@pytest.mark.parametrize(
    ("key", "value"), [("sigma", 3.0), ("exposure", 0.5), ("cfl", 1.25), ("log_reynolds", 4.5)]
)
def test_a_slider_is_sent_while_it_moves(open_viewer: Maker, key: str, value: float) -> None:
    viewer = open_viewer(fixed_dt=None)
    viewer.do(lambda view: view.set(color_range="exposure" if key == "exposure" else "sigma"))
    control = viewer.panel.live.controls[key]
    assert isinstance(control, Slider) and control.enabled
    control.scale.set(value)
    status, generation = viewer.status, viewer.status.generation
    sent = {
        "sigma": status.sigma,
        "exposure": status.exposure,
        "cfl": status.config.cfl,
        "log_reynolds": math.log10(status.effective_reynolds),
    }
    assert sent[key] == pytest.approx(value) == control.value
    assert generation == 1


def test_sliders_follow_the_mouse_and_the_arrow_keys(viewer: Viewer, host: Host) -> None:
    slider = viewer.panel.live.controls["sigma"]
    assert isinstance(slider, Slider)
    click_on(viewer, host, slider.scale)
    wait(viewer, lambda status: abs(status.sigma - 2.5) < 0.05)
    scale = slider.scale
    x = scale.winfo_rootx() + scale.winfo_width() - 10
    click(host, x, scale.winfo_rooty() + scale.winfo_height() // 2)
    wait(viewer, lambda status: status.sigma > 3.3)
    scale.focus_force()
    before = viewer.status.sigma
    press(viewer, host, "Left")
    wait(viewer, lambda status: status.sigma == pytest.approx(before - 0.04))


def test_the_reynolds_slider_is_enabled_only_in_the_fixed_mode(viewer: Viewer, host: Host) -> None:
    slider, mode = (viewer.panel.live.controls[key] for key in ("log_reynolds", "reynolds_mode"))
    assert isinstance(slider, Slider) and isinstance(mode, Choice)
    assert slider.enabled
    assert slider.value == pytest.approx(math.log10(viewer.status.effective_reynolds))
    for name, regulated in ((FOLLOWS, True), (ADAPTED, False), (FIXED, False)):
        click_on(viewer, host, mode.buttons[name])
        wait_until(viewer, lambda name=name: mode.buttons[name].instate(("selected",)))
        wait_until(viewer, lambda name=name: slider.enabled == (name == FIXED))
        assert viewer.status.regulated is regulated
        warned = any("regulation" in text for text in viewer.panel.notes.texts)
        assert warned is (name == FOLLOWS)


def test_adapting_lowers_the_reynolds_number_and_a_reset_restores_it(
    open_viewer: Maker, host: Host
) -> None:
    viewer = open_viewer(resolution=128, k0=2, fixed_dt=None)
    start = viewer.status.config.reynolds
    press(viewer, host, "a")
    press(viewer, host, "space")
    wait(viewer, lambda status: status.effective_reynolds < start - 1.0)
    press(viewer, host, "r")
    status = wait(viewer, lambda status: status.generation == 2)
    assert status.config.reynolds == start or status.effective_reynolds < start


def test_controls_without_effect_are_disabled(open_viewer: Maker) -> None:
    viewer = open_viewer(fixed_dt=None)
    controls = viewer.panel.live.controls

    def effective(**settings: Any) -> set[str]:
        viewer.do(lambda view: view.set(**settings))
        return {key for key, control in controls.items() if control.enabled}

    every = set(controls)
    assert effective(display="vorticity", color_range="sigma") == every - {"exposure"}
    assert effective(color_range="exposure") == every - {"sigma"}
    assert effective(display="speed") == every - {"sigma", "color_range"}
    viewer.do(lambda view: view.configure(fixed_dt=1e-3))
    assert not controls["cfl"].enabled


def test_p_saves_a_picture_and_shows_its_path(
    viewer: Viewer, host: Host, tmp_path: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    path = tmp_path / "asked.png"
    answers = [str(path), "", str(tmp_path / "missing" / "asked.png")]
    monkeypatch.setattr("tkinter.filedialog.asksaveasfilename", lambda **given: answers.pop(0))
    press(viewer, host, "p")
    wait(viewer, lambda status: viewer.panel.notes.texts)
    assert viewer.panel.notes.texts == [f"Saved {path}"]
    assert read_png(path).shape == (1800, 1800, 4)
    viewer.save()
    assert viewer.panel.notes.texts == [f"Saved {path}"], "cancelled"
    viewer.panel.buttons.by_name["save"].invoke()
    assert not answers and not viewer.panel.notes.texts
    message = str(viewer.panel.error.text["text"])
    assert message.startswith(f"Could not write {tmp_path / 'missing'}")


def test_the_window_stays_alive_behind_the_one_save_dialog(viewer: Viewer, tmp_path: Path) -> None:
    """Tk's own dialog is opened, and filled in by a timer while the window shows new statuses."""
    seen: list[str] = []

    def answer() -> None:
        viewer.save()  # Asks no second time.
        seen.extend(str(child) for child in viewer.root.tk.splitlist(
            viewer.root.tk.call("winfo", "children", ".")) if "filedialog" in str(child))
        viewer.root.tk.call(f"{seen[0]}.contents.f2.cancel", "invoke")

    viewer.root.after(500, answer)
    viewer.save()
    assert len(seen) == 1 and not viewer.panel.error.shown and not viewer.panel.notes.texts


def test_the_focus_is_reported(viewer: Viewer, host: Host) -> None:
    wait(viewer, lambda status: status.focused)
    host.root.set_input_focus(X.RevertToPointerRoot, X.CurrentTime)
    host.display.sync()
    wait(viewer, lambda status: not status.focused)
