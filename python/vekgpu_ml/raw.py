# SPDX-License-Identifier: Apache-2.0
# Written by generate_raw.py from vekml.h: change the header and run that.
"""Every record, constant, function and datum of vekml.h, as C has them.

Functions and data are looked up in the library when they are first used. One that the installed library lacks raises
FunctionMissingError then; so does, with LibraryUnavailableError, a library that is not there.

    >>> from ctypes import byref
    >>> from vekgpu_ml import raw
    >>> count = raw.c_uint32()
    >>> raw.vekml_init()
    0
    >>> raw.vekml_device_get_count(byref(count))
    0

Nothing is checked here: results are numbers (vekgpu_ml.check makes exceptions of them), null pointers crash where
the header says that they are not looked at, and what the library prints goes to standard output.
"""
from __future__ import annotations

from ctypes import POINTER, Array, Structure, c_char, c_char_p, c_float, c_int, c_int32, c_int64
from ctypes import c_uint8, c_uint32, c_uint64, c_void_p
from typing import Optional

from ._library import Data, Function

# ---- Result codes

vekml_return_t = c_int  # Result of every call. The numbering is sparse and fixed.
VEKML_SUCCESS = 0  # The call did what was asked.
# A handle or an output pointer is null, an index is out of range, or a buffer is too small for a lookup.
VEKML_ERROR_INVALID_ARGUMENT = 2
VEKML_ERROR_NOT_SUPPORTED = 3  # The driver reports the value as unavailable, or the video engines have nothing to tell.
# The caller's effective user id is not 0, a device file or setting may not be opened, or the driver refuses the static
# request.
VEKML_ERROR_NO_PERMISSION = 4
VEKML_ERROR_NOT_FOUND = 6  # A driver node is absent or unreadable, or an id or model is not in the identity tables.
VEKML_ERROR_INSUFFICIENT_SIZE = 7  # The caller's text buffer cannot hold the answer and its terminating NUL.
VEKML_ERROR_LIBRARY_NOT_FOUND = 12  # The video acceleration libraries cannot be loaded.
VEKML_ERROR_NO_DATA = 21  # No GPU matches a PCI bus id.
VEKML_ERROR_UNKNOWN = 999  # Anything else: a node that a call cannot do without, VA-API, memory.
# A driver node could not be read or written, a mapping could not be made or released, or a setting is refused: unknown
# type, value out of range, another kind of fan. All bits set.
VEKML_ERROR_NODE_IO = -1

# ---- Video codec capabilities

VEKML_VPU_PROFILES = 37  # Number of VA profiles the library knows: profile values 0 to 36.
VEKML_VPU_IMAGE_FORMATS = 15  # Number of image formats in every codec entry.
VEKML_VPU_RATE_CONTROLS = 12  # Number of bit-rate control methods in every encoder entry.


class vpu_cap_item(Structure):
    """One capability of a codec: an image format or a bit-rate control method."""

    name: bytes  # name of the capability, for example "yuv420" or "cbr"
    supported: int  # 1 when the codec offers it, else 0
    index: int  # its slot number

    _fields_ = [
        ("name", c_char * 64),
        ("supported", c_uint32),
        ("index", c_uint32),
    ]


class vpu_encoder_item(Structure):
    """One encoder."""

    name: bytes  # "PROFILE encoder"
    supported: int  # 1 when the VA driver confirms it
    profile: int  # VA profile value, 0 to 36
    image_formats: Array[vpu_cap_item]  # image formats it accepts
    rate_controls: Array[vpu_cap_item]  # bit-rate control methods it offers

    _fields_ = [
        ("name", c_char * 64),
        ("supported", c_uint32),
        ("profile", c_uint32),
        ("image_formats", vpu_cap_item * VEKML_VPU_IMAGE_FORMATS),
        ("rate_controls", vpu_cap_item * VEKML_VPU_RATE_CONTROLS),
    ]


class vpu_decoder_item(Structure):
    """One decoder."""

    name: bytes  # "PROFILE decoder"
    supported: int  # 1 when the VA driver confirms it
    profile: int  # VA profile value, 0 to 36
    image_formats: Array[vpu_cap_item]  # image formats it delivers

    _fields_ = [
        ("name", c_char * 64),
        ("supported", c_uint32),
        ("profile", c_uint32),
        ("image_formats", vpu_cap_item * VEKML_VPU_IMAGE_FORMATS),
    ]


class Vpu_codec_info_st(Structure):
    """Everything the video engines of one GPU can do. Over 100 KB: keep it off the stack."""

    vendor: bytes  # VA vendor string; "UNKOWN" as initialised
    valid: int  # 1 once the profiles have been queried
    encoders: Array[vpu_encoder_item]  # one per profile value, in value order
    decoders: Array[vpu_decoder_item]  # one per profile value, in value order

    _fields_ = [
        ("vendor", c_char * 64),
        ("valid", c_uint32),
        ("encoders", vpu_encoder_item * VEKML_VPU_PROFILES),
        ("decoders", vpu_decoder_item * VEKML_VPU_PROFILES),
    ]


# ---- The device table

# Capacity of the device table. vekml_init fills at most 15 entries, vekml_out_of_band_init all 16.
VEKML_MAX_DEVICES = 16


class vekml_device_record_t(Structure):
    """One GPU. Clients read it through the calls below; its layout is fixed all the same. `mapped_bar0` is the mapped
    32 MiB window of BAR0, which is device memory: read it with aligned loads of at most 32 bits, never with memcpy or
    the like.
    """

    card_path: bytes  # CARD
    hwmon_path: bytes  # HWMON; empty when there is none
    product_name_path: bytes  # CARD/vek_product_name
    dbdf_path: bytes  # CARD/vek_dbdf
    curr_link_speed_path: bytes  # CARD/device/current_link_speed
    curr_link_width_path: bytes  # CARD/device/current_link_width
    max_link_speed_path: bytes  # CARD/device/max_link_speed
    max_link_width_path: bytes  # CARD/device/max_link_width
    card_index: int  # card number N, the DRM minor of the primary node
    table_index: int  # position in the device table
    name: bytes  # text of CARD/vek_product_name
    dbdf: bytes  # PCI address, text of CARD/vek_dbdf, for example "0000:03:00.0"
    uuid: bytes  # HWMON/vek_chip_id as last read by vekml_device_get_uuid, 15 characters
    domain: int  # PCI domain
    bus: int  # PCI bus
    device: int  # PCI device (slot)
    function: int  # PCI function
    bdfid: int  # always 0
    curr_link_speed: int  # present link speed, leading integer of its node, GT/s
    curr_link_width: int  # present link width, lanes
    max_link_speed: int  # highest link speed, leading integer of its node, GT/s
    max_link_width: int  # highest link width, lanes
    curr_link_generation: int  # PCIe generation of the present speed: 3 for 8, 4 for 16, 5 for 1, else 0
    max_link_generation: int  # PCIe generation of the highest speed, likewise
    device_id: int  # PCI device id
    vendor_id: int  # PCI vendor id
    subsystem_device_id: int  # PCI subsystem device id
    subsystem_vendor_id: int  # PCI subsystem vendor id
    gpu_clock_mhz: int  # GPU clock from the firmware block, MHz; 0 when not known
    vendor_name: bytes  # board vendor from the firmware block
    vbios_version_text: bytes  # VBIOS version from the firmware block, "vX.Y.Z\n" in hexadecimal digits
    fw_version_text: bytes  # firmware version from the firmware block, "vX.Y.Z"
    fb_total: int  # memory size from the firmware block, MiB
    model: bytes  # model name; empty or "unknown" when not known
    model_device_id: int  # device id looked up from the model; 65535 when not known
    chip_process: int  # chip process looked up from the model; 12 when not known
    fw_word_0a0: int  # fan-support flag of the firmware block
    fw_word_09c: int  # power-support flag of the firmware block
    vpu_codec_info: Vpu_codec_info_st  # codec capabilities once queried (its `valid` is then 1)
    vpu_utlz_status: int  # result of the first video-engine sample
    last_enc_vcmd_num: int  # encoder commands executed at the previous sample
    last_dec_vcmd_num: int  # decoder commands executed at the previous sample
    last_sample_sec: int  # time of the previous sample, seconds since the epoch
    last_sample_usec: int  # and its microseconds
    mapped_bar0: Optional[int]  # window of BAR0 or null; device memory: aligned loads, 32 bits at most
    bar0_mapped: int  # 1 once `mapped_bar0` is valid, else 0

    _fields_ = [
        ("card_path", c_char * 128),
        ("hwmon_path", c_char * 128),
        ("product_name_path", c_char * 256),
        ("dbdf_path", c_char * 256),
        ("curr_link_speed_path", c_char * 256),
        ("curr_link_width_path", c_char * 256),
        ("max_link_speed_path", c_char * 256),
        ("max_link_width_path", c_char * 256),
        ("card_index", c_uint32),
        ("table_index", c_uint32),
        ("name", c_char * 64),
        ("dbdf", c_char * 64),
        ("uuid", c_char * 16),
        ("domain", c_uint64),
        ("bus", c_uint64),
        ("device", c_uint64),
        ("function", c_uint64),
        ("bdfid", c_uint64),
        ("curr_link_speed", c_uint32),
        ("curr_link_width", c_uint32),
        ("max_link_speed", c_uint32),
        ("max_link_width", c_uint32),
        ("curr_link_generation", c_uint32),
        ("max_link_generation", c_uint32),
        ("device_id", c_uint64),
        ("vendor_id", c_uint64),
        ("subsystem_device_id", c_uint64),
        ("subsystem_vendor_id", c_uint64),
        ("gpu_clock_mhz", c_uint32),
        ("vendor_name", c_char * 64),
        ("vbios_version_text", c_char * 64),
        ("fw_version_text", c_char * 64),
        ("fb_total", c_uint64),
        ("model", c_char * 64),
        ("model_device_id", c_uint32),
        ("chip_process", c_uint32),
        ("fw_word_0a0", c_uint32),
        ("fw_word_09c", c_uint32),
        ("vpu_codec_info", Vpu_codec_info_st),
        ("vpu_utlz_status", c_uint32),
        ("last_enc_vcmd_num", c_uint64),
        ("last_dec_vcmd_num", c_uint64),
        ("last_sample_sec", c_uint64),
        ("last_sample_usec", c_uint64),
        ("mapped_bar0", c_void_p),
        ("bar0_mapped", c_uint32),
    ]


