"""The report as a reader meets it, in a browser."""
import base64
import contextlib
import pty
import re
import subprocess
import unittest

import browser
from lumivert_tool import *

BOX = "JSON.stringify((r => [r.left, r.top, r.width, r.height])(document.querySelector('%s').getBoundingClientRect()))"
CLIP = "document.querySelector('.wipe .over').style.clipPath"


class Report(ToolTest):
    def report(self, source, *options, status=DIFFERENT):
        lines = self.lumivert("report", source, "-o", "r.html", *options, status=status)[1]
        return read("r.html").decode(), lines

    def test_a_page_has_stills_tables_and_commands_and_needs_no_other_file(self):
        page, lines = self.report(DEMO)
        self.assertIn("72 frames, 3 scenes", lines)
        self.assertEqual(len(re.findall(r'<img [^>]*alt="Frame \d+, [^"]+" src="data:image/jpeg;base64,', page)), 9)
        self.assertEqual(re.findall(r'(?:src|href)="(?!data:|#)[^"]*"', page), [])
        self.assertNotIn("http", page.replace("http-equiv", "").replace("http://www.w3.org/2000/svg", ""))
        self.assertIn("maximum: 2 frames, the first 70", page)
        self.assertIn("peak 4000 cd/m\u00b2, black 0.005 cd/m\u00b2", page)
        self.assertLess(len(page), 5e6)
        for frames in ("frames 0 to 23", "frames 24 to 47", "frames 48 to 71"):
            self.assertIn(frames, page)
        self.run_commands(page, "--frames")
        self.assertOnlyFiles("r.html", "source.png", "sdr.png", "default.png")

    def run_commands(self, page, of_kind):
        """The commands on a page do what it says."""
        for command in re.findall("^lumivert (.*)$", re.search("<pre>(.*)</pre>", page, re.S).group(1), re.M):
            if of_kind in command:
                self.lumivert(*command.split())

    def test_a_page_that_would_be_too_large_has_fewer_stills_and_says_so(self):
        page, _ = self.report(DEMO, "--max-size", "0.2")
        self.assertLess(len(page), 2e5)
        self.assertIn("for 3 scenes: more would make the page too large", page)

    def test_jumps_of_the_curve_within_a_scene_are_listed(self):
        usual = record(1000, knee=(100, 400), anchors=[300, 500, 700, 850, 950])
        other = record(1000, knee=(100, 200), anchors=[100, 200, 400, 600, 800])
        clip_with_records("in.hevc", 5 * [usual] + [other] + 6 * [usual])
        page, lines = self.report("in.hevc", "--stills", "0")
        self.assertIn("12 frames, 1 scene, 2 jumps of the curve", lines)
        self.assertEqual(re.findall('data-frame="([0-9]+)"', page), ["5", "6"])

    def test_stills_of_a_turned_clip_are_upright(self):
        write("in.mp4", turned(read(DEMO)))
        page, _ = self.report("in.mp4", "--stills", "1")
        stills = re.findall(r'<img width="(\d+)" height="(\d+)" [^>]*base64,([^"]*)"', page)
        self.assertEqual([size[:2] for size in stills], 3 * [("360", "640")])
        write("still.jpg", base64.b64decode(stills[1][2]))
        self.convert("in.mp4", "still.png", "--frames", "11")

        def small(path):
            return ffmpeg("-i", path, "-vf", "scale=18:32:flags=area", "-f", "rawvideo", "-pix_fmt", "gray", "-")
        self.assertLess(max(abs(a - b) for a, b in zip(small("still.jpg"), small("still.png"))), 12)

    def test_clips_of_other_kinds(self):
        clip("bare.mp4", "64x64")
        self.assertIn("There is no metadata at all.", self.report("bare.mp4")[0])
        clip("sdr.mp4", "64x64", pixels="yuv420p")
        self.run_commands(self.report("sdr.mp4", "--as-pq")[0], "-o source.png")
        os.remove("sdr.mp4")
        os.remove("source.png")
        write("one.p010", patches())
        self.assertIn("1 frame", self.report("one.p010", "--size", f"{WIDTH}x{HEIGHT}")[1])
        write("many.p010", 10000 * bytes(16 * 16 * 3))
        page, lines = self.report("many.p010", "--size", "16x16")
        self.assertIn("10000 frames, 1 scene", lines)
        self.assertLess(len(page), 5e6)
        clip("hlg.mp4", "64x64", transfer="arib-std-b67")
        os.remove("r.html")
        for arguments, message in ((("hlg.mp4", "-o", "r.html"), "not an HDR10 clip"),
                                   (("-", "-o", "r.html"), "standard input can be read only once"),
                                   (("bare.mp4", "-o", "missing/r.html"), "missing/r.html: No such file"),
                                   (("bare.mp4", "-o", "r.txt"), "a report is written as .html")):
            self.assertIn(message, self.lumivert("report", *arguments, status=FAILED)[1])
        self.assertOnlyFiles("bare.mp4", "one.p010", "many.p010", "hlg.mp4")

    def test_lines_take_the_place_of_the_progress_on_a_terminal(self):
        try:
            terminal, ours = pty.openpty()
        except OSError as reason:
            self.skipTest(str(reason))  # /dev/pts is missing, as in a bare chroot
        with subprocess.Popen([LUMIVERT, "report", DEMO, "--stills", "0", "-o", "r.html"], stderr=ours) as tool:
            os.close(ours)
            text = b""
            with contextlib.suppress(OSError):  # the end
                while part := os.read(terminal, 4096):
                    text += part
            os.close(terminal)
        self.assertEqual(tool.returncode, DIFFERENT)
        self.assertRegex(text.decode(), "left \x1b\\[K\r\x1b\\[Klumivert: report: 72 frames")


