#!/usr/bin/env python3
"""Checks the pages of the reference manual in build/docs/html.

The page of a type or of a header must begin with its description, before the list of its members.
Every link to a file of the manual must lead to an existing file and, if it names one, to an existing
anchor.

usage: manual.py [DIRECTORY]    prints the faults; exits 1 if it finds any
"""
import html.parser
import pathlib
import re
import sys
import urllib.parse

ROOT = pathlib.Path(__file__).resolve().parents[2]
DESCRIBED = re.compile(r"(class|struct|union)[A-Z]\w*\.html|\w+_8h\.html")


class Page(html.parser.HTMLParser):
    """The anchors and links of a page, and whether a description precedes its first list of members."""

    def __init__(self, text):
        super().__init__()
        self.anchors, self.links = set(), []
        self.described = None  # None until the description or the first list of members
        self._in_text = False
        self.feed(text)

    def handle_starttag(self, tag, attrs):
        attributes = dict(attrs)
        for name in ("id", "name"):
            if attributes.get(name):
                self.anchors.add(attributes[name])
        for name in ("href", "src"):
            if attributes.get(name):
                self.links.append(attributes[name])
        kind = attributes.get("class") or ""
        if kind == "textblock":
            self._in_text = True
        elif kind == "memberdecls" and self.described is None:
            self.described = False

    def handle_data(self, data):
        if self._in_text and data.strip() and self.described is None:
            self.described = True


def faults_of(name, page, pages, directory):
    if DESCRIBED.fullmatch(name) and not page.described:
        yield f"{name}: no description before the list of members; write one above the type"
    for link in sorted(set(page.links)):
        parts = urllib.parse.urlsplit(link)
        if parts.scheme or parts.netloc:
            continue
        target, anchor = urllib.parse.unquote(parts.path) or name, urllib.parse.unquote(parts.fragment)
        if not (directory / target).exists():
            yield f"{name}: no such file: {link}"
        elif anchor and target in pages and anchor not in pages[target].anchors:
            yield f"{name}: no such anchor: {link}"


def main():
    directory = pathlib.Path(sys.argv[1]) if len(sys.argv) > 1 else ROOT / "build" / "docs" / "html"
    pages = {path.name: Page(path.read_text(encoding="utf-8")) for path in directory.glob("*.html")}
    faults = [fault for name in sorted(pages) for fault in faults_of(name, pages[name], pages, directory)]
    for fault in faults:
        print(fault, file=sys.stderr)
    print(f"{len(pages)} pages of the reference manual, {len(faults)} faults")
    return 1 if faults or not pages else 0


if __name__ == "__main__":
    sys.exit(main())
