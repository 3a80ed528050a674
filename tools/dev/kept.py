#!/usr/bin/env python3
"""Lists the behaviours that are kept on purpose (KEPT: comments) and checks that each is pinned.

A KEPT: comment names its test as "Test: Suite.KeepsSomething" (or "Tests: A.KeepsX, B.KeepsY");
that test must exist. --quiet prints only what is wrong.
"""
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
FOLDERS = ("src", "tools", "tests", "examples")
SUFFIXES = (".cpp", ".h", ".c")

COMMENT = re.compile(r"^\s*(?://+|\*|/\*)\s?(.*)$")
TEST = re.compile(r"\bTEST(?:_F|_P)?\(\s*(\w+)\s*,\s*(\w+)\s*\)")
NAMED = re.compile(r"\bTests?:\s*((?:\w+\.\w+)(?:\s*,\s*(?:and\s+)?\w+\.\w+)*)")


def sources():
    for folder in FOLDERS:
        for path in sorted((ROOT / folder).rglob("*")):
            if path.suffix in SUFFIXES:
                yield path


def kept_comments(path):
    """Yields (line number, whole text) of each KEPT: comment of a file."""
    lines = path.read_text(encoding="utf-8").splitlines()
    i = 0
    while i < len(lines):
        at = lines[i].find("KEPT:")
        if at < 0 or "//" not in lines[i][:at] and "*" not in lines[i][:at]:
            i += 1
            continue
        first = i
        text = [lines[i][at + len("KEPT:") :].strip()]
        i += 1
        while i < len(lines) and "KEPT:" not in lines[i]:
            match = COMMENT.match(lines[i])
            if not match:
                break
            text.append(match.group(1).strip())
            i += 1
        yield first + 1, " ".join(part for part in text if part).removesuffix("*/").strip()


def main():
    quiet = "--quiet" in sys.argv[1:]
    tests = set()
    comments = []
    for path in sources():
        name = path.relative_to(ROOT)
        tests.update(f"{s}.{t}" for s, t in TEST.findall(path.read_text(encoding="utf-8")))
        comments += [(name, line, text) for line, text in kept_comments(path)]

    wrong = []
    for name, line, text in comments:
        if not quiet:
            print(f"{name}:{line}: {text}")
        match = NAMED.search(text)
        if not match:
            wrong.append(f"{name}:{line}: names no test (Test: Suite.KeepsSomething)")
            continue
        for test in re.findall(r"\w+\.\w+", match.group(1)):
            if not test.split(".")[1].startswith("Keeps"):
                wrong.append(f"{name}:{line}: {test} is not named Keeps…")
            elif test not in tests:
                wrong.append(f"{name}:{line}: test {test} does not exist")
    for row in wrong:
        print(row, file=sys.stderr)
    print(f"{len(comments)} kept behaviours, {len(wrong)} without their test")
    return 1 if wrong else 0


sys.exit(main())
