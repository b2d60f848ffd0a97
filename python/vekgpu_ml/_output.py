# SPDX-License-Identifier: Apache-2.0
"""Calls the library while what it prints is kept from the program's standard output.

The library prints with C's stdio, on the stream that the variable `stdout` points at. While a call runs, that variable
points at a stream in memory; descriptor 1 and Python's sys.stdout are never touched. What a call printed goes to the
logger "vekgpu_ml" and into the exception, if there is one.

The variable is the process', so what other C code prints in another thread meanwhile is taken for the library's.
"""
from __future__ import annotations

import os
from ctypes import PyDLL, byref, c_char_p, c_int, c_long, c_size_t, c_void_p, string_at
from threading import RLock
from typing import Any, Optional, Tuple

from ._library import Function


class _Memory:
    """C's standard output, and the stream in memory that stands in for it."""

    def __init__(self) -> None:
        # These calls return at once, so they keep the interpreter's lock: that is quicker than to give it up.
        libc = PyDLL(None)
        self.stdout = c_void_p.in_dll(libc, "stdout")
        self.own = self.stdout.value
        self._text, self.size = c_char_p(), c_size_t()
        libc.open_memstream.restype = c_void_p
        self.address: Optional[int] = libc.open_memstream(byref(self._text), byref(self.size))
        if not self.address:
            raise MemoryError("open_memstream")
        self.stream = c_void_p(self.address)
        self.flush, self._lock, self._unlock = libc.fflush, libc.flockfile, libc.funlockfile
        self._seek = libc.fseek
        self._seek.argtypes = [c_void_p, c_long, c_int]

    def take(self) -> str:
        """What was printed since it was last asked for."""
        self._lock(self.stream)  # another thread's call may be printing
        self.flush(self.stream)
        text = string_at(self._text, self.size.value)
        self._seek(self.stream, 0, os.SEEK_SET)
        self.flush(self.stream)
        self._unlock(self.stream)
        return text.decode("utf-8", "replace")


_lock = RLock()  # a signal's handler may come in between
_memory: Optional[_Memory] = None
_running = 0  # calls, in whatever threads


def run(function: Function, *arguments: Any) -> Tuple[int, str]:
    """A call's result, and what it printed."""
    global _memory, _running
    found = function.found()
    with _lock:
        memory = _memory
        if memory is None:
            memory = _memory = _Memory()
        stdout = memory.stdout.value
        if stdout != memory.address:
            memory.own = stdout
            memory.stdout.value = memory.address
        _running += 1
    try:
        result = found(*arguments)
    finally:
        with _lock:
            _running -= 1
            if not _running:
                memory.stdout.value = memory.own
            memory.flush(memory.stream)
            printed = memory.take() if memory.size.value else ""
    if printed:
        _log(function.__name__, printed)
    return result, printed


def _forked() -> None:
    """In a child: the calls that the parent's other threads were in do not run here."""
    global _lock, _memory, _running
    if _memory is not None and _running:
        _memory.stdout.value = _memory.own
    _lock, _memory, _running = RLock(), None, 0


os.register_at_fork(after_in_child=_forked)


def _log(call: str, printed: str) -> None:
    import logging  # here because few programs ever come by, and it takes its time

    logger = logging.getLogger("vekgpu_ml")
    for line in printed.splitlines():
        if line.strip():
            logger.info("%s: %s", call, line.strip())
