#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Writes vekgpu_ml/raw.py from include/vekml.h.

usage: generate_raw.py [--check]

This is no C parser: it knows the forms that our own header is written in and stops at any other. With --check nothing
is written; the exit status tells whether raw.py is what the header makes of it.
"""
from __future__ import annotations

import re
import sys
import textwrap
from pathlib import Path
from typing import Dict, Iterator, List, NamedTuple, Tuple

HERE = Path(__file__).resolve().parent
HEADER = HERE.parent / "include" / "vekml.h"
RAW = HERE / "vekgpu_ml" / "raw.py"
WIDTH = 120

PROLOGUE = '''\
# SPDX-License-Identifier: Apache-2.0
# Written by generate_raw.py from vekml.h: change the header and run that.
"""Every record, constant, function and datum of vekml.h, as C has them.

Functions and data are looked up in the library when they are first used. One that the installed library lacks raises
FunctionMissingError then; so does, with LibraryUnavailableError, a library that is not there.

    >>> from ctypes import byref
    >>> from vekgpu_ml import raw
    >>> count = raw.c_uint32()
    >>> raw.vekml_init()
    0
    >>> raw.vekml_device_get_count(byref(count))
    0

Nothing is checked here: results are numbers (vekgpu_ml.check makes exceptions of them), null pointers crash where
the header says that they are not looked at, and what the library prints goes to standard output.
"""
from __future__ import annotations

from ctypes import POINTER, Array, Structure, c_char, c_char_p, c_float, c_int, c_int32, c_int64
from ctypes import c_uint8, c_uint32, c_uint64, c_void_p
from typing import Optional

from ._library import Data, Function
'''

SCALARS = {
    "float": ("c_float", "float"),
    "int32_t": ("c_int32", "int"),
    "int64_t": ("c_int64", "int"),
    "uint8_t": ("c_uint8", "int"),
    "uint32_t": ("c_uint32", "int"),
    "uint64_t": ("c_uint64", "int"),
    "char": ("c_char", "bytes"),
}

TOKEN = re.compile(
    r"""
      /\*\*(?P<doc>.*?)\*/
    | /\*\ ----\ (?P<section>[^-]*?)\ -+\ \*/
    | /\*.*?\*/
    | \#define\ (?P<constant>VEKML_\w+)\ (?P<number>\d+)$
    | \#.*?$
    | extern\ "C"\ \{ | \}$
    | struct\ \w+;
    | typedef\ enum\ \w+\ \{(?P<codes>.*?)\}\ (?P<code_type>\w+);
    | enum\ \{(?P<selectors>.*?)\};
    | typedef\ struct\ \w+\ \{(?P<fields>.*?)\}\ (?P<record>\w+);
    | typedef\ (?P<aliased>\w+)\ (?P<star>\*?)(?P<alias>\w+);
    | VEKML_API\ extern\ (?P<datum>[^;]*);
    | VEKML_API\ (?P<result>\w+)\ (?P<function>\w+)\((?P<parameters>[^)]*)\);
    """,
    re.VERBOSE | re.DOTALL | re.MULTILINE,
)
BLANKS = re.compile(r"\s+")
ENUMERATOR = re.compile(r"\s*(?:/\*\*<?(?P<before>.*?)\*/\s*)?(?P<name>\w+) = (?P<value>-?\d+),?"
                        r"[ ]*(?:/\*\*<(?P<after>.*?)\*/)?", re.DOTALL)
FIELD = re.compile(r"\s*(?P<declaration>[^;/]+);\s*/\*\*<(?P<doc>.*?)\*/", re.DOTALL)
DECLARATION = re.compile(r"(?P<const>const )?(?P<type>(?:struct )?\w+) "
                         r"(?P<pointer>\*(?:const )?)?(?P<name>\w+)(?P<sizes>(?:\[\w+\])*)")


class Type(NamedTuple):
    """A type as ctypes has it, and as an annotation."""

    ctypes: str
    python: str


class HeaderError(Exception):
    """The header has a form that is not known here."""


def plain(doc: str) -> str:
    """The text of a documentation comment, without its marks; paragraphs are parted by an empty line."""
    lines = [re.sub(r"^\s*\* ?", "", line).rstrip() for line in doc.strip().splitlines()]
    paragraphs: List[str] = []
    fresh = True
    for line in lines:
        line = re.sub(r"::(\w+)", r"\1", line)
        if re.match(r"@(return|param) ", line):
            fresh = True
        line = re.sub(r"@return ", "Returns ", re.sub(r"@param (\w+) ", r"\1: ", line))
        if not line:
            fresh = True
        elif fresh:
            paragraphs.append(line)
            fresh = False
        else:
            paragraphs[-1] += " " + line.strip()
    text = re.sub(r" @since (\S+)", r" Since version \1.", "\n\n".join(paragraphs))
    return re.sub(r"\. Returns (?=\S[^\n]*$)", ".\n\nReturns ", text)


def docstring(doc: str, indent: str) -> str:
    """A docstring of that text."""
    doc = doc.replace("\\", "\\\\")
    whole = f'{indent}"""{doc}"""'
    if len(whole) < WIDTH and "\n" not in doc:
        return whole
    lines: List[str] = []
    for paragraph in f'"""{doc}'.split("\n\n"):
        lines += textwrap.wrap(paragraph, WIDTH, initial_indent=indent, subsequent_indent=indent) + [""]
    lines[-1] = f'{indent}"""'
    return "\n".join(lines)


