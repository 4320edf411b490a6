"""Just enough of the C++ grammar to read includes and calls out of source text."""

import re

_TOKEN = re.compile(
    r"""
      (?P<comment> //(?:[^\\\n]|\\.|\\\n)* | /\*.*?\*/ )
    | (?P<raw>     (?:u8|[uUL])?R"(?P<mark>[^()\\\s]*)\(.*?\)(?P=mark)" )
    | (?P<string>  "(?:[^"\\\n]|\\.)*" )
    | (?P<char>    (?<![0-9A-Fa-f])'(?:[^'\\\n]|\\.)*' )
    """,
    re.VERBOSE | re.DOTALL,
)
_LITERALS = re.compile(r'\s*(?:"(?:[^"\\\n]|\\.)*"\s*)+\Z', re.DOTALL)
_ESCAPES = {"n": "\n", "t": "\t", "r": "\r", "0": "\0", '"': '"', "'": "'", "\\": "\\"}


def without_comments(text):
    """The text with every comment blanked out; offsets and line numbers stay as they were."""
    return _TOKEN.sub(lambda m: re.sub(r"[^\n]", " ", m[0]) if m["comment"] else m[0], text)


def without_literals(code):
    """Comment-free code with the inside of every literal blanked out; offsets stay as they were."""
    return _TOKEN.sub(lambda m: m[0][0] + re.sub(r"[^\n]", " ", m[0][1:-1]) + m[0][-1], code)


def line_of(text, offset):
    return text.count("\n", 0, offset) + 1


def calls(code, name, most=None):
    """Every `name(...)` in comment-free code, as (offset, [argument text, ...]); with `most` arguments at the most, the
    last of which then holds all that is left."""
    bare = without_literals(code)
    for match in re.finditer(rf"(?<![\w.]){re.escape(name)}\s*\(", bare):
        yield match.start(), _arguments(code, bare, match.end(), most)


def _arguments(code, bare, start, most):
    arguments, depth = [], 0
    for offset in range(start, len(bare)):
        char = bare[offset]
        if char in "([{":
            depth += 1
        elif char in ")]}" and depth > 0:
            depth -= 1
        elif depth == 0 and (char == ")" or (char == "," and len(arguments) + 1 != most)):
            arguments.append(code[start:offset].strip())
            start = offset + 1
            if char == ")":
                return arguments
    return arguments


def one_line(code):
    """The text as the preprocessor's # prints it: outside of literals, any white space is one blank."""
    pieces, end = [], 0
    for match in _TOKEN.finditer(code):
        pieces += [re.sub(r"\s+", " ", code[end : match.start()]), match[0]]
        end = match.end()
    return ("".join(pieces) + re.sub(r"\s+", " ", code[end:])).strip()


def literal(code):
    """The value of adjacent string literals, or None when the code is anything else."""
    if not _LITERALS.match(code):
        return None
    return "".join(
        re.sub(r"\\(.)", lambda m: _ESCAPES.get(m[1], m[0]), part[1:-1])
        for part in re.findall(r'"(?:[^"\\\n]|\\.)*"', code)
    )
