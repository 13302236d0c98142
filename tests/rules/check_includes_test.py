#!/usr/bin/env python3
"""The include checker finds each kind of breach, and none in a clean tree."""
import pathlib
import subprocess
import sys
import tempfile
import unittest

CHECKER = pathlib.Path(__file__).with_name("check_includes.py")


def check(**files):
    with tempfile.TemporaryDirectory() as folder:
        for place, text in files.items():
            path = pathlib.Path(folder, place.replace("__", "/").replace("_h", ".h").replace("_cpp", ".cpp"))
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_text(text)
        run = subprocess.run([sys.executable, CHECKER, folder], capture_output=True, text=True, check=False)
        return run.returncode, run.stdout


class CheckIncludes(unittest.TestCase):
    def test_clean_tree(self):
        code, text = check(text__a_cpp='#include <string>\n#include <unistd.h>\n#include "vistrelle/text/a.h"\n',
                           platform__base__b_cpp='#include <fmt/format.h>\n#include "vistrelle/platform/base/b.h"\n',
                           platform__media__ffmpeg__c_h='#include <libavformat/avformat.h>\n')
        self.assertEqual(code, 0, text)

    def test_module_with_third_party_header(self):
        code, text = check(text__a_cpp="#include <unicode/ustring.h>\n")
        self.assertEqual(code, 1)
        self.assertIn("third-party header unicode/ustring.h", text)

    def test_private_header_outside_its_folder(self):
        for user in ("movie__a_cpp", "platform__files__a_cpp"):
            code, text = check(**{user: '#include "vistrelle/platform/media/av.h"\n',
                                  "platform__media__av_h": "#include <libavutil/frame.h>\n"})
            self.assertEqual(code, 1)
            self.assertIn("private to its folder", text)

    def test_private_header_through_another(self):
        code, text = check(platform__files__a_cpp='#include "vistrelle/platform/media/b.h"\n',
                           platform__media__b_h='#include "vistrelle/platform/media/av.h"\n',
                           platform__media__av_h="#include <libavutil/frame.h>\n")
        self.assertEqual(code, 1)
        self.assertIn("vistrelle/platform/media/b.h shows a library", text)

    def test_private_header_in_its_folder(self):
        code, text = check(platform__media__a_cpp='#include "vistrelle/platform/media/av.h"\n',
                           platform__media__av_h="#include <libavutil/frame.h>\n")
        self.assertEqual(code, 0, text)

    def test_private_header_in_a_folder_built_on_it(self):
        for user, wanted in (("platform__media__export__a_cpp", 0), ("platform__media__other__a_cpp", 1)):
            code, text = check(**{user: '#include "vistrelle/platform/media/ffmpeg/av.h"\n',
                                  "platform__media__ffmpeg__av_h": "#include <libavutil/frame.h>\n"})
            self.assertEqual(code, wanted, text)

    def test_platform_with_upper_header(self):
        code, text = check(platform__files__a_cpp='#include "vistrelle/text/text.h"\n')
        self.assertEqual(code, 1)
        self.assertIn("floor above", text)

    def test_relative_include(self):
        code, text = check(text__a_cpp='#include "a.h"\n')
        self.assertEqual(code, 1)
        self.assertIn("not included by its path", text)


if __name__ == "__main__":
    unittest.main()
