"""butngain many on this machine: what it makes, makes again, refuses, and leaves when it is ended.

usage: many_runs.py BUTNGAIN BPMSIM
"""
import os
import pathlib
import shutil
import signal
import subprocess
import sys
import tempfile
import time

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from run_places import assert_same_runs, simulate, status_of, write_list

PATIENCE = 120  # seconds; then something hangs
BUTNGAIN, BPMSIM = (os.path.abspath(path) for path in sys.argv[1:3])


def many(place, environment, *words, status=0):
    done = subprocess.run([BUTNGAIN, "many", *words], cwd=place, env=environment, text=True,
                          capture_output=True, check=False, timeout=PATIENCE)
    assert done.returncode == status, (words, done.returncode, done.stdout, done.stderr)
    return done


def made_when(folder):
    """When each run was made: replaced ones have another time or another file."""
    return {p.parent.name: (p.stat().st_mtime_ns, p.stat().st_ino)
            for p in pathlib.Path(folder).glob("*/run.json")}


def sessions_of(folder):
    """Processes of sessions that belong to this folder."""
    found = []
    for process in pathlib.Path("/proc").glob("[0-9]*"):
        try:
            words = (process / "cmdline").read_bytes()
            state = (process / "stat").read_text().rsplit(")", 1)[1].split()[0]
        except OSError:
            continue
        if f"--output={folder}/.many/".encode() in words and state != "Z":
            found.append(int(process.name))
    return found


# A list, and the line that refuses it.
BAD_LISTS = [
    ("run,speed\n1,2", ":1: unknown column \"speed\", expected columns among name, chamber"),
    ("data,data\nT,T", ":1: the column \"data\" stands twice"),
    ("jobs,data\n1,T", ":1: unknown column \"jobs\""),
    ("# no header\n\ndata,run\nT", ":4: found 1 fields, expected 2, as in the header"),
    ("data,run\nX,4566", ":2: --data: found \"X\", expected T or O or F"),
    ("data,bpm\nT,-1\nT,-7", ":3: --bpm: found \"-7\", expected a whole number from -1 on"),
    ("run\n4566", ":2: --batch needs --data"),
    ("data,bunch,bunch,run,run,run\nT,1,2,1,2,3", ":2: --bunch: given 2 times, but --run 3 times"),
    ("data,orbits\nT,maybe", ":2: orbits: found \"maybe\", expected yes, no, 1, 0"),
    ("data,run\nT,\"45\"66", ":2: a quoted field does not end, or has text behind it"),
    ("data,run\nT,45\t66", ":2: a control character in \"run\""),
    ("name,data\n../up,T", ":2: \"../up\" cannot name the folder of a run"),
    ("name,data\nstatus.csv,T", ":2: \"status.csv\" cannot name the folder of a run"),
    ("name,data\na,T\na,T", ":3: the name \"a\" stands in line 2 already"),
    ("data,run", ": holds no run"),
]


def lists_that_cannot_be_meant(place, environment):
    for text, said in BAD_LISTS:
        (place / "bad.csv").write_text(text + "\n", encoding="ascii")
        done = many(place, environment, "bad.csv", "--output", "bad", status=2)
        assert done.stderr.startswith("butngain: bad.csv" + said), (text, done.stderr)
        assert done.stderr.count("\n") == 1 and not (place / "bad").exists(), (text, done.stderr)


    for words in (["--share", "0/3"], ["--share", "4/3"], ["--share", "1"], ["--only", "nobody"],
                  ["--jobs", "0"], ["--engine", "cloud"], ["--only", "week_000", "--engine", "slurm"]):
        write_list(place / "runs.csv", 1)
        done = many(place, environment, "runs.csv", "--output", "bad", *words, status=2)
        assert done.stderr.count("\n") == 1 and not (place / "bad").exists(), (words, done.stderr)


def names_follow_from_answers(place, environment):
    """Of lines without a name: what they read; a chosen name is never taken away from its line."""
    (place / "names.csv").write_text(
        "\ufeffname , data,run, run,first\n,T,4566,,\n,T,4566,4565,\n,T,4566,,\n,T,-1,,\n"
        "4566,T,4566,,\n,T,./some where/RD-1.dat,,\n,F,,,exp_0.txt\n,T,,,\n", encoding="utf-8")
    done = many(place, environment, "names.csv", "--output", "names", "--dry-run")
    assert done.stdout.split() == ["4566-2", "4566+4565", "4566-3", "run-1", "4566", "RD-1.dat",
                                   "exp_0.txt", "run"], done.stdout


