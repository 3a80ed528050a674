"""Draws the map of the library as an SVG: subsystems in building order, from the top down.

Left: a box per subsystem with its modules, and arcs to the subsystems it stands on, which are above
it. Middle: the private directories, each level with the first subsystem that uses it. Right: every
ring, module by module. The text of the drawing depends only on the includes.
"""
import math

CHAR, LINE = 6.6, 15  # advance and line height of the 11-pixel monospaced text, in pixels
LEFT, BOX, GAP = 170, 350, 22  # margin for arcs, width of a subsystem, distance between boxes
ENGINE_X, ENGINE = LEFT + BOX + 60, 250
RING_X, RADIUS = ENGINE_X + ENGINE + 250, 190


def wrapped(words, width):
    """Returns `words` as lines of at most `width` pixels."""
    lines = [""]
    for word in words:
        longer = f"{lines[-1]}  {word}".strip()
        if lines[-1] and len(longer) * CHAR > width:
            lines.append(word)
        else:
            lines[-1] = longer
    return lines


class Drawing:
    def __init__(self):
        self.parts, self.width, self.height = [], 0, 0

    def reach(self, x, y):
        self.width, self.height = max(self.width, x), max(self.height, y)

    def text(self, x, y, text, style="", anchor="start"):
        self.parts.append(f'<text x="{x:.0f}" y="{y:.0f}" text-anchor="{anchor}"{style}>{text}</text>')

    def box(self, x, y, width, title, lines, kind):
        height = LINE * (len(lines) + 1) + 12
        self.parts.append(f'<rect class="{kind}" x="{x}" y="{y}" width="{width}" height="{height}" rx="4"/>')
        self.text(x + 8, y + 16, title, ' font-weight="bold"')
        for i, line in enumerate(lines):
            self.text(x + 8, y + 16 + LINE * (i + 1), line)
        self.reach(x + width, y + height)
        return height

    def path(self, data):
        self.parts.append(f'<path d="{data}" marker-end="url(#arrow)"/>')

    def document(self):
        size = f'{self.width + 20:.0f}" height="{self.height + 20:.0f}'
        head = [
            f'<svg xmlns="http://www.w3.org/2000/svg" width="{size}" font-family="monospace" font-size="11">',
            "<title>Subsystems, private directories and rings of the library</title>",
            "<style>rect{stroke:#444}.subsystem{fill:#eef3fb}.private{fill:#fbf3e4}"
            "path{fill:none;stroke:#777}.white{fill:#fff;stroke:none}</style>",
            '<defs><marker id="arrow" viewBox="0 0 8 8" refX="8" refY="4" markerWidth="7" markerHeight="7" '
            'orient="auto"><path d="M0 0L8 4L0 8z" style="fill:#777;stroke:none"/></marker></defs>',
            f'<rect class="white" width="{size}"/>',
        ]
        return "\n".join(head + self.parts + ["</svg>", ""])


def place_sections(drawing, sections, home, graph):
    """Draws the boxes; returns section -> (y, height)."""
    placed, y = {}, 40
    first_user = {}
    for section in sections:
        if not section.private:
            for module in section.rows:
                for target in graph.get(module, ()):
                    if target.endswith("/"):
                        first_user.setdefault(target, section)
    for section in sections:
        if section.private:
            continue
        beside = [r for r in sections if r.private and first_user.get(r.name + "/") is section]
        height = drawing.box(LEFT, y, BOX, section.name, wrapped(section.rows, BOX - 16), "subsystem")
        placed[section] = (y, height)
        below = y
        for engine in beside:
            tall = drawing.box(ENGINE_X, below, ENGINE, f"{engine.name}/",
                               wrapped(engine.rows, ENGINE - 16), "private")
            placed[engine] = (below, tall)
            drawing.path(f"M{LEFT + BOX} {y + 14}L{ENGINE_X} {below + 14}")
            below += tall + GAP // 2
        y = max(y + height, below) + GAP
    unused = [r for r in sections if r.private and r not in placed]
    for engine in unused:  # used by private directories only
        height = drawing.box(ENGINE_X, y, ENGINE, f"{engine.name}/",
                             wrapped(engine.rows, ENGINE - 16), "private")
        placed[engine] = (y, height)
        y += height + GAP
    return placed


def draw_arcs(drawing, sections, placed, home, graph):
    """One arc on the left for each pair of subsystems, one on the right for private directories."""
    edges = {(home[a], home[b]) for a, targets in graph.items() for b in targets
             if a in home and b in home and home[a] is not home[b]}
    rank = {section: i for i, section in enumerate(sections)}
    for a, b in sorted(edges, key=lambda edge: (rank[edge[0]], rank[edge[1]])):
        start, end = placed[a][0] + 8, placed[b][0] + placed[b][1] - 8
        if not a.private and not b.private:
            bend = LEFT - 18 - 15 * abs(rank[a] - rank[b])
            drawing.path(f"M{LEFT} {start}C{bend} {start} {bend} {end} {LEFT} {end}")
        elif a.private and b.private:
            right = ENGINE_X + ENGINE
            drawing.path(f"M{right} {start}C{right + 40} {start} {right + 40} {end} {right} {end}")


def draw_rings(drawing, rings, graph):
    y = 60
    for ring in sorted(rings, key=lambda r: (-len(r), sorted(r))):
        radius = RADIUS if len(ring) > 3 else 50
        names = sorted(ring)
        drawing.text(RING_X, y - 24, f"Ring of {len(names)}", ' font-weight="bold"', "middle")
        centre = y + radius
        spot = {}
        for i, name in enumerate(names):
            angle = 2 * math.pi * i / len(names) - math.pi / 2
            spot[name] = (RING_X + radius * math.cos(angle), centre + radius * math.sin(angle))
        for a in names:
            for b in sorted(graph[a] & ring):
                (ax, ay), (bx, by) = spot[a], spot[b]
                length = math.hypot(bx - ax, by - ay)
                cut = 14 / length
                drawing.path(f"M{ax + (bx - ax) * cut:.0f} {ay + (by - ay) * cut:.0f}"
                             f"L{bx - (bx - ax) * cut:.0f} {by - (by - ay) * cut:.0f}")
        for name in names:
            x, at = spot[name]
            half = len(name) * CHAR / 2 + 3
            drawing.parts.append(f'<rect class="white" x="{x - half:.0f}" y="{at - 8:.0f}" '
                                 f'width="{2 * half:.0f}" height="16"/>')
            drawing.text(x, at + 4, name, "", "middle")
            drawing.reach(x + half, at + 10)
        y = centre + radius + 70
    drawing.reach(0, y - 50)


def draw(sections, rings, graph):
    """Returns the SVG document. `graph` has modules, and private directories with a final "/"."""
    home = {}
    for section in sections:
        if section.private:
            home[section.name + "/"] = section
        for module in section.rows if not section.private else ():
            home[module] = section
    drawing = Drawing()
    drawing.text(LEFT, 24, "An arrow points to a box that another one stands on. A private directory is drawn next to "
                 "the first subsystem that uses it.")
    placed = place_sections(drawing, sections, home, graph)
    draw_arcs(drawing, sections, placed, home, graph)
    draw_rings(drawing, rings, graph)
    return drawing.document()
