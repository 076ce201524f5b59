"""What a user could take instead, through FFmpeg on the processor, in turn with this library on the same raw frames and
on the same clip."""
import array
import os
import pathlib
import re
import resource
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

ZSCALE = "zscale=transfer=linear:npl=100,format=gbrpf32le,zscale=primaries=bt709,tonemap=tonemap=hable:desat=0," \
         "zscale=transfer=bt709:matrix=bt709:range=tv,format=yuv420p"
LEAN = ":upscaler=none:downscaler=none:peak_detect=false:dithering=none"
LUT = "lut.cube"  # in the current folder
LUT_POINTS = 33

# A clip as a camera or a phone writes it, only synthetic: moving shapes up to about 1000 cd/m2, a little noise.
CLIP_FRAMES = 112
CLIP = ["-f", "lavfi", "-i", "testsrc2=size=1920x1080:rate=24,format=yuv420p10le,"
        "lutyuv=y=64+(val-64)*0.62:u=512+(val-512)*0.5:v=512+(val-512)*0.5,noise=c0s=4:c0f=t+u",
        "-frames:v", str(CLIP_FRAMES), "-c:v", "libx265", "-preset", "superfast", "-crf", "16", "-x265-params",
        "log-level=error:hdr10=1:colorprim=bt2020:transfer=smpte2084:colormatrix=bt2020nc:range=limited:"
        "max-cll=1000,400:master-display=G(13250,34500)B(7500,3000)R(34000,16000)WP(15635,16450)L(10000000,1)", "clip.mp4"]
ENCODER = ["-c:v", "libx264", "-preset", "veryfast", "-crf", "16"]  # as `lumivert convert` has them


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
         f"{PLANAR_FRAME},{ZSCALE}", {"1920x1080": 40, "3840x2160": 10}),
    # Other pixel formats miss the fast code of lut3d.
    *(Peer(f"FFmpeg 3D LUT, {pixels}", ("zscale", "lut3d"),
           f"{PLANAR_FRAME},zscale=filter=point,format={pixels},lut3d=file={LUT}:interp=tetrahedral,"
           "zscale=matrix=bt709:filter=point,format=yuv420p", {"1920x1080": 60, "3840x2160": 16})
      for pixels in ("gbrpf32le", "gbrp16le")),
    Peer("FFmpeg libplacebo, lean", ("libplacebo",), libplacebo(LEAN), {"1920x1080": 12, "3840x2160": 4}, VULKAN),
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


def write_lut(folder):
    """The identity; what a table holds makes no difference to its speed."""
    axis = [f"{i / (LUT_POINTS - 1):.6f}" for i in range(LUT_POINTS)]
    pathlib.Path(folder, LUT).write_text(f"LUT_3D_SIZE {LUT_POINTS}\n" + "".join(
        f"{r} {g} {b}\n" for b in axis for g in axis for r in axis), encoding="ascii")


def command(peer, size, frames):
    return ["ffmpeg", "-v", "error", *peer.options, "-f", "rawvideo", "-pix_fmt", "p010le", "-s", size, "-i",
            "frame.p010", "-vf", peer.filters, "-frames:v", str(frames), "-f", "null", "-"]


def as_typed(words):
    """The command as a reader would type it."""
    return " ".join(f"'{word}'" if re.search(r"[^\w./:=-]", word) else word for word in map(str, words))


def shown(peer):
    return as_typed(command(peer, "3840x2160", "N"))


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
        write_lut(folder)
        pathlib.Path(folder, "frame.p010").write_bytes(bytes(64 * 64 * 3))
        run = subprocess.run(command(peer, "64x64", 2), capture_output=True, text=True, env=environment(), cwd=folder)
    return run.stderr.strip().splitlines()[0] if run.returncode else ""


def net_ms(peer, size, folder):
    """Per frame, from two runs of different length: what start-up takes drops out."""
    def seconds(frames):
        start = time.monotonic()
        subprocess.run(command(peer, size, frames), check=True, env=environment(), cwd=folder)
        return time.monotonic() - start

    more = peer.frames[size]
    return (seconds(2 + more) - seconds(2)) / more * 1000


def available():
    """The peers that run here, and entries {"name", "missing"} for the others."""
    reasons = {peer.name: missing(peer) for peer in PEERS}
    return ([peer for peer in PEERS if not reasons[peer.name]],
            [{"name": name, "missing": reason} for name, reason in reasons.items() if reason])


def measure(bench, rounds=7):
    """Entries {"name", "width", "height", "ms"} or {"name", "missing"}; `bench(arguments)` runs path_bench."""
    peers, entries = available()
    with tempfile.TemporaryDirectory() as folder:
        write_lut(folder)
        for size in SIZES:
            write_frame(pathlib.Path(folder, "frame.p010"), size)
            times = {name: [] for name in [*OURS.values(), "memcpy", *(peer.name for peer in peers)]}
            for number in range(rounds):
                print(f"peers at {size}: round {number + 1} of {rounds}", flush=True)
                for result in bench("--size", size, "--only", *OURS.values(), "--rounds", "7")["results"]:
                    times[result["name"]].append(result["ms"]["median"])
                for peer in peers:
                    times[peer.name].append(net_ms(peer, size, folder))
            width, height = map(int, size.split("x"))
            entries += [{"name": name, "width": width, "height": height, "ms": statistics.median(ms)}
                        for name, ms in times.items()]
    return entries


# ---- a whole clip, from file to file ----

def clip_commands(lumivert):
    """By name, the ways from HEVC with HDR10 to H.264; the first one without tone mapping."""
    def ffmpeg(filters, options=()):
        return ["ffmpeg", "-v", "error", "-y", *options, "-i", "clip.mp4", "-vf", filters, *ENCODER, "out.mp4"]

    upload = "format=p010le,hwupload,libplacebo=format=nv12:colorspace=bt709:color_primaries=bt709:color_trc=bt709" + LEAN
    return {"FFmpeg, no tone mapping": ffmpeg("format=yuv420p"),
            "FFmpeg zscale+tonemap": ffmpeg(ZSCALE),
            "FFmpeg libplacebo, lean": ffmpeg(f"{upload},hwdownload,format=nv12", VULKAN),
            "lumivert convert": [lumivert, "convert", "clip.mp4", "--mode", "hdr10plus", "--metadata", "none", "-o",
                                 "out.mp4"]}


def make_clip_command():
    return ["ffmpeg", "-v", "error", "-y", *CLIP]


def measure_clip(lumivert, rounds=5):
    """Medians {"wall", "processor"} of seconds by name; nothing for what cannot run here."""
    gone = {entry["name"] for entry in available()[1]}
    commands = {name: words for name, words in clip_commands(lumivert).items() if name not in gone}
    times = {name: [] for name in commands}

    def processor():
        usage = resource.getrusage(resource.RUSAGE_CHILDREN)
        return usage.ru_utime + usage.ru_stime

    with tempfile.TemporaryDirectory() as folder:
        subprocess.run(make_clip_command(), check=True, cwd=folder)
        for number in range(rounds + 1):  # the first one fills caches and does not count
            print(f"whole clip: round {number} of {rounds}", flush=True)
            for name, words in commands.items():
                start, used = time.monotonic(), processor()
                subprocess.run(words, check=True, env=environment(), cwd=folder, stderr=subprocess.DEVNULL)
                if number:
                    times[name].append((time.monotonic() - start, processor() - used))
    return {name: {"wall": statistics.median(wall for wall, _ in runs),
                   "processor": statistics.median(used for _, used in runs)} for name, runs in times.items()}