class vekml_globals_t(Structure):
    """The library's whole state: all zero at load and after vekml_shutdown."""

    devices: Array[vekml_device_record_t]  # one entry per GPU found, from index 0 without gaps
    count: int  # number of entries in use

    _fields_ = [
        ("devices", vekml_device_record_t * VEKML_MAX_DEVICES),
        ("count", c_uint32),
    ]


globals = Data(
    "globals",
    """The one state record, for clients that read the table themselves; nobody but the library writes it. Its name is
    program-wide: a program or library that has a `globals` of its own, and does not keep it `static`, puts that in the
    place of this one, for the library too.
    """,
    vekml_globals_t,
)
# A GPU. Valid from vekml_init to vekml_shutdown; after that it points at a zeroed record.
vekml_device_t = POINTER(vekml_device_record_t)

# ---- Start and stop

vekml_init = Function(
    "vekml_init",
    """Find the GPUs under "/sys/class/drm" and fill the device table from the kernel driver's attributes. Needs no
    privileges and opens no device file. A second call runs discovery again over the same table.

    Returns VEKML_SUCCESS always; vekml_device_get_count tells the outcome. "Open failed, there's no such path" or "Read
    failed, no file node to read" on standard output when the directory is missing or empty.
    """,
    vekml_return_t,
)
vekml_init_card = Function(
    "vekml_init_card",
    """As vekml_init, for "/sys/class/drm/cardN" alone: the same steps, the video engines among them, and no other
    card's nodes are touched, so that a card whose driver hangs holds up nobody but its own process. Any N is tried,
    however many cards there are.

    card_index: N

    Returns VEKML_SUCCESS always. vekml_device_get_count then gives 1, with the GPU at index 0, or 0 when that card is
    missing or not a GPU of ours. Prints what vekml_init prints. Since version 1.1.
    """,
    vekml_return_t,
    card_index=c_uint32,
)
vekml_shutdown = Function(
    "vekml_shutdown",
    """Unmap every BAR0 window and clear the whole state. Harmless before vekml_init.

    Returns VEKML_SUCCESS, or VEKML_ERROR_NODE_IO when a window cannot be unmapped, with a line on standard error; the
    state then stays as it is.
    """,
    vekml_return_t,
)
vekml_out_of_band_init = Function(
    "vekml_out_of_band_init",
    """Start without the kernel driver: find the GPUs on the PCI bus and map each one's BAR0 through "/dev/mem". With
    the driver module loaded this is vekml_init. Mapping needs root. Another start without vekml_shutdown in between
    lists the same GPUs again, behind the first.

    Whether the module is loaded is asked of `lsmod`, by a shell with the caller's PATH: never call this from a set-
    user-id program.

    Returns VEKML_SUCCESS when the driver is loaded and vekml_init was run, 1 after an out-of-band start, whatever
    became of each GPU. A PCI bus that cannot be listed prints a line, a GPU what vekml_pci_out_of_band_manager prints.
    """,
    vekml_return_t,
)
vekml_pci_out_of_band_manager = Function(
    "vekml_pci_out_of_band_manager",
    """Map one GPU's BAR0 window and take a snapshot of its firmware information block into its device record. A GPU
    whose memory is switched off is enabled first. vekml_shutdown unmaps the window, whether or not the entry is in use.

    gpu_index: position in the device table

    dev: the GPU as libpciaccess lists it, probed

    Returns VEKML_SUCCESS; VEKML_ERROR_NO_PERMISSION without root; VEKML_ERROR_NODE_IO when "/dev/mem" cannot be opened,
    BAR0 is absent, not page-aligned, not memory or smaller than the window, the mapping fails, or, with nothing
    printed, `dev` is null or the index outside the table. Without root and for a BAR0 that is not page-aligned lines go
    to standard output, for the others to standard error.
    """,
    vekml_return_t,
    gpu_index=c_uint32,
    dev=c_void_p,
)

# ---- Enumeration and handles


class vekml_pci_info_t(Structure):
    """PCI address of one GPU."""

    domain: int  # PCI domain
    bus: int  # PCI bus
    device: int  # PCI device (slot)
    bdfid: int  # always 0
    function: int  # PCI function
    busId: bytes  # the address as text, for example "0000:03:00.0"

    _fields_ = [
        ("domain", c_uint64),
        ("bus", c_uint64),
        ("device", c_uint64),
        ("bdfid", c_uint64),
        ("function", c_uint64),
        ("busId", c_char * 64),
    ]


vekml_device_get_count = Function(
    "vekml_device_get_count",
    """Number of GPUs found.

    Returns VEKML_SUCCESS; VEKML_ERROR_INVALID_ARGUMENT when `count` is null.
    """,
    vekml_return_t,
    count=POINTER(c_uint32),
)
vekml_device_get_handle_by_index = Function(
    "vekml_device_get_handle_by_index",
    """Handle of the GPU at a position of the device table.

    Returns VEKML_SUCCESS; VEKML_ERROR_INVALID_ARGUMENT when `handle` is null or `index` is not below the count.
    """,
    vekml_return_t,
    index=c_uint32,
    handle=POINTER(vekml_device_t),
)
vekml_device_get_handle_by_pci_bus_id = Function(
    "vekml_device_get_handle_by_pci_bus_id",
    """Handle of the GPU at a PCI address. The comparison is numeric, so upper-case digits match too.

    pci_bus_id: 12 characters, for example "0000:03:00.0"

    Returns VEKML_SUCCESS; VEKML_ERROR_INVALID_ARGUMENT for a null argument; VEKML_ERROR_NO_DATA when no GPU matches,
    with a line on standard output.
    """,
    vekml_return_t,
    handle=POINTER(vekml_device_t),
    pci_bus_id=c_char_p,
)
vekml_device_get_name = Function(
    "vekml_device_get_name",
    """Product name, as CARD/vek_product_name held it at initialisation.

    length: capacity of `name`

    Returns VEKML_SUCCESS; VEKML_ERROR_INSUFFICIENT_SIZE when the name and its NUL do not fit, nothing is written then.
    Pointers are not checked.
    """,
    vekml_return_t,
    handle=vekml_device_t,
    name=POINTER(c_char),
    length=c_uint32,
)
vekml_device_get_minor_number = Function(
    "vekml_device_get_minor_number",
    """Card number N, the DRM minor of the primary node.

    Returns VEKML_SUCCESS. Pointers are not checked.
    """,
    vekml_return_t,
    handle=vekml_device_t,
    minor=POINTER(c_uint32),
)
vekml_device_get_card_index_by_handle = Function(
    "vekml_device_get_card_index_by_handle",
    """Card number N, as vekml_device_get_minor_number.

    Returns VEKML_SUCCESS; VEKML_ERROR_INVALID_ARGUMENT when either pointer is null.
    """,
    vekml_return_t,
    handle=vekml_device_t,
    index=POINTER(c_uint32),
)
vekml_device_get_pci_info = Function(
    "vekml_device_get_pci_info",
    """PCI address.

    Returns VEKML_SUCCESS; VEKML_ERROR_INVALID_ARGUMENT when either pointer is null.
    """,
    vekml_return_t,
    handle=vekml_device_t,
    pci=POINTER(vekml_pci_info_t),
)

# ---- Identity tables


class vekml_id_model_t(Structure):
    """What the library knows of one model beyond what the driver publishes."""

    device_id: int  # PCI device id, unique
    model: Optional[bytes]  # marketing model name, at most 12 characters, unique
    chip_process: int  # chip process, nm
    lower_bound: int  # lowest graphics clock that may be set, MHz
    upper_bound: int  # highest graphics clock that may be set, MHz
    gddr_width: int  # memory bus width, bits
    decoder: Optional[bytes]  # video decoding capability, for example "4K60"
    encoder: Optional[bytes]  # video encoding capability, for example "1080p60"

    _fields_ = [
        ("device_id", c_uint32),
        ("model", c_char_p),
        ("chip_process", c_uint32),
        ("lower_bound", c_uint32),
        ("upper_bound", c_uint32),
        ("gddr_width", c_uint32),
        ("decoder", c_char_p),
        ("encoder", c_char_p),
    ]


class vekml_board_t(Structure):
    """One board."""

    name: Optional[bytes]  # board name
    part_number: Optional[bytes]  # board part number
    config: Optional[bytes]  # core and memory layout, clocks, form factor
    vendor_id: int  # PCI vendor id
    device_id: int  # PCI device id; also a model's
    subsystem_vendor_id: int  # PCI subsystem vendor id, or 0
    subsystem_device_id: int  # PCI subsystem device id, or 0

    _fields_ = [
        ("name", c_char_p),
        ("part_number", c_char_p),
        ("config", c_char_p),
        ("vendor_id", c_uint32),
        ("device_id", c_uint32),
        ("subsystem_vendor_id", c_uint32),
        ("subsystem_device_id", c_uint32),
    ]


