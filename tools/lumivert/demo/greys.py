#!/usr/bin/env python3
"""Converts grey patches and prints what a display of 250 cd/m2 shows of them, as a table in Markdown.

    greys.py build/lumivert

Each patch has the nearest 10-bit code. The converter encodes light with a power of 0.45, so a display undoes that."""
import csv
import os
import pathlib
import subprocess
import sys
import tempfile

from pq_video import p010, ycbcr

LEVELS = [0.1, 1, 10, 100, 203, 1000]  # cd/m2
PATCH, HEIGHT = 32, 32
DISPLAY = 250
WIDTH = PATCH * len(LEVELS)
COLUMNS = ["input", "the curve wants", "NV12 read as limited", "NV12 read as full", "P010 read as limited",
           "RGBA as it is", "static table (P010)"]


def light(code, black, white):
    return DISPLAY * min(max((code - black) / (white - black), 0), 1) ** (1 / 0.45)


def centres(samples, bytes_each):
    """The first component in the middle of each patch."""
    at = [(HEIGHT // 2 * WIDTH + PATCH * i + PATCH // 2) * bytes_each for i in range(len(LEVELS))]
    return [int.from_bytes(samples[i:i + bytes_each], "little") for i in at]


def rows(tool, folder):
    """A row of luminances for each level."""
    def run(*arguments):
        subprocess.run([tool, *arguments], cwd=folder, check=True, stderr=subprocess.PIPE)

    def converted(name, *options):
        run("convert", "greys.p010", "-o", name, *size, *options)
        return (folder / name).read_bytes()

    size = ("--size", f"{WIDTH}x{HEIGHT}")
    (folder / "greys.p010").write_bytes(p010([[(level,) * 3 for level in LEVELS for _ in range(PATCH)]] * HEIGHT))
    run("curve", "greys.p010", "--mode", "hdr10plus", "-o", "curve.csv", *size)
    with open(folder / "curve.csv", encoding="ascii") as file:
        curve = {int(row["code_in"]): float(row["curve_cd_m2"]) for row in csv.DictReader(file)}
    by_default = ("--mode", "hdr10plus", "--metadata", "none")
    nv12 = centres(converted("out.nv12", *by_default), 1)
    rgba = [code & 255 for code in centres(converted("out.rgba", *by_default), 4)]
    wide = [code >> 6 for code in centres(converted("out.p010", *by_default), 2)]
    static = [code >> 6 for code in centres(converted("static.p010", "--mode", "static"), 2)]
    for i, level in enumerate(LEVELS):
        code = round(ycbcr((level,) * 3)[0])
        low, high = (curve[code - code % 4 + step] for step in (0, 4))  # the curve is nearly straight in between
        part = code % 4 / 4
        wanted = low * (1 - part) + high * part
        yield (level, wanted, light(nv12[i], 16, 235), light(nv12[i], 0, 255), light(wide[i], 64, 940),
               light(rgba[i], 0, 255), light(static[i], 64, 940))


def shown(cd_m2):
    return f"{cd_m2:.0f}" if cd_m2 >= 20 else f"{round(cd_m2, 3):.3g}"


def main(tool):
    with tempfile.TemporaryDirectory() as folder:
        table = list(rows(os.path.realpath(tool), pathlib.Path(folder)))
    print("| " + " | ".join(COLUMNS) + " |")
    print("|" + " --- |" * len(COLUMNS))
    for row in table:
        print("| " + " | ".join(shown(value) for value in row) + " |")


if __name__ == "__main__":
    main(sys.argv[1])
