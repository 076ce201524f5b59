"""Conversions as a user runs them, compared with values computed here and with what FFmpeg sees in the results."""
import math
import unittest

from lumivert_tool import *


def tone_mapped(code, knee=(33 / 4095, 132 / 4095), anchors=(380, 620, 650, 770, 850, 900, 930, 980, 990), peak=1000):
    """The 8-bit SDR value of a neutral code under the curve of `scene`, from the formulas of the standards."""
    signal = min(int((code - 64) / 4), 255) / 255
    t = signal ** (1 / 78.84375)
    light = (max(t - 0.8359375, 0) / (18.8515625 - 18.6875 * t)) ** (1 / 0.1593017578125)
    x = min(light * 10000 / peak, 1)
    if x <= knee[0]:
        y = x * knee[1] / knee[0]
    else:
        t, order = (x - knee[0]) / (1 - knee[0]), len(anchors) + 1
        points = [0, *(a / 1023 for a in anchors), 1]
        bezier = sum(math.comb(order, k) * t ** k * (1 - t) ** (order - k) * p for k, p in enumerate(points))
        y = knee[1] + (1 - knee[1]) * bezier
    return 255 * min(y, 1) ** 0.45


class StaticTable(ToolTest):
    # Input and output codes of the two tables.
    TABLES = {1000: {64: 63, 76: 64, 200: 81, 300: 159, 400: 283, 600: 693, 722: 939},
              4000: {64: 63, 76: 64, 200: 81, 300: 166, 400: 262, 600: 577, 854: 939}}

    def test_luma_follows_the_table_of_the_mastering_peak_through_both_entries(self):
        for peak, table in self.TABLES.items():
            codes = list(table)
            write("in.p010", 2 * p010(2 * len(codes), 4, lambda x, y: (codes[x // 2], 512, 512)))
            for entry in ("pool", "retained"):
                lines = self.convert("in.p010", "out.p010", "--size", f"{2 * len(codes)}x4", "--mode", "static",
                                     "--entry", entry, "--max-luminance", str(peak))
                self.assertIn(f"2 frames: the table for masters up to {peak} cd/m2", lines)
                expected = p010(2 * len(codes), 4, lambda x, y: (table[codes[x // 2]], 512, 512))
                self.assertEqual(read("out.p010"), 2 * expected, (peak, entry))

    def test_pipes_carry_raw_frames(self):
        frame = patches()
        piped, _ = self.lumivert("convert", "-", "-o", "-", "--as", "p010", "--size", f"{WIDTH}x{HEIGHT}", "--mode",
                                 "static", stdin=3 * frame)
        write("in.p010", frame)
        self.convert("in.p010", "out.p010", "--size", f"{WIDTH}x{HEIGHT}", "--mode", "static")
        self.assertEqual(piped, 3 * read("out.p010"))

    def test_any_even_size_converts_as_the_corner_of_a_larger_picture(self):
        at = lambda x, y: ((37 * x + 91 * y) % 800 + 64, (53 * x + y) % 896 + 64, (11 * x + 7 * y) % 896 + 64)
        write("in.p010", p010(64, 64, at))
        for mode, kind, pixel in (("static", "p010", 2), ("hdr10plus", "rgba", 4)):
            options = ("--mode", mode, "--metadata", "none")
            self.convert("in.p010", "large." + kind, "--size", "64x64", *options)
            for width, height in ((2, 2), (34, 6), (62, 38)):
                write("corner.p010", p010(width, height, at))
                self.convert("corner.p010", "small." + kind, "--size", f"{width}x{height}", *options)
                large, small = read("large." + kind), read("small." + kind)
                for y in range(height):
                    self.assertEqual(small[y * width * pixel:(y + 1) * width * pixel],
                                     large[y * 64 * pixel:(y * 64 + width) * pixel], (mode, width, height, y))


class Hdr10Plus(ToolTest):
    def setUp(self):
        super().setUp()
        write("in.p010", patches())
        write_scenes("in.json", [scene()])
        self.raw = ("--size", f"{WIDTH}x{HEIGHT}", "--metadata", "in.json")

    def test_neutral_patches_have_the_computed_values(self):
        for entry in ("pool", "retained"):
            self.convert("in.p010", "out.rgba", "--entry", entry, *self.raw)
            out = read("out.rgba")
            for code, (x, y) in zip(NEUTRAL, centres()):
                for channel in range(3):
                    self.assertAlmostEqual(out[4 * (y * WIDTH + x) + channel], tone_mapped(code), delta=2.5)

    def test_video_shows_the_colours_of_the_rgba_frames(self):
        self.convert("in.p010", "out.rgba", *self.raw)
        for name, codec in (("out.mp4", "h264"), ("out.mkv", "hevc")):
            self.convert("in.p010", name, "--codec", codec, "--quality", "4", *self.raw)
            stream = ffprobe(name, "streams")[0]
            self.assertEqual([stream[key] for key in ("codec_name", "color_range", "color_space", "color_transfer",
                                                      "color_primaries")], [codec, "tv"] + 3 * ["bt709"])
            shown = ffmpeg("-i", name, "-f", "rawvideo", "-pix_fmt", "rgb24", "-sws_flags",
                           "accurate_rnd+full_chroma_int+full_chroma_inp", "-")
            for x, y in centres():
                at = y * WIDTH + x
                for channel in range(3):
                    self.assertAlmostEqual(shown[3 * at + channel], read("out.rgba")[4 * at + channel], delta=4,
                                           msg=(name, x, y))

    def test_samples_of_the_converter_go_to_video_untouched_and_tagged(self):
        cases = (("hdr10plus", "nv12", "nv12", "pc", 1, 2), ("static", "p010", "p010le", "tv", 2, 6))
        for mode, kind, pixels, colour_range, sample_bytes, tolerance in cases:
            self.convert("in.p010", "out." + kind, "--mode", mode, *self.raw)
            self.convert("in.p010", "out.mp4", "--mode", mode, "--format", kind, "--quality", "4", *self.raw)
            stream = ffprobe("out.mp4", "streams")[0]
            self.assertEqual((stream["color_range"], stream["color_space"]), (colour_range, "bt709"))
            keep_range = f"scale=in_range={colour_range}:out_range={colour_range}"
            decoded = ffmpeg("-i", "out.mp4", "-vf", keep_range, "-f", "rawvideo", "-pix_fmt", pixels, "-")
            expected = read("out." + kind)
            sample = lambda data, at: int.from_bytes(data[sample_bytes * at:sample_bytes * (at + 1)], "little")
            scale = 64 if sample_bytes == 2 else 1
            for x, y in centres():
                for at in (y * WIDTH + x, WIDTH * HEIGHT + y // 2 * WIDTH + x):
                    self.assertAlmostEqual(sample(decoded, at) / scale, sample(expected, at) / scale, delta=tolerance)

    def test_entries_agree_also_on_the_default_record(self):
        for luminances in ((), ("--max-luminance", "4000"), ("--max-luminance", "4000", "--max-cll", "800")):
            results = []
            for entry in ("pool", "retained"):
                lines = self.convert("in.p010", "out.nv12", "--size", f"{WIDTH}x{HEIGHT}", "--mode", "hdr10plus",
                                     "--metadata", "none", "--entry", entry, *luminances)
                self.assertIn("all used the default", lines)
                results.append(read("out.nv12"))
            self.assertEqual(*results)

    def test_each_frame_gets_its_record(self):
        flat = scene(BezierCurveData={"Anchors": [100 * k for k in range(1, 10)], "KneePointX": 0, "KneePointY": 0})
        frame_bytes = WIDTH * HEIGHT * 3 // 2
        write("in.p010", 6 * patches())
        cases = [([scene(), flat] * 3, DONE, "6 with HDR10+", "abababab"[:6]),
                 ([scene(1), flat | {"SequenceFrameIndex": 3}], DIFFERENT,
                  "2 with HDR10+, 3 without one used the record before, 1 before the first record used the default",
                  "daabbb"),
                 ([scene()] + 7 * [flat], DIFFERENT, "8 records for 6 frames: 2 not used", "abbbbb")]
        frames = {}
        for scenes, status, line, expected in cases:
            write_scenes("in.json", scenes)
            self.assertIn(line, self.convert("in.p010", "out.nv12", *self.raw, status=status))
            out = read("out.nv12")
            for i, kind in enumerate(expected):
                frame = out[i * frame_bytes:(i + 1) * frame_bytes]
                self.assertEqual(frames.setdefault(kind, frame), frame, (line, i))
        self.assertNotEqual(frames["a"], frames["b"])

    def test_frames_and_interval_pick_frames(self):
        self.convert(DEMO, "all.nv12", "--frames", "0-11")
        frame = 640 * 360 * 3 // 2
        everything = read("all.nv12")
        for options, numbers in ((("--frames", "5-7"), (5, 6, 7)), (("--frames", "0-11", "--interval", "4"), (0, 4, 8))):
            self.convert(DEMO, "some.nv12", *options)
            self.assertEqual(read("some.nv12"), b"".join(everything[i * frame:(i + 1) * frame] for i in numbers))


class Outputs(ToolTest):
    def test_every_writer_takes_the_clip(self):
        """What FFmpeg makes of each kind of output."""
        for name, pixels in (("out.mp4", "yuv420p"), ("out.mkv", "yuv420p"), ("out.y4m", "yuv420p")):
            self.convert(DEMO, name, "--frames", "0-5")
            stream = ffprobe(name, "streams")[0]
            self.assertEqual((stream["width"], stream["height"], stream["pix_fmt"], stream["r_frame_rate"]),
                             (640, 360, pixels, "24/1"))
            self.assertEqual(len(ffprobe(name, "packets")), 6)
        self.convert(DEMO, "out-%03d.png", "--frames", "4-6")
        self.assertOnlyFiles("out.mp4", "out.mkv", "out.y4m", "out-004.png", "out-005.png", "out-006.png")

    def test_stills_and_y4m_show_the_converted_frame(self):
        self.convert(DEMO, "still.png", "--frames", "36")
        self.convert(DEMO, "still.rgba", "--frames", "36")
        self.assertEqual(ffmpeg("-i", "still.png", "-f", "rawvideo", "-pix_fmt", "rgba", "-"), read("still.rgba"))
        self.convert(DEMO, "still.y4m", "--frames", "36", "--mode", "static")
        self.convert(DEMO, "still.p010", "--frames", "36", "--mode", "static")
        self.assertEqual(ffmpeg("-i", "still.y4m", "-f", "rawvideo", "-pix_fmt", "p010le", "-"), read("still.p010"))

    def test_times_rotation_and_aspect_stay(self):
        ffmpeg("-i", DEMO, "-frames:v", "8", "-c", "copy", "-metadata:s:v", "rotate=90", "-aspect", "4:3",
               "-bsf:v", "setts=ts=TS+4096*gt(N\\,4)", "in.mp4")  # with a gap after the fifth frame
        self.convert("in.mp4", "out.mp4")
        told = [{"times": [float(p["pts_time"]) for p in ffprobe(name, "packets")],
                 "aspect": (stream := ffprobe(name, "streams")[0])["sample_aspect_ratio"],
                 "rotation": stream["side_data_list"][0]["rotation"]} for name in ("in.mp4", "out.mp4")]
        self.assertGreater(told[0]["times"][5] - told[0]["times"][4], 0.3)
        self.assertAlmostEqual(max(abs(a - b) for a, b in zip(sorted(told[0].pop("times")), sorted(told[1].pop("times")))),
                               0, delta=1e-3)
        self.assertEqual(*told)

    def test_mode_none_passes_samples_on(self):
        self.convert(DEMO, "out.p010", "--mode", "none", "--frames", "0-3")
        self.assertEqual(read("out.p010"), ffmpeg("-i", DEMO, "-frames:v", "4", "-f", "rawvideo", "-pix_fmt", "p010le", "-"))


if __name__ == "__main__":
    unittest.main()