VEKML_ASIC_TYPES = 3  # Number of chip types, models and boards in the tables.
VEKML_MODELS = 53
VEKML_BOARDS = 11
asic_types = Data(
    "asic_types",
    """Chip type names, by the number that the driver gives.""",
    c_char_p * VEKML_ASIC_TYPES,
)
idModelArray = Data(
    "idModelArray",
    """Every model.""",
    vekml_id_model_t * VEKML_MODELS,
)
talonProductArr = Data(
    "talonProductArr",
    """Every board.""",
    vekml_board_t * VEKML_BOARDS,
)
device_id_to_model = Function(
    "device_id_to_model",
    """Model name of a device id, else "unknown". At most `size` - 1 characters are copied, and no terminator is written
    at `size` - 1: hand in a zeroed buffer.

    Returns VEKML_SUCCESS; VEKML_ERROR_INVALID_ARGUMENT when the id is known and `size` is below 8, nothing is written
    then; VEKML_ERROR_NOT_FOUND for an unknown id.
    """,
    vekml_return_t,
    device_id=c_uint32,
    model=POINTER(c_char),
    size=c_uint32,
)
device_id_to_model_with_size = Function(
    "device_id_to_model_with_size",
    """As device_id_to_model, for a buffer of any size.

    Returns VEKML_SUCCESS; VEKML_ERROR_NOT_FOUND for an unknown id.
    """,
    vekml_return_t,
    device_id=c_uint32,
    model=POINTER(c_char),
    size=c_uint32,
)
model_to_device_id_and_chip_process = Function(
    "model_to_device_id_and_chip_process",
    """Device id and chip process of a model name, compared exactly.

    Returns VEKML_SUCCESS; VEKML_ERROR_INVALID_ARGUMENT for a null argument; VEKML_ERROR_NOT_FOUND for an unknown name,
    the outputs are left alone then.
    """,
    vekml_return_t,
    model=c_char_p,
    device_id=POINTER(c_uint32),
    chip_process=POINTER(c_uint32),
)
device_id_to_chip_process = Function(
    "device_id_to_chip_process",
    """Chip process of a device id, nm.

    Returns VEKML_SUCCESS; VEKML_ERROR_INVALID_ARGUMENT for a null output; VEKML_ERROR_NOT_FOUND for an unknown id.
    """,
    vekml_return_t,
    device_id=c_uint32,
    chip_process=POINTER(c_uint32),
)
is_right_device_id = Function(
    "is_right_device_id",
    """Whether a device id is a model's.

    Returns VEKML_SUCCESS when it is, else VEKML_ERROR_NOT_FOUND.
    """,
    vekml_return_t,
    device_id=c_uint32,
)
vekml_device_id_to_gddr_width = Function(
    "vekml_device_id_to_gddr_width",
    """Memory bus width of a device id, bits.

    Returns VEKML_SUCCESS; VEKML_ERROR_NOT_FOUND for an unknown id, with 0 stored.
    """,
    vekml_return_t,
    device_id=c_uint32,
    gddr_width=POINTER(c_uint32),
)
vekml_device_id_to_gfx_bound = Function(
    "vekml_device_id_to_gfx_bound",
    """Graphics clock bounds of a device id, MHz.

    Returns VEKML_SUCCESS; VEKML_ERROR_NOT_FOUND for an unknown id, with 50 and 1000 stored: test the result, not the
    values.
    """,
    vekml_return_t,
    device_id=c_uint32,
    lower_bound=POINTER(c_uint32),
    upper_bound=POINTER(c_uint32),
)
device_id_to_video_decoder_encoder = Function(
    "device_id_to_video_decoder_encoder",
    """Video capability texts of a device id. Each buffer must hold at least 9 bytes.

    Returns VEKML_SUCCESS; VEKML_ERROR_NOT_FOUND for an unknown id, with "unknown" in both.
    """,
    vekml_return_t,
    device_id=c_uint32,
    decoder=POINTER(c_char),
    encoder=POINTER(c_char),
)
parse_device_model = Function(
    "parse_device_model",
    """Cut the model name out of the text of HWMON/vek_device_model: what stands before its last blank, or "unknown" for
    a text without the maker's word or without a blank. Copies at most `size` - 1 characters and terminates.
    """,
    None,
    text=c_char_p,
    model=POINTER(c_char),
    size=c_uint32,
)

# ---- Static information


class vekml_gpu_static_info_t(Structure):
    """The driver's static record, as its request delivers it and as CARD/device/gpu_static_info lists it."""

    asic_id: int  # chip type, an index of asic_types
    core_num: int  # number of GPU cores
    gddr_count: int  # number of memory devices
    gddr_size: int  # memory size
    gddr_speed: int  # memory speed
    gpu_primary_id: int  # primary id
    vendor: int  # board vendor: 0 the maker, 1 "BITLAND", 2 "GOODTIMES", else "OTHERS"
    chip_id: int  # chip identifier
    device_id: int  # PCI device id of the board
    card_type: int  # 0 display card, 1 compute card
    static_text: bytes  # driver text, NUL padded; delivered by the request only
    fw_version: int  # firmware version: major in bits 24-31, minor in 16-23, patch in 0-15
    vbios_version: int  # VBIOS version, packed likewise
    fan_ctrl_mode: int  # fan control mode
    support_fan_info: int  # 1 when fan information is available
    support_temp_info: int  # 1 when temperature information is available
    support_power_info: int  # 1 when power information is available
    reserved: int  # not used
    gpu_default_freq: int  # default GPU clock
    gddr_vendor: int  # memory maker: 0 "Samsung", 1 "Hynix", 2 "Micron"
    gddr_package_model: int  # memory package model code

    _fields_ = [
        ("asic_id", c_uint32),
        ("core_num", c_uint32),
        ("gddr_count", c_uint32),
        ("gddr_size", c_uint32),
        ("gddr_speed", c_uint64),
        ("gpu_primary_id", c_uint32),
        ("vendor", c_uint32),
        ("chip_id", c_uint32),
        ("device_id", c_uint32),
        ("card_type", c_uint32),
        ("static_text", c_char * 32),
        ("fw_version", c_uint32),
        ("vbios_version", c_uint32),
        ("fan_ctrl_mode", c_uint32),
        ("support_fan_info", c_uint32),
        ("support_temp_info", c_uint32),
        ("support_power_info", c_uint32),
        ("reserved", c_uint32),
        ("gpu_default_freq", c_uint64),
        ("gddr_vendor", c_uint32),
        ("gddr_package_model", c_uint32),
    ]


