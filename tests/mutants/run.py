#!/usr/bin/env python3
"""Whether the quick tests notice deliberate faults: each of faults.toml is one edit, put into a copy, built and tested.

    run.py [PATTERN]    the faults whose names match the regular expression PATTERN, or all

The copy and its build stay in build-mutants, so that the next run compiles only what differs. A fault first meets the
program that should notice it; one that slips through meets all the others, of the tool if it is the tool's. Prints what
slipped through and the rate, and fails below 95 %."""
import os
import pathlib
import re
import subprocess
import sys
import tomllib

ROOT = pathlib.Path(__file__).resolve().parents[2]
WORK = ROOT / "build-mutants"
TREE = WORK / "tree"
BUILD = WORK / "build"
QUICK = {  # program: where it is
    "hdr10plus_test": "tests/hdr10plus", "imageio_test": "tests/imageio", "kernels_test": "tests/kernels",
    "platform_test": "tests/platform", "test_diagnostics": "tests/engine", "test_formatter": "tests/engine",
    "test_paths": "tests/engine", "test_life": "tests/engine", "test_program": "tests/engine",
    "test_entry": "tests/engine", "test_frames": "tests/engine", "test_fault": "tests/engine", "fuzz_calls": "tests/fuzz"}
TOOL = ["tool_convert", "tool_trouble", "tool_analysis", "tool_measure", "tool_compare", "tool_report"]
OPTIONS = {"test_frames": ["--gtest_filter=Small*"], "test_fault": ["--gtest_filter=SurroundingsFault*"],
           "fuzz_calls": [ROOT / "tests/fuzz/corpus/calls"]}


def command(*words, **options):
    return subprocess.run([str(word) for word in words], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, **options)


def copy_tree():
    """The tree as it is, without touching files in the copy that are the same."""
    names = subprocess.run(["git", "ls-files", "-coz", "--exclude-standard"], cwd=ROOT, check=True,
                           stdout=subprocess.PIPE).stdout.decode().split("\0")
    for name in filter(None, names):
        source, target = ROOT / name, TREE / name
        if not source.exists():
            continue
        if not target.exists() or source.read_bytes() != target.read_bytes():
            target.parent.mkdir(parents=True, exist_ok=True)
            target.write_bytes(source.read_bytes())
            target.chmod(source.stat().st_mode)


def build(*targets):
    return command("cmake", "--build", BUILD, "-j", os.cpu_count() or 2, "--target", *targets)


def notices(program):
    """Whether a program fails, with what is built."""
    if program in QUICK:
        built = build(program)
        run = [BUILD / QUICK[program] / program, *OPTIONS.get(program, [])]
    else:
        built = build("lumivert")
        script = TREE / "tests/tool" / f"{program.removeprefix('tool_')}_test.py"
        run = [f"LUMIVERT={BUILD / 'lumivert'}", sys.executable, "-B", script, "-f"]
    if built.returncode != 0:
        sys.exit(f"a fault does not compile:\n{built.stdout.decode()[-3000:]}")
    try:
        return command(TREE / "tests/run.sh", BUILD, *run, cwd=BUILD, timeout=600).returncode != 0
    except subprocess.TimeoutExpired:
        return True


def slips_through(fault):
    path = TREE / fault["file"]
    text = path.read_text()
    if text.count(fault["old"]) != 1:
        print(f"mutants: {fault['name']}: the old text stands {text.count(fault['old'])} times in {fault['file']}")
        return True
    path.write_text(text.replace(fault["old"], fault["new"]))
    try:
        first = fault["notices"]
        others = [program for program in (QUICK if first in QUICK else TOOL) if program != first]
        return not any(notices(program) for program in [first, *others])
    finally:
        path.write_text(text)


def main(pattern=""):
    with open(ROOT / "tests/mutants/faults.toml", "rb") as file:
        faults = [fault for fault in tomllib.load(file)["fault"] if re.search(pattern, fault["name"])]
    if not faults:
        sys.exit(f"mutants: no fault's name matches '{pattern}'")
    copy_tree()
    configured = command("cmake", "--preset", "release", "-DLUMIVERT_BENCH=OFF", "-B", BUILD, cwd=TREE)
    if configured.returncode != 0:
        sys.exit(configured.stdout.decode())
    for program in sorted({fault["notices"] for fault in faults}):
        if notices(program):
            sys.exit(f"mutants: {program} fails without any fault")
    slipped = []
    for fault in faults:
        slipped += [fault["name"]] if slips_through(fault) else []
        print("slipped " if fault["name"] in slipped else "noticed ", fault["name"], flush=True)
    caught = len(faults) - len(slipped)
    print(f"{caught} of {len(faults)} noticed, {100 * caught / len(faults):.1f} %")
    sys.exit(caught < 0.95 * len(faults))


if __name__ == "__main__":
    main(*sys.argv[1:2])
