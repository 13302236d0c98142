#!/usr/bin/env python3
"""What a release's programs and libraries are protected by. Usage: check_hardening.py FILE...

Each is loaded at any address; its stack and its data are not executable, and no memory is both writable and executable;
addresses of other libraries' functions are looked up at the start and cannot be written afterwards; functions with
arrays notice when the stack behind them was overwritten; and it names no folder of its own to look for libraries in.
Prints each lack as file: reason; exit status 1 when there is one.
"""
import re
import subprocess
import sys


def readelf(option, path):
    return subprocess.run(["readelf", "-W", option, path], capture_output=True, text=True, check=True).stdout


def lacks(path):
    segments = readelf("-l", path)
    dynamic = readelf("-d", path)
    if not re.search(r"Type:\s+DYN|Elf file type is DYN", readelf("-h", path)):
        yield "has a fixed address (no PIE)"
    if "INTERP" in segments and "PIE" not in dynamic:
        yield "is a program, but not marked as independent of its address"
    kinds = re.findall(r"^\s+(\w+)(?:\s+0x\w+){5}\s+([RWE ]{3})", segments, re.M)
    flags = dict(kinds)
    if "E" in flags.get("GNU_STACK", "E"):
        yield "has an executable stack"
    if any(kind == "LOAD" and "W" in each and "E" in each for kind, each in kinds):
        yield "has memory that is writable and executable"
    if "GNU_RELRO" not in flags:
        yield "keeps its relocations writable (no RELRO)"
    if "BIND_NOW" not in dynamic and not re.search(r"FLAGS_1.*NOW", dynamic):
        yield "binds functions when they are first called"
    if "TEXTREL" in dynamic:
        yield "relocates its code"
    if re.search(r"\((RPATH|RUNPATH)\)", dynamic):
        yield "looks for libraries in folders of its own"
    if "__stack_chk_fail" not in readelf("--dyn-syms", path):
        yield "has no stack protector"


def main():
    found = [f"{path}: {reason}" for path in sys.argv[1:] for reason in lacks(path)]
    print("\n".join(found) if found else f"hardening: {len(sys.argv) - 1} files, nothing lacks")
    return 1 if found or len(sys.argv) < 2 else 0


if __name__ == "__main__":
    sys.exit(main())
