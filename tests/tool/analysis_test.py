"""What the tool tells about clips and metadata, compared with what ffprobe tells, and with itself the other way round."""
import csv
import io
import json
import math
import unittest
import xml.etree.ElementTree

from lumivert_tool import *


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
        self.lumivert("metadata", DEMO, "-o", "demo.json")
        document = json.loads(read("demo.json"))
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

    def test_reading_back_gives_the_same_records(self):
        text, _ = self.lumivert("metadata", DEMO, "-o", "-")
        write("demo.json", text)
        self.convert(DEMO, "own.nv12", "--frames", "20-27")
        self.convert(DEMO, "read.nv12", "--frames", "20-27", "--metadata", "demo.json")
        self.lumivert("compare", "own.nv12", "read.nv12", "--size", "640x360")
        for source in (DEMO, "demo.json"):
            self.lumivert("curve", source, "--all", "-o", source[-4:] + ".csv")
        self.assertEqual(read(".mp4.csv"), read("json.csv"))

    def test_oddities_are_read_and_nonsense_is_refused_with_its_place(self):
        odd = scene(Unknown={"x": [1]}, BezierCurveData={"Anchors": [], "KneePointX": 0, "KneePointY": 0})
        write_scenes("odd.json", [odd, {k: v for k, v in scene().items() if k != "BezierCurveData"}])
        self.lumivert("curve", "odd.json", "--all", "-o", "odd.csv")
        luminance = {"LuminanceDistributions": {"DistributionIndex": [1, 2], "DistributionValues": [1]}}
        for name, document, message in (
                ("text", b"no JSON", "not JSON: parse error at line 1"),
                ("empty", b'{"SceneInfo": []}', "there is no SceneInfo list with entries"),
                ("list", b"[1, 2]", "there is no SceneInfo list with entries"),
                ("lengths", [scene(), scene(LuminanceParameters=luminance)], "SceneInfo entry 1: DistributionIndex and"),
                ("many", [scene(BezierCurveData={"Anchors": 16 * [1]})], "SceneInfo entry 0: Anchors is not an array"),
                ("negative", [scene(TargetedSystemDisplayMaximumLuminance=-1)], "Luminance -1 does not fit")):
            with self.subTest(name):
                write("bad.json", document) if isinstance(document, bytes) else write_scenes("bad.json", document)
                _, lines = self.lumivert("curve", "bad.json", "-o", "c.csv", status=FAILED)
                self.assertIn("bad.json: ", lines)
                self.assertIn(message, lines)


class Probe(ToolTest):
    def test_facts_of_the_demo_clip(self):
        text, _ = self.lumivert("probe", DEMO, "--json")
        facts = json.loads(text)
        self.assertEqual((facts["width"], facts["height"], facts["frames"], facts["bits"], facts["transfer"],
                          facts["primaries"], facts["range"]), (640, 360, 72, 10, "smpte2084", "bt2020", "limited"))
        self.assertEqual(facts["mastering"], {"peak_cd_m2": 4000, "black_cd_m2": 0.005})
        side_data = {d["side_data_type"]: d for d in ffprobe(DEMO, "frames")[0]["side_data_list"]}
        light = side_data["Content light level metadata"]
        self.assertEqual(list(facts["content_light"].values()), [light["max_content"], light["max_average"]])
        plus = facts["hdr10plus"]
        self.assertEqual((plus["profile"], plus["frames_with_record"], plus["frames_without_record"]), ("B", 72, 0))
        self.assertEqual(plus["targets"], [{"display_cd_m2": 400, "frames": 72}])
        self.assertEqual(facts["warnings"], [])

    def test_warnings(self):
        clip("bare.mp4", "64x64")
        clip("sdr.mp4", "64x64", transfer="bt709", pixels="yuv420p")
        for name, warnings in (("bare.mp4", ["PQ without any metadata"]), ("sdr.mp4", ["not PQ", "8-bit samples"])):
            text, _ = self.lumivert("probe", name, "--json", status=DIFFERENT)
            for expected, warning in zip(warnings, json.loads(text)["warnings"], strict=True):
                self.assertIn(expected, warning)


