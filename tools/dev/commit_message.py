#!/usr/bin/env python3
"""Checks the form of the last commit's message.

Subject "area: Effect": a subsystem or top folder, an imperative with a capital, at most
72 columns, no full stop; then a blank line before the body. Merges are left alone.
"""
import re
import subprocess
import sys

SUBJECT = re.compile(r"^[a-z][a-z0-9.+-]*: [A-Z]\S*( .*\S)?$")


def git(*arguments):
    return subprocess.run(["git", *arguments], capture_output=True, text=True, check=False)


def main():
    parents = git("log", "-1", "--format=%P")
    if parents.returncode != 0:
        print("no repository here: nothing to check")
        return 0
    if len(parents.stdout.split()) > 1:
        return 0
    lines = git("log", "-1", "--format=%B").stdout.rstrip("\n").split("\n")
    wrong = []
    if not SUBJECT.match(lines[0]):
        wrong.append('the subject is not "area: Effect"')
    if len(lines[0]) > 72:
        wrong.append(f"the subject has {len(lines[0])} columns, at most 72 are allowed")
    if lines[0].endswith("."):
        wrong.append("the subject ends with a full stop")
    if len(lines) > 1 and lines[1]:
        wrong.append("the second line is not blank")
    for row in wrong:
        print(f"{lines[0]!r}: {row}", file=sys.stderr)
    return 1 if wrong else 0


sys.exit(main())
