"""What the tool's tests share: running it, and making small inputs for it."""
import json
import os
import shutil
import struct
import subprocess
import sys
import tempfile
import unittest

LUMIVERT = os.path.realpath(os.environ["LUMIVERT"])
DEMO_FOLDER = os.path.join(os.path.dirname(os.path.realpath(__file__)), "..", "..", "tools", "lumivert", "demo")
DEMO = os.path.join(DEMO_FOLDER, "demo.mp4")
sys.path.append(DEMO_FOLDER)
import make_clip
DONE, DIFFERENT, FAILED = 0, 1, 2


class ToolTest(unittest.TestCase):
    """Each test runs in an empty folder of its own; compiled GPU programs are shared."""

    def setUp(self):
        self.folder = tempfile.mkdtemp()
        self.addCleanup(shutil.rmtree, self.folder)
        self.addCleanup(os.chdir, os.getcwd())
        os.chdir(self.folder)

    def lumivert(self, *arguments, status=DONE, stdin=b"", **options):
        """Runs the tool, expects its exit status, gives back (standard output, lines of standard error)."""
        result = subprocess.run([LUMIVERT, *arguments], input=stdin, capture_output=True, timeout=1500, **options)
        lines = result.stderr.decode().replace("x265 [error]: Failed to genrate CPU mask\n", "")  # where /sys is missing
        self.assertEqual(result.returncode, status, f"{arguments}: {lines}")
        for line in lines.splitlines():
            self.assertTrue(line.startswith("lumivert: "), line)
        return result.stdout, lines

    def convert(self, source, target, *options, **more):
        """A conversion's standard error."""
        return self.lumivert("convert", source, "-o", target, *options, **more)[1]

    def assertOnlyFiles(self, *names):
        """Nothing else was left behind, under whatever name."""
        self.assertEqual(sorted(os.listdir()), sorted(names))


def read(path):
    with open(path, "rb") as file:
        return file.read()


def write(path, data):
    with open(path, "wb") as file:
        file.write(data)


def ffmpeg(*arguments):
    return subprocess.run(["ffmpeg", "-v", "error", "-y", *arguments], check=True, stdout=subprocess.PIPE).stdout


def ffprobe(path, what):
    """Streams, packets or frames; keys that repeat in an object, as those of HDR10+ arrays do, give lists."""
    def collect(pairs):
        keys = [key for key, _ in pairs]
        return {key: value if keys.count(key) == 1 else [v for k, v in pairs if k == key] for key, value in pairs}
    text = subprocess.run(["ffprobe", "-v", "error", "-select_streams", "v:0", f"-show_{what}", "-of", "json", path],
                          check=True, stdout=subprocess.PIPE).stdout
    return json.loads(text, object_pairs_hook=collect)[what]


def p010(width, height, code_at):
    """A frame of P010; `code_at(x, y)` gives the (Y, Cb, Cr) codes of the 2x2 block at (x, y)."""
    blocks = [[code_at(x, y) for x in range(0, width, 2)] for y in range(0, height, 2)]
    words = []
    for row in blocks:
        luma = [y for y, _, _ in row for _ in range(2)]
        words += luma + luma
    for row in blocks:
        words += [code for _, cb, cr in row for code in (cb, cr)]
    return b"".join((word << 6).to_bytes(2, "little") for word in words)


PATCH = 32
NEUTRAL = [64, 100, 180, 300, 420, 640, 722, 900]
COLOURED = [(200, 540, 580), (300, 460, 560), (250, 600, 490), (400, 480, 470), (350, 560, 570), (500, 440, 530),
            (420, 490, 540), (600, 500, 520)]
