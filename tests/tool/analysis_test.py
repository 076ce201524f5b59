"""What the tool tells about clips and metadata, compared with what ffprobe tells, and with itself the other way round."""
import csv
import io
import json
import unittest
import xml.etree.ElementTree

from lumivert_tool import *
import pq_video


def records_of(path):
    """The HDR10+ records of a clip as ffprobe tells them, in the form of the metadata files."""
    numerators = lambda values: [int(value.split("/")[0]) for value in values]
    for frame in ffprobe(path, "frames"):
        data = next(d for d in frame["side_data_list"] if "HDR10+" in d["side_data_type"])
        knee_x, knee_y, average, target = numerators([data["knee_point_x"], data["knee_point_y"], data["average_maxrgb"],
                                                      data["targeted_system_display_maximum_luminance"]])
        yield {"BezierCurveData": {"Anchors": numerators(data["bezier_curve_anchors"]), "KneePointX": knee_x,
                                   "KneePointY": knee_y},
               "LuminanceParameters": {
                   "AverageRGB": average, "MaxScl": numerators(data["maxscl"]),
                   "LuminanceDistributions": {
                       "DistributionIndex": data["distribution_maxrgb_percentage"],
                       "DistributionValues": numerators(data["distribution_maxrgb_percentile"])}},
               "NumberOfWindows": 1, "TargetedSystemDisplayMaximumLuminance": target}


class Metadata(ToolTest):
    def test_extraction_agrees_with_ffprobe_on_every_frame(self):
        text, _ = self.lumivert("metadata", DEMO, "-o", "-")
        document = json.loads(text)
        self.assertEqual(document["JSONInfo"], {"HDR10plusProfile": "B", "Version": "1.0"})
        of_the_scene = ("SceneFrameIndex", "SceneId", "SequenceFrameIndex")
        extracted = [{key: value for key, value in s.items() if key not in of_the_scene} for s in document["SceneInfo"]]
        self.assertEqual(extracted, list(records_of(DEMO)))
        summary = document["SceneInfoSummary"]
        self.assertEqual(sum(summary["SceneFrameNumbers"]), 72)
        for first, length in zip(summary["SceneFirstFrameIndex"], summary["SceneFrameNumbers"]):
            run = document["SceneInfo"][first:first + length]
            self.assertEqual([s["SceneFrameIndex"] for s in run], list(range(length)))
            self.assertTrue(all(s["LuminanceParameters"] == run[0]["LuminanceParameters"] for s in run))

    def test_oddities_are_read_and_nonsense_is_refused_with_its_place(self):
        odd = scene(Unknown={"x": [1]}, BezierCurveData={"Anchors": [], "KneePointX": 0, "KneePointY": 0})
        write_scenes("odd.json", [odd, {k: v for k, v in scene().items() if k != "BezierCurveData"}])
        self.lumivert("curve", "odd.json", "--all", "-o", "odd.csv")
        luminance = {"LuminanceDistributions": {"DistributionIndex": [1, 2], "DistributionValues": [1]}}
        for scenes, message in (
                ([], "there is no SceneInfo list with entries"),
                ([scene(SequenceFrameIndex=4000000000)], "has more than the 250000 frames"),
                ([scene(), scene(LuminanceParameters=luminance)], "SceneInfo entry 1: DistributionIndex and"),
                ([scene(BezierCurveData={"Anchors": 16 * [1]})], "SceneInfo entry 0: Anchors is not an array"),
                ([scene(TargetedSystemDisplayMaximumLuminance=-1)], "Luminance -1 does not fit")):
            write_scenes("bad.json", scenes)
            _, lines = self.lumivert("curve", "bad.json", "--all", "-o", "c.csv", status=FAILED)
            self.assertIn("bad.json: ", lines)
            self.assertIn(message, lines)


