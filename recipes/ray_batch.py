#!/usr/bin/env python3
"""An example for Ray. It was not run.

    ray_batch.py FOLDER [OPTION-OF-VISTRELLE-BATCH...]

FOLDER holds the pieces that cut-list made, on a file system that all nodes see, as do the movies and pictures; each node
has vistrelle-batch and these recipes under the same path. A task a piece: Ray gives a task whose node dies to another
one (max_retries), and its piece goes on from its report; failures that pass (status 75) raise and are tried again too.
"""
import pathlib
import subprocess
import sys

import ray

HERE = pathlib.Path(__file__).resolve().parent
PROCESSORS = 2


class Passing(Exception):
    """Something of the piece may go better later, or elsewhere."""


@ray.remote(num_cpus=PROCESSORS, max_retries=10, retry_exceptions=[Passing])
def do_piece(piece, options):
    status = subprocess.run([HERE / "do-piece", piece, "--jobs", str(PROCESSORS), *options]).returncode
    if status == 75:
        raise Passing(piece)
    return piece, status


def main():
    folder = pathlib.Path(sys.argv[1]).resolve()
    ray.init()
    pending = [do_piece.remote(str(path.with_suffix("")), sys.argv[2:]) for path in sorted(folder.glob("*.jobs"))]
    while pending:
        ended, pending = ray.wait(pending)
        try:
            print(*ray.get(ended[0]))
        except (ray.exceptions.RayError, Passing) as failure:
            print(failure, file=sys.stderr)
    with open(folder / "report.jsonl", "w") as report:
        sys.exit(subprocess.run([HERE / "join-reports", folder], stdout=report).returncode)


if __name__ == "__main__":
    main()
