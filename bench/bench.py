#!/usr/bin/env python3
"""Measures how fast the library converts: whole paths and stages beside memcpy, the host's part, start and memory.

    bench.py BUILD                 prints tables
    bench.py BUILD --json FILE     writes all figures as well
    bench.py BUILD --peers         measures what a user could take instead in turn with the library, and puts tables and
                                   chart into docs/performance.md
"""
import argparse
import datetime
import json
import os
import pathlib
import platform
import re
import shutil
import statistics
import subprocess
import sys
import tempfile

import chart
import peers

ROOT = pathlib.Path(__file__).resolve().parent.parent
PAGE, CHART = ROOT / "docs" / "performance.md", ROOT / "docs" / "performance.svg"
BEGIN, END = "<!-- figures: ./dev bench --peers -->\n", "<!-- end of figures -->\n"
SIZES = ("640x360", "1920x1080", "3840x2160", "7680x4320")


def run_json(command, **options):
    return json.loads(subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True, **options).stdout)


def measure_paths(build, *arguments):
    """What path_bench finds: its device, and median and 99th percentile of each result beside memcpy's."""
    found = run_json([build / "bench" / "path_bench", *arguments, "--benchmark_format=json"])
    ms = {}
    for entry in sorted(found["benchmarks"], key=lambda entry: entry["family_index"]):
        if entry["aggregate_name"] in ("median", "p99"):
            ms.setdefault(entry["run_name"].split("/")[0], {})[entry["aggregate_name"]] = entry["real_time"]
    width, height = map(int, arguments[arguments.index("--size") + 1].split("x"))
    context = found["context"]
    return {"device": {key: context[key] for key in ("platform", "version", "driver")} | {"name": context["device"]},
            "results": [{"name": name, "width": width, "height": height, "ms": times,
                         "memcpy_ratio": times["median"] / ms["memcpy"]["median"]} for name, times in ms.items()]}


def measure_starts(build, rounds=5):
    """Medians of init and first frame in milliseconds, by what earlier runs left behind."""
    found = {"cold": [], "cached": [], "warm": []}
    for _ in range(rounds):
        with tempfile.TemporaryDirectory() as folder:
            drivers_cache = pathlib.Path(folder, "pocl")
            environment = {**os.environ, "XDG_CACHE_HOME": folder, "POCL_CACHE_DIR": str(drivers_cache)}
            for how, starts in found.items():
                if how != "warm":  # only the last one finds what the driver kept from the one before
                    shutil.rmtree(drivers_cache, ignore_errors=True)
                starts.append(run_json([build / "bench" / "start_bench", "64x64"], env=environment))
    return {key: {how: statistics.median(start[key] for start in starts) for how, starts in found.items()}
            for key in ("init_ms", "first_frame_ms")}


def measure_memory(build):
    """Peak memory in MiB of a process that converts HDR10+ frames to NV12."""
    return {size: run_json([build / "bench" / "start_bench", size])["peak_mib"] for size in SIZES}


def measure_host(build):
    """Microseconds of processor time, which other processes do not add to."""
    with tempfile.TemporaryDirectory() as data:
        pathlib.Path(data, "vendor", "media").mkdir(parents=True)
        found = run_json([build / "bench" / "host_bench", "--benchmark_format=json", "--benchmark_repetitions=5",
                          "--benchmark_report_aggregates_only=true"],
                         env={**os.environ, "ANDROID_DATA": data}, stderr=subprocess.DEVNULL)
    return {entry["run_name"]: entry["cpu_time"] / 1000 for entry in found["benchmarks"]
            if entry["aggregate_name"] == "median"}


def measure_growth(build, frames=5000):
    """KiB that stay behind in the soak test's long runs; nothing where tests are not built."""
    soak = build / "tests" / "soak" / "test_soak"
    if not soak.is_file():
        return {}
    told = subprocess.run([soak, "--gtest_filter=Soak.Frames*"], capture_output=True, text=True,
                          env={**os.environ, "LUMIVERT_SOAK_FRAMES": str(frames)})
    found = re.findall(r"^(.+): \d+, resident (\S+) KiB", told.stdout, re.M)
    if not found:
        sys.exit(f"bench: the long runs told nothing: {told.stdout}{told.stderr}")
    return {f"{frames} {name}": int(kib) for name, kib in found}


