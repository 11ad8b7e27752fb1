"""run.json and --repeat: whole sessions, their records, and the same sessions made from these.

usage: record_session.py BUTNGAIN BPMSIM SCHEMA; status 77: python3-jsonschema is missing
"""

import glob
import hashlib
import json
import os
import re
import shutil
import signal
import subprocess
import sys
import tempfile

try:
    import jsonschema
except ImportError:
    print("skipped: python3-jsonschema is not installed")
    sys.exit(77)

BUTNGAIN, BPMSIM = (os.path.abspath(path) for path in sys.argv[1:3])
with open(sys.argv[3], encoding="utf-8") as schema_file:
    SCHEMA = json.load(schema_file)
jsonschema.Draft202012Validator.check_schema(SCHEMA)
# What differs between a run and the same run made once more.
OF_THE_RUN = ("started", "working_directory", "directory", "command", "seconds")
LATIN_NAME = b"./m\xe9l.txt"  # of an older system: no UTF-8


def environment():
    kept = {name: value for name, value in os.environ.items() if name != "DISPLAY"}
    return kept | {"KOVR_ONLINE": os.getcwd() + "/tree/online"}


def simulate(*arguments):
    subprocess.run([BPMSIM, *arguments], check=True, stdout=subprocess.DEVNULL, env=environment())


def text_run():
    lines = ["Location : 12W", "# --- Bunch 1 ---"]
    for i in range(40):
        dx, dy = i * 37 % 101, i * 59 % 97
        lines.append(f"{20000 - dx - dy} {20000 + dx - dy} {20000 - dx + dy} {20000 + dx + dy} 0 0 0 0")
    return "\n".join(lines) + "\n"


class Run:
    """One session in a folder of its own below the data, through a pipe or by options."""

    def __init__(self, *options, answers=(), place=None):
        self.place = place or tempfile.mkdtemp(dir=".")
        typed = b"".join(a if isinstance(a, bytes) else a.encode() for a in
                         [x for answer in answers for x in (answer, "\n")])
        done = subprocess.run([BUTNGAIN, "--output", self.place, *options], input=typed,
                              capture_output=True, check=False, env=environment())
        self.status, self.out, self.err = done.returncode, done.stdout, done.stderr.decode(errors="replace")
        self.look()

    def look(self):
        folder, = glob.glob(self.place + "/*_*/")
        self.name = os.path.basename(folder.rstrip("/"))
        self.record_path = folder + "run.json"
        with open(self.record_path, encoding="utf-8") as record:  # fails unless it is UTF-8
            self.record = json.load(record)
        jsonschema.validate(self.record, SCHEMA)

    def files(self):
        """All files but the record and the copy of the plot, with the run's name taken out."""
        found = {}
        for path in glob.glob(self.place + "/**", recursive=True):
            if os.path.isfile(path) and not path.endswith(("run.json", "gif")):
                with open(path, "rb") as file:
                    inside = file.read().replace(self.name.encode(), b"RUN")
                found[os.path.relpath(path, self.place).replace(self.name, "RUN")] = inside
        return found

    def transcript(self):
        return re.sub(rb"   date = .*", b"", self.out).replace(self.name.encode(), b"RUN")

    def lasting(self):
        return {name: value for name, value in self.record.items() if name not in OF_THE_RUN}


SESSIONS = {
    "turn by turn": (["T", "1000", "4566", "3", "1", "2", "60", "y", "0", LATIN_NAME, "n",
                      "", "-1", "gif"], 0, 2 + 1),
    "synthetic": (["F", "exp_0.txt", "exp_1.txt", "no"], 0, 2),
    "text": (["T", "", "./my_run.txt", "n", "-1", "no"], 0, 1),
    "closed orbits": (["O", "", "11", "-1"], 1, 1 + 3),
}
OPTIONS = {
    "turn by turn": ["--batch", "--data=T", "--positions=1000", "--run=-1", "--bpm=-1", "--orbits"],
    "chamber": ["--batch", "--data=F", "--first=exp_0.txt", "--chamber=round.chamber"],
}


def same_files(these, those, what):
    assert sorted(these) == sorted(those), what
    for name, inside in these.items():
        where = next((i for i, (a, b) in enumerate(zip(inside, those[name])) if a != b), None)
        assert inside == those[name], (what, name, inside[where:][:80], those[name][where:][:80])


