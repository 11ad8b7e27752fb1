"""The Slurm engine on a real Slurm of one node, started here: same bytes as the local engine.

usage: slurm_array.py BUTNGAIN BPMSIM; status 77 where munge and Slurm are missing or do not start.
Everything, sockets and keys too, lies in a scratch folder; the daemons are children of this script.
"""
import contextlib
import ctypes
import os
import pathlib
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from run_places import assert_same_runs, simulate, status_of, write_list

BUTNGAIN, BPMSIM = (os.path.abspath(path) for path in sys.argv[1:3])
RUNS = 50
PATIENCE = 60  # seconds for a daemon to answer; it takes one or two
CONFIGURATION = """ClusterName=one
SlurmctldHost={host}(127.0.0.1)
SlurmctldPort={ctld_port}
SlurmdPort={d_port}
AuthType=auth/munge
AuthInfo=socket={dir}/munge.socket
CryptoType=crypto/munge
SlurmUser=root
SlurmdUser=root
StateSaveLocation={dir}/state
SlurmdSpoolDir={dir}/spool
SlurmctldPidFile={dir}/ctld.pid
SlurmdPidFile={dir}/d.pid
SlurmctldLogFile={dir}/log/ctld
SlurmdLogFile={dir}/log/d
ProctrackType=proctrack/linuxproc
TaskPlugin=task/none
SchedulerType=sched/backfill
SchedulerParameters=sched_min_interval=0,bf_interval=1
SelectType=select/cons_tres
SelectTypeParameters=CR_CPU
MinJobAge=2
ReturnToService=2
MailProg=/bin/true
NodeName={host} NodeAddr=127.0.0.1 CPUs=2 RealMemory=1000 State=UNKNOWN
PartitionName=all Nodes={host} Default=YES MaxTime=INFINITE State=UP
"""


def end_with_us():
    """In a daemon before it begins: it does not outlive this script, however that ends."""
    ctypes.CDLL(None).prctl(1, signal.SIGTERM)  # PR_SET_PDEATHSIG


def skip(why):
    print("skipped: " + why)
    sys.exit(77)


def free_port():
    with socket.socket() as one:
        one.bind(("127.0.0.1", 0))
        return one.getsockname()[1]


def tail(path):
    with contextlib.suppress(OSError):
        return path.read_text(errors="replace")[-600:]
    return ""


class Cluster:
    """munged, slurmctld and slurmd in a folder of their own; ended, all of them, at the end."""

    def __init__(self, folder):
        self.folder = pathlib.Path(folder)
        self.daemons = []
        host = socket.gethostname().split(".")[0]
        for name in ("state", "spool", "log"):
            (self.folder / name).mkdir()
        (self.folder / "slurm.conf").write_text(CONFIGURATION.format(
            host=host, dir=folder, ctld_port=free_port(), d_port=free_port()), encoding="utf-8")
        key = self.folder / "munge.key"
        key.write_bytes(os.urandom(128))
        key.chmod(0o400)
        self.environment = os.environ | {"SLURM_CONF": str(self.folder / "slurm.conf")}

    def daemon(self, *command):
        with open(self.folder / "log/daemons", "ab") as log:
            self.daemons.append(subprocess.Popen(command, env=self.environment, stdout=log,
                                                 stderr=log, stdin=subprocess.DEVNULL,
                                                 preexec_fn=end_with_us))

    def wait_for(self, what, ready):
        began = time.monotonic()
        while not ready():
            ended = [d.args[0] for d in self.daemons if d.poll() is not None]
            if ended or time.monotonic() - began > PATIENCE:
                skip(f"{what} does not start here: " + tail(self.folder / "log/daemons")
                     + tail(self.folder / "log/ctld") + tail(self.folder / "log/d"))
            time.sleep(0.2)

    def asked(self, *command):
        return subprocess.run(command, env=self.environment, capture_output=True, text=True,
                              check=False)

    def start(self):
        f = self.folder
        self.daemon("munged", "--foreground", "--force", f"--socket={f}/munge.socket",
                    f"--key-file={f}/munge.key", f"--log-file={f}/log/munge",
                    f"--pid-file={f}/munge.pid", f"--seed-file={f}/munge.seed")
        self.wait_for("munge", (f / "munge.socket").exists)
        self.daemon("slurmctld", "-D", "-c")
        self.wait_for("slurmctld", lambda: "UP" in self.asked("scontrol", "ping").stdout)
        self.daemon("slurmd", "-D")
        self.wait_for("slurmd", lambda: "idle" in self.asked("sinfo", "-h", "-o", "%T").stdout)

    def end(self):
        """All jobs, then the daemons, in the order in which they need each other."""
        if self.daemons:
            self.asked("scancel", "--me")
        for daemon in reversed(self.daemons):
            daemon.terminate()
            try:
                daemon.wait(20)
            except subprocess.TimeoutExpired:
                daemon.kill()
                daemon.wait()


