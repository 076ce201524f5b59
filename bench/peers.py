"""What a user could take instead, through FFmpeg on the processor, in turn with this library on the same raw frames."""
import array
import os
import pathlib
import re
import statistics
import subprocess
import tempfile
import time
from dataclasses import dataclass

SIZES = ("1920x1080", "3840x2160")
OURS = {"static": "static.pool", "hdr10plus": "hdr10plus.nv12.pool"}

# One frame is read and repeated without copying it, so that neither reading nor unpacking is in the difference below.
PQ = "setparams=color_primaries=bt2020:color_trc=smpte2084:colorspace=bt2020nc:range=tv"
PLANAR_FRAME = f"{PQ},format=yuv420p10le,loop=-1:1"
VULKAN_FRAME = f"{PQ},format=p010le,hwupload,loop=-1:1"
# The software Vulkan device, whatever others there are.
LAVAPIPE = pathlib.Path("/usr/share/vulkan/icd.d/lvp_icd.x86_64.json")
VULKAN = ["-init_hw_device", "vulkan=sw:llvmpipe", "-filter_hw_device", "sw"]


@dataclass
class Peer:
    name: str
    needs: tuple  # FFmpeg filters
    filters: str
    frames: dict  # by size: how many more the longer run has
    options: tuple = ()


def libplacebo(settings):
    return f"{VULKAN_FRAME},libplacebo=format=nv12:colorspace=bt709:color_primaries=bt709:color_trc=bt709" \
           f"{settings},hwdownload,format=nv12"


PEERS = (
    Peer("FFmpeg lutyuv", ("lutyuv",),
         f"{PLANAR_FRAME},lutyuv=y=gammaval(0.8):u=gammaval(0.9):v=gammaval(0.9)",
         {"1920x1080": 300, "3840x2160": 80}),
    Peer("FFmpeg zscale+tonemap", ("zscale", "tonemap"),
         f"{PLANAR_FRAME},zscale=transfer=linear:npl=100,format=gbrpf32le,zscale=primaries=bt709,"
         "tonemap=tonemap=hable:desat=0,zscale=transfer=bt709:matrix=bt709:range=tv,format=yuv420p",
         {"1920x1080": 40, "3840x2160": 10}),
    Peer("FFmpeg libplacebo, lean", ("libplacebo",),
         libplacebo(":upscaler=none:downscaler=none:peak_detect=false:dithering=none"),
         {"1920x1080": 12, "3840x2160": 4}, VULKAN),
    Peer("FFmpeg libplacebo, default", ("libplacebo",), libplacebo(""), {"1920x1080": 6, "3840x2160": 3}, VULKAN),
)


def write_frame(path, size):
    """A P010 frame of the noise that path_bench converts: std::minstd_rand from 1, 877 codes from black up."""
    width, height = map(int, size.split("x"))
    words, state = array.array("H"), 1
    for _ in range(width * height * 3 // 2):
        state = state * 48271 % 0x7FFFFFFF
        words.append((64 + state % 877) << 6)
    path.write_bytes(words.tobytes())


def command(peer, size, frame, frames):
    return ["ffmpeg", "-v", "error", *peer.options, "-f", "rawvideo", "-pix_fmt", "p010le", "-s", size, "-i",
            str(frame), "-vf", peer.filters, "-frames:v", str(frames), "-f", "null", "-"]


def shown(peer):
    """The command as a reader would type it."""
    words = command(peer, "3840x2160", "frame.p010", "N")
    words[words.index("-vf") + 1] = f"'{peer.filters}'"
    return " ".join(words)


def environment():
    return {**os.environ, "VK_ICD_FILENAMES": str(LAVAPIPE)}


def missing(peer):
    """Why a peer cannot run here; empty when it can."""
    listed = subprocess.run(["ffmpeg", "-v", "quiet", "-filters"], capture_output=True, text=True, check=True).stdout
    lacks = [name for name in peer.needs if not re.search(rf"^ \S+ +{name} ", listed, re.M)]
    if lacks:
        return f"this FFmpeg has no {' and no '.join(lacks)}"
    if peer.options and not LAVAPIPE.is_file():
        return "no software Vulkan device (mesa-vulkan-drivers)"
    with tempfile.TemporaryDirectory() as folder:
        frame = pathlib.Path(folder, "frame")
        frame.write_bytes(bytes(64 * 64 * 3))
        run = subprocess.run(command(peer, "64x64", frame, 2), capture_output=True, text=True, env=environment())
    return run.stderr.strip().splitlines()[0] if run.returncode else ""


def net_ms(peer, size, frame):
    """Per frame, from two runs of different length: what start-up takes drops out."""
    def seconds(frames):
        start = time.monotonic()
        subprocess.run(command(peer, size, frame, frames), check=True, env=environment())
        return time.monotonic() - start

    more = peer.frames[size]
    return (seconds(2 + more) - seconds(2)) / more * 1000


def measure(bench, rounds=7):
    """Entries {"name", "width", "height", "ms"} or {"name", "missing"}; `bench(arguments)` runs path_bench."""
    reasons = {peer.name: missing(peer) for peer in PEERS}
    peers = [peer for peer in PEERS if not reasons[peer.name]]
    entries = [{"name": name, "missing": reason} for name, reason in reasons.items() if reason]
    with tempfile.TemporaryDirectory() as folder:
        for size in SIZES:
            frame = pathlib.Path(folder, size)
            write_frame(frame, size)
            times = {name: [] for name in [*OURS.values(), "memcpy", *(peer.name for peer in peers)]}
            for number in range(rounds):
                print(f"peers at {size}: round {number + 1} of {rounds}", flush=True)
                for result in bench("--size", size, "--only", *OURS.values(), "--rounds", "7")["results"]:
                    times[result["name"]].append(result["ms"]["median"])
                for peer in peers:
                    times[peer.name].append(net_ms(peer, size, frame))
            width, height = map(int, size.split("x"))
            entries += [{"name": name, "width": width, "height": height, "ms": statistics.median(ms)}
                        for name, ms in times.items()]
            frame.unlink()
    return entries
