# SPDX-License-Identifier: Apache-2.0
"""The live screen on a terminal, with readings that are always the same. TOP_RECORD=1 records the screens anew."""
from __future__ import annotations

import os
import random
import re
import signal
import time
from pathlib import Path
from typing import Callable

import pytest
from terminal import Terminal

SCREENS = Path(__file__).parent / "screens"
SIZES = [(80, 24), (40, 10), (200, 60)]
LAST = "14:01:59"  # the last of the 120 rounds


@pytest.fixture
def play(tmp_path: Path) -> Callable[..., Terminal]:
    """The player when it has come to its end, unless the caller has other plans."""

    def start(gpus: int, columns: int = 80, lines: int = 24, **environment: str) -> Terminal:
        terminal = Terminal(
            [os.environ["TOP_PLAYER"], str(gpus)], columns, lines, **{"XDG_STATE_HOME": str(tmp_path), **environment}
        )
        terminal.wait_for(LAST[: columns - 13])
        terminal.settle()
        return terminal

    return start


def expect(terminal: Terminal, name: str) -> None:
    path = SCREENS / f"{name}.txt"
    if os.environ.get("TOP_RECORD"):
        path.write_text(terminal.text)
    assert terminal.text == path.read_text(), terminal.text


@pytest.mark.parametrize("gpus", [1, 4, 15])
def test_screens_are_the_recorded_ones_while_the_terminal_is_resized(play: Callable[..., Terminal], gpus: int) -> None:
    with play(gpus) as terminal:
        for columns, lines in [*SIZES, SIZES[0]]:
            terminal.resize(columns, lines)
            terminal.settle()
            expect(terminal, f"{gpus}-{columns}x{lines}")


def test_poorer_terminals_get_blocks_and_ascii(play: Callable[..., Terminal]) -> None:
    with play(4, TERM="linux") as terminal:
        expect(terminal, "4-blocks")
    with play(4, LC_ALL="C") as terminal:
        expect(terminal, "4-ascii")
        assert terminal.text.isascii() and terminal.raw.isascii()


@pytest.mark.parametrize(
    "environment, coloured", [({}, True), ({"NO_COLOR": ""}, True), ({"NO_COLOR": "1"}, False), ({"TERM": "vt220"}, False)]
)
def test_colour_says_nothing_that_words_do_not(play: Callable[..., Terminal], environment: dict, coloured: bool) -> None:
    with play(4, 200, 60, **environment) as terminal:
        assert bool(re.search(rb"\x1b\[[0-9;]*3[13]m", terminal.raw)) == coloured
        for word in ("STUCK since 14:01:30", "OVER SLOWDOWN"):
            assert word in terminal.text


def test_keys(play: Callable[..., Terminal], tmp_path: Path) -> None:
    with play(4) as terminal:
        for keys, seen in [
            ("h", "time across a chart"),
            (" ", "GPU 3"),
            ("\x1b[B\r", "GPU 2  VEK M310  タロン-W2"),
            ("\x1b", "GPU 0"),
            ("/エディ", "filter: エディ_"),
            ("\r", "filter: エディ"),
            ("\x1b", "compositor"),
            ("p", "PAUSED"),
            ("p+", "every 2 s"),
            ("s", "ALL↓1"),
            ("t", "5 min across"),
        ]:
            terminal.type(keys)
            terminal.wait_for(seen)
        terminal.leave("q")
    kept = tmp_path / "veksmi" / "top"
    assert '"interval_ms":2000,"span_s":300,"sort":"all_memory","then_sort":"memory"' in kept.read_text()
    with play(1) as terminal:
        assert "every 2 s  5 min across" in terminal.text
    kept.write_text("what?")
    with play(1, 200) as terminal:
        assert "settings ignored" in terminal.text
        terminal.leave("qq")
    assert kept.read_text() == "what?", "nothing was chosen anew"


@pytest.mark.parametrize("keys, number", [("q", 0), ("\x03", 0), ("\x1c", 0), ("", signal.SIGTERM), ("", signal.SIGHUP)])
def test_every_way_out_restores_the_terminal(play: Callable[..., Terminal], keys: str, number: int) -> None:
    with play(1) as terminal:
        assert not terminal.is_restored()
        terminal.process.send_signal(number)
        terminal.leave(keys)


def test_a_closed_terminal_ends_it(play: Callable[..., Terminal]) -> None:
    with play(1) as terminal:
        os.close(terminal.theirs)
        os.close(terminal.own)
        terminal.own = terminal.theirs = -1
        assert terminal.process.wait(20) == 0


def test_stop_and_go_on(play: Callable[..., Terminal]) -> None:
    with play(1) as terminal:
        before = terminal.text
        terminal.type("\x1a")
        assert os.waitid(os.P_PID, terminal.process.pid, os.WSTOPPED | os.WEXITED).si_status == signal.SIGSTOP
        terminal.settle()
        assert terminal.is_restored()
        terminal.resize(100, 30)
        terminal.resize(80, 24)
        terminal.screen.reset()
        terminal.process.send_signal(signal.SIGCONT)
        terminal.wait(lambda text: text == before)
        assert not terminal.is_restored()


def test_a_thousand_random_keys_and_sizes(play: Callable[..., Terminal]) -> None:
    chance = random.Random(15)
    keys = ["\x1b[A", "\x1b[B", "\x1b[C", "\x1b[D", "\x1b[5~", "\x1b[6~", "\x1b", "\r", "\t", "\x7f", "\x0c", "\x15"]
    keys += list("hspgtr/+-? xé") + ["タ", "\x1b[M !!", "\x1b[M`##", "\xff", "\x1bOP"]
    with play(15) as terminal:
        for turn in range(1000):
            if turn % 4 == 0:
                terminal.resize(chance.randrange(1, 220), chance.randrange(1, 70))
            terminal.type(chance.choice(keys))
            terminal.read(0.003)
            assert terminal.process.poll() is None
        terminal.resize(80, 24)
        terminal.type("\x1b")
        time.sleep(0.1)
        terminal.leave("\x1b\x03")