def machine(device):
    model = next((line.split(":")[1].strip() for line in open("/proc/cpuinfo", encoding="utf-8")
                  if line.startswith("model name")), platform.machine())
    system = platform.freedesktop_os_release().get("PRETTY_NAME", platform.system())
    return {"processor": model, "cores": os.cpu_count(), "system": system,
            "opencl": f"{device['platform']} {device['driver']}", "device": device["name"],
            "date": datetime.date.today().isoformat(), "load_before": os.getloadavg()[0],
            "real_time": os.sched_getscheduler(0) in (os.SCHED_FIFO, os.SCHED_RR)}


# ---- tables ---------------------------------------------------------------

def table(head, rows):
    """Markdown whose columns line up; all but the first hold numbers."""
    cells = [[str(cell) for cell in row] for row in (head, *rows)]
    widths = [max(len(row[i]) for row in cells) for i in range(len(head))]
    lines = ["| " + " | ".join(cell.rjust(w) if i else cell.ljust(w) for i, (cell, w) in enumerate(zip(row, widths)))
             + " |" for row in cells]
    rule = "| " + " | ".join("-" * (w - 1) + ":" if i else "-" * w for i, w in enumerate(widths)) + " |"
    return "\n".join([lines[0], rule, *lines[1:]]) + "\n"


def size_of(entry):
    return f"{entry['width']}x{entry['height']}"


def at(entries, name, size):
    return next((e for e in entries if e["name"] == name and "ms" in e and size_of(e) == size), None)


def machine_text(doc):
    m = doc["machine"]
    priority = ", measured at real-time priority" if m["real_time"] else ""
    return (f"{m['processor']}, {m['cores']} cores, {m['system']}; {m['opencl']} on {m['device']}; {m['date']}, "
            f"load {m['load_before']:.1f} at the start{priority}.\n")


def results_text(doc):
    text = ""
    for size in SIZES:
        rows = []
        for e in (e for e in doc["results"] if size_of(e) == size):
            ms = e["ms"]
            rows.append([e["name"], f"{ms['median']:.2f}", f"{ms['p99']:.2f}", f"{1000 / ms['median']:.0f}",
                         f"{ms['median'] * 1e6 / (e['width'] * e['height']):.2f}", f"{e['memcpy_ratio']:.2f}"])
        text += table([size, "median ms", "99 % ms", "frames/s", "ns per pixel", "x memcpy"], rows) + "\n"
    text += table(["host, per frame or plane", "µs"], [[name, f"{us:.2f}"] for name, us in doc["host_us"].items()])
    about = {"cold": "from source", "cached": "from the cached program",
             "warm": "from the cached program, PoCL's cache warm"}
    text += "\n" + table(["start", "init ms", "first frame ms"],
                         [[about[how], f"{doc['init_ms'][how]:.1f}", f"{doc['first_frame_ms'][how]:.1f}"]
                          for how in about])
    text += "\n" + table(["a process that converts HDR10+ to NV12", "peak MiB"],
                         [[size, f"{mib:.0f}"] for size, mib in doc["peak_memory_mib"].items()])
    text += "\n" + table(["memory that stays behind", "KiB"], list(doc["memory_growth_kib"].items()))
    return text


def peers_text(doc):
    text = ""
    for size in peers.SIZES:
        rows = [[e["name"], f"{e['ms']:.2f}",
                 *(f"{e['ms'] / at(doc['peers'], ours, size)['ms']:.2f}" for ours in peers.OURS.values())]
                for e in doc["peers"] if "ms" in e and size_of(e) == size]
        text += table([size, "net ms", *(f"x {ours}" for ours in peers.OURS.values())], rows) + "\n"
    gone = [f"- {e['name']} was not measured: {e['missing']}\n" for e in doc["peers"] if "missing" in e]
    return text + ("".join(gone) + "\n" if gone else "")


