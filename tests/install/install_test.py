"""What is installed, and the packages: they serve programs built against them, and name no folder of the build."""
import glob
import os
import re
import shutil
import subprocess
import tempfile
import unittest

SOURCE, BUILD, VERSION = os.environ["SOURCE"], os.environ["BUILD"], os.environ["VERSION"]
CALLER = SOURCE + "/docs/examples/caller.c"


def run(*command, **options):
    """Standard output of a command that must succeed."""
    result = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, **options)
    if result.returncode != 0:
        raise AssertionError(f"{command}: {result.stdout}")
    return result.stdout


class Installed(unittest.TestCase):
    """Installed into a folder that nothing was configured for."""

    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.mkdtemp()
        cls.addClassCleanup(shutil.rmtree, cls.folder)
        cls.prefix = cls.folder + "/prefix"
        run("cmake", "--install", BUILD, "--prefix", cls.prefix)

    def converts(self, program, **environment):
        os.makedirs(self.folder + "/data/vendor/media", exist_ok=True)
        lines = run(program, env={**os.environ, "ANDROID_DATA": self.folder + "/data", **environment})
        self.assertRegex(lines, r"codec2: luma 8[456], chroma 128 128")
        self.assertNotIn("not converted", lines)

    def test_a_program_finds_the_library_by_pkg_config(self):
        environment = {**os.environ, "PKG_CONFIG_PATH": glob.glob(self.prefix + "/lib*/**/pkgconfig", recursive=True)[0]}
        self.assertEqual(run("pkg-config", "--modversion", "lumivert", env=environment).strip(), VERSION)
        flags = run("pkg-config", "--cflags", "--libs", "lumivert", env=environment).split()
        run(os.environ["CC"], CALLER, *flags, "-o", self.folder + "/by-pkg-config")
        library = glob.glob(self.prefix + "/lib*/**/libLumivert.so", recursive=True)[0]
        self.converts(self.folder + "/by-pkg-config", LD_LIBRARY_PATH=os.path.dirname(library))

    def test_a_program_finds_the_library_by_find_package(self):
        project = self.folder + "/project"
        os.mkdir(project)
        with open(project + "/CMakeLists.txt", "w") as file:
            file.write("cmake_minimum_required(VERSION 3.25)\nproject(consumer C)\n"
                       f"find_package(lumivert {VERSION} REQUIRED)\nadd_executable(caller {CALLER})\n"
                       "target_link_libraries(caller PRIVATE lumivert::lumivert)\n")
        run("cmake", "-S", project, "-B", project + "/build", "-DCMAKE_PREFIX_PATH=" + self.prefix)
        run("cmake", "--build", project + "/build")
        self.converts(project + "/build/caller")

    def test_the_tool_runs_from_where_it_was_put(self):
        moved = self.folder + "/moved"
        shutil.copytree(self.prefix, moved)
        self.assertEqual(run(moved + "/bin/lumivert", "--version").strip(), VERSION)
        run(moved + "/bin/lumivert", "convert", SOURCE + "/tools/lumivert/demo/demo.mp4", "--frames", "0", "-o",
            self.folder + "/frame.png")
        libraries = run("ldd", moved + "/bin/lumivert")
        self.assertRegex(libraries, "libLumivert.so => " + os.path.realpath(moved))

    def test_the_version_stands_in_one_place(self):
        with open(SOURCE + "/CHANGELOG.md") as file:
            self.assertEqual(re.search(r"^## ([0-9.]+)", file.read(), re.MULTILINE).group(1), VERSION)

    def test_every_command_has_its_page_and_its_completion(self):
        tool = self.prefix + "/bin/lumivert"
        commands = re.findall(r"^  ([a-z]+)  ", run(tool, "--help").split("Subcommands:")[1], re.MULTILINE)
        self.assertIn("convert", commands)

        def complete(*words):
            return run("bash", "-c", 'source "$0"; tool=$1; shift; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); '
                       '_lumivert "$tool" "${COMP_WORDS[-1]}" "${COMP_WORDS[-2]}"; echo "${COMPREPLY[@]}"',
                       self.prefix + "/share/bash-completion/completions/lumivert", tool, "lumivert", *words).split()
        self.assertLessEqual(set(commands), set(complete("")))
        self.assertEqual(complete("convert", "--max-l"), ["--max-luminance"])
        self.assertEqual(complete("convert", "--format", ""), ["nv12", "p010", "rgba"])
        self.assertEqual(complete("convert", "clip"), [])  # left to file names
        if shutil.which("help2man"):
            for page in ["lumivert"] + ["lumivert-" + command for command in commands]:
                with open(f"{self.prefix}/share/man/man1/{page}.1") as file:
                    text = file.read()
                self.assertIn(VERSION, text)
                self.assertNotIn(tool, text)

    def test_nothing_names_a_folder_of_the_build(self):
        for path in glob.glob(self.prefix + "/**", recursive=True):
            if os.path.isfile(path):
                with open(path, "rb") as file:
                    self.assertNotIn(SOURCE.encode(), file.read(), path)

    @unittest.skipIf(os.environ["LAUNCHER"], "a compiler cache may have put names of its own into this build")
    def test_another_folder_gives_the_same_bytes(self):
        copy = self.folder + "/another/place"
        shutil.copytree(SOURCE, copy, ignore=lambda folder, names: [
            name for name in names if folder == SOURCE and name.startswith((".git", "build"))])
        # The same name below, where the compiler's working folder stands in what it writes.
        build = copy + "/" + os.path.basename(BUILD)
        run("cmake", "-G", "Ninja", "-S", copy, "-B", build, "-DCMAKE_BUILD_TYPE=" + os.environ["BUILD_TYPE"],
            "-DLUMIVERT_TOOL=OFF", "-DLUMIVERT_TESTS=OFF", "-DLUMIVERT_BENCH=OFF")
        run("cmake", "--build", build, "--target", "Lumivert")
        for library in ("libLumivert.so", "liblumivert_platform_host.so"):
            with open(f"{BUILD}/{library}", "rb") as here, open(f"{build}/{library}", "rb") as there:
                self.assertTrue(here.read() == there.read(), library)


@unittest.skipUnless(shutil.which("dpkg-shlibdeps"), "dpkg-shlibdeps is not installed")
class Packages(unittest.TestCase):
    def test_they_hold_and_ask_for_what_is_needed(self):
        with tempfile.TemporaryDirectory() as folder:
            run("cpack", "--config", BUILD + "/CPackConfig.cmake", "-B", folder, cwd=folder)
            packages = {re.match(r".*/(.+)_" + re.escape(VERSION) + "_", path).group(1): path
                        for path in glob.glob(folder + "/*.deb")}
            self.assertEqual(set(packages), {"lumivert", "lumivert-dev"})
            depends = {name: run("dpkg-deb", "-f", path, "Depends") for name, path in packages.items()}
            for needed in ("pocl-opencl-icd | opencl-icd", "android-liblog", "libavformat", "libcairo2", "libc6 (>="):
                self.assertIn(needed, depends["lumivert"])
            self.assertEqual(depends["lumivert-dev"].strip(), f"lumivert (= {VERSION})")
            root = folder + "/root"
            for path in packages.values():
                run("dpkg-deb", "-x", path, root)
            self.assertEqual(run(root + "/usr/bin/lumivert", "--version").strip(), VERSION)
            self.assertTrue(os.path.exists(root + "/usr/include/lumivert/converter.h"))


if __name__ == "__main__":
    unittest.main()
