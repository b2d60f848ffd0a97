# SPDX-License-Identifier: Apache-2.0
# Prints each GPU's load and temperature once a second, COUNT times (once), then its table of video codecs.
# Needs the installed library only: python3 codecs.py [COUNT]
import ctypes
import sys
import time
from ctypes import POINTER, Structure, byref, c_char, c_int, c_int32, c_uint32, c_void_p


class CapItem(Structure):
    _fields_ = [("name", c_char * 64), ("supported", c_uint32), ("index", c_uint32)]


class Encoder(Structure):
    _fields_ = [("name", c_char * 64), ("supported", c_uint32), ("profile", c_uint32),
                ("image_formats", CapItem * 15), ("rate_controls", CapItem * 12)]


class Decoder(Structure):
    _fields_ = [("name", c_char * 64), ("supported", c_uint32), ("profile", c_uint32),
                ("image_formats", CapItem * 15)]


class CodecInfo(Structure):
    _fields_ = [("vendor", c_char * 64), ("valid", c_uint32),
                ("encoders", Encoder * 37), ("decoders", Decoder * 37)]


class UtilInfo(Structure):
    _fields_ = [(field, c_uint32) for field in "gpu tdm geom thrd cdm".split()]


class TemperInfo(Structure):
    _fields_ = [(field, c_int32) for field in
                "ctrl_mode temp_input temp_highest temp_min temp_max temp_crit gddr_temp".split()]


vekml = ctypes.CDLL("libvekgpu-ml.so.1")
for name, *arguments in [("init",), ("shutdown",),
                         ("device_get_handle_by_index", c_uint32, POINTER(c_void_p)),
                         ("device_get_name", c_void_p, c_char * 64, c_uint32),
                         ("device_get_util_info", c_void_p, POINTER(UtilInfo)),
                         ("device_get_temper_info", c_void_p, POINTER(TemperInfo)),
                         ("device_get_vpu_info", c_void_p, POINTER(CodecInfo))]:
    function = getattr(vekml, "vekml_" + name)
    function.argtypes, function.restype = arguments, c_int


def find_gpus():
    gpu = c_void_p()
    while vekml.vekml_device_get_handle_by_index(len(gpus), byref(gpu)) == 0:
        name = (c_char * 64)()
        vekml.vekml_device_get_name(gpu, name, len(name))
        gpus.append((c_void_p(gpu.value), name.value.decode()))


def print_refresh():
    for index, (gpu, name) in enumerate(gpus):
        load, temperatures = UtilInfo(), TemperInfo()
        failed = (vekml.vekml_device_get_util_info(gpu, byref(load))
                  or vekml.vekml_device_get_temper_info(gpu, byref(temperatures)))
        print(f"{index} {name}:", "refresh failed" if failed else
              f"load {load.gpu} %, temperature {temperatures.temp_input}, memory {temperatures.gddr_temp}")


def print_codecs(index, gpu):
    info = CodecInfo()
    result = vekml.vekml_device_get_vpu_info(gpu, byref(info))
    print(f"{index} video engines: {info.vendor.decode() if result == 0 else f'failed with {result}'}")
    for codec in (*info.encoders, *info.decoders):
        if codec.supported:
            formats = [item.name.decode() for item in codec.image_formats if item.supported]
            print(f"    {codec.name.decode():36} {' '.join(formats)}")


gpus = []
vekml.vekml_init()
find_gpus()
for turn in range(int(sys.argv[1]) if len(sys.argv) > 1 else 1):
    time.sleep(turn and 1)
    print_refresh()
for index, (gpu, _) in enumerate(gpus):
    print_codecs(index, gpu)
vekml.vekml_shutdown()
sys.exit(not gpus)
