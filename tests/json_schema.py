# SPDX-License-Identifier: Apache-2.0
"""What every command prints as JSON, on healthy and on broken hosts, against docs/veksmi.schema.json.

Usage: json_schema.py VEKSMI VEKSIM LIBVEKSIM SCHEMA
"""
import copy
import json
import os
import pathlib
import subprocess
import sys
import tempfile
from concurrent.futures import ThreadPoolExecutor

import jsonschema

veksmi, veksim, interposer, schema_file = sys.argv[1:]
head = {"index", "card", "bus_id", "state"}
node = "sys/class/drm/card0/device/"
hwmon = node + "hwmon/hwmon1/"


def strict(part, inside_gpu=False):
    """Readers must take keys that they do not know; here one that the file does not describe is a fault."""
    if isinstance(part, dict):
        if "properties" in part and not inside_gpu:
            part["unevaluatedProperties"] = False
        for key, value in part.items():
            strict(value, key == "gpu")
    elif isinstance(part, list):
        for value in part:
            strict(value)
    return part


schema = json.loads(pathlib.Path(schema_file).read_text(encoding="utf-8"))
jsonschema.Draft202012Validator.check_schema(schema)
described = schema["$defs"]["readings"]["properties"]["gpus"]["items"]["properties"]
closed = strict(copy.deepcopy(schema))


def validator(kind):
    return jsonschema.Draft202012Validator({"$ref": f"#/$defs/{kind}", "$defs": closed["$defs"]})


def run(tree, arguments):
    environment = {**os.environ, "LD_PRELOAD": interposer, "VEKSIM_TREE": str(tree)}
    return subprocess.run([veksmi, "--format", "json", *arguments.split()], env=environment, capture_output=True,
                          check=False)


def field_list():
    with tempfile.TemporaryDirectory() as empty:
        return json.loads(run(empty, "query --help-fields").stdout)


fields = field_list()
units = {row["field"]: row["unit"] for row in fields["fields"]}
commands = {
    "readings": ["", "list", "info", "query", "query --fields " + ",".join(units), "monitor -c 2 -n 0.2", "ps", "temp",
                 "fan", "power", "clock", "thermal", "dvfs", "pcie", "vpu", "version", "-i 0 query", "-i 77 query",
                 "query --fields nonsense", "nonsense", "--wake query"],
    "setting": ["-i 0 fan set mode 1", "-i 0 dvfs set 1", "-i 0 fan reset"],
    "why": ["why", "why temperature fan_pwm"],
    "health": ["health"],
    "topology": ["topology"],
    "fields": ["query --help-fields"],
}


def write(path, text):
    if path.is_dir() and not path.is_symlink():
        for child in sorted(path.rglob("*"), reverse=True):
            child.rmdir() if child.is_dir() else child.unlink()
        path.rmdir()
    path.unlink(missing_ok=True)
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_bytes(text)


def odd_texts(tree):
    odd = b'\xff\xfe"\\\x1b]0;x\x07\x7f\xc2\x9b31m\xe2\x80\xae,\r\n\x00'
    for name in ("device/vek_product_name", "vek_product_name"):
        write(tree / "sys/class/drm/card0" / name, odd)
    for name in ("vek_chip_id", "temp1_input", "vek_gfx_freq_mhz", "vek_pcie_mmbar_type"):
        write(tree / hwmon / name, odd)
    write(tree / node / "local_cpulist", odd)
    write(tree / node / "current_link_speed", b"Unknown\n")
    write(tree / node / "numa_node", b"-1\n")


def without_nodes(tree):
    for name in ("temp1_input", "fan1_input", "power1_average"):
        (tree / hwmon / name).unlink()
    (tree / node / "gpu_util_info").unlink(missing_ok=True)
    write(tree / "host/euid", b"1000\n")
    for request in (tree / "host/requests/card0").glob("*"):
        write(request, b"errno 16\n")


