# SPDX-License-Identifier: Apache-2.0
"""What a GPU reads, lacks, takes and refuses."""
from __future__ import annotations

import operator
import pickle
from ctypes import create_string_buffer
from typing import Any, Callable, Dict, Type

import pytest

import vekgpu_ml
from conftest import Host
from vekgpu_ml import Gpu, raw

CAN_DECODE = "hevc main"


def test_readings(host: Host, gpu: Gpu) -> None:
    nodes = {"temp1_input": "-3", "vek_gddr_temp": "0", "in0_input": "7", "vek_total_power": "40", "fan1_input": "0"}
    for name, text in {**nodes, "vek_acpu_freq_mhz": "0", "card/vek_enable_dvfs": "0"}.items():
        host.write(name, text)
    host.write("card/device/aer_dev_fatal", "Undefined 0\nTOTAL_ERR_FATAL 31")
    assert gpu.temperature == -3
    assert gpu.temperatures == (-3, 48, 0, 0, 90, 100, 1)
    assert gpu.temperatures.memory == 0
    assert gpu.thermal_limits == (95, 105, 1, 1)
    assert (gpu.fan_speed, gpu.fan) == (0, (0, 900, 4800, 1, None, None, None))
    assert gpu.power == (21, 40, 7, 24735)
    assert gpu.clocks == (730, 1750, 0, 600, 500)
    assert gpu.load == (40, 10, 8, 34, 0)
    assert gpu.memory == (2063618048, 6526316544, 8589934592, 126877696, 4168089600, 4294967296)
    assert gpu.memory_errors.reads == (0, 0, 0, 0)
    assert gpu.processes is not None
    assert gpu.processes[0] == (3118, "modeler", 1099509760, 1399555264)
    assert gpu.pcie[:7] == (16, 16, 8, 8, 4, 4, "16.0 GT/s PCIe")
    assert gpu.pcie[7:] == (0, 0, 3, 0, "64-bit prefetch")
    assert (gpu.display_connected, gpu.dvfs_enabled, gpu.uuid) == (True, 0, "5e0a1c00")
    assert gpu.driver == ("1.4.0", "1.10", "1.10")
    assert (gpu.index, gpu.card, gpu.name, gpu.model) == (0, 0, "TALON-M1", "VEK M310")
    assert (gpu.bus_id, gpu.pci) == ("0000:03:00.0", (0, 3, 0, 0))
    for name, text in {"pwm1": "2000", "pwm1_min": "0", "pwm1_max": "5998"}.items():
        host.write(name, text)
    assert gpu.fan[4:] == (2000, 0, 5998)
    info = gpu.info
    assert (info.vendor, info.device_id, info.chip_type, info.cores) == ("VEK", 0x4A1F, "CHIP_TALON_A0", 4)
    assert (info.firmware_version, info.memory_vendor, info.memory_size) == ("v1.2.3", "Samsung", 8)
    assert (info.texture_fill_rate, info.video_decoding) == (128.0, "4K120")
    assert gpu.video_load.encoder_reserved == 60
    codec = {each.profile: each for each in gpu.codecs()}[CAN_DECODE]
    assert codec == (CAN_DECODE, True, True, ("yuv420",), ("yuv420",), ("cbr", "vbr", "cqp"))


