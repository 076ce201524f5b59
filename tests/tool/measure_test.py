"""Measured light beside the light that was put in, and the rules by which records and pixels disagree."""
import csv
import io
import json
import unittest

from lumivert_tool import *

PERCENTAGES = ["1", "5", "10", "25", "50", "75", "90", "95", "98", "99", "99.98"]


def light(signal):
    """cd/m2 of a PQ signal (SMPTE ST 2084), within 0 to 1."""
    e = min(max(signal, 0), 1) ** (32 / 2523)
    return 10000 * (max(e - 3424 / 4096, 0) / (2413 / 128 - 2392 / 128 * e)) ** (16384 / 2610)


def components(y, cb, cr, black=64, luma=876, chroma=896):
    """Light of red, green and blue of 10-bit codes (BT.2020, non-constant luminance)."""
    y, cb, cr = (y - black) / luma, (cb - 512) / chroma, (cr - 512) / chroma
    red, blue = y + 1.4746 * cr, y + 1.8814 * cb
    return [light(v) for v in (red, (y - 0.2627 * red - 0.0593 * blue) / 0.6780, blue)]


def lossless(path, frames, size, records=None, colour_range="tv", more=""):
    """An HEVC clip with just these samples (P010 frames), with records where there are any, and with more x265 options."""
    write("frames.p010", b"".join(frames))
    parameters = "lossless=1:log-level=none:bframes=0:colorprim=bt2020:transfer=smpte2084:colormatrix=bt2020nc" + more
    ffmpeg("-f", "rawvideo", "-pix_fmt", "p010le", "-s", size, "-i", "frames.p010",
           "-vf", f"scale=in_range={colour_range}:out_range={colour_range}", "-pix_fmt", "yuv420p10le",
           "-color_range", colour_range, "-c:v", "libx265", "-preset", "ultrafast",
           "-x265-params", parameters + f":range={'full' if colour_range == 'pc' else 'limited'}", "bare.hevc")
    write(path, make_clip.with_metadata(read("bare.hevc"), records) if records else read("bare.hevc"))
    os.remove("frames.p010")
    os.remove("bare.hevc")


