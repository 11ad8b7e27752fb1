"""The scripts for sites in docs/site_scripts, expanded as the batch systems do, make all runs.

usage: site_scripts.py BUTNGAIN BPMSIM FOLDER_OF_SCRIPTS
"""
import os
import pathlib
import re
import shlex
import subprocess
import sys
import tempfile

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from run_places import assert_same_runs, simulate, status_of, write_list

BUTNGAIN, BPMSIM = (os.path.abspath(path) for path in sys.argv[1:3])
SCRIPTS = pathlib.Path(sys.argv[3])


def run(place, environment, *words):
    return subprocess.run(words, cwd=place, env=environment, check=True, capture_output=True,
                          text=True, timeout=120).stdout


def by_slurm(place, environment):
    """Every task of the array, with the variables that Slurm sets for it."""
    script = SCRIPTS / "slurm.sh"
    options = dict(re.findall(r"^#SBATCH --([\w-]+)=(\S+)$", script.read_text(encoding="utf-8"), re.M))
    assert {"array", "cpus-per-task", "mem", "time", "output"} <= set(options), options
    first, last = map(int, options["array"].split("-"))
    for task in range(first, last + 1):
        run(place, environment | {"SLURM_ARRAY_TASK_ID": str(task),
                                  "SLURM_ARRAY_TASK_COUNT": str(last - first + 1)},
            "bash", str(script))


def by_condor(place, environment):
    """The two commands of the file's head: the list of names, and a job for each."""
    text = (SCRIPTS / "htcondor.sub").read_text(encoding="utf-8")
    command = re.search(r"^#   (butngain many .*)$", text, re.M)[1]
    run(place, environment, "bash", "-c", command)
    said = dict(re.findall(r"^(\w+)\s*=\s*(.*)$", text, re.M))
    variable, source = re.search(r"^queue (\w+) from (\S+)$", text, re.M).groups()
    assert os.path.basename(said["executable"]) == "butngain" and said["request_cpus"] == "1"
    kept = {n: v for n, v in environment.items()
            if n in said["getenv"].split(",") or n == "PATH"}
    names = (place / source).read_text(encoding="ascii").split()
    assert names, "nothing is to be made"
    for name in names:
        words = shlex.split(said["arguments"].replace(f"$({variable})", name))
        run(place, kept, BUTNGAIN, *words)


def main():
    with tempfile.TemporaryDirectory(prefix="site-") as folder:
        place = pathlib.Path(folder)
        environment = simulate(BPMSIM, place, bpms=1, turns=150, seed=8)
        environment["PATH"] = os.path.dirname(BUTNGAIN) + ":" + environment["PATH"]
        write_list(place / "runs.csv", 7)
        run(place, environment, "butngain", "many", "runs.csv", "--output", "by_local")
        for way in (by_slurm, by_condor):
            way(place, environment)
            assert_same_runs(place / "by_local", place / "found")
            run(place, environment, "butngain", "many", "runs.csv", "--output", "found", "--dry-run")
            assert status_of(place / "found") == status_of(place / "by_local")
            (place / "found").rename(place / way.__name__)


main()
