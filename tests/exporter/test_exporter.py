# SPDX-License-Identifier: Apache-2.0
"""What scrapers, people and service managers meet."""
from __future__ import annotations

import os
import re
import resource
import signal
import socket
import subprocess
import threading
import time
from pathlib import Path

import pytest

from conftest import OPENMETRICS, ROOT, Exporter, Host, bus_ids, promtool_objects_to, samples_of, until

FIRST = ("bus_id", "0000:03:00.0")


def test_the_page_is_the_recorded_one(host: Host) -> None:
    """EXPORTER_RECORD=1 records it anew."""
    recorded = Path(__file__).with_name("page.txt")
    for name, text in {"temp1_input": "57", "in0_input": "857", "curr1_input": "24001", "fan1_input": "2399"}.items():
        host.write(host.hwmon(name), text)
    exporter = host.export("--processes", "2")
    for page in (host.run("--once", "--processes", "2").stdout, exporter.get().text):
        told = re.sub(r'(?m)(_seconds(?:\{.*\})?) \S+$|(?:\bversion|user)="[^"]*"', r"\1", page)
        if os.environ.get("EXPORTER_RECORD"):
            recorded.write_text(told)
        assert told == recorded.read_text()
        assert 0 < samples_of(page)[("vekgpu_scrape_duration_seconds", ())] < 30
    assert exporter.samples()[("vekgpu_last_success_timestamp_seconds", (FIRST,))] == pytest.approx(time.time(), abs=60)


def test_what_is_missing_is_left_out_and_errors_are_counted(host: Host) -> None:
    host.hwmon("fan1_input").unlink()
    host.write(host.hwmon("temp1_input"), "warm")
    exporter = host.export()
    exporter.get()
    metrics = exporter.samples()
    assert ("vekgpu_fan_speed_rpm", (FIRST,)) not in metrics
    assert ("vekgpu_temperature_celsius", (FIRST,)) not in metrics
    assert metrics[("vekgpu_read_errors_total", (FIRST, ("reason", "malformed")))] >= 2
    assert ("vekgpu_fan_speed_rpm", (("bus_id", "0000:04:00.0"),)) in metrics


def test_series_of_a_gpu_are_few(host: Host) -> None:
    metrics = samples_of(host.run("--once").stdout)
    assert 40 < sum(FIRST in labels for _, labels in metrics) <= 60
    assert not any(name.startswith("vekgpu_process_") for name, _ in metrics)


@pytest.mark.parametrize("accept, is_open", [
    (None, False),
    ("*/*", False),
    (OPENMETRICS, True),
    (f"{OPENMETRICS};version=1.0.0,{OPENMETRICS};version=0.0.1;q=0.75,text/plain;version=0.0.4;q=0.5,*/*;q=0.1", True),
    (f"{OPENMETRICS};q=0.4, text/plain;q=0.5", False),
    (f"{OPENMETRICS};version=7.0.0", False),
    (f"{OPENMETRICS};q=0", False),
    (";;,q=,;version=" + "," * 500, False),
])
def test_scraper_gets_the_format_it_asks_for(host: Host, accept: str, is_open: bool) -> None:
    exporter = host.export("--processes", "5")
    answer = exporter.get(**({"Accept": accept} if accept else {}))
    assert answer.headers["Content-Type"].startswith(OPENMETRICS if is_open else "text/plain; version=0.0.4")
    samples_of(answer.text, is_open)
    assert answer.text.endswith("# EOF\n") == is_open
    if not is_open:
        assert promtool_objects_to(answer.text) == ""


