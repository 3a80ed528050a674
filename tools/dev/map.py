#!/usr/bin/env python3
"""Compares the three places that say what the library is made of.

The groups of src/Z/CMakeLists.txt, the tables of src/Z/README.md and the second paragraph of each
header ("Subsystem: x.  Stands on: A, B.") must name the same modules in the same subsystems and the
same dependencies, and a header or its source includes only what it stands on.
--update copies what the headers stand on into src/Z/README.md.
"""
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
LIBRARY = ROOT / "src" / "Z"

# Subsystem in the text: group in CMake.
GROUPS = {
    "root": "Z_ROOT",
    "text": "Z_TEXT",
    "collections": "Z_COLLECTIONS",
    "threads": "Z_THREADS",
    "process locks": "Z_PROCESS_LOCKS",
    "properties": "Z_PROPERTIES",
    "platform": "Z_PLATFORM",
    "squeeze": "Z_SQUEEZE",
}


def cmake_groups():
    text = (LIBRARY / "CMakeLists.txt").read_text(encoding="utf-8")
    return {subsystem: re.search(rf"set\({group}\b([^)]*)\)", text).group(1).split()
            for subsystem, group in GROUPS.items()}


def map_tables():
    """Returns subsystem -> {module: set of what it stands on}, in the order of the map."""
    tables, rows = {}, None
    for line in (LIBRARY / "README.md").read_text(encoding="utf-8").splitlines():
        heading = re.match(r"##+ ([\w ]+)", line)
        if heading:
            rows = tables.setdefault(heading.group(1).strip().lower(), {})
        row = re.match(r"\| `(\w+)` \|.*\|(.*)\|\s*$", line)
        if row and rows is not None:
            rows[row.group(1)] = set(re.findall(r"`(\w+)`", row.group(2)))
    return {name: rows for name, rows in tables.items() if rows}


def header_paragraph(module):
    """Returns what the header says, or None: subsystem, what it stands on as a set and in order."""
    comment = []
    for line in (LIBRARY / f"{module}.h").read_text(encoding="utf-8").splitlines():
        if not line.startswith("//"):
            break
        comment.append(line[2:].strip())
    match = re.search(r"Subsystem: ([\w ]+)\.\s+Stands on: ([^.]+)\.", " ".join(comment))
    if not match:
        return None
    names = [name for name in re.findall(r"\w+", match.group(2)) if name != "nothing"]
    return match.group(1), set(names), names


def included(module, modules):
    """Returns the modules that a module's files include: X.h, X.cpp, X_topic.cpp, X_p.h."""
    found = set()
    for path in LIBRARY.iterdir():
        if path.suffix in (".h", ".cpp") and path.stem.split("_")[0] == module.split("_")[0]:
            owner = path.stem if path.stem in modules else path.stem.rsplit("_", 1)[0]
            if owner != module:
                continue
            for name in re.findall(r'#include "(\w+)\.h"', path.read_text(encoding="utf-8")):
                if name in modules:
                    found.add(name)
                elif name.endswith("_p") and name[:-2] in modules:
                    found.add(name[:-2])
    return found - {module}


def update_map(modules):
    path = LIBRARY / "README.md"
    lines = path.read_text(encoding="utf-8").split("\n")
    for i, line in enumerate(lines):
        row = re.match(r"(\| `(\w+)` \|[^|]*\|)[^|]*\|$", line)
        if row and row.group(2) in modules:
            paragraph = header_paragraph(row.group(2))
            names = ", ".join(f"`{name}`" for name in paragraph[2]) if paragraph else ""
            lines[i] = f"{row.group(1)} {names} |".replace("|  |", "| |")
    path.write_text("\n".join(lines), encoding="utf-8")


def main():
    wrong = []
    groups = cmake_groups()
    modules = {module for group in groups.values() for module in group}
    if "--update" in sys.argv[1:]:
        update_map(modules)
    tables = map_tables()

    used = [subsystem for subsystem, group in groups.items() if group]
    if list(tables) != used:
        wrong.append(f"README.md has the subsystems {list(tables)}, CMakeLists.txt has {used}")
    for subsystem in used:
        group, table = groups[subsystem], tables.get(subsystem, {})
        if list(table) != group:
            wrong.append(f"{subsystem}: README.md lists {list(table)}, CMakeLists.txt lists {group}")
        for module in group:
            paragraph = header_paragraph(module)
            if paragraph is None:
                wrong.append(f'{module}.h has no "Subsystem: ...  Stands on: ..." paragraph')
                continue
            if paragraph[0] != subsystem:
                wrong.append(f"{module}.h says subsystem {paragraph[0]}, not {subsystem}")
            if module in table and paragraph[1] != table[module]:
                wrong.append(f"{module}: the header stands on {sorted(paragraph[1])}, "
                             f"README.md says {sorted(table[module])}")
            beside = included(module, modules) - paragraph[1]
            if beside:
                wrong.append(f"{module} includes {sorted(beside)}, which its header does not name")
    for row in wrong:
        print(row, file=sys.stderr)
    print(f"{len(modules)} modules, {len(wrong)} differences between map, CMake and headers")
    return 1 if wrong else 0


sys.exit(main())
