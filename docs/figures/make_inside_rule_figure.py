#!/usr/bin/env python3
"""Draws inside-rule.svg for docs/regions.md: which pixels a region owns.

Run from anywhere: python3 docs/figures/make_inside_rule_figure.py (standard library only).
The decisions are made with exact fractions by the same rule the library applies (a point
p is within when p + (e, e^2) lies in the interior for every small e > 0), so the picture
is the library's answer, not an approximation of it.

Left: a parallelogram with corners on half-integers, (1.5, 1.5), (9.5, 3.5), (11.5, 9.5),
(3.5, 7.5), whose edges run through pixel centres: a centre on an edge where a row's span
starts (a left edge: (2.5, 4.5), (7.5, 8.5)) is inside, one on an edge where a span ends (a
right edge: (5.5, 2.5), (10.5, 6.5)) is outside, whatever the edge's place on the outline. Right: two rectangles that share
the edge x = 4.5, which runs through a column of centres; that column belongs to the right
rectangle only.
"""

from fractions import Fraction as F
import os

CELL = 30  # pixels of the picture per image pixel
MARGIN = 40
GAP = 70

PARALLELOGRAM = [(F(3, 2), F(3, 2)), (F(19, 2), F(7, 2)), (F(23, 2), F(19, 2)), (F(7, 2), F(15, 2))]
LEFT_GRID = (13, 11)  # columns, rows
RECT_A = [(F(1, 2), F(1, 2)), (F(9, 2), F(1, 2)), (F(9, 2), F(11, 2)), (F(1, 2), F(11, 2))]
RECT_B = [(F(9, 2), F(1, 2)), (F(17, 2), F(1, 2)), (F(17, 2), F(11, 2)), (F(9, 2), F(11, 2))]
RIGHT_GRID = (9, 7)


def cross(a, b, p):
    return (b[0] - a[0]) * (p[1] - a[1]) - (b[1] - a[1]) * (p[0] - a[0])


def within(corners, p):
    """The inside rule for a convex polygon whose corners turn the positive way
    (cross > 0 inside, x right and y down)."""
    on_boundary = False
    for k, a in enumerate(corners):
        b = corners[(k + 1) % len(corners)]
        side = cross(a, b, p)
        if side > 0:
            continue
        if side < 0:
            return False, False
        on_boundary = True
        dx, dy = b[0] - a[0], b[1] - a[1]
        # (b - a) x (e, e^2) = dx e^2 - dy e: the sign of -dy, or of dx when dy is 0.
        if not (dy < 0 or (dy == 0 and dx > 0)):
            return False, True
    return True, on_boundary


def panel(parts, origin_x, grid, regions, title):
    columns, rows = grid

    def at(x, y):
        return origin_x + float(x) * CELL, MARGIN + float(y) * CELL

    parts.append(f'<text x="{origin_x:.1f}" y="{MARGIN - 14}" class="title">{title}</text>')
    for row in range(rows):
        for column in range(columns):
            centre = (F(2 * column + 1, 2), F(2 * row + 1, 2))
            owner = None
            boundary = False
            for index, (corners, _) in enumerate(regions):
                inside, on_edge = within(corners, centre)
                boundary = boundary or on_edge
                if inside:
                    owner = index
            x, y = at(column, row)
            fill = regions[owner][1] if owner is not None else "white"
            parts.append(f'<rect x="{x:.1f}" y="{y:.1f}" width="{CELL}" height="{CELL}" fill="{fill}" class="pixel"/>')
            cx, cy = at(*centre)
            if owner is not None:
                parts.append(f'<circle cx="{cx:.1f}" cy="{cy:.1f}" r="3.2" class="in"/>')
            else:
                parts.append(f'<circle cx="{cx:.1f}" cy="{cy:.1f}" r="3.2" class="out"/>')
            if boundary:
                parts.append(f'<circle cx="{cx:.1f}" cy="{cy:.1f}" r="7" class="onedge"/>')
    for corners, _ in regions:
        points = " ".join("{:.1f},{:.1f}".format(*at(*c)) for c in corners)
        parts.append(f'<polygon points="{points}" class="outline"/>')
    for column in range(0, columns + 1, 2):
        x, y = at(column, rows)
        parts.append(f'<text x="{x:.1f}" y="{y + 16:.1f}" class="axis">{column}</text>')
    for row in range(0, rows + 1, 2):
        x, y = at(0, row)
        parts.append(f'<text x="{x - 18:.1f}" y="{y + 4:.1f}" class="axis">{row}</text>')


def main():
    left_width = LEFT_GRID[0] * CELL
    right_x = MARGIN + left_width + GAP
    width = right_x + RIGHT_GRID[0] * CELL + MARGIN
    height = MARGIN + LEFT_GRID[1] * CELL + 140
    parts = [
        f'<svg xmlns="http://www.w3.org/2000/svg" width="{width}" height="{height}" '
        f'viewBox="0 0 {width} {height}" font-family="DejaVu Sans, sans-serif" font-size="13">',
        "<style>",
        ".pixel{stroke:#cccccc;stroke-width:1}",
        ".outline{fill:none;stroke:#c0392b;stroke-width:2}",
        ".in{fill:#222222}",
        ".out{fill:white;stroke:#888888;stroke-width:1}",
        ".onedge{fill:none;stroke:#2471a3;stroke-width:1.6}",
        ".title{fill:#222222;font-weight:bold}",
        ".axis{fill:#666666;font-size:11px}",
        ".label{fill:#222222}",
        "</style>",
        f'<rect width="{width}" height="{height}" fill="white"/>',
    ]
    panel(parts, MARGIN, LEFT_GRID, [(PARALLELOGRAM, "#f9e79f")],
          "a parallelogram on half-integer corners")
    panel(parts, right_x, RIGHT_GRID, [(RECT_A, "#aed6f1"), (RECT_B, "#abebc6")],
          "neighbours sharing x = 4.5")
    legend_y = MARGIN + LEFT_GRID[1] * CELL + 40
    parts += [
        f'<circle cx="{MARGIN + 6}" cy="{legend_y - 4}" r="3.2" class="in"/>',
        f'<text x="{MARGIN + 16}" y="{legend_y}" class="label">centre inside: the pixel is the region\'s</text>',
        f'<circle cx="{MARGIN + 6}" cy="{legend_y + 18}" r="3.2" class="out"/>',
        f'<text x="{MARGIN + 16}" y="{legend_y + 22}" class="label">centre outside</text>',
        f'<circle cx="{MARGIN + 6}" cy="{legend_y + 40}" r="7" class="onedge"/>',
        f'<text x="{MARGIN + 16}" y="{legend_y + 44}" class="label">centre exactly on the outline: inside where it starts '
        f'a row\'s span (a left edge, or a horizontal top edge),</text>',
        f'<text x="{MARGIN + 16}" y="{legend_y + 60}" class="label">outside where it ends one (a right edge, or a '
        f'horizontal bottom edge)</text>',
        f'<text x="{MARGIN}" y="{legend_y + 84}" class="label">pixel (i, j) covers [i, i+1) x [j, j+1); '
        f'its centre is (i + 0.5, j + 0.5); y grows downwards</text>',
        "</svg>",
    ]
    here = os.path.dirname(os.path.abspath(__file__))
    with open(os.path.join(here, "inside-rule.svg"), "w", encoding="utf-8") as out:
        out.write("\n".join(parts) + "\n")


if __name__ == "__main__":
    main()