vekml_read_static_info_from_node = Function(
    "vekml_read_static_info_from_node",
    """Read CARD/device/gpu_static_info. Values that the text does not supply keep what the record held; `static_text`
    is not part of the node.

    card_path: CARD

    Returns VEKML_SUCCESS; VEKML_ERROR_NOT_FOUND when the node cannot be opened.
    """,
    vekml_return_t,
    card_path=c_char_p,
    info=POINTER(vekml_gpu_static_info_t),
)
vekml_device_get_gddr_size = Function(
    "vekml_device_get_gddr_size",
    """Memory size from HWMON/vek_gddr_size.

    Returns VEKML_SUCCESS, with 0 stored when unreadable; VEKML_ERROR_NODE_IO when the node is absent.
    """,
    vekml_return_t,
    device=vekml_device_t,
    size=POINTER(c_uint32),
)
vekml_device_get_gddr_speed = Function(
    "vekml_device_get_gddr_speed",
    """Memory speed from HWMON/vek_gddr_phys_speed, decimal or 0x-prefixed.

    Returns VEKML_SUCCESS, with 0 stored when unreadable; VEKML_ERROR_NODE_IO when the node is absent.
    """,
    vekml_return_t,
    device=vekml_device_t,
    speed=POINTER(c_uint64),
)
vekml_device_get_gddr_count = Function(
    "vekml_device_get_gddr_count",
    """Number of memory devices from HWMON/vek_gddr_count.

    Returns VEKML_SUCCESS, with 0 stored when unreadable.
    """,
    vekml_return_t,
    device=vekml_device_t,
    count=POINTER(c_uint32),
)
vekml_device_get_vendor = Function(
    "vekml_device_get_vendor",
    """Board vendor from HWMON/vek_vendor; `vendor` holds 64 bytes.

    Returns VEKML_SUCCESS, with an empty text when unreadable.
    """,
    vekml_return_t,
    device=vekml_device_t,
    vendor=POINTER(c_char),
)
vekml_device_get_fw_ver = Function(
    "vekml_device_get_fw_ver",
    """Firmware version from HWMON/vek_fw_ver; `fw_ver` holds 20 bytes.

    Returns VEKML_SUCCESS, empty text when unreadable.
    """,
    vekml_return_t,
    device=vekml_device_t,
    fw_ver=POINTER(c_char),
)
vekml_device_get_serial = Function(
    "vekml_device_get_serial",
    """Serial from HWMON/vek_chip_id; `serial` holds 20 bytes.

    Returns VEKML_SUCCESS, with an empty text when unreadable.
    """,
    vekml_return_t,
    device=vekml_device_t,
    serial=POINTER(c_char),
)
vekml_device_get_vbios_version = Function(
    "vekml_device_get_vbios_version",
    """VBIOS version from HWMON/vek_vbios; `vbios` holds 50 bytes.

    Returns VEKML_SUCCESS, with an empty text when unreadable.
    """,
    vekml_return_t,
    device=vekml_device_t,
    vbios=POINTER(c_char),
)
vekml_device_get_product_name = Function(
    "vekml_device_get_product_name",
    """Product name from vek_product_name in a directory; `name` holds 16 bytes.

    dir: a directory, usually CARD

    Returns VEKML_SUCCESS, with an empty text when unreadable.
    """,
    vekml_return_t,
    dir=c_char_p,
    name=POINTER(c_char),
)
vekml_device_get_uuid = Function(
    "vekml_device_get_uuid",
    """UUID from HWMON/vek_chip_id, also kept in the device record; `uuid` holds 20 bytes.

    Returns VEKML_SUCCESS; VEKML_ERROR_INVALID_ARGUMENT for a null argument; VEKML_ERROR_NOT_FOUND when the node is
    unreadable.
    """,
    vekml_return_t,
    device=vekml_device_t,
    uuid=POINTER(c_char),
)
vekml_device_get_asic_type = Function(
    "vekml_device_get_asic_type",
    """Chip type number from the last word of HWMON/vek_device_model; 2 for an empty text. Compare it with
    VEKML_ASIC_TYPES before it serves as an index of asic_types: the driver's number is not checked.

    Returns VEKML_SUCCESS; VEKML_ERROR_NODE_IO when the node is unreadable, nothing is written then.
    """,
    vekml_return_t,
    device=vekml_device_t,
    arch_type=POINTER(c_uint32),
)
vekml_device_get_gddr_type = Function(
    "vekml_device_get_gddr_type",
    """Memory type, the text "GDDR6". It is not read from the device.

    size: capacity of `gddr_type`; the text takes 6 bytes, and a size of 5 is let pass

    Returns VEKML_SUCCESS; VEKML_ERROR_INVALID_ARGUMENT for a null argument; VEKML_ERROR_INSUFFICIENT_SIZE when `size`
    is below 5.
    """,
    vekml_return_t,
    device=vekml_device_t,
    gddr_type=POINTER(c_char),
    size=c_uint32,
)
vekml_device_get_gddr_vendor = Function(
    "vekml_device_get_gddr_vendor",
    """Memory maker from CARD/device/gpu_static_info: "Samsung", "Hynix", "Micron" or "unknown"; `vendor` holds 8 bytes.

    Returns VEKML_SUCCESS; VEKML_ERROR_INVALID_ARGUMENT for a null argument; VEKML_ERROR_NOT_FOUND when the node cannot
    be opened, with "unknown" stored.
    """,
    vekml_return_t,
    device=vekml_device_t,
    vendor=POINTER(c_char),
)
vekml_device_get_device_id = Function(
    "vekml_device_get_device_id",
    """PCI device id.

    Returns VEKML_SUCCESS; VEKML_ERROR_INVALID_ARGUMENT for a null argument.
    """,
    vekml_return_t,
    device=vekml_device_t,
    device_id=POINTER(c_uint32),
)
vekml_device_get_gddr_width = Function(
    "vekml_device_get_gddr_width",
    """Memory bus width from the identity tables, bits.

    Returns VEKML_SUCCESS; VEKML_ERROR_INVALID_ARGUMENT for a null argument; VEKML_ERROR_NOT_FOUND for an unknown board,
    with 0 stored.
    """,
    vekml_return_t,
    device=vekml_device_t,
    width=POINTER(c_uint32),
)
vekml_device_get_gfx_clock_max = Function(
    "vekml_device_get_gfx_clock_max",
    """Highest graphics clock from the identity tables, MHz.

    Returns VEKML_SUCCESS; VEKML_ERROR_INVALID_ARGUMENT for a null argument; VEKML_ERROR_NOT_FOUND for an unknown board,
    with 0 stored and a line on standard output.
    """,
    vekml_return_t,
    device=vekml_device_t,
    gfx_max=POINTER(c_uint32),
)
vekml_device_get_num_gpu_cores = Function(
    "vekml_device_get_num_gpu_cores",
    """Number of GPU cores from CARD/device/gpu_static_info.

    Returns VEKML_SUCCESS; VEKML_ERROR_INVALID_ARGUMENT for a null argument; VEKML_ERROR_NOT_FOUND when the node cannot
    be opened, with 0 stored.
    """,
    vekml_return_t,
    device=vekml_device_t,
    cores=POINTER(c_uint32),
)
vekml_device_get_texture_fill_rate = Function(
    "vekml_device_get_texture_fill_rate",
    """Texture fill rate, cores x 32 x highest graphics clock, gigatexels per second.

    Returns VEKML_SUCCESS; VEKML_ERROR_INVALID_ARGUMENT for a null argument; VEKML_ERROR_NOT_FOUND when the core count
    or the clock is not to be had, with 0.0 stored.
    """,
    vekml_return_t,
    device=vekml_device_t,
    rate=POINTER(c_float),
)
vekml_device_get_pixel_fill_rate = Function(
    "vekml_device_get_pixel_fill_rate",
    """Pixel fill rate, cores x 16 x highest graphics clock, gigapixels per second. Results as the texture fill rate.
    """,
    vekml_return_t,
    device=vekml_device_t,
    rate=POINTER(c_float),
)
vekml_device_get_video_decoder_encoder = Function(
    "vekml_device_get_video_decoder_encoder",
    """Video capability texts from the identity tables; each buffer holds at least 9 bytes.

    Returns VEKML_SUCCESS; VEKML_ERROR_INVALID_ARGUMENT for a null argument; VEKML_ERROR_NODE_IO for an unknown board,
    with "unknown" in both.
    """,
    vekml_return_t,
    device=vekml_device_t,
    decoder=POINTER(c_char),
    encoder=POINTER(c_char),
)
vekml_device_get_chip_process = Function(
    "vekml_device_get_chip_process",
    """Chip process of the model, nm; from the model found at initialisation, else from HWMON/vek_device_model.

    Returns VEKML_SUCCESS; VEKML_ERROR_INVALID_ARGUMENT for a null argument; VEKML_ERROR_NOT_FOUND when the node is
    unreadable or the model unknown.
    """,
    vekml_return_t,
    device=vekml_device_t,
    chip_process=POINTER(c_uint32),
)
vekml_device_get_device_model = Function(
    "vekml_device_get_device_model",
    """Model name: of the model found at initialisation, else of the PCI device id, else "unknown". At most `size` - 1
    characters are copied, without a terminator at `size` - 1: hand in a zeroed buffer of 8 bytes or more, as nothing is
    copied into a smaller one when the PCI device id tells.

    Returns VEKML_SUCCESS; VEKML_ERROR_INVALID_ARGUMENT for a null argument.
    """,
    vekml_return_t,
    device=vekml_device_t,
    model=POINTER(c_char),
    size=c_uint32,
)
vekml_device_get_primary_id = Function(
    "vekml_device_get_primary_id",
    """Primary id from HWMON/vek_gpu_primary_id; `dst` holds 20 bytes.

    Returns VEKML_SUCCESS, empty text when unreadable.
    """,
    vekml_return_t,
    device=vekml_device_t,
    dst=POINTER(c_char),
)
vekml_device_get_primary_core_id = Function(
    "vekml_device_get_primary_core_id",
    """Primary core id from HWMON/vek_gpu_primary_core_id; `dst` holds 20 bytes.

    Returns VEKML_SUCCESS, empty when unreadable.
    """,
    vekml_return_t,
    device=vekml_device_t,
    dst=POINTER(c_char),
)

# ---- Driver versions


class vekml_driver_version_t(Structure):
    """Versions of the software stack."""

    ddk: bytes  # driver development kit, "X.Y.Z"
    kmd: bytes  # kernel-mode driver, "X.Y"
    umd: bytes  # user-mode driver, "X.Y"

    _fields_ = [
        ("ddk", c_char * 20),
        ("kmd", c_char * 20),
        ("umd", c_char * 20),
    ]


vekml_device_get_driver_version = Function(
    "vekml_device_get_driver_version",
    """Versions from CARD/version or, where that node does not exist, from the first MiB of the first GPU's debugfs
    dump. Read from the dump, `kmd` holds the dump's "UM info" and `umd` its "KM info".

    Returns VEKML_SUCCESS, with "N/A" for what the dump lacks; VEKML_ERROR_NO_PERMISSION when the dump is needed and the
    caller is not root, with "N/A" in all three; VEKML_ERROR_NODE_IO when the dump cannot be opened or read, the record
    is left alone then.
    """,
    vekml_return_t,
    device=vekml_device_t,
    version=POINTER(vekml_driver_version_t),
)
vekml_device_get_driver_release_version = Function(
    "vekml_device_get_driver_release_version",
    """Version of the installed driver package, from the Debian package list; without the packaging revision. The list
    is asked of `dpkg`, by a shell with the caller's PATH: never call this from a set-user-id program.

    version: a buffer of at least `size` + 1 bytes; left alone when no package is installed or its version is longer
    than `size`

    size: length of the longest text to store, its terminator not counted: a version of exactly this length is stored
    with its terminator in the byte behind

    Returns VEKML_SUCCESS; VEKML_ERROR_INVALID_ARGUMENT for a null buffer.
    """,
    vekml_return_t,
    version=POINTER(c_char),
    size=c_uint32,
)

# ---- PCIe, memory errors, display


class vekml_pcie_event_t(Structure):
    """The driver's PCIe event word."""

    event: int  # the raw word of HWMON/vek_pcie_event
    flags: Array[c_uint8]  # flags[i] is 1 when bit i of the word is set

    _fields_ = [
        ("event", c_uint32),
        ("flags", c_uint8 * 6),
    ]


class vekml_gddr_crc_t(Structure):
    """CRC error counters of the memory interface, index = memory device 0 to 3."""

    crc_support: int  # 1 when their node could be opened
    crc_write_cnt: Array[c_uint32]  # write errors
    crc_read_cnt: Array[c_uint32]  # read errors
    crc_write_retry_cnt: Array[c_uint32]  # write retries
    crc_read_retry_cnt: Array[c_uint32]  # read retries

    _fields_ = [
        ("crc_support", c_uint32),
        ("crc_write_cnt", c_uint32 * 4),
        ("crc_read_cnt", c_uint32 * 4),
        ("crc_write_retry_cnt", c_uint32 * 4),
        ("crc_read_retry_cnt", c_uint32 * 4),
    ]


