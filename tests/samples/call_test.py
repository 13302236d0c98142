#!/usr/bin/env python3
"""vistrelle-call: every public operation answers under its own name. Usage: call_test.py HOST SOURCE_FOLDER."""
import json
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

HOST, SOURCE = pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2])
MOVIE = str(SOURCE / "tests/data/prog_8s.mp4")

# Headers that the modules share among their own sources.
INTERNAL_HEADERS = {
    "alert_session.h", "codec_names.h", "formats.h", "last_words.h", "linked_text.h", "movie_text.h", "pieces.h", "protected_places.h", "replacing.h",
    "scanning.h", "shell_words.h", "slots.h", "strings_lines.h", "text_reading.h", "whole_numbers.h"}
# Helpers that stand in a public header beside the operations.
INTERNAL_FUNCTIONS = {
    "containingFolder", "logVerbose", "mood", "prepareProcess", "progressCommand", "readFloat", "tmpFolderReady", "tracksDescription",
    "timecodeSeconds", "visualTracks", "vistrelleMain"}


def call(*requests):
    """Sends the requests to one process and returns its answers."""
    lines = "".join((request if isinstance(request, str) else json.dumps(request)) + "\n" for request in requests)
    run = subprocess.run([HOST], input=lines, capture_output=True, text=True, check=True, timeout=120)
    return [json.loads(line) for line in run.stdout.splitlines()]


def op(name, *arguments):
    return {"op": name, "args": list(arguments)}


def declared_operations():
    declaration = re.compile(r"^[A-Za-z_:<>, *&0-9]+?\b([A-Za-z_][A-Za-z0-9_]*)\(", re.M)
    names = set()
    for header in SOURCE.glob("vistrelle/*/*.h"):
        if header.name not in INTERNAL_HEADERS and header.parent.name != "batch":  # a program, no library
            names |= set(declaration.findall(header.read_text(encoding="utf-8")))
    return names - INTERNAL_FUNCTIONS


