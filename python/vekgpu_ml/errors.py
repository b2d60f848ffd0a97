# SPDX-License-Identifier: Apache-2.0
"""What can go wrong: a class for each of the library's result codes, and those of this module's own.

    VekgpuError
        InvalidArgumentError, NotSupportedError, NoPermissionError, NotFoundError, InsufficientSizeError,
        VideoLibraryNotFoundError, NoDataError, UnknownError, NodeIoError       a call's result
        SessionError                                                            no session, or one that is over
        LibraryUnavailableError, FunctionMissingError                           no library, or one that is too old
"""
from __future__ import annotations

from typing import Dict, Optional, Type


class VekgpuError(Exception):
    """Beneath it stands every exception of this module, and itself for a result code that has no class."""

    meaning = "the library gave a result that is not known"
    code: Optional[int] = None
    """The library's result code, where a call gave one."""
    call = ""
    """The C function that gave it."""
    reason = ""
    """What the library printed meanwhile, or what is wrong with the argument."""

    @classmethod
    def of_result(cls, code: int, call: str, reason: str = "") -> VekgpuError:
        """The exception for a call's result."""
        kind = _BY_CODE.get(code, VekgpuError)
        lines = "; ".join(line.strip() for line in reason.splitlines() if line.strip())
        error = kind(f"{call}: {kind.meaning} ({code})" + (f": {lines}" if lines else ""))
        error.code, error.call, error.reason = code, call, reason
        return error


class InvalidArgumentError(VekgpuError, ValueError):
    """An argument is not one that the call takes; also what a setter here refuses before it calls. Code 2."""

    meaning = "an argument is refused"


class NotSupportedError(VekgpuError):
    """The driver does not have the value, or the video engines have nothing to tell. Code 3."""

    meaning = "the driver does not support it"


class NoPermissionError(VekgpuError):
    """It takes root, or a device file or setting may not be opened. Code 4."""

    meaning = "permission denied"


class NotFoundError(VekgpuError):
    """A driver node is absent or unreadable, or the tables do not know an id or a model. Code 6."""

    meaning = "not found"


class InsufficientSizeError(VekgpuError):
    """A buffer cannot hold the text. Code 7."""

    meaning = "the buffer is too small"


class VideoLibraryNotFoundError(VekgpuError):
    """The video acceleration libraries cannot be loaded. Code 12."""

    meaning = "the video libraries are missing"


class NoDataError(VekgpuError):
    """No GPU has the PCI address. Code 21."""

    meaning = "no such GPU"


class UnknownError(VekgpuError):
    """Anything else: a node that a call cannot do without, VA-API, memory. Code 999."""

    meaning = "failed"


class NodeIoError(VekgpuError):
    """A driver node could not be read or written, or the driver refuses a setting. Code -1."""

    meaning = "the driver's node could not be read or written, or the setting is refused"


class SessionError(VekgpuError):
    """There is no session, it is over, or another process started it."""


class LibraryUnavailableError(VekgpuError):
    """The shared library is not there or cannot be loaded."""


class FunctionMissingError(VekgpuError):
    """The installed library is older than a function, and lacks it."""


_BY_CODE: Dict[int, Type[VekgpuError]] = {
    2: InvalidArgumentError,
    3: NotSupportedError,
    4: NoPermissionError,
    6: NotFoundError,
    7: InsufficientSizeError,
    12: VideoLibraryNotFoundError,
    21: NoDataError,
    999: UnknownError,
    -1: NodeIoError,
}


def check(result: int, call: str) -> None:
    """Raises the exception of a result code that is not 0: for results of vekgpu_ml.raw.

    >>> check(raw.vekml_device_get_uuid(gpu.handle, text), "vekml_device_get_uuid")
    """
    if result != 0:
        raise VekgpuError.of_result(result, call)
