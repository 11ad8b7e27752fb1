"""The Python module against the same work in C++, and against numpy's and pandas' readers of numbers.

usage: python_bench.py YARDSTICK BPMSIM   (the module on PYTHONPATH)

All take turns, in nine rounds; the lines give ratios of the medians: of processor time for loading,
which is one thread's work, of the wall clock for calibrating and importing. Read ratios, not times.
Of the data block, the headers of the instruments taken out, readers of numbers make a table; the phase
words in it are hexadecimal, which neither reads by itself.
"""
import os
import statistics
import subprocess
import sys
import tempfile
import time

import numpy as np

import butngain

try:
    import pandas
except ImportError:
    pandas = None

YARDSTICK, BPMSIM = sys.argv[1:3]
ROUNDS = 9


def seconds(work, clock=time.perf_counter):
    start = clock()
    work()
    return clock() - start


def yardstick(*arguments):
    return float(subprocess.run([YARDSTICK, *arguments], check=True, capture_output=True,
                                text=True).stdout)


def compare(title, ways, to=0):
    """Ratios to the way whose place is `to`."""
    taken = {name: [] for name in ways}
    for _ in range(ROUNDS):
        for name, way in ways.items():
            taken[name].append(way())
    medians = {name: statistics.median(all_) for name, all_ in taken.items()}
    one = medians[list(ways)[to]]
    print(title)
    for name, median in medians.items():
        print(f"  {name:<44}{1e3 * median:9.1f} ms{median / one:9.2f}")


def interpreter(program):
    """The seconds that an interpreter of its own takes, start and end included."""
    return lambda: seconds(lambda: subprocess.run([sys.executable, "-c", program], check=True))


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

    def fresh():
        # The arrays of the file before are still there: new memory has to be found.
        kept = butngain.read_raw(path)
        return processor(lambda: butngain.read_raw(path))() if kept else 0

    def hexadecimal(word):
        return int(word, 16)

    ways = {
        "C++ load, a process of its own": lambda: yardstick("load", path),
        "butngain.read_raw": processor(lambda: butngain.read_raw(path)),
        "butngain.read_raw, the file before kept": fresh,
        "numpy.loadtxt, data block": processor(
            lambda: np.loadtxt(block, dtype=np.int32, converters={1: hexadecimal})),
        "numpy.loadtxt, without the phase words": processor(
            lambda: np.loadtxt(numbers, dtype=np.int32)),
    }
    if pandas is not None:
        texts = dict.fromkeys(range(6), np.int32) | {1: str}

        def table_of(name, **how):
            return processor(lambda: pandas.read_csv(name, sep=r"\s+", header=None, engine="c", **how))

        ways |= {
            "pandas' C parser, data block": table_of(block, converters={1: hexadecimal}),
            "the same, phase words left as texts": table_of(block, dtype=texts),
            "the same, without the phase words": table_of(numbers, dtype=np.int32),
        }
    compare(f"loading {os.path.getsize(path) / 1e6:.0f} MB, ratios to butngain.read_raw", ways, 1)

table = butngain.Table.from_chamber(butngain.Chamber.default("round"))
readings = [butngain.simulate(1000, noise=1e-4, seed=i + 1).signals for i in range(100)]
compare(f"100 BPMs of 1000 orbits on {os.cpu_count()} processors, ratios to the C++ call", {
    "C++ calibrate": lambda: yardstick("calibrate", "100"),
    "butngain.calibrate_many, fits=False": lambda: seconds(
        lambda: butngain.calibrate_many(readings, table, fits=False)),
})
compare("importing, ratios to an interpreter that imports nothing", {
    "nothing": interpreter("pass"),
    "butngain": interpreter("import butngain"),
    "numpy": interpreter("import numpy"),
})
