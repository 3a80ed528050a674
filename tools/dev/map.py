#!/usr/bin/env python3
"""Checks the map of the library, src/Z/README.md, against the code. Reads includes, not only names.

The map lists subsystems and private directories in building order. It must agree with the groups of
src/Z/CMakeLists.txt, with the files of each private directory, with the further sources of modules,
and with the second paragraph of each public header ("Subsystem: x.  Stands on: A, B."). A module, or
a private directory, includes only modules and directories that the map lists above it. The exceptions
are the rings that the map names; they must be the rings that the includes form.

usage: map.py             reports differences; exits 1 if it finds any
       map.py --update    copies the "Stands on" columns and the drawing from the sources
"""
import pathlib
import re
import sys

import map_drawing

ROOT = pathlib.Path(__file__).resolve().parents[2]
LIBRARY = ROOT / "src" / "Z"
PAGE = LIBRARY / "README.md"
DRAWING = LIBRARY / "map.svg"


class Section:
    """A subsystem (public modules) or a private directory (source files without a module)."""

    def __init__(self, title):
        self.title = title
        self.private = title.startswith("`")
        self.name = title.strip("`").rstrip("/") if self.private else title.lower()
        self.rows = {}  # module or file -> names in its last column

    def group(self):
        """Returns the name of the section's list in CMakeLists.txt."""
        prefix = "Z_PRIVATE_" if self.private else "Z_"
        return prefix + self.name.upper().replace(" ", "_")


def read_page(page):
    """Returns the sections in the order of the map, and the rings that it names."""
    sections, rings, heading = [], [], ""
    for line in page.splitlines():
        title = re.match(r"##+ (.+)", line)
        if title:
            heading = title.group(1).strip()
            continue
        row = re.match(r"\| `(\w+)` \|([^|]*)\|(?:([^|]*)\|)?\s*$", line)
        if row:
            if not sections or sections[-1].title != heading:
                sections.append(Section(heading))
            sections[-1].rows[row.group(1)] = set(re.findall(r"`(\w+)`", row.group(3) or ""))
        ring = re.match(r"\d+\. Ring: (.+)", line)
        if ring:
            rings.append(set(re.findall(r"`([\w/]+)`", ring.group(1))))
    return sections, rings


def cmake_groups():
    text = (LIBRARY / "CMakeLists.txt").read_text(encoding="utf-8")
    return {name: words.split() for name, words in re.findall(r"set\((Z_\w+)([^)]*)\)", text)}


def header_paragraph(module):
    """Returns subsystem and list of modules of the header's second paragraph, or None."""
    comment = []
    for line in (LIBRARY / f"{module}.h").read_text(encoding="utf-8").splitlines():
        if not line.startswith("//"):
            break
        comment.append(line[2:].strip())
    match = re.search(r"Subsystem: ([\w ]+)\.\s+Stands on: ([^.]+)\.", " ".join(comment))
    if not match:
        return None
    names = [name for name in re.findall(r"\w+", match.group(2)) if name != "nothing"]
    return match.group(1), names


def owner(path, modules):
    """Returns the node of a source file: its private directory with "/", or its module."""
    relative = path.resolve().relative_to(LIBRARY)
    if len(relative.parts) > 1:
        return relative.parts[0] + "/"
    stem = relative.stem
    while stem not in modules and "_" in stem:
        stem = stem.rsplit("_", 1)[0]
    return stem if stem in modules else None


def include_graph(modules):
    """Returns node -> nodes that its files include, and the files that belong to no node."""
    graph, strays = {}, []
    for path in sorted([*LIBRARY.rglob("*.h"), *LIBRARY.rglob("*.cpp")]):
        node = owner(path, modules)
        if node is None:
            strays.append(path.name)
            continue
        targets = graph.setdefault(node, set())
        for name in re.findall(r'#include "([^"]+)"', path.read_text(encoding="utf-8")):
            for candidate in (path.parent / name, LIBRARY / name):
                if candidate.exists():
                    targets.add(owner(candidate, modules))
                    break
        targets -= {node, None}
    return graph, strays


def find_rings(graph):
    """Returns the strongly connected components with several nodes (Tarjan's algorithm)."""
    order, low, stack, rings = {}, {}, [], []

    def visit(node):
        order[node] = low[node] = len(order)
        stack.append(node)
        for target in sorted(graph.get(node, ())):
            if target not in order:
                visit(target)
                low[node] = min(low[node], low[target])
            elif target in stack:
                low[node] = min(low[node], order[target])
        if low[node] == order[node]:
            ring = set()
            while node not in ring:
                ring.add(stack.pop())
            if len(ring) > 1:
                rings.append(ring)

    for node in sorted(graph):
        if node not in order:
            visit(node)
    return rings


