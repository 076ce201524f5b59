"""When things go wrong: a line that says what, the right exit status, and nothing half-written."""
import contextlib
import glob
import hashlib
import json
import os
import resource
import signal
import subprocess
import time
import unittest
import unittest.mock

from lumivert_tool import *


class BadInput(ToolTest):
    def test_refusals(self):
        write("in.p010", bytes(64 * 64 * 3 + 1))
        write("empty.p010", b"")
        write("text.mp4", b"This is not a video.\n" * 100)
        ffmpeg("-f", "lavfi", "-i", "sine=d=0.1", "sound.wav")
        clip("hlg.mp4", "64x64", transfer="arib-std-b67")
        clip("sdr.mp4", "64x64", pixels="yuv420p")
        clip("wider.hevc", "96x64")
        clip("both.hevc", "64x64")
        clip("8bit.hevc", "64x64", pixels="yuv420p")
        write("mixed.hevc", read("both.hevc") + read("8bit.hevc"))
        write("both.hevc", read("both.hevc") + read("wider.hevc"))
        ffmpeg("-f", "lavfi", "-i", "testsrc=s=65x33:d=0.1", "-pix_fmt", "yuv420p10le", "-c:v", "ffv1", "-color_trc",
               "smpte2084", "odd.mkv")
        before = os.listdir()
        raw = ("--size", "64x64")
        for source, options, message in (
                ("in.p010", raw, "in.p010: 12289 bytes is not a whole number of 64x64 P010 frames of 12288 bytes"),
                ("-", raw, "standard input: 0 bytes is not a whole number"),
                ("empty.p010", raw, "empty.p010: is empty"),
                ("in.p010", (), "in.p010: raw P010 needs its size"),
                ("missing.p010", raw, "missing.p010: No such file or directory"),
                ("missing.mp4", (), "missing.mp4: No such file or directory"),
                ("text.mp4", (), "text.mp4: Invalid data"),
                ("sound.wav", (), "sound.wav: there is no video in it"),
                ("sdr.mp4", (), "sdr.mp4: not an HDR10 clip: its samples are yuv420p"),
                ("hlg.mp4", (), "hlg.mp4: not an HDR10 clip: its transfer is arib-std-b67"),
                ("both.hevc", (), "the size changes from 64x64 to 96x64"),
                ("mixed.hevc", (), "the samples change from yuv420p10le to yuv420p"),
                (DEMO, ("--frames", "99-"), "has no frame 99; it ends after 72 frames"),
                (DEMO, ("--metadata", "missing.json"), "missing.json: No such file"),
                (DEMO, ("--device", "no such device"), "no OpenCL device matches"),
                (DEMO, ("--mode", "static", "--format", "nv12"), "mode static gives P010 only"),
                ("in.p010", ("--size", "16386x64"), "--size 16386x64: sides are at most 16384"),
                (DEMO, ("sdr.mp4",), "out.mp4: several inputs need a folder for their results"),
                (DEMO, ("--from", "2", "--to", "1"), "--to 1: does not come after --from"),
                (DEMO, ("--entry", "retained", "--format", "p010"), "no P010 output"),
                (DEMO, ("--frames", "5-4"), "the last frame comes before the first"),
                ("in.p010", ("--size", "64x63"), "4:2:0 frames have even sizes above 0, not 63"),
                (DEMO, ("--entry", "retained", "--interval", "1"), "--interval works with --entry pool")):
            with self.subTest(source=source, options=options):
                self.assertIn(message, self.convert(source, "out.mp4", *options, status=FAILED))
                self.assertOnlyFiles(*before)
        for target, message in (("missing/out.mp4", "missing/out.mp4: No such file"), ("out.xyz", "no writer for this"),
                                ("out.png", "out.png: holds one frame")):
            self.assertIn(message, self.convert(DEMO, target, "--frames", "0-1", status=FAILED))
            self.assertIn("is the input itself", self.convert("sdr.mp4", "sdr.mp4", status=FAILED))
        os.chmod("sdr.mp4", 0o444)
        self.assertIn("sdr.mp4: is write-protected", self.convert(DEMO, "sdr.mp4", status=FAILED))
        self.assertIn("--preset: nosuch not in",
                      self.convert(DEMO, "out.mp4", "--preset", "nosuch", status=FAILED))
        self.assertIn("no command convrt", self.lumivert("convrt", status=FAILED)[1])
        for arguments in (("convert", "odd.mkv", "-o", "out.mp4"), ("measure", "odd.mkv"),
                          ("compare", "odd.mkv", "--modes", "static,none"), ("curve", "odd.mkv", "-o", "out.cube"),
                          ("report", "odd.mkv", "-o", "out.html")):
            self.assertIn("odd.mkv: 65x33: odd sizes cannot be converted", self.lumivert(*arguments, status=FAILED)[1])
        self.assertIn("convert: in.p010/out/: ", self.convert(DEMO, "in.p010/out/", status=FAILED))
        self.assertOnlyFiles(*before)

    def test_what_people_type_first(self):
        told = lambda *words: self.lumivert(*words)[0].decode()
        self.assertRegex(told("--version"), r"^\d+\.\d+\.\d+\n$")
        for words, same in ((("version",), "--version"), (("-V",), "--version"), (("help",), "--help")):
            self.assertEqual(told(*words), told(same))
        self.assertEqual(told("help", "convert"), told("convert", "--help"))
        alone = subprocess.run([LUMIVERT], capture_output=True)
        self.assertEqual((alone.returncode, alone.stderr.decode()), (FAILED, told("help")))

    def test_an_mp4_from_a_pipe_has_its_index_first(self):
        ffmpeg("-f", "lavfi", "-i", "testsrc2=s=320x180:d=1", "-vf", "noise=alls=90:allf=t", "-pix_fmt", "yuv420p10le",
               "-c:v", "libx265", "-preset", "ultrafast", "-x265-params",
               "log-level=none:crf=4:colorprim=bt2020:transfer=smpte2084:colormatrix=bt2020nc", "end.mp4")
        ffmpeg("-i", "end.mp4", "-c", "copy", "-movflags", "+faststart", "front.mp4")
        for name, status, message in (("end.mp4", FAILED, "standard input: an MP4 whose index is at the end cannot be"),
                                      ("front.mp4", DONE, "25 frames")):
            lines = self.convert("-", "out.mp4", stdin=read(name), status=status)
            self.assertIn(message, lines)
            self.assertEqual(lines.count("\n"), 1 if status else 2)

    def test_damaged_clips_give_what_is_whole_and_a_warning(self):
        data = read(DEMO)
        write("cut.mp4", data[:len(data) // 2])
        lines = self.convert("cut.mp4", "out.mp4", status=DIFFERENT)
        self.assertRegex(lines, r"warning: cut.mp4: damaged or cut off: \d+ bad frame")
        self.assertLess(len(ffprobe("out.mp4", "packets")), 72)
        ffmpeg("-i", DEMO, "-frames:v", "3", "-c", "copy", "whole.hevc")
        stream = read("whole.hevc")
        write("cut.hevc", stream[:-len(stream) // 20])
        for name, status in (("whole.hevc", DONE), ("cut.hevc", DIFFERENT)):
            warnings = json.loads(self.lumivert("probe", name, "--json", status=status)[0])["warnings"]
            self.assertEqual(["cut off" in line for line in warnings], [True] if status == DIFFERENT else [])

    def test_damage_is_told_of_the_clip_that_has_it(self):
        ffmpeg("-i", DEMO, "-frames:v", "20", "-c", "copy", "good.hevc")
        stream = bytearray(read("good.hevc"))
        garbage = lambda count: bytes((7 * k + 3) % 256 for k in range(count))
        middle = 2 * len(stream) // 3
        stream[middle:middle + 200] = garbage(200)  # a picture is lost, which the next one refers to
        write("hit.hevc", stream)
        text = self.lumivert("compare", "good.hevc", "hit.hevc", "--json", status=DIFFERENT)[0]
        damaged = [line.split(":")[0] for line in json.loads(text)["warnings"] if "damaged" in line]
        self.assertEqual(damaged, ["hit.hevc"])
        ffmpeg("-i", "good.hevc", "-c", "copy", "good.mp4")
        data = bytearray(read("good.mp4"))
        start = data.index(b"mdat")
        end = start - 4 + int.from_bytes(data[start - 4:start], "big")
        data[start + 4:end] = garbage(end - start - 4)
        write("lost.mp4", data)
        lines = self.convert("lost.mp4", "out/", "good.mp4", status=FAILED)
        self.assertRegex(lines, r"lost.mp4: no frame in it can be decoded\nlumivert: convert: good.mp4: 20 frames: .*\n$")


class Outputs(ToolTest):
    def test_a_full_disk(self):
        for kind in ("nv12", "mp4"):
            self.assertIn("No space left on device", self.convert(DEMO, "/dev/full", "--as", kind, status=FAILED))
        # A limit on file sizes ends an output in its middle, as a full disk does.
        limit = lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (1 << 19, 1 << 19))
        for name in ("out.nv12", "out.mp4"):
            write(name, b"what was there before")
            lines = self.convert(DEMO, name, "--format", "nv12", "--quality", "0", "--preset",
                                 "ultrafast", status=FAILED, preexec_fn=limit)
            self.assertIn("File too large", lines)
            self.assertEqual(read(name), b"what was there before")
            self.assertOnlyFiles(name)
            os.remove(name)

    def test_an_output_that_is_an_input_is_refused_by_every_command(self):
        for name in ("in.json", "in.png", "in.html", "in.cube"):
            write(name, read(DEMO))
        before = {name: read(name) for name in os.listdir()}
        os.link("in.png", "other-worst-1.png")
        for arguments in (("metadata", "in.json", "-o", "in.json"), ("curve", "in.png", "-o", "in.png"),
                          ("curve", "in.cube", "-o", "in.cube"), ("measure", "in.png", "-o", "in.png"),
                          ("report", "in.html", "-o", "in.html"), ("compare", DEMO, "in.png", "-o", "in.png"),
                          ("compare", "in.png", DEMO, "--worst", "1", "-o", "other.png")):
            with self.subTest(arguments=arguments):
                self.assertIn("is the input ", self.lumivert(*arguments, status=FAILED)[1])
        os.remove("other-worst-1.png")
        self.assertEqual({name: read(name) for name in os.listdir()}, before)

    def test_every_command_keeps_existing_files_on_request(self):
        clip_with_records("in.hevc", 2 * [record(1000, knee=(0, 0), anchors=[100 * k for k in range(1, 10)])])
        for name, status, arguments in (("k.mp4", DONE, ("convert", "in.hevc")), ("k.json", DONE, ("metadata", "in.hevc")),
                                        ("k.csv", DONE, ("curve", "in.hevc")), ("k.html", DONE, ("report", "in.hevc")),
                                        ("k.png", DIFFERENT, ("measure", "in.hevc")),
                                        ("k.png", DONE, ("compare", "in.hevc", "in.hevc"))):
            write(name, b"kept")
            text, lines = self.lumivert(*arguments, "-n", "-o", name, status=status)
            self.assertIn(f"{name}: exists already\n", lines)
            self.assertEqual((read(name), len(text) > 0), (b"kept", name == "k.png"))
        write("k-0.png", b"kept")
        self.assertIn("k-0.png: exists already", self.convert("in.hevc", "k-%d.png", "-n"))
        self.assertEqual(read("k-0.png"), b"kept")
        self.assertEqual(ffprobe("k-1.png", "streams")[0]["width"], 64)

    def test_what_a_killed_run_has_left_is_removed_by_the_next_one(self):
        start = lambda name: subprocess.Popen([LUMIVERT, "convert", "-", "--size", "64x64", "--mode", "static", "-o", name],
                                              stdin=subprocess.PIPE, stderr=subprocess.DEVNULL)

        def wait_for_files(count):
            deadline = time.monotonic() + 60
            while len(os.listdir()) < count and time.monotonic() < deadline:
                time.sleep(0.01)
            return set(os.listdir())
        frame = bytes(64 * 64 * 3)
        write("in.p010", frame)
        with start("living.p010") as living:
            living.stdin.write(frame)
            living.stdin.flush()
            others = wait_for_files(2)
            with start("killed.p010") as killed:
                killed.stdin.write(frame)
                killed.stdin.flush()
                left = wait_for_files(3) - others
                killed.kill()
            self.assertTrue(left and left < set(os.listdir()))
            write(".lumivert-notes", b"not ours")
            self.convert("in.p010", "out.p010", "--size", "64x64", "--mode", "static")
            self.assertEqual(set(os.listdir()), others | {".lumivert-notes", "out.p010"})
            living.stdin.close()
        self.assertEqual(living.returncode, DONE)
        self.assertOnlyFiles(".lumivert-notes", "in.p010", "out.p010", "living.p010")

    def test_a_reader_that_goes_away(self):
        tool = subprocess.Popen([LUMIVERT, "convert", DEMO, "-o", "-", "--as", "nv12"], stdout=subprocess.PIPE,
                                stderr=subprocess.PIPE)
        tool.stdout.read(1000)
        tool.stdout.close()
        self.assertIn(b"standard output: Broken pipe", tool.stderr.read())
        self.assertEqual(tool.wait(), FAILED)
        tool.stderr.close()

    def test_interruption_leaves_nothing(self):
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGQUIT):
            # Waits for a second frame that never comes, with the first one written.
            tool = subprocess.Popen([LUMIVERT, "convert", "-", "--size", "64x64", "--mode", "static", "-o", "out.p010"],
                                    stdin=subprocess.PIPE, stderr=subprocess.PIPE)
            tool.stdin.write(bytes(64 * 64 * 3))
            tool.stdin.flush()
            deadline = time.monotonic() + 1500
            while not os.listdir() and time.monotonic() < deadline:
                time.sleep(0.01)
            self.assertTrue(os.listdir())
            tool.send_signal(number)
            # Its input stays open: the end of it would be a reason of its own to stop.
            self.assertEqual(tool.stderr.read(), b"lumivert: interrupted\n")
            tool.communicate()
            self.assertEqual(tool.returncode, -number)  # a shell sees why, and leaves its loop
            self.assertOnlyFiles()


class Limits(ToolTest):
    """Where the system gives too little, some driver or codec fails in its own way: one line tells, nothing stays."""

    def expect_one_line_or_success(self, resource_limit, value, *options):
        result = subprocess.run([LUMIVERT, "convert", DEMO, "-o", "out.mp4", "--frames", "0-3", *options],
                                capture_output=True, timeout=200, env={**os.environ, "XDG_CACHE_HOME": "cache"},
                                preexec_fn=lambda: resource.setrlimit(resource_limit, (value, value)))
        # Drivers write lines of their own.
        lines = [line for line in result.stderr.decode().splitlines() if line.startswith("lumivert: ")]
        with self.subTest(value=value, lines=result.stderr):
            self.assertIn(result.returncode, (DONE, FAILED))
            if result.returncode == FAILED:
                self.assertEqual(len(lines), 1)
                self.assertRegex(lines[0], r"limit|threads")
                self.assertFalse([name for name in os.listdir() if name != "cache"])
            else:
                os.remove("out.mp4")
        return result.returncode

    @unittest.skipIf(b"__asan_init" in read(LUMIVERT), "the address sanitizer itself takes terabytes of address space")
    def test_address_space(self):
        ends = [self.expect_one_line_or_success(resource.RLIMIT_AS, megabytes << 20)
                for megabytes in (280, 300, 450, 550, 600, 650, 700, 750, 800, 900, 1000)]
        self.assertEqual(ends[0], FAILED)

    def test_descriptors(self):
        ends = [self.expect_one_line_or_success(resource.RLIMIT_NOFILE, files, "--entry", entry)
                for files in (8, 14, 20, 31, 32, 40, 64) for entry in ("pool", "retained")]
        self.assertEqual(ends, 8 * [FAILED] + 6 * [DONE])


class ProgramCache(ToolTest):
    def setUp(self):
        super().setUp()
        self.enterContext(unittest.mock.patch.dict(os.environ, XDG_CACHE_HOME=self.folder + "/cache"))
        write("in.p010", bytes(64 * 64 * 3))
        self.arguments = ["convert", "in.p010", "--size", "64x64", "--mode", "static", "-o", "out.p010"]

    def program(self):
        """After a run: the compiled program and its digest."""
        self.lumivert(*self.arguments)
        [program] = glob.glob("cache/lumivert/*/vendor/media/*.bin")
        [digest] = glob.glob("cache/lumivert/*/vendor/*.sha256")
        return program, digest

    def test_what_a_killed_run_has_left_is_replaced(self):
        program, digest = self.program()
        good = read(program)
        for left in (good[:len(good) // 2], b"", good[:5000] + bytes(200) + good[5200:]):
            for seal in (b"of another program", None):
                write(program, left)
                write(digest, seal) if seal else os.remove(digest)
                self.assertEqual(self.program(), (program, digest))
                self.assertNotEqual(read(program), left)
                self.assertEqual(read(digest).decode(), hashlib.sha256(read(program)).hexdigest())

    def test_a_program_stays_and_lies_alone(self):
        program, _ = self.program()
        os.utime(program, (1, 1))
        self.program()
        self.assertEqual(os.stat(program).st_mtime, 1)
        # The library deletes what it finds beside a program, and the program with it.
        self.assertEqual(os.listdir(os.path.dirname(program)), [os.path.basename(program)])

    def test_two_at_once(self):
        start = lambda i: subprocess.Popen([LUMIVERT, *self.arguments[:-1], f"out{i}.p010"], stderr=subprocess.PIPE)
        for tool in [start(i) for i in range(3)]:
            self.assertEqual((tool.communicate()[1].count(b"\n"), tool.returncode), (2, DONE))
        self.assertEqual(len({read(f"out{i}.p010") for i in range(3)}), 1)

    def test_a_folder_that_cannot_be_written(self):
        nowhere = {name: value for name, value in os.environ.items() if name not in ("HOME", "XDG_CACHE_HOME")}
        self.assertIn("the cache folder cannot be written", self.lumivert("devices", "-v", env=nowhere)[1])
        write("cache", b"a file where the folder should be")
        self.lumivert(*self.arguments)
        # The folder that takes its place outlives a killed run, but not the next one.
        with subprocess.Popen([LUMIVERT, "convert", "-", *self.arguments[2:]], stdin=subprocess.PIPE,
                              stderr=subprocess.DEVNULL) as killed:
            killed.stdin.write(bytes(64 * 64 * 3))
            killed.stdin.flush()
            folder, opened, deadline = None, None, time.monotonic() + 60
            while not folder and time.monotonic() < deadline:
                for link in glob.glob(f"/proc/{killed.pid}/fd/*"):
                    with contextlib.suppress(FileNotFoundError):  # closed in between
                        if os.path.basename(os.readlink(link)).startswith("lumivert."):
                            folder, opened = os.readlink(link), link
            self.lumivert("devices")
            self.assertEqual(os.readlink(opened), folder)  # it would say that it was deleted
            killed.kill()
        self.lumivert("devices")
        self.assertFalse(os.path.exists(folder))


if __name__ == "__main__":
    unittest.main()
