#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""usage: exporter.py BIN_DIR [--only PART] [--scrapes N] [--exporters N] [--seconds N]

What the exporter costs and what disturbs it, on simulated hosts. Times that are compared are taken in turns, in one run.
Each line ends with what is owed; the exit status is 1 when something that is not a time is not kept.
"""
from __future__ import annotations

import argparse
import http.client
import json
import os
import re
import socket
import statistics
import subprocess
import sys
import tempfile
import time
import urllib.parse
import urllib.request
from pathlib import Path
from typing import Any, Callable, List, Optional

# Where the driver tells them.
PROCESSES = ["sys/class/drm/card{}/device/gpu_mem_util_info", "host/requests/card{}/C010644C.1"]
GROWTH_KIB = 256


def children(pid: int) -> List[int]:
    found = [int(one) for one in Path(f"/proc/{pid}/task/{pid}/children").read_text().split()]
    return found + [grand for child in found for grand in children(child)]


def private_kib(pid: int, kind: str = r"Private_\w+") -> int:
    text = Path(f"/proc/{pid}/smaps_rollup").read_text()
    return sum(int(one) for one in re.findall(kind + r": +(\d+)", text))


class Exporter:
    def __init__(self, binaries: Path, gpus: int, *options: str, still: bool = False, tree: Optional[Path] = None) -> None:
        self.directory = tempfile.TemporaryDirectory(prefix="vekgpu-bench-", dir="/dev/shm")
        self.tree = tree or Path(self.directory.name) / "host"
        self.command = [str(binaries / "veksim"), "--gpus", str(gpus), *(["--still"] if still else []),
                        "--tree", str(self.tree), "--"]
        self.process = subprocess.Popen([*self.command, str(binaries / "vekgpu-exporter"), "--listen", "127.0.0.1:0",
                                         *options], text=True, stderr=subprocess.PIPE)
        assert self.process.stderr is not None
        self.port = int(self.process.stderr.readline().rpartition(":")[2])
        self.first = self.scrape()

    def main(self) -> int:
        return children(self.process.pid)[0]

    def processes(self) -> List[int]:
        return [self.main(), *children(self.main())]

    def scrape(self) -> float:
        begin = time.monotonic()
        connection = http.client.HTTPConnection("127.0.0.1", self.port, timeout=30)
        connection.request("GET", "/metrics")
        self.page = connection.getresponse().read().decode()
        connection.close()
        return time.monotonic() - begin

    def ups(self) -> List[str]:
        return re.findall(r"^vekgpu_up\{.*\} (\d)$", self.page, re.MULTILINE)

    def holdings(self) -> "tuple[List[int], List[int]]":
        """Memory written to, in KiB, and open descriptors, of the main process and its readers."""
        time.sleep(0.5)  # the last connection is closed by then
        processes = self.processes()
        return ([private_kib(pid, "Private_Dirty") for pid in processes],
                [len(os.listdir(f"/proc/{pid}/fd")) for pid in processes])

    def hang(self) -> None:
        fault = self.tree / "host/stuck/sys/class/drm/card1/device/gpu_util_info"
        fault.parent.mkdir(parents=True)
        fault.touch()

    def stop(self) -> None:
        self.process.terminate()
        self.process.wait()
        self.directory.cleanup()


kept = True


def owed(holds: bool, words: str) -> str:
    global kept
    kept = kept and holds
    return f"({words}{'' if holds else ': NOT KEPT'})"


def milliseconds(times: List[float]) -> str:
    return f"{statistics.median(times) * 1000:.1f} ms (mean {statistics.mean(times) * 1000:.1f})"


def page_and_query(binaries: Path) -> None:
    exporter = Exporter(binaries, 15)
    wanted = re.findall(r'VEKGPU_FIELD\("(\w+)", \w+, (?:gauge|counter|info)',
                        (Path(__file__).parents[1] / "tools/readings/fields.inc").read_text())
    query = [*exporter.command[:1], "--tree", str(exporter.tree), "--", str(binaries / "veksmi"), "query", "--format",
             "json", "--fields", ",".join(wanted)]

    def asked() -> float:
        begin = time.monotonic()
        subprocess.run(query, check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        return time.monotonic() - begin

    pairs = [(exporter.scrape(), asked()) for _ in range(15)]
    page, client = [pair[0] for pair in pairs], [pair[1] for pair in pairs]
    print(f"15 GPUs: a page {milliseconds(page)}, veksmi query of its fields {milliseconds(client)}, "
          f"ratio {statistics.median(page) / statistics.median(client):.2f}; {len(exporter.page)} bytes, "
          f"{exporter.page.count(chr(10)) - exporter.page.count('# ')} series (owed: at most 1.5)")
    memory = [private_kib(pid) for pid in exporter.processes()]
    print(f"15 GPUs: private memory of {len(memory)} processes {sum(memory) / 1024:.1f} MiB, of the main one "
          f"{memory[0] / 1024:.1f} MiB {owed(len(memory) == 16 and sum(memory) < 32 * 1024, 'owed: under 32 MiB')}")
    exporter.stop()


def endurance(binaries: Path, scrapes: int) -> None:
    exporter = Exporter(binaries, 2, "--processes", "5", still=True)
    lists = [[exporter.tree / place.format(card) for card in (0, 1)] for place in PROCESSES]
    seen = set()

    def scrape() -> float:
        """After the processes of the one GPU have become those of the other."""
        for one, other in lists:
            aside = exporter.tree / "aside"
            for source, target in ((one, aside), (other, one), (aside, other)):
                source.rename(target)
        took = exporter.scrape()
        seen.add("\n".join(re.findall(r"^vekgpu_process_memory_bytes.*", exporter.page, re.MULTILINE)))
        return took

    for _ in range(min(500, scrapes)):
        scrape()
    first, before = [scrape() for _ in range(50)], exporter.holdings()
    for _ in range(scrapes):
        scrape()
    last, after = [scrape() for _ in range(50)], exporter.holdings()
    grown = sum(after[0]) - sum(before[0])
    is_flat = grown <= GROWTH_KIB and after[1] == before[1] and len(seen) > 1
    print(f"{scrapes} scrapes with processes coming and going: {milliseconds(first)} before, {milliseconds(last)} after; "
          f"written KiB {before[0]} -> {after[0]}; descriptors {before[1]} -> {after[1]} "
          f"{owed(is_flat, f'owed: at most {GROWTH_KIB} KiB more, no descriptor')}")
    exporter.stop()


def bad_clients(binaries: Path) -> None:
    exporter = Exporter(binaries, 4, still=True)
    usual, disturbed = [], []
    for _ in range(8):
        usual += [exporter.scrape() for _ in range(5)]
        silent = [socket.create_connection(("127.0.0.1", exporter.port)) for _ in range(63)]
        for one in silent:
            one.sendall(b"GET /metrics HTTP/1.1\r\nHost: ")
        slow = []
        for _ in range(8):
            one = socket.socket()
            one.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 2048)
            one.connect(("127.0.0.1", exporter.port))
            one.sendall(b"GET /metrics HTTP/1.1\r\nHost: x\r\n\r\n" * 20)
            slow.append(one)
        time.sleep(0.3)  # what they asked for is under way
        disturbed += [exporter.scrape() for _ in range(5)]
        for one in silent + slow:
            one.close()
        time.sleep(0.1)
    more = (statistics.median(disturbed) - statistics.median(usual)) * 1000
    print(f"63 half-open connections and 8 slow readers: {milliseconds(usual)} without, {milliseconds(disturbed)} with, "
          f"{more:+.1f} ms (owed: within 10 ms)")
    exporter.stop()


def stuck(binaries: Path) -> None:
    exporter, three = Exporter(binaries, 4, still=True), Exporter(binaries, 3, still=True)
    exporter.hang()
    first = exporter.scrape()
    pairs = [(exporter.scrape(), three.scrape()) for _ in range(30)]
    later, others = [pair[0] for pair in pairs], [pair[1] for pair in pairs]
    print(f"one of 4 GPUs stuck, deadline 500 ms: first {first * 1000:.0f} ms (owed: at most 550), later "
          f"{milliseconds(later)}, 3 GPUs alone {milliseconds(others)}, "
          f"ratio {statistics.median(later) / statistics.median(others):.2f} (owed: about 1) "
          f"{owed(exporter.ups() == ['1', '0', '1', '1'], 'owed: the other three answer')}")
    tree, directory = exporter.tree, exporter.directory
    exporter.process.terminate()
    exporter.process.wait()
    again = Exporter(binaries, 4, tree=tree, still=True)
    whole = again.ups().count("1")
    later = [again.scrape() for _ in range(20)]
    print(f"started anew while it hangs: first {again.first * 1000:.0f} ms with {whole} GPUs, later {milliseconds(later)} "
          f"{owed(whole == 3 and again.ups().count('1') == 3, 'owed: the other three at once')}")
    again.stop()
    three.stop()
    directory.cleanup()


def fleet(binaries: Path, exporters: int, seconds: int) -> None:
    hosts = [Exporter(binaries, 15, still=True) for _ in range(exporters)]
    with tempfile.TemporaryDirectory(prefix="vekgpu-bench-") as name, socket.create_server(("127.0.0.1", 0)) as probe:
        directory, port = Path(name), probe.getsockname()[1]
        probe.close()
        targets = ", ".join(f"'127.0.0.1:{host.port}'" for host in hosts)
        (directory / "prometheus.yml").write_text(
            "global: {scrape_interval: 5s, scrape_timeout: 4s}\nscrape_configs:\n"
            f"  - {{job_name: vekgpu, static_configs: [{{targets: [{targets}]}}]}}\n")
        with (directory / "log").open("w") as log:
            server = subprocess.Popen(["prometheus", f"--config.file={directory / 'prometheus.yml'}",
                                       f"--storage.tsdb.path={directory / 'data'}", "--log.level=debug",
                                       f"--web.listen-address=127.0.0.1:{port}"], stderr=log)
        time.sleep(seconds)

        now = time.time()  # of all queries, or a scrape between two of them would seem missed

        def ask(query: str) -> Any:
            address = f"http://127.0.0.1:{port}/api/v1/query?" + urllib.parse.urlencode({"query": query, "time": now})
            with urllib.request.urlopen(address, timeout=20) as reply:
                return [float(one["value"][1]) for one in json.loads(reply.read())["data"]["result"]]

        window = f"[{seconds - 6}s]"
        made, answered = (sum(ask(f"{total}_over_time(up{window})")) for total in ("count", "sum"))
        took = ask(f"avg_over_time(scrape_duration_seconds{window})")
        longest = ask(f"max_over_time(scrape_duration_seconds{window})")
        ill = sum(ask(f'max_over_time(vekgpu_state{{state="stuck"}}{window})'))
        memory = sum(private_kib(pid) for host in hosts for pid in host.processes())
        print(f"{exporters} exporters of 15 GPUs, every 5 s, for {seconds} s: {made:.0f} scrapes, "
              f"missed {made - answered:.0f}; mean {statistics.mean(took) * 1000:.0f} ms, longest "
              f"{max(longest) * 1000:.0f} ms; GPUs once told stuck {ill:.0f}; private memory "
              f"{memory / 1024:.0f} MiB, of Prometheus {private_kib(server.pid) / 1024:.0f} MiB "
              f"{owed(made == answered and made > exporters, 'owed: none missed')}")
        for fault in re.findall(r".*Scrape failed.*", (directory / "log").read_text()):
            print(fault)
        server.terminate()
        server.wait()
    for host in hosts:
        host.stop()


def main() -> int:
    parser = argparse.ArgumentParser()
    parser.add_argument("binaries", type=Path)
    parser.add_argument("--scrapes", type=int, default=100_000)
    parser.add_argument("--exporters", type=int, default=50)
    parser.add_argument("--seconds", type=int, default=120)
    parser.add_argument("--only", choices=["page", "clients", "stuck", "endurance", "fleet"])
    wanted = parser.parse_args()
    parts: "dict[str, Callable[[], None]]" = {
        "page": lambda: page_and_query(wanted.binaries),
        "clients": lambda: bad_clients(wanted.binaries),
        "stuck": lambda: stuck(wanted.binaries),
        "endurance": lambda: endurance(wanted.binaries, wanted.scrapes),
        "fleet": lambda: fleet(wanted.binaries, wanted.exporters, wanted.seconds),
    }
    for name, run in parts.items():
        if wanted.only in (None, name):
            run()
    return 0 if kept else 1


if __name__ == "__main__":
    sys.exit(main())
