"""butngain many against the sum of its sessions: what the local engine itself costs.

usage: many_bench.py BUTNGAIN BPMSIM [RUNS]   (12 BPMs of 500 turns; 300 runs)

Sessions are started by hand, one at a time and by xargs, half of a sample before the engine's call and half after it,
so that a machine whose load changes does not favour one of them. The lines give
  wall time of the call over the sum of the sessions' times alone, divided by cores
  wall time of the call over that of the same sessions by xargs, as many at a time
  processor time of the call's sessions and of the engine over that of the sessions alone: what a free
      machine would show in the first line, while others work on this one
  wall time of the call over the sum of the times of its own sessions, divided by cores: what is
      left above 1 is time in which a core had no session
  the most memory that the engine held, and its own processor time
"""
import csv
import os
import pathlib
import resource
import subprocess
import sys
import tempfile
import time

BUTNGAIN, BPMSIM = (os.path.abspath(path) for path in sys.argv[1:3])
RUNS = int(sys.argv[3]) if len(sys.argv) > 3 else 300
SAMPLE = max(10, RUNS // 10)
CORES = len(os.sched_getaffinity(0))
# On one thread as in the engine, whose other sessions use the other cores.
OPTIONS = ["--data=T", "--positions=100000", "--pedestal-bunch=2", "--jobs=1"]


def processor_time():
    """Of all children that ended."""
    used = resource.getrusage(resource.RUSAGE_CHILDREN)
    return used.ru_utime + used.ru_stime


def by_xargs(place, environment, first, count):
    """Wall seconds of so many sessions, one a core at a time."""
    script = (f"mkdir -p xargs/$0 && exec {BUTNGAIN} --batch --output=xargs/$0 {' '.join(OPTIONS)} "
              "--run=$((4565 + $0 % 3)) >xargs/$0/session.txt 2>xargs/$0/messages.txt")
    start = time.perf_counter()
    subprocess.run(["xargs", "-n", "1", "-P", str(CORES), "sh", "-c", script], cwd=place, check=True,
                   env=environment, text=True, input="\n".join(map(str, range(first, first + count))))
    return time.perf_counter() - start


def alone(place, environment, first, count):
    """Wall seconds of sessions one after the other, and their processor seconds."""
    taken, before = [], processor_time()
    for i in range(first, first + count):
        folder = place / f"alone/{i}"
        folder.mkdir(parents=True)
        start = time.perf_counter()
        with open(folder / "session.txt", "wb") as out, open(folder / "messages.txt", "wb") as err:
            subprocess.run([BUTNGAIN, "--batch", f"--output={folder}", *OPTIONS,
                            f"--run={4565 + i % 3}"], cwd=place, env=environment, check=True,
                           stdin=subprocess.DEVNULL, stdout=out, stderr=err)
        taken.append(time.perf_counter() - start)
    return taken, processor_time() - before


def together(place, environment):
    """One call: wall seconds, the engine's memory [MB] and processor time [s]."""
    start = time.perf_counter()
    engine = subprocess.Popen([BUTNGAIN, "many", "runs.csv", "--output", "found"], cwd=place,
                              env=environment, stderr=subprocess.PIPE, text=True)
    memory, ticks = 0, 0
    while engine.poll() is None:
        try:
            status = pathlib.Path(f"/proc/{engine.pid}/status").read_text(encoding="ascii")
            stat = pathlib.Path(f"/proc/{engine.pid}/stat").read_text(encoding="ascii")
            memory = max(memory, int(status.split("VmHWM:")[1].split()[0]) * 1.024e-3)
            ticks = sum(map(int, stat.rsplit(")", 1)[1].split()[11:13]))
        except (OSError, IndexError):
            break  # it ended meanwhile
        time.sleep(0.2)
    said = engine.communicate()[1]
    assert engine.returncode == 0, said
    return time.perf_counter() - start, memory, ticks / os.sysconf("SC_CLK_TCK")


def main():
    with tempfile.TemporaryDirectory(prefix="many-bench-") as folder:
        place = pathlib.Path(folder)
        subprocess.run([BPMSIM, "tree", "t", "--bpms", "12", "--turns", "500"], cwd=place, check=True,
                       stdout=subprocess.DEVNULL)
        environment = {n: v for n, v in os.environ.items() if n != "DISPLAY"}
        environment["KOVR_ONLINE"] = str(place / "t/online")
        lines = ["name,data,positions,pedestal-bunch,run"]
        lines += [f"run_{i:05},T,100000,2,{4565 + i % 3}" for i in range(RUNS)]
        (place / "runs.csv").write_text("\n".join(lines) + "\n", encoding="ascii")
        alone(place, environment, 0, 3)  # files and libraries come into memory
        taken, used = alone(place, environment, 3, SAMPLE // 2)
        xargs = by_xargs(place, environment, 0, SAMPLE // 2)
        wall, memory, cpu = together(place, environment)
        xargs += by_xargs(place, environment, SAMPLE // 2, SAMPLE // 2)
        later, used_later = alone(place, environment, 3 + SAMPLE // 2, SAMPLE // 2)
        taken += later
        with open(place / "found/status.csv", encoding="ascii") as status:
            rows = list(csv.DictReader(status))
        assert len(rows) == RUNS and all(row["state"] == "done" for row in rows)
        own = sum(float(row["seconds"]) for row in rows)
        own_cpu = cpu + sum(float(row["cpu_seconds"]) for row in rows)
        by_hand = RUNS * sum(taken) / len(taken)
        print(f"{RUNS} runs on {CORES} cores: {wall:.1f} s; load {os.getloadavg()[0]:.1f}")
        print(f"over sessions alone     {wall * CORES / by_hand:6.3f}")
        print(f"processor time likewise {own_cpu / RUNS * len(taken) / (used + used_later):6.3f}")
        print(f"over sessions by xargs  {wall / RUNS * len(taken) / xargs:6.3f}")
        print(f"over its own sessions   {wall * CORES / own:6.3f}")
        print(f"engine                  {memory:6.1f} MB, {cpu:.2f} s ({1000 * cpu / RUNS:.2f} ms a run)")


main()