def test_every_request_gets_a_plain_answer(host: Host) -> None:
    exporter = host.export()
    for method, path, status in [
        ("GET", "/metrics", 200), ("GET", "/metrics?x=1", 200), ("HEAD", "/metrics", 200), ("GET", "/", 200),
        ("GET", "/healthz", 200), ("GET", "/metrics/", 404), ("GET", "/..%2f..%2fetc/passwd", 404),
        ("GET", "/" + "x" * 4000, 404), ("POST", "/metrics", 405), ("DELETE", "/", 405), ("PUT", "/nowhere", 405),
    ]:
        answer = exporter.get(path, method)
        assert answer.status == status, (method, path)
        assert not re.search(r"1\.\d+\.\d+|microhttpd", f"{answer.headers}{'' if status == 200 else answer.text}")
    assert exporter.get("/metrics", Filler="x" * 100_000).status in (413, 431)
    assert exporter.get().status == 200
    assert exporter.stop() == 0


@pytest.mark.parametrize("host", [4], indirect=True)
def test_stuck_gpu_costs_one_deadline_once(host: Host) -> None:
    exporter = host.export()
    assert exporter.get().status == 200
    fault = host.hang(1)
    assert 0.5 <= exporter.get().seconds < 0.9
    assert exporter.get().seconds < 0.5
    metrics = exporter.samples()
    assert [metrics[("vekgpu_up", (("bus_id", one),))] for one in bus_ids(exporter.get().text)] == [1, 0, 1, 1]
    assert exporter.state(1) == "stuck" and exporter.get("/healthz").status == 200
    assert "gpu_util_info" in exporter.get("/").text
    other = host.export()  # beside one that hangs
    assert [other.state(card) for card in range(4)] == ["ok", "stuck", "ok", "ok"]
    fault.unlink()
    until(lambda: exporter.state(1) == "ok")
    exporter.stop()
    assert [line.partition(": GPU ")[2].split(":")[-2 if "stuck" in line else -1].strip() for line in exporter.lines
            if "GPU" in line][-1] == "ok"


def test_hasty_scraper_gets_what_there_is_and_judges_nobody(host: Host) -> None:
    exporter = host.export("--deadline", "3")
    exporter.get()
    fault = host.hang(0)
    threading.Timer(1, fault.unlink).start()
    hasty = exporter.get(X_Prometheus_Scrape_Timeout_Seconds="0.5")
    assert hasty.seconds < 0.9
    metrics = samples_of(hasty.text)
    assert [metrics[("vekgpu_up", (("bus_id", one),))] for one in bus_ids(hasty.text)] == [0, 1]
    assert exporter.state(0) == "ok"
    for text in ("0", "-1", "nan", "inf", "1e400", "soon"):
        assert exporter.get(X_Prometheus_Scrape_Timeout_Seconds=text).status == 200
    exporter.stop()
    assert not any("stuck" in line for line in exporter.lines)


def test_states_are_told_apart(host: Host) -> None:
    exporter = host.export()
    assert exporter.state(0) == "ok"
    runtime_status = host.card("device/power/runtime_status")
    runtime_status.write_text("suspended\n")
    assert exporter.state(0) == "asleep" and exporter.get("/healthz").status == 200
    metrics = exporter.samples()
    assert metrics[("vekgpu_up", (FIRST,))] == 0 and ("vekgpu_temperature_celsius", (FIRST,)) not in metrics
    assert any(name == "vekgpu_info" and ("name", "TALON-M1") in labels for name, labels in metrics)
    runtime_status.write_text("active\n")
    assert exporter.state(0) == "ok"
    host.card("").rename(host.tree / "host/away")
    assert exporter.state(0) == "lost"
    (host.tree / "host/away").rename(host.card(""))
    until(lambda: exporter.state(0) == "ok")


def test_crashed_reader_is_told_and_started_anew(host: Host) -> None:
    exporter = host.export()
    exporter.get()
    children = Path(f"/proc/{exporter.process.pid}/task/{exporter.process.pid}/children")
    main = children.read_text().split()[0]
    reader = int(Path(f"/proc/{main}/task/{main}/children").read_text().split()[0])
    os.kill(reader, signal.SIGSEGV)
    until(lambda: "crashed" in (exporter.state(0), exporter.state(1)))
    assert exporter.get("/healthz").status == 200
    until(lambda: exporter.state(0) == exporter.state(1) == "ok")