def failures_do_not_stop_the_others(place, environment):
    lines = ["data,run,positions,pedestal-bunch,chamber,coefficients", "# the good, then the bad",
             "T,4566,100000,2,,yes", "T,9999,100000,2,,", "T,4565,100000,2,,no",
             "T,4565,100000,2,nowhere.txt,", "T,4567,100000,2,,"]
    (place / "mixed.csv").write_text("\n".join(lines) + "\n", encoding="ascii")
    done = many(place, environment, "mixed.csv", "--output", "mixed", status=1)
    assert "mixed.csv:6: 4565-2 failed: --chamber: cannot open nowhere.txt: No such file" in done.stderr, done
    assert "5 runs: 3 done, 2 failed: mixed/status.csv" in done.stderr, done.stderr
    states = status_of(place / "mixed")
    assert [s for s, _ in states.values()] == ["done", "failed", "done", "failed", "done"], states
    assert "error reading file         9999" in states["9999"][1], states
    assert (place / "mixed/4566/button_coeff.dat").exists()
    assert not (place / "mixed/4565/button_coeff.dat").exists()
    assert (place / "mixed/.many/failed/9999/session.txt").exists()
    assert not (place / "mixed/9999").exists()
    # Once more: the good ones stay, the bad ones are tried again, and good data help one of them.
    before = made_when(place / "mixed")
    raw = place / "t/online/kbpmII/raw"
    (raw / "09").mkdir()
    shutil.copy(raw / "04/RD-004566.dat", raw / "09/RD-009999.dat")
    shutil.copy(raw / "04/RD-004565.dat", raw / "09/RD-009998.dat")
    done = many(place, environment, "mixed.csv", "--output", "mixed/", status=1)
    assert "5 runs: 4 done (3 before), 1 failed" in done.stderr, done.stderr
    after = made_when(place / "mixed")
    assert before.items() <= after.items() and "9999" in after, (before, after)
    assert not (place / "mixed/.many/failed/9999").exists()
    assert os.listdir(place / "mixed/.many/making") == []


def changed_and_removed_lines(place, environment):
    write_list(place / "runs.csv", 5)
    many(place, environment, "runs.csv", "--output", "changed")
    before = made_when(place / "changed")
    text = (place / "runs.csv").read_text(encoding="ascii").splitlines()
    text[3] = text[3].replace(",101,", ",150,")  # week_001
    del text[5]  # week_003
    (place / "runs.csv").write_text("\n".join(text) + "\n", encoding="ascii")
    done = many(place, environment, "runs.csv", "--output", "changed", "--dry-run")
    assert done.stdout == "week_001\n", done.stdout
    assert status_of(place / "changed")["week_001"][0] == "waiting"
    done = many(place, environment, "runs.csv", "--output", "changed")
    assert "changed in the list, to be made again: week_001\n" in done.stderr, done.stderr
    after = made_when(place / "changed")
    assert {n for n in after if after[n] != before.get(n)} == {"week_001"}, (before, after)
    assert "week_003" in after and "week_003" not in status_of(place / "changed")
    record = (place / "changed/week_001/run.json").read_text(encoding="utf-8")
    assert '"--limit=150"' in record and '"directory": "changed/week_001"' in record
    messages = (place / "changed/week_001/messages.txt").read_text(encoding="utf-8")
    assert "changed/week_001/report.html" in messages and ".many" not in messages, messages


def nobody_elses_folder(place, environment):
    """A folder that happens to have a run's name is neither replaced nor taken for the run."""
    (place / "taken/week_002").mkdir(parents=True)
    (place / "taken/week_002/thesis.txt").write_text("years", encoding="ascii")
    write_list(place / "runs.csv", 4)
    done = many(place, environment, "runs.csv", "--output", "taken", status=2)
    assert "runs.csv:5: taken/week_002: is there, and is no run of a list" in done.stderr, done
    assert sorted(os.listdir(place / "taken")) == [".many", "week_002"]
    assert (place / "taken/week_002/thesis.txt").exists()


def one_engine_at_a_time(place, environment):
    """A second engine is refused; the first, asked to end, ends its sessions and leaves all whole."""
    write_list(place / "runs.csv", 60)
    command = [BUTNGAIN, "many", "runs.csv", "--output", "ended", "--jobs", "3"]
    for number in (signal.SIGTERM, signal.SIGINT):
        first = subprocess.Popen(command, cwd=place, env=environment, stderr=subprocess.PIPE)
        try:
            most = 0
            goal = len(made_when(place / "ended")) + 2
            while len(made_when(place / "ended")) < goal:
                assert first.poll() is None, first.stderr.read()
                children = pathlib.Path(f"/proc/{first.pid}/task/{first.pid}/children")
                most = max(most, len(children.read_text(encoding="ascii").split()))
                time.sleep(0.01)
            assert 1 <= most <= 3, most
            done = many(place, environment, "runs.csv", "--output", "ended", status=2)
            assert "another butngain many is at work there" in done.stderr, done.stderr
            first.send_signal(number)
            said = first.communicate(timeout=PATIENCE)[1].decode()
        finally:
            first.kill()
        assert first.returncode == -number
        assert "interrupted; the same call goes on" in said, said
        assert sessions_of("ended") == []
        states = status_of(place / "ended")
        waiting = sum(s == "waiting" for s, _ in states.values())
        assert len(states) == 60 and waiting == 60 - len(made_when(place / "ended")) > 0, states
        assert os.listdir(place / "ended/.many/making") == []


