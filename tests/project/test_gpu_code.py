"""The GPU code in the library, and the libraries and symbols that loading it needs."""

from __future__ import annotations

import os
import re
import shutil
import subprocess
from pathlib import Path

import pytest

from gpu_code import KERNELS, Entry, entries, is_inexact, kernels_of, operations

ROOT = Path(__file__).resolve().parents[2]
C_LIBRARY = {
    "ld-linux-x86-64.so.2",
    "libc.so.6",
    "libdl.so.2",
    "libm.so.6",
    "libpthread.so.0",
    "librt.so.1",
}
# Parts of every Windows 10.
SYSTEM_DLLS = {
    "comdlg32.dll",
    "gdi32.dll",
    "kernel32.dll",
    "msvcrt.dll",
    "ole32.dll",
    "user32.dll",
    "winmm.dll",
}


@pytest.fixture(scope="module")
def code(library_path: Path) -> list[Entry]:
    library = library_path.read_bytes()
    if b"libnvrtc.so" not in library:  # the name that the CUDA part loads
        pytest.skip("the library under test is built without CUDA")
    return entries(library)


def test_the_library_holds_machine_code_for_each_gpu_and_ptx(code: list[Entry]) -> None:
    assert sorted((entry.kind, entry.processor) for entry in code) == [
        ("PTX", 75),
        ("machine code", 75),
        ("machine code", 80),
        ("machine code", 86),
        ("machine code", 89),
        ("machine code", 90),
        ("machine code", 120),
    ]


def test_every_entry_has_all_ten_kernels(code: list[Entry]) -> None:
    assert [kernels_of(entry) for entry in code] == [KERNELS] * len(code)


def inexact(ptx: str) -> set[str]:
    return {operation for operation in operations(ptx) if is_inexact(operation)}


def test_no_kernel_operation_is_fused_or_approximate(code: list[Entry]) -> None:
    for entry in code:
        if entry.kind == "PTX":
            ptx = entry.code.decode()
            assert {"add.rn.f32", "mul.rn.f32", "div.rn.f32"} <= set(operations(ptx))
            assert inexact(ptx) == set()


def compiled(folder: Path, *options: str) -> str:
    """The kernels as PTX, with options other than the library's."""
    usual = "/usr/local/cuda/bin/nvcc"
    nvcc = shutil.which("nvcc") or (usual if os.access(usual, os.X_OK) else None)
    if nvcc is None:
        pytest.skip("there is no nvcc")
    ptx = folder / "kernels.ptx"
    command = [nvcc, "-std=c++20", "--expt-relaxed-constexpr", f"-I{ROOT}", "-arch=compute_75"]
    command += [*options, "-ptx", str(ROOT / "kernels" / "cuda" / "kernels.cu"), "-o", str(ptx)]
    subprocess.run(command, check=True, capture_output=True)
    return ptx.read_text()


def test_a_contracted_operation_is_found(tmp_path: Path) -> None:
    assert {"fma.rn.f32", "fma.rn.f64"} <= inexact(compiled(tmp_path, "--fmad=true"))


def test_an_approximate_division_is_found(tmp_path: Path) -> None:
    found = inexact(compiled(tmp_path, "--fmad=false", "--prec-div=false", "--ftz=true"))
    assert any(re.fullmatch(r"div\.(full|approx)\.ftz\.f32", operation) for operation in found)
    assert "add.rn.ftz.f32" in found


@pytest.mark.parametrize(
    "line",
    [
        "\tfma.rn.f32 \t%f1, %f2, %f3, %f4;",
        "@%p1 mad.rn.f32 %f1, %f2, %f3, %f4;",
        "  add.f32 %f1, %f2, %f3;",
        "  mul.f64 %fd1, %fd2, %fd3;",
        "  sub.rz.f32 %f1, %f2, %f3;",
        "  div.approx.f32 %f1, %f2, %f3;",
        "  sqrt.approx.f32 %f1, %f2;",
        "  rcp.approx.f32 %f1, %f2;",
        "  ex2.approx.f32 %f1, %f2;",
        "  @!%p2 mul.rn.ftz.f32 %f1, %f2, %f3;",
        "  fma.rn.f32x2 %rd1, %rd2, %rd3, %rd4;",
    ],
)
def test_each_kind_of_inexact_operation_is_found(line: str) -> None:
    assert len(inexact(line)) == 1


@pytest.mark.parametrize(
    "line",
    [
        "  add.rn.f32 %f1, %f2, %f3;",
        "  sqrt.rn.f32 %f1, %f2;",
        "  mad.lo.s32 %r1, %r2, %r3, %r4;",
        "  cvt.rn.f32.f64 %f1, %fd1;",
        "  ld.global.nc.v2.f32 {%f1, %f2}, [%rd1];",
        "  setp.gt.f32 %p1, %f1, %f2;",
        "// add.f32 in words;",
    ],
)
def test_exact_operations_are_not_reported(line: str) -> None:
    assert inexact(line) == set()


def listing(*command: str | Path) -> str:
    assert shutil.which(str(command[0])), f"{command[0]} is part of the compiler's tools"
    return subprocess.run(
        list(map(str, command)), check=True, capture_output=True, text=True
    ).stdout


def imports_of(library: Path) -> tuple[set[str], set[str]]:
    """The libraries and the functions that a library imports."""
    if library.suffix == ".dll":
        headers = listing("x86_64-w64-mingw32-objdump", "--private-headers", library)
        libraries = re.findall(r"DLL Name: (.*)", headers)
        functions = re.findall(r"^\t[0-9a-f]+\t +\d+ +(\w+)$", headers, re.MULTILINE)
        return {name.lower() for name in libraries}, set(functions)
    dynamic = listing("readelf", "--dynamic", "--wide", library)
    undefined = listing("nm", "--dynamic", "--undefined-only", "--format=posix", library)
    functions = [line.split()[0] for line in undefined.splitlines()]
    return set(re.findall(r"\(NEEDED\).*\[(.*)\]", dynamic)), set(functions)


def test_the_library_needs_only_the_system(library_path: Path) -> None:
    needed, _ = imports_of(library_path)
    assert needed & {"libc.so.6", "kernel32.dll"}
    assert needed <= (SYSTEM_DLLS if library_path.suffix == ".dll" else C_LIBRARY)


def test_the_library_imports_no_cuda_function(library_path: Path) -> None:
    _, functions = imports_of(library_path)
    assert any(name.startswith(("malloc", "malloc@")) for name in functions)
    assert {name for name in functions if re.match(r"cu[A-Z]|cuda|nvrtc", name)} == set()