def test_hostile_texts_are_shown_and_not_obeyed(host: Host) -> None:
    node = host.card("vek_product_name")
    assert node.exists()
    for name in ('<b>"\\&', "\x1b[2J\u202eabc", "\xff\x80"):
        node.write_bytes(name.encode("utf-8" if name != "\xff\x80" else "latin-1") + b"\n")
        exporter = host.export()
        page, metrics = exporter.get("/").text, exporter.get()
        assert "<h2>GPU 0: <bdi>" in page and "TALON-M1" not in page + metrics.text
        assert promtool_objects_to(metrics.text) == "" and samples_of(metrics.text)
        assert "<b>" not in page and "\x1b" not in page + metrics.text and "\u202e" not in page + metrics.text
        assert "<script" not in page and "http:" not in page and "//" not in page
        exporter.stop()


def test_cards_that_claim_one_address_stay_apart(host: Host) -> None:
    device = host.card("device", 1)
    device.unlink()
    device.symlink_to(os.path.relpath(os.path.realpath(host.card("device", 0)), os.path.realpath(device.parent)))
    page = host.run("--once").stdout
    assert len(set(bus_ids(page))) == len(bus_ids(page)) == 2
    assert promtool_objects_to(page) == "" and samples_of(page)


@pytest.mark.parametrize("host", [0], indirect=True)
def test_host_without_gpus_is_well(host: Host) -> None:
    exporter = host.export()
    assert "vekgpu_exporter_build_info" in exporter.get().text and bus_ids(exporter.get().text) == []
    assert "No GPU found" in exporter.get("/").text and exporter.get("/healthz").status == 200


def test_pages_stay_whole_whatever_breaks(host: Host) -> None:
    exporter = host.export("--processes", "5")
    nodes = sorted(node for top in ("sys/class/drm/card0/device", "sys/class/drm/card0/device/hwmon")
                   for node in (host.tree / top).rglob("*") if node.is_file())
    assert len(nodes) > 40
    faults = ("missing", "errno:13", "errno:5:read", "garbage", "empty")
    for number, node in enumerate(nodes):
        kept = node.read_bytes()
        for fault in faults:
            node.unlink()
            if fault.startswith("errno"):
                node.symlink_to(fault)
            elif fault != "missing":
                node.write_bytes(b'-1 nan "}\n{\\ 99999999999999999999999999\xff\n' if fault == "garbage" else b"")
            page = exporter.get().text
            assert samples_of(page) and not re.search(r" [-+]?(nan|inf)$", page, re.I | re.M), (node, fault)
            assert fault != faults[number % len(faults)] or promtool_objects_to(page) == "", (node, fault)
            node.unlink(missing_ok=True)
            node.write_bytes(kept)
    until(lambda: exporter.state(0) == "ok")


def test_neither_silent_nor_slow_clients_hold_up_others(host: Host) -> None:
    exporter = host.export()
    silent = [exporter.connect() for _ in range(63)]
    for connection in silent[::2]:
        connection.sendall(b"GET /metrics HTTP/1.1\r\nHost: ")
    slow = [exporter.connect() for _ in range(8)]
    for connection in slow:
        connection.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 2048)
        connection.sendall(b"GET /metrics HTTP/1.1\r\nHost: x\r\n\r\n" * 20)
    assert all(exporter.get().seconds < 2 for _ in range(5))
    for connection in silent + slow:
        connection.close()


def test_more_connections_than_descriptors_pass(host: Host) -> None:
    usual = resource.getrlimit(resource.RLIMIT_NOFILE)
    resource.setrlimit(resource.RLIMIT_NOFILE, (40, usual[1]))
    exporter = host.export()
    resource.setrlimit(resource.RLIMIT_NOFILE, usual)
    for _ in range(3):
        held = [exporter.connect() for _ in range(100)]
        time.sleep(0.2)
        for connection in held:
            connection.close()
        assert exporter.get().status == 200


