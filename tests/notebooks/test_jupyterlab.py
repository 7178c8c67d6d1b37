"""A notebook in JupyterLab, driven in a browser without a screen."""

from __future__ import annotations

import json
import os
import shutil
import socket
import subprocess
import time
import urllib.error
import urllib.request
from collections.abc import Iterator
from pathlib import Path
from typing import Any, Callable

import jupyter
import pytest
from PIL import Image

pytest.importorskip("selenium", reason="python3-selenium is missing")
from selenium import webdriver
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys
from selenium.webdriver.support.select import Select

if not (shutil.which("chromium") and shutil.which("chromedriver")):
    pytest.skip("chromium or chromium-driver is missing", allow_module_level=True)

LIMIT_SECONDS = 60.0
TOKEN = "test"

CELLS = (
    "import zephane\nview = zephane.View(resolution=64, seed=5)\n"
    "shown = zephane.widget(view, pixels=256)\nshown",
    "engine = zephane.Engine(resolution=64)\nengine.advance(20)\nengine",
    "engine.fields()",
    "zephane.record(engine, until=2, every=0.1, spectra_every=1, fields_every=1)",
    "",
    "view.close()",
)


def free_port() -> int:
    with socket.socket() as one:
        one.bind(("127.0.0.1", 0))
        return int(one.getsockname()[1])


def notebook() -> str:
    cells = [
        {"cell_type": "code", "id": f"c{n}", "metadata": {}, "outputs": [],
         "execution_count": None, "source": source}
        for n, source in enumerate(CELLS)
    ]  # fmt: skip
    kernel = {"name": "python3", "display_name": "Python 3", "language": "python"}
    return json.dumps(
        {"cells": cells, "metadata": {"kernelspec": kernel}, "nbformat": 4, "nbformat_minor": 5}
    )


class Page:
    """JupyterLab with the notebook, in a browser."""

    def __init__(self, driver: Any) -> None:
        self.driver = driver

    def js(self, expression: str) -> Any:
        return self.driver.execute_script(f"return {expression}")

    def until(self, expression: str) -> Any:
        end = time.monotonic() + LIMIT_SECONDS
        while not (value := self.js(expression)):
            assert time.monotonic() < end, expression
            time.sleep(0.05)
        return value

    def run(self, cell: int) -> None:
        """Run a cell and wait for its end."""
        lab = "jupyterapp.shell.currentWidget.content"
        self.js(f"{lab}.activeCellIndex = {cell}")
        self.js("jupyterapp.commands.execute('notebook:run-cell')")
        self.until(f"{lab}.widgets[{cell}].model.executionCount && "
                   f"{lab}.widgets[{cell}].model.executionState !== 'running'")  # fmt: skip

    def find(self, selector: str) -> Any:
        return self.driver.find_element(By.CSS_SELECTOR, f".zephane {selector}")

    def click(self, words: str) -> None:
        for button in self.driver.find_elements(By.CSS_SELECTOR, ".zephane button"):
            if button.text == words:
                button.click()
                return
        raise AssertionError(f"no button {words}")

    def until_text(self, words: str) -> str:
        return str(self.until(f"document.querySelector('.zephane')?.innerText.includes({words!r}) "
                              "&& document.querySelector('.zephane').innerText"))  # fmt: skip

    @property
    def picture(self) -> int:
        return int(self.js("document.querySelector('.zephane canvas')?.dataset.picture") or 0)

    def until_picture(self, number: int) -> None:
        self.until(f"(document.querySelector('.zephane canvas')?.dataset.picture ?? 0) >= {number}")

    def pixels(self) -> str:
        return str(self.js("document.querySelector('.zephane canvas').toDataURL()"))


@pytest.fixture(scope="module")
def lab(
    packages: Path, tmp_path_factory: pytest.TempPathFactory
) -> Iterator[tuple[str, Path]]:
    """The address of a JupyterLab server, and its folder with the notebook ``flow.ipynb``."""
    folder, own = tmp_path_factory.mktemp("notebooks"), tmp_path_factory.mktemp("jupyter")
    (folder / "flow.ipynb").write_text(notebook())
    settings = own / "jupyterlab_settings_dir" / "@jupyterlab" / "apputils-extension"
    settings.mkdir(parents=True)
    (settings / "notification.jupyterlab-settings").write_text('{"fetchNews": "false"}')
    port = free_port()
    command = [
        *(jupyter.program("jupyter-lab"), "--no-browser", "--allow-root", f"--port={port}"),
        *(f"--ServerApp.root_dir={folder}", f"--IdentityProvider.token={TOKEN}"),
        *("--ServerApp.port_retries=0", "--LabApp.expose_app_in_browser=True"),
    ]
    with open(own / "log", "w") as log:
        server = subprocess.Popen(
            command, env=jupyter.variables(own, packages), cwd=folder, stdout=log, stderr=log
        )
    try:
        address = f"http://127.0.0.1:{port}"
        end = time.monotonic() + LIMIT_SECONDS
        while True:
            try:
                urllib.request.urlopen(f"{address}/api?token={TOKEN}").close()
                break
            except urllib.error.URLError:
                assert server.poll() is None and time.monotonic() < end, (own / "log").read_text()
                time.sleep(0.1)
        yield address, folder
    finally:
        server.terminate()
        server.wait()