def records_and_repeats(run, what, inputs):
    assert len(run.record["inputs"]) == inputs, (what, run.record["inputs"])
    for file in run.record["inputs"] + run.record["tables"]:
        path = re.sub(rb"\\x([0-9A-F]{2})", lambda m: bytes([int(m[1], 16)]), file["path"].encode())
        with open(path, "rb") as opened:
            inside = opened.read()
        assert file["size"] == len(inside), file
        assert file["sha256"] == hashlib.sha256(inside).hexdigest(), file
    assert run.record["exit_status"] == run.status, (what, run.record["exit_status"])
    again = Run("--repeat", run.record_path)
    assert again.status == run.status, (what, again.err)
    assert again.transcript() == run.transcript(), what
    same_files(again.files(), run.files(), what)
    assert again.lasting() == run.lasting(), what
    assert "recorded run" not in again.err, again.err
    # From elsewhere, and from the record of the repeated run.
    before, there = os.getcwd(), tempfile.mkdtemp()
    record = os.path.abspath(again.record_path)
    os.chdir(there)
    clean = {name: value for name, value in os.environ.items()
             if name not in ("DISPLAY", "KOVR_ONLINE")}
    done = subprocess.run([BUTNGAIN, "--repeat", record], capture_output=True, check=False, env=clean)
    os.chdir(before)
    assert done.returncode == run.status, (what, done.stderr)
    far = Run.__new__(Run)
    far.place, far.out = there, done.stdout
    far.look()
    assert far.transcript() == run.transcript(), what
    same_files(far.files(), run.files(), what)
    shutil.rmtree(there)


def sessions_are_recorded_and_repeated():
    for what, (answers, status, inputs) in SESSIONS.items():
        run = Run(answers=answers)
        assert run.status == status, (what, run.err)
        typed = [d["answer"] for d in run.record["dialog"]]
        assert typed == [a if isinstance(a, str) else "./m\\xE9l.txt" for a in answers], typed
        assert {d["given"] for d in run.record["dialog"]} == {"pipe"}
        assert run.record["ended"] == ("whole" if status == 0 else
                                       run.err.splitlines()[-1].removeprefix("butngain: "))
        records_and_repeats(run, what, inputs)
    for what, options in OPTIONS.items():
        run = Run(*options)
        assert run.status == 0, (what, run.err)
        assert {d["given"] for d in run.record["dialog"]} == {"option", "default"}
        assert [t["path"] for t in run.record["tables"]][:1] == (
            ["round.chamber"] if what == "chamber" else
            [os.getcwd() + "/tree/online/machine_data/meas/orbit/nonlin_bpm/bpm_48.table"])
        records_and_repeats(run, what, 1 if what == "chamber" else 2)


def what_is_not_as_recorded_is_one_line():
    run = Run(answers=SESSIONS["text"][0])
    with open("my_run.txt", "a", encoding="ascii") as changed:
        changed.write("20000 20000 20000 20000 0 0 0 0\n")
    again = Run("--repeat", run.record_path)
    assert again.status == 0 and [line for line in again.err.splitlines() if "recorded" in line] == [
        "butngain: ./my_run.txt is not what the recorded run read: its content differs"], again.err

    def altered(change):
        record = json.loads(json.dumps(run.record))
        change(record)
        with open("altered.json", "w", encoding="utf-8") as file:
            json.dump(record, file)
        done = subprocess.run([BUTNGAIN, "--repeat", "altered.json", "--output", "altered"],
                              capture_output=True, check=False, env=environment(), text=True)
        return done.returncode, done.stderr.splitlines()[-1]

    status, line = altered(lambda record: record["dialog"].pop(1))
    assert (status, line) == (
        1, "butngain: run-time error: altered.json: asked is \"Compute positions (x,y) using nonlin"
           " BPM for N orbits (def N=0)\", expected the recorded question \"Turn by turn data file ?\""
        ), line
    status, line = altered(lambda record: record["dialog"].pop())
    assert status == 1 and line.startswith(
        "butngain: run-time error: altered.json: no answer is recorded to \"Postscript"), line
    status, line = altered(lambda record: record["arguments"].append("--frog"))
    assert status == 2 and "--frog" in line, line
    status, line = altered(lambda record: record.pop("inputs"))
    assert (status, line) == (
        2, "butngain: --repeat: altered.json: \"inputs\" is missing or wrong, expected a value of"
           " this name"), line
    done = subprocess.run([BUTNGAIN, "--repeat", run.record_path, "--bpm", "3"], check=False,
                          capture_output=True, text=True)
    assert done.returncode == 2 and "--bpm cannot be given with --repeat" in done.stderr, done.stderr


def every_end_is_recorded():
    cut = Run(answers=["T", "1000"])
    assert (cut.status, cut.record["exit_status"]) == (1, 1)
    assert cut.record["ended"].startswith("run-time error: end of input at \"Turn"), cut.record

    # Long enough that the signal comes while BPMs are fitted, on as many threads as there are.
    simulate("series", "--dir", "long", "--bpms", "120", "--orbits", "500")
    place = os.path.abspath(tempfile.mkdtemp(dir="."))
    session = [BUTNGAIN, "--batch", "--data=F", "--first=exp_0.txt", "--last=exp_119.txt",
               "--output", place]
    child = subprocess.Popen(session, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                             env=environment(), cwd="long")
    for line in child.stdout:  # the fits have begun
        if b" orbits for BPM" in line:
            break
    looked_at = Run.__new__(Run)
    looked_at.place = place
    looked_at.look()
    assert (looked_at.record["ended"], looked_at.record["exit_status"]) == ("running", None)
    assert len(looked_at.record["inputs"]) == 120
    child.send_signal(signal.SIGINT)
    child.communicate()
    looked_at.look()
    assert child.returncode == -signal.SIGINT
    assert (looked_at.record["ended"], looked_at.record["exit_status"]) == ("interrupted", 130)