class Probe(ToolTest):
    def facts(self, name, status=DONE):
        return json.loads(self.lumivert("probe", name, "--json", status=status)[0])

    def test_facts_of_the_demo_clip(self):
        facts = self.facts(DEMO)
        self.assertEqual((facts["width"], facts["height"], facts["frames"], facts["bits"], facts["transfer"],
                          facts["primaries"], facts["range"]), (640, 360, 72, 10, "smpte2084", "bt2020", "limited"))
        self.assertEqual(facts["mastering"], {"peak_cd_m2": 4000, "black_cd_m2": 0.005, "primaries": "bt2020"})
        side_data = {d["side_data_type"]: d for d in ffprobe(DEMO, "frames")[0]["side_data_list"]}
        light = side_data["Content light level metadata"]
        self.assertEqual(list(facts["content_light"].values()), [light["max_content"], light["max_average"]])
        self.assertEqual(facts["hdr10plus"]["targets"], [{"display_cd_m2": 400, "frames": 72}])
        self.assertEqual((facts["variable_frame_rate"], facts["duration_s"], facts["rotation"], facts["tracks"],
                          facts["warnings"]), (False, 3, 0, [], []))
        self.assertAlmostEqual(facts["bit_rate"], 8 * os.path.getsize(DEMO) / 3, delta=10)

    def test_facts_of_a_recording(self):
        write("s.srt", b"1\n00:00:01,200 --> 00:00:02,500\nHello\n")
        ffmpeg("-i", DEMO, "-f", "lavfi", "-i", "sine=d=4", "-i", "s.srt", "-map", "0:v", "-map", "1:a", "-map", "2:s",
               "-c:v", "copy", "-tag:v", "hvc1", "-c:a", "aac", "-c:s", "mov_text", "-metadata:s:a", "language=deu",
               "-metadata:s:s", "language=eng", "-bsf:v", "setts=ts=TS+4096*gt(N\\,4)", "in.mp4")
        write("in.mp4", with_dolby_vision(turned(read("in.mp4")), 8))
        facts = self.facts("in.mp4")
        self.assertEqual((facts["variable_frame_rate"], facts["dolby_vision_profile"], facts["duration_s"]), (True, 8, 4))
        self.assertEqual(facts["tracks"], [{"kind": "audio", "codec": "aac", "language": "deu"},
                                           {"kind": "subtitle", "codec": "mov_text", "language": "eng"}])
        [matrix] = [d for d in ffprobe("in.mp4", "streams")[0]["side_data_list"] if "rotation" in d]
        self.assertEqual(facts["rotation"] % 360, -matrix["rotation"] % 360)  # FFmpeg counts anticlockwise
        text = self.lumivert("probe", "in.mp4")[0].decode()
        for told in ("variable frame rate, shown turned by 90 degrees\n", "audio, aac, deu\n", "Dolby Vision profile 8"):
            self.assertIn(told, text)
        self.convert("in.mp4", "out.mp4", "--frames", "0-1")
        self.assertEqual((len(hdr_messages("in.mp4")), hdr_messages("out.mp4")), (4, []))

    def test_records_that_make_no_sense(self):
        curve = {"knee": (0, 0), "anchors": [100 * k for k in range(1, 10)]}
        points = [(1, 0), (5, 0), (10, 0), (50, 500)]
        odd = {"a curve for a display below 10 cd/m2": curve | {"made_for": 5},
               "a scene maximum below values of the distribution": {"points": [*points, (99, 20000)]},
               "an average above the last distribution value": {"points": points, "average": 600},
               "an average above the scene maximum": {"average": 20000},
               "anchors that fall": curve | {"anchors": [500, 400, 600]}}
        clip_with_records("in.hevc", [record(1000, **fields) for fields in odd.values()])
        expected = [f"{complaint}: 1 frame, the first {i}" for i, complaint in enumerate(odd)]
        self.assertEqual([line for line in self.facts("in.hevc", DIFFERENT)["warnings"]], expected)
        told = self.convert("in.hevc", "out.nv12", status=DIFFERENT).splitlines()
        self.assertEqual([line for line in told if "warning" in line],
                         ["lumivert: convert: warning: in.hevc: " + line for line in expected])

    def test_hdr10plus_in_av1_is_read_or_said_to_be_lost(self):
        """FFmpeg 7 hands it on, FFmpeg 5 does not."""
        for name in ("in.mp4", "in.mkv"):
            av1_clip(name, record(1000))
            status, line = ((DONE, "2 with HDR10+") if hdr_messages(name) else
                            (DIFFERENT, "does not hand on the HDR10+ metadata in AV1"))
            told = self.convert(name, "out.mp4", status=status)
            self.assertIn(line, told)
            self.assertNotIn("no HDR10+", told)
            self.assertEqual(hdr_messages("out.mp4"), [])
            facts = self.facts(name, status)
            if status == DONE:
                self.assertEqual(facts["hdr10plus"]["frames_with_record"], 2)
            else:
                [warning] = facts["warnings"]
                self.assertIn(line, warning)
                lines = self.lumivert("metadata", name, "-o", "out.json", status=FAILED)[1]
                self.assertEqual(lines, f"lumivert: metadata: {warning}\n")

    def test_what_will_surprise_is_told_by_convert_as_well(self):
        master = ":hdr10=1:master-display=G(8500,39850)B(6550,2300)R(35400,14600)WP(15635,16450)L(50000000,50)"
        for message, options in (("a mastering peak of 5000 cd/m2; it is beyond both", {"more": master}),
                                 ("full range; ", {"more": ":range=full"}),
                                 ("primaries smpte432; ", {"primaries": "smpte432"}),
                                 ("matrix bt709; ", {"more": ":colormatrix=bt709"})):
            clip("in.mp4", "64x64", **options)
            self.assertTrue([line for line in self.facts("in.mp4", DIFFERENT)["warnings"] if message in line], message)
            self.assertIn("warning: in.mp4: " + message, self.convert("in.mp4", "out.mp4", status=DIFFERENT))
        for code, status in ((500, DIFFERENT), (700, DONE)):  # 90 and 800 cd/m2
            write("in.p010", p010(64, 64, lambda x, y: (code, 512, 512)))
            lines = self.convert("in.p010", "out.nv12", "--size", "64x64", "--mode", "hdr10plus", "--metadata", "none",
                                 status=status)
            self.assertEqual("cd/m2 in frames that use the default record" in lines, status == DIFFERENT)

    def test_warnings(self):
        clip("bare.mp4", "64x64", seconds=0.04)
        self.assertFalse(self.facts("bare.mp4", DIFFERENT)["variable_frame_rate"])  # of one frame
        clip("sdr.mp4", "64x64", transfer="bt709", pixels="yuv420p")
        write("dim.mp4", with_mastering_peak(read("bare.mp4"), 0.5))
        for name, warnings in (("bare.mp4", ["PQ without any metadata"]), ("sdr.mp4", ["not PQ", "8-bit samples"]),
                               ("dim.mp4", ["a mastering peak of 0.5 cd/m2"])):
            for expected, warning in zip(warnings, self.facts(name, DIFFERENT)["warnings"], strict=True):
                self.assertIn(expected, warning)
        # What the stream says counts for more than what the container says.
        clip("both.mp4", "64x64", more=":master-display=G(8500,39850)B(6550,2300)R(35400,14600)WP(15635,16450)L(10000000,1)")
        write("both.mp4", with_mastering_peak(read("both.mp4"), 0.5))
        self.assertEqual(self.facts("both.mp4")["mastering"]["peak_cd_m2"], 1000)
        self.assertIn("there is no HDR10+ metadata in bare.mp4",
                      self.convert("bare.mp4", "out.nv12", "--mode", "hdr10plus", status=DIFFERENT))

    def test_records_that_begin_late_stay_until_replaced(self):
        curve = {"knee": (100, 400), "anchors": [100 * k for k in range(1, 10)]}
        first, second = record(1000, **curve), record(600, **curve)
        clip_with_records("in.hevc", [None, None, first, None, None, second, None, None])
        plus = self.facts("in.hevc")["hdr10plus"]
        self.assertEqual((plus["first_frame"], plus["frames_with_record"], plus["frames_without_record"],
                          plus["distinct_records"]), (2, 6, 2, 2))
        lines = self.convert("in.hevc", "own.nv12")
        self.assertIn("8 frames: 6 with HDR10+, 2 before the first record used the default", lines)
        lines = self.lumivert("metadata", "in.hevc", "-o", "out.json", status=DIFFERENT)[1]
        self.assertIn("2 frames without a record; the list leaves them out", lines)
        scenes = json.loads(read("out.json"))["SceneInfo"]
        self.assertEqual([s["SequenceFrameIndex"] for s in scenes], list(range(2, 8)))
        self.assertEqual([s["LuminanceParameters"]["MaxScl"][0] for s in scenes], 3 * [10000] + 3 * [6000])
        # Read back, the list gives every frame the same record again.
        self.convert("in.hevc", "read.nv12", "--metadata", "out.json", status=DIFFERENT)
        self.assertEqual(read("own.nv12"), read("read.nv12"))

    def test_records_that_change_kind_or_have_a_flag_without_anchors(self):
        clip_with_records("in.hevc", [record(1000, knee=(0, 0), anchors=[]), record(1000),
                                      record(1000, knee=(0, 0), anchors=[100, 200])])
        facts = self.facts("in.hevc", DIFFERENT)
        self.assertEqual(facts["hdr10plus"]["profile"], "A and B mixed")
        self.assertEqual(facts["warnings"], ["a tone-mapping flag with no anchors: 1 frame, the first 0",
                                             "fewer than 3 anchors: the converter ignores them: 1 frame, the first 2"])
        self.lumivert("metadata", "in.hevc", "-o", "out.json")
        self.assertEqual([s.get("BezierCurveData") for s in json.loads(read("out.json"))["SceneInfo"]],
                         [{"Anchors": [], "KneePointX": 0, "KneePointY": 0}, None,
                          {"Anchors": [100, 200], "KneePointX": 0, "KneePointY": 0}])
        self.assertIn("in.hevc: a tone-mapping flag with no anchors", self.convert("in.hevc", "out.nv12", status=DIFFERENT))


