"""The files of `cmake --install`, and how CMake and pkg-config find them."""

from __future__ import annotations

import os
import subprocess
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
VERSION = (ROOT / "VERSION").read_text().strip()

FUNCTIONS = {
    "zp_engine_call",
    "zp_engine_create",
    "zp_engine_destroy",
    "zp_initialize",
    "zp_string_free",
    "zp_ui_attach",
    "zp_ui_call",
    "zp_ui_create",
    "zp_ui_destroy",
}


def output(*command: str | Path, **options) -> str:
    words = [str(word) for word in command]
    return subprocess.run(words, check=True, capture_output=True, text=True, **options).stdout


def test_the_library_its_header_its_packages_and_its_license_are_installed(installed: Path) -> None:
    files = {str(path.relative_to(installed)) for path in installed.rglob("*") if path.is_file()}
    assert files == {
        "include/zephane.h",
        "lib/cmake/zephane/zephaneConfig-release.cmake",
        "lib/cmake/zephane/zephaneConfig.cmake",
        "lib/cmake/zephane/zephaneConfigVersion.cmake",
        "lib/libzephane.so",
        "lib/libzephane.so.1",
        "lib/pkgconfig/zephane.pc",
        "share/doc/zephane/LICENSE",
    }
    assert os.readlink(installed / "lib" / "libzephane.so") == "libzephane.so.1"


def test_the_installed_library_has_its_soname_and_exports_nine_functions(installed: Path) -> None:
    library = installed / "lib" / "libzephane.so"
    assert "soname: [libzephane.so.1]" in output("readelf", "-d", library)
    listing = output("nm", "-D", "--defined-only", "--format=posix", library)
    assert {line.split()[0] for line in listing.splitlines()} == FUNCTIONS


def test_pkg_config_finds_a_moved_installation(
    installed: Path, tmp_path: Path
) -> None:
    search = {**os.environ, "PKG_CONFIG_PATH": str(installed / "lib" / "pkgconfig")}
    assert output("pkg-config", "--modversion", "zephane", env=search).strip() == VERSION
    flags = output("pkg-config", "--cflags", "--libs", "zephane", env=search).split()
    folders = [Path(flag[2:]).resolve() for flag in flags if flag[:2] in ("-I", "-L")]
    assert folders == [installed / "include", installed / "lib"]
    program = tmp_path / "start_field"
    output("c++", "-std=c++17", ROOT / "examples" / "start_field.cpp", *flags, "-o", program)
    search = {**os.environ, "LD_LIBRARY_PATH": str(installed / "lib")}
    assert "exact" in output(program, cwd=tmp_path, env=search)


def configured(installed: Path, folder: Path, version: str) -> subprocess.CompletedProcess[str]:
    """Configures a C project that requires this version of the package."""
    (folder / "CMakeLists.txt").write_text(
        "cmake_minimum_required(VERSION 3.25)\n"
        "project(stranger LANGUAGES C)\n"
        f"find_package(zephane {version} REQUIRED)\n"
        "message(STATUS \"found ${zephane_VERSION} in ${zephane_DIR}\")\n"
        "if(NOT TARGET zephane::zephane)\n"
        "  message(FATAL_ERROR \"There is no target.\")\n"
        "endif()\n"
    )
    prefix = f"-DCMAKE_PREFIX_PATH={installed}"
    command = ["cmake", "-S", str(folder), "-B", str(folder / "build"), prefix]
    return subprocess.run(command, capture_output=True, text=True)


def test_cmake_finds_the_package_for_its_own_minor_version(installed: Path, tmp_path: Path) -> None:
    minor = VERSION.rpartition(".")[0]
    result = configured(installed, tmp_path, minor)
    assert result.returncode == 0, result.stderr
    assert f"found {VERSION} in {installed}/lib/cmake/zephane" in result.stdout


def test_cmake_refuses_the_package_for_another_minor_version(
    installed: Path, tmp_path: Path
) -> None:
    major, minor, _ = VERSION.split(".")
    result = configured(installed, tmp_path, f"{major}.{int(minor) + 1}")
    assert result.returncode != 0
    assert f"version: {VERSION}" in result.stderr
