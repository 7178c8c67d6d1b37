"""A file that cannot be completed leaves the one that was there, and nothing else."""

from __future__ import annotations

import os

import pytest

from .fresh_process import in_fresh_process
from .harness import Engine, Library

LIMIT = 40000


def exports_with_little_room(library: Library, kind: str, path: str, limit: int):
    import resource
    import signal

    with Engine(library, {"resolution": 128}) as engine:
        signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
        resource.setrlimit(resource.RLIMIT_FSIZE, (limit, limit))
        return {
            "replacing": engine.refusal({"op": "export", kind: path}),
            "new": engine.refusal({"op": "export", kind: path + ".new"}),
            "steps": engine.advance()["steps"],
        }


@pytest.mark.parametrize("kind", ["spectrum", "fields", "state", "png"])
def test_a_file_limit_leaves_the_earlier_file_and_no_debris(library_path, tmp_path, kind, request):
    if kind == "png":
        request.getfixturevalue("drawing")
    path = tmp_path / "file"
    path.write_bytes(b"a good file")
    answer = in_fresh_process(library_path, exports_with_little_room, kind, str(path), LIMIT)
    assert answer["replacing"] == answer["new"] != ""
    assert answer["steps"] == 1
    assert path.read_bytes() == b"a good file"
    assert os.listdir(tmp_path) == ["file"]


@pytest.mark.parametrize("kind", ["spectrum", "fields", "state"])
def test_a_pipe_without_a_reader_is_refused_at_once(library_path, tmp_path, kind):
    pipe = tmp_path / "pipe"
    os.mkfifo(pipe)
    words = in_fresh_process(
        library_path, export_to, {"op": "export", kind: str(pipe)}, limit_seconds=30
    )
    assert words == "Cannot write export file."


def export_to(library: Library, request: dict[str, str]) -> str:
    with Engine(library, {"resolution": 16}) as engine:
        return engine.refusal(request)
