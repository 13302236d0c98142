#!/usr/bin/env python3
"""The sample programs do what they are there to show.

Usage: programs_test.py SAMPLES_FOLDER TOOL SOURCE_FOLDER [DIALOG_FILES_FOLDER]
"""
import json
import os
import pathlib
import subprocess
import sys
import tempfile
import unittest

SAMPLES, TOOL, SOURCE = (pathlib.Path(word) for word in sys.argv[1:4])
DIALOG_FILES = sys.argv[4] if len(sys.argv) > 4 else ""
DATA = SOURCE / "tests/data"
MOVIE = DATA / "prog_8s.mp4"


def run(sample, *arguments, environment=None):
    return subprocess.run([SAMPLES / f"sample_{sample}", *map(str, arguments)], capture_output=True, text=True,
                          timeout=300, env={**os.environ, **(environment or {})}, check=False)


def streams(path):
    """(kind, start, duration) of each stream, by an independent reader."""
    probe = subprocess.run(["ffprobe", "-v", "error", "-show_entries", "stream=codec_type,codec_name,start_time,duration",
                            "-of", "json", path], capture_output=True, text=True, check=True)
    return [(s["codec_type"], float(s["start_time"]), float(s["duration"]))
            for s in json.loads(probe.stdout)["streams"]]


def frames(path):
    """The pictures that a player of the movie shows."""
    probe = subprocess.run(["ffprobe", "-v", "error", "-select_streams", "v", "-count_frames", "-show_entries",
                            "stream=nb_read_frames", "-of", "default=nk=1:nw=1", path],
                           capture_output=True, text=True, check=True)
    return int(probe.stdout)


class Programs(unittest.TestCase):
    def setUp(self):
        self.scratch = tempfile.TemporaryDirectory()
        self.folder = pathlib.Path(self.scratch.name)

    def tearDown(self):
        self.scratch.cleanup()

    def test_chapters_shows_each_step(self):
        done = run("chapters", TOOL, MOVIE, self.folder / "chapters", "0", "2", "5.5")
        self.assertEqual(done.returncode, 0, done.stderr)
        for step in ("1 of 3", "2 of 3", "3 of 3"):
            self.assertIn(step, done.stdout)
        self.assertEqual(sorted(p.name for p in (self.folder / "chapters").iterdir()),
                         ["img00.jpg", "img01.jpg", "img02.jpg"])

    def test_chapters_of_a_broken_movie_leave_nothing(self):
        done = run("chapters", TOOL, DATA / "broken.mp4", self.folder / "chapters", "0")
        self.assertEqual(done.returncode, 1)
        self.assertIn("not written", done.stdout)
        self.assertFalse((self.folder / "chapters").exists())

    def test_report_tells_read_from_unread(self):
        done = run("report", MOVIE)
        self.assertEqual(done.returncode, 0, done.stderr)
        report = json.loads(done.stdout)
        self.assertEqual(sorted(track["codec"] for track in report["tracks"]), ["aac", "h264"])
        self.assertEqual(run("report", DATA / "broken.mp4").returncode, 1)

    def test_cut_has_its_length(self):
        done = run("edit", "cut", self.folder / "part.mov", MOVIE, "1.5", "2")
        self.assertEqual((done.returncode, done.stdout), (0, "written\n"), done.stderr)
        for kind, _, duration in streams(self.folder / "part.mov"):
            self.assertAlmostEqual(duration, 2, delta=0.05, msg=kind)

    def test_join_shows_all_of_both(self):
        done = run("edit", "join", self.folder / "both.mov", MOVIE, MOVIE)
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertEqual(frames(self.folder / "both.mov"), 2 * frames(MOVIE))

    def test_mux_moves_the_sound(self):
        done = run("edit", "mux", self.folder / "dubbed.mov", MOVIE, DATA / "video_without_video_stream.mp4", "250")
        self.assertEqual(done.returncode, 0, done.stderr)
        sounds = [s for s in streams(self.folder / "dubbed.mov") if s[0] == "audio"]
        self.assertEqual(len(sounds), 2)
        for _, start, _ in sounds:
            self.assertAlmostEqual(start, 0.25, delta=0.002)

    def test_edit_of_a_broken_movie_is_refused(self):
        done = run("edit", "cut", self.folder / "part.mov", DATA / "broken.mp4", "0", "2")
        self.assertEqual((done.returncode, done.stdout), (1, "not written\n"))
        self.assertEqual(list(self.folder.iterdir()), [])

    @unittest.skipUnless(DIALOG_FILES, "no Qt 6")
    def test_progress_window_ends_with_a_movie(self):
        environment = {"QT_QPA_PLATFORM": "offscreen", "VISTRELLE_DIALOGS": DIALOG_FILES}
        done = run("progress_window", MOVIE, self.folder / "out.mov", environment=environment)
        self.assertEqual((done.returncode, done.stdout), (0, "The movie is written.\n"), done.stderr)
        self.assertEqual([s[0] for s in streams(self.folder / "out.mov")], ["video", "audio"])


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
