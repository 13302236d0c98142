#!/usr/bin/env python3
"""The hardening checker finds each kind of lack, and none in a hardened program. COMPILER names the C++ compiler."""
import os
import pathlib
import subprocess
import sys
import tempfile
import unittest

CHECKER = pathlib.Path(__file__).with_name("check_hardening.py")
PROGRAM = """#include <unistd.h>
#ifdef BOTH
__asm__(".section .both, \\"awx\\", @progbits\\n.byte 0\\n.previous");
#endif
int main() { char bytes[64]; return read(0, bytes, sizeof bytes) == 7 ? bytes[3] : 0; }
"""
HARDENED = ["-O2", "-fPIE", "-pie", "-fstack-protector-strong", "-Wl,-z,relro", "-Wl,-z,now", "-Wl,-z,noexecstack"]


def check(*flags):
    with tempfile.TemporaryDirectory() as folder:
        source = pathlib.Path(folder, "a.cpp")
        program = pathlib.Path(folder, "a")
        source.write_text(PROGRAM)
        subprocess.run([os.environ["COMPILER"], source, "-o", program, *HARDENED, *flags], check=True)
        run = subprocess.run([sys.executable, CHECKER, program], capture_output=True, text=True, check=False)
        return run.returncode, run.stdout


class CheckHardening(unittest.TestCase):
    def test_hardened_program(self):
        code, text = check()
        self.assertEqual(code, 0, text)

    def test_each_lack(self):
        for flags, words in ((["-no-pie", "-fno-pie"], "fixed address"), (["-Wl,-z,execstack"], "executable stack"),
                             (["-Wl,-z,norelro"], "no RELRO"), (["-Wl,-z,lazy"], "first called"),
                             (["-fno-stack-protector"], "no stack protector"), (["-Wl,-rpath,/x"], "folders of its own"),
                             (["-DBOTH"], "writable and executable")):
            code, text = check(*flags)
            self.assertEqual(code, 1, flags)
            self.assertIn(words, text)


if __name__ == "__main__":
    unittest.main()
