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


def import_milliseconds() -> Tuple[float, float]:
    """How much longer the module's import takes than that of ctypes, by the clock and by the processor."""
    program = (
        f"import sys, time; sys.path.insert(0, {str(MODULE)!r}); import ctypes; "
        "start = time.perf_counter(), time.process_time(); import vekgpu_ml; "
        "print(time.perf_counter() - start[0], time.process_time() - start[1])"
    )
    with tempfile.TemporaryDirectory() as cache:
        # As installed: compiled beforehand, by the first run, and on a real host.
        environment = {**os.environ, "PYTHONPYCACHEPREFIX": cache, "PYTHONDONTWRITEBYTECODE": "", "LD_PRELOAD": ""}
        command = [sys.executable, "-c", program]
        runs = [subprocess.check_output(command, env=environment).split() for _ in range(IMPORTS)]
    clock, processor = (median(map(float, times)) * 1000 for times in zip(*runs[1:]))
    return clock, processor


def calls_of(gpu: vekgpu_ml.Gpu) -> List[Tuple[str, Callable[[], Any]]]:
    """Each property by its name, with the calls that give the same in plain ctypes."""
    handle = gpu.handle

    def record(function: Any, kind: Any) -> Callable[[], Any]:
        found = function.found()
        return lambda: found(handle, byref(kind()))

    def text(function: Any) -> Callable[[], Any]:
        found, kind = function.found(), c_char * 64
        return lambda: found(handle, kind())

    def all_of(*calls: Callable[[], Any]) -> Callable[[], Any]:
        return lambda: [call() for call in calls]

    get_thermal = raw.vekml_device_get_thermal.found()
    get_bounds = raw.vekml_device_get_min_max_fan_speed.found()
    fan = (
        raw.vekml_device_get_fan_speed,
        raw.vekml_device_get_fan_ctrl_mode,
        raw.vekml_device_get_fan_pwm,
        raw.vekml_device_get_pwm_min,
        raw.vekml_device_get_pwm_max,
    )
    path = gpu.handle.contents.card_path
    errors = (
        raw.vekml_device_get_pcie_err_corr,
        raw.vekml_device_get_pcie_err_nonfatal,
        raw.vekml_device_get_pcie_err_fatal,
    )

    def error_digits() -> None:
        for function in errors:
            function.found()(path, (c_char * 64)())

    return [
        ("uuid", text(raw.vekml_device_get_uuid)),
        ("temperature", record(raw.vekml_device_get_temper_info, raw.temper_info)),
        ("temperatures", record(raw.vekml_device_get_temper_info, raw.temper_info)),
        ("thermal_limits", lambda: [get_thermal(handle, byref(raw.thermal()), kind) for kind in range(4)]),
        ("fan_speed", record(raw.vekml_device_get_fan_speed, c_uint32)),
        (
            "fan",
            all_of(
                lambda: get_bounds(handle, byref(c_uint32()), byref(c_uint32())),
                *(record(each, c_uint32) for each in fan),
            ),
        ),
        ("power", record(raw.vekml_device_get_power_info, raw.power_info)),
        ("clocks", record(raw.vekml_device_get_clock, raw.clock_info)),
        ("load", record(raw.vekml_device_get_util_info, raw.vekml_util_info_t)),
        ("memory", record(raw.vekml_device_get_mem_info, raw.vekml_mem_info_t)),
        ("memory_errors", record(raw.vekml_device_get_gddr_crc, raw.vekml_gddr_crc_t)),
        ("processes", record(raw.vekml_device_get_process_info, raw.vekml_process_info_t)),
        (
            "pcie",
            all_of(
                record(raw.vekml_device_get_pcie_event, raw.vekml_pcie_event_t),
                text(raw.vekml_device_get_pcie_throughput),
                text(raw.vekml_device_get_pcie_mmbar_type),
                error_digits,
            ),
        ),
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
    clock, processor = import_milliseconds()
    print(f"import beyond ctypes: {clock:.1f} ms, {processor:.1f} ms of them computing")
    print(f"{'':20}{'ctypes us':>10}{'property us':>13}{'ratio':>8}")
    with vekgpu_ml.session() as gpus:
        for name, bare in calls_of(gpus[0]):
            # Side by side, round by round: what else the machine does then weighs on both.
            pairs = [(microseconds(bare), microseconds(lambda: getattr(gpus[0], name))) for _ in range(ROUNDS)]
            floor, cost = (median(times) for times in zip(*pairs))
            print(f"{name:20}{floor:10.1f}{cost:13.1f}{median(b / a for a, b in pairs):8.2f}")


if __name__ == "__main__":
    main()
