"""Draws the map of the library as an SVG: subsystems and private directories in building order.

Left: a box per subsystem with its modules, or per private directory with its files. Middle: a line
leaves each box at its lower edge, and crosses the lane of every box; a dot on the crossing is an
include. The lane of a box leads to its upper edge. Right: every ring, module by module. The text of
the drawing depends only on the includes.
"""
import math

CHAR, LINE = 6.6, 15  # advance and line height of the 11-pixel monospaced text, in pixels
LEFT, BOX, GAP = 20, 350, 14  # margin, width of a box, distance between boxes
INDENT = 30  # of private directories
LANE_X, LANE = LEFT + BOX + 40, 20  # the first lane, and the distance between lanes
RADIUS = 190  # of a large ring


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

    def path(self, data, kind=""):
        style = f' class="{kind}"' if kind else ""
        self.parts.append(f'<path{style} d="{data}" marker-end="url(#arrow)"/>')

    def line(self, x1, y1, x2, y2, kind):
        self.parts.append(f'<path class="{kind}" d="M{x1} {y1}L{x2} {y2}"/>')

    def dot(self, x, y, kind, title):
        self.parts.append(f'<circle class="{kind}" cx="{x}" cy="{y}" r="4"><title>{title}</title></circle>')

    def document(self):
        size = f'{self.width + 20:.0f}" height="{self.height + 20:.0f}'
        head = [
            f'<svg xmlns="http://www.w3.org/2000/svg" width="{size}" font-family="monospace" font-size="11">',
            "<title>Subsystems, private directories and rings of the library</title>",
            "<style>rect{stroke:#444}rect.subsystem{fill:#eef3fb}rect.private{fill:#fbf3e4}"
            "path{fill:none;stroke:#777}path.use{stroke:#ccc}path.subsystem{stroke:#5b7fb9}"
            "path.private{stroke:#c98a1b}circle{stroke:none}circle.subsystem{fill:#2f5596}"
            "circle.private{fill:#a86d05}.ring{fill:#c33}.white{fill:#fff;stroke:none}</style>",
            '<defs><marker id="arrow" viewBox="0 0 8 8" refX="8" refY="4" markerWidth="7" markerHeight="7" '
            'orient="auto"><path d="M0 0L8 4L0 8z" style="fill:#777;stroke:none"/></marker></defs>',
            f'<rect class="white" width="{size}"/>',
        ]
        return "\n".join(head + self.parts + ["</svg>", ""])


def place_sections(drawing, sections):
    """Draws the boxes; returns section -> (left edge, y where it is used, y where it uses others)."""
    placed, y = {}, 70
    for section in sections:
        indent = INDENT if section.private else 0
        width = BOX - indent
        kind, name = ("private", section.name + "/") if section.private else ("subsystem", section.name)
        height = drawing.box(LEFT + indent, y, width, name, wrapped(section.rows, width - 16), kind)
        placed[section] = (y + 12, y + height - 12)
        y += height + GAP
    return placed


def draw_includes(drawing, sections, placed, home, graph):
    """Draws a lane for each box that others use, the nearest for the last box, and the dots.

    The lanes are in reverse building order: so a lane leads to its box without crossing another one,
    except for includes that point down the map, which exist only in rings.
    """
    includes = {}
    for a, targets in graph.items():
        for b in targets:
            if a in home and b in home and home[a] is not home[b]:
                includes.setdefault((home[a], home[b]), []).append(f"{a} includes {b}")
    used = [s for s in reversed(sections) if any(b is s for _, b in includes)]
    lane = {section: LANE_X + LANE * i for i, section in enumerate(used)}
    rank = {section: i for i, section in enumerate(sections)}
    edge = LEFT + BOX
    for section in sections:
        lanes = [lane[b] for a, b in includes if a is section]
        if lanes:
            drawing.line(edge, placed[section][1], max(lanes), placed[section][1], "use")
    for section in used:
        kind = "private" if section.private else "subsystem"
        ends = [placed[a][1] for a, b in includes if b is section]
        start, x = placed[section][0], lane[section]
        drawing.line(x, min(start, *ends), x, max(start, *ends), kind)
        drawing.path(f"M{x} {start}L{edge} {start}", kind)
        drawing.reach(x + LANE, 0)
    for (a, b), which in sorted(includes.items(), key=lambda i: (rank[i[0][0]], rank[i[0][1]])):
        kind = "ring" if rank[b] > rank[a] else "private" if b.private else "subsystem"
        drawing.dot(lane[b], placed[a][1], kind, ", ".join(sorted(which)))


def draw_rings(drawing, rings, graph):
    y, middle = 100, drawing.width + RADIUS + 60
    for ring in sorted(rings, key=lambda r: (-len(r), sorted(r))):
        radius = RADIUS if len(ring) > 3 else 50
        names = sorted(ring)
        drawing.text(middle, y - 24, f"Ring of {len(names)}", ' font-weight="bold"', "middle")
        centre = y + radius
        spot = {}
        for i, name in enumerate(names):
            angle = 2 * math.pi * i / len(names) - math.pi / 2
            spot[name] = (middle + radius * math.cos(angle), centre + radius * math.sin(angle))
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
    for i, line in enumerate((
            "Blue: subsystems. Yellow: private directories. Both are in building order.",
            "A dot on the line from a box: it includes files of the box to which the dot's lane leads.",
            "A red dot: an include down the map, inside a ring.")):
        drawing.text(LEFT, 18 + LINE * i, line)
    placed = place_sections(drawing, sections)
    draw_includes(drawing, sections, placed, home, graph)
    draw_rings(drawing, rings, graph)
    return drawing.document()
