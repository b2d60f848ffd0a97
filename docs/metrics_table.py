#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""usage: vekgpu-exporter --once --processes 1 | metrics_table.py

Writes the table of metrics in fleet.md anew, from what the exporter itself says of each.
"""
import re
import sys
from pathlib import Path

BEGIN, END = "<!-- metrics -->\n", "<!-- end of metrics -->\n"
page = sys.stdin.read()
rows = ["| metric | kind | labels beside `bus_id` | what it is |\n|---|---|---|---|\n"]
for name, text, kind in re.findall(r"# HELP (\S+) (.*)\n# TYPE \S+ (\w+)", page):
    sample = re.search(rf"^{name}\{{(.*?)\}} ", page, re.MULTILINE)
    labels = [] if sample is None else re.findall(r'(\w+)="', sample.group(1))
    shown = ", ".join(f"`{label}`" for label in labels if label != "bus_id")
    rows.append(f"| `{name}` | {kind} | {shown} | {text} |\n")
document = Path(__file__).parent / "fleet.md"
before, _, rest = document.read_text().partition(BEGIN)
document.write_text(before + BEGIN + "".join(rows) + END + rest.partition(END)[2])
