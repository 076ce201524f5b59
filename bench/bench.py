#!/usr/bin/env python3
"""Measures how fast the library converts: whole paths and stages beside memcpy, the host's part, start and memory.

    bench.py BUILD                 prints tables
    bench.py BUILD --json FILE     writes all figures as well
    bench.py BUILD --peers         measures what a user could take instead in turn with the library, and puts tables and
                                   chart into docs/performance.md

figures.json beside this file keeps what --peers found last on each processor family; the tables of the page have a
column for each.
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
FIGURES = ROOT / "bench" / "figures.json"
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


def processor_family():
    """Such as "Intel Xeon, AVX-512": the model without what differs inside the family, and the widest vectors."""
    cpu = {}
    for line in open("/proc/cpuinfo", encoding="utf-8"):
        key, _, value = line.partition(":")
        cpu.setdefault(key.strip(), value.strip())
    model = re.sub(r"\(R\)|\(TM\)|@.*|\b(CPU|Processor)\b|\b\d\w*(-Core)?\b", "", cpu.get("model name", ""))
    flags = cpu.get("flags", "").split()
    vectors = next((name for flag, name in (("avx512bw", ", AVX-512"), ("avx2", ", AVX2")) if flag in flags), "")
    return " ".join(model.split() or [platform.machine()]) + vectors


def machine(build, device):
    system = platform.freedesktop_os_release().get("PRETTY_NAME", platform.system())
    version = subprocess.run([build / "lumivert", "--version"], check=True, capture_output=True, text=True).stdout
    return {"version": version.split()[-1], "processor": processor_family(), "cores": os.cpu_count(), "system": system,
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
    priority = ", at real-time priority" if m["real_time"] else ""
    return (f"{m['processor']}, {m['cores']} cores, {m['system']}, {m['opencl']} on {m['device']}: "
            f"Lumivert {m['version']}, {m['date']}, load {m['load_before']:.1f} at the start{priority}.\n")


def columns(docs, head, rows):
    """A table with a column for each machine; `rows` gives (name, cell by function of a document)."""
    def cell(doc, value):
        try:
            return value(doc)
        except (KeyError, TypeError):  # not measured there
            return "-"

    return table([head, *docs], [[name, *(cell(doc, value) for doc in docs.values())] for name, value in rows]) + "\n"


def names_in(docs, entries):
    """The names of all documents' entries, in the order in which they first come."""
    return list(dict.fromkeys(name for doc in docs.values() for name in entries(doc)))


def results_text(docs):
    """Medians in milliseconds, beside memcpy."""
    text = ""
    for size in SIZES:
        def value(name):
            def cell(doc):
                entry = at(doc["results"], name, size)
                return f"{entry['ms']['median']:.2f} ({entry['memcpy_ratio']:.2f})"
            return cell

        names = names_in(docs, lambda doc: [e["name"] for e in doc["results"] if size_of(e) == size])
        text += columns(docs, f"{size}, ms (x memcpy)", [(name, value(name)) for name in sorted(names)])
    text += columns(docs, "host, µs per frame or plane",
                    [(name, lambda doc, name=name: f"{doc['host_us'][name]:.2f}")
                     for name in names_in(docs, lambda doc: doc["host_us"])])
    about = {"cold": "from source", "cached": "from the cached program",
             "warm": "from the cached program, PoCL's cache warm"}
    text += columns(docs, "start: init ms + first frame ms",
                    [(about[how], lambda doc, how=how:
                      f"{doc['init_ms'][how]:.1f} + {doc['first_frame_ms'][how]:.1f}") for how in about])
    text += columns(docs, "peak MiB of a process that converts HDR10+ to NV12",
                    [(size, lambda doc, size=size: f"{doc['peak_memory_mib'][size]:.0f}") for size in SIZES])
    text += columns(docs, "memory that stays behind, KiB",
                    [(name, lambda doc, name=name: doc["memory_growth_kib"][name])
                     for name in names_in(docs, lambda doc: doc["memory_growth_kib"])])
    return text


def peers_text(docs):
    text = ""
    for size in peers.SIZES:
        names = names_in(docs, lambda doc: [e["name"] for e in doc.get("peers", [])
                                            if "ms" in e and size_of(e) == size])
        text += columns(docs, f"{size}, ms per frame",
                        [(name, lambda doc, name=name, size=size: f"{at(doc['peers'], name, size)['ms']:.2f}")
                         for name in names])
    gone = [f"- {e['name']} was not measured on {family}: {e['missing']}\n"
            for family, doc in docs.items() for e in doc.get("peers", []) if "missing" in e]
    return text + ("".join(gone) + "\n" if gone else "")


def clip_text(docs):
    return columns(docs, f"{peers.CLIP_FRAMES} frames, wall (processor) seconds",
                   [(name, lambda doc, name=name: f"{doc['clip'][name]['wall']:.2f} "
                                                  f"({doc['clip'][name]['processor']:.2f})")
                    for name in names_in(docs, lambda doc: doc.get("clip", {}))])


