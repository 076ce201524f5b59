"""Two pictures or clips compared, and look-up tables beside what they stand for."""
import json
import math
import unittest

from lumivert_tool import *
from measure_test import components
from pq_video import pq as make_clip_pq


class Compare(ToolTest):
    def test_differences_are_found_where_they_are(self):
        frame = bytearray(64 * 32 * 3 // 2)
        write("a.nv12", 3 * frame)
        frame[64 * 10 + 20] = 7                # luma (20, 10)
        frame[64 * 32 + 64 * 5 + 2 * 9 + 1] = 2  # Cr (9, 5)
        write("b.nv12", bytes(len(frame)) + 2 * frame)
        compare = lambda *options, **more: self.lumivert("compare", "a.nv12", "b.nv12", "--size", "64x32",
                                                         *options, **more)
        text, _ = compare("--json", "-o", "d.png", status=DIFFERENT)
        result = json.loads(text)
        self.assertEqual((result["first_differing_frame"], result["frames"]), (1, [3, 3]))
        y, cb, cr = result["planes"]
        self.assertEqual((y["largest_difference"], y["at"]), (7, {"frame": 1, "x": 20, "y": 10}))
        self.assertAlmostEqual(y["psnr_db"], 10 * math.log10(255 ** 2 * 3 * 64 * 32 / 98), places=6)
        self.assertEqual((cb["largest_difference"], cb["psnr_db"]), (0, None))
        self.assertEqual((cr["largest_difference"], cr["at"]), (2, {"frame": 1, "x": 9, "y": 5}))
        red = self.pixels("d.png", 64)
        self.assertEqual([red(20, 10), red(18, 10), red(21, 10)], [(179, 10, 38), (214, 124, 139), (255, 255, 255)])
        text = compare("--tolerance", "6", "-o", "d.png", status=DIFFERENT)[0].decode()
        self.assertIn("frame that differs by more than 6: 1\n  d.png shows frame 1;", text)
        compare("--tolerance", "7", status=DONE)

    def pixels(self, path, width):
        """The colour of a difference picture at a pixel of the frame, with the picture's enlargement undone."""
        zoom, size = 600 // width, ffprobe(path, "streams")[0]["width"]
        rgb = ffmpeg("-i", path, "-f", "rawvideo", "-pix_fmt", "rgb24", "-")
        return lambda x, y: tuple(rgb[3 * ((64 + y * zoom + zoom // 2) * size + 16 + x * zoom + zoom // 2):][:3])

    def compared(self, *arguments, status=DIFFERENT):
        return json.loads(self.lumivert("compare", *arguments, "--json", status=status)[0])

    def test_lengths_matter(self):
        for name, size in (("a.nv12", 2), ("b.nv12", 3)):
            write(name, bytes(size * 16 * 16 * 3 // 2))
        self.assertIn("a.nv12 has 2 frames, b.nv12 3",
                      self.lumivert("compare", "a.nv12", "b.nv12", "--size", "16x16", status=DIFFERENT)[1])
        found = self.compared("a.nv12", "b.nv12", "--size", "16x16", "--tolerance", "3")
        self.assertEqual((found["a"], found["b"], found["tolerance"], found["warnings"]),
                         ("a.nv12", "b.nv12", 3, ["a.nv12 has 2 frames, b.nv12 3"]))
        same = self.lumivert("compare", "a.nv12", "a.nv12", "--size", "16x16", "-o", "d.png", "--worst", "2")[0].decode()
        self.assertIn("no frame differs\n  d.png is not drawn\n", same)
        self.assertOnlyFiles("a.nv12", "b.nv12")

    def test_depths_and_files_of_other_kinds_are_brought_to_one_form(self):
        codes = lambda x, y: (4 * (20 + x), 4 * (90 + y), 4 * (100 + x))
        deep = p010(64, 32, codes)
        write("deep.p010", deep)
        write("flat.nv12", bytes(int.from_bytes(deep[i:i + 2], "little") >> 8 for i in range(0, len(deep), 2)))
        found = self.compared("flat.nv12", "deep.p010", "--size", "64x32", status=DONE)
        self.assertIn("yuv420p10le, SDR BT.709, limited range; the side of fewer bits scaled up", found["form"])
        write("in.p010", patches())
        raw = ("--size", f"{WIDTH}x{HEIGHT}")
        write_scenes("in.json", [scene()])
        for target in ("out.png", "out.mkv", "out.nv12"):
            self.convert("in.p010", target, *raw, "--metadata", "in.json", "--format", "nv12")
        for other, form in (("out.png", "RGB of 10 bits, SDR BT.709"), ("out.mkv", "yuv420p")):
            found = self.compared("out.nv12", other, *raw)
            self.assertEqual(found["form"], form)
            self.assertLess(found["delta_e_itp"]["mean"], 2, other)
        source = self.compared("in.p010", "out.nv12", *raw, "--untagged", "pq")
        self.assertEqual(source["form"], "yuv420p10le, PQ BT.2020, limited range; the side of fewer bits scaled up")
        self.convert("in.p010", "in.mkv", *raw, "--mode", "none", "--quality", "1")
        source = self.compared("in.mkv", "out.nv12", *raw)
        self.assertIn("with SDR as the light of a 250 cd/m2 display", source["form"])

    def test_colour_differences_are_those_of_the_recommendation(self):
        """Two colours in PQ, computed here by the formulas of ITU-R BT.2124 from their BT.2020 signals."""
        def itp(y, cb, cr):
            rgb = [v / 10000 for v in components(y, cb, cr)]
            weights = ((1688, 2146, 262), (683, 2951, 462), (99, 309, 3688))
            l, m, s = (make_clip_pq(10000 * sum(w * v for w, v in zip(row, rgb)) / 4096) for row in weights)
            return (l + m) / 2, (6610 * l - 13613 * m + 7003 * s) / 8192, (17933 * l - 17390 * m - 543 * s) / 4096
        for one, other in (((400, 512, 512), (404, 512, 512)), ((64, 512, 512), (68, 512, 512)),
                           (COLOURED[0], COLOURED[1]), (COLOURED[2], COLOURED[7])):
            write("a.p010", p010(32, 32, lambda x, y: one))
            write("b.p010", p010(32, 32, lambda x, y: other))
            found = self.compared("a.p010", "b.p010", "--size", "32x32", "--untagged", "pq")["delta_e_itp"]
            expected = 720 * math.dist(itp(*one), itp(*other))
            self.assertAlmostEqual(found["mean"], expected, delta=0.002 * expected + 0.02)
            self.assertAlmostEqual(found["percentile_99"], expected, delta=0.002 * expected + 0.03)

    def test_ssim_is_that_of_the_filter(self):
        write("in.p010", patches())
        raw = ("--size", f"{WIDTH}x{HEIGHT}")
        self.convert("in.p010", "a.nv12", *raw, "--mode", "hdr10plus", "--metadata", "none")
        self.convert("in.p010", "b.nv12", *raw, "--mode", "hdr10plus", "--metadata", "none", "--max-luminance", "4000")
        files = [part for name in ("a", "b") for part in ("-f", "rawvideo", "-pix_fmt", "nv12", "-s", raw[1], "-i", name + ".nv12")]
        lines = ffmpeg(*files, "-lavfi", "[0]format=yuv420p[a];[1]format=yuv420p[b];[a][b]ssim=f=-", "-f", "null", "-").decode()
        self.assertAlmostEqual(self.compared("a.nv12", "b.nv12", *raw)["ssim"], float(lines.split("All:")[1].split()[0]), delta=1e-5)

    def test_two_modes_of_a_clip(self):
        write("in.p010", 3 * patches())
        raw = ("--size", f"{WIDTH}x{HEIGHT}")
        self.convert("in.p010", "static.p010", *raw, "--mode", "static")
        self.convert("in.p010", "default.nv12", *raw, "--mode", "hdr10plus", "--metadata", "none")
        modes = self.compared("in.p010", *raw, "--modes", "static,default")
        files = self.compared("static.p010", "default.nv12", *raw)
        self.assertEqual(modes["planes"], files["planes"])
        self.assertEqual([side["name"] for side in modes["sides"]], ["static", "default"])
        text, _ = self.lumivert("compare", "in.p010", *raw, "--modes", "auto,none", "-o", "d.png", "--worst", "2",
                                status=DIFFERENT)
        self.assertIn("A is auto (static), B is none", text.decode())
        self.assertOnlyFiles("in.p010", "static.p010", "default.nv12", "d.png", "d-worst-1.png", "d-worst-2.png")
        rows = self.lumivert("compare", "in.p010", *raw, "--modes", "static,default", "--csv", status=DIFFERENT)[0].decode()
        self.assertEqual(len(rows.splitlines()), 4)

    def test_refusals(self):
        write("a.nv12", bytes(16 * 16 * 3 // 2))
        clip("hlg.mp4", "16x16", transfer="arib-std-b67")
        raw = ("a.nv12", "a.nv12", "--size", "16x16")
        for arguments, message in ((("a.nv12", "a.nv12"), "a.nv12: raw frames need their size"),
                                   (("a.nv12", "--size", "16x16"), "nothing to compare"),
                                   ((*raw, "-o", "missing/d.png"), "missing/d.png: No such file"),
                                   ((*raw, "--worst", "2"), "--worst numbers its pictures after -o"),
                                   (("hlg.mp4", "--modes", "auto,static"), "not an HDR10 clip"),
                                   (("a.nv12", "hlg.mp4", "--size", "16x16"), "HLG has no common form")):
            self.assertIn(message, self.lumivert("compare", *arguments, status=FAILED)[1])


class Cube(ToolTest):
    """3D LUTs, applied by FFmpeg to what the converter converts as well."""

    def test_a_lut_gives_the_converters_own_picture(self):
        # Greys in the middle of the steps of four codes that the converter tells apart: a LUT is smooth.
        ramp = lambda x, y: (4 * (16 + 219 * x // (WIDTH - 2)) + 2, 512, 512) if y < 32 else COLOURED[x // PATCH]
        write("in.p010", p010(WIDTH, HEIGHT, ramp))
        write_scenes("in.json", [scene()])
        clip("plain.mp4", "64x64")
        raw = ("--size", f"{WIDTH}x{HEIGHT}")
        for source, options, kind, bits in (("in.json", ("--metadata", "in.json"), "nv12", 8),
                                            ("plain.mp4", ("--mode", "static"), "p010", 10)):
            self.convert("in.p010", "out." + kind, *raw, *options)
            self.lumivert("curve", source, "-o", "look.cube", "--lut-size", "65")
            graph = ("scale=in_color_matrix=bt2020:in_range=tv:out_range=pc:flags=accurate_rnd+full_chroma_inp,"
                     "format=gbrp12le,lut3d=look.cube,format=gbrp12le")
            shown = memoryview(ffmpeg("-f", "rawvideo", "-pix_fmt", "p010le", "-s", raw[1], "-i", "in.p010", "-vf", graph,
                                      "-f", "rawvideo", "-pix_fmt", "gbrp12le", "-")).cast("H")
            out = memoryview(read("out." + kind)).cast("H" if bits == 10 else "B")
            unit = 4 if bits == 10 else 1
            for x, y in [(x, 16) for x in range(4, WIDTH - 4, 2)] + [(x, 48) for x in range(16, WIDTH, PATCH)]:
                at = y * WIDTH + x
                chroma = WIDTH * HEIGHT + y // 2 * WIDTH + x
                luma, cb, cr = ((out[i] >> (6 if bits == 10 else 0)) / unit for i in (at, chroma, chroma + 1))
                green, blue, red = (shown[plane * WIDTH * HEIGHT + at] / 4095 for plane in range(3))
                weighted = 0.2126 * red + 0.7152 * green + 0.0722 * blue
                found = (16 + 219 * weighted, 128 + 224 * (blue - weighted) / 1.8556, 128 + 224 * (red - weighted) / 1.5748)
                for code, expected in zip(found, (min(luma, 235), cb, cr)):  # a display clips there
                    self.assertAlmostEqual(code, expected, delta=2, msg=(kind, x, y))

    def test_files_say_what_they_are_and_refusals_leave_nothing(self):
        write_scenes("in.json", [scene()])
        self.lumivert("curve", "in.json", "-o", "look.cube", "--lut-size", "17")
        lines = read("look.cube").decode().splitlines()
        self.assertIn("LUT_3D_SIZE 17", lines)
        self.assertTrue(any("PQ, BT.2020" in line for line in lines))
        self.assertEqual(len([line for line in lines if line[0] in "-0123456789"]), 17 ** 3)
        os.remove("look.cube")
        for arguments, message in ((("--frame", "3"), "in.json: has no frame 3"), (("--all",), "a LUT holds one frame")):
            self.assertIn(message, self.lumivert("curve", "in.json", "-o", "look.cube", *arguments, status=FAILED)[1])
        self.assertOnlyFiles("in.json")


if __name__ == "__main__":
    unittest.main()