# Options of veksim, options of veksmi, what is done to the tree, the states to be seen.
hosts = {
    "two GPUs": ("--gpus 2", "", lambda tree: None, {"ok"}),
    "another two": ("--gpus 2 --distinct", "", lambda tree: None, {"ok"}),
    "no GPU": ("--gpus 0", "", lambda tree: None, set()),
    "no driver": ("--no-driver", "", lambda tree: None, set()),
    "out of band": ("--no-driver", "--out-of-band", lambda tree: None, {"ok"}),
    "one GPU stuck": ("--gpus 2", "--deadline 1",
                      lambda tree: write(tree / "host/stuck" / hwmon / "temp1_input", b""), {"ok", "stuck"}),
    "a GPU that never starts": ("--gpus 2", "--deadline 1",
                                lambda tree: write(tree / "host/stuck" / hwmon / "vek_device_model", b""),
                                {"ok", "stuck"}),
    "a card of which nothing answers": ("--gpus 2", "--deadline 1",
                                        lambda tree: write(tree / "host/stuck/sys/class/drm/card0", b""),
                                        {"ok", "stuck"}),
    "one asleep": ("--gpus 2", "", lambda tree: write(tree / node / "power/runtime_status", b"suspended\n"),
                   {"ok", "asleep"}),
    "odd texts": ("--gpus 1", "", odd_texts, {"ok"}),
    "missing nodes": ("--gpus 2", "", without_nodes, {"ok"}),
}


def faults_of(kind, document):
    yield from (f"{'/'.join(map(str, e.absolute_path))}: {e.message[:300]}" for e in
                validator(kind).iter_errors(document))
    for key, unit in document.get("units", {}).items():
        if kind == "readings" and key in units and units[key] != unit:
            yield f"{key} is in {unit} here, and in {units[key]} in the list of fields"
    for gpu in document.get("gpus", []) if kind == "readings" else []:
        null = {key for key, value in gpu.items() if value is None}
        told = set(gpu.get("missing", {}))
        if null - told - head or told - null:
            yield f"null are {sorted(null)}, explained are {sorted(told)}"
        if missing_units := {k for k in gpu if units.get(k)} - set(document["units"]):
            yield f"no units of {sorted(missing_units)}"


def check(tree, options, kind, command):
    """The faults of one command, and the states it showed."""
    result = run(tree, f"{options} {command}")
    text = result.stdout.decode("ascii")  # all else is escaped
    lines = text.splitlines()
    faults, states = [], set()
    if not lines or any(ord(c) < 32 or ord(c) == 127 for c in text.replace("\n", "")):
        faults.append(f"status {result.returncode}, printed {text[:200]!r}, told {result.stderr[-300:]!r}")
    for line in lines:
        document = json.loads(line)
        # A refusal is told on standard error; its document has no GPU.
        refused = kind not in ("readings", "fields") and not document.get("gpus") and result.returncode != 0
        faults += faults_of("readings" if refused and "verdict" not in document else kind, document)
        states |= {gpu["state"] for gpu in document.get("gpus", [])}
    return [f"{command or 'summary'}: {fault}" for fault in faults], states


def main():
    faults = []
    listed = {row["field"]: row["help"] for row in fields["fields"]}
    for key in head:
        listed.pop(key)
    in_file = {key: part["description"] for key, part in described.items()}
    for key in ("processes", "codecs", "missing"):
        in_file.pop(key)
    if listed != in_file:
        differences = sorted(set(listed.items()) ^ set(in_file.items()))
        faults.append(f"the file and query --help-fields differ in {differences}")
    for host, (sim_options, options, damage, expected) in hosts.items():
        with tempfile.TemporaryDirectory() as above, ThreadPoolExecutor(4) as pool:
            tree = pathlib.Path(above) / "tree"
            subprocess.run([veksim, "--still", "--tree", str(tree), *sim_options.split(), "--", "true"], check=True)
            damage(tree)
            (tree / "host/pauses").touch()
            jobs = [(tree, options, kind, command) for kind in commands for command in commands[kind]]
            seen = set()
            for found, states in pool.map(lambda job: check(*job), jobs):
                faults += [f"{host}: {fault}" for fault in found]
                seen |= states
            if seen != expected:
                faults.append(f"{host}: the states seen are {sorted(seen)}, not {sorted(expected)}")
    print("\n".join(faults))
    sys.exit(1 if faults else 0)


main()
