# SPDX-License-Identifier: Apache-2.0
"""The GPUs of this host: what they are, what they read, and what can be set.

    import vekgpu_ml

    with vekgpu_ml.session() as gpus:
        for gpu in gpus:
            print(gpu.name, gpu.temperature, gpu.memory.used)

Each property reads the GPU anew. Where there is no value it is None; methods raise instead: a class beneath
VekgpuError for each of the library's result codes. vekgpu_ml.raw has every function and record of the C interface.

The library is libvekgpu-ml.so.1, or the file that the environment variable VEKGPU_ML_LIBRARY names. It is loaded when
it is first used.

What the library prints does not reach standard output: it goes to the logger "vekgpu_ml", and into the exception when
a call fails (VekgpuError.reason). To that end C's variable `stdout` points elsewhere while a call runs; descriptor 1
and sys.stdout are not touched. Calls of vekgpu_ml.raw print as C does.

Threads: any number may read; one lock stands around start and stop. A process that was forked starts a session of its
own: its parent's raises SessionError there.
"""
from ._session import Session, gpus, session
from .errors import (
    FunctionMissingError,
    InsufficientSizeError,
    InvalidArgumentError,
    LibraryUnavailableError,
    NodeIoError,
    NoDataError,
    NoPermissionError,
    NotFoundError,
    NotSupportedError,
    SessionError,
    UnknownError,
    VekgpuError,
    VideoLibraryNotFoundError,
    check,
)
from .gpu import Gpu
from .records import (
    Clocks,
    Codec,
    DriverVersion,
    Fan,
    Info,
    Load,
    Memory,
    MemoryErrors,
    Pcie,
    PciAddress,
    Power,
    Process,
    Temperatures,
    ThermalLimits,
    VideoLoad,
)

__version__ = "1.1.0"

__all__ = [
    "Clocks",
    "Codec",
    "DriverVersion",
    "Fan",
    "FunctionMissingError",
    "Gpu",
    "Info",
    "InsufficientSizeError",
    "InvalidArgumentError",
    "LibraryUnavailableError",
    "Load",
    "Memory",
    "MemoryErrors",
    "NoDataError",
    "NoPermissionError",
    "NodeIoError",
    "NotFoundError",
    "NotSupportedError",
    "Pcie",
    "PciAddress",
    "Power",
    "Process",
    "Session",
    "SessionError",
    "Temperatures",
    "ThermalLimits",
    "UnknownError",
    "VekgpuError",
    "VideoLibraryNotFoundError",
    "VideoLoad",
    "check",
    "gpus",
    "session",
]