class Curve(ToolTest):
    def test_values_end_at_the_display_and_match_the_identity_where_the_scene_fits_it(self):
        bright = scene(LuminanceParameters={"MaxScl": [40000] * 3})
        dim = scene(LuminanceParameters={"MaxScl": [2000] * 3}, TargetedSystemDisplayMaximumLuminance=400)
        write_scenes("in.json", [bright, dim])
        self.lumivert("curve", "in.json", "--all", "-o", "out.csv")
        rows = list(csv.DictReader(io.StringIO(read("out.csv").decode())))
        for frame, peak in (("0", 4000), ("1", 250)):
            curve = [(float(r["input_cd_m2"]), float(r["curve_cd_m2"])) for r in rows if r["frame"] == frame]
            self.assertEqual(curve, sorted(curve))
            self.assertEqual(len(curve), 220)
            self.assertEqual({y for x, y in curve if x >= peak}, {250})
            self.assertTrue(all(y < 250 for x, y in curve if x < 0.9 * peak))
        for row in rows[220:]:  # 200 cd/m2 on a display of 250: nothing to map
            light = min(float(row["input_cd_m2"]), 250)
            self.assertAlmostEqual(float(row["curve_cd_m2"]), light, delta=0.01)

    def test_values_of_a_known_chain(self):
        """The converter's default for 1000 cd/m2 on its display of 250, measured on the GPU."""
        default = scene(LuminanceParameters={"MaxScl": [100000] * 3, "LuminanceDistributions": {
            "DistributionIndex": [1, 5, 10, 25, 50, 75, 90, 95, 99],
            "DistributionValues": [13, 0, 13, 322, 782, 1368, 7497, 8389, 10000]}})
        write_scenes("in.json", [default])
        self.lumivert("curve", "in.json", "-o", "out.csv")
        rows = {r["code_in"]: r for r in csv.DictReader(io.StringIO(read("out.csv").decode()))}
        for code, light, wanted, shown in (("508", 98.8, 77.3, 57.5), ("572", 201.5, 128.2, 101.5), ("720", 973, 248, 245)):
            for column, value in (("input_cd_m2", light), ("curve_cd_m2", wanted), ("output_cd_m2", shown)):
                self.assertAlmostEqual(float(rows[code][column]), value, delta=0.02 * value, msg=(code, column))

    def test_a_clip_without_records_gets_the_table_that_converts_it(self):
        codes = range(64, 941)
        raw = ("ramp.p010", "--size", f"{2 * len(codes)}x2")
        write("ramp.p010", p010(2 * len(codes), 2, lambda x, y: (codes[x // 2], 512, 512)))
        for source, options, master in ((raw, (), 1000), ((DEMO, "--mode", "static"), ("--max-luminance", "4000"), 4000)):
            self.convert(*raw[:1], "own.p010", *raw[1:], "--mode", "static", *options)
            own = memoryview(read("own.p010")).cast("H")
            self.lumivert("curve", *source, "-o", "out.csv")
            rows = list(csv.DictReader(io.StringIO(read("out.csv").decode())))
            self.assertEqual({int(r["table_cd_m2"]) for r in rows}, {master})
            self.assertEqual([(int(r["code_in"]), int(r["code_out"])) for r in rows],
                             [(code, own[2 * i] >> 6) for i, code in enumerate(codes)])
            middle = rows[512 - 64]
            self.assertAlmostEqual(float(middle["input_cd_m2"]), 103.4, delta=0.1)
            shown = 250 * ((int(middle["code_out"]) - 64) / 876) ** (1 / 0.45)
            self.assertAlmostEqual(float(middle["output_cd_m2"]), shown, delta=0.01)
        self.lumivert("curve", *raw, "--mode", "hdr10plus", "-o", "out.csv")
        self.assertIn(b"relative_gain", read("out.csv"))

    def test_the_histogram_is_that_of_the_frame(self):
        """Read back from the picture: the columns and heights of its bars."""
        left, right, top = 86, 850, pq_video.pq(1500)

        def bars(*arguments):
            self.lumivert("curve", *arguments, "-o", "c.png")
            picture = ffmpeg("-i", "c.png", "-f", "rawvideo", "-pix_fmt", "rgb24", "-")
            rows = range(3 * 1280 * 704, 3 * 1280 * 820, 3 * 1280)
            heights = [sum(picture[row + 3 * x:row + 3 * x + 3] == bytes((115, 122, 138)) for row in rows)
                       for x in range(left + 2, right - 2)]
            return [(left + 3 + i, bar) for i, (before, bar) in enumerate(zip(heights, heights[1:])) if bar and not before]
        write("in.p010", p010(64, 32, lambda x, y: (300 if x < 48 else 640, 512, 512)) +
              p010(64, 32, lambda x, y: (500, 512, 512)))
        for frame, codes in (("0", (300, 640)), ("1", (500,))):
            found = bars("in.p010", "--size", "64x32", "--frame", frame)
            for (x, _), code in zip(found, codes, strict=True):
                self.assertAlmostEqual(x, left + (right - left) * (code - 64) / 876 / top, delta=4)
            self.assertEqual(found, sorted(found, key=lambda bar: -bar[1]))  # the more pixels, the higher
        write_scenes("in.json", [scene()])
        self.lumivert("curve", "in.json", "-o", "c.png")
        self.assertLess(ffprobe("c.png", "streams")[0]["height"], 800)  # no pixels, no histogram

    def test_the_documented_table_of_greys_is_what_its_command_prints(self):
        root = os.path.join(DEMO_FOLDER, "..", "..", "..")
        command = [sys.executable, "-B", os.path.join(DEMO_FOLDER, "greys.py"), LUMIVERT]
        printed = subprocess.run(command, check=True, stdout=subprocess.PIPE).stdout.decode().splitlines()
        text = read(os.path.join(root, "docs", "tool.md")).decode().splitlines()
        first = text.index(printed[0])
        for found, documented in zip(printed[2:], text[first + 2:first + len(printed)], strict=True):
            values = [[float(cell) for cell in line.strip("|").split("|")] for line in (found, documented)]
            for now, then in zip(*values, strict=True):
                self.assertAlmostEqual(now, then, delta=0.03 + 0.05 * then, msg=documented)  # about a code

    def test_pictures_are_whole(self):
        for options in (("--frame", "36"), ("--all",)):
            for name in ("c.png", "c.svg"):
                self.lumivert("curve", DEMO, *options, "-o", name)
            self.assertEqual(ffprobe("c.png", "streams")[0]["width"], 1280)
            self.assertTrue(xml.etree.ElementTree.parse("c.svg").getroot().tag.endswith("svg"))
        _, lines = self.lumivert("curve", DEMO, "--frame", "72", "-o", "c.png", status=FAILED)
        self.assertIn("has no frame 72, only 72 frames", lines)
        clip("plain.mp4", "64x64")
        clip("hlg.mp4", "64x64", transfer="arib-std-b67")
        for name in ("c.png", "c.svg"):
            self.lumivert("curve", "plain.mp4", "--all", "-o", name)
        write_scenes("in.json", [scene()])
        for arguments, message in ((("plain.mp4", "--frame", "9"), "plain.mp4: has no frame 9"),
                                   (("hlg.mp4",), "not an HDR10 clip: its transfer is arib-std-b67"),
                                   (("in.json", "--mode", "static"), "mode static uses no metadata")):
            lines = self.lumivert("curve", *arguments, "-o", "none.png", status=FAILED)[1]
            self.assertIn(message, lines)
            self.assertEqual(lines.count("\n"), 1)
        self.assertFalse(os.path.exists("none.png"))


class Devices(ToolTest):
    def test_the_chosen_device_is_used(self):
        for number in [d["number"] for d in json.loads(self.lumivert("devices", "--json")[0])["devices"]]:
            chosen = json.loads(self.lumivert("devices", "--json", "--device", number)[0])["devices"]
            self.assertEqual([d["number"] for d in chosen if d["used"]], [number])


class Bench(ToolTest):
    def test_each_mode_is_timed_at_each_size_and_held_against_the_rates(self):
        document = json.loads(self.lumivert("bench", "--json", "--size", "64x32", "640x360", "--seconds", "0.1")[0])
        [used] = [d for d in json.loads(self.lumivert("devices", "--json")[0])["devices"] if d["used"]]
        self.assertEqual(document["device"]["name"], used["name"])
        self.assertEqual([(r["width"], r["height"], r["mode"]) for r in document["results"]],
                         [(*size, mode) for size in ((64, 32), (640, 360)) for mode in ("static", "hdr10plus")])
        for result in document["results"]:
            rate = result["frames_per_second"]
            self.assertAlmostEqual(rate * result["ms_per_frame"], 1000)
            self.assertGreater((result["frames"] + 1) * result["ms_per_frame"], 100)  # it ran that long
            self.assertEqual(result["keeps_up_with_fps"], {str(fps): rate >= fps for fps in (24, 30, 60)})


if __name__ == "__main__":
    unittest.main()
