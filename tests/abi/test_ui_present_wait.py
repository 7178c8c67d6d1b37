"""Where the graphics driver says when a presentation is on the screen, the view waits for it, so that
only one more is under way. A layer adds this to drivers that cannot do it."""

from __future__ import annotations

import pytest

from .fresh_process import in_fresh_process
from .harness import Library

LAYER = "VK_LAYER_ZEPHANE_present_wait"


def presentations_of_three_sizes(library: Library, display: str):
    from xwindow import Host

    library.initialize()
    window = Host(display).window()
    with View(library) as view:
        view.call("configure", resolution=64)
        view.show(window.id, 20)
        for size in [(200, 260), (97, 97)]:
            window.resize(*size)
            before = view.get()["presentations"]
            view.wait(lambda now, before=before: now["presentations"] > before + 20)
        return view.get()["error_message"]


@pytest.fixture
def calls(library_path, display, tmp_path):
    """The presents and waits of a view whose driver can wait for presentations."""
    folder = library_path.parent / "tests" / "present_wait"
    if not (folder / "libzephane_present_wait.so").exists():
        pytest.skip("this build has no layer that adds the extension")

    def run(**environment: str) -> list[list[str]]:
        log = tmp_path / "log"
        environment.setdefault("VK_INSTANCE_LAYERS", LAYER)
        failure = in_fresh_process(
            library_path,
            presentations_of_three_sizes,
            display,
            environment={"VK_ADD_LAYER_PATH": str(folder), "PRESENT_LOG": str(log), **environment},
        )
        assert failure is None
        return [line.split() for line in log.read_text().splitlines()]

    return run


def by_chain(calls: list[list[str]]) -> list[list[tuple[str, int]]]:
    """The calls of each chain of images, as the name of the call and the number of the image."""
    chains: dict[str, list[tuple[str, int]]] = {}
    for name, chain, number, *_ in calls:
        known = chains.setdefault(chain, [])
        if name == "present" and int(number) == 1:
            known.clear()  # a new chain of the same address
        known.append((name, int(number)))
    return list(chains.values())


def test_each_presentation_waits_for_the_one_before_it(calls):
    chains = by_chain(calls())
    assert chains
    for made in chains:
        presented = sum(name == "present" for name, _ in made)
        expected = [("present", 1)]
        for number in range(2, presented + 1):
            expected += [("present", number), ("wait", number - 1)]
        assert made in (expected, expected[:-1])  # the view may close between the two


def test_a_window_that_is_never_shown_holds_the_render_thread_up_for_a_frame_at_most(calls):
    waits = [int(call[3]) for call in calls(PRESENTS_ARE_NEVER_SHOWN="1") if call[0] == "wait"]
    assert len(waits) > 20 and max(waits) <= 16_000_000


def test_the_validation_layer_reports_nothing_about_the_waits(calls, tmp_path):
    settings, said = tmp_path / "settings.txt", tmp_path / "said"
    settings.write_text(
        "khronos_validation.debug_action = VK_DBG_LAYER_ACTION_LOG_MSG\n"
        "khronos_validation.report_flags = error,warn,info\n"
        f"khronos_validation.log_filename = {said}\n"
    )
    made = calls(
        VK_INSTANCE_LAYERS=f"VK_LAYER_KHRONOS_validation:{LAYER}",
        VK_LAYER_SETTINGS_PATH=str(settings),
    )
    assert any(call[0] == "wait" for call in made)
    reports = said.read_text()
    assert "Khronos Validation Layer Active" in reports
    assert "VUID-" not in reports and "Validation Error" not in reports, reports