def leftovers_go(place, environment):
    """What a dead engine left is removed; what a living task works on is waited for."""
    write_list(place / "runs.csv", 3)
    making = place / "left/.many/making"
    (making / "week_001").mkdir(parents=True)
    (making / "week_001/half").write_text("x", encoding="ascii")
    (making / "gone.lock").write_text("", encoding="ascii")
    held = subprocess.Popen(["flock", str(making / "week_002.lock"), "sleep", "2"])
    while subprocess.run(["flock", "-n", str(making / "week_002.lock"), "true"],
                         check=False).returncode == 0:
        time.sleep(0.01)
    many(place, environment, "runs.csv", "--output", "left")
    assert held.poll() == 0
    assert len(made_when(place / "left")) == 3 and os.listdir(making) == []
    assert not (place / "left/week_001/half").exists()


def a_run_that_cannot_be_locked_is_told(place, environment):
    write_list(place / "runs.csv", 3)
    (place / "unlockable/.many/making/week_001.lock").mkdir(parents=True)
    done = many(place, environment, "runs.csv", "--output", "unlockable", status=1)
    assert "week_001 failed: cannot lock unlockable: Is a directory" in done.stderr, done.stderr
    states = [state for state, _ in status_of(place / "unlockable").values()]
    assert states == ["done", "failed", "done"], states


def long_lists_are_dealt_out(place, environment):
    """More runs than an array may have tasks: each share is a task, and no run is in two or in none."""
    write_list(place / "long.csv", 1003)
    done = many(place, environment, "long.csv", "--output", "long", "--engine", "slurm", "--dry-run",
                "--jobs", "7")
    script = (place / "long/slurm.sh").read_text(encoding="utf-8")
    assert "--array=1-1000%7\n" in script and '--share "$SLURM_ARRAY_TASK_ID/1000"' in script, script
    names = [many(place, environment, "long.csv", "--output", "long", "--dry-run", "--share",
                  f"{i}/1000").stdout.split() for i in (1, 3, 4, 1000)]
    assert names == [["week_000", "week_1000"], ["week_002", "week_1002"], ["week_003"],
                     ["week_999"]], names
    assert len(done.stdout.split()) == 1003


def parallel_makes_the_same(place, environment):
    if shutil.which("parallel") is None:
        print("left out: GNU parallel is not installed")
        done = many(place, environment, "runs.csv", "--output", "p", "--engine", "parallel", status=2)
        assert "parallel is not installed here" in done.stderr
        return
    write_list(place / "runs.csv", 6)
    with open(place / "runs.csv", "a", encoding="ascii") as runs:
        runs.write("not_there,T,9997,100000,2,,\n")
    many(place, environment, "runs.csv", "--output", "by_local", status=1)
    done = many(place, environment, "runs.csv", "--output", "by_parallel", "--engine", "parallel",
                "--jobs", "2", status=1)
    assert "7 runs: 6 done, 1 failed" in done.stderr, done.stderr
    assert_same_runs(place / "by_local", place / "by_parallel")
    assert status_of(place / "by_local") == status_of(place / "by_parallel")
    # Ended or killed, it takes its tasks and their sessions with it.
    write_list(place / "long.csv", 40)
    for number in (signal.SIGINT, signal.SIGKILL):
        engine = subprocess.Popen([BUTNGAIN, "many", "long.csv", "--output", "p", "--engine",
                                   "parallel"], cwd=place, env=environment, stderr=subprocess.PIPE)
        goal = len(made_when(place / "p")) + 2
        while len(made_when(place / "p")) < goal:
            assert engine.poll() is None, engine.stderr.read()
            time.sleep(0.01)
        engine.send_signal(number)
        engine.communicate(timeout=PATIENCE)
        assert engine.returncode == -number
        if number == signal.SIGINT:
            assert {s for s, _ in status_of(place / "p").values()} == {"done", "waiting"}
        while sessions_of("p"):  # killed, it cannot wait for them
            assert number == signal.SIGKILL, sessions_of("p")
            time.sleep(0.01)
        assert len(made_when(place / "p")) < 40
    # Tasks by hand, as scripts of other systems call them.
    for share in ("1/2", "2/2"):
        many(place, environment, "runs.csv", "--output", "by_tasks", "--share", share,
             status=0 if share == "2/2" else 1)
    assert not (place / "by_tasks/status.csv").exists()
    assert_same_runs(place / "by_local", place / "by_tasks")


def main():
    with tempfile.TemporaryDirectory(prefix="many-") as folder:
        place = pathlib.Path(folder)
        environment = simulate(BPMSIM, place, bpms=2, turns=200, seed=4)
        for fact in (lists_that_cannot_be_meant, names_follow_from_answers, failures_do_not_stop_the_others, changed_and_removed_lines,
                     nobody_elses_folder, one_engine_at_a_time, leftovers_go,
                     a_run_that_cannot_be_locked_is_told, long_lists_are_dealt_out, parallel_makes_the_same):
            fact(place, environment)
            print(fact.__name__, flush=True)


main()
