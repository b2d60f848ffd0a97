# SPDX-License-Identifier: Apache-2.0
"""Start and stop, threads and forks, and what comes out on standard output."""
from __future__ import annotations

import os
import threading
from typing import List

import pytest

import vekgpu_ml
from conftest import Host
from vekgpu_ml import raw


def test_a_session_is_its_gpus_until_it_ends(host: Host) -> None:
    with vekgpu_ml.session() as gpus:
        with vekgpu_ml.session() as inner:
            assert [gpu.name for gpu in inner] == ["TALON-M1", "TALON-S3"]
        assert (len(gpus), gpus[-1].temperature) == (2, 48)
        assert gpus.by_bus_id("0000:04:00.0") is gpus[1]
        with pytest.raises(vekgpu_ml.NoDataError, match="Unable to find a GPU"):
            gpus.by_bus_id("0000:09:00.0")
        with pytest.raises(IndexError):
            gpus[2]
        with pytest.raises(vekgpu_ml.SessionError, match="over"):
            inner[0].temperature
    gpus.close()
    assert raw.globals.value.count == 0
    for use in (lambda: gpus[0].info, lambda: gpus[0].set_fan_mode(1), lambda: gpus.by_bus_id("0000:03:00.0")):
        with pytest.raises(vekgpu_ml.SessionError):
            use()


def test_one_card_alone(host: Host) -> None:
    with vekgpu_ml.session(card=1) as gpus:
        assert [(gpu.index, gpu.card) for gpu in gpus] == [(0, 1)]
        with pytest.raises(vekgpu_ml.SessionError, match="other cards"):
            vekgpu_ml.session()
    with vekgpu_ml.session(card=7) as none:
        assert list(none) == []


def test_threads_share_one_library(host: Host) -> None:
    wrong: List[object] = []

    def read() -> None:
        for _ in range(30):
            with vekgpu_ml.session() as gpus:
                wrong.extend(gpu for gpu in gpus if (gpu.temperature, gpu.memory.total is None) != (48, False))
                wrong.extend(["no GPU"] if len(gpus) != 2 else [])

    with vekgpu_ml.session():
        threads = [threading.Thread(target=read) for _ in range(4)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        assert raw.globals.value.count == 2
    assert wrong == []
    assert raw.globals.value.count == 0


def test_a_fork_starts_its_own(host: Host, gpu: vekgpu_ml.Gpu) -> None:
    child = os.fork()
    if child == 0:
        status = 1
        try:
            try:
                gpu.temperature
            except vekgpu_ml.SessionError as error:
                status = 2 if "parent" in str(error) else 3
            with vekgpu_ml.session() as own:
                status += 10 * len(own) + (own[0].temperature == 48) * 100
        finally:
            os._exit(status)
    assert os.waitpid(child, 0)[1] >> 8 == 122
    assert gpu.temperature == 48


def test_standard_output_is_the_programs(host: Host) -> None:
    program = """
import ctypes, logging, os, sys
import vekgpu_ml
from vekgpu_ml import raw
libc = ctypes.CDLL(None)
logging.basicConfig(level=logging.INFO, format="%(message)s")
print("first", flush=True)
with vekgpu_ml.session() as gpus:
    libc.puts(b"C")
    try:
        gpus[1].set_fan_speed(50)
    except vekgpu_ml.NodeIoError as error:
        print(error.reason.strip(), flush=True)
    gpus[0].thermal_limits
    if os.fork() == 0:
        libc.puts(b"child")
        libc.fflush(None)
        os._exit(0)
    os.wait()
    raw.vekml_device_set_fan1_speed(gpus[1].handle, b"50")
libc.puts(b"end")
libc.fflush(None)
"""
    host.remove("vek_slowdown_temp")
    run = host.python(program)
    reason = "set fan speed failed, you can try <veksmi fan set pwm xxxx>"
    assert run.status == 0
    # C's own lines are held back until they are flushed: the child has what its parent had printed.
    assert run.out.splitlines() == ["first", reason, "C", "child", "C", reason, "end"]
    assert run.err.splitlines()[0] == f"vekml_device_set_fan1_speed: {reason}"
    assert run.err.splitlines()[1].startswith("vekml_device_get_thermal: ") and len(run.err.splitlines()) == 2


def test_the_process_own_session_lasts(host: Host) -> None:
    first = list(vekgpu_ml.gpus())
    assert vekgpu_ml.gpus()[0] is first[0] and first[1].temperature == 48
    vekgpu_ml.gpus().close()
    assert [gpu.temperature for gpu in vekgpu_ml.gpus()] == [48, 48]
    vekgpu_ml.gpus().close()
