#!/usr/bin/env python3
"""Prepares a file for the reference manual: Doxygen reads its output in place of the file.

A header keeps its line numbers. In it
- the opening comment describes the file; the class that is named after the file continues with it;
- every other class ends with the opening comment's words on ownership and threads;
- a labelled line of a contract becomes a paragraph with a title;
- a comment next to an enumerator, a field or a typedef describes it;
- a plain comment above declarations without a blank line describes each of them;
- a plain comment that is followed by a blank line is the title of the declarations below it.
On a text page a heading gets the anchor that links name it by; the map links its modules. The
main page, README.md, lists the subsystems after its first screen.

usage: manual_filter.py FILE
"""
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
LIBRARY = ROOT / "src" / "Z"
CONTRACT = re.compile(r"^( */// )(calls|units|range|owns|throws|codes|threads|cost|kept) +")
NOTE = re.compile(r"^([A-Z][a-z]+(?: [a-z]+){0,2}): +|^(Ownership) is ")
TYPE = re.compile(r"^( *)(?:typedef )?(class|struct|union) (\w+)(?: final)?(?: :[^;]*| \{)$")
# An enumerator, a typedef, a member of a type, a field of a nested type.
BESIDE = re.compile(r"^( +\w+(?: = [^,;/]+)?,?|typedef [^;]*;|    (?!friend|class|struct)[^ /].*[;}]|"
                    r"\w[^;]*\);| {8}(?!return)\w[^=(]*;)"
                    r"( +)(?://( .*)|/\*( .*) \*/)$")


def escaped(text):
    """Returns the text without the characters that Doxygen would take as commands or tags."""
    parts = re.split(r"(`[^`]*`|\"[^\"]*\")", text)
    for i in range(0, len(parts), 2):
        parts[i] = re.sub(r"([\\@<>#])", r"\\\1", parts[i])
    return "".join(parts)


def capitalised(text):
    """Returns the text with a capital letter at its start, unless it starts with a name in code."""
    return text if re.match(r"\w+\(|\w*_", text) else text[:1].upper() + text[1:]


class Opening:
    """The comment at the top of a header."""

    def __init__(self, path, lines):
        self.path = path
        self.size = next((i for i, line in enumerate(lines) if not line.startswith("//")), 0)
        self.lines = [line[2:].removeprefix(" ") for line in lines[:self.size]]
        blank = self.lines.index("") if "" in self.lines else self.size
        purpose = " ".join(self.lines[:blank])
        self.purpose = capitalised(purpose.split(": ", 1)[-1])
        self.stem = purpose.split(":", 1)[0]

    def notes(self):
        """Yields (title, text) of ownership and threads."""
        title, words = "", []
        for line in [*self.lines, ""]:
            note = NOTE.match(line)
            if note or not line:
                if title.startswith(("Ownership", "Threads")):
                    yield title, escaped(capitalised(" ".join(words)))
                title, words = (note.group(1) or note.group(2), [line[note.end():]]) if note else ("", [])
            else:
                words.append(line)

    def documented(self):
        """Returns the lines as the description of the file."""
        result, named, preformatted = [], False, False
        for i, line in enumerate(self.lines):
            if self.in_modules(i):
                line = re.sub(r"\b[zZ]\w+\b(?=[,.])", self.link, line)
            if i == 0:
                # The purpose is one paragraph: "\\ " hides the end of its first sentence.
                line = capitalised(escaped(line.split(": ", 1)[-1])).replace(". ", ".\\ ")
            elif not line and not named:
                line, named = "@file", True
            elif line.startswith("    "):
                preformatted = True  # Markdown takes it as it is
            elif note := NOTE.match(line):
                line = (f"@label{{{note.group(1) or note.group(2)}}}"
                        f" {capitalised(escaped(line[note.end():]))}")
            else:
                line = escaped(line)
            line = re.sub(r"(?<![\w/])docs/[\w-]+\.md", r"[\g<0>](\g<0>)", line)
            result.append(f"/// {line}".rstrip())
        return result

    def in_modules(self, i):
        """Returns whether line `i` belongs to the paragraph "Subsystem: ... Stands on: ..."."""
        start = i
        while start > 0 and self.lines[start - 1]:
            start -= 1
        return self.lines[start].startswith("Subsystem:")

    @staticmethod
    def link(match):
        return f"{match.group()}.h" if (LIBRARY / f"{match.group()}.h").exists() else match.group()


def describe_member(out, i, column):
    """Turns a comment next to a member into its description; lines below, at the same column, belong
    to it. Returns the column, or 0."""
    match = BESIDE.match(out[i])
    if match:
        out[i] = f"{match.group(1)}{match.group(2)}///<{match.group(3) or match.group(4)}"
        return match.end(2)
    if column > 0 and out[i].startswith(" " * column + "// "):
        out[i] = f"{' ' * column}///<{out[i][column + 2:]}"
        return column
    return 0


PLAIN = re.compile(r"^((?: {4})?)(?://|/\*) (?!-)(.*?)(?: \*/)?$")
SLOTS = "Virtual functions in slot order"


