#!/usr/bin/env python3
"""The checker of FFmpeg's calls finds each kind of breach, and none where all is well."""
import pathlib
import subprocess
import sys
import tempfile
import unittest

CHECKER = pathlib.Path(__file__).with_name("check_calls.py")


def check(text, place="platform/media/export/a.cpp"):
    with tempfile.TemporaryDirectory() as folder:
        path = pathlib.Path(folder, place)
        path.parent.mkdir(parents=True)
        path.write_text(text)
        run = subprocess.run([sys.executable, CHECKER, folder], capture_output=True, text=True, check=False)
        return run.returncode, run.stdout


class CheckCalls(unittest.TestCase):
    def test_results_that_are_looked_at(self):
        for text in ("int s = avcodec_send_packet(d, p);\n", "if (av_read_frame(c, p) < 0) return;\n",
                     "return avcodec_open2(d, c, nullptr);\n", "while (avcodec_receive_frame(d, f) >= 0) use(f);\n",
                     "if (a ||\n    avcodec_open2(d, c, nullptr) < 0) return;\n", "x = y ? av_frame_ref(a, b)\n      : 0;\n",
                     "s = ready\n        ? swr_convert(a, b, c, d, e) : -1;\n", "// av_read_frame(c, p);\n"):
            code, found = check(text)
            self.assertEqual(code, 0, found)

    def test_results_that_are_not(self):
        for text in ("  avcodec_send_packet(d, p);\n", "x = 1; av_read_frame(c, p);\n", "(void)swr_init(s);\n",
                     "if (a)\n    avcodec_open2(d, c, nullptr);\n", "if (a) av_dict_set(&o, n, v, 0);\n",
                     "for (;;) av_frame_ref(a, b);\n"):
            code, found = check("void f() {\n" + text)
            self.assertEqual(code, 1, text)
            self.assertIn("is not looked at", found)

    def test_places(self):
        for call in ("avformat_open_input(&c, path, nullptr, nullptr)", "avcodec_find_decoder(id)", "avio_open(&io, n, 1)"):
            code, found = check(f"const auto x = {call};\n")
            self.assertEqual(code, 1, call)
            self.assertIn("is called outside", found)
        code, found = check("s = avformat_open_input(&c, path, nullptr, nullptr);\n", "platform/media/ffmpeg/demuxer.cpp")
        self.assertEqual(code, 0, found)


if __name__ == "__main__":
    unittest.main()
