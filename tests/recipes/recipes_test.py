#!/usr/bin/env python3
"""The recipes for many machines, with machines that die. Usage: recipes_test.py VISTRELLE_BATCH RECIPES MOVIE

A host is a process with a process namespace of its own, so that killing it takes everything with it that runs there.
The Slurm part waits two minutes for Slurm to put the task of a dead node back, so it runs with VISTRELLE_LONG only.
Needs root and the packages openssh-server, parallel, slurmctld, slurmd, slurm-client and munge. A test whose needs are
not met is skipped and says so; VISTRELLE_RECIPES_REQUIRED=1 makes that a failure.
"""
import collections
import fcntl
import json
import os
import pathlib
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time
import unittest

PROGRAM, RECIPES, MOVIE = (pathlib.Path(word).resolve() for word in sys.argv[1:4])
LIMIT = 400


def missing(*programs):
    found = [name for name in programs if not shutil.which(name, path=os.environ["PATH"] + ":/usr/sbin:/sbin")]
    if os.geteuid() != 0:
        found.append("root")
    elif subprocess.run(["unshare", "--pid", "--uts", "--fork", "--mount-proc", "true"], capture_output=True).returncode:
        found.append("process namespaces")
    return found


def skip_without(*programs, is_long=False):
    lacking = missing(*programs)
    if is_long and not os.environ.get("VISTRELLE_LONG"):
        return unittest.skip("takes minutes: VISTRELLE_LONG is not set")
    if lacking and os.environ.get("VISTRELLE_RECIPES_REQUIRED"):
        raise AssertionError("missing: " + ", ".join(lacking))
    return unittest.skipIf(lacking, "missing: " + ", ".join(lacking))


def wait_until(condition, what):
    limit = time.monotonic() + LIMIT
    while not condition():
        if time.monotonic() > limit:
            raise AssertionError("never: " + what)
        time.sleep(0.05)


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


class Host:
    """A daemon with all it starts, in a process namespace; with a name of its own where one is given."""

    def __init__(self, command, name=None, log=None):
        words = ["unshare", "--pid", "--fork", "--kill-child=KILL", "--mount-proc", *(["--uts"] if name else [])]
        if name:
            command = ["sh", "-c", f'hostname {name}; exec "$@"', "sh", *command]
        self.process = subprocess.Popen([*words, *command], stdin=subprocess.DEVNULL, stdout=log or subprocess.DEVNULL,
                                        stderr=subprocess.STDOUT if log else subprocess.DEVNULL, start_new_session=True)

    def die(self):
        self.process.send_signal(signal.SIGKILL)
        self.process.wait()


class Recipes(unittest.TestCase):
    def setUp(self):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="vistrelle-recipes-"))
        self.out = self.folder / "out"
        self.out.mkdir()
        self.pieces = self.folder / "pieces"
        self.hosts = []
        self.environment = dict(os.environ, VISTRELLE_BATCH=str(PROGRAM), VISTRELLE_LINES="5", VISTRELLE_PAUSE="0.2")

    def tearDown(self):
        for host in self.hosts:
            host.die()
        shutil.rmtree(self.folder, ignore_errors=True)

    def write_list(self, good, bad=0):
        """Jobs of a few hundred milliseconds, so that a host can die in the middle of one."""
        jobs = []
        for i in range(good):
            times = [str(t % 5) for t in range(25)]
            jobs.append({"source": str(MOVIE), "destination": str(self.out / str(i)), "width": 400, "height": 300,
                         "timecodes": times})
        for i in range(bad):
            jobs.append({"source": str(self.folder / "none.mp4"), "destination": str(self.out / f"bad{i}"), "count": 1})
        path = self.folder / "list.jsonl"
        path.write_text("".join(json.dumps(job) + "\n" for job in jobs))
        return path

    def check(self, good, bad=0):
        """Each job once in the joined report, each picture there, nothing else left."""
        lines = [json.loads(line) for line in (self.pieces / "report.jsonl").read_text().splitlines()]
        by_destination = collections.Counter(line["destination"] for line in lines)
        self.assertEqual(len(lines), good + bad)
        self.assertEqual(set(by_destination.values()), {1})
        for line in lines:
            if "bad" in line["destination"]:
                self.assertEqual(line["status"], "bad input")
            else:
                self.assertIn(line["status"], ("done", "exists"), line)
        names = sorted(path.name for path in self.out.iterdir())
        self.assertEqual(names, sorted(str(i) for i in range(good)))
        for i in range(good):
            self.assertEqual(len(list((self.out / str(i)).iterdir())), 25)

    def some_at_work(self):
        return any(self.out.glob(".vistrelle-batch-*/pictures/img01.jpg"))

    def done(self):
        return sum(1 for _ in self.out.glob("[0-9]*"))