class Field(ToolTest):
    """Clips as they come in the field: records that begin late, change kind, or say nothing."""
    CURVE = {"knee": (100, 400), "anchors": [100 * k for k in range(1, 10)]}

    def summary(self, records, status):
        clip_with_records("in.hevc", records)
        facts = json.loads(self.lumivert("probe", "in.hevc", "--json", status=status)[0])
        return facts["hdr10plus"], facts["warnings"]

    def test_records_that_begin_late_stay_until_replaced(self):
        first, second = record(1000, **self.CURVE), record(600, **self.CURVE)
        plus, warnings = self.summary([None, None, first, None, None, second, None, None], DONE)
        self.assertEqual((plus["first_frame"], plus["frames_with_record"], plus["frames_without_record"],
                          plus["distinct_records"], warnings), (2, 6, 2, 2, []))
        lines = self.convert("in.hevc", "out.mp4")
        self.assertIn("8 frames: 6 with HDR10+, 2 before the first record used the default", lines)
        lines = self.lumivert("metadata", "in.hevc", "-o", "out.json", status=DIFFERENT)[1]
        self.assertIn("2 frames without a record; the list leaves them out", lines)
        scenes = json.loads(read("out.json"))["SceneInfo"]
        self.assertEqual([s["SequenceFrameIndex"] for s in scenes], list(range(2, 8)))
        self.assertEqual([s["LuminanceParameters"]["MaxScl"][0] for s in scenes], 3 * [10000] + 3 * [6000])
        # Read back, the list gives every frame the same record again.
        self.convert("in.hevc", "own.nv12")
        self.convert("in.hevc", "read.nv12", "--metadata", "out.json", status=DIFFERENT)
        self.assertEqual(read("own.nv12"), read("read.nv12"))

    def test_profiles_in_one_clip(self):
        plus, _ = self.summary([record(1000, **self.CURVE), record(1000), record(1000)], DONE)
        self.assertEqual(plus["profile"], "A and B mixed")
        self.lumivert("metadata", "in.hevc", "-o", "out.json")
        self.assertEqual(["BezierCurveData" in s for s in json.loads(read("out.json"))["SceneInfo"]],
                         [True, False, False])

    def test_a_flag_without_anchors(self):
        plus, warnings = self.summary(2 * [record(1000, knee=(0, 0), anchors=[])], DIFFERENT)
        self.assertEqual(plus["profile"], "B")
        self.assertEqual(warnings, ["a tone-mapping flag with no anchors: 2 frames, the first 0"])
        self.lumivert("metadata", "in.hevc", "-o", "out.json")
        self.assertEqual(json.loads(read("out.json"))["SceneInfo"][0]["BezierCurveData"],
                         {"Anchors": [], "KneePointX": 0, "KneePointY": 0})
        self.convert("in.hevc", "out.nv12")


class Curve(ToolTest):
    def test_values_end_at_the_display_and_match_the_identity_where_the_scene_fits_it(self):
        bright = scene(LuminanceParameters={"MaxScl": [40000] * 3})
        dim = scene(LuminanceParameters={"MaxScl": [2000] * 3}, TargetedSystemDisplayMaximumLuminance=400)
        write_scenes("in.json", [bright, dim])
        self.lumivert("curve", "in.json", "--all", "-o", "out.csv")
        rows = list(csv.DictReader(io.StringIO(read("out.csv").decode())))
        self.assertEqual(len(rows), 2 * 256)
        for frame, peak in (("0", 4000), ("1", 250)):
            curve = [(float(r["input_cd_m2"]), float(r["output_cd_m2"])) for r in rows if r["frame"] == frame]
            self.assertEqual(curve[-1], (peak, 250))
            self.assertEqual(curve, sorted(curve))
        for row in rows[256:]:  # 200 cd/m2 on a display of 250: nothing to map
            self.assertAlmostEqual(float(row["output_cd_m2"]), float(row["input_cd_m2"]), delta=0.01)

    def test_pictures_are_whole(self):
        for options, kind in ((("--frame", "36"), "png"), (("--all",), "png"), ((), "svg"), (("--all",), "svg")):
            self.lumivert("curve", DEMO, *options, "-o", "c." + kind)
            if kind == "svg":
                self.assertTrue(xml.etree.ElementTree.parse("c.svg").getroot().tag.endswith("svg"))
            else:
                self.assertEqual(ffprobe("c.png", "streams")[0]["width"], 1280)
        _, lines = self.lumivert("curve", DEMO, "--frame", "72", "-o", "c.png", status=FAILED)
        self.assertIn("has no frame 72, only 72 frames", lines)