vekml_device_get_pcie_speed = Function(
    "vekml_device_get_pcie_speed",
    """Present link speed, GT/s, as initialisation found it.

    Returns VEKML_SUCCESS; VEKML_ERROR_INVALID_ARGUMENT when `handle` is null.
    """,
    vekml_return_t,
    handle=vekml_device_t,
    speed=POINTER(c_uint32),
)
vekml_device_get_curr_pcie_link_width = Function(
    "vekml_device_get_curr_pcie_link_width",
    """Present link width, lanes, as initialisation found it.

    Returns VEKML_SUCCESS; VEKML_ERROR_INVALID_ARGUMENT when `handle` is null.
    """,
    vekml_return_t,
    handle=vekml_device_t,
    width=POINTER(c_uint32),
)
vekml_device_get_pcie_link_max_speed = Function(
    "vekml_device_get_pcie_link_max_speed",
    """Highest link speed, GT/s.

    Returns VEKML_SUCCESS; VEKML_ERROR_INVALID_ARGUMENT when `handle` is null.
    """,
    vekml_return_t,
    handle=vekml_device_t,
    speed=POINTER(c_uint32),
)
vekml_device_get_max_pcie_link_width = Function(
    "vekml_device_get_max_pcie_link_width",
    """Highest link width, lanes.

    Returns VEKML_SUCCESS; VEKML_ERROR_INVALID_ARGUMENT when `handle` is null.
    """,
    vekml_return_t,
    handle=vekml_device_t,
    width=POINTER(c_uint32),
)
vekml_device_get_curr_pcie_link_generation = Function(
    "vekml_device_get_curr_pcie_link_generation",
    """PCIe generation of the present speed: 3 for 8 GT/s, 4 for 16, 5 for 1, else 0.

    Returns VEKML_SUCCESS; VEKML_ERROR_INVALID_ARGUMENT without a handle.
    """,
    vekml_return_t,
    handle=vekml_device_t,
    generation=POINTER(c_uint32),
)
vekml_device_get_max_pcie_link_generation = Function(
    "vekml_device_get_max_pcie_link_generation",
    """PCIe generation of the highest link speed, likewise.

    Returns VEKML_SUCCESS; VEKML_ERROR_INVALID_ARGUMENT when `handle` is null.
    """,
    vekml_return_t,
    handle=vekml_device_t,
    generation=POINTER(c_uint32),
)
vekml_device_get_pcie_throughput = Function(
    "vekml_device_get_pcie_throughput",
    """Present link speed text from CARD/device/current_link_speed, for example "16.0 GT/s PCIe"; `dst` holds 20 bytes.
    It is the link's speed, not a measured throughput.

    Returns VEKML_SUCCESS, with an empty text when unreadable.
    """,
    vekml_return_t,
    device=vekml_device_t,
    dst=POINTER(c_char),
)
vekml_device_get_pcie_event = Function(
    "vekml_device_get_pcie_event",
    """PCIe event word from HWMON/vek_pcie_event.

    Returns VEKML_SUCCESS, with 0 stored when unreadable.
    """,
    vekml_return_t,
    device=vekml_device_t,
    event=POINTER(vekml_pcie_event_t),
)
vekml_device_get_pcie_mmbar_type = Function(
    "vekml_device_get_pcie_mmbar_type",
    """Memory-BAR type from HWMON/vek_pcie_mmbar_type; `type` holds 20 bytes.

    Returns VEKML_SUCCESS; VEKML_ERROR_NODE_IO when unreadable.
    """,
    vekml_return_t,
    device=vekml_device_t,
    type=POINTER(c_char),
)
vekml_device_get_pcie_err_nonfatal = Function(
    "vekml_device_get_pcie_err_nonfatal",
    """First digit of the total of non-fatal errors in CARD/device/aer_dev_nonfatal, stored as one character without a
    terminator.

    card_path: CARD

    count: 4 bytes

    Returns VEKML_SUCCESS; VEKML_ERROR_NODE_IO when the file is unreadable, with "N/A" stored, or lacks its total.
    """,
    vekml_return_t,
    card_path=c_char_p,
    count=POINTER(c_char),
)
vekml_device_get_pcie_err_fatal = Function(
    "vekml_device_get_pcie_err_fatal",
    """Fatal errors, from CARD/device/aer_dev_fatal; otherwise as vekml_device_get_pcie_err_nonfatal.""",
    vekml_return_t,
    card_path=c_char_p,
    count=POINTER(c_char),
)
vekml_device_get_pcie_err_corr = Function(
    "vekml_device_get_pcie_err_corr",
    """Corrected errors, from CARD/device/aer_dev_correctable; otherwise as vekml_device_get_pcie_err_nonfatal.""",
    vekml_return_t,
    card_path=c_char_p,
    count=POINTER(c_char),
)
vekml_device_get_gddr_crc = Function(
    "vekml_device_get_gddr_crc",
    """Memory CRC counters from CARD/device/gddr_crc. Counters of a line that is missing keep what the record held.

    Returns VEKML_SUCCESS; VEKML_ERROR_INVALID_ARGUMENT for a null argument; VEKML_ERROR_NOT_FOUND when the node cannot
    be opened.
    """,
    vekml_return_t,
    device=vekml_device_t,
    crc=POINTER(vekml_gddr_crc_t),
)
vekml_device_get_display_status = Function(
    "vekml_device_get_display_status",
    """Whether a monitor is connected to the HDMI or DisplayPort connector: 1 or 0. The connectors are those that CARD
    lists under the names of card 0.

    Returns VEKML_SUCCESS; an unreadable connector counts as not connected.
    """,
    vekml_return_t,
    device=vekml_device_t,
    connected=POINTER(c_uint32),
)

# ---- Utilisation, memory, processes


class vekml_util_info_t(Structure):
    """How busy a GPU is, whole percentages."""

    gpu: int  # the whole GPU
    tdm: int  # data master 1 (TDM)
    geom: int  # data master 2 (GEOM)
    thrd: int  # data master 3 (3D)
    cdm: int  # data master 4 (CDM)

    _fields_ = [
        ("gpu", c_uint32),
        ("tdm", c_uint32),
        ("geom", c_uint32),
        ("thrd", c_uint32),
        ("cdm", c_uint32),
    ]


class vekml_util_counters_t(Structure):
    """The driver's busy counters over its own measuring period; only their ratios carry meaning."""

    bValid: int  # 1 when the counters are valid
    GpuStatActive: int  # whole GPU, active time
    GpuStatBlocked: int  # whole GPU, blocked time
    GpuStatIdle: int  # whole GPU, idle time
    GpuStatCumulative: int  # whole GPU, the measuring period
    DMOSStatActive: Array[c_uint64]  # data masters 0 to 8, active time
    DMOSStatBlocked: Array[c_uint64]  # data masters 0 to 8, blocked time
    DMOSStatIdle: Array[c_uint64]  # data masters 0 to 8, idle time
    DMOSStatCumulative: Array[c_uint64]  # data masters 0 to 8, the measuring period

    _fields_ = [
        ("bValid", c_uint64),
        ("GpuStatActive", c_uint64),
        ("GpuStatBlocked", c_uint64),
        ("GpuStatIdle", c_uint64),
        ("GpuStatCumulative", c_uint64),
        ("DMOSStatActive", c_uint64 * 9),
        ("DMOSStatBlocked", c_uint64 * 9),
        ("DMOSStatIdle", c_uint64 * 9),
        ("DMOSStatCumulative", c_uint64 * 9),
    ]


class vekml_mem_info_t(Structure):
    """Memory of one GPU, in the driver's unit."""

    fb_free: int  # local memory, free
    fb_total: int  # local memory, total
    fb_used: int  # local memory, total less free
    sys_free: int  # system memory that the driver manages, free
    sys_total: int  # system memory that the driver manages, total
    sys_used: int  # system memory, total less free

    _fields_ = [
        ("fb_free", c_uint64),
        ("fb_total", c_uint64),
        ("fb_used", c_uint64),
        ("sys_free", c_uint64),
        ("sys_total", c_uint64),
        ("sys_used", c_uint64),
    ]


VEKML_PROCESSES = 5  # Number of processes a list holds, and size of a process name.
VEKML_PROCESS_NAME = 30


class vekml_process_t(Structure):
    """Memory of one process, in the driver's unit."""

    pid: int  # process id
    mem_lma: int  # local GPU memory ("MemoryUsageAllocGPUMemLMA")
    mem_total: int  # all memory ("MemoryUsageTotal")

    _fields_ = [
        ("pid", c_uint64),
        ("mem_lma", c_int64),
        ("mem_total", c_int64),
    ]


class vekml_process_info_t(Structure):
    """The processes that hold most local memory, largest first."""

    process_num: int  # number of entries filled, 0 to 5
    process: Array[vekml_process_t]  # the processes
    process_name: Array[Array[c_char]]  # their names, same order

    _fields_ = [
        ("process_num", c_uint64),
        ("process", vekml_process_t * VEKML_PROCESSES),
        ("process_name", (c_char * VEKML_PROCESS_NAME) * VEKML_PROCESSES),
    ]


VEKML_PROCESS_STATISTICS = 23  # Number of labels of the driver's per-process statistics.
meminfo = Data(
    "meminfo",
    """Labels of the driver's per-process statistics: "PID", then one for each counter; under two names.""",
    c_char_p * VEKML_PROCESS_STATISTICS,
)
process_mem_info = Data(
    "process_mem_info",
    """""",
    c_char_p * VEKML_PROCESS_STATISTICS,
)
vekml_device_get_util_info = Function(
    "vekml_device_get_util_info",
    """Utilisation, from the counters of CARD/device/gpu_util_info, else of the driver's request, else from the debugfs
    file "/sys/kernel/debug/vekgpu/status". Pointers are not checked.

    Returns VEKML_SUCCESS; VEKML_ERROR_NO_PERMISSION when only debugfs is left and the caller is not root;
    VEKML_ERROR_NODE_IO when that file cannot be opened or read; VEKML_ERROR_NOT_FOUND when it lacks the percentages.
    All fields are 0 after a failure.
    """,
    vekml_return_t,
    device=vekml_device_t,
    util=POINTER(vekml_util_info_t),
)
vekml_device_get_mem_info = Function(
    "vekml_device_get_mem_info",
    """Memory, from CARD/device/gpu_mem_util_info, else from the first MiB of the GPU's debugfs dump. Pointers are not
    checked. Numbers that a short node lacks keep what the record held.

    Returns VEKML_SUCCESS; VEKML_ERROR_NO_PERMISSION when debugfs is needed and the caller is not root, with the record
    zeroed; VEKML_ERROR_NODE_IO when the dump cannot be opened or read, the record is left alone then.
    """,
    vekml_return_t,
    device=vekml_device_t,
    memory=POINTER(vekml_mem_info_t),
)
vekml_device_get_process_info = Function(
    "vekml_device_get_process_info",
    """The processes that hold local memory, from CARD/device/gpu_mem_util_info, else from the driver's request; names
    from "/proc/PID/status", whose slot stays as it was when that file tells none. Pointers are not checked.

    Returns VEKML_SUCCESS, also when there is none; VEKML_ERROR_NODE_IO when the card node or a process's status file
    cannot be opened, or the request fails.
    """,
    vekml_return_t,
    device=vekml_device_t,
    info=POINTER(vekml_process_info_t),
)

