#!/usr/bin/env python3
"""Adds a module to the library: header, source, test, map row and CMake entries.

usage: new_module.py NAME SUBSYSTEM PURPOSE

NAME starts with "Z" and has no suffix: ZObjectRing makes the class ZObjectRing_6_0. SUBSYSTEM is a
heading of src/Z/README.md; the module becomes its last. PURPOSE completes the sentence "ZObjectRing
...", such as "keeps the last few objects put into it". Nothing is written if a file exists already.
"""
import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
TEMPLATES = pathlib.Path(__file__).resolve().parent / "templates"
PAGE = ROOT / "src/Z/README.md"
GROUPS = ROOT / "src/Z/CMakeLists.txt"
TESTS = ROOT / "tests/unit/CMakeLists.txt"


def fail(problem):
    sys.exit(f"new-module: {problem}")


def with_map_row(page, name, subsystem, purpose):
    """Returns the page with a row at the end of the subsystem's table."""
    table = re.search(rf"^## {re.escape(subsystem)}\n\n(?:\|.*\n)+", page, re.M | re.I)
    if not table:
        titles = ", ".join(re.findall(r"^## ([A-Z][\w ]+)\n\n\| Module", page, re.M)).lower()
        fail(f'no subsystem "{subsystem}"; choose one of {titles}')
    row = f"| `{name}` | {purpose} | `ZObject` |\n"
    return page[:table.end()] + row + page[table.end():]


def group_of(subsystem):
    """Returns the name of the subsystem's list in src/Z/CMakeLists.txt."""
    return "Z_" + subsystem.upper().replace(" ", "_")


def with_group_entry(text, name, subsystem):
    """Returns CMakeLists.txt with the module at the end of the subsystem's group."""
    group = group_of(subsystem)
    pattern = rf"(set\({group}\b[^)]*)\)"
    if not re.search(pattern, text):
        fail(f"src/Z/CMakeLists.txt has no group {group}")
    return re.sub(pattern, lambda match: f"{match.group(1)}\n    {name})", text, count=1)


def with_test_program(text, name, groups, subsystem):
    """Returns the list of test programs with the module's after the last of its subsystem."""
    entries = re.search(rf"set\({group_of(subsystem)}\b([^)]*)\)", groups).group(1).split()
    modules = tuple(entry for entry in entries if "/" not in entry)
    programs = [call for call in re.finditer(r"^z_test\((\w+)[^)]*\)\n", text, re.M)
                if call.group(1).startswith(modules)]
    if not programs:
        fail(f"tests/unit/CMakeLists.txt has no test program of {subsystem}")
    end = programs[-1].end()
    return f"{text[:end]}z_test({name}Test)\n{text[end:]}"


def main():
    if len(sys.argv) != 4:
        sys.exit(__doc__)
    name, subsystem, purpose = sys.argv[1], sys.argv[2].lower(), sys.argv[3].rstrip(".")
    if not re.fullmatch(r"Z[A-Za-z][A-Za-z0-9]*", name):
        fail(f'"{name}" is not a module name; write it like ZObjectRing, without a suffix')
    files = {ROOT / f"src/Z/{name}.h": "module.h.in", ROOT / f"src/Z/{name}.cpp": "module.cpp.in",
             ROOT / f"tests/unit/{name}Test.cpp": "moduleTest.cpp.in"}
    for path in files:
        if path.exists():
            fail(f"{path.relative_to(ROOT)} exists already")

    page = with_map_row(PAGE.read_text(encoding="utf-8"), name, subsystem, purpose)
    groups = with_group_entry(GROUPS.read_text(encoding="utf-8"), name, subsystem)
    tests = with_test_program(TESTS.read_text(encoding="utf-8"), name,
                              GROUPS.read_text(encoding="utf-8"), subsystem)
    for path, template in files.items():
        text = (TEMPLATES / template).read_text(encoding="utf-8")
        for word, value in (("NAME", name), ("SUBSYSTEM", subsystem), ("PURPOSE", purpose)):
            text = text.replace(f"@{word}@", value)
        path.write_text(text, encoding="utf-8")
    PAGE.write_text(page, encoding="utf-8")
    GROUPS.write_text(groups, encoding="utf-8")
    TESTS.write_text(tests, encoding="utf-8")
    subprocess.run([sys.executable, ROOT / "tools/dev/map.py", "--update"], check=True)

    for path in files:
        print(path.relative_to(ROOT))
    print(f"""Next:
  write the contract in src/Z/{name}.h and a test per statement of it
  ./dev test {name}
  ./dev lint, which names the exported symbols to add to tests/abi/exports.txt
  add the slots of the class to tests/abi/SlotOrderTest.cpp""")


main()