class OnePiece(Recipes):
    def piece(self, text):
        self.pieces.mkdir()
        (self.pieces / "000000.jobs").write_text(text)
        return str(self.pieces / "000000")

    def test_bad_input_is_an_end(self):
        piece = self.piece("no json\n\n{}\n")
        self.assertEqual(subprocess.run([RECIPES / "do-piece", piece], env=self.environment).returncode, 0)
        self.assertEqual(len((self.pieces / "000000.report").read_text().splitlines()), 2)
        joined = subprocess.run([RECIPES / "join-reports", self.pieces], capture_output=True, text=True)
        self.assertEqual(joined.returncode, 1)
        self.assertEqual(joined.stderr, "2 jobs: 0 done or there, 0 to be tried again, 2 failed, 0 without an end\n")

    def test_only_what_passes_is_tried_again(self):
        """A program in place of ours notes how it is called and reports one failure that passes, then none."""
        fake = self.folder / "fake"
        fake.write_text('#!/bin/sh\necho "$@" >>"$0.calls"\n'
                        'if [ "$(wc -l <"$0.calls")" -lt "$FAKE_TRIES" ]; then word="temporary failure"; else word=crashed; fi\n'
                        'echo "{\\"status\\":\\"$word\\"}" >"$2"\nexit 1\n')
        fake.chmod(0o755)
        piece = self.piece("{}\n")
        environment = dict(self.environment, VISTRELLE_BATCH=str(fake), VISTRELLE_TRIES="3", FAKE_TRIES="9")
        run = lambda: subprocess.run([RECIPES / "do-piece", piece, "--jobs", "3"], env=environment).returncode
        self.assertEqual(run(), 75)
        calls = (self.folder / "fake.calls").read_text().splitlines()
        self.assertEqual(calls, [f"--resume {piece}.report --jobs 3 {piece}.jobs"] * 3)
        environment["FAKE_TRIES"] = "5"
        self.assertEqual(run(), 0)
        self.assertEqual(len((self.folder / "fake.calls").read_text().splitlines()), 5)
        self.assertEqual(run(), 0)  # done is done
        self.assertEqual(len((self.folder / "fake.calls").read_text().splitlines()), 5)

    def test_a_piece_has_one_machine(self):
        piece = self.piece("{}\n")
        with open(piece + ".lock", "w") as lock:
            fcntl.flock(lock, fcntl.LOCK_EX)
            environment = dict(self.environment, VISTRELLE_WAIT="0.2")
            self.assertEqual(subprocess.run([RECIPES / "do-piece", piece], env=environment,
                                            stderr=subprocess.DEVNULL).returncode, 75)
        self.assertFalse((self.pieces / "000000.report").exists())

    def test_cutting_goes_on_with_the_same_list_only(self):
        listed = self.write_list(12)
        cut = lambda: subprocess.run([RECIPES / "cut-list", listed, self.pieces, "5"], capture_output=True, text=True)
        self.assertEqual(cut().stdout, "3\n")
        self.assertEqual(cut().stdout, "3\n")
        self.assertEqual("".join(path.read_text() for path in sorted(self.pieces.glob("*.jobs"))), listed.read_text())
        listed.write_text("{}\n")
        self.assertEqual(cut().returncode, 1)


@skip_without("parallel", "sshd", "ssh", "ssh-keygen", "unshare")
class OverSsh(Recipes):
    def start_host(self, number):
        keys = self.folder / "keys"
        if not keys.exists():
            keys.mkdir(mode=0o700)
            for name in ("host", "user"):
                subprocess.run(["ssh-keygen", "-q", "-t", "ed25519", "-N", "", "-f", keys / name], check=True)
            shutil.copy(keys / "user.pub", keys / "authorized")
            pathlib.Path("/run/sshd").mkdir(mode=0o755, exist_ok=True)
        port = free_port()
        config = self.folder / f"sshd{number}.conf"
        config.write_text(f"Port {port}\nListenAddress 127.0.0.1\nHostKey {keys}/host\nPidFile none\nUsePAM no\n"
                          f"AuthorizedKeysFile {keys}/authorized\nPermitRootLogin prohibit-password\nStrictModes no\n"
                          "MaxStartups 100\n")
        self.hosts.append(Host([shutil.which("sshd", path="/usr/sbin:/usr/bin"), "-D", "-f", str(config)]))
        with open(self.folder / "ssh.conf", "a") as client:
            client.write(f"Host worker{number}\nHostName 127.0.0.1\nPort {port}\nUser root\nIdentityFile {keys}/user\n"
                         "StrictHostKeyChecking no\nUserKnownHostsFile /dev/null\nLogLevel ERROR\n\n")

        def answers():
            with socket.socket() as probe:
                return probe.connect_ex(("127.0.0.1", port)) == 0
        wait_until(answers, "sshd")

    def run_list(self, listed):
        (self.folder / "hosts").write_text("1/worker0\n1/worker1\n")
        environment = dict(self.environment, PARALLEL_SSH=f"ssh -F {self.folder}/ssh.conf", HOME=str(self.folder))
        return subprocess.Popen([RECIPES / "over-ssh", self.folder / "hosts", listed, self.pieces, "--jobs", "1"],
                                env=environment, stdin=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True,
                                start_new_session=True)

    def test_two_hosts_and_one_dies(self):
        for number in range(2):
            self.start_host(number)
        listed = self.write_list(40, 2)
        run = self.run_list(listed)
        wait_until(lambda: self.done() >= 2 and self.some_at_work(), "jobs at work")
        self.hosts[0].die()
        self.assertLess(self.done(), 40)  # in the middle
        _, words = run.communicate(timeout=LIMIT)
        self.assertEqual(run.returncode, 1, words)  # two movies are not there
        self.check(40, 2)
        log = (self.pieces / "parallel.log").read_text()
        self.assertIn("worker1", log)

    def test_the_machine_in_command_dies(self):
        for number in range(2):
            self.start_host(number)
        listed = self.write_list(12)
        first = self.run_list(listed)
        wait_until(lambda: self.done() >= 2, "jobs done")
        os.killpg(first.pid, signal.SIGKILL)
        first.communicate()
        second = self.run_list(listed)
        _, words = second.communicate(timeout=LIMIT)
        self.assertEqual(second.returncode, 0, words)
        self.check(12)


