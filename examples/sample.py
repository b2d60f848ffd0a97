# SPDX-License-Identifier: Apache-2.0
"""Samples every GPU for a minute: into a pandas frame where there is pandas, else as CSV on standard output.

usage: python3 sample.py [SECONDS [INTERVAL]]

The cells work in a notebook as they stand. Needs python3-vekgpu-ml.
"""
from __future__ import annotations

# %% What to sample: a row for each GPU and turn. None stands where a GPU has no value.
import csv
import sys
import time
from typing import Dict, List, Union

import vekgpu_ml

try:
    import pandas  # type: ignore[import]
except ImportError:
    pandas = None

Row = Dict[str, Union[None, float, str]]


def sample(gpu: vekgpu_ml.Gpu) -> Row:
    power, memory = gpu.power, gpu.memory
    return {
        "time": time.time(),
        "gpu": gpu.index,
        "model": gpu.model,
        "temperature_celsius": gpu.temperature,
        "fan_rpm": gpu.fan_speed,
        "power_watts": power.average,
        "graphics_clock_mhz": gpu.clocks.graphics,
        "load_percent": gpu.load.gpu,
        "memory_used_bytes": memory.used,
        "memory_total_bytes": memory.total,
    }


# %% Sample.
seconds, interval = (float(given) for given in (sys.argv[1:] + ["60", "1"][len(sys.argv) - 1 :])[:2])
rows: List[Row] = []
with vekgpu_ml.session() as gpus:
    end = time.monotonic() + seconds
    while True:
        rows += map(sample, gpus)
        if time.monotonic() + interval > end:
            break
        time.sleep(interval)

# %% Look at it.
if not rows:
    sys.exit("no GPU found")
if pandas:
    frame = pandas.DataFrame(rows)
    frame["time"] = pandas.to_datetime(frame["time"], unit="s")
    print(frame.groupby("gpu")[["temperature_celsius", "power_watts", "load_percent"]].describe().T)
else:
    table = csv.DictWriter(sys.stdout, rows[0])
    table.writeheader()
    table.writerows(rows)