def remarked(line: str, doc: str) -> List[str]:
    """A definition with what is said about it behind it or, when that is long, above it."""
    remark = " ".join(plain(doc).split())
    whole = f"{line}  # {remark}" if remark else line
    if len(whole) <= WIDTH:
        return [whole]
    indent = line[: len(line) - len(line.lstrip())] + "# "
    return [*textwrap.wrap(remark, WIDTH, initial_indent=indent, subsequent_indent=indent), line]


class Generator:
    """Makes Python of the header, one item after the other."""

    def __init__(self) -> None:
        self.types: Dict[str, Type] = {name: Type(*known) for name, known in SCALARS.items()}
        self.constants: Dict[str, str] = {}
        self.out: List[str] = []

    def generate(self, header: str) -> str:
        """The whole module."""
        doc = ""
        for item in self.items(header):
            kind = item.lastgroup
            if item["doc"] is not None:
                doc = plain(item["doc"])
                continue
            if item["section"]:
                self.out.append(f"\n# ---- {item['section']}\n")
            elif item["constant"]:
                self.constants[item["constant"]] = item["number"]
                self.out += remarked(f"{item['constant']} = {item['number']}", doc)
            elif item["codes"]:
                self.types[item["code_type"]] = Type(item["code_type"], "int")
                self.out += remarked(f"{item['code_type']} = c_int", doc)
                self.enumerators(item["codes"])
            elif item["selectors"]:
                self.enumerators(item["selectors"])
            elif item["record"]:
                self.record(item["record"], doc, item["fields"])
            elif item["alias"]:
                self.alias(item["alias"], item["aliased"], bool(item["star"]), doc)
            elif item["datum"]:
                self.datum(item["datum"], doc)
            elif item["function"]:
                self.function(item["function"], item["result"], item["parameters"], doc)
            elif kind is None:
                continue
            doc = ""
        text = re.sub(r"\n{4,}", "\n\n\n", PROLOGUE + "\n".join(self.out) + "\n")
        return text

    def items(self, header: str) -> Iterator["re.Match[str]"]:
        """The header's declarations and comments, in their order."""
        at = 0
        while at < len(header):
            blanks = BLANKS.match(header, at)
            if blanks:
                at = blanks.end()
                continue
            token = TOKEN.match(header, at)
            if not token:
                raise HeaderError(f"{HEADER.name}:{header.count(chr(10), 0, at) + 1}: not understood")
            yield token
            at = token.end()

    def enumerators(self, body: str) -> None:
        """Constants of an enumeration."""
        for each in ENUMERATOR.finditer(body):
            self.out += remarked(f"{each['name']} = {each['value']}", each["before"] or each["after"] or "")

    def declaration(self, text: str) -> Tuple[str, Type]:
        """Name and type of a field, a parameter or a datum."""
        parts = DECLARATION.fullmatch(" ".join(text.split()))
        if not parts:
            raise HeaderError(f"{HEADER.name}: not understood: {text}")
        kind = self.named_type(parts["type"], bool(parts["const"]), bool(parts["pointer"]))
        for size in reversed(re.findall(r"\[(\w+)\]", parts["sizes"])):
            element = kind.ctypes if re.fullmatch(r"\w+", kind.ctypes) else f"({kind.ctypes})"
            python = "bytes" if kind.ctypes == "c_char" else f"Array[{self.element(kind.ctypes)}]"
            kind = Type(f"{element} * {size}", python)
        return parts["name"], kind

    @staticmethod
    def element(ctypes: str) -> str:
        """The annotation of what an array holds."""
        return f"Array[{ctypes.split(' * ')[0]}]" if " * " in ctypes else ctypes

    def named_type(self, name: str, const: bool, pointer: bool) -> Type:
        """A type by its name, or a pointer to it."""
        if not pointer:
            return self.types[name]
        if name == "char" and const:
            return Type("c_char_p", "Optional[bytes]")
        if name == "void" or name.startswith("struct "):
            return Type("c_void_p", "Optional[int]")
        return Type(f"POINTER({self.types[name].ctypes})", "object")

    def record(self, name: str, doc: str, body: str) -> None:
        """A structure."""
        fields = [(*self.declaration(each["declaration"]), each["doc"]) for each in FIELD.finditer(body)]
        if len(fields) != re.sub(r"/\*.*?\*/", "", body, flags=re.DOTALL).count(";"):
            raise HeaderError(f"{HEADER.name}: {name} has a field without a comment")
        self.out += ["\n", f"class {name}(Structure):", docstring(doc, "    "), ""]
        for field, kind, remarks in fields:
            self.out += remarked(f"    {field}: {kind.python}", remarks)
        self.out += ["", "    _fields_ = ["]
        self.out += [f'        ("{field}", {kind.ctypes}),' for field, kind, _ in fields]
        self.out += ["    ]", "\n"]
        self.types[name] = Type(name, name)

    def alias(self, name: str, target: str, pointer: bool, doc: str) -> None:
        """Another name for a type."""
        kind = self.named_type(target, False, pointer)
        self.types[name] = Type(name, kind.python)
        self.out += remarked(f"{name} = {kind.ctypes}", doc)

    def datum(self, text: str, doc: str) -> None:
        """A variable of the library."""
        name, kind = self.declaration(text)
        self.out += [f'{name} = Data(', f'    "{name}",', docstring(doc, "    ") + ",", f"    {kind.ctypes},", ")"]

    def function(self, name: str, result: str, parameters: str, doc: str) -> None:
        """A function of the library."""
        result_type = "None" if result == "void" else self.types[result].ctypes
        arguments = [f"    {result_type},"]
        for parameter in [] if parameters == "void" else parameters.split(","):
            argument, kind = self.declaration(parameter)
            ctypes = re.sub(r"^(\w+) \* \w+$", r"POINTER(\1)", kind.ctypes)  # an array is handed in as a pointer
            arguments.append(f"    {argument}={ctypes},")
        self.out += [f"{name} = Function(", f'    "{name}",', docstring(doc, "    ") + ",", *arguments, ")"]


def main() -> int:
    """Writes or checks."""
    text = Generator().generate(HEADER.read_text(encoding="utf-8"))
    if sys.argv[1:] == ["--check"]:
        if RAW.read_text(encoding="utf-8") == text:
            return 0
        print(f"{RAW.name} is not what {HEADER.name} makes of it: run {Path(__file__).name}", file=sys.stderr)
        return 1
    RAW.write_text(text, encoding="utf-8")
    return 0


if __name__ == "__main__":
    sys.exit(main())
