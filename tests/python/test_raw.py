# SPDX-License-Identifier: Apache-2.0
"""The C interface as it is generated: against the header, the compiler, the built library and an older one."""
from __future__ import annotations

import ctypes
import os
import re
import subprocess
import sys
from pathlib import Path
from typing import Any, Dict, List, Type

import pytest

from conftest import ROOT, Host
from vekgpu_ml import raw
from vekgpu_ml._library import Data, Function

FUNCTIONS: Dict[str, Function] = {name: each for name, each in vars(raw).items() if isinstance(each, Function)}
RECORDS: Dict[str, Type[ctypes.Structure]] = {
    name: each
    for name, each in vars(raw).items()
    if isinstance(each, type) and issubclass(each, ctypes.Structure) and each is not ctypes.Structure
}


def test_it_is_what_the_header_makes_of_it() -> None:
    assert subprocess.run([sys.executable, ROOT / "python/generate_raw.py", "--check"]).returncode == 0
    exported = re.findall(r"^    (\w+);", (ROOT / "src/vekml.map").read_text(), re.MULTILINE)
    data = [name for name, each in vars(raw).items() if isinstance(each, Data)]
    assert sorted([*FUNCTIONS, *data]) == sorted(exported)


def test_layouts_and_constants_are_the_compilers(tmp_path: Path) -> None:
    constants = [name for name, value in vars(raw).items() if isinstance(value, int)]
    asked = {f"sizeof({record})": ctypes.sizeof(kind) for record, kind in RECORDS.items()}
    for record, kind in RECORDS.items():
        for field in kind._fields_:
            asked[f"offsetof({record}, {field[0]})"] = getattr(kind, field[0]).offset
            asked[f"sizeof((({record} *)0)->{field[0]})"] = getattr(kind, field[0]).size
    asked.update((name, getattr(raw, name)) for name in constants)
    lines = "".join(f'    printf("%s=%ld\\n", "{each}", (long)({each}));\n' for each in asked)
    source = tmp_path / "layout.c"
    source.write_text(f"#include <stddef.h>\n#include <stdio.h>\n#include <vekml.h>\nint main(void)\n{{\n{lines}}}\n")
    subprocess.run([os.environ["CC"], f"-I{ROOT}/include", source, "-o", tmp_path / "layout"], check=True)
    told = subprocess.check_output([tmp_path / "layout"], text=True).splitlines()
    assert len(RECORDS) > 20 and len(constants) > 20
    assert dict(line.rsplit("=", 1) for line in told) == {each: str(value) for each, value in asked.items()}


def argument(host: Host, handle: Any, function: str, name: str, kind: Any) -> Any:
    """Something that a function may be called with."""
    texts = {"pci_bus_id": b"0000:03:00.0", "model": b"VEK M310", "text": b"50"}
    if kind is raw.vekml_device_t:
        return handle
    if kind is ctypes.c_char_p:
        return texts.get(name, b"/sys/class/drm/card0")
    if kind is ctypes.c_void_p:
        return None
    if kind is ctypes.c_uint32:
        numbers = {"gpu_index": raw.VEKML_MAX_DEVICES, "size": 64, "length": 64}  # no such GPU: none is handed in
        return 18975 if name == "device_id" else numbers.get(name, 0)
    return (kind._type_ * 64)() if kind._type_ is ctypes.c_char else (kind._type_ * 4)()


def test_every_function_can_be_called(host: Host) -> None:
    (host.tree / "sys/kernel/debug/vpu").mkdir(parents=True, exist_ok=True)
    results = {}
    for name, function in FUNCTIONS.items():
        handle = raw.vekml_device_t()
        raw.vekml_init()
        assert raw.vekml_device_get_handle_by_index(0, ctypes.byref(handle)) == 0
        arguments = [argument(host, handle, name, *each) for each in function.argtypes.items()]
        results[name] = function(*arguments)
        raw.vekml_shutdown()
    assert {name: result for name, result in results.items() if result != 0} == {
        "parse_device_model": None,
        "vekml_pci_out_of_band_manager": raw.VEKML_ERROR_NODE_IO,
        "vekml_device_set_gfx_clock": raw.VEKML_ERROR_NODE_IO,  # takes Hz
    }


@pytest.mark.parametrize(
    "name, wrong",
    [("vekml_device_get_name", (0, b"text", 4)), ("vekml_device_get_count", (1,)), ("vekml_device_get_count", ())],
)
def test_arguments_have_types(name: str, wrong: List[Any]) -> None:
    with pytest.raises((ctypes.ArgumentError, TypeError)):
        FUNCTIONS[name](*wrong)


def test_data_are_the_librarys_own(host: Host) -> None:
    raw.vekml_init()
    state = raw.globals.value
    assert (state.count, state.devices[1].name) == (2, b"TALON-S3")
    raw.vekml_shutdown()
    assert state.count == 0
    assert raw.asic_types.value[0] == b"CHIP_TALON_A0"
    assert raw.talonProductArr.value[raw.VEKML_BOARDS - 1].part_number


def without(name: str, directory: Path) -> Path:
    """The library without one of its names, as one from before that was added would be."""
    library = Path(os.environ["VEKGPU_ML_LIBRARY"]).read_bytes()
    text = b"\0" + name.encode() + b"\0"
    assert library.count(text) >= 1
    older = directory / "libolder.so"
    older.write_bytes(library.replace(text, text[:-2] + b"~\0"))
    return older


@pytest.mark.parametrize(
    "library, told",
    [
        ("older", "48\nFunctionMissingError the installed library has no vekml_init_card: it is older than that"),
        ("/nowhere.so", "LibraryUnavailableError the library cannot be loaded: /nowhere.so: cannot open shared object"),
        (None, "LibraryUnavailableError the library cannot be loaded: libvekgpu-ml.so.1: cannot open shared object"),
    ],
)
def test_what_is_not_there_is_told_when_used(host: Host, tmp_path: Path, library: str, told: str) -> None:
    program = """
import vekgpu_ml
from vekgpu_ml.raw import vekml_init_card
print("imported")
try:
    with vekgpu_ml.session() as gpus:
        print(gpus[0].temperature)
    vekgpu_ml.session(card=0)
except vekgpu_ml.VekgpuError as error:
    print(type(error).__name__, error)
"""
    if library == "older":
        library = str(without("vekml_init_card", tmp_path))
    run = host.python(program, VEKGPU_ML_LIBRARY=library)
    assert run.err == ""
    assert run.out.startswith(f"imported\n{told}")
