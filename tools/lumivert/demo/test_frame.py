#!/usr/bin/env python3
"""Writes a 1920x1080 P010 test frame in PQ BT.2020: a ramp, luminance steps and colours at four levels.

    test_frame.py frame.p010"""
import sys

from pq_video import blank, fill, p010

WIDTH, HEIGHT = 1920, 1080
STEPS = [0, 0.1, 1, 5, 20, 50, 100, 203, 400, 600, 1000, 4000]  # cd/m2
COLOURS = [(1, .1, .05), (.3, 1, .1), (.06, .08, 1), (.35, 1, 1), (1, .2, 1), (1, 1, .2), (.9, .6, .45), (1, 1, 1)]


def main(target):
    picture = blank(WIDTH, HEIGHT, (5.0, 5.0, 5.0))
    for x in range(0, WIDTH, 2):  # black to 1000 cd/m2, in even steps to the eye
        fill(picture, x, 60, x + 2, 240, (1000 * (x / (WIDTH - 2)) ** 3,) * 3)
    width = WIDTH // len(STEPS)
    for i, level in enumerate(STEPS):
        fill(picture, i * width, 280, (i + 1) * width, 460, (level,) * 3)
    width = WIDTH // len(COLOURS)
    for row, level in enumerate((20, 100, 400, 1000)):
        for i, colour in enumerate(COLOURS):
            fill(picture, i * width + 20, 500 + 140 * row, (i + 1) * width - 20, 620 + 140 * row,
                 tuple(level * c for c in colour))
    with open(target, "wb") as out:
        out.write(p010(picture))


if __name__ == "__main__":
    main(sys.argv[1])
