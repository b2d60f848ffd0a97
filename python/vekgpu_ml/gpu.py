# SPDX-License-Identifier: Apache-2.0
"""One GPU: what it is, what it reads, what can be set."""
from __future__ import annotations

import operator
import os
from ctypes import Array, Structure, byref, c_char, c_float, c_int32, c_uint32, c_uint64, memset, sizeof
from threading import RLock
from typing import TYPE_CHECKING, Any, Iterable, List, Optional, Tuple, TypeVar

from . import raw
from ._library import Function
from ._output import run
from .errors import NodeIoError, VekgpuError
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

if TYPE_CHECKING:
    from ._session import Session

_Text = c_char * 64
_NONE_SAID = ("", "N/A", "unknown", "UNKOWN")
_FASTEST = 10_000_000  # commands per second that a video engine could do; a counter that was reset gives more

# The library wants these calls one at a time: they change the process' environment, or what it keeps of a GPU.
_one_at_a_time = RLock()


def text_of(field: bytes) -> Optional[str]:
    """A text of the driver without the blanks around it; None when it says nothing."""
    text = field.decode("utf-8", "replace").strip()
    return None if text in _NONE_SAID else text


def _holds_number(path: str) -> bool:
    """Whether a node holds a number. The library stores 0 for one that does not."""
    return _beginning(path).lstrip(b" \t\n-")[:1].isdigit()


def _beginning(path: str) -> bytes:
    try:
        node = os.open(path, os.O_RDONLY | os.O_CLOEXEC | os.O_NOCTTY)
        try:
            return os.read(node, 16)
        finally:
            os.close(node)
    except OSError:
        return b""


def _signed(number: int) -> int:
    """A 32-bit number that the driver prints signed and the library hands out unsigned."""
    return number - (1 << 32) if number >> 31 else number