@pytest.mark.parametrize("arguments, reason", [
    (["--listen", "127.0.0.1"], "--listen takes HOST:PORT or unix:PATH"),
    (["--listen", "127.0.0.1:70000"], "port is a number"),
    (["--listen", "::1:9899"], "in brackets"),
    (["--listen", "192.0.2.1:0"], "cannot listen on 192.0.2.1:0"),
    (["--listen", "unix:/nowhere/socket"], "cannot listen on unix:/nowhere/socket"),
    (["--listen", "unix:/etc/passwd"], "something else stands there"),
    (["--deadline", "0"], "--deadline takes 0.01 to 60 seconds"),
    (["--processes", "6"], "--processes takes a number from 0 to 5"),
    (["--units", "/dev/null/x"], "/dev/null/x"),
    (["--nonsense"], 'unknown argument "--nonsense"'),
    (["--listen"], "--listen needs one value"),
])
def test_wrong_usage_is_one_line_and_serves_nothing(host: Host, arguments: "list[str]", reason: str) -> None:
    result = host.run(*arguments)
    assert result.returncode == 1 and result.stdout == ""
    assert reason in result.stderr and result.stderr.count("\n") == 1


@pytest.mark.parametrize("lost", ["2>/dev/full", "2>&-"])
def test_lost_log_ends_nothing(host: Host, tmp_path: Path, lost: str) -> None:
    path = tmp_path / "socket"
    process = subprocess.Popen(["sh", "-c", f'exec "$@" --listen unix:{path} {lost}', "-", *host.command()])
    until(path.exists)
    with socket.socket(socket.AF_UNIX) as client:
        client.connect(str(path))
        client.sendall(b"GET /healthz HTTP/1.0\r\n\r\n")
        assert client.recv(100).startswith(b"HTTP/1.1 200")
    process.terminate()
    assert process.wait(timeout=20) == 0


def test_version_is_told_and_every_option_documented(host: Host) -> None:
    for asked in ("--help", "--once"):
        full = subprocess.run(["sh", "-c", '"$@" >/dev/full', "-", *host.command(asked)], text=True, capture_output=True)
        assert full.returncode == 1 and "cannot write: No space left on device" in full.stderr
    assert host.run("--version").stdout.startswith("vekgpu-exporter 1.")
    options = set(re.findall(r"--([a-z-]+)", host.run("--help").stdout))
    for file, form in {"vekgpu-exporter.1": "Fl Fl {}", "completion/vekgpu-exporter.bash": "--{}",
                       "completion/_vekgpu-exporter": "--{}", "completion/vekgpu-exporter.fish": "-l {} "}.items():
        text = (ROOT / "packaging" / file).read_text()
        assert [option for option in options if form.format(option) not in text] == [], file


def test_unix_socket_is_made_and_removed(host: Host, tmp_path: Path) -> None:
    path = tmp_path / "socket"
    abandoned = socket.socket(socket.AF_UNIX)
    abandoned.bind(str(path))
    abandoned.close()
    exporter = host.export(listen=f"unix:{path}")
    assert exporter.get().status == 200 and path.stat().st_mode & 0o777 == 0o660
    assert "it is in use" in host.run("--listen", f"unix:{path}").stderr
    exporter.stop()
    assert not path.exists()


def test_socket_of_the_service_manager_is_used(host: Host) -> None:
    handed = socket.create_server(("127.0.0.1", 0))
    start = 'exec 3<&"$HANDED"; exec env LISTEN_FDS=1 sh -c \'LISTEN_PID=$$ exec "$@"\' - "$@"'
    environment = {**os.environ, "HANDED": str(handed.fileno()), "VEKSIM_TREE": str(host.tree),
                   "LD_PRELOAD": os.environ["INTERPOSER"]}
    exporter = Exporter(["bash", "-c", start, "-", os.environ["EXPORTER"]], env=environment, pass_fds=[handed.fileno()])
    host.exporters.append(exporter)
    assert exporter.address == f"127.0.0.1:{handed.getsockname()[1]}"
    handed.close()
    assert exporter.get("/healthz").status == 200 and exporter.stop() == 0
