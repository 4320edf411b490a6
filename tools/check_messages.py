#!/usr/bin/env -S python3 -B
"""Holds docs/MESSAGES.md against the sources, both ways.

Prints FILE:LINE: REASON for each difference, and exits with 1 when there is one.
"""

import argparse
import collections
import pathlib
import re
import sys

import cpptext

TABLE = "docs/MESSAGES.md"
FOLDERS = ("base", "logger", "crond", "platform", "service", "ctl")
THE_ONE_WAY = ("base/syslog_line.h", "base/syslog_line.cpp")

MESSAGE_COLUMNS = ["Source", "Number", "Priority", "Text", "Second form"]
LINE_COLUMNS = ["Line"]

# How the table names what the execution log's lines are filled with.
VALUES = {
    "strName": "job",
    "strCmd": "command",
    "user.strName": "account",
    "user->strName": "account",
    "strLabel": "label",
    "std::to_string(iRet)": "code",
    "strerror(iErrno)": "error",
}

Message = collections.namedtuple("Message", "source number priority text second_form place")
Row = collections.namedtuple("Row", "cells place")


class Findings(list):
    def add(self, place, reason):
        self.append(f"{place}: {reason}")


class Source:
    """One file of the tree without its comments."""

    def __init__(self, root, path):
        self.path = path
        self.code = cpptext.without_comments((root / path).read_text(encoding="utf-8"))

    def place(self, offset):
        return f"{self.path}:{cpptext.line_of(self.code, offset)}"


def read_sources(root):
    paths = (path.relative_to(root) for folder in FOLDERS for path in sorted((root / folder).rglob("*")))
    return {str(path): Source(root, path) for path in paths if path.suffix in (".h", ".cpp")}


class Names:
    """What the messages' leading name and numbers stand for: a file's own szLogSource or that of a header it includes,
    and the tables of numbers (a struct that holds szSource and ints) that a file hands to code shared by several."""

    def __init__(self, sources):
        self._sources = sources
        self._tables = self._read_tables()

    def of_file(self, source):
        own = re.search(r'\bszLogSource\s*=\s*("[^"]*")\s*;', source.code)
        if own:
            return cpptext.literal(own[1])
        for header in re.findall(r'#\s*include\s*"([^"]+)"', source.code):
            if header in self._sources and "szLogSource" in self._sources[header].code and header not in THE_ONE_WAY:
                return self.of_file(self._sources[header])
        return None

    def resolve(self, source, number):
        """The (name, number) pairs under which a call with this number argument logs; none when that can not be told."""
        if number.isdecimal():
            name = self.of_file(source)
            return [(name, int(number))] if name else []
        field = re.fullmatch(r"\w+\.(\w+)", number)
        return [(table["szSource"], table[field[1]]) for table in self._tables if field and field[1] in table]

    def _read_tables(self):
        fields = {}
        for source in self._sources.values():
            for struct in re.finditer(r"\bstruct\s+(\w+)\s*\{([^{}]*\bszSource\s*;[^{}]*)\}", source.code):
                fields[struct[1]] = re.findall(r"(\w+)\s*;", struct[2])
        return [table for source in self._sources.values() for table in self._tables_of(source, fields)]

    def _tables_of(self, source, fields):
        for match in re.finditer(r"\b(\w+)\s+\w+\s*=?\s*\{([^{}]*)\}", source.code):
            values = [value.strip() for value in match[2].split(",")]
            if match[1] in fields and len(values) == len(fields[match[1]]):
                table = {name: int(value) for name, value in zip(fields[match[1]], values) if value.isdecimal()}
                table["szSource"] = self.of_file(source) if values[0] == "szLogSource" else cpptext.literal(values[0])
                yield table


def failed_condition(sources):
    """Priority and text of a failed condition, from the one place where it is logged."""
    for path in THE_ONE_WAY:
        for _, arguments in cpptext.calls(sources[path].code, "VUKO_LOG"):
            if arguments[-1] == "szCondition":
                return arguments[0], cpptext.literal(arguments[2])
    sys.exit("the text of a failed condition is nowhere to be found")


def text_of(code):
    """The value of string literals and macros that stand for more of them, or None; a macro's name stands for its text."""
    pieces = re.split(r'("(?:[^"\\\n]|\\.)*")', code)
    pieces[::2] = [re.sub(r"\b([A-Z][A-Z0-9_]+)\b", r'"<\1>"', piece) for piece in pieces[::2]]
    return cpptext.literal("".join(pieces))


def messages_of(source, names, condition, findings):
    """Every message of one file."""
    for macro, second_form in (("VUKO_LOG", "yes"), ("VUKO_LOG_PLAIN", "no"), ("VUKO_FAILED", "yes")):
        for offset, arguments in cpptext.calls(source.code, macro, 2 if macro == "VUKO_FAILED" else None):
            place = source.place(offset)
            if macro == "VUKO_FAILED":
                number, priority = arguments[0], condition[0]
                text = condition[1].replace("%s", cpptext.one_line(arguments[1]))
            else:
                priority, number, text = arguments[0], arguments[1], text_of(arguments[2])
            resolved = names.resolve(source, number)
            if not resolved or text is None or not re.fullmatch(r"LOG_[A-Z]+", priority):
                findings.add(place, f"{macro}: source, number, priority and text must be plain to read")
            for name, value in resolved:
                yield Message(name, value, priority, text, second_form, place)


