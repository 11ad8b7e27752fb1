"""Talks to a program of questions over a pseudo terminal and over a pipe.

usage: terminal_pty.py DIALOG_PROGRAM; status 77: pexpect is missing
"""

import os
import signal
import subprocess
import sys
import tempfile
import termios

try:
    import pexpect
except ImportError:
    print("skipped: python3-pexpect is not installed")
    sys.exit(77)

PROGRAM = os.path.abspath(sys.argv[1])
KIND = ["word", " TBT data (T), Orbit data(O) or fake data (F) ? "]
FILE = ["file", " Input command file : "]
BPM = ["record", " which bpm ? (-1 for all)"]


def environment(home, **more):
    """Nothing of the caller's own settings reaches the program."""
    return {"HOME": home, "TERM": "xterm", "INPUTRC": "/dev/null", "PATH": os.environ["PATH"],
            "KOVR_ONLINE": home + "/online", **more}


def session(home, questions, **more):
    return pexpect.spawn(PROGRAM, questions, env=environment(home, **more), cwd=home,
                         timeout=20, encoding="utf-8", dimensions=(24, 80))


def rest(child):
    child.expect(pexpect.EOF)
    child.close()
    return child.before


def transcript_is_the_same_as_on_a_pipe(home):
    answers = "T\nbpm_gain.input\n\n -1\n"
    pipe = subprocess.run([PROGRAM, *KIND, *FILE, *BPM], input=answers, capture_output=True,
                          text=True, env=environment(home), cwd=home, check=True)
    assert pipe.stdout == (KIND[1] + " got [T]\n" + FILE[1] + " got [bpm_gain.input]\n"
                           + BPM[1] + " got [ -1]\n"), pipe.stdout
    child = session(home, [*KIND, *FILE, *BPM])
    child.send(answers)  # all at once: pasted lines are separate answers
    seen = rest(child)
    for got in (" got [T]\r\n", " got [bpm_gain.input]\r\n", " got [ -1]\r\n"):
        assert got in seen, repr(seen)
    assert child.exitstatus == 0


def names_cannot_steer_the_screen(home):
    # A default or a label out of a file; a pipe gets it byte for byte.
    evil = ["word", " run \x1b]0;title\x07\r ? "]
    child = session(home, evil)
    child.send("x\r")
    seen = rest(child)
    assert "\x1b]0;" not in seen and "\\x1b]0;title\\x07\\r" in seen, repr(seen)
    pipe = subprocess.run([PROGRAM, *evil], input=b"x\n", capture_output=True,
                          env=environment(home), cwd=home, check=False)
    assert b" run \x1b]0;title\x07\r ? " in pipe.stdout, pipe.stdout


def no_other_bytes_on_the_screen(home):
    child = session(home, KIND)
    child.expect_exact("(F) ? ")
    child.send("T\r")
    assert rest(child) == "T\r\n got [T]\r\n", repr(child.before)


def answers_can_be_edited_and_recalled(home):
    child = session(home, [*KIND, *FILE, *FILE])
    child.expect_exact("(F) ? ")
    child.send("xT\x01\x04\r")  # to the start, delete one
    child.expect_exact(" got [T]")
    child.expect_exact("file : ")
    child.send("run_1.input\r")
    child.expect_exact(" got [run_1.input]")
    child.expect_exact("file : ")
    child.send("\x1b[A\x7f2\r")  # up, delete the last, type 2
    child.expect_exact(" got [run_1.inpu2]")
    rest(child)
    child = session(home, FILE)  # the next run still knows it
    child.expect_exact("file : ")
    child.send("\x1b[A\x1b[A\r")
    child.expect_exact(" got [run_1.input]")
    rest(child)
    # Where no history can be kept nothing is said.
    child = session(home, FILE, XDG_STATE_HOME="/dev/null")
    child.expect_exact("file : ")
    child.send("a\r")
    assert rest(child) == "a\r\n got [a]\r\n", repr(child.before)


def file_names_complete_below_a_variable(home):
    os.makedirs(home + "/online/sub folder")
    open(home + "/online/sub folder/RD-004567.dat", "w").close()
    child = session(home, FILE)
    child.expect_exact("file : ")
    child.send("$KOVR_ONLINE/su\t")
    child.expect_exact("b folder/")  # a folder goes on
    child.send("RD\t\r")
    # No blank at the end, and the variable as it was typed.
    child.expect_exact(" got [$KOVR_ONLINE/sub folder/RD-004567.dat]")
    rest(child)


def a_word_does_not_complete(home):
    open(home + "/Tfile", "w").close()
    child = session(home, KIND)
    child.expect_exact("(F) ? ")
    child.send("T\t\r")
    child.expect_exact(" got [T]")
    rest(child)


def end_of_input_ends_the_run(home):
    child = session(home, KIND)
    child.expect_exact("(F) ? ")
    child.send("\x04")
    seen = rest(child)
    assert seen == ('\r\nbutngain: run-time error: end of input at "TBT data (T), Orbit data(O) or '
                    'fake data (F) ?"\r\n'), repr(seen)
    assert child.exitstatus == 1


def interrupt_at_a_question_is_the_shells_business(home):
    def edits_lines(child):  # the terminal's own line editing and echo, off while the editor has it
        return termios.tcgetattr(child.child_fd)[3] & (termios.ICANON | termios.ECHO)

    child = session(home, KIND)
    child.expect_exact("(F) ? ")
    assert edits_lines(child) == 0
    child.send("half\x03")
    child.expect(pexpect.EOF)
    restored = edits_lines(child)
    child.close()
    assert child.signalstatus == signal.SIGINT
    assert restored == termios.ICANON | termios.ECHO


def a_dumb_terminal_gets_plain_lines(home):
    child = session(home, FILE, TERM="dumb")
    child.expect_exact("file : ")
    child.send("a\tb\r")
    child.expect_exact(" got [a\tb]")
    rest(child)


CASES = [transcript_is_the_same_as_on_a_pipe, names_cannot_steer_the_screen, no_other_bytes_on_the_screen,
         answers_can_be_edited_and_recalled, file_names_complete_below_a_variable,
         a_word_does_not_complete, end_of_input_ends_the_run,
         interrupt_at_a_question_is_the_shells_business, a_dumb_terminal_gets_plain_lines]

for case in CASES:
    with tempfile.TemporaryDirectory() as scratch:
        print(case.__name__, flush=True)
        case(scratch)
