# SPDX-License-Identifier: Apache-2.0
"""A program on a pseudo-terminal, and what a person would see there."""
from __future__ import annotations

import fcntl
import os
import pty
import select
import signal
import struct
import subprocess
import termios
import time
from typing import Callable, Dict, List, Optional

import pyte


class Screen(pyte.Screen):
    def scroll_up(self, count: int = 1) -> None:
        """Within the margins: what the reader of control sequences lacks."""
        self.save_cursor()
        margins = self.margins or pyte.screens.Margins(0, self.lines - 1)
        self.cursor.y = margins.bottom
        for _ in range(count or 1):
            self.index()
        self.restore_cursor()


class Stream(pyte.ByteStream):
    csi = {**pyte.ByteStream.csi, "S": "scroll_up"}
    events = pyte.ByteStream.events | {"scroll_up"}


SLOW = 20  # seconds that a wait may take at most on a busy machine


class Terminal:
    def __init__(self, command: List[str], columns: int = 80, lines: int = 24, **environment: str) -> None:
        self.screen = Screen(columns, lines)
        self.stream = Stream(self.screen)
        self.raw = b""
        self.own, self.theirs = pty.openpty()
        self._set_size(columns, lines)
        self.before = termios.tcgetattr(self.theirs)
        given: Dict[str, str] = {"TERM": "screen-256color", "LC_ALL": "C.UTF-8", "TZ": "UTC", **environment}
        kept = {name: value for name, value in os.environ.items() if name not in ("COLUMNS", "LINES", "NO_COLOR")}
        self.process = subprocess.Popen(
            command, stdin=self.theirs, stdout=self.theirs, stderr=self.theirs, env={**kept, **given},
            start_new_session=True, preexec_fn=lambda: fcntl.ioctl(0, termios.TIOCSCTTY, 0),
        )  # fmt: skip

    def __enter__(self) -> "Terminal":
        return self

    def __exit__(self, *_: object) -> None:
        if self.process.poll() is None:
            os.killpg(self.process.pid, signal.SIGKILL)
            self.process.wait()
        for end in (self.own, self.theirs):
            if end >= 0:
                os.close(end)

    def _set_size(self, columns: int, lines: int) -> None:
        fcntl.ioctl(self.theirs, termios.TIOCSWINSZ, struct.pack("HHHH", lines, columns, 0, 0))

    def resize(self, columns: int, lines: int) -> None:
        self._set_size(columns, lines)  # the kernel tells the program
        self.screen.resize(lines, columns)

    def type(self, keys: str) -> None:
        os.write(self.own, keys.encode())

    def read(self, seconds: float) -> bool:
        if not select.select([self.own], [], [], seconds)[0]:
            return False
        try:
            data = os.read(self.own, 65536)
        except OSError:  # nobody holds the other end
            return False
        self.raw += data
        self.stream.feed(data)
        return bool(data)

    def settle(self, quiet: float = 0.3) -> None:
        while self.read(quiet):
            pass

    def wait(self, seen: Callable[[str], bool], seconds: float = SLOW) -> float:
        """How long it took; fails with what is on the screen."""
        began = time.monotonic()
        while not seen(self.text):
            left = began + seconds - time.monotonic()
            assert left > 0, f"not within {seconds} s:\n{self.text}"
            self.read(min(left, 0.2))
        return time.monotonic() - began

    def wait_for(self, text: str, seconds: float = SLOW) -> float:
        return self.wait(lambda screen: text in screen, seconds)

    def end(self, seconds: float = SLOW) -> int:
        began = time.monotonic()
        while self.process.poll() is None:
            assert time.monotonic() - began < seconds, f"still runs:\n{self.text}"
            self.read(0.05)
        self.settle(0.05)
        return self.process.returncode

    def leave(self, keys: str = "") -> None:
        """Ends well, and leaves the terminal as it found it."""
        self.type(keys)
        assert self.end() == 0
        assert self.is_restored()

    def is_restored(self) -> bool:
        """The line discipline is as it was, the cursor shows, and the screen is the one from before."""
        ends = [self.raw.rfind(text) for text in (b"\x1b[?1049l", b"\x1b[?1049h")]
        return termios.tcgetattr(self.theirs) == self.before and ends[0] > ends[1] and not self.screen.cursor.hidden

    @property
    def text(self) -> str:
        # Cell by cell: pyte's own display breaks on half a wide character, which a look amid an update may find.
        rows = ([self.screen.buffer[y][x].data for x in range(self.screen.columns)] for y in range(self.screen.lines))
        return "\n".join("".join(row).rstrip() for row in rows) + "\n"