SLURM = """ClusterName=recipes
SlurmctldHost={host}(127.0.0.1)
SlurmctldPort={port}
SlurmUser=root
SlurmdUser=root
AuthType=auth/munge
AuthInfo=socket={folder}/munge.socket
CryptoType=crypto/munge
StateSaveLocation={folder}/state
SlurmctldPidFile={folder}/slurmctld.pid
SlurmctldLogFile={folder}/slurmctld.log
SlurmdPidFile={folder}/slurmd-%n.pid
SlurmdLogFile={folder}/slurmd-%n.log
SlurmdSpoolDir={folder}/spool-%n
ProctrackType=proctrack/linuxproc
TaskPlugin=task/none
JobAcctGatherType=jobacct_gather/none
SelectType=select/cons_tres
SelectTypeParameters=CR_CPU
SchedulerType=sched/builtin
SwitchType=switch/none
MpiDefault=none
ReturnToService=2
SlurmdTimeout=10
MessageTimeout=10
InactiveLimit=0
KillWait=10
SchedulerParameters=batch_sched_delay=1,sched_interval=2
NodeName=first NodeHostname={host} NodeAddr=127.0.0.1 Port={first} CPUs=1
NodeName=second NodeHostname={host} NodeAddr=127.0.0.1 Port={second} CPUs=1
PartitionName=all Nodes=first,second Default=YES MaxTime=INFINITE State=UP
"""


@skip_without("slurmctld", "slurmd", "sbatch", "munged", "unshare", is_long=True)
class SlurmArray(Recipes):
    def start_cluster(self):
        for name in ("state", "spool-first", "spool-second"):
            (self.folder / name).mkdir()
        key = self.folder / "munge.key"
        key.write_bytes(os.urandom(128))
        key.chmod(0o400)
        self.folder.chmod(0o755)
        munged = [shutil.which("munged", path="/usr/sbin"), "--foreground", "--force", f"--key-file={key}",
                  f"--socket={self.folder}/munge.socket", f"--pid-file={self.folder}/munge.pid",
                  f"--log-file={self.folder}/munge.log", f"--seed-file={self.folder}/munge.seed"]
        self.hosts.append(Host(munged))
        wait_until((self.folder / "munge.socket").exists, "munged")
        config = self.folder / "slurm.conf"
        config.write_text(SLURM.format(folder=self.folder, host=socket.gethostname().split(".")[0], port=free_port(),
                                       first=free_port(), second=free_port()))
        (self.folder / "cgroup.conf").write_text("CgroupPlugin=cgroup/v1\n")
        self.environment.update(SLURM_CONF=str(config))
        os.environ["SLURM_CONF"] = str(config)
        self.hosts.append(Host(["slurmctld", "-D", "-i", "-f", str(config)]))
        self.nodes = {}
        for name in ("first", "second"):
            self.nodes[name] = Host(["slurmd", "-D", "-N", name, "-f", str(config)])
            self.hosts.append(self.nodes[name])
        wait_until(lambda: self.states().count("idle") == 2, "two idle nodes")

    def states(self):
        return subprocess.run(["sinfo", "-h", "-N", "-o", "%t"], env=self.environment, capture_output=True,
                              text=True).stdout.split()

    def run_list(self, listed):
        return subprocess.Popen([RECIPES / "slurm-array", listed, self.pieces, "--jobs", "1"], env=self.environment,
                                stdin=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)

    def test_two_nodes_and_one_dies(self):
        self.start_cluster()
        listed = self.write_list(20, 1)
        run = self.run_list(listed)
        wait_until(lambda: self.done() >= 1 and self.some_at_work(), "jobs at work")
        self.nodes["first"].die()
        self.assertLess(self.done(), 20)
        _, words = run.communicate(timeout=LIMIT)
        self.assertEqual(run.returncode, 1, words)
        self.check(20, 1)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[4:]], verbosity=2)
