"""The wheel for Windows, installed beside Windows' Python and run in Wine."""

from __future__ import annotations

import json
import subprocess
import zipfile
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parents[2]
VERSION = (ROOT / "VERSION").read_text().strip()


@pytest.fixture(scope="module")
def wheel(tmp_path_factory: pytest.TempPathFactory) -> Path:
    folder = tmp_path_factory.mktemp("wheel")
    script = ROOT / "scripts" / "windows_wheel"
    subprocess.run([script, folder], check=True, stdin=subprocess.DEVNULL)
    (file,) = folder.iterdir()
    return file


@pytest.fixture(scope="module")
def zephane(wheel: Path, windows_python, tmp_path_factory: pytest.TempPathFactory):
    """Runs the command line of the wheel in a folder."""
    installed = tmp_path_factory.mktemp("installed")
    with zipfile.ZipFile(wheel) as archive:
        archive.extractall(installed)

    def run(folder: Path, *arguments: str) -> subprocess.CompletedProcess[str]:
        variables = {"PYTHONPATH": f"Z:{installed}"}
        return windows_python.run(
            "-m", "zephane", *arguments, environment=variables, folder=folder
        )

    return run


def test_it_holds_the_package_and_the_library_for_windows(wheel: Path, dll: Path) -> None:
    assert wheel.name == f"zephane-{VERSION}-py3-none-win_amd64.whl"
    with zipfile.ZipFile(wheel) as archive:
        names = set(archive.namelist())
        assert archive.read("zephane/zephane.dll") == dll.read_bytes()
        tags = archive.read(f"zephane-{VERSION}.dist-info/WHEEL").decode()
    sources = ROOT / "python"
    package = {
        str(path.relative_to(sources))
        for path in sources.rglob("*.*")
        if path.is_file() and "__pycache__" not in path.parts
    }
    extra = {"zephane/zephane.dll", "zephane/VERSION"}
    assert {name for name in names if not name.startswith("zephane-")} == package | extra
    assert "Tag: py3-none-win_amd64" in tags.splitlines()


def test_its_command_describes_the_machine(zephane, tmp_path: Path) -> None:
    done = zephane(tmp_path, "info", "--json")
    assert done.returncode == 0, done.stderr
    assert json.loads(done.stdout)["os"] == "Windows"


def test_it_records_a_flow_and_goes_on_from_its_state(zephane, tmp_path: Path) -> None:
    flow = ["run", "--resolution", "64", "--steps", "40", "--json"]
    files = ["--record", "flow.nc", "--every", "0.1", "--save-state", "flow.state"]
    done = zephane(tmp_path, *flow, *files, "--png", "Wirbelstärke ω.png", "--pixels", "64")
    assert done.returncode == 0, done.stderr
    assert json.loads(done.stdout)["steps"] == 40
    assert (tmp_path / "flow.nc").stat().st_size > 1000
    assert (tmp_path / "Wirbelstärke ω.png").read_bytes().startswith(b"\x89PNG")
    done = zephane(tmp_path, "run", "--state", "flow.state", "--steps", "2", "--json")
    assert done.returncode == 0, done.stderr
    assert json.loads(done.stdout)["steps"] == 42


def test_the_progress_of_a_run_is_shown(zephane, tmp_path: Path) -> None:
    done = zephane(tmp_path, "run", "--resolution", "64", "--steps", "20", "--progress")
    assert done.returncode == 0, done.stderr
    assert "step" in done.stdout + done.stderr