def targets(doc):
    """What is aimed at: (what, the most it may be, what it is) with None for what was not measured."""
    def memcpys(name):
        return at(doc["results"], name, "3840x2160")["memcpy_ratio"]

    def against(path, peer, size):
        other = at(doc.get("peers", []), peer, size)
        return at(doc["peers"], peers.OURS[path], size)["ms"] / other["ms"] if other else None

    zscale, libplacebo = "FFmpeg zscale+tonemap", "FFmpeg libplacebo, default"
    yield "static path, 4K, retained entry, x memcpy", 2.3, memcpys("static.retained")
    yield "static path, 4K, block-pool entry, x memcpy", 2.8, memcpys("static.pool")
    yield "RGBA to NV12 stage, 4K, x memcpy", 2.3, memcpys("stage.nv12")
    for size in peers.SIZES:
        yield f"static path / zscale+tonemap, {size}", 0.05, against("static", zscale, size)
        yield f"HDR10+ to NV12 / zscale+tonemap, {size}", 1, against("hdr10plus", zscale, size)
        yield f"HDR10+ to NV12 / libplacebo, default, {size}", 0.65, against("hdr10plus", libplacebo, size)
    host = doc["host_us"]
    yield "curve and table on the host, µs", 20, max(v for k, v in host.items() if k.startswith("curve_and_table"))
    yield "host work outside OpenCL calls, retained, µs", 50, max(v for k, v in host.items() if "retained" in k)
    yield "init from the cached program / from source", 0.02, doc["init_ms"]["cached"] / doc["init_ms"]["cold"]
    for name, kib in doc["memory_growth_kib"].items():
        yield f"memory growth, {name}, KiB", 64, kib  # the allocator may take another page or two


def targets_text(doc):
    rows = [[what, f"{most:g}", f"{value:.3g}", "met" if value <= most else "missed"]
            for what, most, value in targets(doc) if value is not None]
    return table(["target", "at most", "is", ""], rows)


def write_page(doc):
    panels = []
    for size in peers.SIZES:
        for path, title, others in (("static", "HDR10, fixed table", ("FFmpeg lutyuv", "FFmpeg zscale+tonemap")),
                                    ("hdr10plus", "HDR10+ to NV12",
                                     [p.name for p in peers.PEERS if p.name != "FFmpeg lutyuv"])):
            bars = [at(doc["peers"], name, size) for name in ("memcpy", peers.OURS[path], *others)]
            panels.append((f"{title}, {size}", [(e["name"], e["ms"]) for e in bars if e]))
    CHART.write_text(chart.draw(panels), encoding="utf-8")
    commands = "".join(f"# {peer.name}\n{peers.shown(peer)}\n" for peer in peers.PEERS)
    figures = (f"{machine_text(doc)}\n### Targets\n\n{targets_text(doc)}\n### Against other converters\n\n"
               f"![milliseconds per frame]({CHART.name})\n\n{peers_text(doc)}```sh\n{commands}```\n\n"
               f"### Paths and stages\n\n{results_text(doc)}")
    page = PAGE.read_text(encoding="utf-8")
    start, end = page.index(BEGIN) + len(BEGIN), page.index(END)
    PAGE.write_text(page[:start] + "\n" + figures + "\n" + page[end:], encoding="utf-8")


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("build", type=pathlib.Path, help="the build folder")
    parser.add_argument("--peers", action="store_true", help="measure other converters as well; writes the page")
    parser.add_argument("--json", type=pathlib.Path, metavar="FILE", help="write the figures to FILE")
    args = parser.parse_args()
    build = args.build.resolve()

    def bench(*arguments):
        return measure_paths(build, *arguments)

    if os.getloadavg()[0] > os.cpu_count() / 2 and os.sched_getscheduler(0) == os.SCHED_OTHER:
        print("bench: the machine is busy, so whatever uses all cores looks slower than it is, also compared with memcpy; "
              "'sudo chrt -r 10 ./dev bench' runs ahead of other programs", file=sys.stderr)
    print("paths, stages and start", flush=True)
    by_size = [bench("--size", size, "--rounds", "10") for size in SIZES]
    doc = {"machine": machine(by_size[0]["device"]), "device": by_size[0]["device"],
           "results": [entry for found in by_size for entry in found["results"]],
           **measure_starts(build), "peak_memory_mib": measure_memory(build), "host_us": measure_host(build),
           "memory_growth_kib": measure_growth(build)}
    if args.peers:
        doc["peers"] = peers.measure(bench)
    print("\n" + machine_text(doc) + "\n" + results_text(doc))
    if args.peers:
        print("\n" + peers_text(doc))
        write_page(doc)
    print(targets_text(doc))
    if args.json:
        args.json.write_text(json.dumps(doc, indent=2, ensure_ascii=False) + "\n", encoding="utf-8")


if __name__ == "__main__":
    sys.exit(main())