# Each node, and what has no value without it.
MISSING = {
    "temp1_input": "temperature temperatures.current",
    "temp1_ctrl_mode": "temperatures.control",
    "temp1_highest": "temperatures.highest",
    "temp1_min": "temperatures.minimum",
    "temp1_max": "temperatures.maximum",
    "temp1_crit": "temperatures.critical",
    "vek_gddr_temp": "temperatures.memory",
    "vek_slowdown_temp": "thermal_limits.slowdown",
    "vek_shutdown_temp": "thermal_limits.shutdown",
    "vek_enable_thm_slowdown": "thermal_limits.slowdown_enabled",
    "vek_enable_thm_shutdown": "thermal_limits.shutdown_enabled",
    "fan1_input": "fan_speed fan.speed",
    "fan1_min": "fan.minimum",
    "fan1_max": "fan.maximum",
    "fan1_ctrl_mode": "fan.mode",
    "power1_average": "power.average",
    "vek_total_power": "power.total",
    "in0_input": "power.voltage",
    "curr1_input": "power.current",
    "vek_gfx_freq_mhz": "clocks.graphics",
    "vek_gddr_phys_freq_mhz": "clocks.memory",
    "vek_acpu_freq_mhz": "clocks.acpu",
    "vek_cmcu_freq_mhz": "clocks.cmcu",
    "vek_ndf_freq_mhz": "clocks.ndf",
    "vek_pcie_event": "pcie.event",
    "card/device/gddr_crc": "memory_errors.reads",
    "card/device/aer_dev_fatal": "pcie.fatal_first_digit",
    "card/vek_enable_dvfs": "dvfs_enabled",
}
ALL_MISSING = " ".join(MISSING.values()).split()


@pytest.mark.parametrize("fault", ["removed", "a directory", "empty", "malformed"])
def test_what_is_not_there_is_none(host: Host, gpu: Gpu, fault: str) -> None:
    """Nothing else goes with it either: each number that is there is told."""
    before = {each: operator.attrgetter(each)(gpu) for each in ALL_MISSING}
    assert None not in before.values()
    for name, lacking in MISSING.items():
        node = host.node(name)
        kept = node.read_bytes()
        host.remove(name)
        if fault == "a directory":
            node.mkdir()
        elif fault != "removed":
            host.write(name, "" if fault == "empty" else "hot")
        now = {each: operator.attrgetter(each)(gpu) for each in ALL_MISSING}
        assert now == {**before, **dict.fromkeys(lacking.split())}, name
        if node.exists():
            host.remove(name)
        node.write_bytes(kept)


def test_sensors_that_the_driver_denies_are_none(host: Host) -> None:
    facts = host.card("device/gpu_static_info").read_text().split()
    facts[13:16] = "000"
    host.write("card/device/gpu_static_info", " ".join(facts))
    with vekgpu_ml.session() as gpus:
        assert (gpus[0].fan_speed, gpus[0].temperature, gpus[0].power.average) == (None, None, None)
        assert (gpus[1].fan_speed, gpus[1].temperature, gpus[1].power.average) == (2400, 48, 21)


def test_lists_and_sizes_that_are_not_there(host: Host, gpu: Gpu) -> None:
    host.user(1000)
    for name in ("gpu_mem_util_info", "gpu_util_info"):
        host.remove(f"card/device/{name}")
    for request in (host.tree / "host/requests/card0").iterdir():
        request.write_text("errno 16\n")
    assert (gpu.memory.used, gpu.load.gpu, gpu.processes) == (None, None, None)
    host.write("card/device/gpu_mem_util_info", "hot")
    assert gpu.processes is None
    host.write("card/device/gpu_mem_util_info", "5 100")
    assert gpu.memory == (95, 5, 100, None, None, None)
    for connector in ("HDMI-A-1", "DP-1"):
        host.card(f"card0-{connector}/status").unlink()
    assert gpu.display_connected is None


def test_texts_with_any_bytes(host: Host) -> None:
    host.card("vek_product_name").write_bytes(b" TAL\xffON\xc3\n")
    host.hwmon("vek_chip_id").write_bytes("ä\x1b[1m".encode() + b"\xe2\x82\n")
    (host.tree / "proc/3118/status").write_bytes(b"Name:\tmod\xfeeler\n")
    with vekgpu_ml.session() as gpus:
        assert gpus[0].name == "TAL\ufffdON\ufffd"
        assert gpus[0].uuid == "ä\x1b[1m\ufffd"
        assert gpus[0].processes is not None and gpus[0].processes[0].name == "mod\ufffdeler"