# ---- The whole record in one call


class vekml_device_query_t(Structure):
    """Everything about one GPU. Keep one record per GPU, zeroed at first, and hand it to vekml_device_query_two_parts
    once per refresh. Fields that a path does not write stay as they were. Texts that vekml_device_query takes from
    nodes are cut to their fields, and empty when unreadable.
    """

    display_status: int  # 1 when a monitor is connected (vekml_device_get_display_status)
    clock: Array[c_uint32]  # memory, graphics, ACPU, CMCU, NDF clock, MHz; third and fifth on the fallback path only
    name: bytes  # product name; out of band the board vendor
    vendor: bytes  # board vendor
    uuid: bytes  # chip id, hexadecimal digits; vekml_device_query: HWMON/vek_chip_id
    vbios_version: bytes  # "vX.Y.Z" or "N/A"; vekml_device_query: HWMON/vek_vbios; out of band "vX.Y.Z\n"
    serial: bytes  # HWMON/vek_chip_id (vekml_device_query only)
    minor_number: int  # card number
    fan_speed: int  # HWMON/fan1_input
    fan_ctrl_mode: int  # fan control mode
    primary_id: bytes  # primary id; vekml_device_query: HWMON/vek_gpu_primary_id
    primary_core_id: bytes  # HWMON/vek_gpu_primary_core_id
    asic_type: bytes  # chip type; empty when not known
    core: int  # number of GPU cores
    pcie_mmbar_type: bytes  # HWMON/vek_pcie_mmbar_type
    card_type: bytes  # "Display Card" or "Compute Card"; empty for another kind
    fw_ver: bytes  # "vX.Y.Z" or "N/A"; vekml_device_query: HWMON/vek_fw_ver
    gddr_count: int  # number of memory devices
    gddr_speed: int  # memory speed
    gddr_size: int  # memory size
    gddr_width: int  # memory bus width, bits
    gddr_type: bytes  # "GDDR6"
    gddr_package_model: int  # memory package model code; from the node only
    pcie_err_corr: bytes  # first digit of the corrected-error total, "N/A" or empty
    pcie_err_fatal: bytes  # likewise of the fatal errors
    pcie_err_nonfatal: bytes  # likewise of the non-fatal errors
    temperature: Array[c_uint64]  # control mode, current, highest (vekml_device_get_temper_info)
    curr_pcie_link_width: int  # lanes
    max_pcie_link_width: int  # lanes
    pcie_speed: int  # GT/s
    pcie_link_max_speed: int  # GT/s
    curr_pcie_link_generation: int  # as the device record has it
    max_pcie_link_generation: int  # likewise
    pci_ids: Array[c_uint32]  # device, vendor, subsystem device, subsystem vendor id
    pcie_event: Array[c_uint32]  # event word, then its six flags
    pci_info: Array[c_uint64]  # domain, bus, device, and 0; out of band the fourth is the function
    pci_bus_id: bytes  # PCI address
    memory: vekml_mem_info_t  # memory; out of band the total is in MiB
    util_state: vekml_util_counters_t  # busy counters (fallback path and vekml_device_query only)
    pronum: int  # number of processes, 0 to 5
    process: Array[vekml_process_t]  # the processes
    process_name: Array[Array[c_char]]  # their names
    device_id: int  # PCI device id of the board
    power_state: int  # HWMON/in0_input, the voltage
    support_fan_info: int  # above 0 when fan information is available
    power: Array[c_float]  # current, average power, total power (vekml_device_get_power_info)
    chip_model: bytes  # model name
    support_power_info: int  # above 0 when power information is available
    support_temp_info: int  # above 0 when temperature information is available
    static_text: bytes  # driver text (request only)
    gpu_default_freq: int  # default GPU clock
    util: vekml_util_info_t  # utilisation, percent
    crc_support: int  # 1 once the memory CRC counters could be read
    crc_write_cnt: Array[c_uint32]  # CRC write errors per memory device
    crc_read_cnt: Array[c_uint32]  # CRC read errors
    crc_write_retry_cnt: Array[c_uint32]  # CRC write retries
    crc_read_retry_cnt: Array[c_uint32]  # CRC read retries
    static_valid: int  # 1 once the static fields have been filled

    _fields_ = [
        ("display_status", c_uint32),
        ("clock", c_uint32 * 5),
        ("name", c_char * 64),
        ("vendor", c_char * 20),
        ("uuid", c_char * 10),
        ("vbios_version", c_char * 20),
        ("serial", c_char * 10),
        ("minor_number", c_uint32),
        ("fan_speed", c_uint32),
        ("fan_ctrl_mode", c_int32),
        ("primary_id", c_char * 10),
        ("primary_core_id", c_char * 10),
        ("asic_type", c_char * 20),
        ("core", c_uint32),
        ("pcie_mmbar_type", c_char * 20),
        ("card_type", c_char * 20),
        ("fw_ver", c_char * 10),
        ("gddr_count", c_uint32),
        ("gddr_speed", c_uint64),
        ("gddr_size", c_uint32),
        ("gddr_width", c_uint32),
        ("gddr_type", c_char * 10),
        ("gddr_package_model", c_uint32),
        ("pcie_err_corr", c_char * 10),
        ("pcie_err_fatal", c_char * 10),
        ("pcie_err_nonfatal", c_char * 10),
        ("temperature", c_uint64 * 3),
        ("curr_pcie_link_width", c_uint32),
        ("max_pcie_link_width", c_uint32),
        ("pcie_speed", c_uint32),
        ("pcie_link_max_speed", c_uint32),
        ("curr_pcie_link_generation", c_uint32),
        ("max_pcie_link_generation", c_uint32),
        ("pci_ids", c_uint32 * 4),
        ("pcie_event", c_uint32 * 7),
        ("pci_info", c_uint64 * 4),
        ("pci_bus_id", c_char * 64),
        ("memory", vekml_mem_info_t),
        ("util_state", vekml_util_counters_t),
        ("pronum", c_uint64),
        ("process", vekml_process_t * VEKML_PROCESSES),
        ("process_name", (c_char * VEKML_PROCESS_NAME) * VEKML_PROCESSES),
        ("device_id", c_uint64),
        ("power_state", c_uint32),
        ("support_fan_info", c_int32),
        ("power", c_float * 3),
        ("chip_model", c_char * 64),
        ("support_power_info", c_uint32),
        ("support_temp_info", c_int32),
        ("static_text", c_char * 32),
        ("gpu_default_freq", c_uint64),
        ("util", vekml_util_info_t),
        ("crc_support", c_uint32),
        ("crc_write_cnt", c_uint32 * 4),
        ("crc_read_cnt", c_uint32 * 4),
        ("crc_write_retry_cnt", c_uint32 * 4),
        ("crc_read_retry_cnt", c_uint32 * 4),
        ("static_valid", c_uint32),
    ]


vekml_device_query_static_info = Function(
    "vekml_device_query_static_info",
    """Fill the static fields of the record: from CARD/device/gpu_static_info, else from the first, else from the second
    static request on "/dev/dri/cardN".

    Returns VEKML_SUCCESS; VEKML_ERROR_NO_PERMISSION when all three fail, nothing is written then.
    """,
    vekml_return_t,
    device=vekml_device_t,
    query=POINTER(vekml_device_query_t),
)
vekml_device_query_dynamic_info = Function(
    "vekml_device_query_dynamic_info",
    """Fill the live fields of the record. When an essential getter fails, the fallback fills the record again, with
    `util_state` and the processes from the driver's requests. Failures of utilisation and, though they are passed over,
    of clocks and processes print a line.

    Returns VEKML_SUCCESS; otherwise the failing step of the fallback: utilisation, the card node, a request, a
    process's status file, or the memory CRC counters.
    """,
    vekml_return_t,
    device=vekml_device_t,
    query=POINTER(vekml_device_query_t),
)
vekml_device_query = Function(
    "vekml_device_query",
    """Fill static and live fields with every single getter, whatever each returns; `util_state` and the processes from
    the driver's requests. Does not write `vendor`, `fan_ctrl_mode`, `card_type`, `gddr_width`, `gddr_type`,
    `gddr_package_model`, `device_id`, `chip_model`, `support_temp_info`, `static_text`, `gpu_default_freq`,
    `static_valid` and the third and fifth `clock`.

    Returns VEKML_SUCCESS; otherwise the failure of utilisation, of the card node, of a request, of a process's status
    file or of the memory CRC counters, with the record partly filled.
    """,
    vekml_return_t,
    device=vekml_device_t,
    query=POINTER(vekml_device_query_t),
)
vekml_device_query_two_parts = Function(
    "vekml_device_query_two_parts",
    """One refresh: the static query when `static_valid` is not 1, then the dynamic query. When the static query fails,
    vekml_device_query fills the record instead.

    Returns the dynamic query's result, or that of vekml_device_query.
    """,
    vekml_return_t,
    device=vekml_device_t,
    query=POINTER(vekml_device_query_t),
)

# ---- Thermal limits and DVFS

thm_type = c_uint32  # Selects a thermal limit.
temp_slowdown_type = 0  # HWMON/vek_slowdown_temp
temp_shutdown_type = 1  # HWMON/vek_shutdown_temp
enable_thm_slowdown_type = 2  # HWMON/vek_enable_thm_slowdown
enable_thm_shutdown_type = 3  # HWMON/vek_enable_thm_shutdown