class Compare(ToolTest):
    def test_differences_are_found_where_they_are(self):
        frame = bytearray(64 * 32 * 3 // 2)
        write("a.nv12", 3 * frame)
        frame[64 * 10 + 20] = 7                # luma (20, 10)
        frame[64 * 32 + 64 * 5 + 2 * 9 + 1] = 2  # Cr (9, 5)
        write("b.nv12", bytes(len(frame)) + frame + bytes(len(frame)))
        compare = lambda *options, **more: self.lumivert("compare", "a.nv12", "b.nv12", "--size", "64x32", *options,
                                                          **more)
        text, _ = compare("--json", "-o", "d.png", status=DIFFERENT)
        result = json.loads(text)
        self.assertEqual((result["first_differing_frame"], result["frames"]), (1, [3, 3]))
        y, cb, cr = result["planes"]
        self.assertEqual((y["largest_difference"], y["at"]), (7, {"frame": 1, "x": 20, "y": 10}))
        self.assertAlmostEqual(y["psnr_db"], 10 * math.log10(255 ** 2 * 3 * 64 * 32 / 49), places=6)
        self.assertEqual((cb["largest_difference"], cb["psnr_db"]), (0, None))
        self.assertEqual((cr["largest_difference"], cr["at"]), (2, {"frame": 1, "x": 9, "y": 5}))
        grey = ffmpeg("-i", "d.png", "-f", "rawvideo", "-pix_fmt", "gray", "-")
        self.assertEqual(grey[64 * 10 + 20], 255)
        self.assertEqual(sum(1 for value in grey if value), 2)
        self.assertIn("frame that differs by more than 6: 1", compare("--tolerance", "6", status=DIFFERENT)[0].decode())
        compare("--tolerance", "7", status=DONE)

    def test_lengths_and_kinds_matter(self):
        for name, size in (("a.nv12", 2), ("b.nv12", 3), ("c.p010", 2 * 2)):
            write(name, bytes(size * 16 * 16 * 3 // 2))
        _, lines = self.lumivert("compare", "a.nv12", "b.nv12", "--size", "16x16", status=DIFFERENT)
        self.assertIn("a.nv12 has 2 frames, b.nv12 3", lines)
        _, lines = self.lumivert("compare", "a.nv12", "c.p010", "--size", "16x16", status=FAILED)
        self.assertIn("samples differ in kind", lines)


class Devices(ToolTest):
    def test_one_device_is_used_and_the_choice_is_checked(self):
        devices = json.loads(self.lumivert("devices", "--json")[0])["devices"]
        self.assertEqual(sum(d["used"] for d in devices), 1)
        for device in devices:
            chosen = json.loads(self.lumivert("devices", "--json", "--device", device["number"])[0])["devices"]
            self.assertEqual([d["number"] for d in chosen if d["used"]], [device["number"]])
        _, lines = self.lumivert("devices", "--device", "no such device", status=FAILED)
        self.assertIn("no OpenCL device matches 'no such device'", lines)


if __name__ == "__main__":
    unittest.main()