def check_sections(sections, groups):
    """Yields the differences between the tables, the CMake groups, headers and directories."""
    for section in sections:
        rows, group = list(section.rows), groups.get(section.group())
        if group is None and section.private:
            group = []  # headers only
        if group is None:
            yield f"{section.title}: CMakeLists.txt has no group {section.group()}"
            continue
        group = [name.split("/")[-1] for name in group]
        if section.private:
            files = {path.stem.removesuffix("_p") for path in (LIBRARY / section.name).iterdir()
                     if path.suffix in (".h", ".cpp")}
            if set(rows) != files:
                yield f"{section.name}/: the map lists {sorted(set(rows))}, the directory {sorted(files)}"
            rows = sorted(name for name in rows if (LIBRARY / section.name / f"{name}.cpp").exists())
        if rows != group:
            yield f"{section.title}: the map lists {rows}, CMakeLists.txt {group}"
        if section.private:
            continue
        for module in rows:
            paragraph = header_paragraph(module)
            if paragraph is None:
                yield f'{module}.h has no paragraph "Subsystem: ...  Stands on: ..."'
            elif paragraph[0] != section.name:
                yield f"{module}.h: subsystem is {paragraph[0]}, in the map it is {section.name}"
            elif set(paragraph[1]) != section.rows[module]:
                yield (f"{module}: the header stands on {sorted(paragraph[1])}, "
                       f"the map has {sorted(section.rows[module])}; run map.py --update")
    for directory in sorted(path for path in LIBRARY.iterdir() if path.is_dir()):
        if not any(section.private and section.name == directory.name for section in sections):
            yield f"{directory.name}/: the map does not list this private directory"


def check_further_sources(page, modules):
    """Yields the sources and private headers next to the modules that the map does not list."""
    listed = set(re.findall(r"^\| `(\w+\.(?:cpp|h))` \|", page, re.M))
    found = {path.name for path in LIBRARY.iterdir()
             if path.suffix in (".cpp", ".h") and path.stem not in modules}
    if listed != found:
        yield f"further sources: the map lists {sorted(listed)}, the directory has {sorted(found)}"


def check_order(sections, graph, rings):
    """Yields the includes that point down the map, or that a header does not name."""
    rank = {}
    for section in sections:
        if section.private:
            rank[section.name + "/"] = len(rank)
        else:
            for module in section.rows:
                rank[module] = len(rank)
    found = find_rings(graph)
    for ring in found:
        if ring not in rings:
            yield f"the includes form a ring that the map does not name: {sorted(ring)}"
    for ring in rings:
        if ring not in found:
            yield f"the map names a ring that the includes do not form: {sorted(ring)}"
    for node, targets in graph.items():
        for target in sorted(targets):
            if target not in rank or node not in rank:
                continue  # reported as a missing row
            if rank[target] > rank[node] and not any({node, target} <= ring for ring in rings):
                yield f"{node} includes {target}, which the map lists below it"
    for section in sections:
        if section.private:
            continue
        for module, named in section.rows.items():
            unnamed = {t for t in graph.get(module, ()) if not t.endswith("/")} - named
            if unnamed:
                yield f"{module} includes {sorted(unnamed)}, which its header does not name"


def updated(page):
    """Returns the page with the last columns as the headers have them."""
    lines = page.split("\n")
    for i, line in enumerate(lines):
        row = re.match(r"(\| `(\w+)` \|[^|]*\|)[^|]*\|$", line)
        if row and (LIBRARY / f"{row.group(2)}.h").exists():
            paragraph = header_paragraph(row.group(2))
            names = ", ".join(f"`{name}`" for name in paragraph[1]) if paragraph else ""
            lines[i] = f"{row.group(1)} {names} |".replace("|  |", "| |")
    return "\n".join(lines)


def main():
    if "--update" in sys.argv[1:]:
        PAGE.write_text(updated(PAGE.read_text(encoding="utf-8")), encoding="utf-8")
    page = PAGE.read_text(encoding="utf-8")
    sections, rings = read_page(page)
    modules = {module for section in sections if not section.private for module in section.rows}
    graph, strays = include_graph(modules)

    wrong = [f"{name} belongs to no module and no private directory" for name in strays]
    wrong += check_sections(sections, cmake_groups())
    wrong += check_further_sources(page, modules)
    wrong += check_order(sections, graph, rings)
    drawing = map_drawing.draw(sections, rings, graph)
    if "--update" in sys.argv[1:]:
        DRAWING.write_text(drawing, encoding="utf-8")
    elif not DRAWING.exists() or DRAWING.read_text(encoding="utf-8") != drawing:
        wrong.append("src/Z/map.svg differs from the includes; run ./dev docs")
    for row in wrong:
        print(row, file=sys.stderr)
    print(f"{len(modules)} modules, {sum(section.private for section in sections)} private directories, "
          f"{len(rings)} rings, {len(wrong)} differences")
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())
