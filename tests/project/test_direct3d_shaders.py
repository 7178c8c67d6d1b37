"""The shaders' Direct3D bytecode belongs to the present shaders."""

from __future__ import annotations

import hashlib
import re
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
SHADERS = ROOT / "render" / "shaders"
BYTECODE = ROOT / "render" / "d3d11" / "bytecode"


def sources_of(name: str) -> set[str]:
    """A shader and what it includes, all the way down."""
    text = (SHADERS / name).read_text(encoding="utf-8")
    included = re.findall(r'^#include "([^"]+)"', text, re.MULTILINE)
    return {name}.union(*(sources_of(one) for one in included))


def test_the_bytecode_is_made_of_the_present_sources() -> None:
    """After a change of a shader: scripts/compile_direct3d_shaders."""
    shaders = [f"{path.stem}.hlsl" for path in BYTECODE.glob("*.cso")]
    assert len(shaders) == 4
    present = {
        name: hashlib.sha256((SHADERS / name).read_bytes()).hexdigest()
        for shader in shaders
        for name in sources_of(shader)
    }
    lines = (BYTECODE / "sources.sha256").read_text(encoding="utf-8").splitlines()
    assert {name: digest for digest, name in map(str.split, lines)} == present
