"""The Python module against the same work in C++, and against numpy's reader of numbers.

usage: python_bench.py YARDSTICK BPMSIM   (the module on PYTHONPATH)

All take turns, in nine rounds; the lines give ratios of the medians: of processor time for loading,
which is one thread's work, of the wall clock for calibrating. Read ratios, not times.
"""
import os
import statistics
import subprocess
import sys
import tempfile
import time

import numpy as np

import butngain

YARDSTICK, BPMSIM = sys.argv[1:3]
ROUNDS = 9


def seconds(work, clock=time.perf_counter):
    start = clock()
    work()
    return clock() - start


def yardstick(*arguments):
    return float(subprocess.run([YARDSTICK, *arguments], check=True, capture_output=True,
                                text=True).stdout)


def compare(title, ways):
    taken = {name: [] for name in ways}
    for _ in range(ROUNDS):
        for name, way in ways.items():
            taken[name].append(way())
    medians = {name: statistics.median(all_) for name, all_ in taken.items()}
    first = next(iter(medians))
    print(title)
    for name, median in medians.items():
        print(f"  {name:<40}{1e3 * median:9.1f} ms{median / medians[first]:9.2f}")


with tempfile.TemporaryDirectory() as scratch:
    path = scratch + "/RD-000001.dat"
    names = ",".join(f"{n}W" for n in range(1, 101))
    subprocess.run([BPMSIM, "raw", "--out", path, "--names", names, "--turns", "4096"], check=True,
                   stdout=subprocess.DEVNULL, cwd=scratch)
    # The data block alone, as it is, and without the phase words, which are hexadecimal.
    block, numbers = scratch + "/block.txt", scratch + "/numbers.txt"
    with open(path, encoding="ascii") as raw, open(block, "w", encoding="ascii") as all_, \
            open(numbers, "w", encoding="ascii") as some:
        for line in raw:
            words = line.split()
            if len(words) == 6 and words[0] in "01" and len(words[1]) == 7:
                all_.write(line)
                some.write(line.replace(words[1], "", 1))

    def processor(work):
        return lambda: seconds(work, time.process_time)

    compare(f"loading {os.path.getsize(path) / 1e6:.0f} MB, ratios to the C++ load", {
        "C++ load": lambda: yardstick("load", path),
        "butngain.read_raw": processor(lambda: butngain.read_raw(path)),
        "numpy.loadtxt of the numbers alone": processor(
            lambda: np.loadtxt(numbers, dtype=np.int32)),
        "numpy.loadtxt of the data block": processor(
            lambda: np.loadtxt(block, dtype=np.int32,
                               converters={1: lambda word: int(word, 16)})),
    })

table = butngain.Table.from_chamber(butngain.Chamber.default("round"))
readings = [butngain.simulate(1000, noise=1e-4, seed=i + 1).signals for i in range(100)]
compare(f"100 BPMs of 1000 orbits on {os.cpu_count()} processors, ratios to the C++ call", {
    "C++ calibrate": lambda: yardstick("calibrate", "100"),
    "butngain.calibrate_many, fits=False": lambda: seconds(
        lambda: butngain.calibrate_many(readings, table, fits=False)),
})