class Measure(ToolTest):
    def measure(self, *arguments, status=DONE):
        return json.loads(self.lumivert("measure", *arguments, "--json", status=status)[0])

    def assertLight(self, measured, expected):
        self.assertAlmostEqual(measured, expected, delta=0.01 * expected + 0.001)

    def test_patches_have_their_light(self):
        """Eight neutral patches of equal size in a frame, then frames of a single colour."""
        size = f"{WIDTH}x{PATCH}"
        neutral = p010(WIDTH, PATCH, lambda x, y: (NEUTRAL[x // PATCH], 512, 512))
        frames = [neutral] + [p010(WIDTH, PATCH, lambda x, y: codes) for codes in COLOURED]
        lossless("in.hevc", frames, size)
        write("in.p010", b"".join(frames))
        for arguments in (("in.hevc",), ("in.p010", "--size", size)):
            found = self.measure(*arguments)
            first, *coloured = found["frames"]
            levels = [light((code - 64) / 876) for code in NEUTRAL]
            self.assertLight(first["average"], sum(levels) / 8)
            for at, level in zip(PERCENTAGES, [0, 0, 0, 1, 3, 5, 7, 7, 7, 7, 7], strict=True):
                self.assertLight(first["percentiles"][at], levels[level])
            self.assertEqual([f["frame"] for f in found["frames"]], list(range(9)))
            for frame, codes in zip(coloured, COLOURED, strict=True):
                expected = components(*codes)
                for measured, component in zip(frame["maximum"], expected):
                    self.assertLight(measured, component)
                for value in (frame["average"], *frame["percentiles"].values()):
                    self.assertLight(value, max(expected))
            self.assertLight(found["max_cll"], levels[-1])
            self.assertLight(found["max_fall"], max([sum(levels) / 8] + [max(components(*c)) for c in COLOURED]))

    def test_full_range_is_read_as_such(self):
        codes = (500, 480, 560)
        lossless("in.hevc", [p010(64, 64, lambda x, y: codes)], "64x64", colour_range="pc")
        found = self.measure("in.hevc")
        self.assertEqual(found["range"], "full")
        for measured, expected in zip(found["frames"][0]["maximum"], components(*codes, 0, 1023, 1023)):
            self.assertLight(measured, expected)

    def test_colour_between_chroma_samples_is_interpolated(self):
        """Chroma that rises evenly to the right: so does blue, at every column, whether it has a sample or not."""
        write("in.p010", p010(64, 64, lambda x, y: (500, 300 + 4 * x, 512)))
        found = self.measure("in.p010", "--size", "64x64")["frames"][0]
        columns = sorted(max(components(500, 300 + 4 * min(x, 62), 512)) for x in range(64))
        self.assertLight(found["average"], sum(columns) / 64)
        self.assertLight(found["percentiles"]["75"], columns[47])

    def test_disagreements_name_their_rule_and_frames(self):
        grey = light((600 - 64) / 876)
        right = {"maxscl": [round(10 * grey)] * 3, "average": round(10 * grey), "points": [(50, 1), (99, round(10 * grey))]}
        records = [right, right, {**right, "maxscl": [round(8 * grey)] * 3}, {**right, "average": round(4 * grey)},
                   {**right, "points": [(99, round(30 * grey))]}, right]
        lossless("in.hevc", [p010(64, 64, lambda x, y: (600, 512, 512))] * 6, "64x64", records)
        found = self.measure("in.hevc", status=DIFFERENT)
        self.assertEqual([(d["rule"], d["frames"], d["worst_frame"]) for d in found["disagreements"]],
                         [("maximum", 1, 2), ("average", 1, 3), ("distribution", 1, 4)])
        for wrong, claimed in zip(found["disagreements"], (0.8, 0.4, 3)):
            self.assertLight(wrong["measured"], grey)
            self.assertLight(wrong["claimed"], claimed * grey)
        text = self.lumivert("measure", "in.hevc", status=DIFFERENT)[0].decode()
        self.assertIn("maximum: 1 frame, the first 2; worst in frame 2: measured ", text)
        lossless("in.hevc", [p010(64, 64, lambda x, y: (600, 512, 512))] * 2, "64x64", [right] * 2)
        self.assertEqual(self.measure("in.hevc")["disagreements"], [])

    def test_a_clip_above_its_content_light(self):
        """The second of three frames has the light of both MaxCLL and MaxFALL."""
        grey = light((600 - 64) / 876)
        frames = [p010(64, 64, lambda x, y, luma=luma: (luma, 512, 512)) for luma in (500, 600, 500)]
        for rule, claims in (("MaxCLL", (0.8, 0.95)), ("MaxFALL", (0.95, 0.8))):
            claimed = [round(claim * grey) for claim in claims]
            lossless("in.hevc", frames, "64x64", more=":max-cll={},{}".format(*claimed))
            found, = self.measure("in.hevc", status=DIFFERENT)["disagreements"]
            self.assertEqual((found["rule"], found["worst_frame"], found["claimed"]), (rule, 1, min(claimed)))
            self.assertLight(found["measured"], grey)
        text = self.lumivert("measure", "in.hevc", status=DIFFERENT)[0].decode()
        self.assertIn("MaxFALL: measured ", text)

    def test_tables_and_charts_have_every_frame(self):
        write("in.p010", p010(16, 16, lambda x, y: (400, 512, 512)) * 10000)
        raw = ("in.p010", "--size", "16x16")
        rows = list(csv.DictReader(io.StringIO(self.lumivert("measure", *raw, "--csv", "-o", "c.png")[0].decode())))
        self.assertEqual([int(row["frame"]) for row in rows], list(range(10000)))
        self.assertLight(float(rows[-1]["p50"]), light((400 - 64) / 876))
        self.assertEqual(rows[0]["record_average"], "")
        self.assertEqual(ffprobe("c.png", "streams")[0]["width"], 1280)
        ffmpeg("-i", DEMO, "-c", "copy", "-output_ts_offset", "5", "late.mkv")  # its first frame counts as 0 s
        for number, frame in enumerate(self.measure("late.mkv", "-o", "c.svg", status=DIFFERENT)["frames"]):
            self.assertAlmostEqual(frame["seconds"], number / 24, delta=1e-3)
        write("one.p010", p010(16, 16, lambda x, y: (400, 512, 512)))
        self.lumivert("measure", "one.p010", "--size", "16x16", "-o", "c.svg")
        write("white.p010", p010(16, 16, lambda x, y: (940, 512, 512)))
        self.assertIn("MaxCLL   10000 cd/m2 in frame 0", self.lumivert("measure", "white.p010", "--size", "16x16")[0].decode())

    def test_refusals_leave_nothing(self):
        clip("hlg.mp4", "64x64", transfer="arib-std-b67")
        clip("sdr.mp4", "64x64", pixels="yuv420p")
        clip("bare.mp4", "64x64")
        before = os.listdir()
        for arguments, message in ((("hlg.mp4",), "hlg.mp4: not an HDR10 clip: its transfer is arib-std-b67"),
                                   (("sdr.mp4",), "sdr.mp4: not an HDR10 clip: its samples are yuv420p"),
                                   (("bare.mp4", "-o", "missing/c.png"), "missing/c.png: No such file"),
                                   (("bare.mp4", "-o", "c.jpg"), "c.jpg: a chart is written as .png or .svg"),
                                   (("bare.mp4", "--json", "--csv"), "choose one")):
            self.assertIn(message, self.lumivert("measure", *arguments, status=FAILED)[1])
            self.assertOnlyFiles(*before)
        self.lumivert("measure", "bare.mp4")

    def test_damage_is_named_and_the_rest_measured(self):
        ffmpeg("-i", DEMO, "-c", "copy", "whole.hevc")
        stream = bytearray(read("whole.hevc"))
        middle = len(stream) // 2
        stream[middle:middle + 40] = bytes((7 * k + 3) % 256 for k in range(40))
        write("hit.hevc", stream)
        text, lines = self.lumivert("measure", "hit.hevc", status=DIFFERENT)
        self.assertRegex(lines, r"hit.hevc: damaged or cut off.*, near frames? 4\d")
        self.assertRegex(text.decode(), r"7\d frames of 640x360")


if __name__ == "__main__":
    unittest.main()
