#!/usr/bin/env python3
"""What `cmake --install` gives, used as hosts and shells use it. Usage: install_test.py BUILD SOURCE [unittest args]."""
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

BUILD, SOURCE = (pathlib.Path(argument).resolve() for argument in sys.argv[1:3])
HOSTS = SOURCE / "tests/install/hosts"
MOVIE = SOURCE / "tests/data/nasa_13013.mp4"
CXX = os.environ.get("CXX", "c++")
FFMPEG = re.compile(r"lib(avcodec|avformat|avutil|sw\w+)\.so")


def run(*command, **options):
    done = subprocess.run([str(word) for word in command], capture_output=True, text=True, errors="replace", **options)
    if done.returncode != 0:
        raise AssertionError(f"{command}: {done.returncode}\n{done.stdout[-3000:]}\n{done.stderr[-3000:]}")
    return done.stdout


def setUpModule():
    global SCRATCH, PREFIX, LIBRARIES, HOST_BUILD
    SCRATCH = pathlib.Path(tempfile.mkdtemp(prefix="vistrelle-install-"))
    unittest.addModuleCleanup(shutil.rmtree, SCRATCH)
    first = SCRATCH / "first"
    run("cmake", "--install", BUILD, "--prefix", first)
    for module in first.glob("lib*/**/*.pc"):
        assert module.read_text().startswith(f"prefix={first}\n"), f"{module} names another prefix than its own"
    # Nothing that is installed may depend on where it was installed to.
    PREFIX = SCRATCH / "moved"
    first.rename(PREFIX)
    LIBRARIES = next(PREFIX.glob("lib*/**/libvistrelle.so")).parent
    for name in ("PKG_CONFIG_PATH", "LD_LIBRARY_PATH", "VISTRELLE_DIALOGS", "CXXFLAGS", "LDFLAGS"):
        os.environ.pop(name, None)
    HOST_BUILD = SCRATCH / "hosts"
    run("cmake", "-S", HOSTS, "-B", HOST_BUILD, f"-DCMAKE_PREFIX_PATH={PREFIX}", f"-DCMAKE_CXX_COMPILER={CXX}")
    run("cmake", "--build", HOST_BUILD, "-j2")


def pkg_config(*arguments):
    environment = {**os.environ, "PKG_CONFIG_PATH": str(LIBRARIES / "pkgconfig")}
    return run("pkg-config", f"--define-variable=prefix={PREFIX}", *arguments, env=environment).split()


def with_library(**more):
    return {**os.environ, "LD_LIBRARY_PATH": str(LIBRARIES), **more}


class Library(unittest.TestCase):
    def test_it_shows_only_names_of_its_own(self):
        lines = run("nm", "-D", "--defined-only", "--without-symbol-versions", LIBRARIES / "libvistrelle.so").splitlines()
        shown = [line.split(" ")[-1] for line in lines]
        own = re.compile(r"_Z(T[ISVT]|Thn\d+_|Tv.*_)?NK?9vistrelle")
        self.assertEqual([name for name in shown if not own.match(name) and name != "VISTRELLE_1"], [])
        for name in ("8MirelundE", "11reduceRatioE", "8platform12mediaLibraryE", "8platform13confineMoviesE"):
            self.assertTrue(any(found.startswith("_ZN9vistrelle" + name) for found in shown), name)

    def test_what_no_header_declares_is_hidden(self):
        names = run("nm", "-DC", "--defined-only", LIBRARIES / "libvistrelle.so")
        for name in ("FfmpegMediaLibrary", "vistrelleLateResolve", "piecesAt", "avcodec_open2", "ConfinedAsset"):
            self.assertNotIn(name, names)

    def test_its_name_and_what_it_names(self):
        dynamic = run("readelf", "-dW", LIBRARIES / "libvistrelle.so")
        self.assertIn("Library soname: [libvistrelle.so.1]", dynamic)
        self.assertNotRegex(dynamic, "R(UN)?PATH")
        if (BUILD / "late").exists():
            self.assertNotRegex(dynamic, FFMPEG)

    def test_one_version(self):
        version = re.search(r"project\(vistrelle VERSION (\S+)", (SOURCE / "CMakeLists.txt").read_text()).group(1)
        self.assertTrue((LIBRARIES / f"libvistrelle.so.{version}").is_file())
        for module in (LIBRARIES / "pkgconfig").glob("*.pc"):
            self.assertEqual(pkg_config("--modversion", module.stem), [version])
        changelog = (SOURCE / "packaging/debian/changelog").read_text()
        self.assertRegex(changelog, rf"^vistrelle \({re.escape(version)}-")
        for page in PREFIX.glob("share/man/man*/*"):
            self.assertIn(f'"vistrelle {version}"', page.read_text(), page)


