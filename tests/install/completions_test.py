#!/usr/bin/env python3
"""The completions, asked as their shells ask them. Usage: completions_test.py SOURCE [unittest arguments]."""
import os
import pathlib
import pty
import shutil
import subprocess
import sys
import tempfile
import threading
import time
import unittest

COMPLETIONS = pathlib.Path(sys.argv[1]).resolve() / "packaging/completions"
BATCH_OPTIONS = {f"--{name}" for name in "jobs memory timeout report resume verbose help version".split()}
OPTIONS = {"-i", "-o", "-w", "-h", "-tc", "-y", "-v"}


class Folder(unittest.TestCase):
    """A folder to complete in: two movies, one of them in a folder of a name with a blank, and two texts."""
    shell = ""

    def setUp(self):
        if not shutil.which(self.shell):
            self.skipTest(f"{self.shell} is not installed")
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="vistrelle-completion-"))
        self.addCleanup(shutil.rmtree, self.folder)
        (self.folder / "my movies").mkdir()
        for name in ("film.mov", "filler.txt", "LOUD.MP4", "notes.txt", "my movies/trip.mkv"):
            (self.folder / name).touch()


class Bash(Folder):
    shell = "bash"

    def complete(self, *words, program="vistrelle"):
        script = ('source "$1"; shift; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); '
                  '$(complete -p "$1" | sed "s/.*-F \\([^ ]*\\).*/\\1/"); printf "%s\\n" "${COMPREPLY[@]}"')
        script = script.replace("$(complete", "eval $(complete")
        done = subprocess.run(["bash", "--norc", "-c", script, "bash", COMPLETIONS / "bash" / program, program,
                               *words], cwd=self.folder, capture_output=True, text=True)
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        return set(done.stdout.splitlines()) - {""}

    def test_options(self):
        self.assertEqual(self.complete("-"), OPTIONS)
        self.assertEqual(self.complete(""), OPTIONS)
        self.assertEqual(self.complete("-t"), {"-tc"})

    def test_options_that_are_there_are_not_offered_again(self):
        self.assertEqual(self.complete("-i", "film.mov", "-y", "-"), OPTIONS - {"-i", "-y"})

    def test_movies_and_folders(self):
        self.assertEqual(self.complete("-i", ""), {"film.mov", "LOUD.MP4", "my movies"})
        self.assertEqual(self.complete("-i", "fi"), {"film.mov"})
        self.assertEqual(self.complete("-i", "my movies/"), {"my movies/trip.mkv"})

    def test_a_movie_may_have_any_name(self):
        self.assertEqual(self.complete("-i", "no"), {"notes.txt"})

    def test_destinations(self):
        self.assertEqual(self.complete("-i", "film.mov", "-o", "fi"), {"film.mov", "filler.txt"})

    def test_sizes_and_times(self):
        self.assertEqual(self.complete("-w", "19"), {"1920"})
        self.assertEqual(self.complete("-h", "10"), {"1080"})
        self.assertEqual(self.complete("-tc", ""), set())

    def test_values_that_look_like_options(self):
        self.assertEqual(self.complete("-tc", "-"), set())


    def test_batch(self):
        self.assertEqual(self.complete("-", program="vistrelle-batch"), BATCH_OPTIONS)
        self.assertEqual(self.complete("--memory", "1", program="vistrelle-batch"), {"1G"})
        self.assertEqual(self.complete("no", program="vistrelle-batch"), {"notes.txt"})
        self.assertEqual(self.complete("--report", "fi", program="vistrelle-batch"), {"film.mov", "filler.txt"})


