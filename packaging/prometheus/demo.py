#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""usage: demo.py BIN_DIR [--check]

A simulated host with four GPUs, one of which falls ill; the exporter; a Prometheus that scrapes it every second. Runs
until Ctrl-C. With --check: until the alert about the sick GPU fires and every query of the dashboard and the rules has
been answered; fails when one is not.
"""
from __future__ import annotations

import json
import re
import signal
import socket
import subprocess
import sys
import tempfile
import time
import urllib.parse
import urllib.request
from pathlib import Path
from typing import Any, Callable, List

HERE = Path(__file__).resolve().parent
HEALTHY_SECONDS = 30
PATIENCE = 180
SICK = "card2/device/gpu_util_info"  # the node that hangs


def free_port() -> int:
    with socket.create_server(("127.0.0.1", 0)) as probe:
        return int(probe.getsockname()[1])


def fetch(address: str) -> str:
    with urllib.request.urlopen(address, timeout=10) as reply:
        return str(reply.read().decode())


def until(what: str, told: Callable[[], Any]) -> None:
    end = time.monotonic() + PATIENCE
    while True:
        try:
            if told():
                return
        except OSError:
            pass
        if time.monotonic() > end:
            raise SystemExit(f"demo: {what} did not come about in {PATIENCE} seconds")
        time.sleep(0.2)


def rules_for_the_demo() -> str:
    """The rules as they ship, but quicker to fire."""
    return re.sub(r"( +for:) .*", r"\1 5s", (HERE / "vekgpu-alerts.yml").read_text())


class Demo:
    def __init__(self, binaries: Path, directory: Path) -> None:
        self.tree = directory / "host"
        self.running: List["subprocess.Popen[bytes]"] = []
        self.exporter = f"127.0.0.1:{free_port()}"
        self.prometheus = f"127.0.0.1:{free_port()}"
        (directory / "rules.yml").write_text(rules_for_the_demo())
        (directory / "prometheus.yml").write_text(
            "global: {scrape_interval: 1s, scrape_timeout: 900ms, evaluation_interval: 1s}\n"
            "rule_files: [rules.yml]\n"
            "scrape_configs:\n"
            f"  - {{job_name: vekgpu, static_configs: [{{targets: ['{self.exporter}']}}]}}\n"
        )
        self.start([binaries / "veksim", "--gpus", "4", "--tree", self.tree, "--",
                    binaries / "vekgpu-exporter", "--listen", self.exporter])
        self.start(["prometheus", f"--config.file={directory / 'prometheus.yml'}",
                    f"--storage.tsdb.path={directory / 'data'}", f"--web.listen-address={self.prometheus}",
                    "--log.level=error"])

    def start(self, command: List[Any]) -> None:
        self.running.append(subprocess.Popen([str(word) for word in command], start_new_session=True))

    def stop(self) -> None:
        for process in self.running:
            process.terminate()
        for process in self.running:
            try:
                process.wait(timeout=20)
            except subprocess.TimeoutExpired:
                process.kill()
                process.wait()

    def ask(self, kind: str, **query: str) -> Any:
        address = f"http://{self.prometheus}/api/v1/{kind}?{urllib.parse.urlencode(query)}"
        return json.loads(fetch(address))["data"]

    def fall_ill(self) -> None:
        fault = self.tree / "host/stuck/sys/class/drm" / SICK
        fault.parent.mkdir(parents=True, exist_ok=True)
        fault.touch()

    def fires(self, alert: str) -> bool:
        return any(one["labels"]["alertname"] == alert and one["state"] == "firing"
                   for one in self.ask("alerts")["alerts"])

    def is_answered(self, query: str) -> bool:
        return bool(self.ask("query", query=query)["result"])


def queries_of_the_dashboard() -> List[str]:
    board = json.loads((HERE / "vekgpu-dashboard.json").read_text())
    found = [target["expr"] for panel in board["panels"] for target in panel.get("targets", [])]
    return [query.replace("$host", ".*").replace("$gpu", ".*") for query in found]


def check(demo: Demo) -> None:
    until("the first scrape", lambda: demo.is_answered('vekgpu_state{state="ok"} == 1'))
    queries = queries_of_the_dashboard()
    assert len(queries) > 20
    for query in queries:
        until(f"an answer to {query}", lambda query=query: demo.is_answered(query))
    groups = demo.ask("rules")["groups"]
    rules = [rule for group in groups for rule in group["rules"]]
    until("the evaluation of the rules", lambda: all(
        rule["health"] == "ok" for group in demo.ask("rules")["groups"] for rule in group["rules"]))
    print(f"{len(queries)} queries of the dashboard and {len(rules)} rules are answered")
    assert not demo.fires("VekgpuStuck")
    demo.fall_ill()
    until("the alert of the sick GPU", lambda: demo.fires("VekgpuStuck"))
    assert not demo.fires("VekgpuNotScraped")
    page = fetch(f"http://{demo.exporter}/")
    assert 'class="stuck"' in page and "3 of 4 GPUs well" in page
    print("VekgpuStuck fires for the sick GPU; the exporter still answers for the other three")


def show(demo: Demo) -> None:
    until("the first scrape", lambda: demo.is_answered("vekgpu_up == 1"))
    print(f"the GPUs:    http://{demo.exporter}/\n"
          f"Prometheus:  http://{demo.prometheus}/graph?g0.expr=vekgpu_temperature_celsius&g0.tab=0\n"
          f"the alerts:  http://{demo.prometheus}/alerts\n"
          f"One GPU falls ill in {HEALTHY_SECONDS} seconds. Ctrl-C ends all.", flush=True)
    time.sleep(HEALTHY_SECONDS)
    demo.fall_ill()
    print("0000:05:00.0 hangs now", flush=True)
    while True:
        time.sleep(3600)


def main() -> int:
    for number in (signal.SIGTERM, signal.SIGHUP):
        signal.signal(number, signal.default_int_handler)
    with tempfile.TemporaryDirectory(prefix="vekgpu-demo-") as directory:
        demo = Demo(Path(sys.argv[1]), Path(directory))
        try:
            (check if "--check" in sys.argv else show)(demo)
        except KeyboardInterrupt:
            pass
        finally:
            demo.stop()
    return 0


if __name__ == "__main__":
    sys.exit(main())