@pytest.mark.parametrize(
    "setter, value, node, text, refused",
    [
        ("set_fan_speed", 61, "fan1_target", "61", [-1, 101]),
        ("set_fan_mode", 0, "fan1_ctrl_mode", "0", [-1, 2]),
        ("set_minimum_temperature", -5, "temp1_min", "-5", [-1000, 10000]),
        ("set_maximum_temperature", 85, "temp1_max", "85", [-1000, 10000]),
        ("set_critical_temperature", 9999, "temp1_crit", "9999", [-1000, 10000]),
        ("set_temperature_control", 0, "temp1_ctrl_mode", "0", [-1, 2]),
        ("set_slowdown_temperature", 80, "vek_slowdown_temp", "80", [-1000, 10000]),
        ("set_shutdown_temperature", 90, "vek_shutdown_temp", "90", [-1000, 10000]),
        ("set_slowdown_enabled", False, "vek_enable_thm_slowdown", "0", [-1, 2]),
        ("set_shutdown_enabled", False, "vek_enable_thm_shutdown", "0", [-1, 2]),
        ("set_dvfs_enabled", False, "card/vek_enable_dvfs", "0", [-1, 2]),
        ("set_power_cap", 150, "power1_cap", "150", [0, 20000]),
        ("set_voltage", 850, "in0_input", "850", [0, 100000000]),
        ("set_graphics_clock", 900, "vek_gfx_freq_mhz", "900000000", [0, 925, 1550]),
        ("set_fan_pwm", 3000, "pwm1", "3000", [1949, 5999]),
    ],
)
def test_setters(host: Host, gpu: Gpu, setter: str, value: int, node: str, text: str, refused: Any) -> None:
    if node == "pwm1":  # the node makes it a board with a PWM fan
        host.write(node, "2000")
    call: Callable[[Any], None] = getattr(gpu, setter)
    call(value)
    assert host.node(node).read_text().strip() == text
    for wrong in refused:
        with pytest.raises(vekgpu_ml.InvalidArgumentError, match=f"not {wrong}$") as caught:
            call(wrong)
        assert caught.value.code == 2 and isinstance(caught.value, ValueError)
    with pytest.raises(TypeError):
        call("1")
    assert host.node(node).read_text().strip() == text
    host.remove(node)
    host.node(node).symlink_to("/dev/full")
    with pytest.raises(vekgpu_ml.NodeIoError) as failed:
        call(value)
    assert failed.value.call.startswith("vekml_device_set_")
    host.user(1000)
    with pytest.raises(vekgpu_ml.NoPermissionError, match="Permission denied!"):
        call(value)


def test_an_exception_for_each_result(host: Host, gpu: Gpu) -> None:
    codes = {name: value for name, value in vars(raw).items() if name.startswith("VEKML_ERROR_")}
    kinds: Dict[int, Type[vekgpu_ml.VekgpuError]] = {}
    for code in codes.values():
        with pytest.raises(vekgpu_ml.VekgpuError) as caught:
            vekgpu_ml.check(code, "a_call")
        kinds[code] = type(caught.value)
        again = pickle.loads(pickle.dumps(caught.value))
        assert (type(again), again.code, again.call, str(again)) == (kinds[code], code, "a_call", str(caught.value))
    assert len({*kinds.values(), vekgpu_ml.VekgpuError}) == len(codes) + 1
    vekgpu_ml.check(0, "a_call")
    with pytest.raises(vekgpu_ml.InsufficientSizeError):
        vekgpu_ml.check(raw.vekml_device_get_name(gpu.handle, create_string_buffer(3), 3), "vekml_device_get_name")
    host.remove("fan1_ctrl_mode")
    with pytest.raises(vekgpu_ml.UnknownError, match="get ctrl mode info failed") as unknown:
        gpu.set_fan_speed(50)
    assert (unknown.value.code, unknown.value.call) == (999, "vekml_device_set_fan1_speed")
    (host.tree / "dev/dri/card0").unlink()
    with pytest.raises(vekgpu_ml.NotFoundError):
        gpu.codecs()