class Fish(Folder):
    shell = "fish"

    def complete(self, line):
        home = self.folder.with_name(self.folder.name + "-home")
        home.mkdir(exist_ok=True)
        self.addCleanup(shutil.rmtree, home, True)
        done = subprocess.run(["fish", "--no-config", "-c", 'source $argv[1]; complete -C $argv[2]',
                               COMPLETIONS / f"fish/{line.split()[0]}.fish", line], cwd=self.folder, capture_output=True,
                              text=True, env={**os.environ, "HOME": str(home), "TERM": "dumb"})
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        return {found.split("\t")[0] for found in done.stdout.splitlines()}

    def test_options(self):
        self.assertEqual(self.complete("vistrelle -"), OPTIONS)

    def test_movies_and_folders(self):
        self.assertEqual(self.complete("vistrelle -i "), {"film.mov", "LOUD.MP4", "my movies/"})
        self.assertEqual(self.complete("vistrelle -i no"), {"notes.txt"})

    def test_destinations(self):
        self.assertEqual(self.complete("vistrelle -o fi"), {"film.mov", "filler.txt"})

    def test_sizes_and_times(self):
        self.assertEqual(self.complete("vistrelle -w 19"), {"1920"})
        self.assertEqual(self.complete("vistrelle -tc "), set())


    def test_batch(self):
        self.assertEqual(self.complete("vistrelle-batch --"), BATCH_OPTIONS)
        self.assertEqual(self.complete("vistrelle-batch no"), {"notes.txt"})


class Zsh(Folder):
    shell = "zsh"

    def setUp(self):
        super().setUp()
        # Where the shell keeps its own files; not in the folder that is completed in.
        self.home = self.folder.with_name(self.folder.name + "-home")
        self.home.mkdir()
        self.addCleanup(shutil.rmtree, self.home)
        (self.home / ".zshrc").write_text(
            f"fpath=({COMPLETIONS}/zsh $fpath)\nautoload -Uz compinit; compinit -u -d {self.home}/dump\n"
            f"answer() {{ print -r -- $BUFFER >{self.home}/new; mv {self.home}/new {self.home}/answer; BUFFER= }}\n"
            "zle -N answer; bindkey '^X' answer; unsetopt beep\nPROMPT=\nLISTMAX=-1\n"
            f"zle-line-init() {{ : >{self.home}/ready }}\nzle -N zle-line-init\n")

    def wait_for(self, name):
        limit = time.monotonic() + 120
        while not (self.home / name).exists():
            if time.monotonic() > limit:
                self.fail(f"zsh does not get as far as: {name}")
            time.sleep(0.02)

    def complete(self, typed):
        """The line after the key that completes."""
        process, terminal = pty.fork()
        if process == 0:
            os.chdir(self.folder)
            environment = {**os.environ, "ZDOTDIR": str(self.home), "HOME": str(self.home), "TERM": "vt100"}
            os.execvpe("zsh", ["zsh", "-i", "-o", "no_global_rcs"], environment)

        def drain():
            try:
                while os.read(terminal, 4096):
                    pass
            except OSError:
                pass
        reader = threading.Thread(target=drain, daemon=True)
        reader.start()
        try:
            self.wait_for("ready")
            os.write(terminal, typed.encode() + b"\t\x18")
            self.wait_for("answer")
            return (self.home / "answer").read_text().rstrip("\n")
        finally:
            os.kill(process, 9)
            os.waitpid(process, 0)
            reader.join()
            os.close(terminal)
            for name in ("ready", "answer"):
                (self.home / name).unlink(missing_ok=True)

    def test_options(self):
        self.assertEqual(self.complete("vistrelle -t"), "vistrelle -tc ")
        self.assertEqual(self.complete("vistrelle -i film.mov -o a -w 1 -h 1 -tc 1 -y -"),
                         "vistrelle -i film.mov -o a -w 1 -h 1 -tc 1 -y -v ")

    def test_movies(self):
        self.assertEqual(self.complete("vistrelle -i fi"), "vistrelle -i film.mov ")
        self.assertEqual(self.complete("vistrelle -i no"), "vistrelle -i notes.txt ")

    def test_destinations(self):
        self.assertEqual(self.complete("vistrelle -o fi"), "vistrelle -o fil")

    def test_sizes(self):
        self.assertEqual(self.complete("vistrelle -w 19"), "vistrelle -w 1920 ")

    def test_batch(self):
        self.assertEqual(self.complete("vistrelle-batch --ti"), "vistrelle-batch --timeout=")
        self.assertEqual(self.complete("vistrelle-batch no"), "vistrelle-batch notes.txt ")


if __name__ == "__main__":
    del Folder
    unittest.main(argv=[sys.argv[0], *sys.argv[2:]])