class thm_set(Structure):
    """New thermal limits as terminated decimal texts; the selected one goes to its node unchanged."""

    temp_slowdown: bytes  # slowdown temperature
    temp_shutdown: bytes  # shutdown temperature
    enable_thm_slowdown: bytes  # switch of the slowdown protection
    enable_thm_shutdown: bytes  # switch of the shutdown protection

    _fields_ = [
        ("temp_slowdown", c_char * 5),
        ("temp_shutdown", c_char * 5),
        ("enable_thm_slowdown", c_char * 5),
        ("enable_thm_shutdown", c_char * 5),
    ]


class thermal(Structure):
    """Thermal limits as the driver prints them."""

    vek_temp_slowdown: int  # slowdown temperature
    vek_temp_shutdown: int  # shutdown temperature
    vek_enable_thm_slowdown: int  # switch of the slowdown protection
    vek_enable_thm_shutdown: int  # switch of the shutdown protection

    _fields_ = [
        ("vek_temp_slowdown", c_int32),
        ("vek_temp_shutdown", c_int32),
        ("vek_enable_thm_slowdown", c_int32),
        ("vek_enable_thm_shutdown", c_int32),
    ]


class dvfs_t(Structure):
    """DVFS switch."""

    vek_enable_dvfs: int  # CARD/vek_enable_dvfs

    _fields_ = [
        ("vek_enable_dvfs", c_int32),
    ]


vekml_device_set_thermal_info = Function(
    "vekml_device_set_thermal_info",
    """Set one thermal limit; blocks for 1 s after the write. Pointers are not checked, nor is the value.

    Returns VEKML_SUCCESS; VEKML_ERROR_NO_PERMISSION without root; VEKML_ERROR_NODE_IO when the write fails or the type
    is unknown. Failures print a line, and so does the success of enable_thm_slowdown_type.
    """,
    vekml_return_t,
    handle=vekml_device_t,
    set=POINTER(thm_set),
    type=thm_type,
)
vekml_device_get_thermal = Function(
    "vekml_device_get_thermal",
    """Read one thermal limit into its field.

    Returns VEKML_SUCCESS; VEKML_ERROR_NOT_FOUND when the node is unreadable, with 0 stored and a line printed;
    VEKML_ERROR_NODE_IO when the type is unknown, with a line printed.
    """,
    vekml_return_t,
    handle=vekml_device_t,
    out=POINTER(thermal),
    type=thm_type,
)
vekml_device_get_thermal_info = Function(
    "vekml_device_get_thermal_info",
    """Read both temperatures and the shutdown protection; `vek_enable_thm_slowdown` is left alone.

    Returns VEKML_SUCCESS; VEKML_ERROR_NOT_FOUND when any node is unreadable, with 0 stored for it and a line printed.
    """,
    vekml_return_t,
    handle=vekml_device_t,
    out=POINTER(thermal),
)
vekml_device_set_dvfs_enable = Function(
    "vekml_device_set_dvfs_enable",
    """Write a text to CARD/vek_enable_dvfs; blocks for 1 s after the write. The text is not checked.

    Returns VEKML_SUCCESS; VEKML_ERROR_NO_PERMISSION without root; VEKML_ERROR_NODE_IO when the write fails. Failures
    print a line.
    """,
    vekml_return_t,
    handle=vekml_device_t,
    text=c_char_p,
)
vekml_device_get_dvfs_info = Function(
    "vekml_device_get_dvfs_info",
    """Read the DVFS switch.

    Returns VEKML_SUCCESS; VEKML_ERROR_NOT_FOUND when the node is unreadable, with 0 stored.
    """,
    vekml_return_t,
    handle=vekml_device_t,
    out=POINTER(dvfs_t),
)

# ---- Temperatures

tem_type = c_uint32  # Selects a temperature limit.
crtl_mode_type = 0  # HWMON/temp1_ctrl_mode
temper_min_type = 1  # HWMON/temp1_min
temper_max_type = 2  # HWMON/temp1_max
temper_crit_type = 3  # HWMON/temp1_crit


class temper_info(Structure):
    """Temperatures and limits as the driver prints them."""

    ctrl_mode: int  # HWMON/temp1_ctrl_mode
    temp_input: int  # present temperature, HWMON/temp1_input
    temp_highest: int  # highest temperature seen, HWMON/temp1_highest
    temp_min: int  # HWMON/temp1_min
    temp_max: int  # HWMON/temp1_max
    temp_crit: int  # HWMON/temp1_crit
    gddr_temp: int  # memory temperature, HWMON/vek_gddr_temp

    _fields_ = [
        ("ctrl_mode", c_int32),
        ("temp_input", c_int32),
        ("temp_highest", c_int32),
        ("temp_min", c_int32),
        ("temp_max", c_int32),
        ("temp_crit", c_int32),
        ("gddr_temp", c_int32),
    ]


class temper_set(Structure):
    """New temperature limits as terminated decimal texts; the selected one goes to its node unchanged."""

    ctrl_mode: bytes  # control mode
    temp_min: bytes  # lower limit
    temp_max: bytes  # upper limit
    temp_crit: bytes  # critical limit

    _fields_ = [
        ("ctrl_mode", c_char * 5),
        ("temp_min", c_char * 5),
        ("temp_max", c_char * 5),
        ("temp_crit", c_char * 5),
    ]


vekml_device_get_temper = Function(
    "vekml_device_get_temper",
    """Read one limit or the control mode into its field.

    Returns VEKML_SUCCESS, with 0 stored when unreadable; VEKML_ERROR_NODE_IO when the type is unknown, with a line
    printed.
    """,
    vekml_return_t,
    handle=vekml_device_t,
    info=POINTER(temper_info),
    type=tem_type,
)
vekml_device_get_temper_info = Function(
    "vekml_device_get_temper_info",
    """Read all seven values.

    Returns VEKML_SUCCESS; a node that cannot be read repeats the value read before it, in the order input, mode,
    highest, min, max, crit, memory; an unreadable first node gives 0.
    """,
    vekml_return_t,
    handle=vekml_device_t,
    info=POINTER(temper_info),
)
vekml_device_set_temper_info = Function(
    "vekml_device_set_temper_info",
    """Set one limit or the control mode. A limit blocks for 7 s: 1 s after its write, at which a write that failed ends
    the call, and 3 s after each of the two writes that switch the control mode off and on again. Neither the pointers
    nor the value are checked.

    Returns VEKML_SUCCESS; VEKML_ERROR_NO_PERMISSION without root; VEKML_ERROR_NODE_IO when the limit's write fails, the
    type is unknown or, after a minimum, a switch of the control mode fails. A control mode always gives VEKML_SUCCESS.
    Failures print a line, but for that of a control mode.
    """,
    vekml_return_t,
    handle=vekml_device_t,
    set=POINTER(temper_set),
    type=tem_type,
)

# ---- Fan

vekml_device_get_fan_ctrl_mode = Function(
    "vekml_device_get_fan_ctrl_mode",
    """Control mode from HWMON/fan1_ctrl_mode; 0 is firmware control.

    Returns VEKML_SUCCESS, with 0 stored when unreadable.
    """,
    vekml_return_t,
    handle=vekml_device_t,
    mode=POINTER(c_uint32),
)
vekml_device_get_fan_pwm = Function(
    "vekml_device_get_fan_pwm",
    """PWM value from HWMON/pwm1.

    Returns VEKML_SUCCESS, with 0 stored when unreadable.
    """,
    vekml_return_t,
    handle=vekml_device_t,
    pwm=POINTER(c_uint32),
)
vekml_device_get_pwm_min = Function(
    "vekml_device_get_pwm_min",
    """Lowest PWM value from HWMON/pwm1_min.

    Returns VEKML_SUCCESS, with 0 stored when unreadable.
    """,
    vekml_return_t,
    handle=vekml_device_t,
    pwm=POINTER(c_uint32),
)
vekml_device_get_pwm_max = Function(
    "vekml_device_get_pwm_max",
    """Highest PWM value from HWMON/pwm1_max.

    Returns VEKML_SUCCESS, with 0 stored when unreadable.
    """,
    vekml_return_t,
    handle=vekml_device_t,
    pwm=POINTER(c_uint32),
)
vekml_device_get_fan_speed = Function(
    "vekml_device_get_fan_speed",
    """Fan speed from HWMON/fan1_input.

    Returns VEKML_SUCCESS, with 0 stored when unreadable.
    """,
    vekml_return_t,
    handle=vekml_device_t,
    speed=POINTER(c_uint32),
)
vekml_device_get_min_max_fan_speed = Function(
    "vekml_device_get_min_max_fan_speed",
    """Fan speed bounds from HWMON/fan1_min and HWMON/fan1_max.

    Returns VEKML_SUCCESS, with 0 stored when unreadable.
    """,
    vekml_return_t,
    handle=vekml_device_t,
    min=POINTER(c_uint32),
    max=POINTER(c_uint32),
)
vekml_device_get_support_fan_info = Function(
    "vekml_device_get_support_fan_info",
    """Whether the board has a controllable fan, from HWMON/vek_support_fan_info: 1 or 0.

    Returns VEKML_SUCCESS; VEKML_ERROR_INVALID_ARGUMENT when the handle or `support` is null; VEKML_ERROR_NOT_FOUND when
    the node is unreadable, with 0 stored.
    """,
    vekml_return_t,
    handle=vekml_device_t,
    support=POINTER(c_uint32),
)
vekml_device_set_fan_ctrl_mode = Function(
    "vekml_device_set_fan_ctrl_mode",
    """Set the control mode, "0" (firmware) or "1" (host).

    Returns VEKML_SUCCESS, also for another value, which is not written; VEKML_ERROR_NO_PERMISSION without root;
    VEKML_ERROR_NODE_IO when the write fails. Failures print a line.
    """,
    vekml_return_t,
    handle=vekml_device_t,
    text=c_char_p,
)
vekml_device_set_fan_pwm1 = Function(
    "vekml_device_set_fan_pwm1",
    """Set the PWM value of a PWM fan, 1950 to 5998.

    Returns VEKML_SUCCESS, also for a value out of range, which is not written; VEKML_ERROR_NO_PERMISSION without root;
    VEKML_ERROR_NODE_IO when the board has no PWM fan or the write fails. Failures print a line.
    """,
    vekml_return_t,
    handle=vekml_device_t,
    text=c_char_p,
)
vekml_device_set_fan1_speed = Function(
    "vekml_device_set_fan1_speed",
    """Set the target speed of a target-speed fan, 0 to 100 percent. The control mode must not be 0.

    Returns VEKML_SUCCESS; VEKML_ERROR_NO_PERMISSION without root; VEKML_ERROR_UNKNOWN when the control mode is
    unreadable; VEKML_ERROR_NODE_IO when the board has a PWM fan, the value is out of range, the firmware controls the
    fan or the write fails. Failures print a line.
    """,
    vekml_return_t,
    handle=vekml_device_t,
    text=c_char_p,
)

