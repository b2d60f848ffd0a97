# SPDX-License-Identifier: Apache-2.0
"""A simulated host for each test, and exporters that run on it."""
from __future__ import annotations

import http.client
import os
import re
import shutil
import signal
import socket
import subprocess
import tempfile
import time
from pathlib import Path
from typing import IO, Any, Dict, Iterator, List, NamedTuple, Tuple

import pytest
from prometheus_client.openmetrics.parser import text_string_to_metric_families as openmetrics_families
from prometheus_client.parser import text_string_to_metric_families as text_families

ROOT = Path(__file__).resolve().parent.parent.parent
OPENMETRICS = "application/openmetrics-text"

Labels = Tuple[Tuple[str, str], ...]


class Answer(NamedTuple):
    status: int
    headers: Dict[str, str]
    text: str
    seconds: float


def samples_of(page: str, openmetrics: bool = False) -> Dict[Tuple[str, Labels], float]:
    """Every sample of a page; one that is there twice is a fault."""
    found: Dict[Tuple[str, Labels], float] = {}
    for family in (openmetrics_families if openmetrics else text_families)(page):
        for sample in family.samples:
            key = (sample.name, tuple(sorted(sample.labels.items())))
            assert key not in found, key
            found[key] = sample.value
    return found


class Exporter:
    """One that runs, and what it says on standard error."""

    def __init__(self, command: List[str], **how: Any) -> None:
        self.process = subprocess.Popen(command, text=True, stderr=subprocess.PIPE, **how)
        self.said: IO[str] = self.process.stderr  # type: ignore[assignment]
        self.lines = [self.said.readline()]
        while "listening" not in self.lines[-1]:
            assert self.lines[-1], f"the exporter ended: {self.lines}"
            self.lines.append(self.said.readline())
        self.address = self.lines[-1].split()[-1]

    def connect(self, context: Any = None) -> socket.socket:
        if self.address.startswith("unix:"):
            plain = socket.socket(socket.AF_UNIX)
            plain.settimeout(10)
            plain.connect(self.address[len("unix:") :])
        else:
            host, _, port = self.address.rpartition(":")
            plain = socket.create_connection((host.strip("[]"), int(port)), timeout=10)
        return context.wrap_socket(plain, server_hostname="localhost") if context else plain

    def get(self, path: str = "/metrics", method: str = "GET", context: Any = None, **headers: str) -> Answer:
        begin = time.monotonic()
        connection = http.client.HTTPConnection("localhost")
        connection.sock = self.connect(context)
        connection.request(method, path, headers={name.replace("_", "-"): text for name, text in headers.items()})
        reply = connection.getresponse()
        text = reply.read().decode()
        connection.close()
        return Answer(reply.status, dict(reply.getheaders()), text, time.monotonic() - begin)

    def samples(self, **headers: str) -> Dict[Tuple[str, Labels], float]:
        return samples_of(self.get(**headers).text)

    def state(self, card: int) -> str:
        bus_id = f"0000:{card + 3:02x}:00.0"
        states = [dict(labels)["state"] for (name, labels), held in self.samples().items()
                  if name == "vekgpu_state" and dict(labels)["bus_id"] == bus_id and held == 1]
        assert len(states) == 1
        return states[0]

    def stop(self) -> int:
        self.process.send_signal(signal.SIGTERM)
        status = self.process.wait(timeout=20)
        self.lines += self.said
        return status


class Host:
    """A tree with GPUs whose readings are at rest."""

    def __init__(self, tree: Path, gpus: int) -> None:
        self.tree = tree
        self.exporters: List[Exporter] = []
        subprocess.run([os.environ["VEKSIM"], "--gpus", str(gpus), "--still", "--tree", tree, "--", "true"], check=True)

    def card(self, node: str, card: int = 0) -> Path:
        return self.tree / "sys/class/drm" / f"card{card}" / node

    def hwmon(self, node: str, card: int = 0) -> Path:
        return next(self.card("device/hwmon", card).iterdir()) / node

    def write(self, node: Path, text: str) -> None:
        node.write_text(text + "\n")

    def hang(self, card: int) -> Path:
        """Where a file lies, the node of its name hangs."""
        fault = self.tree / f"host/stuck/sys/class/drm/card{card}/device/gpu_util_info"
        fault.parent.mkdir(parents=True, exist_ok=True)
        fault.touch()
        return fault

    def command(self, *arguments: str) -> List[str]:
        return [os.environ["VEKSIM"], "--tree", str(self.tree), "--", os.environ["EXPORTER"], *arguments]

    def run(self, *arguments: str) -> "subprocess.CompletedProcess[str]":
        return subprocess.run(self.command(*arguments), text=True, capture_output=True, timeout=60)

    def export(self, *arguments: str, listen: str = "127.0.0.1:0") -> Exporter:
        """Starts an exporter, on a port of its own unless told otherwise."""
        self.exporters.append(Exporter(self.command("--listen", listen, *arguments)))
        return self.exporters[-1]


@pytest.fixture
def host(request: pytest.FixtureRequest) -> Iterator[Host]:
    """With two GPUs, or as many as the parameter says."""
    memory = "/dev/shm" if os.access("/dev/shm", os.W_OK) else None  # trees in memory are quick
    directory = Path(tempfile.mkdtemp(dir=memory))
    simulated = Host(directory / "host", getattr(request, "param", 2))
    yield simulated
    for exporter in simulated.exporters:
        if exporter.process.poll() is None:
            exporter.stop()
    shutil.rmtree(directory)


def promtool_objects_to(page: str) -> str:
    checked = subprocess.run(["promtool", "check", "metrics"], input=page, text=True, capture_output=True)
    return checked.stdout + checked.stderr


def until(told: Any, seconds: float = 15) -> None:
    end = time.monotonic() + seconds
    while not told():
        assert time.monotonic() < end
        time.sleep(0.05)


def bus_ids(page: str) -> List[str]:
    return re.findall(r'^vekgpu_up\{bus_id="([^"]*)"\}', page, re.MULTILINE)
