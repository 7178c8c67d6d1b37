"""The wheel: built from the source distribution by pip, installed in a fresh environment, and run.

It holds the library under test. With ZEPHANE_WHEEL_BUILDS=1 it builds a new one, as
`pip install .` does, which takes minutes.
"""

from __future__ import annotations

import email
import json
import os
import subprocess
import sys
import tarfile
import zipfile
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parents[2]
VERSION = (ROOT / "VERSION").read_text().strip()
BUILDS = os.environ.get("ZEPHANE_WHEEL_BUILDS") == "1"
LIMIT_SECONDS = 1800

# In a single process of pytest-xdist, because each process would build the wheel again.
pytestmark = pytest.mark.xdist_group("wheel")

# The messages of pip when it cannot download the build tools.
UNREACHABLE = (
    "Could not find a version that satisfies",
    "Failed to establish a new connection",
    "Connection refused",
    "Network is unreachable",
    "Read timed out",
)


def environment(**changes: str) -> dict[str, str]:
    """Without the checkout's package and without a display."""
    unwanted = {"PYTHONPATH", "DISPLAY", "LD_LIBRARY_PATH"}
    kept = {key: value for key, value in os.environ.items() if key not in unwanted}
    return {**kept, **changes}


def run(*command: str | Path, folder: Path) -> subprocess.CompletedProcess[str]:
    words = [str(word) for word in command]
    return subprocess.run(
        words,
        cwd=folder,
        env=environment(),
        stdin=subprocess.DEVNULL,
        capture_output=True,
        text=True,
        timeout=LIMIT_SECONDS,
    )


def with_the_registry(*command: str | Path, folder: Path) -> str:
    """The output of a command that needs the registry of Python packages."""
    done = run(*command, folder=folder)
    said = done.stdout + done.stderr
    if done.returncode != 0 and any(words in said for words in UNREACHABLE):
        pytest.skip(f"the registry of Python packages cannot be reached: {said.splitlines()[-1]}")
    assert done.returncode == 0, said
    return done.stdout


def make_environment(folder: Path, *options: str) -> Path:
    """The interpreter of a new environment."""
    done = run(sys.executable, "-m", "venv", *options, folder, folder=folder.parent)
    assert done.returncode == 0, done.stdout + done.stderr
    return folder / "bin" / "python"


@pytest.fixture(scope="module")
def tools(tmp_path_factory: pytest.TempPathFactory) -> Path:
    """The interpreter of an environment with the build backend."""
    python = make_environment(tmp_path_factory.mktemp("tools") / "environment")
    install = ("-m", "pip", "install", "scikit-build-core>=0.11")
    with_the_registry(python, *install, folder=python.parent)
    return python


@pytest.fixture(scope="module")
def sources(tools: Path, tmp_path_factory: pytest.TempPathFactory) -> Path:
    """The source distribution."""
    folder = tmp_path_factory.mktemp("sources")
    script = "from scikit_build_core.build import build_sdist; import sys; build_sdist(sys.argv[1])"
    done = run(tools, "-c", script, folder, folder=ROOT)
    assert done.returncode == 0, done.stdout + done.stderr
    (archive,) = folder.iterdir()
    return archive


@pytest.fixture(scope="module")
def wheel(sources: Path, library_path: Path, tools: Path, tmp_path_factory) -> Path:
    folder = tmp_path_factory.mktemp("wheel")
    prebuilt = f"--config-settings=cmake.define.ZEPHANE_PREBUILT={library_path}"
    options = ["--no-deps", "--wheel-dir", folder, *([] if BUILDS else [prebuilt])]
    with_the_registry(tools, "-m", "pip", "wheel", *options, sources, folder=folder)
    (file,) = folder.glob("*.whl")
    return file


@pytest.fixture(scope="module")
def python(wheel: Path, tools: Path, tmp_path_factory: pytest.TempPathFactory) -> Path:
    """The interpreter of an environment with only the wheel."""
    made = make_environment(tmp_path_factory.mktemp("user") / "environment", "--without-pip")
    pip = [tools, "-m", "pip", "--python", made]
    done = run(*pip, "install", "--no-index", wheel, folder=made.parent)
    assert done.returncode == 0, done.stdout + done.stderr
    return made