@pytest.fixture(scope="module")
def page(lab: tuple[str, Path]) -> Iterator[Page]:
    options = webdriver.ChromeOptions()
    options.binary_location = shutil.which("chromium")
    for argument in ("--headless=new", "--no-sandbox", "--disable-dev-shm-usage", "--disable-gpu",
                     "--window-size=1200,1000"):  # fmt: skip
        options.add_argument(argument)
    options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
    driver = webdriver.Chrome(service=Service(shutil.which("chromedriver")), options=options)
    try:
        driver.get(f"{lab[0]}/lab/tree/flow.ipynb?token={TOKEN}")
        made = Page(driver)
        made.until("window.jupyterapp?.shell?.currentWidget?.sessionContext?.session?.kernel"
                   "?.status === 'idle'")  # fmt: skip
        yield made
    finally:
        driver.quit()


@pytest.fixture
def pictured(page: Page, request: pytest.FixtureRequest) -> Iterator[Callable[[str], None]]:
    """Takes pictures of the page, into the folder that ZEPHANE_SCREENSHOTS names if it does."""
    folder = os.environ.get("ZEPHANE_SCREENSHOTS")
    yield lambda name: folder and page.driver.save_screenshot(os.path.join(folder, f"{name}.png"))


@pytest.mark.xdist_group("jupyter")
def test_a_flow_lives_in_a_notebook(page: Page, lab: tuple[str, Path], pictured: Any) -> None:
    page.run(0)
    page.until_picture(20)
    assert page.js("document.querySelector('.zephane canvas').width") == 64
    rate = page.until("document.querySelector('.zephane .rate').textContent")
    assert int(rate.split()[0]) > 2
    pictured("running")

    page.click("Pause")
    resting = page.until_text("paused")
    page.click("Step")
    step = int(resting.split("step ")[1].split()[0])
    page.until_text(f"step {step + 1} ")
    before = page.pixels()
    Select(page.find("select[aria-label=palette]")).select_by_visible_text("aurora")
    page.until(f"document.querySelector('.zephane canvas').toDataURL() !== {before!r}")
    Select(page.find("select[aria-label=display]")).select_by_visible_text("enstrophy")
    page.find("input[type=range]").send_keys(Keys.ARROW_RIGHT * 10)
    assert float(page.find(".number").text.replace(",", "")) > 1600
    page.click("Reset")
    page.until_text("step 0 ")
    page.click("New seed")
    page.until_text("seed 6")
    seed = page.find("input[aria-label=Seed]")
    seed.send_keys(Keys.CONTROL + "a")
    seed.send_keys("two" + Keys.ENTER)
    page.until_text('seed "two" is no whole number')
    seed.send_keys(Keys.CONTROL + "a")
    seed.send_keys("77" + Keys.ENTER)
    page.until_text("seed 77")
    page.click("Save")
    page.until_text("Saved zephane-seed-77-time-0.000.png")
    assert Image.open(lab[1] / "zephane-seed-77-time-0.000.png").size == (1800, 1800)
    pictured("saved")
    page.click("Play")
    page.until_text("running")


@pytest.mark.xdist_group("jupyter")
def test_a_hidden_flow_sends_no_pictures(page: Page) -> None:
    page.run(0)
    page.until_picture(page.picture + 5)
    page.js("document.querySelector('.zephane').style.setProperty('margin-top', '9000px')")
    time.sleep(0.5)  # At most eight are on their way.
    hidden = page.picture
    time.sleep(0.7)
    assert page.picture == hidden
    page.js("document.querySelector('.zephane').style.removeProperty('margin-top')")
    page.until_picture(hidden + 5)


@pytest.mark.xdist_group("jupyter")
def test_engines_fields_and_recordings_show_pictures(page: Page, pictured: Any) -> None:
    for cell in (1, 2, 3):
        page.run(cell)
    images = "[...document.querySelectorAll('.jp-OutputArea img')]"
    page.until(f"{images}.filter((one) => one.naturalWidth > 0).length === 4")
    words = page.js("document.querySelector('.jp-Notebook').innerText")
    assert "Flow of 64 x 64" in words and "Vorticity, u and v" in words
    assert "xarray.Dataset" in words and "palinstrophy" in words
    page.js("jupyterapp.shell.currentWidget.content.widgets[3].node.scrollIntoView()")
    pictured("shown")


@pytest.mark.xdist_group("jupyter")
def test_a_closed_view_disables_the_controls(page: Page) -> None:
    page.run(5)
    page.until_text("closed")
    assert page.js("[...document.querySelectorAll('.zephane button')].every((one) => one.disabled)")
    wrong = [entry["message"] for entry in page.driver.get_log("browser")
             if entry["level"] == "SEVERE" and "zephane" in entry["message"]]  # fmt: skip
    assert wrong == []
