# SPDX-License-Identifier: Apache-2.0
"""A simulated host for each test. libveksim.so is loaded already, before everything else: see CMakeLists.txt."""
from __future__ import annotations

import ctypes
import os
import shutil
import subprocess
import sys
import tempfile
from pathlib import Path
from typing import Iterator, NamedTuple, Optional

import pytest

import vekgpu_ml

ROOT = Path(__file__).resolve().parent.parent.parent
VEKSIM = os.environ["VEKSIM"]


class Run(NamedTuple):
    status: int
    out: str
    err: str


class Host:
    """The tree that the process sees as /sys and the like, with two GPUs whose readings are at rest."""

    def __init__(self, tree: Path) -> None:
        self.tree = tree
        build = {name: value for name, value in os.environ.items() if name != "LD_PRELOAD"}
        subprocess.run([VEKSIM, "--still", "--tree", str(tree), "--", "true"], check=True, env=build)
        (tree / "host" / "pauses").touch()  # pauses take no time
        self.user(0)

    def card(self, node: str, card: int = 0) -> Path:
        return self.tree / "sys/class/drm" / f"card{card}" / node

    def hwmon(self, node: str, card: int = 0) -> Path:
        return next(self.card("device/hwmon", card).iterdir()) / node

    def node(self, name: str) -> Path:
        """Of the first GPU: "card/NAME" is in the card's directory, any other in its hwmon directory."""
        return self.card(name[len("card/") :]) if name.startswith("card/") else self.hwmon(name)

    def write(self, name: str, text: str) -> None:
        self.node(name).write_bytes(os.fsencode(text) + b"\n")

    def remove(self, name: str) -> None:
        node = self.node(name)
        shutil.rmtree(node) if node.is_dir() else node.unlink()

    def user(self, uid: int) -> None:
        (self.tree / "host/euid").write_text(f"{uid}\n")

    def python(self, program: str, **environment: Optional[str]) -> Run:
        """Runs a program in an interpreter of its own, on this host; None takes a variable away."""
        given = {**os.environ, "VEKSIM_TREE": str(self.tree), "PYTHONUNBUFFERED": None, **environment}
        command = [sys.executable, *(["-c", program] if "\n" in program or "import" in program else program.split())]
        result = subprocess.run(
            command, env={name: value for name, value in given.items() if value is not None}, capture_output=True
        )
        return Run(result.returncode, result.stdout.decode(), result.stderr.decode())


@pytest.fixture
def host() -> Iterator[Host]:
    interposer = ctypes.CDLL(None)
    memory = "/dev/shm" if os.access("/dev/shm", os.W_OK) else None  # trees in memory are quick
    with tempfile.TemporaryDirectory(dir=memory) as directory:
        simulated = Host(Path(directory) / "host")
        interposer.veksim_use(os.fsencode(simulated.tree))
        yield simulated
        interposer.veksim_use(None)


@pytest.fixture
def gpu(host: Host) -> Iterator[vekgpu_ml.Gpu]:
    """The first GPU of the host as it was when the test began."""
    with vekgpu_ml.session() as gpus:
        yield gpus[0]
