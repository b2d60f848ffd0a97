# SPDX-License-Identifier: Apache-2.0
"""Holds every #include of the tree against the floors that docs/architecture.md draws.

usage: floors.py ROOT
"""

import pathlib
import re
import sys

KNOWN_NEIGHBOURS = {("vek_smi", "vek_smi_vpu_api")}  # the start takes the first video sample
PUBLIC = {"vekml"}


def drawn_floors(picture: str) -> dict[str, tuple[int, bool]]:
    """The floor of each file of the library, and whether it is a family and not one's part."""
    floors, floor, family = {}, 0, False
    for line in picture.splitlines():
        if start := re.match(r"  ([1-4])  ", line):
            floor, family = int(start[1]), start[1] == "3"
        if "their parts" in line:
            family = False
        if floor and "══" in line:
            break
        for name in re.findall(r"\b[a-z_]+[a-z]\b", line.split("  ", 2)[-1] if floor else ""):
            floors.setdefault(name, (floor, family))
    return floors


def includes(path: pathlib.Path) -> list[str]:
    return re.findall(r'^#include "([^"]+)"', path.read_text(), re.M)


def library_faults(root: pathlib.Path) -> list[str]:
    document = (root / "docs/architecture.md").read_text()
    floors = drawn_floors(document.split("```")[1])
    faults = []
    for path in sorted((root / "src").iterdir()):
        if path.suffix not in {".cpp", ".h"} or path.stem == "record_layout":
            continue
        if path.stem not in floors:
            faults.append(f"{path.name} is not in the picture of the floors")
            continue
        floor, family = floors[path.stem]
        for name in includes(path):
            other = pathlib.Path(name).stem
            if other in PUBLIC or other == path.stem or name.endswith(".inc"):
                continue
            below, is_family = floors.get(other, (99, False))
            if below > floor or (family and is_family and (path.stem, other) not in KNOWN_NEIGHBOURS):
                faults.append(f"{path.name} includes {name}, which does not stand beneath it")
    return faults


def program_faults(root: pathlib.Path) -> list[str]:
    """A program knows its own files, the readings and the public header; the readings know no program."""
    faults = []
    own = {path.name for path in (root / "src").iterdir()}
    for path in sorted((root / "tools").rglob("*")):
        if path.suffix not in {".cpp", ".h"}:
            continue
        program = path.relative_to(root / "tools").parts[0]
        for name in includes(path):
            into = pathlib.Path(name).parts
            foreign = {"veksmi", "exporter"} - {program}
            if name in own or (into[0] in foreign and len(into) > 1) or (program == "readings" and into[0] == "top"):
                faults.append(f"{path.relative_to(root)} includes {name}")
    return faults


def main() -> int:
    root = pathlib.Path(sys.argv[1])
    faults = library_faults(root) + program_faults(root)
    print("\n".join(faults) if faults else "the floors hold")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