def read_messages(sources, findings):
    names, condition = Names(sources), failed_condition(sources)
    messages = {}
    for path, source in sources.items():
        if path in THE_ONE_WAY:
            continue
        for call in ("syslog", "vsyslog"):
            for offset, _ in cpptext.calls(source.code, call):
                findings.add(source.place(offset), f"{call}() is called past base/syslog_line.h")
        for message in messages_of(source, names, condition, findings):
            first = messages.setdefault((message.source, message.number), message)
            if first is not message:
                findings.add(message.place, f"{message.source}:{message.number} is taken by {first.place}")
    return messages


def enclosing_function(code, offset):
    """Offset, name and parameter names of the last function head before the offset."""
    head = list(re.finditer(r"\b(\w+)\(([^()]*)\)\s*\{", code[:offset]))[-1]
    return head.start(), head[1], re.findall(r"(\w+)\s*(?:,|$)", head[2])


def spell(pieces):
    """A line of the execution log as the table writes it, or None when a piece has no name there."""
    texts = [cpptext.literal(piece) for piece in pieces]
    if any(text is None and piece not in VALUES for piece, text in zip(pieces, texts)):
        return None
    return "".join(f"<{VALUES[piece]}>" if text is None else text for piece, text in zip(pieces, texts))


def lines_of(source):
    """Every line that a file writes to the execution log, as (text or None, place). A line whose first piece is a
    parameter of the function that writes it stands for one line per call of that function."""
    for offset, pieces in cpptext.calls(source.code, "LogExecution"):
        if "..." in "".join(pieces):
            continue
        head, function, parameters = enclosing_function(source.code, offset)
        if pieces[0] not in parameters:
            yield spell(pieces), source.place(offset)
            continue
        for call, arguments in cpptext.calls(source.code, function):
            if call != head:
                first = arguments[parameters.index(pieces[0])]
                yield spell([first] + pieces[1:]), source.place(call)


def read_lines(sources, findings):
    lines = {}
    for source in sources.values():
        for text, place in lines_of(source):
            if text is None:
                findings.add(place, f"a value of this line has no name in {pathlib.Path(__file__).name}")
            lines.setdefault(text, place)
    lines.pop(None, None)
    return lines


def cells_of(line):
    """The cells of a row of a Markdown table, with \\| and the back quotes of a code span taken off."""
    cells = [cell.strip().replace("\\|", "|") for cell in re.split(r"(?<!\\)\|", line.strip())[1:-1]]
    return [cell[1:-1] if len(cell) > 1 and cell[0] == cell[-1] == "`" else cell for cell in cells]


def read_rows(root, columns):
    """The rows of the tables whose header begins with these columns."""
    inside = False
    for number, line in enumerate((root / TABLE).read_text(encoding="utf-8").splitlines(), 1):
        if not line.startswith("|"):
            inside = False
            continue
        cells = cells_of(line)
        if cells[: len(columns)] == columns:
            inside = True
        elif inside and not set(line) <= set("|-: "):
            yield Row(cells, f"{TABLE}:{number}")


def compare_messages(root, messages, findings):
    left = dict(messages)
    for row in read_rows(root, MESSAGE_COLUMNS):
        source, number, *told = row.cells[: len(MESSAGE_COLUMNS)]
        message = left.pop((source, int(number)) if number.isdecimal() else None, None)
        if message is None:
            findings.add(row.place, f"{source}:{number} is no message of the sources, or has a row already")
            continue
        for column, said, meant in zip(MESSAGE_COLUMNS[2:], told, message[2:5]):
            if said != meant:
                findings.add(row.place, f"{column} of {source}:{number} is [{said}], but [{meant}] in {message.place}")
        if not row.cells[-1]:
            findings.add(row.place, f"{source}:{number} is not explained")
    for message in left.values():
        findings.add(message.place, f"{message.source}:{message.number} has no row in {TABLE}")


def compare_lines(root, lines, findings):
    left = dict(lines)
    for row in read_rows(root, LINE_COLUMNS):
        if left.pop(row.cells[0], None) is None:
            findings.add(row.place, f"[{row.cells[0]}] is no line of the sources, or has a row already")
    for text, place in left.items():
        findings.add(place, f"[{text}] has no row in {TABLE}")


def check(root):
    findings = Findings()
    sources = read_sources(root)
    compare_messages(root, read_messages(sources, findings), findings)
    compare_lines(root, read_lines(sources, findings), findings)
    return findings


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--root", type=pathlib.Path, default=pathlib.Path(__file__).resolve().parent.parent)
    findings = check(parser.parse_args().root)
    print("\n".join(findings), end="\n" if findings else "")
    return 1 if findings else 0


if __name__ == "__main__":
    sys.exit(main())
