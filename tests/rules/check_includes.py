#!/usr/bin/env python3
"""The tree's include rules. Usage: check_includes.py FOLDER (the folder that holds cli/, text/, platform/ ...).

1. A file outside platform/ includes only the standard library, POSIX headers and the project's own headers.
2. A file in platform/ never includes a header of the floor above.
3. A header that includes a third-party header, itself or through another, is private: only its own folder includes it,
   and the folders that are built on the same library and on it (INSIDERS).
Prints each breach as file:line: reason; exit status 1 when there is one.
With --public it prints the headers that are not private instead.
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
# Folder: the folder whose private headers it may include as well.
INSIDERS = {"platform/media/export": "platform/media/ffmpeg"}


def third_party(kind, name):
    if kind == '"':
        return False
    return name not in STANDARD and not POSIX.match(name)


def includes(path):
    """(line number, kind, name) of each include of a file."""
    for number, line in enumerate(path.read_text(encoding="utf-8").splitlines(), 1):
        match = INCLUDE.match(line)
        if match:
            yield number, *match.groups()


def private_headers(root):
    """Places (relative to root) of the headers that show a third-party library."""
    named = {header.relative_to(root).as_posix(): list(includes(header)) for header in root.rglob("*.h")}
    private = {place for place, found in named.items() if any(third_party(kind, name) for _, kind, name in found)}
    while True:
        more = {place for place, found in named.items() if place not in private
                and any(name.removeprefix("vistrelle/") in private for _, kind, name in found if kind == '"')}
        if not more:
            return private
        private |= more


def breaches(root):
    private = private_headers(root)
    for path in sorted(root.rglob("*")):
        if path.suffix not in (".h", ".cpp"):
            continue
        place = path.relative_to(root).as_posix()
        folder = place.rpartition("/")[0]
        platform = place.startswith("platform/")
        for number, kind, name in includes(path):
            where = f"{path}:{number}"
            own = name.removeprefix("vistrelle/")
            if not platform and third_party(kind, name):
                yield f"{where}: a module includes the third-party header {name}"
            if kind == '"' and own in private and own.rpartition("/")[0] not in (folder, INSIDERS.get(folder)):
                yield f"{where}: {name} shows a library and is private to its folder"
            if platform and name.startswith("vistrelle/") and not name.startswith("vistrelle/platform/"):
                yield f"{where}: platform includes {name} of the floor above"
            if kind == '"' and not name.startswith("vistrelle/"):
                yield f"{where}: {name} is not included by its path from the folder above vistrelle/"


def main():
    root = pathlib.Path(sys.argv[-1])
    if "--public" in sys.argv:
        private = private_headers(root)
        print("\n".join(sorted({h.relative_to(root).as_posix() for h in root.rglob("*.h")} - private)))
        return 0
    found = list(breaches(root))
    print("\n".join(found) if found else "include rules: no breach")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
