# SPDX-License-Identifier: Apache-2.0
"""What ships for a fleet agrees with the exporter, and with itself."""
from __future__ import annotations

import json
import re
import subprocess
from pathlib import Path

from conftest import ROOT, Host, samples_of

PROMETHEUS = ROOT / "packaging/prometheus"
RULES = (PROMETHEUS / "vekgpu-alerts.yml").read_text()


def test_rules_pass_their_tests() -> None:
    for words in (["check", "rules", "vekgpu-alerts.yml"], ["test", "rules", "vekgpu-alerts-test.yml"]):
        result = subprocess.run(["promtool", *words], cwd=PROMETHEUS, text=True, capture_output=True)
        assert result.returncode == 0, result.stdout + result.stderr
    tests = (PROMETHEUS / "vekgpu-alerts-test.yml").read_text()
    for alert in re.findall(r"alert: (\w+)", RULES):
        assert f"name: {alert} fires\n" in tests and f"name: {alert} stays silent\n" in tests


def test_rules_quote_the_thresholds() -> None:
    header = (ROOT / "tools/readings/thresholds.h").read_text()
    numbers = {name: float(number) for name, number in re.findall(r"double (\w+) = ([\d.]+);", header)}
    quoted = re.findall(r'\{"(\w+)", thresholds::(\w+)\}', header)
    assert len(quoted) == len(numbers) > 5
    for alert, name in quoted:
        expression = re.search(rf"alert: {alert}\n +expr: (.*?)\n +(?:for|labels):", RULES, re.DOTALL)
        assert expression, alert
        bounds = [float(one) for one in re.findall(r"[<>]=? ([\d.]+)", expression.group(1))]
        assert numbers[name] in bounds, (alert, name)


def test_rules_and_dashboard_use_metrics_that_there_are(host: Host) -> None:
    known = {name for name, _ in samples_of(host.run("--once").stdout)}
    dashboard = json.loads((PROMETHEUS / "vekgpu-dashboard.json").read_text())
    panels = [panel for panel in dashboard["panels"] if panel["type"] != "row"]
    assert all(panel["description"] and panel["fieldConfig"]["defaults"]["unit"] for panel in panels)
    queries = " ".join(target["expr"] for panel in panels for target in panel["targets"])
    used = set(re.findall(r"\bvekgpu_\w+", queries + " ".join(re.findall(r"expr: (.*)", RULES))))
    assert len(used) > 20 and used <= known, used - known


def test_metrics_are_documented(host: Host) -> None:
    page = host.run("--once", "--processes", "1").stdout
    documented = (ROOT / "docs/fleet.md").read_text()
    for name, text in re.findall(r"# HELP (\S+) (.*)", page):
        assert f"| `{name}` |" in documented and text in documented, name


def test_service_is_confined() -> None:
    unit = ROOT / "packaging/systemd/vekgpu-exporter.service.in"
    settings = dict(line.split("=", 1) for line in unit.read_text().splitlines() if "=" in line and line[0] != "#")
    assert settings["PrivateNetwork"] == "yes" and settings["CapabilityBoundingSet"] == ""
    assert "ProtectProc" not in settings  # the names of processes are read from there