class Headers(unittest.TestCase):
    def setUp(self):
        self.folder = PREFIX / "include"
        self.headers = sorted(path.relative_to(self.folder).as_posix() for path in self.folder.rglob("*.h"))

    def test_they_lead_nowhere_else(self):
        self.assertGreater(len(self.headers), 50)
        for header in self.headers:
            for name in re.findall(r'#include [<"](vistrelle/[^">]+)', (self.folder / header).read_text()):
                self.assertIn(name, self.headers, f"{header} includes {name}, which is not installed")

    def test_they_compile_without_exceptions(self):
        # Each alone is what the build's own check does; here all at once, by themselves and by a strict compiler.
        source = SCRATCH / "all.cpp"
        source.write_text("".join(f"#include <{header}>\n" for header in self.headers))
        run(CXX, "-std=c++20", "-fno-exceptions", "-Wall", "-Wextra", "-Wpedantic", "-Werror", "-fsyntax-only",
            f"-I{self.folder}", source)

    def test_each_compiles_alone(self):
        if not os.environ.get("VISTRELLE_LONG"):
            self.skipTest("a minute of compiling: VISTRELLE_LONG")
        for header in self.headers:
            source = SCRATCH / "alone.cpp"
            source.write_text(f"#include <{header}>\n")
            run(CXX, "-std=c++20", "-fno-exceptions", "-fsyntax-only", f"-I{self.folder}", source)

    def test_the_host_for_other_languages_uses_nothing_else(self):
        for path in (SOURCE / "samples/call").iterdir():
            for name in re.findall(r'#include "(vistrelle/[^"]+)', path.read_text()):
                self.assertIn(name, self.headers, path)


class Hosts(unittest.TestCase):
    def need_archive(self):
        if not (LIBRARIES / "libvistrelle.a").exists():
            self.skipTest("built with a private FFmpeg: there is no archive")

    def assert_free_of_ffmpeg(self, program, **options):
        self.assertNotRegex(run("ldd", program, **options), FFMPEG)

    def test_texts_by_cmake(self):
        self.assertEqual(run(HOST_BUILD / "text"), "16:9\n")
        if (BUILD / "late").exists():
            self.assert_free_of_ffmpeg(HOST_BUILD / "text")

    def test_movies_by_cmake(self):
        picture = SCRATCH / "cmake.jpg"
        self.assertIn('"tracks"', run(HOST_BUILD / "movie", MOVIE, picture))
        self.assertEqual(picture.read_bytes()[:3], b"\xff\xd8\xff")

    def test_cuts_by_cmake(self):
        run(HOST_BUILD / "edit", MOVIE, SCRATCH / "part.mov")

    def test_unknown_components_are_refused(self):
        project = SCRATCH / "unknown"
        project.mkdir()
        (project / "CMakeLists.txt").write_text("cmake_minimum_required(VERSION 3.16)\nproject(none LANGUAGES NONE)\n"
                                                "find_package(vistrelle CONFIG REQUIRED COMPONENTS text sound)\n")
        done = subprocess.run(["cmake", "-S", project, "-B", project / "build", f"-DCMAKE_PREFIX_PATH={PREFIX}"],
                              capture_output=True, text=True)
        self.assertNotEqual(done.returncode, 0)
        self.assertIn("no component 'sound'", done.stderr)

    def test_movies_by_pkg_config_without_exceptions(self):
        program = SCRATCH / "movie"
        run(CXX, "-std=c++20", "-fno-exceptions", "-fno-rtti", HOSTS / "movie.cpp", "-o", program,
            *pkg_config("--cflags", "--libs", "vistrelle-movie", "vistrelle-movieinfo"))
        picture = SCRATCH / "pkg-config.jpg"
        run(program, MOVIE, picture, env=with_library())
        self.assertEqual(picture.read_bytes()[:3], b"\xff\xd8\xff")

    def test_texts_from_the_archive(self):
        self.need_archive()
        # A folder with nothing but the archive, as an installation without the shared library would be.
        folder = SCRATCH / "archive"
        folder.mkdir()
        shutil.copy(LIBRARIES / "libvistrelle.a", folder)
        program = SCRATCH / "static-text"
        run(CXX, "-std=c++20", "-fno-exceptions", HOSTS / "text.cpp", "-o", program,
            *pkg_config(f"--define-variable=libdir={folder}", "--static", "--cflags", "--libs", "vistrelle-text"))
        self.assertEqual(run(program), "16:9\n")
        self.assertNotIn("libvistrelle", run("readelf", "-dW", program))
        self.assert_free_of_ffmpeg(program)

    def test_movies_from_the_archive_by_cmake(self):
        self.need_archive()
        project = SCRATCH / "static"
        project.mkdir()
        (project / "CMakeLists.txt").write_text(
            "cmake_minimum_required(VERSION 3.16)\nproject(archive LANGUAGES CXX)\nset(vistrelle_USE_STATIC_LIBS ON)\n"
            "find_package(vistrelle CONFIG REQUIRED COMPONENTS movie)\n"
            f'add_executable(movie "{HOSTS}/movie.cpp")\ntarget_link_libraries(movie PRIVATE vistrelle::movie)\n')
        run("cmake", "-S", project, "-B", project / "build", f"-DCMAKE_PREFIX_PATH={PREFIX}",
            f"-DCMAKE_CXX_COMPILER={CXX}")
        run("cmake", "--build", project / "build")
        picture = SCRATCH / "static.jpg"
        run(project / "build/movie", MOVIE, picture)
        self.assertEqual(picture.read_bytes()[:3], b"\xff\xd8\xff")
        self.assertNotIn("libvistrelle", run("readelf", "-dW", project / "build/movie"))