WIDTH, HEIGHT = PATCH * len(NEUTRAL), 2 * PATCH
CENTRES = [(x, y) for y in range(PATCH // 2, HEIGHT, PATCH) for x in range(PATCH // 2, WIDTH, PATCH)]


def patches():
    """A row of neutral patches above one of coloured ones."""
    return p010(WIDTH, HEIGHT, lambda x, y: (NEUTRAL[x // PATCH], 512, 512) if y < PATCH else COLOURED[x // PATCH])


def clip(path, size, *, transfer="smpte2084", pixels="yuv420p10le", seconds=0.25, primaries="bt2020", more=""):
    """A short HEVC clip without HDR10+; `more` goes to x265."""
    parameters = f"log-level=none:bframes=0:colorprim={primaries}:transfer={transfer}:colormatrix=bt2020nc{more}"
    ffmpeg("-f", "lavfi", "-i", f"testsrc2=s={size}:d={seconds}", "-pix_fmt", pixels, "-c:v", "libx265", "-preset",
           "ultrafast", "-x265-params", parameters, path)


def turned(mp4):
    """The same file with its picture turned by a quarter. FFmpeg's option for it depends on its version."""
    at = mp4.index(b"tkhd") + 44  # the track's matrix, 16.16 but for the last column's 2.30
    matrix = (0, 1 << 16, 0, -1 << 16, 0, 0, 0, 0, 1 << 30)
    return mp4[:at] + b"".join(entry.to_bytes(4, "big", signed=True) for entry in matrix) + mp4[at + 36:]


def with_box(mp4, kind, content):
    """The same file, whose index comes last, with another box in the sample entry of its first track."""
    out, at, sizes = bytearray(mp4), 0, []
    box = (8 + len(content)).to_bytes(4, "big") + kind + content
    for name in (b"moov", b"trak", b"mdia", b"minf", b"stbl", b"stsd"):
        at = out.index(name, at)
        sizes.append(at - 4)
    sizes.append(at + 12)  # the first entry follows version, flags and count
    for size in sizes:
        out[size:size + 4] = (int.from_bytes(out[size:size + 4], "big") + len(box)).to_bytes(4, "big")
    end = sizes[-1] + int.from_bytes(out[sizes[-1]:sizes[-1] + 4], "big") - len(box)
    return bytes(out[:end]) + box + bytes(out[end:])


def with_dolby_vision(mp4, profile):
    return with_box(mp4, b"dvcC", b"\1\0" + (profile << 9 | 6 << 3 | 5).to_bytes(2, "big") + bytes(20))


def with_mastering_peak(mp4, peak):
    """In cd/m2, on a BT.2020 display. FFmpeg 7 takes no peak below 5 cd/m2 from HEVC's own message."""
    display = (8500, 39850, 6550, 2300, 35400, 14600, 15635, 16450)  # chromaticities times 50000: G, B, R, white
    return with_box(mp4, b"mdcv", struct.pack(">8H2I", *display, round(peak * 10000), 1))


def hdr_messages(path):
    """What the frames and the track of a clip carry of HDR metadata."""
    carriers = ffprobe(path, "frames") + ffprobe(path, "streams")
    kinds = {d["side_data_type"] for carrier in carriers for d in carrier.get("side_data_list", [])}
    return [kind for kind in kinds if any(word in kind for word in ("HDR", "Mastering", "light", "DOVI"))]


def clip_with_records(path, records):
    """A raw HEVC clip with a frame for each record, or for each None without one."""
    clip("bare.hevc", "64x64", seconds=len(records) / 25)
    write(path, make_clip.with_metadata(read("bare.hevc"), records))
    os.remove("bare.hevc")


def av1_clip(path, record):
    """An AV1 clip of two frames, each with the record in a metadata OBU."""
    tags = ("-color_primaries", "bt2020", "-color_trc", "smpte2084", "-colorspace", "bt2020nc")  # FFmpeg 5 takes these,
    filters = "setparams=color_primaries=bt2020:color_trc=smpte2084:colorspace=bt2020nc"  # FFmpeg 7 those of the frames
    ffmpeg("-f", "lavfi", "-i", "testsrc2=s=64x64:d=0.08", "-vf", filters, "-pix_fmt", "yuv420p10le", "-c:v",
           "libaom-av1", "-cpu-used", "8", *tags, "bare.obu")
    stream, out, at = read("bare.obu"), b"", 0
    metadata = b"\4" + make_clip.t35_payload(record) + b"\x80"  # of type ITU-T T.35
    while at < len(stream):
        size, length = 0, 1
        while True:  # seven bits to a byte, lowest first
            byte = stream[at + length]
            size |= (byte & 127) << 7 * (length - 1)
            length += 1
            if byte < 128:
                break
        if stream[at] >> 3 & 15 == 6:  # a frame
            out += bytes([0x2A, len(metadata)]) + metadata
        out += stream[at:at + length + size]
        at += length + size
    write("with.obu", out)
    ffmpeg("-i", "with.obu", "-c", "copy", path)
    os.remove("bare.obu")
    os.remove("with.obu")


def record(peak, **more):
    """A record as it is put into a stream; with `knee` and `anchors` for a curve."""
    return {"maxscl": [10 * peak] * 3, "average": 100, "points": [(1, 0), (50, 500), (99, 10 * peak)], **more}


def scene(**fields):
    """An entry of a metadata file; its curve is for the converter's own display, so that it applies as it stands."""
    return {"BezierCurveData": {"Anchors": [380, 620, 650, 770, 850, 900, 930, 980, 990], "KneePointX": 33,
                                "KneePointY": 132},
            "LuminanceParameters": {"AverageRGB": 100, "MaxScl": [10000, 10000, 10000],
                                    "LuminanceDistributions": {"DistributionIndex": [1, 50, 99],
                                                               "DistributionValues": [0, 500, 10000]}},
            "NumberOfWindows": 1, "TargetedSystemDisplayMaximumLuminance": 250, **fields}


def write_scenes(path, scenes):
    write(path, json.dumps({"JSONInfo": {"HDR10plusProfile": "B", "Version": "1.1"}, "SceneInfo": scenes}).encode())
