#!/usr/bin/env python3
"""Draws transform-axes.svg for docs/transforms.md: how a linear transform maps the x and y
axes, and the quantities that both parametrisations read from those two images.

Run from anywhere: python3 docs/figures/make_transform_figure.py (standard library only).
The example is ScalingX 1.6, ScalingY 1.1, RotationX 25 degrees, RotationY 40 degrees,
translation (0.9, 0.5), so Scaling 1.6, Aspect 0.6875, Rotation 25 degrees, Skew 15 degrees.
"""

import math
import os

SX, SY = 1.6, 1.1
RX, RY = math.radians(25), math.radians(40)
TX, TY = 0.9, 0.5

# Matrix columns: the images of the unit x and y vectors.
M00, M10 = math.cos(RX) * SX, math.sin(RX) * SX
M01, M11 = -math.sin(RY) * SY, math.cos(RY) * SY

SCALE = 120  # pixels per unit
ORIGIN = (150, 320)  # where (0, 0) lies, in pixels
WIDTH, HEIGHT = 660, 450


def px(x, y):
    """Picture coordinates: y up in the plane, down in SVG."""
    return ORIGIN[0] + x * SCALE, ORIGIN[1] - y * SCALE


def line(p, q, cls, extra=""):
    (x1, y1), (x2, y2) = px(*p), px(*q)
    return f'<line x1="{x1:.1f}" y1="{y1:.1f}" x2="{x2:.1f}" y2="{y2:.1f}" class="{cls}"{extra}/>'


def arrow(p, q, cls):
    return line(p, q, cls, f' marker-end="url(#head-{cls})"')


def text(p, content, cls="label", dx=0, dy=0):
    x, y = px(*p)
    return f'<text x="{x + dx:.1f}" y="{y + dy:.1f}" class="{cls}">{content}</text>'


def arc(center, radius, start, end, cls):
    """An arc from angle start to end (radians, counter-clockwise in the plane)."""
    x1, y1 = px(center[0] + radius * math.cos(start), center[1] + radius * math.sin(start))
    x2, y2 = px(center[0] + radius * math.cos(end), center[1] + radius * math.sin(end))
    large = 1 if abs(end - start) > math.pi else 0
    sweep = 0 if end > start else 1  # SVG's y runs downwards
    r = radius * SCALE
    return f'<path d="M {x1:.1f} {y1:.1f} A {r:.1f} {r:.1f} 0 {large} {sweep} {x2:.1f} {y2:.1f}" class="{cls}"/>'


def main():
    t = (TX, TY)
    ex = (TX + M00, TY + M10)
    ey = (TX + M01, TY + M11)
    corner = (TX + M00 + M01, TY + M10 + M11)
    parts = [
        f'<svg xmlns="http://www.w3.org/2000/svg" width="{WIDTH}" height="{HEIGHT}" '
        f'viewBox="0 0 {WIDTH} {HEIGHT}" font-family="DejaVu Sans, sans-serif" font-size="13">',
        "<defs>",
    ]
    for cls, colour in (("from", "#888888"), ("xaxis", "#c0392b"), ("yaxis", "#2471a3")):
        parts.append(
            f'<marker id="head-{cls}" viewBox="0 0 10 10" refX="9" refY="5" markerWidth="7" '
            f'markerHeight="7" orient="auto-start-reverse"><path d="M 0 0 L 10 5 L 0 10 z" fill="{colour}"/></marker>')
    parts += [
        "</defs>",
        "<style>",
        ".from{stroke:#888888;stroke-width:1.5}",
        ".xaxis{stroke:#c0392b;stroke-width:2.5}",
        ".yaxis{stroke:#2471a3;stroke-width:2.5}",
        ".guide{stroke:#555555;stroke-width:1;stroke-dasharray:4 3;fill:none}",
        ".cell{fill:#f4d03f;fill-opacity:0.18;stroke:#b7950b;stroke-width:1}",
        ".label{fill:#222222}",
        ".xlabel{fill:#c0392b}",
        ".ylabel{fill:#2471a3}",
        ".title{fill:#222222;font-weight:bold}",
        "</style>",
        f'<rect width="{WIDTH}" height="{HEIGHT}" fill="white"/>',
        text((0, 0), "the unit axes of the 'from' space (grey) and their images (colour)", "title", -60, -290),
    ]
    # The 'from' space's unit square and axes.
    square = " ".join(f"{x:.1f},{y:.1f}" for x, y in (px(0, 0), px(1, 0), px(1, 1), px(0, 1)))
    parts.append(f'<polygon points="{square}" fill="none" stroke="#bbbbbb" stroke-dasharray="2 3"/>')
    parts.append(arrow((0, 0), (1, 0), "from"))
    parts.append(arrow((0, 0), (0, 1), "from"))
    parts.append(text((1, 0), "x", "label", 4, 16))
    parts.append(text((0, 1), "y", "label", -14, 4))
    parts.append(text((0, 0), "(0, 0)", "label", -40, 18))
    # The image of the unit square, and of the axes.
    cell = " ".join(f"{x:.1f},{y:.1f}" for x, y in (px(*t), px(*ex), px(*corner), px(*ey)))
    parts.append(f'<polygon points="{cell}" class="cell"/>')
    parts.append(line((0, 0), t, "guide"))
    parts.append(text(t, "(TranslationX, TranslationY)", "label", 6, 18))
    parts.append(arrow(t, ex, "xaxis"))
    parts.append(arrow(t, ey, "yaxis"))
    # Reference directions at the translation: +x for RotationX, +y for RotationY.
    parts.append(line(t, (TX + 1.9, TY), "guide"))
    parts.append(line(t, (TX, TY + 1.45), "guide"))
    parts.append(arc(t, 0.55, 0, RX, "guide"))
    parts.append(arc(t, 0.42, math.pi / 2, math.pi / 2 + RY, "guide"))
    parts.append(text((TX + 0.6 * math.cos(RX / 2), TY + 0.6 * math.sin(RX / 2)), "RotationX", "xlabel", 4, 4))
    mid = math.pi / 2 + RY / 2
    parts.append(text((TX + 0.48 * math.cos(mid), TY + 0.48 * math.sin(mid)), "RotationY", "ylabel", -78, 0))
    parts.append(text(ex, "image of x: length ScalingX", "xlabel", 6, 4))
    parts.append(text(ey, "image of y: length ScalingY", "ylabel", -90, -8))
    parts += [
        text((0, 0), "m00 = cos(RotationX)·ScalingX    m01 = −sin(RotationY)·ScalingY", "label", -60, 48),
        text((0, 0), "m10 = sin(RotationX)·ScalingX    m11 = cos(RotationY)·ScalingY", "label", -60, 66),
        text((0, 0), "Scaling = ScalingX, Aspect = ScalingY / ScalingX,", "label", -60, 90),
        text((0, 0), "Rotation = RotationX, Skew = RotationY − RotationX", "label", -60, 108),
        "</svg>",
    ]
    here = os.path.dirname(os.path.abspath(__file__))
    with open(os.path.join(here, "transform-axes.svg"), "w", encoding="utf-8") as out:
        out.write("\n".join(parts) + "\n")


if __name__ == "__main__":
    main()
