"""Sweeps on a dask.distributed cluster: a real scheduler and real workers, one of them killed."""

from __future__ import annotations

import os
import signal
import subprocess
import sys
import time
from collections.abc import Iterator
from pathlib import Path
from typing import Any

import pytest

import zephane
from zephane import sweep_cluster

pytest.importorskip("xarray", reason="python3-xarray is missing")
distributed = pytest.importorskip("distributed", reason="python3-distributed is missing")

# Separate processes, without a nanny that would restart a killed worker.
SCHEDULER = """
import asyncio, sys
from distributed import Scheduler

async def main():
    async with Scheduler(host="127.0.0.1", port=0, dashboard=False) as scheduler:
        print(scheduler.address, flush=True)
        await scheduler.finished()

asyncio.run(main())
"""
WORKER = """
import asyncio, sys
from distributed import Worker

async def main():
    async with Worker(sys.argv[1], nthreads=1, name=sys.argv[2], dashboard=False) as worker:
        await worker.finished()

asyncio.run(main())
"""


class Cluster:
    def __init__(self, python: Path, folder: Path) -> None:
        self._environment = {
            **os.environ,
            "PYTHONPATH": str(python),
            "DASK_TEMPORARY_DIRECTORY": str(folder),
        }
        self._folder = folder
        self._processes: list[subprocess.Popen[str]] = []
        self.address = ""
        assert (first := self._start(SCHEDULER)).stdout is not None
        self.address = first.stdout.readline().strip()
        self.workers = {name: self._start(WORKER, self.address, name) for name in ("a", "b")}

    def _start(self, script: str, *arguments: str) -> subprocess.Popen[str]:
        process = subprocess.Popen(
            [sys.executable, "-c", script, *arguments],
            env=self._environment,
            cwd=self._folder,
            stdout=subprocess.PIPE,
            stderr=subprocess.DEVNULL,
            text=True,
        )
        self._processes.append(process)
        return process

    def add(self, name: str) -> None:
        self.workers[name] = self._start(WORKER, self.address, name)

    def close(self) -> None:
        for process in reversed(self._processes):
            process.kill()
            process.wait()
            assert process.stdout is not None
            process.stdout.close()


@pytest.fixture(scope="module")
def cluster(python_path: Path, tmp_path_factory: pytest.TempPathFactory) -> Iterator[Cluster]:
    made = Cluster(python_path, tmp_path_factory.mktemp("cluster"))
    yield made
    made.close()


@pytest.fixture
def client(cluster: Cluster) -> Iterator[Any]:
    with distributed.Client(cluster.address, timeout=30) as made:
        made.wait_for_workers(2, timeout=30)
        yield made


SWEPT = {"resolution": 32, "seed": range(4), "until": 0.4, "every": 0.1, "spectra_every": 0.2}


def test_a_cluster_computes_what_this_machine_does(client, tmp_path: Path, library_path) -> None:
    here = zephane.sweep(**SWEPT, library=library_path)
    there = zephane.sweep(**SWEPT, library=library_path, client=client, path=tmp_path)
    assert there.identical(here.assign_attrs(there.attrs))
    assert len(os.listdir(tmp_path)) == 4
    assert client.status == "running"


def test_a_worker_that_is_killed_costs_its_last_checkpoint(
    cluster: Cluster, client: Any, tmp_path: Path, python_path: Path, library_path: Path
) -> None:
    settings: dict[str, Any] = {"resolution": 128, "reynolds": 800.0, "seed": [7, 8], "until": 6.0,
                                "every": 0.5, "fields_every": 3.0}  # fmt: skip
    command = subprocess.Popen(
        [sys.executable, "-m", "zephane", "sweep", str(tmp_path / "made"), "--scheduler",
         cluster.address, "--library", str(library_path), "--resolution", "128", "--reynolds",
         "800", "--seed", "7,8", "--until", "6", "--every", "0.5", "--fields-every", "3",
         "--checkpoint-seconds", "0.05"],
        env={**os.environ, "PYTHONPATH": str(python_path)},
        stdout=subprocess.PIPE,
        stderr=subprocess.PIPE,
        text=True,
    )  # fmt: skip
    deadline = time.monotonic() + 60.0
    while len(list(tmp_path.glob("made/*/checkpoint.json"))) < 2 and time.monotonic() < deadline:
        time.sleep(0.01)
    cluster.workers["b"].send_signal(signal.SIGKILL)
    cluster.add("c")
    output, errors = command.communicate(timeout=120)
    assert command.returncode == 0, errors
    assert "members   2 (2 seed)" in output
    there = zephane.sweep(**settings, path=tmp_path / "made", library=library_path).load()
    here = zephane.sweep(**settings, library=library_path)
    assert there.identical(here.assign_attrs(there.attrs))
    histories = subprocess.run(
        ["grep", "-lr", "went on from a checkpoint", str(tmp_path / "made")],
        capture_output=True, text=True,
    ).stdout  # fmt: skip
    assert histories.count("seed") == 1


def test_a_member_that_cannot_be_kept_is_told_by_its_worker(
    client, tmp_path: Path, library_path: Path
) -> None:
    zephane.sweep(**SWEPT, library=library_path, client=client, path=tmp_path)
    (name,) = [name for name in os.listdir(tmp_path) if "seed2" in name]
    (tmp_path / name).unlink()
    (tmp_path / name).with_suffix(".part").touch()
    with pytest.raises(zephane.ZephaneError, match="1 of 4 members .* seed 2: Cannot write"):
        zephane.sweep(**SWEPT, library=library_path, client=client, path=tmp_path)


def test_a_cluster_needs_a_folder(client) -> None:
    with pytest.raises(zephane.InvalidValueError, match="path is missing: on a cluster"):
        zephane.sweep(**SWEPT, client=client)


def test_a_scheduler_that_does_not_answer_is_named(tmp_path: Path, monkeypatch) -> None:
    monkeypatch.setattr(sweep_cluster, "CONNECTION_SECONDS", 1)
    with pytest.raises(zephane.ZephaneError, match="No scheduler answers at tcp://127.0.0.1:1"):
        zephane.sweep(**SWEPT, scheduler="tcp://127.0.0.1:1", path=tmp_path)


def test_a_cluster_without_its_package_says_how_to_get_it(tmp_path: Path, monkeypatch) -> None:
    monkeypatch.setitem(sys.modules, "distributed", None)
    with pytest.raises(zephane.ZephaneError, match=r"needs distributed.*'zephane\[sweep\]'"):
        zephane.sweep(**SWEPT, scheduler="tcp://127.0.0.1:1", path=tmp_path)
