#!/usr/bin/env -S python3 -B
"""Holds the floors of the house: includes run downwards only.

Prints FILE:LINE: REASON for each include that does not, and exits with 1 when there is one.
"""

import argparse
import pathlib
import re
import sys

import cpptext

CONTRACTS = "platform/*.h"
LIBRARY = ["base/*.h", "logger/*.h", "crond/*.h", CONTRACTS]
ROOMS = [f"service/{room}/*.h" for room in ("control", "definitions", "engine", "launch", "role", "state")]
# What the rooms of the service share: texts that are fit for a log line, what no JSON holds, a descriptor that is closed.
SHARED = ["service/jsontext.h", "service/logtext.h", "service/uniquefd.h"]
OUTCOMES = ["service/engine/jobid.h", "service/engine/outcome.h"]
EVERYTHING = None

# What each floor may include, besides its own files: single headers, or the headers that lie directly in a folder. A
# floor is a folder, or a pair of files (named without their endings) that stands apart from its folder. The deepest
# floor that holds a file decides.
FLOORS = {
    "base": [],
    "platform": ["base/export.h"],
    "platform/linux": ["base/export.h", CONTRACTS],
    "logger": ["base/*.h"],
    "crond": ["base/*.h", "logger/*.h", CONTRACTS],
    "service": LIBRARY + ROOMS,
    # The decisions: no files, no log, no clock and no process, so neither base/ nor platform/.
    "service/engine": ["crond/*.h", "service/logtext.h"],
    "service/definitions": ["crond/*.h", CONTRACTS, "service/engine/jobid.h"] + SHARED,
    "service/launch": LIBRARY + OUTCOMES + SHARED,
    "service/role": ["service/replacefile.h"] + SHARED,
    "service/state": OUTCOMES + SHARED,
    # The socket knows nothing of jobs. What is answered there does.
    "service/control": ["service/eventsource.h"] + SHARED,
    "service/control/jobjson": ["service/engine/*.h", "service/launch/surroundings.h", "service/report.h"],
    "service/control/requests": LIBRARY + ["service/control/*.h", "service/core.h", "service/logtext.h"],
    # What both programs must agree on: the decisions, what the folders hold, the reasons of a refusal of a definition and
    # of a file, where the folders are, the words of the socket, and which texts disturb a terminal.
    "ctl": LIBRARY + ["service/engine/*.h", "service/definitions/definitionfault.h",
                      "service/definitions/definitionfile.h", "service/definitions/definitionpolicy.h",
                      "service/definitions/definitionreason.h", "service/definitions/definitionscan.h",
                      "service/definitions/jsonfault.h", "service/control/protocol.h", "service/replacefile.h",
                      "service/rootdir.h"] + SHARED,
    "ctl/commands": LIBRARY + ["ctl/*.h", "ctl/import/*.h", "ctl/timeline/*.h", "service/engine/*.h"],
    "ctl/timeline": ["ctl/*.h", "service/engine/*.h"],
    "tests": EVERYTHING,
    "bench": EVERYTHING,
    "fuzz": EVERYTHING,
}

SOURCES = {".h", ".hpp", ".c", ".cc", ".cpp", ".inc"}
INCLUDE = re.compile(r'^[ \t]*#[ \t]*include[ \t]*(?:"(?P<quoted>[^"\n]*)"|<(?P<angled>[^>\n]*)>|(?P<other>[^\n]*))', re.M)


def floor_of(path):
    """The deepest floor that holds the path, or None."""
    return next((str(place) for place in (path.with_suffix(""), *path.parents) if str(place) in FLOORS), None)


def allowed(floor, target):
    rules = FLOORS[floor]
    if rules is EVERYTHING or floor_of(target) == floor:
        return True
    return any(target.match(rule) and target.parent == pathlib.PurePath(rule).parent for rule in rules)


def judge(root, path, match):
    """The reason why one include may not stand, or None."""
    if match["other"] is not None:
        return "an include by macro cannot be judged"
    text = match["quoted"] if match["quoted"] is not None else match["angled"]
    target = pathlib.PurePath(text)
    in_tree = (root / target).is_file()
    if match["quoted"] is not None and not in_tree:
        return f'"{text}" is no file of this tree, counted from its root'
    if not in_tree:
        return None
    if ".." in target.parts or target.is_absolute():
        return f'"{text}": say where it lies, counted from the root'
    floor = floor_of(path)
    if allowed(floor, target):
        return None
    return f"{floor}{'/' if (root / floor).is_dir() else ''} may not include {text}"


def source_files(root):
    """Every source of the tree; what lies in a hidden folder or a build folder is none."""
    for folder in sorted(root.iterdir()):
        if folder.is_dir() and not folder.name.startswith((".", "build")):
            for path in sorted(folder.rglob("*")):
                if path.suffix in SOURCES and path.is_file():
                    yield path.relative_to(root)


def check(root):
    findings = []
    for path in source_files(root):
        if floor_of(path) is None:
            findings.append(f"{path}:1: {path.parts[0]}/ is on no floor: give it one in {pathlib.Path(__file__).name}")
            continue
        code = cpptext.without_comments((root / path).read_text(encoding="utf-8"))
        for match in INCLUDE.finditer(code):
            reason = judge(root, path, match)
            if reason:
                findings.append(f"{path}:{cpptext.line_of(code, match.start())}: {reason}")
    return findings


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--root", type=pathlib.Path, default=pathlib.Path(__file__).resolve().parent.parent)
    findings = check(parser.parse_args().root)
    print("\n".join(findings), end="\n" if findings else "")
    return 1 if findings else 0


if __name__ == "__main__":
    sys.exit(main())
