# SPDX-License-Identifier: Apache-2.0
"""The live screen on a simulated host whose GPUs hang, go and come back."""
from __future__ import annotations

import os
import signal
import subprocess
from pathlib import Path
from typing import Iterator, List

import pytest
from terminal import SLOW, Terminal


class Host:
    def __init__(self, tree: Path) -> None:
        self.tree = tree
        self.base = [os.environ["VEKSIM"], "--still", "--tree", str(tree), "--"]
        subprocess.run([*self.base, "true"], check=True)

    def command(self, *arguments: str) -> List[str]:
        return [*self.base, os.environ["VEKSMI"], "top", *arguments]

    def watch(self, *arguments: str) -> Terminal:
        return Terminal(self.command(*arguments), XDG_STATE_HOME=str(self.tree / "state"))

    def run(self, *arguments: str) -> subprocess.CompletedProcess:
        return subprocess.run(self.command(*arguments), capture_output=True, text=True, stdin=subprocess.DEVNULL,
                              env={**os.environ, "LC_ALL": "C.UTF-8", "COLUMNS": "80", "LINES": "24"})  # fmt: skip

    def fan(self, card: int) -> Path:
        return next((self.tree / f"sys/class/drm/card{card}/device/hwmon").iterdir()) / "fan1_input"

    def hang(self, card: int) -> None:
        waiting = self.fan(card).with_name("new")
        waiting.symlink_to("stuck")
        waiting.rename(self.fan(card))

    def heal(self, card: int) -> None:
        fresh = self.fan(card).with_name("new")
        fresh.write_text("2400\n")
        fresh.rename(self.fan(card))


@pytest.fixture
def host(tmp_path: Path) -> Iterator[Host]:
    yield Host(tmp_path / "host")


def children(pid: int) -> List[int]:
    return [int(each) for each in Path(f"/proc/{pid}/task/{pid}/children").read_text().split()]


def test_a_gpu_that_hangs_keeps_its_place_and_nobody_waiting(host: Host) -> None:
    with host.watch("-n", "0.2") as screen:
        screen.wait_for("2400 RPM")
        host.hang(1)
        screen.wait_for("GPU 1  STUCK since")
        assert "load          40 %" in screen.text, "the other one goes on"
        host.heal(1)
        screen.wait(lambda text: "STUCK" not in text and text.count("2400 RPM") >= 2)
        (host.tree / "sys/class/drm/card1").rename(host.tree / "host/card1")
        screen.wait_for("GPU 1  LOST since")
        (host.tree / "host/card1").rename(host.tree / "sys/class/drm/card1")
        screen.wait(lambda text: "LOST" not in text)
        screen.leave("q")


def test_keys_are_answered_while_the_first_round_hangs(host: Host) -> None:
    host.hang(0)
    with host.watch("--deadline", "600") as screen:
        screen.wait_for("asking the GPUs")
        screen.type("h")
        screen.wait_for("time across a chart")
        screen.resize(60, 12)
        screen.type("\x1b")
        screen.wait_for("asking the GPUs")
        screen.leave("q")


def test_a_reader_that_crashes_harms_no_terminal(host: Host) -> None:
    with host.watch("-n", "0.2") as screen:
        screen.wait_for("2400 RPM")
        client = next(p for p in children(screen.process.pid) if "veksmi" in Path(f"/proc/{p}/comm").read_text())
        os.kill(children(client)[0], signal.SIGSEGV)
        screen.wait_for("CRASHED since")
        screen.wait(lambda text: "CRASHED" not in text)  # started anew
        os.kill(client, signal.SIGTERM)
        screen.leave()


def test_once(host: Host) -> None:
    shown = host.run("--once")
    assert shown.returncode == 0, shown.stderr
    lines = shown.stdout.splitlines()
    assert len(lines) == 24 and "GPU 1" in shown.stdout and "compositor" in shown.stdout
    assert not any("\x1b" in line or "quit" in line for line in lines)
    assert host.run("--once", "--ascii").stdout.isascii()
    assert "2 GPUs  every 0.5 s" in host.run("--once", "-n", "0.5").stdout
    assert "1 GPU " in host.run("--once", "-i", "1").stdout
    host.hang(1)
    shown = host.run("--once", "--deadline", "2")
    assert shown.returncode == 5 and "STUCK since" in shown.stdout


def test_where_it_cannot_draw_it_says_what_can(host: Host) -> None:
    with Terminal(host.command(), TERM="dumb") as screen:
        assert screen.end(SLOW) == 1
        assert "--once" in screen.text
