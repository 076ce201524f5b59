#!/usr/bin/env python3
"""Makes the demo clip: three scenes in PQ BT.2020 with HDR10+ metadata measured frame by frame.

    make_clip.py clip.mp4

The metadata of a frame is an ITU-T T.35 message before its first slice (SMPTE ST 2094-40, application version 1);
Debian's x265 is built without it, so it is put there here. Needs ffmpeg with libx265, and about a minute."""
import math
import subprocess
import sys
import tempfile

from pq_video import blank, fill, glow, yuv420p10

WIDTH, HEIGHT, RATE, SCENE_FRAMES = 640, 360, 24, 24
MASTERING_PEAK, MADE_FOR = 4000, 400  # cd/m2: of the master, and of the display that the curves are for


def patches(picture, top, size, level):
    """Red, green, blue, cyan, magenta, yellow, skin, white: well inside BT.709, so that hues compare."""
    colours = [(1, .25, .1), (.35, 1, .2), (.1, .15, 1), (.4, 1, 1), (1, .35, 1), (1, 1, .3), (.9, .6, .45), (1, 1, 1)]
    step = WIDTH / len(colours)
    for i, colour in enumerate(colours):
        left = i * step + (step - size) / 2
        fill(picture, left, top, left + size, top + size, tuple(level * c for c in colour))


def room(t):
    """A dim room with a lamp that comes on and moves through it."""
    picture = [[(0.4 + 9 * y / HEIGHT, 0.35 + 7 * y / HEIGHT, 0.3 + 5 * y / HEIGHT)] * WIDTH for y in range(HEIGHT)]
    for i in range(16):  # steps from black to paper white
        fill(picture, 40 * i, 300, 40 * i + 40, 340, (203 * (i / 15) ** 2.4,) * 3)
    patches(picture, 200, 56, 60)
    lamp = 100 + 500 * t
    glow(picture, 120 + 400 * t, 90 + 30 * math.sin(6 * t), 16, 70, (lamp, 0.8 * lamp, 0.5 * lamp))
    return picture


def sky(t):
    """A bright sky with the sun crossing it."""
    picture = []
    for y in range(HEIGHT):
        high = 1 - y / HEIGHT
        picture.append([(60 + 340 * (1 - high) ** 2, 110 + 300 * (1 - high) ** 2, 260 + 160 * high)] * WIDTH)
    fill(picture, 0, 270, WIDTH, HEIGHT, (14, 26, 8))
    patches(picture, 284, 56, 180)
    glow(picture, 60 + 500 * t, 150 - 80 * math.sin(math.pi * t), 26, 120, (3800, 3300, 2300))
    return picture


def night(t):
    """Neon in the dark: saturated bars that move and change brightness."""
    picture = blank(WIDTH, HEIGHT, (0.02, 0.02, 0.03))
    colours = [(1, .06, .1), (.1, 1, .15), (.08, .1, 1), (1, .1, .9), (.2, .9, 1)]
    for i, colour in enumerate(colours):
        level = 40 + 700 * (0.5 + 0.5 * math.sin(5 * t + 1.3 * i))
        left = (120 * i + 160 * t) % (WIDTH + 60) - 60
        fill(picture, left, 50 + 20 * i, left + 60, 170 + 20 * i, tuple(round(level * c, 1) for c in colour))
    patches(picture, 290, 50, 8)
    glow(picture, 560 - 400 * t, 60 + 60 * t, 8, 40, (1500 - 900 * t,) * 3)
    return picture