def a_record_that_cannot_be_written_hides_no_result():
    place = tempfile.mkdtemp(dir=".")
    child = subprocess.Popen([BUTNGAIN, "--output", place], stdin=subprocess.PIPE,
                             stdout=subprocess.PIPE, stderr=subprocess.PIPE, env=environment())
    while b"create directory" not in child.stdout.readline():
        pass
    child.stdin.write(b"F\n")
    child.stdin.flush()
    folder, = glob.glob(place + "/*_*/")
    while not os.path.isfile(folder + "run.json"):
        pass
    os.remove(folder + "run.json")
    os.makedirs(folder + "run.json/in_the_way")
    _, err = child.communicate(b"exp_0.txt\nexp_1.txt\nno\n")
    assert child.returncode == 1, err
    assert err.decode().splitlines()[-1] == (
        f"butngain: cannot write {folder}run.json: Is a directory"), err
    assert os.path.getsize(folder + "EXP_1.dat_fit") > 0
    assert sorted(os.listdir(folder + "run.json")) == ["in_the_way"]


def columns_are_recorded_without_a_dialog():
    rows = "".join(f"{20000 + i} 20000 {20000 - i} 20000\n" for i in range(5))
    with open("rows.txt", "w", encoding="ascii") as file:
        file.write(rows)
    for name, path in (("rows.txt", "rows.txt"), ("-", "/dev/stdin")):
        with open("rows.txt", encoding="ascii") as typed:
            subprocess.run([BUTNGAIN, "fit", name, "--chamber", "round.chamber", "--output", "found"],
                           check=True, capture_output=True, stdin=typed)
        with open("found/run.json", encoding="utf-8") as file:
            record = json.load(file)
        jsonschema.validate(record, SCHEMA)
        assert (record["dialog"], record["ended"]) == ([], "whole"), record
        assert record["inputs"] == [{"path": path, "size": len(rows),
                                     "sha256": hashlib.sha256(rows.encode()).hexdigest()}], record
        assert [t["path"] for t in record["tables"]] == ["round.chamber"], record
        assert set(record["seconds"]) == {"data", "fit", "results"}, record


def a_fit_of_columns_that_is_ended_keeps_what_it_has():
    with open("many.txt", "w", encoding="ascii") as file:
        for i in range(1000):
            dx, dy = i * 37 % 1001, i * 59 % 997
            row = f"{20000 - dx - dy} {20000 + dx - dy} {20000 - dx + dy} {20000 + dx + dy}\n"
            file.writelines(f"{bpm} {row}" for bpm in range(300))
    child = subprocess.Popen([BUTNGAIN, "fit", "many.txt", "--chamber", "round.chamber", "--output",
                              "ended"], stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    while not os.path.exists("ended/run.json"):  # the fits have begun
        pass
    child.send_signal(signal.SIGTERM)
    out, err = child.communicate()
    assert child.returncode == -signal.SIGTERM, err
    assert err.decode() == "butngain: terminated; what was fitted so far is written\n", err
    with open("ended/run.json", encoding="utf-8") as file:
        record = json.load(file)
    jsonschema.validate(record, SCHEMA)
    assert (record["ended"], record["exit_status"]) == ("terminated", 143), record
    left = [b for b in record["bpms"] if b["reason"] == "the run was interrupted before it"]
    assert len(record["bpms"]) == 300 and len(left) + len(out.splitlines()) == 300, len(left)
    assert left


def main():
    with tempfile.TemporaryDirectory() as scratch:
        os.chdir(scratch)
        simulate("tree", "tree", "--bpms", "3", "--turns", "100", "--seed", "3")
        simulate("series", "--bpms", "2", "--orbits", "60")
        simulate("orbits", "--orbits", "3", "--bpms", "50")
        for name in ("my_run.txt", LATIN_NAME):
            with open(name, "w", encoding="ascii") as file:
                file.write(text_run())
        with open("round.chamber", "w", encoding="ascii") as file:
            file.write("nonlin_bpm_chamber 1\nname pipe\nunits mm\ncontour circle 45\n"
                       "button 1 -31.82 -31.82 19 strip\nbutton 2 31.82 -31.82 19 strip\n"
                       "button 3 -31.82 31.82 19 strip\nbutton 4 31.82 31.82 19 strip\n"
                       "x_grid 31 -30 30\ny_grid 31 -30 30\nmargin 4\nend\n")
        sessions_are_recorded_and_repeated()
        what_is_not_as_recorded_is_one_line()
        every_end_is_recorded()
        a_record_that_cannot_be_written_hides_no_result()
        columns_are_recorded_without_a_dialog()
        a_fit_of_columns_that_is_ended_keeps_what_it_has()
        os.chdir("/")


main()
