#!/usr/bin/env python3
"""The tree's include rules. Usage: check_includes.py FOLDER (the folder that holds cli/, text/, platform/ ...).

1. A file outside platform/ includes only the standard library, POSIX headers and the project's own headers.
2. A file in platform/ never includes a header of the floor above.
3. A header in platform/ that is not in a library's private room includes no third-party header either.
Prints each breach as file:line: reason; exit status 1 when there is one.
"""
import pathlib
import re
import sys

INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]')
STANDARD = set("""
algorithm any array atomic bit bitset cassert cctype cerrno cfenv cfloat charconv chrono cinttypes climits clocale cmath
compare complex concepts condition_variable coroutine csetjmp csignal cstdarg cstddef cstdint cstdio cstdlib cstring ctime
cwchar cwctype deque exception execution filesystem forward_list fstream functional future initializer_list iomanip ios
iosfwd iostream istream iterator latch limits list locale map memory memory_resource mutex new numbers numeric optional
ostream queue random ranges ratio regex scoped_allocator semaphore set shared_mutex source_location span sstream stack
stdexcept stop_token streambuf string string_view syncstream system_error thread tuple type_traits typeindex typeinfo
unordered_map unordered_set utility valarray variant vector version
""".split())
POSIX = re.compile(r"^(dirent|dlfcn|errno|fcntl|grp|limits|poll|pwd|sched|signal|spawn|stdint|stdio|stdlib|string|strings|"
                   r"termios|time|unistd|netdb|ifaddrs|(sys|netinet|arpa|net|linux)/[a-z0-9_]+)\.h$")
# Rooms whose headers are shared only among the sources that stand on one library.
PRIVATE_ROOMS = ("platform/dialogs/qt/", "platform/media/ffmpeg/")
PRIVATE_HEADER = re.compile(r"(^|/)private/")


def third_party(kind, name):
    if kind == '"':
        return False
    return name not in STANDARD and not POSIX.match(name)


def breaches(root):
    for path in sorted(root.rglob("*")):
        if path.suffix not in (".h", ".cpp"):
            continue
        place = path.relative_to(root).as_posix()
        platform = place.startswith("platform/")
        private = place.startswith(PRIVATE_ROOMS) or PRIVATE_HEADER.search(place)
        for number, line in enumerate(path.read_text(encoding="utf-8").splitlines(), 1):
            match = INCLUDE.match(line)
            if not match:
                continue
            kind, name = match.groups()
            where = f"{path}:{number}"
            if not platform and third_party(kind, name):
                yield f"{where}: a module includes the third-party header {name}"
            if not platform and name.removeprefix("vistrelle/").startswith(PRIVATE_ROOMS):
                yield f"{where}: a module includes {name}, which is private to its room"
            if platform and name.startswith("vistrelle/") and not name.startswith("vistrelle/platform/"):
                yield f"{where}: platform includes {name} of the floor above"
            if platform and path.suffix == ".h" and not private and third_party(kind, name):
                yield f"{where}: a public platform header includes the third-party header {name}"
            if kind == '"' and not name.startswith("vistrelle/"):
                yield f"{where}: {name} is not included by its path from the folder above vistrelle/"


def main():
    found = list(breaches(pathlib.Path(sys.argv[1])))
    print("\n".join(found) if found else "include rules: no breach")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