def measure(picture):
    """A frame's record, as a mastering tool computes it: luminances in 0.1 cd/m2."""
    brightest = sorted(max(pixel) for row in picture for pixel in row)
    at = lambda percent: round(10 * brightest[min(int(percent / 100 * len(brightest)), len(brightest) - 1)])
    peak = max(brightest[-1], 1)
    below_100 = round(100 * sum(1 for value in brightest if value <= 100) / len(brightest))
    # By custom the 5 and 10 % places hold the 99.98 % point and the share of pixels up to 100 cd/m2.
    points = [(1, at(1)), (5, at(99.98)), (10, below_100)] + [(p, at(p)) for p in (25, 50, 75, 90, 95, 99)]
    # The curve: linear up to the median, then a shoulder that bends the more the brighter the frame is.
    ratio = max(peak / MADE_FOR, 1)
    knee = min(brightest[len(brightest) // 2], 0.3 * MADE_FOR)
    bend = 1 + 1.1 * math.log2(ratio)
    return {"maxscl": [round(10 * max(p[c] for row in picture for p in row)) for c in range(3)],
            "average": round(10 * sum(brightest) / len(brightest)), "points": points,
            "knee": (round(4095 * knee / max(peak, MADE_FOR)), round(4095 * knee / MADE_FOR)),
            "anchors": [round(1023 * (1 - (1 - k / 10) ** bend)) for k in range(1, 10)]}


def t35_payload(record):
    bits = []
    put = lambda value, count: bits.append(format(value, f"0{count}b"))
    for value, count in ((181, 8), (60, 16), (1, 16), (4, 8), (1, 8), (1, 2), (record.get("made_for", MADE_FOR), 27),
                         (0, 1)):
        put(value, count)
    for value in record["maxscl"] + [record["average"]]:
        put(value, 17)
    put(len(record["points"]), 4)
    for percentage, value in record["points"]:
        put(percentage, 7)
        put(value, 17)
    put(0, 10)  # fraction of bright pixels
    put(0, 1)   # no peaks of the mastering display
    put(int("knee" in record), 1)  # whether a tone-mapping curve follows
    if "knee" in record:
        put(record["knee"][0], 12)
        put(record["knee"][1], 12)
        put(len(record["anchors"]), 4)
        for anchor in record["anchors"]:
            put(anchor, 10)
    put(0, 1)   # no colour saturation mapping
    text = "".join(bits)
    text += "0" * (-len(text) % 8)
    return bytes(int(text[i:i + 8], 2) for i in range(0, len(text), 8))


def sei_nal(payload):
    """A prefix SEI NAL unit of HEVC with user data registered by ITU-T T.35 (payload type 4)."""
    body = bytes([0x4E, 0x01, 4, len(payload)]) + payload + b"\x80"
    escaped, zeros = bytearray(), 0
    for byte in body:
        if zeros == 2 and byte <= 3:
            escaped.append(3)
            zeros = 0
        escaped.append(byte)
        zeros = zeros + 1 if byte == 0 else 0
    return b"\0\0\0\1" + bytes(escaped)


def with_metadata(stream, records):
    """Puts each picture's record, where there is one, before its first slice; pictures lie in presentation order."""
    out, pending = bytearray(), list(records)
    for nal in stream.split(b"\0\0\1")[1:]:
        nal = nal.rstrip(b"\0")
        if (nal[0] >> 1) < 32 and nal[2] & 0x80:  # a slice, the first of its picture
            record = pending.pop(0)
            out += sei_nal(t35_payload(record)) if record else b""
        out += b"\0\0\0\1" + nal
    assert not pending, "the encoder dropped pictures"
    return bytes(out)


def main(target):
    pictures = [scene(i / SCENE_FRAMES) for scene in (room, sky, night) for i in range(SCENE_FRAMES)]
    records = [measure(picture) for picture in pictures]
    brightest = max(max(record["maxscl"]) for record in records) // 10
    average = max(record["average"] for record in records) // 10
    # Primaries and white in units of 0.00002, luminances of 0.0001 cd/m2.
    display = f"G(8500,39850)B(6550,2300)R(35400,14600)WP(15635,16450)L({MASTERING_PEAK}0000,50)"
    parameters = (f"bframes=0:keyint={SCENE_FRAMES}:scenecut=0:hdr10=1:repeat-headers=1:log-level=error:"
                  f"master-display={display}:max-cll={brightest},{average}")
    source = ["-f", "rawvideo", "-pix_fmt", "yuv420p10le", "-s", f"{WIDTH}x{HEIGHT}", "-r", str(RATE), "-i", "-"]
    tags = ["-color_primaries", "bt2020", "-color_trc", "smpte2084", "-colorspace", "bt2020nc", "-color_range", "tv"]
    encoded = subprocess.run(["ffmpeg", "-v", "error", *source, *tags, "-c:v", "libx265", "-preset", "slow", "-crf", "14",
                              "-x265-params", parameters, "-f", "hevc", "-"],
                             input=b"".join(map(yuv420p10, pictures)), stdout=subprocess.PIPE, check=True).stdout
    with tempfile.NamedTemporaryFile(suffix=".hevc") as raw:
        raw.write(with_metadata(encoded, records))
        raw.flush()
        subprocess.run(["ffmpeg", "-v", "error", "-y", "-r", str(RATE), "-i", raw.name, "-c", "copy", "-tag:v", "hvc1",
                        "-movflags", "+faststart", "-fflags", "+bitexact", target], check=True)


if __name__ == "__main__":
    main(sys.argv[1])