class Call(unittest.TestCase):
    def test_every_public_operation_is_there(self):
        (answer,) = call(op("operations"))
        self.assertGreater(len(declared_operations()), 150)
        self.assertEqual(sorted(declared_operations() - set(answer["result"])), [])

    def test_numbers_texts_and_lists(self):
        answers = call(op("nbArrondi", 2, 3.14159), op("reduceRatio", 1920, 1080), op("fichier_dirname", "/a/b/c.mov"),
                       op("durationStr", 3725), op("findAndReplace", None, "a", "b", False), op("fractionStr2Float", "16:9"))
        self.assertEqual([a["result"] for a in answers], [3.1400001, [16, 9], "/a/b", "1h02'05\"", None, 1.77777779])

    def test_a_dictionary_and_a_date_come_back(self):
        value = {"n": 9007199254740993, "t": ["é", 1.5, True]}
        (copy, date) = call(op("copyDictionary", value), op("dateCreation", None, "2015-03-01 12:34:56 +0000", True))
        self.assertEqual(copy["result"], value)
        self.assertEqual(date["result"], "2015-03-01 12:34:56")

    def test_log_and_plain_lines(self):
        (missing, banner) = call(op("movieLoad", None), op("bannerPrint"))
        self.assertEqual(missing["log"], ["movie no input      :-( nil"])
        self.assertIs(missing["result"], False)
        self.assertEqual(banner["stderr"][0], "-" * 35)

    def test_state_and_handles_last_as_long_as_the_process(self):
        answers = call(op("setVerbose", True), op("isVerbose"), op("movieLoad", MOVIE), op("MYMOVIEget"),
                       op("movieFramerate", {"handle": 1}), op("movieDuration", {"movie": MOVIE}))
        self.assertIs(answers[1]["result"], True)
        self.assertEqual(answers[3]["result"], {"handle": 1})
        self.assertEqual(answers[4]["result"], 30)
        self.assertAlmostEqual(answers[5]["result"], 8, delta=0.1)

    def test_a_composition_is_edited_and_written(self):
        with tempfile.TemporaryDirectory() as folder:
            path = folder + "/out.mov"
            answers = call(op("mutableCompositionOf", {"movie": MOVIE}), op("movieCut", {"handle": 1}, 0, 20, 10),
                           op("movieDuration", {"handle": 1}), op("movieToRescale", {"handle": 1}, 4, 2),
                           op("MYMOVIEEDITset", {"handle": 2}), op("MYMOVIEEDITget"), op("movieDuration", {"handle": 3}),
                           op("movieCut", {"movie": MOVIE}, 0, 20, 10), op("MYMOVIEEDITset", {"movie": MOVIE}),
                           op("movieCutForceSize", MOVIE, path, 3, 1.5), op("movieDuration", {"movie": path}),
                           op("qtAvExport", {"handle": 1}, folder + "/slow.mov", 0))
            results = [answer.get("result") for answer in answers]
            self.assertEqual(results[0], {"handle": 1})
            self.assertIs(results[1], True)
            self.assertAlmostEqual(results[2], 6, delta=0.1)
            self.assertEqual(results[3], {"handle": 2})
            self.assertAlmostEqual(results[6], 12, delta=0.2)
            self.assertIs(results[7], False)
            self.assertIn("a composition is needed", answers[8]["error"])
            self.assertIs(results[9], True)
            self.assertAlmostEqual(results[10], 3, delta=0.05)
            self.assertIs(results[11], False)

    def test_the_information_of_a_movie(self):
        infos, size, none, drm, count, rate = call(
            op("qtInfos", MOVIE), op("movieApertureSize", {"movie": MOVIE}), op("qtOffsetMs", MOVIE),
            op("infoDicoHasDrm", {"a0_codec": "drms"}), op("timecodeTrackSampleCount", MOVIE), op("bitrateLimit", 700, 3600))
        self.assertEqual(infos["result"], {
            "w_duration": 8, "v0_fps": 30, "v0_codec": "h264", "a0_codec": "aac", "w_width": 640, "w_height": 360,
            "v0_width": 640, "v0_height": 360, "v0_dar": "16:9", "v0_par": "1:1"})
        self.assertEqual(size["result"], [640, 360])
        self.assertIsNone(none["result"])
        self.assertIs(drm["result"], True)
        self.assertEqual(drm["log"], ["dicoContainsItunesDR:-( DRM protected file (a0_codec=drms)"])
        self.assertEqual([count["result"], rate["result"]], [-12345, 1439])

    def test_a_picture_of_a_movie(self):
        with tempfile.TemporaryDirectory() as folder:
            path = folder + "/out.jpg"
            answers = call(op("Mirelund", MOVIE, path, 320, 180, ["2"]), op("imgSizes", path),
                           op("imgRescale", {"picture": path}, folder + "/small.png", 100, 100, -1, 72.0, 0.6),
                           op("imgSizes", folder + "/small.png"),
                           op("imgFillColor", {"rgba": [1, 0, 0, 1]}, folder + "/red.png", 5, 4))
            self.assertEqual([a["result"] for a in answers], [True, [320, 180], True, [100, 56], True])
            self.assertIn("steps          : 1", answers[0]["stderr"])

    def test_what_is_wrong_is_said(self):
        answers = call(op("nothing"), op("nbArrondi", 2), op("nbArrondi", 2, "x"), "{", '"text"', op("MYMOVIEset", {"handle": 9}))
        self.assertTrue(all("error" in answer and "result" not in answer for answer in answers), answers)

    def test_infinities_and_invalid_bytes(self):
        run = subprocess.run([HOST], input=b'{"op": "reverseText", "args": ["\xff"]}\n{"op": "nbTrimmed", "args": [0, "nan"]}\n',
                             capture_output=True, check=True, timeout=60)
        self.assertEqual(len(run.stdout.splitlines()), 2)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
