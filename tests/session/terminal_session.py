"""Sessions of the real program as a person has them: options, a terminal, Ctrl-C.

usage: terminal_session.py BUTNGAIN BPMSIM VERSION; status 77: pexpect is not installed
"""

import csv
import os
import signal
import subprocess
import re
import sys
import tempfile

try:
    import pexpect
except ImportError:
    print("skipped: python3-pexpect is not installed")
    sys.exit(77)

BUTNGAIN, BPMSIM = (os.path.abspath(path) for path in sys.argv[1:3])
VERSION = sys.argv[3]
QUESTIONS = ("fake data (F) ? ", "(e.g. exp_0.txt)", "(e.g.  exp_120.txt)")
RUN_FILES = ("file_list.dat", "orbit.dat")


def environment(home):
    """Nothing of the caller's own settings, and no screen."""
    return {"HOME": home, "TERM": "xterm", "INPUTRC": "/dev/null", "PATH": os.environ["PATH"]}


def make_series(folder, bpms):
    subprocess.run([BPMSIM, "series", "--bpms", str(bpms), "--orbits", "400", "--seed", "3"],
                   cwd=folder, check=True, stdout=subprocess.DEVNULL)


def run_folder(folder):
    name, = (name for name in os.listdir(folder) if name[:8].isdigit())
    return folder + "/" + name


def options_need_no_session(folder):
    def status_and_texts(*options):
        run = subprocess.run([BUTNGAIN, *options], cwd=folder, env=environment(folder),
                             capture_output=True, text=True, stdin=subprocess.DEVNULL, check=False)
        return run.returncode, run.stdout, run.stderr

    assert status_and_texts("--version") == (0, f"butngain {VERSION}\n", "")
    status, out, err = status_and_texts("--help")
    assert status == 0 and "--version" in out and "KOVR_ONLINE" in out and err == ""
    for wrong in (["--loud"], ["RD-001234.dat"], ["-x"]):
        status, out, err = status_and_texts(*wrong)
        assert (status, out) == (2, "") and wrong[0] in err and err.count("\n") == 1, err
    assert os.listdir(folder) == []


def a_session_on_a_terminal_says_what_it_says_on_a_pipe(folder):
    make_series(folder, 2)
    answers = ["F", "exp_0.txt", "exp_1.txt", "no"]
    pipe = subprocess.run([BUTNGAIN], cwd=folder, env=environment(folder), capture_output=True,
                          text=True, input="\n".join(answers) + "\n", check=True)
    child = pexpect.spawn(BUTNGAIN, env=environment(folder), cwd=folder, timeout=60,
                          encoding="utf-8", dimensions=(24, 200))
    seen = ""
    for answer, question in zip(answers, (*QUESTIONS, "= no>:")):
        child.expect_exact(question)
        seen += child.before + question
        child.send(answer + "\r")
    child.expect(pexpect.EOF)
    seen += child.before
    child.close()
    assert child.exitstatus == 0
    # Typed answers and their line ends are echoed; the time of day differs.
    typed = seen.replace("\r\n", "\n").splitlines()[2:]
    piped = pipe.stdout.splitlines()[2:]
    assert typed[-1].endswith("= no>:no"), typed[-1]
    fits = [line for line in piped if "chis2" in line]
    assert fits and [line for line in typed if "chis2" in line] == fits


def ctrl_c_in_the_fits_leaves_whole_files(folder):
    make_series(folder, 60)
    child = pexpect.spawn(BUTNGAIN, env=environment(folder), cwd=folder, timeout=60,
                          encoding="utf-8", dimensions=(24, 200))
    for answer, question in zip(("F", "exp_0.txt", "exp_59.txt"), QUESTIONS):
        child.expect_exact(question)
        child.send(answer + "\r")
    child.expect_exact("final chis2")  # in the fits of the first BPM
    child.sendintr()
    child.expect_exact("butngain: interrupted; what was fitted so far is written")
    child.expect(pexpect.EOF)
    child.close()
    assert child.signalstatus == signal.SIGINT
    run = run_folder(folder)
    written = os.listdir(run)
    tables = [name for name in written if name.endswith("_out")]
    assert len(tables) == 1, written
    for name in (*RUN_FILES, *tables):
        with open(f"{run}/{name}", "rb") as file:
            assert file.read().endswith(b"\n"), f"{name} ends inside a line"
    with open(f"{run}/{tables[0]}", encoding="ascii") as table:
        fitted = sum(line.split()[0].isdigit() for line in table if line.split())
    assert 1 <= fitted < 60
    assert sum(name.endswith(".dat_fit") for name in written) == fitted
    with open(f"{run}/gains.csv", encoding="utf-8") as file:
        rows = list(csv.DictReader(file))
    left = [row for row in rows if row["verdict"] == "not fitted"]
    assert len(rows) == 60 and len(left) == 60 - fitted, (len(rows), len(left), fitted)
    assert {row["reason"] for row in left} == {"the run was interrupted before it"}, left[0]
    assert os.path.exists(f"{run}/gains.load")


def the_summary_is_in_colour_for_a_person_who_wants_it(folder):
    make_series(folder, 1)
    for name, value, coloured in (("LANG", "C", True), ("NO_COLOR", "1", False),
                                  ("TERM", "dumb", False)):
        child = pexpect.spawn(BUTNGAIN, env={**environment(folder), name: value}, cwd=folder,
                              timeout=60, encoding="utf-8", dimensions=(24, 200))
        for answer, question in zip(("F", "exp_0.txt", "exp_0.txt"), QUESTIONS):
            child.expect_exact(question)
            child.send(answer + "\r")
        child.expect_exact("= no>:")
        told = "butngain: " + ("\x1b[1m" if coloured else "") + "1 BPM fitted: "
        assert told in child.before, (name, child.before[-600:])
        child.send("no\r")
        child.expect(pexpect.EOF)
        child.close()
        assert child.exitstatus == 0


def progress_is_for_a_person_who_sees_nothing_else(folder):
    make_series(folder, 40)
    answers = folder + "/answers"
    with open(answers, "w", encoding="ascii") as file:
        file.write("F\nexp_0.txt\nexp_39.txt\nno\n")
    child = pexpect.spawn("/bin/sh", ["-c", f"'{BUTNGAIN}' < {answers} > {folder}/log"],
                          env={**environment(folder), "NO_COLOR": "1"}, cwd=folder, timeout=120, encoding="utf-8")
    child.expect(pexpect.EOF)
    child.close()
    assert child.exitstatus == 0
    # A fast machine may be done before anybody waits; what was drawn is gone before the summary. The
    # line about the chamber comes with the first BPM.
    drawn = child.before[:child.before.index("butngain: 40 BPMs fitted: ")]
    drawn = re.sub(r"butngain: no table of these chambers: [^\n]*\n", "", drawn)
    assert drawn == "" or ("fitting BPMs: " in drawn
                           and drawn.endswith("\r\x1b[K")), repr(child.before)
    with open(folder + "/log", "rb") as log:
        assert b"\x1b" not in log.read()


CASES = [options_need_no_session, a_session_on_a_terminal_says_what_it_says_on_a_pipe,
         ctrl_c_in_the_fits_leaves_whole_files,
         the_summary_is_in_colour_for_a_person_who_wants_it,
         progress_is_for_a_person_who_sees_nothing_else]

for case in CASES:
    with tempfile.TemporaryDirectory() as scratch:
        print(case.__name__, flush=True)
        case(scratch)
