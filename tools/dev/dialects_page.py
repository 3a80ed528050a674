#!/usr/bin/env python3
"""Writes the manual page zstz-dialects(5) from the section "Other dialects" of docs/file-formats.md.

usage: dialects_page.py [--check]

With --check, changes nothing, and fails if the page differs from that section.
"""
import html
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
DOCUMENT = ROOT / "docs/file-formats.md"
PAGE = ROOT / "tools/zstz/zstz-dialects.5"

START = '''.\\" Written by tools/dev/dialects_page.py from docs/file-formats.md.
.TH ZSTZ-DIALECTS 5 "" "Z Foundation Library 6.0" "File Formats"
.SH NAME
zstz-dialects \\- formats of configuration files that zstz and the Z Foundation Library read
.SH DESCRIPTION
'''
END = '''.SH SEE ALSO
.BR zstz (1)
'''


# Characters that roff would typeset as others.
PLAIN = {"\\": "\\e", "-": "\\-", "'": "\\(aq", "`": "\\(ga", "^": "\\(ha", "~": "\\(ti"}


def prose(text):
    """Returns text outside code with the escapes of roff."""
    text = html.unescape(re.sub(r"\[([^\]]+)\]\([^)]*\)", r"\1", text).replace("**", ""))
    return re.sub(r"\s+", " ", text).replace("\\", "\\e").replace("-", "\\-")


def code(text):
    """Returns code in bold, with the escapes of roff."""
    plain = "".join(PLAIN.get(character, character) for character in text)
    return "\\fB" + re.sub(r"^ | $| (?= )|(?<= ) ", r"\\ ", plain) + "\\fR"


def inline(text):
    """Returns text of Markdown with the escapes of roff."""
    spans = []

    def take(span):
        quoted = span[2]
        if quoted is None:
            quoted = html.unescape(span[3])
        elif quoted[0] == quoted[-1] == " " and quoted.strip():
            quoted = quoted[1:-1]  # they only separate a backquote from the quotes
        spans.append(code(quoted))
        return "\0"

    text = re.sub(r"(?<!`)(`+)(?!`)(.+?)(?<!`)\1(?!`)|<code>(.*?)</code>", take, text)
    return re.sub("\0", lambda _: spans.pop(0), prose(text))


def line(text):
    """Returns a line of text that roff takes for no request."""
    text = inline(text)
    return "\\&" + text if text.startswith((".", "'")) else text


def verbatim(text):
    """Returns a line of code that roff takes for no request."""
    return "\\&" + "".join(PLAIN.get(character, character) for character in text)


def rows_of(block):
    """Returns the cells of each row of a table, in which "\\|" is a character."""
    rows = [[cell.strip().replace("\\|", "|") for cell in re.split(r"(?<!\\)\|", row)[1:-1]]
            for row in block]
    return [rows[0], *rows[2:]]


def dialects_of(cell):
    return re.findall(r"`([^`]+)`", cell)


def parts_of(title, cell):
    """Returns the parts of a cell below "A; B", with their titles."""
    titles = title.split("; ")
    cells = cell.split("; ", len(titles) - 1)
    if len(titles) != len(cells):
        return [(title, cell)]
    return [(part[0].upper() + part[1:], value) for part, value in zip(titles, cells)]


def describe(tables):
    """Returns an entry for each dialect, with the cells of all tables as sentences."""
    entries = {}
    for header, *rows in tables:
        for cells in rows:
            names = dialects_of(cells[0])
            if cells[0].startswith("all but "):
                names = [name for name in entries if name not in names]
            for name in names:
                for column in zip(header[1:], cells[1:]):
                    for title, cell in parts_of(*column):
                        entries.setdefault(name, {}).setdefault(title, []).append(cell)
    out = [".SH DIALECTS"]
    for name, sentences in entries.items():
        out += [".TP", code(name)]
        for index, (title, cells) in enumerate(sentences.items()):
            out += [".br"] * (index > 0) + [line(f"{title}: {'; '.join(cells)}.")]
    return out


def blocks_of(text):
    """Returns the kind and the lines of each block: heading, table, list, code or text."""
    for block in re.split(r"\n\s*\n", text.strip()):
        lines = block.split("\n")
        kind = ("heading" if block.startswith("#") else "table" if block.startswith("|") else
                "list" if block.startswith("- ") else "code" if block.startswith("```") else "text")
        yield kind, lines


def page():
    document = DOCUMENT.read_text()
    section = re.search(r"^## Other dialects\n(.*?)^## ", document, re.S | re.M).group(1)
    tables = []
    rest = []
    for kind, lines in blocks_of(section):
        if kind == "table":
            tables.append(rows_of(lines))
            if rest and rest[-1].endswith(":"):
                title = inline(tables[-1][0][1])
                rest[-1] = f"{rest[-1][:-1]}. Each dialect above lists its own under \\(lq{title}\\(rq."
        elif kind == "heading":
            rest += [".SH " + inline(lines[0].lstrip("# ").upper())]
        elif kind == "list":
            for item in re.split(r"\n- ", "\n" + "\n".join(lines))[1:]:
                rest += [".IP \\(bu 2", line(" ".join(part.strip() for part in item.split("\n")))]
        elif kind == "code":
            rest += [".PP", ".nf", *(verbatim("    " + row) for row in lines[1:-1]), ".fi"]
        elif lines != ["Names and repeated keys:"]:
            text = re.sub(r"; the manual page .*?\.py`", "", " ".join(lines))
            rest += [".PP", line(text.replace("the table below gives", "the lists below give"))]
    first = rest.index(next((part for part in rest if part.startswith(".IP")), ".PP"))
    return (START + "\n".join(rest[:first]) + "\n" + "\n".join(describe(tables)) +
            "\n.SH RULES OF ALL DIALECTS\n" + "\n".join(rest[first:]) + "\n" + END)


def main():
    if sys.argv[1:] == ["--check"]:
        if PAGE.read_text() != page():
            sys.exit(f"{PAGE}: differs from {DOCUMENT}; run tools/dev/dialects_page.py")
    elif sys.argv[1:]:
        sys.exit(__doc__)
    else:
        PAGE.write_text(page())


if __name__ == "__main__":
    main()
