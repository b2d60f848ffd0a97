# SPDX-License-Identifier: Apache-2.0
"""python3 -m vekgpu_ml: the GPUs of this host, as `veksmi list` shows them."""
from __future__ import annotations

import re
import sys
from typing import List, Optional

from . import VekgpuError, session

HEADINGS = ("INDEX", "CARD", "MODEL", "NAME", "BUS ID", "UUID", "STATE")
RIGHT = ("INDEX", "CARD")
# Control characters, marks of direction, line separators, and what stands for bytes that are no text.
OBEYED = re.compile("[\x00-\x1f\x7f-\x9f\u061c\u200e\u200f\u2028-\u202e\u2066-\u2069\ufeff\ufffd]")


def cell(value: Optional[object]) -> str:
    """A value without anything that a terminal would obey."""
    if value is None:
        return "N/A"
    return OBEYED.sub("?", str(value))


def main() -> int:
    """Prints the table."""
    try:
        with session() as gpus:
            rows = [
                # One that hung would not have let us come here.
                [cell(value) for value in (gpu.index, gpu.card, gpu.model, gpu.name, gpu.bus_id, gpu.uuid, "ok")]
                for gpu in gpus
            ]
    except VekgpuError as error:
        print(f"vekgpu_ml: {error}", file=sys.stderr)
        return 1
    if not rows:
        print("No GPU found; where its driver is not loaded, try veksmi --out-of-band list as root.")
        return 0
    table: List[List[str]] = [list(HEADINGS), *rows]
    widths = [max(map(len, column)) for column in zip(*table)]
    for row in table:
        cells = [
            text.rjust(width) if heading in RIGHT else text.ljust(width)
            for heading, text, width in zip(HEADINGS, row, widths)
        ]
        print("  ".join(cells).rstrip())
    return 0


if __name__ == "__main__":
    sys.exit(main())
