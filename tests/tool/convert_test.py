"""Conversions as a user runs them, compared with known values, with each other, and with what FFmpeg sees in them."""
import csv
import unittest
import unittest.mock

from lumivert_tool import *


def at_centres(kind, data):
    """The samples in the middle of each patch, as 8-bit or 10-bit codes."""
    words = memoryview(data).cast("H" if kind == "p010" else "B")
    for x, y in CENTRES:
        at = y * WIDTH + x
        places = range(4 * at, 4 * at + 3) if kind == "rgba" else (at, WIDTH * HEIGHT + y // 2 * WIDTH + x)
        yield [words[place] >> (6 if kind == "p010" else 0) for place in places]


class StaticTable(ToolTest):
    # Input and output codes of the two tables.
    TABLES = {1000: {64: 63, 300: 159, 400: 283, 600: 693}, 4000: {64: 63, 300: 166, 400: 262, 600: 577}}

    def test_luma_follows_the_table_of_the_mastering_peak_through_both_entries_and_pipes(self):
        for peak, table in self.TABLES.items():
            codes = list(table)
            picture = 2 * p010(8, 4, lambda x, y: (codes[x // 2], 512, 512))
            expected = 2 * p010(8, 4, lambda x, y: (table[codes[x // 2]], 512, 512))
            write("in.p010", picture)
            options = ("--size", "8x4", "--mode", "static", "--max-luminance", str(peak))
            for entry in ("pool", "retained"):
                lines = self.convert("in.p010", "out.p010", "--entry", entry, *options)
                self.assertIn(f"2 frames: the table for masters up to {peak} cd/m2", lines)
                self.assertEqual(read("out.p010"), expected, (peak, entry))
            piped, _ = self.lumivert("convert", "-", "-o", "-", "--as", "p010", *options, stdin=picture)
            self.assertEqual(piped, expected)

    def test_any_even_size_converts_as_the_corner_of_a_larger_picture(self):
        at = lambda x, y: ((37 * x + 91 * y) % 800 + 64, (53 * x + y) % 896 + 64, (11 * x + 7 * y) % 896 + 64)
        write_scenes("in.json", [scene()])
        for mode, kind, pixel in (("static", "p010", 2), ("hdr10plus", "rgba", 4)):
            options = ("--mode", mode, "--metadata", "in.json")
            rows = {}
            for width, height in ((64, 64), (2, 2), (34, 6), (62, 38)):
                write("in.p010", p010(width, height, at))
                self.convert("in.p010", "out." + kind, "--size", f"{width}x{height}", *options)
                out, length = read("out." + kind), width * pixel
                for y in range(height):
                    row = out[y * length:(y + 1) * length]
                    self.assertEqual(row, rows.setdefault(y, row)[:length], (mode, width, height, y))


class Hdr10Plus(ToolTest):
    def setUp(self):
        super().setUp()
        write("in.p010", patches())
        write_scenes("in.json", [scene()])
        self.size = ("--size", f"{WIDTH}x{HEIGHT}")
        self.raw = (*self.size, "--metadata", "in.json")

    def test_a_default_converts_as_the_record_that_says_the_same_through_both_entries(self):
        bright = {"Anchors": [1023, 700, 850, 920, 950, 980, 1005, 1010, 1020], "KneePointX": 20, "KneePointY": 320}
        write_scenes("bright.json", [scene(BezierCurveData=bright, LuminanceParameters={"MaxScl": 3 * [40000]})])
        for record, luminances in (("in.json", ()), ("bright.json", ("--max-luminance", "4000")),
                                   ("in.json", ("--max-luminance", "4000", "--max-cll", "800"))):
            # The default for bright masters has an anchor that falls, which a list of records should not.
            self.convert("in.p010", record + ".rgba", *self.size, "--metadata", record,
                         status=DIFFERENT if record == "bright.json" else DONE)
            for entry in ("pool", "retained"):
                lines = self.convert("in.p010", "out.rgba", *self.size, "--mode", "hdr10plus", "--metadata", "none",
                                     "--entry", entry, *luminances)
                self.assertIn("all used the default", lines)
                self.assertEqual(read("out.rgba"), read(record + ".rgba"), (luminances, entry))
        self.assertNotEqual(read("in.json.rgba"), read("bright.json.rgba"))

    def test_video_shows_the_samples_of_the_converter(self):
        """RGBA in the colours that its tags give; other samples untouched."""
        for options, kind, name, codec, tolerance in (
                (("--format", "rgba"), "rgba", "out.mp4", "h264", 4),
                (("--format", "rgba", "--codec", "hevc"), "rgba", "out.mkv", "hevc", 4),
                ((), "nv12", "out.mp4", "h264", 2),
                (("--mode", "static"), "p010", "out.mp4", "hevc", 6)):
            self.convert("in.p010", "out." + kind, *options, *self.raw)
            self.convert("in.p010", name, "--quality", "4", *options, *self.raw)
            stream = ffprobe(name, "streams")[0]
            self.assertEqual([stream[key] for key in ("codec_name", "color_range", "color_space", "color_transfer",
                                                      "color_primaries")], [codec, "tv"] + 3 * ["bt709"])
            scale = f"scale=out_range={'pc' if kind == 'rgba' else 'tv'}"
            pixels = {"p010": "p010le"}.get(kind, kind)
            shown = ffmpeg("-i", name, "-vf", scale + ":flags=accurate_rnd+full_chroma_int+full_chroma_inp",
                           "-f", "rawvideo", "-pix_fmt", pixels, "-")
            for place, *patch in zip(CENTRES, at_centres(kind, shown), at_centres(kind, read("out." + kind))):
                for decoded, expected in zip(*patch):
                    self.assertAlmostEqual(decoded, expected, delta=tolerance, msg=(name, kind, place))

    def test_a_grey_ramp_comes_back_as_the_converter_wrote_it(self):
        """Steps from black to white, through every kind of file: the converter's luma, read as limited range."""
        codes = range(64, 944, 8)
        width = 8 * len(codes)
        write("ramp.p010", p010(width, 16, lambda x, y: (codes[x // 8], 512, 512)))
        raw = ("--size", f"{width}x16", "--mode", "hdr10plus", "--metadata", "in.json")
        self.convert("ramp.p010", "own.nv12", *raw)
        row = read("own.nv12")[8 * width:9 * width]
        own = [row[8 * i + 4] for i in range(len(codes))]
        # The curve's own account of the chain agrees with what the GPU did.
        self.lumivert("curve", "in.json", "-o", "chain.csv")
        chain = {int(r["code_in"]): r for r in csv.DictReader(read("chain.csv").decode().splitlines())}
        for code, luma in zip(codes, own, strict=True):
            self.assertAlmostEqual(int(chain[code]["code_out"]), luma, delta=1)
        for name in ("out.mp4", "out.mkv", "out.y4m", "out.png"):
            quality = ("--quality", "1") if name[-1] in "4v" else ()
            self.convert("ramp.p010", name, *quality, *raw)
            stream = ffprobe(name, "streams")[0]
            picture = ffmpeg("-i", name, "-f", "rawvideo", "-pix_fmt", "rgb24" if name == "out.png" else stream["pix_fmt"],
                             "-")
            if name == "out.png":
                expected = [min(max(round((luma - 16) * 255 / 219), 0), 255) for luma in own]
                found = [[picture[3 * (8 * width + 8 * i + 4) + c] for c in range(3)] for i in range(len(codes))]
            else:
                self.assertEqual(stream["color_range"], "tv")
                expected, found = own, [[picture[8 * width + 8 * i + 4]] for i in range(len(codes))]
            for got, wanted in zip(found, expected, strict=True):
                for value in got:
                    self.assertAlmostEqual(value, wanted, delta=2, msg=name)

    def test_each_frame_gets_its_record(self):
        flat = scene(BezierCurveData={"Anchors": [100 * k for k in range(1, 10)], "KneePointX": 0, "KneePointY": 0})
        frame_bytes = WIDTH * HEIGHT * 3 // 2
        write("in.p010", 6 * patches())
        cases = [([scene(), flat] * 3, DONE, "6 with HDR10+", "ababab"),
                 ([scene(SequenceFrameIndex=1), flat | {"SequenceFrameIndex": 3}], DIFFERENT,
                  "2 with HDR10+, 3 without one used the record before, 1 before the first record used the default",
                  "daabbb"),
                 ([scene()] + 6 * [flat], DIFFERENT, "7 records for 6 frames: 1 not used", "abbbbb")]
        frames = {}
        for scenes, status, line, expected in cases:
            write_scenes("in.json", scenes)
            self.assertIn(line, self.convert("in.p010", "out.nv12", *self.raw, status=status))
            out = read("out.nv12")
            for i, kind in enumerate(expected):
                frame = out[i * frame_bytes:(i + 1) * frame_bytes]
                self.assertEqual(frames.setdefault(kind, frame), frame, (line, i))
        self.assertNotEqual(frames["a"], frames["b"])
        self.convert("in.p010", "out.nv12", *self.raw, "--frames", "0-2")  # nobody misses the records after a part

    def test_frames_and_interval_pick_frames(self):
        self.convert(DEMO, "all.nv12", "--frames", "0-11")
        frame = 640 * 360 * 3 // 2
        everything = read("all.nv12")
        for options, numbers in ((("--frames", "5-7"), (5, 6, 7)), (("--frames", "0-11", "--interval", "4"), (0, 4, 8))):
            self.convert(DEMO, "some.nv12", *options)
            self.assertEqual(read("some.nv12"), b"".join(everything[i * frame:(i + 1) * frame] for i in numbers))
        self.convert(DEMO, "some.y4m", "--frames", "0-4", "--interval", "4")
        self.assertIn(b" F6:1 ", read("some.y4m")[:100])  # a quarter of the clip's rate


class Outputs(ToolTest):
    def test_stills_and_y4m_show_the_converted_frames(self):
        for kind, pixels, target, options in (("rgba", "rgba", "out-%03d.png", ("--format", "rgba")),
                                              ("p010", "p010le", "out.y4m", ("--mode", "static"))):
            self.convert(DEMO, "out." + kind, *options, "--frames", "35-36")
            self.convert(DEMO, target, *options, "--frames", "35-36")
            first = ("-start_number", "35") if "%" in target else ()
            self.assertEqual(ffmpeg(*first, "-i", target, "-f", "rawvideo", "-pix_fmt", pixels, "-"),
                             read("out." + kind))
        self.assertOnlyFiles("out-035.png", "out-036.png", "out.p010", "out.rgba", "out.y4m")

    def test_names_and_what_is_told(self):
        ffmpeg("-i", DEMO, "-frames:v", "1", "-c", "copy", "A.MP4")
        self.assertIn("1 frame in ", self.convert("A.MP4", "out.mov"))  # not a time per frame, with start-up in it
        self.assertEqual(self.convert("A.MP4", "out/", "-q"), "")
        self.assertEqual(os.listdir("out"), ["A.MP4"])
        for name, brand in (("out.mov", b"qt  "), ("out/A.MP4", b"isom")):
            self.assertEqual(read(name)[4:12], b"ftyp" + brand)

    def test_mode_none_passes_samples_on(self):
        self.convert(DEMO, "out.p010", "--mode", "none", "--frames", "0-3")
        self.assertEqual(read("out.p010"), ffmpeg("-i", DEMO, "-frames:v", "4", "-f", "rawvideo", "-pix_fmt", "p010le", "-"))

    def test_times_rotation_and_aspect_stay(self):
        ffmpeg("-i", DEMO, "-frames:v", "8", "-c", "copy", "-aspect", "4:3",
               "-bsf:v", "setts=ts=TS+4096*gt(N\\,4)", "in.mp4")  # with a gap after the fifth frame
        write("in.mp4", turned(read("in.mp4")))
        self.convert("in.mp4", "out.mp4")
        told = [{"times": sorted(float(p["pts_time"]) for p in ffprobe(name, "packets")),
                 "aspect": (stream := ffprobe(name, "streams")[0])["sample_aspect_ratio"],
                 "rotation": stream["side_data_list"][0]["rotation"]} for name in ("in.mp4", "out.mp4")]
        before, after = (told_of.pop("times") for told_of in told)
        self.assertGreater(before[5] - before[4], 0.3)
        for time, expected in zip(after, before, strict=True):
            self.assertAlmostEqual(time, expected, delta=1e-3)
        self.assertEqual(*told)

    def test_matroska_and_stills_hold_turned_clips_upright(self):
        ffmpeg("-i", DEMO, "-frames:v", "2", "-c", "copy", "in.mp4")
        write("in.mp4", turned(read("in.mp4")))
        self.assertEqual(json.loads(self.lumivert("probe", "in.mp4", "--json")[0])["rotation"], 90)
        for name, options in (("out.mkv", ()), ("out.png", ("--frames", "0"))):
            self.convert("in.mp4", name, *options)
            stream = ffprobe(name, "streams")[0]
            self.assertEqual((stream["width"], stream["height"]), (360, 640), name)

    def test_records_that_begin_after_the_look_ahead(self):
        clip_with_records("in.hevc", 17 * [None] + 3 * [record(1000)])
        for options in ((), ("--frames", "19")):
            lines = self.convert("in.hevc", "out.p010", *options, status=DIFFERENT)
            self.assertRegex(lines, r"frame 17\b.*--mode hdr10plus")
        lines = self.convert("in.hevc", "out.nv12", "--mode", "hdr10plus", "--frames", "0-3", status=DIFFERENT)
        self.assertIn("there is no HDR10+ metadata in in.hevc up to where this part ends\n", lines)
        text, _ = self.lumivert("probe", "in.hevc", status=DIFFERENT)
        self.assertRegex(text.decode(), r"warning +HDR10\+ metadata begins with frame 17\b")

    def test_other_tracks_come_along_and_no_hdr_stays(self):
        write("s.srt", b"1\n00:00:01,200 --> 00:00:02,500\nHello\n")
        write("c.txt", b";FFMETADATA1\ntitle=A title\n[CHAPTER]\nTIMEBASE=1/1000\nSTART=1000\nEND=3000\ntitle=Two\n")
        ffmpeg("-i", DEMO, "-f", "lavfi", "-i", "sine=d=3", "-i", "s.srt", "-i", "c.txt", "-map", "0:v", "-map", "1:a",
               "-map", "2:s", "-map_metadata", "3", "-map_chapters", "3", "-c:v", "copy", "-c:a", "aac", "-c:s", "srt",
               "-metadata:s:a", "language=deu", "-attach", "c.txt", "-metadata:s:t", "mimetype=text/plain", "in.mkv")
        for name, part, kinds, left_out in (
                ("out.mkv", ("--from", "1", "--to", "00:00:02"), ["video", "audio", "subtitle", "attachment"], None),
                ("out.mp4", ("--frames", "24-47"), ["video", "audio"], "not copied: subtitle track 2 (subrip), attachment")):
            lines = self.convert("in.mkv", name, *part)
            self.assertIn(left_out or "24 frames", lines)
            told = json.loads(subprocess.run(["ffprobe", "-v", "error", "-show_streams", "-show_chapters", "-show_format",
                                              "-of", "json", name], check=True, stdout=subprocess.PIPE).stdout)
            streams = [s for s in told["streams"] if s["codec_type"] != "data"]  # MP4 keeps chapters in one
            self.assertEqual([s["codec_type"] for s in streams], kinds)
            self.assertEqual((streams[1]["tags"]["language"], told["format"]["tags"]["title"]), ("deu", "A title"))
            self.assertEqual([(c["tags"]["title"], float(c["end_time"])) for c in told["chapters"]], [("Two", 1)])
            self.assertLess(abs(float(streams[0]["start_time"])), 0.05)  # the part begins at 0
            self.assertLess(float(told["format"]["duration"]), 1.6)
            self.assertEqual(hdr_messages(name), [])

    def test_short_clips_do_not_depend_on_what_memory_held(self):
        """x265 takes the decode times of one or two pictures from memory it never set; glibc fills it on request."""
        for fill in ("1", "254"):
            with unittest.mock.patch.dict(os.environ, MALLOC_PERTURB_=fill):
                for frames in (1, 2, 3):
                    write("in.p010", bytes(frames * 64 * 64 * 3))
                    for name, rate, codec in (("out.mp4", "1000", "hevc"), ("out.mkv", "25", "hevc"),
                                              ("out.mp4", "25", "h264"), ("out.mkv", "1000", "h264")):
                        self.convert("in.p010", name, "--size", "64x64", "--mode", "static", "--rate", rate, "--codec",
                                     codec)
                        self.assertEqual(len(ffprobe(name, "packets")), frames)

    def test_many_clips_in_one_go(self):
        ffmpeg("-i", DEMO, "-frames:v", "3", "-c", "copy", "a.mp4")
        ffmpeg("-i", DEMO, "-frames:v", "2", "-c", "copy", "b.mkv")
        text, lines = self.lumivert("convert", "a.mp4", "missing.mp4", "b.mkv", "-o", "out/", "--json", status=FAILED)
        self.assertEqual(sorted(os.listdir("out")), ["a.mp4", "b.mkv"])
        self.assertEqual([c["status"] for c in json.loads(text)["clips"]], [DONE, FAILED, DONE])
        self.assertEqual(lines.count("\n"), 3)
        self.assertIn("exists already", self.convert("a.mp4", "out/a.mp4", "-n"))


if __name__ == "__main__":
    unittest.main()