class Programs(unittest.TestCase):
    def test_the_tool(self):
        picture = SCRATCH / "tool.jpg"
        done = subprocess.run([PREFIX / "bin/vistrelle", "-i", MOVIE, "-o", picture, "-tc", "2"], capture_output=True,
                              text=True)
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertIn("\nsteps          : 1\n", done.stderr)
        self.assertGreater(picture.stat().st_size, 3000)

    def test_the_host_for_other_languages_finds_its_library(self):
        self.assertIn(str(PREFIX), run("ldd", PREFIX / "bin/vistrelle-call"))
        answer = run(PREFIX / "bin/vistrelle-call", input='{"op": "reduceRatio", "args": [1920, 1080]}\n')
        self.assertIn('"result":[16,9]', answer)

    def test_the_dialog_helper_is_where_it_is_looked_for(self):
        if not (BUILD / "vistrelle/vistrelle-dialogs-qt.so").exists():
            self.skipTest("built without Qt")
        folder = PREFIX / "libexec/vistrelle"
        self.assertTrue(os.access(folder / "vistrelle-dialog", os.X_OK))
        self.assertTrue((folder / "vistrelle-dialogs-qt.so").is_file())


@unittest.skipUnless(shutil.which("mandoc"), "mandoc is not installed")
class Manuals(unittest.TestCase):
    def test_no_warnings(self):
        pages = sorted(PREFIX.glob("share/man/man*/*"))
        self.assertLessEqual({"vistrelle.1", "vistrelle.7", "vistrelle-call.1"}, {page.name for page in pages})
        for page in pages:
            done = subprocess.run(["mandoc", "-Tlint", "-Wstyle", page], capture_output=True, text=True)
            # Pages of other packages need not be installed here.
            told = [line for line in done.stdout.splitlines() if "referenced manual not found" not in line]
            self.assertEqual(told, [])

    def test_every_program_has_a_page(self):
        for program in (PREFIX / "bin").iterdir():
            self.assertTrue((PREFIX / f"share/man/man1/{program.name}.1").is_file(), program.name)

    def test_the_page_names_the_options_of_the_tool(self):
        entry = (SOURCE / "vistrelle/cli/entry.cpp").read_text()
        options = set(re.findall(r'word == "(-\w+)"', entry))
        self.assertEqual(options, {"-i", "-o", "-w", "-h", "-tc", "-y", "-v"})
        page = run("mandoc", "-Tascii", PREFIX / "share/man/man1/vistrelle.1")
        page = re.sub(".\b", "", page)
        for option in options:
            self.assertRegex(page, rf"(?m)^ +(.*, )?{option}\b")


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[3:]])