def targets():
    """What is aimed at: (what, the most it may be, what it is as a function of a document)."""
    def memcpys(name):
        return lambda doc: at(doc["results"], name, "3840x2160")["memcpy_ratio"]

    def against(path, size, *others):
        return lambda doc: (at(doc["peers"], peers.OURS[path], size)["ms"] /
                            min(at(doc["peers"], peer, size)["ms"] for peer in others))

    def clips(seconds):
        return lambda doc: doc["clip"]["lumivert convert"][seconds] / doc["clip"]["FFmpeg zscale+tonemap"][seconds]

    for size in peers.SIZES:
        yield f"HDR10+ to NV12 / zscale+tonemap, {size}", 0.45, against("hdr10plus", size, "FFmpeg zscale+tonemap")
        yield (f"HDR10+ to NV12 / the faster 3D LUT, {size}", 0.8,
               against("hdr10plus", size, "FFmpeg 3D LUT, gbrpf32le", "FFmpeg 3D LUT, gbrp16le"))
        yield f"HDR10+ to NV12 / libplacebo, lean, {size}", 0.2, against("hdr10plus", size, "FFmpeg libplacebo, lean")
        yield f"static path / lutyuv, {size}", 0.9, against("static", size, "FFmpeg lutyuv")
    yield "static path, 4K, block-pool entry / memcpy", 1.3, memcpys("static.pool")
    yield "RGBA to NV12 stage, 4K / memcpy", 1.6, memcpys("stage.nv12")
    yield "a whole clip / FFmpeg zscale+tonemap, wall seconds", 0.85, clips("wall")
    yield "a whole clip / FFmpeg zscale+tonemap, processor seconds", 0.85, clips("processor")
    yield "curve and table on the host, µs", 10, lambda doc: max(
        us for name, us in doc["host_us"].items() if name.startswith("curve_and_table"))
    yield ("init from the cached program / from source", 0.01,
           lambda doc: doc["init_ms"]["cached"] / doc["init_ms"]["cold"])
    # The allocator may take another page or two.
    yield "memory growth over 5000 frames, KiB", 64, lambda doc: max(doc["memory_growth_kib"].values())


def targets_text(docs):
    def cell(value, most):
        def text(doc):
            found = value(doc)
            return f"{found:.3g}" if found <= most else f"**{found:.3g}**"
        return text

    return columns(docs, "target", [(f"{what} ≤ {most:g}", cell(value, most)) for what, most, value in targets()])


def write_page(docs, last):
    panels = []
    for size in peers.SIZES:
        for path, title, others in (("static", "HDR10, fixed table", ("FFmpeg lutyuv", "FFmpeg zscale+tonemap")),
                                    ("hdr10plus", "HDR10+ to NV12",
                                     [p.name for p in peers.PEERS if p.name != "FFmpeg lutyuv"])):
            bars = [at(last["peers"], name, size) for name in ("memcpy", peers.OURS[path], *others)]
            panels.append((f"{title}, {size}", [(e["name"], e["ms"]) for e in bars if e]))
    CHART.write_text(chart.draw(panels), encoding="utf-8")
    commands = "".join(f"# {peer.name}\n{peers.shown(peer)}\n" for peer in peers.PEERS)
    clip = f"# the clip\n{peers.as_typed(peers.make_clip_command())}\n" + "".join(
        f"# {name}\n{peers.as_typed(words)}\n" for name, words in peers.clip_commands("lumivert").items())
    machines = "\n".join(f"- {machine_text(doc)}" for doc in docs.values())
    figures = (f"{machines}\n### Targets\n\nBold: missed. A dash: not measured.\n\n{targets_text(docs)}"
               f"### A whole clip\n\n{clip_text(docs)}```sh\n{clip}```\n\n"
               f"### Against other converters\n\n![milliseconds per frame]({CHART.name})\n\n"
               f"The chart shows {last['machine']['processor']}.\n\n{peers_text(docs)}```sh\n{commands}```\n\n"
               f"### Paths and stages\n\n{results_text(docs)}")
    page = PAGE.read_text(encoding="utf-8")
    start, end = page.index(BEGIN) + len(BEGIN), page.index(END)
    PAGE.write_text(page[:start] + "\n" + figures + page[end:], encoding="utf-8")


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
    doc = {"machine": machine(build, by_size[0]["device"]), "device": by_size[0]["device"],
           "results": [entry for found in by_size for entry in found["results"]],
           **measure_starts(build), "peak_memory_mib": measure_memory(build), "host_us": measure_host(build),
           "memory_growth_kib": measure_growth(build)}
    if args.peers:
        doc["peers"] = peers.measure(bench)
        doc["clip"] = peers.measure_clip(build / "lumivert")
    here = {doc["machine"]["processor"]: doc}
    print("\n" + machine_text(doc) + "\n" + results_text(here))
    if args.peers:
        print("\n" + peers_text(here) + clip_text(here))
        docs = {**json.loads(FIGURES.read_text(encoding="utf-8")), **here}
        FIGURES.write_text(json.dumps(docs, indent=1, ensure_ascii=False) + "\n", encoding="utf-8")
        write_page(docs, doc)
    print(targets_text(here))
    if args.json:
        args.json.write_text(json.dumps(doc, indent=2, ensure_ascii=False) + "\n", encoding="utf-8")


if __name__ == "__main__":
    sys.exit(main())
