#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""usage: mutate.py ROOT WORK [N] [src|tools] [--seed S] [--only FILE:LINE]

Puts N (100) random faults, one at a time, into a copy of the tree's sources below WORK, and tells which of them no test
notices. The checkout is never touched. The same seed on the same sources means the same faults.
"""
from __future__ import annotations

import argparse
import os
import random
import re
import shutil
import signal
import subprocess
import sys
import time
from pathlib import Path
from typing import Callable, Dict, Iterator, List, NamedTuple, Tuple

# ---- faults


class Fault(NamedTuple):
    file: str
    line: int
    kind: str
    old: str
    new: str


RESULTS = {"VEKML_SUCCESS": "VEKML_ERROR_NOT_FOUND", "VEKML_ERROR_NOT_FOUND": "VEKML_ERROR_NODE_IO"}
CALLED = r"[\w:.>\[\]()*-]+"
# What in a line of code, outside its comments and texts, becomes what. More than one place in a line are as many faults.
KINDS: List[Tuple[str, str, Callable[["re.Match[str]"], str]]] = [
    ("comparison", r" (==|!=) ", lambda m: " != " if m[1] == "==" else " == "),
    ("comparison", r" (<=|>=|<|>) (?=[\w(*&-])", lambda m: {"<": " >= ", ">": " <= ", "<=": " > ", ">=": " < "}[m[1]]),
    ("boundary", r" (<=|>=|<|>) (?=[\w(*&-])", lambda m: {"<": " <= ", ">": " >= ", "<=": " < ", ">=": " > "}[m[1]]),
    ("logic", r" (&&|\|\|) ", lambda m: " || " if m[1] == "&&" else " && "),
    ("arithmetic", r"(?<=[\w)\]]) ([+*/-]) ", lambda m: {"+": " - ", "-": " + ", "*": " / ", "/": " * "}[m[1]]),
    ("negation", r"(?<=[ (])!(?=[\w(])", lambda m: ""),
    ("condition", r"^( +(?:\} else )?if \()(.*)(\)(?: \{)?)$", lambda m: f"{m[1]}!({m[2]}){m[3]}"),
    ("constant", r"(?<![\w.'])\d+(?![\w.'])", lambda m: str(int(m[0]) + 1)),
    ("boolean", r"\b(true|false)\b", lambda m: "false" if m[1] == "true" else "true"),
    ("result", r"\bVEKML_(SUCCESS|ERROR_\w+)\b", lambda m: RESULTS.get(m[0], "VEKML_ERROR_NOT_FOUND")),
    ("minimum", r"\bstd::(min|max)\b", lambda m: "std::max" if m[1] == "min" else "std::min"),
    ("statement", rf"^( +)(?:{CALLED}\(.*\)|(?!return|using|constexpr)[\w.>\[\]*-]+ (?:[+|&-]?=) .*|(?:\+\+|--)[\w.]+);$",
     lambda m: f"{m[1]};"),
    ("step", r"^( +)(break|continue);$", lambda m: f"{m[1]};"),
]  # fmt: skip
TEXT = re.compile(r'"(?:[^"\\]|\\.)*"')
SPARED = re.compile(r"^\s*(#|//|/?\*|using |namespace |static_assert|template|class |struct |enum |AT\(|\[\[|case .*:$)")


def blank(line: str) -> str:
    """The line with nothing in its texts, characters and comment, each place where it was."""
    line = TEXT.sub(lambda m: '"' + " " * (len(m[0]) - 2) + '"', line)
    line = re.sub(r"'(?:[^'\\]|\\.)'", lambda m: "'" + " " * (len(m[0]) - 2) + "'", line)
    return re.sub(r"//.*", lambda m: " " * len(m[0]), line).rstrip()


def faults_in(line: str) -> Iterator[Tuple[str, str]]:
    if SPARED.match(line):
        return
    code = blank(line)
    for kind, pattern, change in KINDS:
        for found in re.finditer(pattern, code):
            if kind in ("condition", "statement", "step"):  # the whole line: texts and all
                whole = re.match(pattern, line)
                if whole and found[0].count("(") == found[0].count(")"):
                    yield kind, change(whole)
            elif not (kind == "constant" and re.search(r"\w+\[$", code[: found.start()])):
                yield kind, line[: found.start()] + change(found) + line[found.end() :]
    for text in TEXT.finditer(line):
        letters = [i for i in range(text.start() + 1, text.end() - 1) if line[i].isalpha() and line[i - 1] not in "%\\"]
        if letters and "//" not in code[: text.start()]:
            at = letters[len(letters) // 2]
            yield "text", line[:at] + ("y" if line[at] == "x" else "x") + line[at + 1 :]


def all_lines(tree: Path, where: str) -> List[Tuple[str, int, List[Tuple[str, str]]]]:
    found = []
    for path in sorted([*tree.glob(f"{where}/**/*.cpp"), *tree.glob(f"{where}/**/*.h")]):
        raw = False
        for number, line in enumerate(path.read_text().split("\n"), 1):
            was_raw, raw = raw, (raw or 'R"' in line) and ')"' not in line  # texts of many lines are left alone
            here = [] if was_raw or 'R"' in line else list(faults_in(line))
            if here:
                found.append((str(path.relative_to(tree)), number, here))
    return found


def some_faults(tree: Path, where: str, dice: random.Random) -> Iterator[Fault]:
    """One of a line, each line as likely as the next."""
    lines = all_lines(tree, where)
    dice.shuffle(lines)
    for file, number, here in lines:
        kind, new = dice.choice(here)
        old = (tree / file).read_text().split("\n")[number - 1]
        if new != old:
            yield Fault(file, number, kind, old, new)


# ---- the copy


def update(copy: Path, root: Path) -> None:
    """Only what differs is written, so that the next build is a short one."""
    listed = subprocess.run(["git", "-C", str(root), "ls-files", "-z", "--cached", "--others", "--exclude-standard"],
                            check=True, stdout=subprocess.PIPE, text=True).stdout.split("\0")  # fmt: skip
    wanted = {name for name in listed if name and (root / name).is_file()}
    for path in [each for each in copy.rglob("*") if each.is_file()]:
        if str(path.relative_to(copy)) not in wanted:
            path.unlink()
    for name in wanted:
        source, target = root / name, copy / name
        if not target.exists() or target.read_bytes() != source.read_bytes():
            target.parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(source, target)


class Suite:
    """The quickest build there is, and the tests in as few processes as do."""

    def __init__(self, tree: Path, build: Path, where: str) -> None:
        self.build, self.where, self.jobs = build, where, len(os.sched_getaffinity(0))
        self.log = build.parent / "log.txt"
        self.limits: Dict[str, float] = {}
        python = ["/usr/bin/python3", "-m", "pytest", "-qx", "-p", "no:cacheprovider"]
        self.environment = {
            **os.environ, "PYTHONDONTWRITEBYTECODE": "1", "VEKSIM": f"{build}/bin/veksim", "VEKSMI": f"{build}/bin/veksmi",
            "EXPORTER": f"{build}/bin/vekgpu-exporter", "INTERPOSER": f"{build}/lib/libveksim.so",
            "TOP_PLAYER": f"{build}/bin/top_player",
        }  # fmt: skip

        def google(name: str, program: str, names: str = "*", shards: int = 1) -> List[Tuple[str, List[str], Dict[str, str]]]:
            run = [f"{build}/bin/{program}", "--gtest_brief=1", "--gtest_fail_fast", f"--gtest_filter={names}"]
            one = [{"GTEST_TOTAL_SHARDS": str(shards), "GTEST_SHARD_INDEX": str(shard)} for shard in range(shards)]
            return [(f"{name} {index}", run, each) for index, each in enumerate(one)]

        programs = "*client*:report*"
        # Steps, one after the other; the commands of one run side by side. Those in tools are for files below a folder.
        self.steps = {
            "src": [("src", google("library", "vekml_tests", f"-{programs}", self.jobs)),
                    ("src", google("client", "vekml_tests", programs, self.jobs)),
                    ("src", google("readings", "vekgpu_readings_tests"))],
            "tools": [("tools/readings", google("readings", "vekgpu_readings_tests")),
                      ("tools/veksmi/top", google("top", "veksmi_top_tests")),
                      ("tools/(veksmi|readings)", google("client", "vekml_tests", programs, self.jobs)),
                      ("tools/(veksmi/[^t]|readings)", [("schema", ["/usr/bin/python3", f"{tree}/tests/json_schema.py",
                        f"{build}/bin/veksmi", f"{build}/bin/veksim", f"{build}/lib/libveksim.so",
                        f"{tree}/docs/veksmi.schema.json"], {})]),
                      ("tools/(exporter|readings)", [("exporter", [*python, f"{tree}/tests/exporter"], {})]),
                      ("tools/veksmi/(top|live)", [("screens", [*python, f"{tree}/tests/top"], {})])],
        }[where]  # fmt: skip
        self.run("configure", ["cmake", "-S", str(tree), "-B", str(build), "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Debug",
                               "-DCMAKE_CXX_FLAGS_DEBUG=-O0", "-DCMAKE_C_FLAGS_DEBUG=-O0", "-DVEKML_TESTS=ON",
                               "-DVEKML_PRECOMPILE=ON", "-DVEKML_BENCH=OFF", "-DCMAKE_LINK_DEPENDS_NO_SHARED=ON",
                               "-DCMAKE_EXE_LINKER_FLAGS=-fuse-ld=gold", "-DCMAKE_SHARED_LINKER_FLAGS=-fuse-ld=gold"])

    def run(self, name: str, command: List[str], limit: float = 3600) -> bool:
        return self.all([(name, command, {})], limit)

    def all(self, commands: List[Tuple[str, List[str], Dict[str, str]]], limit: float) -> bool:
        """Side by side. Whatever takes too long has failed, and nothing of it is left."""
        with open(self.log, "a", encoding="utf-8") as log:
            running = [subprocess.Popen(command, env={**self.environment, **more}, stdin=subprocess.DEVNULL, stdout=log,
                                        stderr=log, start_new_session=True) for _, command, more in commands]  # fmt: skip
            end, good = time.monotonic() + limit, True
            try:
                while good and any(one.poll() is None for one in running):
                    time.sleep(0.02)
                    good = time.monotonic() < end and not any(one.poll() for one in running)
            finally:
                for one in running:
                    if one.poll() is None:
                        os.killpg(one.pid, signal.SIGKILL)
                    one.wait()
        return good and all(one.returncode == 0 for one in running)

    def builds(self) -> bool:
        targets = ["vekml_tests", "vekgpu_readings_tests"] if self.where == "src" else ["all"]
        return self.run("build", ["cmake", "--build", str(self.build), "-j", str(self.jobs), "--target", *targets])

    def measure(self) -> None:
        """What the tests may take: some of what they take without a fault."""
        for _, commands in self.steps:
            begun = time.monotonic()
            if not self.all(commands, 1800):
                raise SystemExit(f"mutate: {commands[0][0]} fails without a fault; see {self.log}")
            took = time.monotonic() - begun
            self.limits[commands[0][0]] = 3 * took + 20
            print(f"  {commands[0][0].split()[0]}: {took:.1f} s", flush=True)

    def notices(self, file: str) -> str:
        for where, commands in self.steps:
            if re.match(where, file) and not self.all(commands, self.limits[commands[0][0]]):
                return commands[0][0].split()[0]
        return ""


def main() -> None:
    parser = argparse.ArgumentParser(prog="./dev mutate")
    parser.add_argument("root", type=Path, help=argparse.SUPPRESS)
    parser.add_argument("work", type=Path, help=argparse.SUPPRESS)
    parser.add_argument("count", type=int, nargs="?", default=100)
    parser.add_argument("where", choices=["src", "tools"], nargs="?", default="src")
    parser.add_argument("--seed", type=int, default=int(time.time()) % 100000)
    parser.add_argument("--only", metavar="FILE:LINE", help="all faults of one line")
    wanted = parser.parse_args()

    signal.signal(signal.SIGTERM, lambda *_: sys.exit(1))
    tree, dice = wanted.work / "tree", random.Random(wanted.seed)
    tree.mkdir(parents=True, exist_ok=True)
    (wanted.work / "log.txt").write_text("")
    update(tree, wanted.root)
    print(f"seed {wanted.seed}; building and trying {wanted.where} without a fault", flush=True)
    suite = Suite(tree, wanted.work / "build", wanted.where)
    if not suite.builds():
        raise SystemExit(f"mutate: the tree does not build; see {suite.log}")
    suite.measure()

    faults: Iterator[Fault] = some_faults(tree, wanted.where, dice)
    if wanted.only:
        file, _, at = wanted.only.rpartition(":")
        old = (tree / file).read_text().split("\n")[int(at) - 1]
        faults = (Fault(file, int(at), kind, old, new) for kind, new in faults_in(old))
    done = survived = 0
    for fault in faults:
        path = tree / fault.file
        lines = path.read_text().split("\n")
        path.write_text("\n".join([*lines[: fault.line - 1], fault.new, *lines[fault.line :]]))
        try:
            if not suite.builds():
                continue  # no fault that could be made
            noticed = suite.notices(fault.file)
        finally:
            path.write_text("\n".join(lines))
        done += 1
        survived += not noticed
        if not noticed:
            print(f"{fault.file}:{fault.line}: {fault.kind}: {fault.old.strip()}  ->  {fault.new.strip()}", flush=True)
        elif sys.stderr.isatty():
            print(f"\r\033[K{done}: {noticed} notices {fault.file}:{fault.line}\r", end="", file=sys.stderr, flush=True)
        if done == wanted.count:
            break
    print(f"{done - survived} of {done} faults in {wanted.where} noticed; seed {wanted.seed}")


if __name__ == "__main__":
    main()