def many(place, environment, *words):
    return subprocess.run([BUTNGAIN, "many", "runs.csv", *words], cwd=place, env=environment,
                          capture_output=True, text=True, check=False)


def array_makes_the_same(place, environment):
    """50 runs as an array, and by the local engine."""
    done = many(place, environment, "--output", "by_slurm", "--engine", "slurm")
    assert done.returncode == 0, done.stderr + tail(place / "by_slurm/.many/sbatch_messages.txt")
    assert f"{RUNS} runs: {RUNS} done, 0 failed" in done.stderr, done.stderr
    done = many(place, environment, "--output", "by_local")
    assert done.returncode == 0, done.stderr
    assert_same_runs(place / "by_slurm", place / "by_local")
    for folder in ("by_slurm", "by_local"):
        states = status_of(place / folder)
        assert len(states) == RUNS and {s for s, _ in states.values()} == {"done"}, states
        # Times and memory are known of runs that were made elsewhere, too.
        text = (place / folder / "status.csv").read_text(encoding="utf-8")
        assert not any(line.endswith(",") or ",," in line.split(",,", 1)[1]
                       for line in text.splitlines()[1:]), text


def script_by_hand(place, environment, cluster):
    """What --dry-run wrote is submitted by a person; a later call sees what came of it."""
    shutil.rmtree(place / "by_slurm/week_007")
    shutil.rmtree(place / "by_slurm/week_031")
    done = many(place, environment, "--output", "by_slurm", "--engine", "slurm", "--dry-run")
    assert done.stdout.split() == ["week_007", "week_031"], done.stdout
    assert "--array=8,32\n" in (place / "by_slurm/slurm.sh").read_text(encoding="utf-8")
    submitted = subprocess.run(["sbatch", "--wait", "by_slurm/slurm.sh"], cwd=place, check=False,
                               env=environment, capture_output=True, text=True)
    assert submitted.returncode == 0, submitted.stderr
    done = many(place, environment, "--output", "by_slurm", "--dry-run")
    assert done.stdout == "" and done.returncode == 0, done.stdout
    assert {s for s, _ in status_of(place / "by_slurm").values()} == {"done"}
    assert_same_runs(place / "by_slurm", place / "by_local")


def interrupt_takes_jobs_back(place, environment, cluster):
    process = subprocess.Popen([BUTNGAIN, "many", "runs.csv", "--output", "broken_off", "--engine",
                                "slurm"], cwd=place, env=environment, stderr=subprocess.PIPE)
    while cluster.asked("squeue", "-h", "-t", "running").stdout == "":
        assert process.poll() is None, process.stderr.read()
        time.sleep(0.1)
    process.send_signal(signal.SIGINT)
    assert process.wait(PATIENCE) == -signal.SIGINT
    assert b"interrupted" in process.stderr.read()
    left = cluster.asked("squeue", "-h", "-t", "pending,running").stdout
    assert left == "", left
    states = {s for s, _ in status_of(place / "broken_off").values()}
    assert states <= {"waiting", "done", "failed"} and "waiting" in states, states


def main():
    missing = [p for p in ("munged", "slurmctld", "slurmd", "sbatch") if shutil.which(p) is None]
    if missing:
        skip(f"{', '.join(missing)} not installed: packages slurm-wlm and munge")
    if os.geteuid() != 0:
        skip("the daemons want to be started by root")
    with tempfile.TemporaryDirectory(prefix="slurm-") as folder:
        cluster = Cluster(folder)
        try:
            cluster.start()
            place = pathlib.Path(folder) / "work"
            place.mkdir()
            environment = simulate(BPMSIM, place, bpms=2, turns=300, seed=5)
            environment["SLURM_CONF"] = cluster.environment["SLURM_CONF"]
            write_list(place / "runs.csv", RUNS)
            array_makes_the_same(place, environment)
            script_by_hand(place, environment, cluster)
            interrupt_takes_jobs_back(place, environment, cluster)
        finally:
            cluster.end()


main()
