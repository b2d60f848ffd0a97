# SPDX-License-Identifier: Apache-2.0
"""What the Python module costs: its import beyond ctypes', and each property beside the bare ctypes calls it makes.

usage: ./dev bench python
"""
from __future__ import annotations

import os
import subprocess
import sys
import tempfile
import time
from ctypes import byref, c_char, c_uint32
from pathlib import Path
from statistics import median
from typing import Any, Callable, List, Tuple

MODULE = Path(__file__).resolve().parent.parent / "python"
sys.path.insert(0, str(MODULE))

import vekgpu_ml  # noqa: E402
from vekgpu_ml import raw  # noqa: E402

IMPORTS = 25
ROUNDS = 200
CALLS = 20


def import_milliseconds() -> float:
    """How much longer the module's import takes than that of ctypes, each time in a fresh interpreter."""
    program = (
        f"import sys, time; sys.path.insert(0, {str(MODULE)!r}); import ctypes; start = time.perf_counter(); "
        "import vekgpu_ml; print(time.perf_counter() - start)"
    )
    with tempfile.TemporaryDirectory() as cache:
        # As installed: compiled beforehand, by the first run, and on a real host.
        environment = {**os.environ, "PYTHONPYCACHEPREFIX": cache, "PYTHONDONTWRITEBYTECODE": "", "LD_PRELOAD": ""}
        command = [sys.executable, "-c", program]
        runs = [subprocess.check_output(command, env=environment) for _ in range(IMPORTS)]
    return median(map(float, runs[1:])) * 1000


def calls_of(gpu: vekgpu_ml.Gpu) -> List[Tuple[str, Callable[[], Any]]]:
    """Each property by its name, with the calls that give the same in plain ctypes."""
    handle = gpu.handle

    def record(function: Any, kind: Any) -> Callable[[], Any]:
        found = function.found()
        return lambda: found(handle, byref(kind()))

    def text(function: Any) -> Callable[[], Any]:
        found, kind = function.found(), c_char * 64
        return lambda: found(handle, kind())

    get_thermal = raw.vekml_device_get_thermal.found()

    def thermal() -> None:
        for kind in range(4):
            get_thermal(handle, byref(raw.thermal()), kind)

    return [
        ("uuid", text(raw.vekml_device_get_uuid)),
        ("temperature", record(raw.vekml_device_get_temper_info, raw.temper_info)),
        ("temperatures", record(raw.vekml_device_get_temper_info, raw.temper_info)),
        ("thermal_limits", thermal),
        ("fan_speed", record(raw.vekml_device_get_fan_speed, c_uint32)),
        ("power", record(raw.vekml_device_get_power_info, raw.power_info)),
        ("clocks", record(raw.vekml_device_get_clock, raw.clock_info)),
        ("load", record(raw.vekml_device_get_util_info, raw.vekml_util_info_t)),
        ("memory", record(raw.vekml_device_get_mem_info, raw.vekml_mem_info_t)),
        ("memory_errors", record(raw.vekml_device_get_gddr_crc, raw.vekml_gddr_crc_t)),
        ("processes", record(raw.vekml_device_get_process_info, raw.vekml_process_info_t)),
        ("display_connected", record(raw.vekml_device_get_display_status, c_uint32)),
        ("dvfs_enabled", record(raw.vekml_device_get_dvfs_info, raw.dvfs_t)),
        ("driver", record(raw.vekml_device_get_driver_version, raw.vekml_driver_version_t)),
    ]


def microseconds(call: Callable[[], Any]) -> float:
    """What one call takes, out of a few."""
    start = time.perf_counter()
    for _ in range(CALLS):
        call()
    return (time.perf_counter() - start) / CALLS * 1e6


def main() -> None:
    """Prints a line for the import and one for each property."""
    print(f"import beyond ctypes  {import_milliseconds():6.1f} ms")
    print(f"{'':20}{'ctypes us':>10}{'property us':>13}{'ratio':>8}")
    with vekgpu_ml.session() as gpus:
        for name, bare in calls_of(gpus[0]):
            # Side by side, round by round: what else the machine does then weighs on both.
            pairs = [(microseconds(bare), microseconds(lambda: getattr(gpus[0], name))) for _ in range(ROUNDS)]
            floor, cost = (median(times) for times in zip(*pairs))
            print(f"{name:20}{floor:10.1f}{cost:13.1f}{median(b / a for a, b in pairs):8.2f}")


if __name__ == "__main__":
    main()
