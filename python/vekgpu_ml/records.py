# SPDX-License-Identifier: Apache-2.0
"""What a GPU's properties hold: small frozen records. A field is None where there is no value.

Units are those that the kernel driver is taken to use; where none is given, the number is the driver's own.
"""
from __future__ import annotations

from typing import NamedTuple, Optional, Tuple


class PciAddress(NamedTuple):
    """Where a GPU sits on the PCI bus."""

    domain: int
    bus: int
    device: int
    function: int


class Temperatures(NamedTuple):
    """Temperatures and their limits.

    current: the GPU now, °C
    highest: the GPU's highest so far, °C
    memory: the memory now, °C
    minimum: lower limit, °C
    maximum: upper limit, °C
    critical: critical limit, °C
    control: control mode: 0 off, 1 on
    """

    current: Optional[int]
    highest: Optional[int]
    memory: Optional[int]
    minimum: Optional[int]
    maximum: Optional[int]
    critical: Optional[int]
    control: Optional[int]


class ThermalLimits(NamedTuple):
    """Where the GPU protects itself.

    slowdown: temperature that slows it down, °C
    shutdown: temperature that shuts it down, °C
    slowdown_enabled: switch of the first protection: 0 off, 1 on
    shutdown_enabled: switch of the second protection: 0 off, 1 on
    """

    slowdown: Optional[int]
    shutdown: Optional[int]
    slowdown_enabled: Optional[int]
    shutdown_enabled: Optional[int]


class Fan(NamedTuple):
    """The fan.

    speed: speed now, RPM
    minimum: lowest speed, RPM
    maximum: highest speed, RPM
    mode: who controls it: 0 the firmware, 1 the host
    pwm: PWM value now; only a board with a PWM fan has it, and the two below
    pwm_minimum: lowest PWM value
    pwm_maximum: highest PWM value
    """

    speed: Optional[int]
    minimum: Optional[int]
    maximum: Optional[int]
    mode: Optional[int]
    pwm: Optional[int]
    pwm_minimum: Optional[int]
    pwm_maximum: Optional[int]


class Power(NamedTuple):
    """Electrical readings.

    average: average power of the GPU, W
    total: power of the whole board, W
    voltage: core voltage, mV
    current: current, mA
    """

    average: Optional[int]
    total: Optional[int]
    voltage: Optional[int]
    current: Optional[int]


class Clocks(NamedTuple):
    """Clocks now, MHz each."""

    graphics: Optional[int]
    memory: Optional[int]
    acpu: Optional[int]
    cmcu: Optional[int]
    ndf: Optional[int]


class Load(NamedTuple):
    """How busy the GPU is, whole percent each.

    gpu: the whole GPU
    tdm, geom, three_d, cdm: its data masters TDM, GEOM, 3D and CDM
    """

    gpu: Optional[int]
    tdm: Optional[int]
    geom: Optional[int]
    three_d: Optional[int]
    cdm: Optional[int]


class Memory(NamedTuple):
    """Memory, bytes each.

    used, free, total: the GPU's own memory
    system_used, system_free, system_total: the system memory that the driver manages
    """

    used: Optional[int]
    free: Optional[int]
    total: Optional[int]
    system_used: Optional[int]
    system_free: Optional[int]
    system_total: Optional[int]


class MemoryErrors(NamedTuple):
    """CRC errors of the memory interface: in each field, one count for each memory device."""

    writes: Optional[Tuple[int, ...]]
    reads: Optional[Tuple[int, ...]]
    write_retries: Optional[Tuple[int, ...]]
    read_retries: Optional[Tuple[int, ...]]


class Process(NamedTuple):
    """A process that holds GPU memory.

    pid: process id
    name: name
    memory: the GPU's own memory that it holds, bytes
    memory_total: all memory that it holds through the driver, bytes
    """

    pid: int
    name: Optional[str]
    memory: int
    memory_total: int


class Pcie(NamedTuple):
    """The PCIe link, as it was when the session started unless said otherwise, and its errors.

    speed, maximum_speed: link speed and the highest that there can be, whole GT/s
    width, maximum_width: link width and the highest that there can be, lanes
    generation, maximum_generation: PCIe generations of the speeds
    link: link speed now, in the kernel's words
    corrected_first_digit, nonfatal_first_digit, fatal_first_digit: first digit of each total of errors
    event: the driver's event word
    memory_bar: type of the memory BAR
    """

    speed: Optional[int]
    maximum_speed: Optional[int]
    width: Optional[int]
    maximum_width: Optional[int]
    generation: Optional[int]
    maximum_generation: Optional[int]
    link: Optional[str]
    corrected_first_digit: Optional[int]
    nonfatal_first_digit: Optional[int]
    fatal_first_digit: Optional[int]
    event: Optional[int]
    memory_bar: Optional[str]


class VideoLoad(NamedTuple):
    """Load of the video engines, commands per second each, measured since it was read before."""

    encoder_executed: Optional[int]
    encoder_reserved: Optional[int]
    decoder_executed: Optional[int]
    decoder_reserved: Optional[int]


class Codec(NamedTuple):
    """What the video engines make of one profile.

    profile: its name, for example "hevc main", or the like
    decoded, encoded: what can be done
    decoder_formats, encoder_formats: image formats that come out of the decoder, or go into the encoder
    rate_controls: the encoder's methods of bit-rate control
    """

    profile: str
    decoded: bool
    encoded: bool
    decoder_formats: Tuple[str, ...]
    encoder_formats: Tuple[str, ...]
    rate_controls: Tuple[str, ...]


class DriverVersion(NamedTuple):
    """Versions of the driver: its development kit, its kernel-mode and its user-mode part."""

    ddk: Optional[str]
    kmd: Optional[str]
    umd: Optional[str]


class Info(NamedTuple):
    """What a GPU is.

    vendor: board vendor
    device_id, vendor_id, subsystem_device_id, subsystem_vendor_id: PCI ids
    chip_type, chip_process: type, and process in nm
    card_type: display or compute card
    cores: number of GPU cores
    memory_devices, memory_width: number of memory devices, and width of their bus in bits
    memory_size: GiB
    memory_speed: driver's unit
    graphics_clock_maximum: highest graphics clock of the model, MHz
    graphics_clock_default: driver's unit
    texture_fill_rate, pixel_fill_rate: gigatexels and gigapixels per second
    video_decoding, video_encoding: what the model can do, for example "4K60"
    """

    vendor: Optional[str]
    device_id: Optional[int]
    vendor_id: Optional[int]
    subsystem_device_id: Optional[int]
    subsystem_vendor_id: Optional[int]
    chip_type: Optional[str]
    chip_process: Optional[int]
    card_type: Optional[str]
    cores: Optional[int]
    firmware_version: Optional[str]
    vbios_version: Optional[str]
    primary_id: Optional[str]
    primary_core_id: Optional[str]
    memory_type: Optional[str]
    memory_vendor: Optional[str]
    memory_devices: Optional[int]
    memory_size: Optional[int]
    memory_speed: Optional[int]
    memory_width: Optional[int]
    graphics_clock_maximum: Optional[int]
    graphics_clock_default: Optional[int]
    texture_fill_rate: Optional[float]
    pixel_fill_rate: Optional[float]
    video_decoding: Optional[str]
    video_encoding: Optional[str]