@unittest.skipUnless(browser.CHROMIUM, "there is no chromium")
class InABrowser(ToolTest):
    def setUp(self):
        super().setUp()
        self.lumivert("report", DEMO, "-o", "r.html", status=DIFFERENT)
        self.browser = browser.Browser()
        self.addCleanup(self.browser.close)

    def box(self, selector):
        return json.loads(self.browser.evaluate(BOX % selector))

    def divider(self):
        return float(re.search(r"([\d.]+)%\)?$", self.browser.evaluate(CLIP)).group(1))

    def test_it_works_and_asks_nothing_of_the_network(self):
        page = self.browser
        page.open("r.html")
        self.assertEqual(page.logged, [])
        self.assertEqual({url.split(":")[0] for url in page.requested}, {"file", "data"})
        self.assertEqual(len([url for url in page.requested if url.startswith("file")]), 1)
        self.assertTrue(page.evaluate("[...document.images].every(i => i.complete && i.naturalWidth > 0 && i.alt)"))

        # The divider follows the mouse, the keys and a finger.
        page.evaluate("document.querySelector('.wipe').scrollIntoView({block: 'center'})")
        left, top, width, height = self.box(".wipe")
        page.drag(left + width / 2, left + width / 4, top + height / 2)
        self.assertAlmostEqual(self.divider(), 25, delta=3)
        before = self.divider()
        page.press("ArrowRight")
        self.assertEqual(self.divider(), before + 1)
        page.call("Emulation.setTouchEmulationEnabled", enabled=True)
        page.touch_drag(left + width / 4, left + 3 * width / 4, top + height / 2)
        self.assertAlmostEqual(self.divider(), 75, delta=4)
        page.call("Emulation.setTouchEmulationEnabled", enabled=False)

        # The cursor changes the numbers, from the slider and from a chart.
        numbers = lambda: page.evaluate("document.getElementById('detail').textContent")
        first = numbers()
        page.evaluate("document.getElementById('frame').focus()")
        page.press("ArrowRight")
        self.assertEqual(page.evaluate("document.getElementById('frame').value"), "1")
        self.assertNotEqual(numbers(), first)
        page.evaluate("document.getElementById('light-chart').scrollIntoView({block: 'center'})")
        left, top, width, height = self.box("#light-chart")
        page.drag(left + width / 2, left + width * 0.6, top + height / 2)
        self.assertIn(int(page.evaluate("document.getElementById('frame').value")), range(38, 50))
        self.assertEqual(page.logged, [])

    def test_numbers_of_a_frame_are_those_of_the_other_commands(self):
        page = self.browser
        page.open("r.html")
        page.evaluate("show(36)")
        frame = json.loads(self.lumivert("measure", DEMO, "--json", status=DIFFERENT)[0])["frames"][36]
        text = page.evaluate("document.getElementById('light-numbers').textContent")
        self.assertIn(f"brightest pixel{max(frame['maximum']):.0f}{max(frame['record']['maximum']):.0f}", text)
        self.assertIn(f"average{frame['average']:.0f}", text)
        # The curve that the page draws is the library's.
        rows = self.lumivert("curve", DEMO, "--frame", "36", "-o", "c.csv") and read("c.csv").decode().splitlines()[1:]
        for row in rows[10::40]:
            _, _, light, expected = (float(value) for value in row.split(",")[:4])
            drawn = page.evaluate(f"output(data.curves[data.curve[36]], {light})")
            self.assertAlmostEqual(drawn, expected, delta=0.01 * expected + 0.05)

    def test_it_can_be_read_without_scripts_and_on_a_phone(self):
        page = self.browser
        page.open("r.html", scripts=False)
        page.call("Emulation.setScriptExecutionDisabled", value=False)
        self.assertEqual(page.evaluate("document.querySelectorAll('.wipe').length"), 0)
        self.assertTrue(page.evaluate("[...document.querySelectorAll('.stills img')].every(i => i.offsetWidth > 100)"))
        self.assertGreater(self.box("#light-chart")[2], 300)
        for dark in (False, True):
            page.open("r.html", width=390, height=844, dark=dark)
            self.assertLessEqual(page.evaluate("document.documentElement.scrollWidth"), 390)
        self.assertEqual(page.evaluate("getComputedStyle(document.body).backgroundColor"), "rgb(20, 23, 29)")


if __name__ == "__main__":
    unittest.main()
