"""Pages that can be walked through: their files are made, their commands are run, and what they show is what is printed.

In a page,

    <!-- file: NAME -->      before a block makes that block a file of the folder in which the walk goes on;
    ```console               begins a block of commands, "# " before those of root and "$ " before those of an account,
                             "> " before a further line of one, and below each what it prints.

A line "..." stands for any lines. What is different each time (instants, durations, process ids, drawn values) is
compared by its form alone.
"""

import re
import textwrap

_FENCE = re.compile(r"^(?:<!-- file: (?P<file>\S+) -->\n)?^```(?P<kind>\w*)\n(?P<text>.*?)^```$", re.M | re.S)
_PROMPTS = {"# ": "root", "$ ": "account"}
_DURATION = r"\d+(?:\.\d+)?(?:d|h|min|s|ms|us|µs)\b"
_VARYING = ((r"\d{4}-\d\d-\d\d[T ]\d\d:\d\d(?::\d\d)?(?:[+-]\d\d:\d\d|Z)?", "INSTANT"),
            (rf"\b{_DURATION}(?: {_DURATION})*", "DURATION"),
            (r"\b\d\d:\d\d(?::\d\d)?\b", "CLOCK"),
            (r"(?<!\S)(?:-?\d+ ){4}-?\d+(?!\S)", "VALUES"),
            (r"\b(?:Mon|Tues|Wednes|Thurs|Fri|Satur|Sun)day\b", "WEEKDAY"),
            (r"\b(pid|process|minute|uid) \d+\b", r"\1 NUMBER"),
            (r"\b\d+(?:\.\d+)? ?(?:[KM]iB|KB|MB)\b", "SIZE"),
            (r"\b(\w{3} \d\d) CLOCK (\S+) ([\w/.-]+)\[\d+\]:", r"DATE \3:"),
            (r" {2,}|\t", "  "), (r"─+|-{3,}", "--"))


class Command:
    """One command of a page, with what the page says that it prints."""

    def __init__(self, who, text):
        self.who, self.text, self.shown = who, text, []


class File:
    """A file that the page shows."""

    def __init__(self, name, text):
        self.name, self.text = name, text


def steps(page):
    """The files and commands of a page, in order."""
    for block in _FENCE.finditer(page):
        if block["file"]:
            yield File(block["file"], block["text"])
        elif block["kind"] == "console":
            yield from _commands(block["text"])


def _commands(text):
    command = None
    for line in text.splitlines():
        if line[:2] in _PROMPTS:
            if command:
                yield command
            command = Command(_PROMPTS[line[:2]], line[2:])
        elif line.startswith("> ") and not command.shown:
            command.text += "\n" + line[2:]
        else:
            command.shown.append(line)
    if command:
        yield command


def form(line):
    for pattern, name in _VARYING:
        line = re.sub(pattern, name, line)
    return line.rstrip()


def is_as_shown(shown, printed):
    pattern = "".join("(?:.*\n)*" if line.strip() == "..." else re.escape(form(line)) + "\n" for line in shown)
    return re.fullmatch(pattern, "".join(form(line) + "\n" for line in printed)) is not None


def with_what_was_printed(page, printed):
    """The page again, with other outputs: a list of lines for each command, or nothing to leave it as it is."""
    outputs = iter(printed)

    def refill(block):
        if block["file"] or block["kind"] != "console":
            return block[0]
        lines = []
        for command in _commands(block["text"]):
            prompt = next(prompt for prompt, who in _PROMPTS.items() if who == command.who)
            lines += textwrap.indent(command.text, "> ").replace("> ", prompt, 1).splitlines()
            lines += next(outputs) if "..." not in command.shown else (next(outputs), command.shown)[1]
        return "```console\n" + "".join(line + "\n" for line in lines) + "```"

    return _FENCE.sub(refill, page)
