#!/usr/bin/env python3
"""Compiles every public header alone, and included twice.

usage: headers.py [COMPILER [C COMPILER]]

Each must be C++17 by itself; a header that has a C side (it asks for __cplusplus) must be C99 too.
Of system headers a public one includes only what a signature needs. Behind a label of a contract
the lines are indented: clang-format, which folds a long line, does not know that.
"""
import concurrent.futures
import os
import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
SOURCES = ROOT / "src"

ALLOWED = {"iosfwd", "stddef.h", "stdint.h", "stdarg.h", "stdio.h", "string.h", "time.h", "pthread.h"}
# Headers for plain C programs.
C_HEADERS = {"qvr.h", "Z/zproperties_c.h", "Z/zsnprintf.h", "Z/zqvrutil.h"}

LABEL = re.compile(r" (calls|range|owns|throws|codes|threads|kept|units|cost) ")


def public_headers():
    yield "qvr.h"
    for path in sorted((SOURCES / "Z").glob("*.h")):
        if not path.stem.endswith("_p"):
            yield f"Z/{path.name}"


def compile_twice(command, header):
    text = f"#include <{header}>\n#include <{header}>\n"
    folders = [f"-I{SOURCES}", f"-I{SOURCES / 'qvr'}"]
    run = subprocess.run([*command, "-pedantic-errors", "-Wall", "-Wextra", "-Werror",
                          "-fsyntax-only", *folders, "-"],
                         input=text, capture_output=True, text=True, check=False)
    return run.stderr if run.returncode else ""


def folded_lines(header, text):
    labelled = False
    for number, line in enumerate(text.splitlines(), 1):
        comment = line.strip().removeprefix("///")
        if comment == line.strip() or not comment:
            labelled = False
        elif LABEL.match(comment):
            labelled = True
        elif labelled and not comment.startswith(" " * 9):
            yield f"{header}:{number}: not indented under its label: {comment.strip()}"


def check(header, cxx, c):
    path = SOURCES / ("qvr/qvr.h" if header == "qvr.h" else header)
    text = path.read_text(encoding="utf-8")
    wrong = [f"{header}: includes <{name}>"
             for name in re.findall(r"^\s*#\s*include\s*<([^>]+)>", text, re.M)
             if name not in ALLOWED]
    wrong += folded_lines(header, text)
    report = compile_twice([cxx, "-x", "c++", "-std=c++17"], header)
    if report:
        wrong.append(f"{header} does not compile by itself as C++17:\n{report}")
    if header in C_HEADERS or "__cplusplus" in text:
        report = compile_twice([c, "-x", "c", "-std=c99"], header)
        if report:
            wrong.append(f"{header} does not compile by itself as C99:\n{report}")
    return wrong


def main():
    cxx = sys.argv[1] if len(sys.argv) > 1 else "g++"
    c = sys.argv[2] if len(sys.argv) > 2 else "gcc"
    headers = list(public_headers())
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        wrong = [row for rows in pool.map(lambda h: check(h, cxx, c), headers) for row in rows]
    for row in wrong:
        print(row, file=sys.stderr)
    print(f"{len(headers)} public headers, {len(wrong)} faults")
    return 1 if wrong else 0


sys.exit(main())
