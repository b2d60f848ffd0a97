# SPDX-License-Identifier: Apache-2.0
"""The library from its start to its end."""
from __future__ import annotations

import atexit
import os
from collections.abc import Sequence
from ctypes import byref
from threading import RLock
from types import TracebackType
from typing import List, Optional, Tuple, Type, Union, overload

from . import raw
from ._output import run
from .errors import SessionError, VekgpuError
from .gpu import Gpu

_lock = RLock()  # held around start and stop
_open: List[Session] = []
_default: Optional[Session] = None
_inherited = False  # a fork has left the parent's table behind


class Session(Sequence[Gpu]):
    """The GPUs of this host, for as long as it is open. Made by vekgpu_ml.session()."""

    def __init__(self, card: Optional[int] = None) -> None:
        self.over = ""
        """Why it is over; empty while it is open."""
        self._card = card
        with _lock:
            if not _open:
                _start(card)
            elif _open[0]._card != card:
                raise SessionError("a session with other cards is open in this process: end it first")
            try:
                self._gpus = self._found()
            except BaseException:
                if not _open:
                    _stop()
                raise
            _open.append(self)

    def _found(self) -> Tuple[Gpu, ...]:
        gpus: List[Gpu] = []
        while True:
            handle = raw.vekml_device_t()
            if raw.vekml_device_get_handle_by_index(len(gpus), byref(handle)) != 0:
                return tuple(gpus)
            gpus.append(Gpu(self, len(gpus), handle))

    def expect_open(self) -> None:
        """Raises SessionError when it is over."""
        if self.over:
            raise SessionError(self.over)

    def close(self) -> None:
        """Ends it. The library stops with the last session; a second call does nothing."""
        with _lock:
            if self not in _open:
                return
            _open[:] = [each for each in _open if each is not self]
            self.over = "the session is over"
            if not _open:
                _stop()

    def __enter__(self) -> Session:
        return self

    def __exit__(
        self, kind: Optional[Type[BaseException]], error: Optional[BaseException], trace: Optional[TracebackType]
    ) -> None:
        self.close()

    def __len__(self) -> int:
        return len(self._gpus)

    @overload
    def __getitem__(self, index: int) -> Gpu: ...

    @overload
    def __getitem__(self, index: slice) -> Tuple[Gpu, ...]: ...

    def __getitem__(self, index: Union[int, slice]) -> Union[Gpu, Tuple[Gpu, ...]]:
        return self._gpus[index]

    def __repr__(self) -> str:
        return f"<Session: {self.over or ', '.join(map(repr, self._gpus)) or 'no GPU'}>"

    def by_bus_id(self, bus_id: str) -> Gpu:
        """The GPU at a PCI address such as "0000:03:00.0"; raises NoDataError when there is none."""
        self.expect_open()
        handle = raw.vekml_device_t()
        call = raw.vekml_device_get_handle_by_pci_bus_id
        result, printed = run(call, byref(handle), os.fsencode(bus_id))
        if result != 0:
            raise VekgpuError.of_result(result, call.__name__, printed)
        return self._gpus[handle.contents.table_index]


def _start(card: Optional[int]) -> None:
    global _inherited
    if _inherited:
        run(raw.vekml_shutdown)
        _inherited = False
    if card is None:
        run(raw.vekml_init)
    else:
        run(raw.vekml_init_card, card)


def _stop() -> None:
    result, printed = run(raw.vekml_shutdown)
    if result != 0:
        raise VekgpuError.of_result(result, "vekml_shutdown", printed)


def _forked() -> None:
    """In a child: what the parent had open is the parent's, and another of its threads may have been starting it."""
    global _lock, _default, _inherited
    _lock, _default, _inherited = RLock(), None, True
    for each in _open:
        each.over = "the session is that of the parent process: a forked child starts its own"
    _open.clear()


os.register_at_fork(after_in_child=_forked)


def session(card: Optional[int] = None) -> Session:
    """Starts the library, and gives the host's GPUs until the `with` block ends or close() is called.

    With `card`, the session has only the GPU that is /sys/class/drm/cardN, if it is one. Sessions may overlap, also
    in several threads; the library starts with the first and stops with the last. No other thread may be reading a
    GPU while the last one ends.

    A driver that hangs holds up the call that reads it. Who must go on meanwhile reads each card in a process of its
    own, with `card`.
    """
    return Session(card)


def gpus() -> Session:
    """The host's GPUs, for as long as the process runs: what a notebook wants, or a short script."""
    global _default
    if _default is None or _default.over:
        _default = Session()
        atexit.register(_default.close)
    return _default
