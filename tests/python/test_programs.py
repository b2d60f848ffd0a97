# SPDX-License-Identifier: Apache-2.0
"""What is run, type-checked and installed."""
from __future__ import annotations

import csv
import inspect
import os
import re
import subprocess
import sys
from pathlib import Path
from typing import Set

import vekgpu_ml
from conftest import ROOT, Host
from vekgpu_ml import raw


def test_it_lists_as_veksmi_does(host: Host) -> None:
    host.card("vek_product_name").write_bytes("Ü\x1b[1m\n".encode())
    host.hwmon("vek_chip_id", 1).unlink()
    listed = subprocess.check_output([os.environ["VEKSMI"], "list"], env={**os.environ, "VEKSIM_TREE": str(host.tree)})
    installed = os.path.dirname(os.environ["VEKGPU_ML_LIBRARY"])
    run = host.python("-m vekgpu_ml", VEKGPU_ML_LIBRARY=None, LD_LIBRARY_PATH=installed)
    assert run == (0, listed.decode(), "")
    run = host.python("-m vekgpu_ml", VEKGPU_ML_LIBRARY="/nowhere.so")
    assert (run.status, run.out, run.err.count("\n")) == (1, "", 1)


def test_the_example_samples_every_gpu(host: Host, tmp_path: Path) -> None:
    (tmp_path / "pandas.py").write_text("raise ImportError")
    example = ROOT / "examples/sample.py"
    path = f"{tmp_path}:{os.environ['PYTHONPATH']}"
    run = host.python(f"{example} 0.3 0.1", PYTHONPATH=path)
    rows = list(csv.DictReader(run.out.splitlines()))
    assert run.err == "" and len(rows) >= 4 and len(rows) % 2 == 0
    assert [row["model"] for row in rows[:2]] == ["VEK M310", "VEK S280 XT"]
    assert (rows[0]["temperature_celsius"], rows[0]["memory_used_bytes"]) == ("48", "2063618048")
    # With pandas, a table of figures for each GPU.
    (tmp_path / "pandas.py").write_text(
        """
class DataFrame(dict):
    def __init__(self, rows):
        super().__init__((name, [row[name] for row in rows]) for row in rows[:1] for name in row)
    def groupby(self, name):
        print(name, self[name][:2], self["time"])
        return {("temperature_celsius", "power_watts", "load_percent"): self} and self
    def __getitem__(self, name):
        return super().__getitem__(name) if isinstance(name, str) else self
    def describe(self):
        return self
    T = "figures"
def to_datetime(times, unit):
    return unit
"""
    )
    assert host.python(f"{example} 0 1", PYTHONPATH=path).out == "gpu [0, 1] s\nfigures\n"


def test_everything_public_is_documented() -> None:
    told = {name: inspect.getdoc(getattr(vekgpu_ml, name)) for name in vekgpu_ml.__all__}
    for kind in (vekgpu_ml.Gpu, vekgpu_ml.Session):
        told.update((f"{kind.__name__}.{name}", inspect.getdoc(getattr(kind, name))) for name in public(kind))
    told.update((f"raw.{name}", each.__doc__) for name, each in vars(raw).items() if hasattr(each, "argtypes"))
    assert len(told) > 150
    assert [name for name, text in told.items() if not text] == []


def public(kind: type) -> Set[str]:
    return {name for name in vars(kind) if not name.startswith("_")}


def test_types_hold() -> None:
    sources = [ROOT / each for each in ("python", "examples", "bench/python_module.py")]
    mypy = [sys.executable, "-m", "mypy", "--strict", "--python-version", "3.9", "--cache-dir", os.devnull, *sources]
    assert subprocess.run(mypy, env={**os.environ, "LD_PRELOAD": ""}).returncode == 0


def test_pip_installs_it_without_a_network(tmp_path: Path) -> None:
    source = tmp_path / "python"
    subprocess.run(["cp", "-r", ROOT / "python", source], check=True)
    pip = [sys.executable, "-m", "pip", "install", "--quiet", "--no-index", "--target", tmp_path / "to", source]
    subprocess.run(pip, check=True, env={**os.environ, "LD_PRELOAD": ""})
    assert (tmp_path / "to/vekgpu_ml/py.typed").is_file()
    version = re.search(r"project\(vekgpu-ml VERSION (\S+)", (ROOT / "CMakeLists.txt").read_text())
    assert version and version[1] == vekgpu_ml.__version__
    assert (tmp_path / f"to/vekgpu_ml-{version[1]}.dist-info").is_dir()
