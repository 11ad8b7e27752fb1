"""What the tests of many runs share: lists of simulated runs, and folders compared byte by byte."""
import json
import os
import pathlib
import re
import subprocess

# What of a run is its time, its machine, or both.
RECORD_OF_THE_TIME = ("started", "seconds", "host")


def simulate(bpmsim, place, **options):
    """A facility tree below `place`; the environment of sessions on it."""
    words = [w for name, value in options.items() for w in (f"--{name}", str(value))]
    subprocess.run([bpmsim, "tree", "t", *words], cwd=place, check=True, stdout=subprocess.DEVNULL)
    environment = {n: v for n, v in os.environ.items() if n != "DISPLAY"}
    return environment | {"KOVR_ONLINE": str(pathlib.Path(place) / "t/online")}


def write_list(path, count):
    """So many runs, no two of the same answers, with a comment and a quoted field."""
    lines = ["# made by a test", "name,data,run,positions,pedestal-bunch,limit,bpm"]
    for i in range(count):
        bpm = '"-1"' if i % 3 else ""
        lines.append(f"week_{i:03},T,{4565 + i % 3},100000,{2 * (i % 2)},{100 + i},{bpm}")
    pathlib.Path(path).write_text("\n".join(lines) + "\n", encoding="ascii")


def without_time(name, data):
    """A file's content without the time and the machine of its run: the documented lines alone."""
    if name == "session.txt":
        lines = data.split(b"\n")
        return b"\n".join(l for l in lines if not re.match(
            rb"   date = | create directory = |output written to directory ", l))
    if name == "run.json":
        record = json.loads(data)
        for field in RECORD_OF_THE_TIME:
            del record[field]
        return json.dumps(record).encode()
    return data


def runs_in(folder):
    """Every file of every run, by run and name. The folder's own name is taken out."""
    folder = pathlib.Path(folder)
    own = str(folder.name).encode()
    found = {}
    for run in sorted(p for p in folder.iterdir() if p.is_dir() and p.name != ".many"):
        for path in sorted(run.rglob("*")):
            assert path.is_file(), path
            name = str(path.relative_to(run))
            data = without_time(name, path.read_bytes())
            if name in ("run.json", "messages.txt"):
                data = data.replace(own + b"/", b"OUT/")
            found[run.name, name] = data
    return found


def status_of(folder):
    """status.csv: name -> (state, reason); its lines are whole and its names single."""
    text = (pathlib.Path(folder) / "status.csv").read_text(encoding="utf-8")
    assert text.endswith("\n"), text[-100:]
    header, *lines = text.splitlines()
    assert header == "line,name,state,reason,seconds,cpu_seconds,memory_mb", header
    rows = [line.split(",") for line in lines]
    assert all(len(row) == 7 for row in rows), text
    states = {row[1]: (row[2], row[3]) for row in rows}
    assert len(states) == len(rows), text
    return states


def assert_same_runs(one, other):
    a, b = runs_in(one), runs_in(other)
    assert set(a) == set(b), sorted(set(a) ^ set(b))[:10]
    different = [name for name in a if a[name] != b[name]]
    assert not different, different[:10]
    assert a, "no runs"
