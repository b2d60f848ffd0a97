#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""usage: documents.py ROOT BIN_DIR LIBRARY CC

What the documents and the manual pages show is run on a simulated host: commands do not fail, what is printed has the
words and the headings shown, the clients in C and in Python build and run, the JSON has the keys.
"""
from __future__ import annotations

import json
import os
import re
import subprocess
import sys
import tempfile
from pathlib import Path
from typing import Iterator, List, Set, Tuple

ROOT, BIN, LIBRARY, CC = Path(sys.argv[1]), Path(sys.argv[2]), Path(sys.argv[3]), sys.argv[4]
sys.path.insert(0, str(ROOT / "tests" / "top"))
from terminal import Terminal  # noqa: E402

os.environ.update(PATH=f"{BIN}:/usr/bin:/bin", LC_ALL="C.UTF-8", VEKGPU_ML_LIBRARY=str(LIBRARY), LC_TIME="C.UTF-8",
                  PYTHONPATH=str(ROOT / "python"), PYTHONDONTWRITEBYTECODE="1", LD_LIBRARY_PATH=str(LIBRARY.parent))  # fmt: skip
# The simulated host plays root; without jq, what it would have made of it is not looked at.
HELPERS = 'set -o pipefail; sudo() { "$@"; }; command -v jq >/dev/null || jq() { cat; }\n'
failures: List[str] = []


def expect(good: bool, what: str) -> None:
    if not good:
        failures.append(what)
        print(f"FAILED {what}")


def blocks(text: str) -> Iterator[Tuple[str, str, str]]:
    """The language of each fenced block, the paragraph before it, and itself."""
    for found in re.finditer(r"^```(\w*)\n(.*?)^```", text, re.M | re.S):
        yield found[1], text[: found.start()].rstrip().rpartition("\n\n")[2], found[2]


def run(command: str) -> "subprocess.CompletedProcess[str]":
    return subprocess.run(["timeout", "60", "bash", "-c", command], stdin=subprocess.DEVNULL, check=False, text=True,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT)  # fmt: skip


def try_command(where: str, line: str) -> None:
    line = re.sub(r"\s+# .*", "", line)
    line = re.sub(r"veksmi monitor\b", "veksmi monitor -c 2", re.sub(r"veksmi top\b", "veksmi top --once", line))
    if re.match(r"(sudo )?veksmi\b", line):
        Path("line.sh").write_text(HELPERS + line)
        line = "veksim --tree host -- bash line.sh"
    elif not re.match(r"(veksim|rm|echo)\b", line):
        return
    done = run(line)
    expected = {0, 1, 2, 3} if "health" in Path("line.sh").read_text() and "line.sh" in line else {255} if "broken -- veksmi" in line else {0}
    expect(done.returncode in expected, f"{where}: {line}: exit {done.returncode}\n{Path('line.sh').read_text()}\n{done.stdout}")


def words(text: str) -> Set[str]:
    return set(re.findall(r"[^\W\d_]{2,}", text)) - {"KiB", "MiB", "GiB", "root"}


def compare(where: str, command: str, shown: str) -> None:
    """Numbers move, and a process is of whoever runs this; words and the headings of tables stay."""
    if command == "veksmi top":
        with Terminal(["veksim", "--gpus", "1", "--", "veksmi", "top", "-n", "1"], 80, 40, XDG_STATE_HOME=".") as screen:
            screen.wait(lambda text: words(shown) <= words(text) or "lost" in text)
            printed = screen.text
    else:
        printed = run(f"veksim --gpus 2 -- {command}").stdout
    expect(words(shown) <= words(printed), f"{where}: {command} does not print {sorted(words(shown) - words(printed))}")
    there = [" ".join(line.split()) for line in printed.splitlines()]
    for line in shown.splitlines():
        heading = " ".join(line.split())
        if heading and command != "veksmi top" and not re.search(r"\d", heading):
            expect(heading in there, f"{where}: {command} has no heading {heading!r}:\n{printed}")


def keys(value: object) -> Set[str]:
    if isinstance(value, list):
        return set().union(*map(keys, value))
    return set(value) | keys(list(value.values())) if isinstance(value, dict) else set()


def try_document(path: Path) -> None:
    where = path.relative_to(ROOT)
    text = path.read_text()
    known = set(re.findall(r"^  (\w+)", (ROOT / "dev").read_text().partition("<<'END'")[2].partition("\nEND")[0], re.M))
    for name in re.findall(r"\./dev (\w+)", text):
        expect(name in known, f"{where}: there is no ./dev {name}")
    for language, before, block in blocks(text):
        command = re.findall(r"`\./dev run -- (veksmi[^`]*)`", before)
        if language == "" and command:
            compare(str(where), command[-1], block)
        elif language == "sh":
            for line in block.splitlines():
                try_command(str(where), line)
        elif language == "python":
            Path("client.py").write_text(block)
            done = run("veksim -- /usr/bin/python3 client.py")
            expect(done.returncode == 0 and "modeler" in done.stdout, f"{where}: the client in Python: {done.stdout}")
        elif language == "c":
            Path("client.c").write_text(block)
            done = run(f"{CC} -std=c99 -Wall -Wextra -pedantic-errors -Werror -I{ROOT}/include client.c {LIBRARY} -o client &&"
                       " veksim -- ./client")  # fmt: skip
            expect(done.returncode == 0 and "GPU 1 (" in done.stdout, f"{where}: the client in C: {done.stdout}")
        elif language == "json":
            fields = ",".join(keys(json.loads(block)["gpus"]) - {"index", "card", "state", "missing"})
            real = json.loads(run(f"veksim -- veksmi query --format json --fields {fields} 2>/dev/null").stdout)
            expect(keys(json.loads(block)) <= keys(real), f"{where}: keys that veksmi does not write")


def try_manual(path: Path) -> None:
    examples = re.search(r"^\.S[hH] EXAMPLES\n(.*?)^\.S[hH]", path.read_text().replace("\\-", "-"), re.M | re.S)
    for line in examples[1].splitlines() if examples else []:
        line = re.sub(r"^(\.Dl )?(\$ )?", "", line)
        if not line.startswith("."):
            try_command(path.name, line.replace("/var/lib/node-exporter/", ""))


with tempfile.TemporaryDirectory(prefix="vekgpu-documents-") as directory:
    os.chdir(directory)
    Path("line.sh").write_text("")
    run("veksim --gpus 2 --tree host -- true")
    Path("host/host/euid").write_text("0\n")  # where a document says sudo
    for document in [ROOT / "README.md", *sorted(ROOT.glob("docs/*.md")), *ROOT.glob("*/README.md")]:
        try_document(document)
    for manual in sorted(ROOT.glob("packaging/*.1")):
        try_manual(manual)
    os.chdir("/")
raise SystemExit(1 if failures else 0)