# ---- Power


class power_info(Structure):
    """Electrical readings as the driver prints them."""

    voltage: int  # HWMON/in0_input
    current: int  # HWMON/curr1_input
    power_average: int  # HWMON/power1_average
    total_power: int  # HWMON/vek_total_power times 1000

    _fields_ = [
        ("voltage", c_int32),
        ("current", c_int32),
        ("power_average", c_int32),
        ("total_power", c_int32),
    ]


vekml_device_get_support_power_info = Function(
    "vekml_device_get_support_power_info",
    """Power-support number from HWMON/vek_support_power_info.

    Returns VEKML_SUCCESS; VEKML_ERROR_NODE_IO when the node is unreadable, with all bits set stored.
    """,
    vekml_return_t,
    handle=vekml_device_t,
    support=POINTER(c_uint32),
)
vekml_device_is_support_power = Function(
    "vekml_device_is_support_power",
    """Whether power readings are supported: the number above on the maker's own boards, 0 on all others.

    Returns VEKML_SUCCESS; VEKML_ERROR_INVALID_ARGUMENT for a null argument; VEKML_ERROR_NODE_IO when the node is
    unreadable, with 0 stored.
    """,
    vekml_return_t,
    handle=vekml_device_t,
    is_support=POINTER(c_uint32),
)
vekml_device_get_power_info = Function(
    "vekml_device_get_power_info",
    """All four readings.

    Returns VEKML_SUCCESS; a node that cannot be read repeats the text read before it (the total is then 1000 times the
    average); an unreadable first node gives 0.
    """,
    vekml_return_t,
    handle=vekml_device_t,
    info=POINTER(power_info),
)
vekml_device_set_power_volt = Function(
    "vekml_device_set_power_volt",
    """Set the core voltage through HWMON/in0_input; blocks for 500 ms after the write.

    Returns VEKML_SUCCESS; VEKML_ERROR_NO_PERMISSION without root or when the driver does not let the voltage be set;
    VEKML_ERROR_NODE_IO when the write fails. Prints a line in every case.
    """,
    vekml_return_t,
    handle=vekml_device_t,
    text=c_char_p,
)
vekml_device_set_power_warn = Function(
    "vekml_device_set_power_warn",
    """Set the power cap HWMON/power1_cap, 1 to 19999.

    Returns VEKML_SUCCESS, also for a value out of range, which is not written; VEKML_ERROR_NO_PERMISSION without root;
    VEKML_ERROR_NODE_IO when the write fails. Failures print a line.
    """,
    vekml_return_t,
    handle=vekml_device_t,
    text=c_char_p,
)

# ---- Clocks

clk_type = c_uint32  # Selects a clock. The last two stand the other way round in clock_info.
gddr_phys_clk_type = 0  # HWMON/vek_gddr_phys_freq_mhz
gfx_clk_type = 1  # HWMON/vek_gfx_freq_mhz
acpu_clk_type = 2  # HWMON/vek_acpu_freq_mhz
ndf_clk_type = 3  # HWMON/vek_ndf_freq_mhz
cmcu_clk_type = 4  # HWMON/vek_cmcu_freq_mhz


class clock_info(Structure):
    """Clocks, MHz."""

    gddr_phys_clk: int  # memory
    gfx_clk: int  # graphics
    acpu_clk: int  # ACPU
    cmcu_clk: int  # CMCU
    ndf_clk: int  # NDF

    _fields_ = [
        ("gddr_phys_clk", c_int32),
        ("gfx_clk", c_int32),
        ("acpu_clk", c_int32),
        ("cmcu_clk", c_int32),
        ("ndf_clk", c_int32),
    ]


vekml_device_get_clock_info = Function(
    "vekml_device_get_clock_info",
    """Read one clock into its field and print it.

    Returns VEKML_SUCCESS, with 0 stored when unreadable; VEKML_ERROR_NODE_IO when the type is unknown, with a line
    printed.
    """,
    vekml_return_t,
    handle=vekml_device_t,
    info=POINTER(clock_info),
    type=clk_type,
)
vekml_device_get_clock = Function(
    "vekml_device_get_clock",
    """All five clocks, MHz.

    Returns VEKML_SUCCESS, with 0 stored for each that is unreadable.
    """,
    vekml_return_t,
    handle=vekml_device_t,
    info=POINTER(clock_info),
)
vekml_device_set_gfx_clock = Function(
    "vekml_device_set_gfx_clock",
    """Set the graphics clock: 50000000 to 1500000000 Hz in steps of 50000000.

    Returns VEKML_SUCCESS; VEKML_ERROR_NO_PERMISSION without root; VEKML_ERROR_NODE_IO for any other value or when the
    write fails. Prints a line in every case.
    """,
    vekml_return_t,
    handle=vekml_device_t,
    text=c_char_p,
)

# ---- Out of band

vekml_device_get_fan_speed_by_out_of_band = Function(
    "vekml_device_get_fan_speed_by_out_of_band",
    """Fan speed.

    Returns VEKML_SUCCESS; else as vekml_device_get_fan_speed.
    """,
    vekml_return_t,
    handle=vekml_device_t,
    speed=POINTER(c_uint32),
)
vekml_device_get_temp_info_by_out_of_band = Function(
    "vekml_device_get_temp_info_by_out_of_band",
    """GPU and memory temperature, into `temp_input` and `gddr_temp`.

    Returns VEKML_SUCCESS; else as the in-band counterpart.
    """,
    vekml_return_t,
    handle=vekml_device_t,
    info=POINTER(temper_info),
)
vekml_device_get_power_info_by_out_of_band = Function(
    "vekml_device_get_power_info_by_out_of_band",
    """Voltage, current, power and total board power.

    Returns VEKML_SUCCESS; else as vekml_device_get_power_info.
    """,
    vekml_return_t,
    handle=vekml_device_t,
    info=POINTER(c_uint32),
)
vekml_device_query_by_out_of_band = Function(
    "vekml_device_query_by_out_of_band",
    """What the firmware block tells of the whole record: the second `clock`, `name`, `vbios_version`, `fw_ver`,
    `pci_ids`, `device_id`, `pci_info`, the local total of `memory`, `chip_model`, the second `temperature`,
    `power_state`, `power`, `fan_speed`, `support_fan_info` and `support_power_info`. Otherwise
    vekml_device_query_two_parts, after which, whatever its result, the local total of `memory` is `gddr_size` times
    1024, the second `clock` is divided by 1000000 and the last `power` by 1000.

    Returns VEKML_SUCCESS; else as vekml_device_query_two_parts.
    """,
    vekml_return_t,
    handle=vekml_device_t,
    query=POINTER(vekml_device_query_t),
)

# ---- Video engines

vekml_get_vpu_functions_valid = Function(
    "vekml_get_vpu_functions_valid",
    """Whether the video libraries are installed: 1 or 0.

    Returns VEKML_SUCCESS; VEKML_ERROR_INVALID_ARGUMENT when `valid` is null.
    """,
    vekml_return_t,
    valid=POINTER(c_uint32),
)
vekml_device_get_vpu_info = Function(
    "vekml_device_get_vpu_info",
    """Codec capabilities of the GPU's video engines, through VA-API on "/dev/dri/cardN". Once a query has succeeded,
    the device record answers. Changes the process environment while it runs and restores it: callers serialise.

    Returns VEKML_SUCCESS; VEKML_ERROR_INVALID_ARGUMENT for a null argument; VEKML_ERROR_NOT_SUPPORTED when there is no
    profile or entrypoint or the profiles cannot be queried; VEKML_ERROR_NO_PERMISSION when the card node cannot be
    opened; VEKML_ERROR_NOT_FOUND when it is missing; VEKML_ERROR_LIBRARY_NOT_FOUND when the video libraries are missing
    or cannot be loaded, with the record initialised; VEKML_ERROR_UNKNOWN when VA-API cannot be started or memory runs
    out. Other failures leave the record alone.
    """,
    vekml_return_t,
    handle=vekml_device_t,
    info=POINTER(Vpu_codec_info_st),
)
vekml_device_get_vpu_utlz = Function(
    "vekml_device_get_vpu_utlz",
    """Load of the video engines, commands per second: reserved as the driver reports it, executed since the previous
    successful call (since vekml_init for the first; an out-of-band start takes no sample, so the first call then only
    takes it), from "/sys/kernel/debug/vpu/xmem".

    Returns VEKML_SUCCESS; VEKML_ERROR_LIBRARY_NOT_FOUND when the video libraries are missing;
    VEKML_ERROR_INVALID_ARGUMENT for a null argument; the result of the sample that vekml_init took, when that failed;
    VEKML_ERROR_NOT_SUPPORTED when the file lacks a number, the outputs are left alone then; VEKML_ERROR_NO_PERMISSION,
    VEKML_ERROR_NOT_FOUND or VEKML_ERROR_UNKNOWN when it may not be opened, is missing, or cannot be opened otherwise.
    """,
    vekml_return_t,
    handle=vekml_device_t,
    enc_reserved_fps=POINTER(c_uint32),
    enc_executed_fps=POINTER(c_uint32),
    dec_reserved_fps=POINTER(c_uint32),
    dec_executed_fps=POINTER(c_uint32),
)