class Gpu:
    """One GPU of a session, and good for as long as that lasts.

    A property reads the GPU anew each time, and is None, or holds None, where there is no value; it raises nothing
    but SessionError, LibraryUnavailableError and FunctionMissingError. A method raises the exception of the library's
    result. The attributes index, card, name, model, bus_id and pci are read once, when the session starts.
    """

    __slots__ = {
        "index": "position among the session's GPUs",
        "card": "DRM card number",
        "name": "product name",
        "model": "model name",
        "bus_id": "PCI address as text",
        "pci": "PCI address in numbers",
        "_session": "",
        "_handle": "",
        "_facts": "",
        "_card_path": "",
        "_hwmon_path": "",
    }

    index: int
    card: int
    name: Optional[str]
    model: Optional[str]
    bus_id: Optional[str]
    pci: PciAddress

    def __init__(self, session: Session, index: int, handle: Any) -> None:
        record = handle.contents
        model = _Text()
        run(raw.vekml_device_get_device_model, handle, model, len(model))
        self.index = index
        self.card = record.card_index
        self.name = text_of(record.name)
        self.model = text_of(model.value)
        self.bus_id = text_of(record.dbdf)
        self.pci = PciAddress(record.domain, record.bus, record.device, record.function)
        self._session = session
        self._handle = handle
        self._facts: Optional[raw.vekml_device_query_t] = None
        self._card_path = os.fsdecode(record.card_path)
        self._hwmon_path = os.fsdecode(record.hwmon_path)

    def __repr__(self) -> str:
        return f"<Gpu {self.index}: {self.model} at {self.bus_id}>"

    # ---- what everything below is made of

    @property
    def handle(self) -> Any:
        """The handle, for calls of vekgpu_ml.raw."""
        self._session.expect_open()
        return self._handle

    def _run(self, function: Function, *arguments: Any) -> Tuple[int, str]:
        session = self._session
        if session.over:
            session.expect_open()
        return run(function, self._handle, *arguments)

    def _do(self, function: Function, *arguments: Any) -> None:
        """A call whose result must be 0."""
        result, printed = self._run(function, *arguments)
        if result != 0:
            raise VekgpuError.of_result(result, function.__name__, printed)

    def _answers(self, node: str) -> bool:
        return bool(self._hwmon_path) and _holds_number(f"{self._hwmon_path}/{node}")

    def _card_answers(self, node: str) -> bool:
        return _holds_number(f"{self._card_path}/{node}")

    def _number(self, function: Function) -> int:
        number = c_uint32()
        self._run(function, byref(number))
        return number.value

    def _sensor(self, function: Function, node: str) -> Optional[int]:
        """A number that the getter stores whether or not its node can be read: only of a 0 that has to be found out."""
        number = self._number(function)
        return _signed(number) if number or self._answers(node) else None

    def _vouched(self, readings: Iterable[Tuple[int, str]]) -> List[Optional[int]]:
        """Numbers of a getter for which a node that cannot be read repeats the number of the one before."""
        vouched: List[Optional[int]] = []
        previous = 0
        for number, node in readings:
            is_own = number not in (0, previous) or self._answers(node)
            vouched.append(number if is_own else None)
            previous = number
        return vouched

    def _known(self, function: Function, kind: Any = c_uint32) -> Any:
        """A number that is never 0, where the getter's result vouches for it."""
        number = kind()
        result, _ = self._run(function, byref(number))
        return number.value or None if result == 0 else None

    def _text(self, function: Function) -> Optional[str]:
        text = _Text()
        result, _ = self._run(function, text)
        return text_of(text.value) if result == 0 else None

    def _static(self) -> Optional[raw.vekml_device_query_t]:
        """The record's static half; asked for again for as long as the driver does not have it."""
        if self._facts is None:
            record = raw.vekml_device_query_t()
            if self._run(raw.vekml_device_query_static_info, byref(record))[0] == 0:
                self._facts = record
        return self._facts

    def _lacks(self, what: str) -> bool:
        """Whether the driver says that there is no such sensor. A record that names no device says nothing."""
        facts = self._facts or self._static()
        return facts is not None and facts.device_id != 0 and getattr(facts, what) <= 0

    # ---- what it is

    @property
    def uuid(self) -> Optional[str]:
        """UUID: the chip id."""
        with _one_at_a_time:
            return self._text(raw.vekml_device_get_uuid)

    @property
    def info(self) -> Info:
        """Everything about the GPU that does not change."""
        facts = self._static() or raw.vekml_device_query_t()
        record = self._handle.contents
        decoding, encoding = _Text(), _Text()
        self._run(raw.vekml_device_get_video_decoder_encoder, decoding, encoding)
        return Info(
            vendor=text_of(facts.vendor) or self._text(raw.vekml_device_get_vendor),
            device_id=self._pci_id(record.device_id, "device"),
            vendor_id=self._pci_id(record.vendor_id, "vendor"),
            subsystem_device_id=self._pci_id(record.subsystem_device_id, "subsystem_device"),
            subsystem_vendor_id=self._pci_id(record.subsystem_vendor_id, "subsystem_vendor"),
            chip_type=text_of(facts.asic_type) or self._chip_type(),
            chip_process=self._known(raw.vekml_device_get_chip_process),
            card_type=text_of(facts.card_type),
            cores=self._known(raw.vekml_device_get_num_gpu_cores),
            firmware_version=text_of(facts.fw_ver) or self._text(raw.vekml_device_get_fw_ver),
            vbios_version=text_of(facts.vbios_version) or self._text(raw.vekml_device_get_vbios_version),
            primary_id=self._text(raw.vekml_device_get_primary_id),
            primary_core_id=self._text(raw.vekml_device_get_primary_core_id),
            memory_type=self._memory_type(),
            memory_vendor=self._text(raw.vekml_device_get_gddr_vendor),
            memory_devices=self._known(raw.vekml_device_get_gddr_count) or facts.gddr_count or None,
            memory_size=facts.gddr_size or self._known(raw.vekml_device_get_gddr_size),
            memory_speed=facts.gddr_speed or self._known(raw.vekml_device_get_gddr_speed, c_uint64),
            memory_width=self._known(raw.vekml_device_get_gddr_width),
            graphics_clock_maximum=self._known(raw.vekml_device_get_gfx_clock_max),
            graphics_clock_default=facts.gpu_default_freq or None,
            texture_fill_rate=self._fill_rate(raw.vekml_device_get_texture_fill_rate),
            pixel_fill_rate=self._fill_rate(raw.vekml_device_get_pixel_fill_rate),
            video_decoding=text_of(decoding.value),
            video_encoding=text_of(encoding.value),
        )

    def _pci_id(self, number: int, node: str) -> Optional[int]:
        return number if number or self._card_answers(f"device/{node}") else None

    def _chip_type(self) -> Optional[str]:
        kind = c_uint32(raw.VEKML_ASIC_TYPES)
        result, _ = self._run(raw.vekml_device_get_asic_type, byref(kind))
        if result != 0 or kind.value >= raw.VEKML_ASIC_TYPES:
            return None
        return text_of(raw.asic_types.value[kind.value])

    def _memory_type(self) -> Optional[str]:
        text = _Text()
        self._run(raw.vekml_device_get_gddr_type, text, len(text))
        return text_of(text.value)

    def _fill_rate(self, function: Function) -> Optional[float]:
        rate: Optional[float] = self._known(function, c_float)
        return None if rate is None else round(rate, 1)

    @property
    def driver(self) -> DriverVersion:
        """Versions of the driver."""
        versions = raw.vekml_driver_version_t()
        if self._run(raw.vekml_device_get_driver_version, byref(versions))[0] != 0:
            return DriverVersion(None, None, None)
        return DriverVersion(text_of(versions.ddk), text_of(versions.kmd), text_of(versions.umd))

    # ---- what it reads

    @property
    def temperature(self) -> Optional[int]:
        """Temperature now, °C."""
        if self._lacks("support_temp_info"):
            return None
        now = raw.temper_info()
        self._run(raw.vekml_device_get_temper_info, byref(now))
        return now.temp_input if now.temp_input or self._answers("temp1_input") else None

    @property
    def temperatures(self) -> Temperatures:
        """All temperatures and their limits, °C."""
        now = raw.temper_info()
        self._run(raw.vekml_device_get_temper_info, byref(now))
        current, control, highest, minimum, maximum, critical, memory = self._vouched(
            (
                (now.temp_input, "temp1_input"),
                (now.ctrl_mode, "temp1_ctrl_mode"),
                (now.temp_highest, "temp1_highest"),
                (now.temp_min, "temp1_min"),
                (now.temp_max, "temp1_max"),
                (now.temp_crit, "temp1_crit"),
                (now.gddr_temp, "vek_gddr_temp"),
            )
        )
        if self._lacks("support_temp_info"):
            current = highest = memory = None
        return Temperatures(current, highest, memory, minimum, maximum, critical, control)

    @property
    def thermal_limits(self) -> ThermalLimits:
        """Where the GPU protects itself, °C."""
        return ThermalLimits(
            self._thermal_limit("vek_temp_slowdown", raw.temp_slowdown_type, "vek_slowdown_temp"),
            self._thermal_limit("vek_temp_shutdown", raw.temp_shutdown_type, "vek_shutdown_temp"),
            self._thermal_limit("vek_enable_thm_slowdown", raw.enable_thm_slowdown_type, "vek_enable_thm_slowdown"),
            self._thermal_limit("vek_enable_thm_shutdown", raw.enable_thm_shutdown_type, "vek_enable_thm_shutdown"),
        )

    def _thermal_limit(self, field: str, kind: int, node: str) -> Optional[int]:
        limits = raw.thermal()
        if self._run(raw.vekml_device_get_thermal, byref(limits), kind)[0] != 0:
            return None
        limit: int = getattr(limits, field)
        return limit if limit or self._answers(node) else None

    @property
    def fan_speed(self) -> Optional[int]:
        """Speed of the fan, RPM."""
        if self._lacks("support_fan_info"):
            return None
        return self._sensor(raw.vekml_device_get_fan_speed, "fan1_input")

    @property
    def fan(self) -> Fan:
        """Everything about the fan; speeds in RPM."""
        if self._lacks("support_fan_info"):
            return Fan(None, None, None, None, None, None, None)
        minimum, maximum = c_uint32(), c_uint32()
        self._run(raw.vekml_device_get_min_max_fan_speed, byref(minimum), byref(maximum))
        pwm = self._sensor(raw.vekml_device_get_fan_pwm, "pwm1")
        return Fan(
            self._sensor(raw.vekml_device_get_fan_speed, "fan1_input"),
            _signed(minimum.value) if minimum.value or self._answers("fan1_min") else None,
            _signed(maximum.value) if maximum.value or self._answers("fan1_max") else None,
            self._sensor(raw.vekml_device_get_fan_ctrl_mode, "fan1_ctrl_mode"),
            pwm,
            None if pwm is None else self._sensor(raw.vekml_device_get_pwm_min, "pwm1_min"),
            None if pwm is None else self._sensor(raw.vekml_device_get_pwm_max, "pwm1_max"),
        )

    @property
    def power(self) -> Power:
        """Power in W, voltage in mV, current in mA."""
        if self._lacks("support_power_info"):
            return Power(None, None, None, None)
        now = raw.power_info()
        self._run(raw.vekml_device_get_power_info, byref(now))
        voltage, current, average = self._vouched(
            (
                (now.voltage, "in0_input"),
                (now.current, "curr1_input"),
                (now.power_average, "power1_average"),
            )
        )
        # The library gives a thousand times the driver's number, or the average's where that cannot be read.
        repeated = c_int32(now.power_average * 1000).value
        has_total = now.total_power not in (0, repeated) or self._answers("vek_total_power")
        return Power(average, now.total_power // 1000 if has_total else None, voltage, current)

    @property
    def clocks(self) -> Clocks:
        """Clocks, MHz."""
        now = raw.clock_info()
        self._run(raw.vekml_device_get_clock, byref(now))
        return Clocks(
            now.gfx_clk if now.gfx_clk or self._answers("vek_gfx_freq_mhz") else None,
            now.gddr_phys_clk if now.gddr_phys_clk or self._answers("vek_gddr_phys_freq_mhz") else None,
            now.acpu_clk if now.acpu_clk or self._answers("vek_acpu_freq_mhz") else None,
            now.cmcu_clk if now.cmcu_clk or self._answers("vek_cmcu_freq_mhz") else None,
            now.ndf_clk if now.ndf_clk or self._answers("vek_ndf_freq_mhz") else None,
        )

    @property
    def load(self) -> Load:
        """How busy the GPU is, percent."""
        now = raw.vekml_util_info_t()
        if self._run(raw.vekml_device_get_util_info, byref(now))[0] != 0:
            return Load(None, None, None, None, None)
        return Load(now.gpu, now.tdm, now.geom, now.thrd, now.cdm)

    @property
    def memory(self) -> Memory:
        """Memory, bytes."""
        now = _unset(raw.vekml_mem_info_t())
        if self._run(raw.vekml_device_get_mem_info, byref(now))[0] != 0:
            return Memory(None, None, None, None, None, None)
        return Memory(
            *_sizes(now.fb_used, now.fb_free, now.fb_total), *_sizes(now.sys_used, now.sys_free, now.sys_total)
        )

    @property
    def memory_errors(self) -> MemoryErrors:
        """CRC errors of the memory interface."""
        now = _unset(raw.vekml_gddr_crc_t())
        if self._run(raw.vekml_device_get_gddr_crc, byref(now))[0] != 0 or now.crc_support != 1:
            return MemoryErrors(None, None, None, None)
        counts = (now.crc_write_cnt, now.crc_read_cnt, now.crc_write_retry_cnt, now.crc_read_retry_cnt)
        return MemoryErrors(*map(_counts, counts))

    @property
    def processes(self) -> Optional[Tuple[Process, ...]]:
        """The processes that hold most GPU memory, at most 5, largest first; None where that cannot be found out."""
        now = raw.vekml_process_info_t()
        if self._run(raw.vekml_device_get_process_info, byref(now))[0] != 0:
            return None
        if now.process_num == 0:
            # A node that is there and cannot be read gives an empty list as well.
            node = "device/gpu_mem_util_info"
            unread = os.path.lexists(f"{self._card_path}/{node}") and not self._card_answers(node)
            return None if unread else ()
        return tuple(
            Process(each.pid, text_of(name.value), each.mem_lma, each.mem_total)
            for each, name in zip(now.process[: now.process_num], now.process_name)
        )

    @property
    def pcie(self) -> Pcie:
        """The PCIe link and its errors."""
        record = self.handle.contents
        event = raw.vekml_pcie_event_t()
        self._run(raw.vekml_device_get_pcie_event, byref(event))
        return Pcie(
            speed=record.curr_link_speed or None,
            maximum_speed=record.max_link_speed or None,
            width=record.curr_link_width or None,
            maximum_width=record.max_link_width or None,
            generation=record.curr_link_generation or None,
            maximum_generation=record.max_link_generation or None,
            link=self._text(raw.vekml_device_get_pcie_throughput),
            corrected_first_digit=self._error_digit(raw.vekml_device_get_pcie_err_corr),
            nonfatal_first_digit=self._error_digit(raw.vekml_device_get_pcie_err_nonfatal),
            fatal_first_digit=self._error_digit(raw.vekml_device_get_pcie_err_fatal),
            event=event.event if event.event or self._answers("vek_pcie_event") else None,
            memory_bar=self._text(raw.vekml_device_get_pcie_mmbar_type),
        )

    def _error_digit(self, function: Function) -> Optional[int]:
        digit = _Text()
        result, _ = run(function, self._card_path.encode(), digit)
        return int(digit.value) if result == 0 and digit.value.isdigit() else None

    @property
    def display_connected(self) -> Optional[bool]:
        """Whether a monitor is connected."""
        if self._number(raw.vekml_device_get_display_status) == 1:
            return True
        # These are the connectors that the library looks at, whatever the card's number.
        connectors = ("card0-HDMI-A-1/status", "card0-DP-1/status")
        return False if any(_beginning(f"{self._card_path}/{each}") for each in connectors) else None

    @property
    def dvfs_enabled(self) -> Optional[int]:
        """Switch of DVFS: 0 off, 1 on."""
        now = raw.dvfs_t()
        if self._run(raw.vekml_device_get_dvfs_info, byref(now))[0] != 0:
            return None
        return now.vek_enable_dvfs if now.vek_enable_dvfs or self._card_answers("vek_enable_dvfs") else None

    @property
    def video_load(self) -> VideoLoad:
        """Load of the video engines since it was last read, or since the session started, commands per second."""
        rates = [c_uint32() for _ in range(4)]
        with _one_at_a_time:
            result, _ = self._run(raw.vekml_device_get_vpu_utlz, *map(byref, rates))
        if result != 0:
            return VideoLoad(None, None, None, None)
        encoder_reserved, encoder_executed, decoder_reserved, decoder_executed = (rate.value for rate in rates)
        return VideoLoad(
            encoder_executed if encoder_executed <= _FASTEST else None,
            encoder_reserved,
            decoder_executed if decoder_executed <= _FASTEST else None,
            decoder_reserved,
        )

    def codecs(self) -> Tuple[Codec, ...]:
        """What the video engines can decode and encode.

        A method because it starts VA-API, which takes its time, and fails in more ways than by having no answer:
        NotSupportedError, NoPermissionError, NotFoundError, VideoLibraryNotFoundError, UnknownError. The first call
        for a GPU changes the process' environment while it runs; no other thread may touch that then.
        """
        info = raw.Vpu_codec_info_st()
        with _one_at_a_time:
            self._do(raw.vekml_device_get_vpu_info, byref(info))
        return tuple(
            Codec(
                profile=decoder.name.decode("utf-8", "replace").rpartition(" decoder")[0],
                decoded=decoder.supported == 1,
                encoded=encoder.supported == 1,
                decoder_formats=_supported(decoder.image_formats) if decoder.supported == 1 else (),
                encoder_formats=_supported(encoder.image_formats) if encoder.supported == 1 else (),
                rate_controls=_supported(encoder.rate_controls) if encoder.supported == 1 else (),
            )
            for decoder, encoder in zip(info.decoders, info.encoders)
            if 1 in (decoder.supported, encoder.supported)
        )

    # ---- what can be set: all of it takes root

    def set_fan_speed(self, percent: int) -> None:
        """Sets the fan's target speed, 0 to 100 percent. The host must control the fan: set_fan_mode(1)."""
        self._do(raw.vekml_device_set_fan1_speed, _accepted("vekml_device_set_fan1_speed", percent, 0, 100))

    def set_fan_pwm(self, value: int) -> None:
        """Sets the value of a PWM fan, 1950 to 5998."""
        self._do(raw.vekml_device_set_fan_pwm1, _accepted("vekml_device_set_fan_pwm1", value, 1950, 5998))

    def set_fan_mode(self, mode: int) -> None:
        """Has the firmware (0) or the host (1) control the fan."""
        self._do(raw.vekml_device_set_fan_ctrl_mode, _accepted("vekml_device_set_fan_ctrl_mode", mode, 0, 1))

    def set_minimum_temperature(self, degrees: int) -> None:
        """Sets the lower temperature limit, °C. Takes 7 seconds."""
        self._set_temperature("temp_min", raw.temper_min_type, degrees)

    def set_maximum_temperature(self, degrees: int) -> None:
        """Sets the upper temperature limit, °C. Takes 7 seconds."""
        self._set_temperature("temp_max", raw.temper_max_type, degrees)

    def set_critical_temperature(self, degrees: int) -> None:
        """Sets the critical temperature limit, °C. Takes 7 seconds."""
        self._set_temperature("temp_crit", raw.temper_crit_type, degrees)

    def set_temperature_control(self, mode: int) -> None:
        """Turns the temperature limits' control off (0) or on (1)."""
        self._set_temperature("ctrl_mode", raw.crtl_mode_type, mode, 0, 1)
        # The library reports this write as done whatever became of it.
        now = raw.temper_info()
        self._run(raw.vekml_device_get_temper, byref(now), raw.crtl_mode_type)
        if now.ctrl_mode != mode or not self._answers("temp1_ctrl_mode"):
            raise VekgpuError.of_result(raw.VEKML_ERROR_NODE_IO, "vekml_device_set_temper_info")

    def _set_temperature(self, field: str, kind: int, value: int, lowest: int = -999, highest: int = 9999) -> None:
        new = raw.temper_set()
        setattr(new, field, _accepted("vekml_device_set_temper_info", value, lowest, highest))
        self._do(raw.vekml_device_set_temper_info, byref(new), kind)

    def set_slowdown_temperature(self, degrees: int) -> None:
        """Sets the temperature that slows the GPU down, °C. Takes a second."""
        self._set_thermal("temp_slowdown", raw.temp_slowdown_type, degrees)

    def set_shutdown_temperature(self, degrees: int) -> None:
        """Sets the temperature that shuts the GPU down, °C. Takes a second."""
        self._set_thermal("temp_shutdown", raw.temp_shutdown_type, degrees)

    def set_slowdown_enabled(self, enabled: int) -> None:
        """Turns the slowdown protection off (0) or on (1). Takes a second."""
        self._set_thermal("enable_thm_slowdown", raw.enable_thm_slowdown_type, enabled, 0, 1)

    def set_shutdown_enabled(self, enabled: int) -> None:
        """Turns the shutdown protection off (0) or on (1). Takes a second."""
        self._set_thermal("enable_thm_shutdown", raw.enable_thm_shutdown_type, enabled, 0, 1)

    def _set_thermal(self, field: str, kind: int, value: int, lowest: int = -999, highest: int = 9999) -> None:
        new = raw.thm_set()
        setattr(new, field, _accepted("vekml_device_set_thermal_info", value, lowest, highest))
        self._do(raw.vekml_device_set_thermal_info, byref(new), kind)

    def set_dvfs_enabled(self, enabled: int) -> None:
        """Turns DVFS off (0) or on (1). Takes a second."""
        self._do(raw.vekml_device_set_dvfs_enable, _accepted("vekml_device_set_dvfs_enable", enabled, 0, 1))

    def set_power_cap(self, cap: int) -> None:
        """Sets the power cap, 1 to 19999 W."""
        self._do(raw.vekml_device_set_power_warn, _accepted("vekml_device_set_power_warn", cap, 1, 19999))

    def set_voltage(self, millivolts: int) -> None:
        """Sets the core voltage, mV. Takes half a second."""
        self._do(raw.vekml_device_set_power_volt, _accepted("vekml_device_set_power_volt", millivolts, 1, 99999999))

    def set_graphics_clock(self, megahertz: int) -> None:
        """Sets the graphics clock, 50 to 1500 MHz in steps of 50."""
        call = "vekml_device_set_gfx_clock"
        self._do(raw.vekml_device_set_gfx_clock, _accepted(call, megahertz, 50, 1500, 50) + b"000000")


def _accepted(call: str, value: int, lowest: int, highest: int, step: int = 1) -> bytes:
    """The text of a new value. The library passes over some that are out of range and reports success."""
    number = operator.index(value)
    if not lowest <= number <= highest or number % step != 0:
        steps = "" if step == 1 else f" in steps of {step}"
        wrong = f"it takes {lowest} to {highest}{steps}, not {number}"
        raise VekgpuError.of_result(raw.VEKML_ERROR_INVALID_ARGUMENT, call, wrong)
    return b"%d" % number


_Record = TypeVar("_Record", bound=Structure)


def _unset(record: _Record) -> _Record:
    """A record in which a number that a getter passes over keeps all its bits set: for those that pass over some."""
    memset(byref(record), 0xFF, sizeof(record))
    return record


def _sizes(used: int, free: int, total: int) -> Tuple[Optional[int], Optional[int], Optional[int]]:
    """Sizes of a memory; what is free may not exceed the total, from which what is used is reckoned."""
    if total in (0, (1 << 64) - 1):
        return None, None, None
    return (used, free, total) if free <= total else (None, None, total)


def _counts(numbers: Array[c_uint32]) -> Optional[Tuple[int, ...]]:
    counts = tuple(numbers)
    return None if (1 << 32) - 1 in counts else counts


def _supported(items: Array[raw.vpu_cap_item]) -> Tuple[str, ...]:
    return tuple(item.name.decode("utf-8", "replace") for item in items if item.supported == 1)
