#!/usr/bin/env python3
"""Formats are literals: what takes one from data does not compile. Usage: formats_test.py COMPILER FOLDER FLAG...

FOLDER is the one above vistrelle/, FLAG... are those that everything of ours is compiled with.
"""
import subprocess
import sys
import unittest

LOG = '#include <string>\n#include "vistrelle/platform/base/log.h"\n'
PRINT = "#include <cstdio>\n"
compiler = []


def compiles(text):
    run = subprocess.run([*compiler, "-x", "c++", "-fsyntax-only", "-"], input=text, capture_output=True, text=True,
                         check=False)
    return run.returncode == 0, run.stderr


class Formats(unittest.TestCase):
    def test_literals(self):
        for text in (LOG + 'void f(const std::string& name) { vistrelle::platform::log("{}", name); }\n',
                     LOG + 'void f(const char* name) { vistrelle::platform::plain("{}\\n", name); }\n',
                     PRINT + 'void f(const char* name) { std::printf("%s", name); }\n'):
            done, words = compiles(text)
            self.assertTrue(done, words)

    def test_data(self):
        for text in (LOG + "void f(const std::string& name) { vistrelle::platform::log(name); }\n",
                     LOG + "void f(const std::string& name) { vistrelle::platform::log(name.c_str()); }\n",
                     LOG + "void f(const char* name) { vistrelle::platform::plain(name); }\n",
                     LOG + "std::string f(const char* name) { return vistrelle::platform::format(name, 1); }\n",
                     PRINT + "void f(const char* name) { std::printf(name); }\n",
                     PRINT + "void f(const char* name) { std::printf(name, 1); }\n",
                     PRINT + 'void f(const char* name) { std::printf("%d", name); }\n'):
            done, _ = compiles(text)
            self.assertFalse(done, text)


if __name__ == "__main__":
    compiler = [sys.argv[1], "-I", sys.argv[2], *sys.argv[3:]]
    unittest.main(argv=sys.argv[:1])
