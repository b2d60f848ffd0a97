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


with tempfile.TemporaryDirectory() as empty:
    fields = json.loads(run(empty, "query --help-fields").stdout)
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


ODD = b'\xff\xfe"\\\x1b]0;x\x07\x7f\xc2\x9b31m\xe2\x80\xae,\r\n\x00'
odd_texts = {"sys/class/drm/card0/vek_product_name": ODD, node + "local_cpulist": ODD,
             **{hwmon + name: ODD for name in ("vek_chip_id", "temp1_input", "vek_gfx_freq_mhz", "vek_pcie_mmbar_type")},
             node + "current_link_speed": b"Unknown\n", node + "numa_node": b"-1\n"}
lacking = [hwmon + "temp1_input", hwmon + "fan1_input", hwmon + "power1_average", node + "gpu_util_info"]
without_nodes = {**dict.fromkeys(lacking), "host/euid": b"1000\n", "host/requests/card0/*": b"errno 16\n"}


def damage(tree, texts):
    for pattern, text in texts.items():
        for path in list(tree.glob(pattern)) or [tree / pattern]:
            path.unlink(missing_ok=True)
            if text is not None:
                path.parent.mkdir(parents=True, exist_ok=True)
                path.write_bytes(text)


# Options of veksim, options of veksmi, the states to be seen, what files of the tree become.
impatient = "--deadline 1"
hosts = {
    "two GPUs": ("--gpus 2", "", {"ok"}, {}),
    "another two": ("--gpus 2 --distinct", "", {"ok"}, {}),
    "no GPU": ("--gpus 0", "", set(), {}),
    "no driver": ("--no-driver", "", set(), {}),
    "out of band": ("--no-driver", "--out-of-band", {"ok"}, {}),
    "one GPU stuck": ("--gpus 2", impatient, {"ok", "stuck"}, {f"host/stuck/{hwmon}temp1_input": b""}),
    "a GPU that never starts": ("--gpus 2", impatient, {"ok", "stuck"}, {f"host/stuck/{hwmon}vek_device_model": b""}),
    "a card of which nothing answers": ("--gpus 2", impatient, {"ok", "stuck"},
                                        {"host/stuck/sys/class/drm/card0": b""}),
    "one asleep": ("--gpus 2", "", {"ok", "asleep"}, {node + "power/runtime_status": b"suspended\n"}),
    "odd texts": ("--gpus 1", "", {"ok"}, odd_texts),
    "missing nodes": ("--gpus 2", "", {"ok"}, without_nodes),
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
    listed = {(row["field"], row["help"]) for row in fields["fields"] if row["field"] not in head}
    in_file = {(key, part["description"]) for key, part in described.items()
               if key not in ("processes", "codecs", "missing")}
    if differences := listed ^ in_file:
        faults.append(f"the file and query --help-fields differ in {sorted(differences)}")
    for host, (sim_options, options, expected, texts) in hosts.items():
        with tempfile.TemporaryDirectory() as above, ThreadPoolExecutor(4) as pool:
            tree = pathlib.Path(above) / "tree"
            subprocess.run([veksim, "--still", "--tree", str(tree), *sim_options.split(), "--", "true"], check=True)
            damage(tree, texts)
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