def describe_groups(out, first):
    """Turns plain comments between declarations, but not in function bodies, into documentation."""
    scope, private, is_open, i = "", False, False, first
    while i < len(out):
        line = out[i]
        if not line.startswith(" ") and TYPE.match(line):
            scope, private = "    ", False
        elif re.match(r"(public|protected|private):$", line):
            private = line == "private:"
        ends = re.match(r"(};|public:|protected:|private:|#ifdef|#endif)", line)
        comment = PLAIN.match(line)
        if comment and (comment.group(1) != scope or private or SLOTS in line):
            comment = None
        end = i + 1
        while comment and out[end].startswith(f"{scope}// "):
            end += 1
        is_title = comment and not out[end]
        if is_open and (ends or is_title):
            out[i - 1] += "///@}" if not out[i - 1] else "  /**@}*/"
            is_open = False
        if line == "};":
            scope = ""
        if comment and not TYPE.match(out[end]):
            words = [comment.group(2), *(out[k][len(scope) + 3:] for k in range(i + 1, end))]
            if is_title:
                title, _, rest = " ".join(words).partition(". ")
                title = title.rstrip(".").replace(",", "\\,")
                out[i] = f"{scope}/// @group{{{title}}} {rest} @{{"
                is_open = True
            else:
                out[i] = f"{scope}/// {' '.join(words)}"
                describe_run(out, end, scope, " ".join(words))
            out[i + 1:end] = [""] * (end - i - 1) if is_title else [f"{scope}///"] * (end - i - 1)
        i = end


def describe_run(out, first, scope, words):
    """Describes the declarations after line `first`, up to a blank line or a comment."""
    for i in range(first + 1, len(out)):
        if not out[i] or out[i].startswith(f"{scope}//") or out[i].startswith("}"):
            return
        starts = re.match(scope + r"[\w~\[]", out[i])
        if starts and re.search(r"[;}](?: +///<.*)?$", out[i - 1]):
            out[i] = f"{scope}/** {words} */ {out[i].lstrip()}"


def header(path, lines):
    opening = Opening(path, lines)
    out = opening.documented() + lines[opening.size:]
    both = " ".join(f"@label{{{title}}} {text}" for title, text in opening.notes())
    column = 0
    for i in range(opening.size, len(out)):
        out[i] = CONTRACT.sub(r"\1@label{\2} ", out[i])
        if out[i].lstrip().startswith("//"):
            out[i] = re.sub(r"(?<![\w/])docs/[\w-]+\.md", r"[\g<0>](\g<0>)", out[i])
        column = describe_member(out, i, column)
        kind = TYPE.match(out[i])
        if not kind:
            continue
        main = kind.group(3).removesuffix("_6_0") == opening.stem
        more = f"@copydetails {path.name}" if main else both
        above = i
        while out[above - 1].lstrip().startswith(("// ", "///")) or out[above - 1].strip() == "//":
            above -= 1
            out[above] = re.sub(r"^( *)///?", r"\1///", out[above])
        if above < i:
            out[i - 1] += f" {more}"
        elif main and not out[i - 1]:
            out[i - 1] = f"/// {escaped(opening.purpose)} {more}"
    describe_groups(out, opening.size)
    return out


def module_link(name):
    """Returns a link to the page of a module: its class, or its header."""
    path = LIBRARY / f"{name}.h"
    if not path.exists():
        return f"`{name}`"
    is_class = re.search(rf"^class {name}_6_0\b", path.read_text(encoding="utf-8"), re.M)
    return f"[{name}](@ref {name}_6_0)" if is_class else f"[{name}](@ref {name}.h)"


def subsystems():
    """Yields the lines of the list of subsystems, from the map."""
    yield "## Subsystems"
    yield ""
    yield "Each name leads to the types and functions; [the map](src/Z/README.md) shows how they fit."
    yield ""
    yield "| Subsystem | Module | Gives |"
    yield "|---|---|---|"
    heading = last = ""
    for line in (LIBRARY / "README.md").read_text(encoding="utf-8").splitlines():
        if line.startswith("#"):
            heading = line.strip("# ")
        elif row := re.match(r"\| `(\w+)` \|([^|]*)\|[^|]*\|$", line):
            yield f"| {heading if heading != last else ''} | {module_link(row.group(1))} |{row.group(2)}|"
            last = heading
    yield "| Text services | [qvr](@ref qvr.h) | codesets, locales and character classes |"
    yield ""


def linked_headings(path):
    """Returns the anchors on the page at `path` that a link of any page names. Labels are global in
    Doxygen, so that no other heading gets one."""
    anchors = set()
    for page in [*ROOT.glob("*.md"), *ROOT.glob("docs/*.md"), *ROOT.glob("tests/*.md"), LIBRARY / "README.md"]:
        for target, anchor in re.findall(r"\]\(([^)#\s]*)#([\w-]+)\)", page.read_text(encoding="utf-8")):
            if (page.parent / target if target else page).resolve() == path:
                anchors.add(anchor)
    return anchors


def page(path, lines):
    out, fenced, anchors = [], False, linked_headings(path)
    for line in lines:
        fenced ^= line.startswith("```")
        if not fenced and (heading := re.match(r"(##+) (.+)$", line)):
            if path == ROOT / "README.md" and not any(l.startswith("## ") for l in out):
                out += subsystems()
            words = re.sub(r"[^\w\- ]", "", heading.group(2).lower()).replace(" ", "-")
            if words in anchors:
                anchors.remove(words)
                line += f" {{#{words}}}"
        elif path == LIBRARY / "README.md" and line.startswith("|"):
            line = re.sub(r"`(\w+)`", lambda match: module_link(match.group(1)), line)
        out.append(re.sub(r"\]\([^)#\s]*(#[\w-]+)\)", r"](\1)", line))  # labels are global
    return out


def main():
    path = pathlib.Path(sys.argv[1]).resolve()
    lines = path.read_text(encoding="utf-8").splitlines()
    print("\n".join((header if path.suffix == ".h" else page)(path, lines)))


main()
