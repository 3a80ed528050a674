#!/usr/bin/env python3
"""Compares what the finished libraries export with the checked-in lists.

usage: exports.py BUILD-DIRECTORY [--update]

Looked at is what other programs can link to: functions, objects, vtables, type information.
Inline functions that the compiler chose to keep a copy of (weak) come and go with its version, so
they are not listed; their names must be ours all the same. --update writes the lists anew.
Also: nothing runs when a library is loaded but the compiler's own start-up code.
"""
import difflib
import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
LISTS = ROOT / "tests" / "abi"

# Library, its list, and the form of its exported names.
LIBRARIES = (
    ("src/Z/libzfoundation-6.0.so.0", "exports.txt",
     re.compile(r"^(?:(?:vtable|VTT|typeinfo|typeinfo name) for |(?:non-)?virtual thunk to )?"
                r"(?:Z\w*_6_0\b|Voyeur_6_0\b|ZPROP_\w+|z\w+_6_0\b|ZGetLocale\b|get_render_params\b)")),
    ("src/qvr/libqvr.so.1", "exports-qvr.txt", re.compile(r"^qvr_\w+$")),
)
# Start-up code of the compiler; the second one, of aarch64, asks the processor for its atomics.
COMPILERS_OWN = ("frame_dummy", "init_have_lse_atomics")
# Hidden representations: private to the sources of their class.
PRIVATE = re.compile(r"\bRep\b")


def run(*command):
    return subprocess.run(command, capture_output=True, text=True, check=True).stdout


def exports(library):
    """Returns (lines of the list, names of the weak functions)."""
    listed, weak = [], []
    for row in run("nm", "-D", "-C", "--defined-only", str(library)).splitlines():
        kind, name = row.split(maxsplit=2)[1:]
        name = name.replace("std::__va_list", "__va_list_tag*")  # the va_list of aarch64
        if kind == "W":
            weak.append(name)
        else:
            listed.append(f"{kind} {name}")
    return sorted(listed), weak


def start_up_code(library):
    """Returns the names of the functions that run when the library is loaded."""
    place = re.search(r"\.init_array\s+INIT_ARRAY\s+([0-9a-f]+)\s+[0-9a-f]+\s+([0-9a-f]+)",
                      run("readelf", "-SW", str(library)))
    if not place:
        return []
    first, size = (int(word, 16) for word in place.groups())
    names = {}
    for row in run("nm", str(library)).splitlines():
        words = row.split()
        if len(words) == 3 and words[1] in "tT":
            names[int(words[0], 16)] = words[2]
    found = []
    for row in run("readelf", "-rW", str(library)).splitlines():
        match = re.match(r"^([0-9a-f]{16})\s+\S+\s+R_\S+_RELATIVE\s+([0-9a-f]+)$", row.strip())
        if match and first <= int(match.group(1), 16) < first + size:
            address = int(match.group(2), 16)
            found.append(names.get(address, hex(address)))
    return found


def check(library, list_file, pattern, update):
    wrong = []
    listed, weak = exports(library)
    for name in [row.split(maxsplit=1)[1] for row in listed] + weak:
        if not pattern.match(name) or PRIVATE.search(name):
            wrong.append(f"{library.name} must not export {name}")
    for name in start_up_code(library):
        if name not in COMPILERS_OWN:
            wrong.append(f"{library.name} runs {name} when it is loaded")
    path = LISTS / list_file
    text = "".join(f"{row}\n" for row in listed)
    if update:
        path.write_text(text, encoding="utf-8")
    old = path.read_text(encoding="utf-8") if path.exists() else ""
    if old != text:
        wrong += difflib.unified_diff(old.splitlines(), text.splitlines(),
                                      f"tests/abi/{list_file}", str(library), lineterm="", n=0)
        wrong.append("if the change is meant: tools/dev/exports.py BUILD-DIRECTORY --update")
    print(f"{library.name}: {len(listed)} names exported")
    return wrong


def main():
    if len(sys.argv) < 2:
        sys.exit(__doc__)
    build = pathlib.Path(sys.argv[1])
    update = "--update" in sys.argv[2:]
    wrong = []
    for library, list_file, pattern in LIBRARIES:
        wrong += check(build / library, list_file, pattern, update)
    for row in wrong:
        print(row, file=sys.stderr)
    return 1 if wrong else 0


sys.exit(main())
