"""The engine is killed ten times, at any moment, and called again: every run is made exactly once.

usage: many_killed.py BUTNGAIN BPMSIM
"""
import os
import pathlib
import random
import signal
import subprocess
import sys
import tempfile
import threading
import time

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from run_places import assert_same_runs, simulate, status_of, write_list

BUTNGAIN, BPMSIM = (os.path.abspath(path) for path in sys.argv[1:3])
RUNS, KILLS = 40, 10
PATIENCE = 300  # seconds; then something hangs


class StatusReader(threading.Thread):
    """Reads status.csv all the time: it is whole whenever somebody looks."""

    def __init__(self, folder):
        super().__init__(daemon=True)
        self.folder, self.stop, self.reads, self.fault = folder, threading.Event(), 0, None

    def run(self):
        while not self.stop.is_set():
            try:
                if (self.folder / "status.csv").exists():
                    assert len(status_of(self.folder)) == RUNS
                    self.reads += 1
            except AssertionError as fault:
                self.fault = fault
                return
            time.sleep(0.002)


def made(folder):
    """The runs that are there, and which file each record is."""
    return {p.parent.name: (p.stat().st_ino, p.stat().st_mtime_ns)
            for p in folder.glob("*/run.json")}


def main():
    # Other moments in every call: a seed would always spare the same ones.
    seed = int(os.environ.get("MANY_SEED", random.SystemRandom().randrange(10**6)))
    print("seed", seed)
    dice = random.Random(seed)
    with tempfile.TemporaryDirectory(prefix="killed-") as scratch:
        place = pathlib.Path(scratch)
        environment = simulate(BPMSIM, place, bpms=2, turns=200, seed=6)
        write_list(place / "runs.csv", RUNS)
        command = [BUTNGAIN, "many", "runs.csv", "--jobs", "2", "--output"]
        folder = place / "killed"
        reader = StatusReader(folder)
        reader.start()
        kept, killed_at_work = {}, 0
        for _ in range(KILLS):
            engine = subprocess.Popen([*command, "killed"], cwd=place, env=environment,
                                      stderr=subprocess.DEVNULL)
            # By what is there, not by the clock: all moments of a run, on any machine.
            goal = len(made(folder)) + dice.randrange(4)
            while len(made(folder)) < goal and engine.poll() is None:
                time.sleep(0.001)
            time.sleep(dice.random() * 0.25)
            engine.send_signal(signal.SIGKILL)
            killed_at_work += engine.wait(PATIENCE) == -signal.SIGKILL
            now = made(folder)
            # Whole means whole: what was there is never made again.
            assert kept.items() <= now.items(), (kept, now)
            kept = now
        assert killed_at_work >= KILLS // 2, f"{killed_at_work} kills met an engine at work"
        last = subprocess.run([*command, "killed"], cwd=place, env=environment, check=False,
                              capture_output=True, text=True, timeout=PATIENCE)
        assert last.returncode == 0, last.stderr
        assert kept.items() <= made(folder).items()
        reader.stop.set()
        reader.join()
        if reader.fault:
            raise reader.fault
        assert reader.reads > 0
        states = status_of(folder)
        assert len(states) == RUNS and {s for s, _ in states.values()} == {"done"}, states
        assert os.listdir(folder / ".many/making") == []
        subprocess.run([*command, "unharmed"], cwd=place, env=environment, check=True,
                       stderr=subprocess.DEVNULL, timeout=PATIENCE)
        assert_same_runs(folder, place / "unharmed")
        print(f"{killed_at_work} kills, {reader.reads} looks at status.csv, {RUNS} runs")


main()
