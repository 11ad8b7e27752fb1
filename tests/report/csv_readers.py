"""gains.csv read by the programs that people have, without options that one would have to look up.

usage: csv_readers.py BUTNGAIN BPMSIM; status 77: a reader is not installed (the others are tried)
"""

import csv
import glob
import math
import os
import subprocess
import sys
import tempfile

BUTNGAIN, BPMSIM = (os.path.abspath(path) for path in sys.argv[1:3])
NOT_FITTED = "4"  # a series file without a signal: no gains, which is an empty field


def session(folder):
    """A run of three BPMs and a silent one; its gains.csv."""
    subprocess.run([BPMSIM, "series", "--bpms", "4", "--orbits", "60"], cwd=folder, check=True,
                   stdout=subprocess.DEVNULL)
    name, = glob.glob(folder + "/*/exp_3.txt")
    with open(name, "w", encoding="ascii") as silent:
        silent.write("0 0 0 0 0 0 1 1 1 1\n" * 60)
    subprocess.run([BUTNGAIN], cwd=folder, input="F\nexp_0.txt\nexp_3.txt\nno\n", text=True,
                   check=True, capture_output=True)
    path, = glob.glob(folder + "/2*_*/gains.csv")
    return path


def expected(path):
    """What stands in the file, by the library's own reader: (bpm, verdict, gain_2) of each line."""
    with open(path, encoding="utf-8", newline="") as file:
        rows = list(csv.DictReader(file, strict=True))
    assert len(rows) == 4 and all(None not in row for row in rows), rows
    assert rows[3]["gain_2"] == "" and rows[3]["verdict"] == "not fitted", rows[3]
    assert [row["bpm"] for row in rows] == ["1", "2", "3", NOT_FITTED], rows
    return [(int(row["bpm"]), row["verdict"], float(row["gain_2"] or "nan")) for row in rows]


def same(got, wanted):
    assert len(got) == len(wanted), got
    for (bpm, verdict, gain), (bpm_wanted, verdict_wanted, gain_wanted) in zip(got, wanted):
        assert int(bpm) == bpm_wanted and verdict == verdict_wanted, (got, wanted)
        # pandas' own conversion may be off by the last bit.
        assert (math.isclose(gain, gain_wanted, rel_tol=4e-16)
                or (math.isnan(gain) and math.isnan(gain_wanted))), (got, wanted)


def by_pandas(path):
    import pandas
    table = pandas.read_csv(path)
    return list(zip(table["bpm"], table["verdict"], table["gain_2"]))


def by_numpy(path):
    import numpy
    table = numpy.genfromtxt(path, delimiter=",", names=True, dtype=None, encoding="utf-8")
    return list(zip(table["bpm"], table["verdict"], table["gain_2"]))


def by_awk(path):
    # Words of a verdict are separated by blanks, columns by commas; an empty one is an empty text.
    out = subprocess.run(["awk", "-F,", 'NR > 1 {print $1 "," $6 "," ($9 == "" ? "nan" : $9)}', path],
                         check=True, capture_output=True, text=True).stdout
    return [(int(b), v, float(g)) for b, v, g in (line.split(",") for line in out.splitlines())]


def by_gnuplot(path):
    script = (f"set datafile separator ','; set table $rows; set print '-';"
              f"plot '{path}' using 'bpm':'gain_2' with points; unset table;"
              "do for [i = 1:|$rows|] { print $rows[i] }")
    out = subprocess.run(["gnuplot", "-e", script], check=True, capture_output=True, text=True).stdout
    points = [line.split() for line in out.splitlines() if line.strip() and line[0] != "#"]
    return [(int(float(x)), float(y)) for x, y, *flag in points if "u" not in flag]


with tempfile.TemporaryDirectory() as scratch:
    gains = session(scratch)
    truth = expected(gains)
    missing = []
    for reader in (by_pandas, by_numpy, by_awk):
        try:
            same(reader(gains), truth)
        except (ModuleNotFoundError, FileNotFoundError) as fault:
            missing.append(str(fault))
    try:
        seen = by_gnuplot(gains)
        # gnuplot shows six digits, and passes over what is not there.
        assert len(seen) == 3 and all(b == t[0] and abs(g - t[2]) < 1e-5
                                      for (b, g), t in zip(seen, truth)), seen
    except FileNotFoundError as fault:
        missing.append(str(fault))
    if missing:
        print("skipped:", *missing)
        sys.exit(77)
