#!/usr/bin/env python3
"""Cuts the device program into pieces and writes them as a C++ source.

    assemble.py -o program_text.cpp *.cl *.inc          the piece table (program_text.h)

CMake and the Android build both run this on all .cl and .inc files of the folder, in any order: INPUTS below is the
one list of them. The compiler checks that there are as many pieces as program_text.h declares. They are:

    0            the curve record                                        record.cl
    1            constants and helpers, "__kernel void"                  prelude.cl, colour_stages.cl
    2 to 48      process_hdr_to_sdr_io_1000: parameters, brace, table    static_tonemap.cl, lookup_1000.inc
                 and first statement, 43 statements or comments,
                 closing brace and "__kernel void"
    49 to 95     process_hdr_to_sdr_1000_inout
    96 to 142    process_hdr_to_sdr_io_4000, no "__kernel void"          lookup_4000.inc
    143          "__kernel void"
    144 to 190   process_hdr_to_sdr_4000_inout, no "__kernel void"
    191          the colour kernels                                      colour.cl
"""
import argparse
import pathlib
import re
import sys

INPUTS = ("record.cl", "prelude.cl", "colour_stages.cl", "static_tonemap.cl", "lookup_1000.inc", "lookup_4000.inc",
          "colour.cl")
PIECES_PER_STATIC_KERNEL = 47
TABLE_ENTRIES = 1024
KERNEL = "__kernel void"
KERNELS = [
    "process_hdr_to_sdr_io_1000", "process_hdr_to_sdr_1000_inout",
    "process_hdr_to_sdr_io_4000", "process_hdr_to_sdr_4000_inout",
    "rgba8888_to_p010", "rgba8888_to_nv12", "rgba8888_to_nv21", "p010_to_rgba8888",
    "p010_to_rgba8888_process_10plus_clut", "process_10plus_clut",
]


def fail(message):
    sys.exit(f"assemble.py: {message}")


def read_inputs(paths):
    files = {path.name: path.read_text(encoding="ascii") for path in map(pathlib.Path, paths)}
    for name in sorted(files.keys() ^ set(INPUTS)):
        fail(f"input {name} is missing" if name in INPUTS else f"{name} belongs to no piece: add it to INPUTS")
    return files


def without_contract(text):
    """The text after the comment that opens a file."""
    lines = text.splitlines(keepends=True)
    while lines and (lines[0].startswith("//") or not lines[0].strip()):
        lines.pop(0)
    return "".join(lines)


def lookup_values(files, nits):
    name = f"lookup_{nits}.inc"
    values = re.findall(r"\d+", files[name])
    if len(values) != TABLE_ENTRIES:
        fail(f"{name} has {len(values)} entries, not {TABLE_ENTRIES}")
    return files[name]


def static_kernel(files, name, nits, in_place):
    """One static kernel as its pieces, the first without "__kernel void"."""
    text = without_contract(files["static_tonemap.cl"])
    match = re.fullmatch(KERNEL + r" \w+\((?P<parameters>[^)]*)\)\n\{\n"
                         r"(?P<table>[^\n]*\n)#include[^\n]*\n(?P<table_end>[^\n]*\n)"
                         r"(?P<first>[^\n]*\n)(?P<body>.*)\}\n", text, re.DOTALL)
    if not match:
        fail("static_tonemap.cl is not one kernel that begins with its table")
    parameters, body = re.split(r",\s*", match["parameters"]), match["body"]
    if in_place:
        to_io = re.compile(r"\b(?:inp|out)_(y|uv)\b")
        body = to_io.sub(r"io_\1", body)
        parameters = dict.fromkeys(to_io.sub(r"io_\1", parameter) for parameter in parameters)
    statements = [line + "\n" for line in body.splitlines() if line.strip()]
    pieces = [f"{name}({', '.join(parameters)})\n", "{\n",
              match["table"] + lookup_values(files, nits) + match["table_end"] + match["first"], *statements, "}\n"]
    if len(pieces) != PIECES_PER_STATIC_KERNEL:
        fail(f"static_tonemap.cl gives {len(pieces)} pieces, not {PIECES_PER_STATIC_KERNEL}: "
             f"{len(statements)} statements and comments after the first statement")
    return pieces


def assemble(files):
    opening = KERNEL + "\n"
    io_1000, inout_1000, io_4000, inout_4000 = (
        static_kernel(files, name, nits, in_place)
        for name, nits, in_place in zip(KERNELS, (1000, 1000, 4000, 4000), (True, False, True, False)))
    io_1000[-1] += opening
    inout_1000[-1] += opening
    helpers = without_contract(files["prelude.cl"]) + "\n" + without_contract(files["colour_stages.cl"])
    pieces = [without_contract(files["record.cl"]), helpers + "\n" + opening,
              *io_1000, *inout_1000, *io_4000, opening, *inout_4000,
              without_contract(files["colour.cl"])]
    found = re.findall(r"__kernel\s+void\s+(\w+)", "".join(pieces))
    if found != KERNELS:
        fail(f"the program's kernels are {', '.join(found)}; they should be {', '.join(KERNELS)}")
    return pieces


def cpp_source(pieces):
    literals = ",\n".join(f'R"CL({piece})CL"' for piece in pieces)
    return ("// Made by assemble.py from the .cl files; edit those.\n"
            '#include "kernels/program_text.h"\n\n'
            "namespace lumivert {\n\n"
            "const char* const kProgramPieces[] = {\n"
            f"{literals},\n}};\n\n"
            "} // namespace lumivert\n")


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("-o", "--output", required=True)
    parser.add_argument("inputs", nargs="+")
    arguments = parser.parse_args()
    pathlib.Path(arguments.output).write_text(cpp_source(assemble(read_inputs(arguments.inputs))), encoding="ascii")


if __name__ == "__main__":
    main()
