#!/usr/bin/env -S python3 -B
"""Holds what a shared library shows against a reviewed list.

Prints a reason for each difference, and exits with 1 when there is one. `--write` makes the list anew.
"""

import argparse
import pathlib
import re
import subprocess
import sys

# How the list spells what the C++ library spells at length; in this order.
SHORT_NAMES = (
    (r"std::__cxx11::basic_string<char, std::char_traits<char>, std::allocator<char> >", "std::string"),
    (r"std::vector<([\w:]+), std::allocator<\1 ?> >", r"std::vector<\1>"),
    (r"\[abi:cxx11\]", ""),
)
CLASS_DATA = ("vtable for ", "VTT for ", "typeinfo for ", "typeinfo name for ")


def readelf(library, *options):
    done = subprocess.run(["readelf", "--wide", *options, library], capture_output=True, text=True, check=True)
    return done.stdout.splitlines()


def section_kinds(library):
    """What can be done to the content of each section, by its number. What lies in .data.rel.ro is written to by the
    loader alone, and read-only from then on."""
    kinds = {}
    for line in readelf(library, "--section-headers"):
        match = re.match(r"\s*\[\s*(\d+)\]\s+(\S+)\s+\S+(?:\s+[0-9a-f]+){4}\s+([A-Za-z]*)", line)
        if match:
            writable = "W" in match[3] and not match[2].startswith(".data.rel.ro")
            kinds[match[1]] = "writable" if writable else "read-only"
    return kinds


def symbols(library):
    """(line as in the list, visibility) of everything that the library defines for others."""
    kinds = section_kinds(library)
    for line in readelf(library, "--dyn-syms", "--demangle"):
        fields = line.split(None, 7)
        if len(fields) < 8 or not fields[0].rstrip(":").isdecimal() or fields[6] not in kinds:
            continue
        name = fields[7].strip()
        for long, short in SHORT_NAMES:
            name = re.sub(long, short, name)
        if name.startswith(CLASS_DATA):
            kind = "class"
        else:
            kind = "function" if fields[3] in ("FUNC", "IFUNC") else kinds[fields[6]]
        yield f"{kind:<9} {name}", fields[5]


def listed(path):
    lines = path.read_text(encoding="utf-8").splitlines() if path.exists() else []
    return {line for line in lines if line and not line.startswith("#")}, [line for line in lines if line.startswith("#")]


def check_symbols(library, expected):
    found = dict(symbols(library))
    for line in sorted(expected - found.keys()):
        yield f"not exported any more, or as another kind: {line}"
    for line in sorted(found.keys() - expected):
        yield f"exported, but not in the list: {line}"
    for line, visibility in sorted(found.items()):
        if visibility != "DEFAULT":
            yield f"cannot be replaced by a program ({visibility}): {line}"


def check_dynamic_section(library, soname):
    text = "\n".join(readelf(library, "--dynamic"))
    if f"[{soname}]" not in re.findall(r"\(SONAME\).*?(\[.*\])", text):
        yield f"the soname is not {soname}"
    for flag in ("SYMBOLIC", "TEXTREL"):
        if re.search(rf"\b{flag}\b", text):
            yield f"the library is linked {flag}"


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("library", type=pathlib.Path)
    parser.add_argument("list", type=pathlib.Path)
    parser.add_argument("--soname")
    parser.add_argument("--write", action="store_true")
    options = parser.parse_args()
    expected, comments = listed(options.list)
    if options.write:
        lines = comments + sorted({line for line, _ in symbols(options.library)})
        options.list.write_text("\n".join(lines) + "\n", encoding="utf-8")
        return 0
    reasons = list(check_symbols(options.library, expected))
    if options.soname:
        reasons += check_dynamic_section(options.library, options.soname)
    for reason in reasons:
        print(f"{options.library.name}: {reason}")
    return 1 if reasons else 0


if __name__ == "__main__":
    sys.exit(main())
