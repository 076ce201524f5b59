#!/usr/bin/env python3
"""Derives the two static tone-mapping tables and draws them.

    static_tables.py           writes lookup_1000.inc, lookup_4000.inc and docs/static-tables.svg
    static_tables.py --check   writes nothing; fails unless those files are what it would write

A table maps the 10-bit limited-range PQ code of luma to the 10-bit limited-range SDR code. Fixed points decide its
shape; between them runs a monotone cubic Hermite curve (F. N. Fritsch and J. Butland, 1984: weighted harmonic means of
the neighbouring slopes as tangents), rounded to the nearest code.
"""
import argparse
import pathlib
import sys

HERE = pathlib.Path(__file__).resolve().parent
CHART = HERE.parent.parent / "docs" / "static-tables.svg"
ENTRIES = 1024
BLACK, WHITE = 63, 939  # the lowest and the highest output, one below the nominal 64 and 940

# Fixed points (input code, output code). Both tables share the toe up to code 281. It runs from nominal black through the
# first code that is rounded to 64 to the middle between the two tables' values at 282, where they separate.
TOE = [(64, BLACK), (76, 63.5), (128, 66), (200, 81), (256, 115), (282, 143.5)]
# The rest of each table, up to the PQ code of the mastering peak, 1000 and 4000 cd/m2. The first table rises above the
# second between 344 and 345. The fixed point there makes them cross in one step: from 282 until the second one ends at
# white, no input code has the same output in both.
BODY = {
    1000: [(282, 143), (300, 159), (345, 209.5), (400, 283), (500, 468), (512, 493), (600, 693), (700, 902),
           (722, WHITE)],
    4000: [(282, 144), (300, 166), (400, 262), (500, 395), (512, 415), (600, 577), (700, 762), (800, 895),
           (854, WHITE)],
}


def tangents(points):
    """One slope per point such that the Hermite curve through the points is monotone."""
    widths = [x1 - x0 for (x0, _), (x1, _) in zip(points, points[1:])]
    slopes = [(y1 - y0) / (x1 - x0) for (x0, y0), (x1, y1) in zip(points, points[1:])]

    def inner(h0, h1, s0, s1):
        return 3 * (h0 + h1) / ((2 * h1 + h0) / s0 + (h1 + 2 * h0) / s1)

    def end(h0, h1, s0, s1):  # three-point difference, never falling
        return max(0.0, ((2 * h0 + h1) * s0 - h0 * s1) / (h0 + h1))

    return ([end(*widths[:2], *slopes[:2])] +
            [inner(*pair) for pair in zip(widths, widths[1:], slopes, slopes[1:])] +
            [end(*widths[:-3:-1], *slopes[:-3:-1])])


def curve(points):
    """Values of the curve through the points, one per whole input code from the first point to before the last."""
    values = []
    slopes = tangents(points)
    for (x0, y0), (x1, y1), m0, m1 in zip(points, points[1:], slopes, slopes[1:]):
        h = x1 - x0
        for x in range(x0, x1):
            t = (x - x0) / h
            values.append((1 + 2 * t) * (1 - t) ** 2 * y0 + t * (1 - t) ** 2 * h * m0 +
                          t * t * (3 - 2 * t) * y1 + t * t * (t - 1) * h * m1)
    return values


def table(nits):
    values = [BLACK] * TOE[0][0] + curve(TOE) + curve(BODY[nits])
    values += [WHITE] * (ENTRIES - len(values))
    return [int(v + 0.5) for v in values]


def include_file(values):
    lines = [", ".join(map(str, values[i:i + 16])) + "," for i in range(0, len(values), 16)]
    return "\n".join(lines) + "\n"


def chart(tables):
    """Both tables and the identity over the input code, as a hand-written SVG."""
    width, height, left, top, size = 640, 600, 60, 30, 520

    def at(x, y):
        return f"{left + x * size / 1023:.1f},{top + size - y * size / 1023:.1f}"

    def text(x, y, words, style=""):
        return f'<text x="{x}" y="{y}" {style}>{words}</text>'

    out = [f'<svg xmlns="http://www.w3.org/2000/svg" width="{width}" height="{height}" '
           'font-family="sans-serif" font-size="13">',
           f'<rect width="{width}" height="{height}" fill="white"/>']
    for code in (0, 64, 256, 512, 768, 940):
        x, y = at(code, code).split(",")
        out += [f'<path d="M{at(code, 0)} L{at(code, 1023)} M{at(0, code)} L{at(1023, code)}" stroke="#ddd"/>',
                text(x, top + size + 18, code, 'text-anchor="middle"'),
                text(left - 8, float(y) + 4, code, 'text-anchor="end"')]
    out += [f'<rect x="{left}" y="{top}" width="{size}" height="{size}" fill="none" stroke="black"/>',
            text(left + size / 2, height - 12, "input luma, 10-bit PQ code (limited range)", 'text-anchor="middle"'),
            text(0, 0, "output luma, 10-bit SDR code (limited range)",
                 f'text-anchor="middle" transform="translate(16 {top + size / 2}) rotate(-90)"'),
            f'<path d="M{at(0, 0)} L{at(1023, 1023)}" stroke="#999" stroke-dasharray="4 4"/>',
            text(*at(860, 800).split(","), "identity", 'fill="#777"')]
    styles = {1000: ("#c0392b", (478, 560)), 4000: ("#2060a0", (640, 560))}
    for nits, values in tables.items():
        colour, label = styles[nits]
        points = " ".join(at(x, y) for x, y in enumerate(values))
        anchor = 'text-anchor="end"' if nits == 1000 else ""
        out += [f'<polyline points="{points}" fill="none" stroke="{colour}" stroke-width="2"/>',
                text(*at(*label).split(","), f"{nits} cd/m²", f'fill="{colour}" {anchor}')]
    return "\n".join(out + ["</svg>", ""])


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--check", action="store_true", help="compare instead of writing")
    check = parser.parse_args().check

    tables = {nits: table(nits) for nits in BODY}
    files = {HERE / f"lookup_{nits}.inc": include_file(values) for nits, values in tables.items()}
    files[CHART] = chart(tables)
    for path, content in files.items():
        if not check:
            path.write_text(content, encoding="utf-8")
        elif not path.is_file() or path.read_text(encoding="utf-8") != content:
            sys.exit(f"static_tables.py: {path} is not what the derivation gives; run static_tables.py")


if __name__ == "__main__":
    main()
