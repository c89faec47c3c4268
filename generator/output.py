"""Writing the generator's outputs."""

import os
import textwrap

# Generated C++ and IDL wrap at the width of the hand-written code.
WIDTH = 120
CONTINUATION = "    "


def _comment_lines(indent, body, width):
    """A `//` comment over as many lines as `width` needs, continuation lines
    indented under the first one's text."""
    room = max(width - len(indent) - len("//   "), 40)
    parts = textwrap.wrap(body, room, break_long_words=False, break_on_hyphens=False)
    return [indent + "// " + parts[0]] + [indent + "//   " + p for p in parts[1:]]


def _break_points(code):
    """(position, depth) just after each ", " of `code` outside string and
    character literals, where a line may break without changing a token;
    depth counts the brackets open there."""
    points, quote, depth, i = [], None, 0, 0
    while i < len(code):
        c = code[i]
        if quote:
            if c == "\\":
                i += 1
            elif c == quote:
                quote = None
        elif c in "\"'":
            quote = c
        elif c == "/" and code.startswith("//", i):
            break  # a trailing comment stays with the last piece
        elif c in "([{<":
            depth += 1
        elif c in ")]}>" and not code.startswith("->", i - 1):
            depth -= 1
        elif code.startswith(", ", i):
            points.append((i + 2, depth))
        i += 1
    return points


def _code_lines(line, width):
    """`line` broken after commas so that each piece fits `width` where a
    break allows it, preferring the outermost commas; continuation pieces
    are indented one step further."""
    indent = line[: len(line) - len(line.lstrip())]
    pieces, start, prefix = [], 0, ""
    points = _break_points(line)
    while len(prefix) + len(line) - start > width:
        later = [(p, d) for p, d in points if p > start]
        fitting = [(p, d) for p, d in later if len(prefix) + p - start - 1 <= width]
        if fitting:
            outermost = min(d for _, d in fitting)
            cut = max(p for p, d in fitting if d == outermost)
        elif later:
            cut = later[0][0]
        else:
            break
        pieces.append(prefix + line[start:cut].rstrip())
        start, prefix = cut, indent + CONTINUATION
    pieces.append(prefix + line[start:])
    return pieces


def wrap_source(text, width=WIDTH):
    """Generated C++ or IDL with its long lines wrapped at `width`: comments
    at word boundaries, code after commas outside literals. Preprocessor
    lines are left whole. Only whitespace and line ends change."""
    out = []
    for line in text.split("\n"):
        stripped = line.lstrip()
        if len(line) <= width or stripped.startswith("#"):
            out.append(line)
        elif stripped.startswith("//"):
            out.extend(_comment_lines(line[: len(line) - len(stripped)], stripped[2:].strip(), width))
        else:
            out.extend(_code_lines(line, width))
    return "\n".join(out)


def write_if_changed(path, text):
    """Writes `text` (UTF-8, \\n line ends) to `path` unless the file already
    holds exactly that, so that an unchanged output keeps its time stamp and
    the build stays incremental. The new file replaces the old one whole:
    a reader never sees half of it."""
    try:
        with open(path, encoding="utf-8", newline="") as f:
            if f.read() == text:
                return False
    except FileNotFoundError:
        pass
    tmp = path + ".tmp"
    with open(tmp, "w", encoding="utf-8", newline="\n") as f:
        f.write(text)
    os.replace(tmp, path)
    return True


def write_source(path, text, width=WIDTH):
    """`write_if_changed` for generated C++ and IDL, wrapped at `width`."""
    return write_if_changed(path, wrap_source(text, width))