def test_the_source_distribution_holds_what_a_build_needs(sources: Path) -> None:
    assert sources.name == f"zephane-{VERSION}.tar.gz"
    with tarfile.open(sources) as archive:
        files = {name.partition("/")[2] for name in archive.getnames()}
    assert {"CMakeLists.txt", "VERSION", "LICENSE", "boundary/zephane.h"} <= files
    assert "kernels/cuda/kernels.cu" in files and "python/zephane/py.typed" in files
    assert not [name for name in files if name.startswith(("build/", ".git/", "output/"))]


def test_the_wheel_holds_the_package_and_the_library_for_any_python_3(wheel: Path) -> None:
    tags = wheel.name.removesuffix(".whl").split("-")
    assert tags[:4] == ["zephane", VERSION, "py3", "none"] and tags[4].startswith("linux_")
    with zipfile.ZipFile(wheel) as archive:
        names = set(archive.namelist())
        metadata = email.message_from_bytes(
            archive.read(f"zephane-{VERSION}.dist-info/METADATA")
        )
    package = {str(path.relative_to(ROOT / "python")) for kind in ("py", "js", "css")
               for path in (ROOT / "python").rglob(f"*.{kind}")}  # fmt: skip
    extra = {"zephane/py.typed", "zephane/libzephane.so", "zephane/VERSION"}
    assert {name for name in names if not name.startswith("zephane-")} == package | extra
    assert f"zephane-{VERSION}.dist-info/licenses/LICENSE" in names
    assert metadata["Version"] == VERSION
    assert metadata["License-Expression"] == "MIT"
    assert metadata["Requires-Python"] == ">=3.9"


def test_the_console_command_describes_the_machine(python: Path, tmp_path: Path) -> None:
    command = python.parent / "zephane"
    assert run(command, "--version", folder=tmp_path).stdout == f"zephane {VERSION}\n"
    done = run(command, "info", "--json", folder=tmp_path)
    assert done.returncode == 0, done.stderr
    assert json.loads(done.stdout)["abi_version"] == 1
    assert run(command, "--help", folder=tmp_path).stdout.startswith("usage: zephane ")


def test_the_module_describes_the_machine(python: Path, tmp_path: Path) -> None:
    done = run(python, "-m", "zephane", "info", folder=tmp_path)
    assert done.returncode == 0, done.stderr
    assert "default flow" in done.stdout
    usage = run(python, "-m", "zephane", "--help", folder=tmp_path).stdout
    assert usage.startswith("usage: python3 -m zephane ")


def test_a_flow_runs_with_the_library_of_the_wheel(python: Path, tmp_path: Path) -> None:
    command = [python.parent / "zephane", "run", "--resolution", "64", "--steps", "20", "--json"]
    done = run(*command, "--spectrum", "spectrum.raw", folder=tmp_path)
    assert done.returncode == 0, done.stderr
    assert json.loads(done.stdout)["steps"] == 20
    assert (tmp_path / "spectrum.raw").stat().st_size == 8 * 64 * 64


def test_the_package_needs_neither_numpy_nor_tkinter_nor_a_library_to_be_imported(
    python: Path, tmp_path: Path
) -> None:
    script = """
import sys
sys.modules["numpy"] = sys.modules["tkinter"] = sys.modules["_tkinter"] = None
import zephane
assert zephane.__file__.startswith(sys.prefix), zephane.__file__
assert not zephane._library._loaded, "the library is loaded at first use"
with zephane.Engine(resolution=32, reynolds=100.0) as engine:
    vorticity, u, v = engine.fields()
    print(zephane._library.load().path, type(vorticity).__name__, len(vorticity))
"""
    done = run(python, "-c", script, folder=tmp_path)
    assert done.returncode == 0, done.stderr
    library, kind, count = done.stdout.split()
    assert library.endswith("site-packages/zephane/libzephane.so")
    assert Path(library).is_relative_to(python.parent.parent)
    assert (kind, count) == ("array", "1024")
