"""Runs the commands of one document, in order, in a scratch folder with the built programs on PATH.

usage: documented_commands.py SOURCE_FOLDER DOCUMENT FOLDER_OF_A_PROGRAM...

What counts are fenced blocks:
  ```sh             every line is a command
  ``` with "$ ..."  the lines with "$ " are commands. Lines that follow one must come in what it
                    prints, in this order ("..." leaves some out; one number is as good as another).
                    After "$ butngain" they are a session: what is typed behind a question is its
                    answer
  any other block   a sample
A comment of the document in front of a block says more about it:
  <!-- file: NAME -->      the block is written to this file
  <!-- needs: PROGRAM -->  left out where the program is not installed; "python3 MODULE" likewise
  <!-- not run: WHY -->    left out
"""

import os
import re
import shutil
import subprocess
import sys
import tempfile

SOURCE, DOCUMENT = sys.argv[1:3]
# This interpreter is the one whose modules are installed; it comes first for the commands too.
os.environ["PATH"] = ":".join([*sys.argv[3:], os.path.dirname(sys.executable), os.environ["PATH"]])

QUESTIONS = [
    " TBT data (T), Orbit data(O) or fake data (F) ? ",
    " First fake file name (e.g. exp_0.txt) ",
    " Last fake file name (e.g.  exp_120.txt) ",
    " Compute positions (x,y) using nonlin BPM for N orbits (def N=0) ",
    " Turn by turn data file ? ",
    " Correct tbt data for gain and pedestal ?  (1=no_correct, 2=pedestal correct,"
    " 3=gain and pedestal correct ) ",
    " Bunch number? ",
    " Pedestal bunch number ? (0 if none) ",
    " Limit turns to: (CR use all) ",
    " Another RD file ? (y/n) ",
    " which bpm ? (-1 for all) ",
    " Input command file : ",
    " Index ? ",
    " Postscript (p) or Gif (g) ? ",
]
DEFAULT = re.compile(r"^(\(def = [^)]*\)|<CR = [^>]*>:)")
RUN_NAME = re.compile(r"\b\d{8}_\d{6}\b")
NEWEST_RUN = "$(ls -d 2*_* | tail -1)"


def blocks():
    """The fenced blocks: kind, notes of the comments in front of it, lines."""
    notes, found, inside = {}, [], None
    with open(f"{SOURCE}/{DOCUMENT}", encoding="utf-8") as document:
        for number, line in enumerate(document, 1):
            line = line.rstrip("\n")
            if inside is not None:
                if line == "```":
                    found.append(inside)
                    inside, notes = None, {}
                else:
                    inside[3].append(line)
            elif line.startswith("```"):
                inside = (line[3:].strip(), notes, number, [])
            elif said := re.fullmatch(r"<!-- (file|needs|not run): (.*) -->", line):
                notes[said[1]] = said[2]
            elif line.strip():
                assert not notes, f"{DOCUMENT}:{number}: the comment above belongs to no block"
                assert not re.match(r"    (\$ |bpmsim |butngain|kbpm_dump |\w+=)", line), \
                    f"{DOCUMENT}:{number}: a command outside a fenced block"
    assert inside is None, f"{DOCUMENT}: a block without an end"
    return found


def answer_of(line):
    """What is typed behind the question in this line; nothing where the line is no question."""
    for question in QUESTIONS:
        if line.startswith(question.rstrip()):
            return DEFAULT.sub("", line[len(question):].strip()).strip()
    return None


def missing(needs):
    """Whether the program, or the module of the interpreter, is not installed."""
    program, *modules = needs.split()
    if shutil.which(program) is None:
        return True
    return any(subprocess.run([program, "-c", f"import {m}"], check=False,
                              capture_output=True).returncode for m in modules)


class Script:
    """The commands as one shell script, and the sessions whose lines are looked at afterwards."""

    def __init__(self):
        self.lines = ["set -e"]
        self.sessions = []

    def command(self, text, number):
        self.lines += [f": {DOCUMENT}:{number}", RUN_NAME.sub(NEWEST_RUN, text)]

    def session(self, command, shown, number):
        answers = [a for a in map(answer_of, shown) if a is not None]
        typed = " ".join("'" + a.replace("'", "'\\''") + "'" for a in answers)
        self.shown(f"printf '%s\\n' {typed} | {command}", shown, number)

    def shown(self, command, shown, number):
        fails = any(line.startswith("butngain: run-time error: ") for line in shown)
        log = f"$SCRATCH/session.{len(self.sessions)}"
        command = RUN_NAME.sub(NEWEST_RUN, command)
        self.lines += [f": {DOCUMENT}:{number}",
                       f"status=0; {{ {command}; }} >{log} 2>&1 || status=$?",
                       f"[ $status -eq {int(fails)} ] || {{ tail -5 {log} >&2; false; }}"]
        self.sessions.append((number, shown))


def script_of(found):
    script = Script()
    for kind, notes, number, lines in found:
        if "not run" in notes:
            continue
        if "needs" in notes and missing(notes["needs"]):
            print(f"{DOCUMENT}:{number}: left out: {notes['needs']} is not installed")
        elif "file" in notes:
            text = "\n".join(lines) + "\n"
            script.lines += [f"mkdir -p \"$(dirname {notes['file']})\"",
                             f"cat >{notes['file']} <<'END_OF_SAMPLE'\n{text}END_OF_SAMPLE"]
        elif kind == "sh":
            script.command("\n".join(lines), number)
        elif any(line.startswith("$ ") for line in lines):
            starts = [i for i, line in enumerate(lines) if line.startswith("$ ")] + [len(lines)]
            assert starts[0] == 0, f"{DOCUMENT}:{number}: lines before the first command"
            for start, end in zip(starts, starts[1:]):
                command = lines[start][2:]
                shown = lines[start + 1:end]
                if re.fullmatch(r"(\w+=\S+ )*butngain( --.*)?", command):
                    script.session(command, shown, number + start + 1)
                elif shown:
                    script.shown(command, shown, number + start + 1)
                else:
                    script.command(command, number + start + 1)
    return script


def plain(text):
    """The text with every number, and every run of blanks, made the same."""
    text = re.sub(r"[-+]?\d+(\.\d*)?([DdEe][-+]\d+)?", "#", text)
    return " ".join(text.split())


def check_session(number, shown, printed):
    """Every line shown comes in what was printed, behind the line before it."""
    rest = plain(printed)
    for line in shown:
        if line.strip() == "...":
            continue
        for question in QUESTIONS:
            if line.startswith(question.rstrip()):
                line = question
        wanted = plain(line.removesuffix("..."))
        at = rest.find(wanted)
        assert at >= 0, f"{DOCUMENT}:{number}: what is not shown\n{line}\nbut\n{rest[:2000]}"
        rest = rest[at + len(wanted):]


def main():
    script = script_of(blocks())
    with tempfile.TemporaryDirectory() as scratch:
        place = scratch + "/place"
        os.makedirs(place + "/docs/images")
        for name in ("src", "tools", "scripts"):
            os.symlink(f"{SOURCE}/{name}", f"{place}/{name}")
        environment = {name: value for name, value in os.environ.items()
                       if name not in ("DISPLAY", "KOVR_ONLINE")}
        environment |= {"SCRATCH": scratch, "HOME": scratch, "TMPDIR": scratch, "GNUTERM": "dumb"}
        done = subprocess.run(["bash", "-xc", "\n".join(script.lines)], cwd=place, check=False,
                              env=environment, capture_output=True, text=True)
        if done.returncode != 0:
            print(done.stdout[-3000:])
            sys.exit(f"{DOCUMENT}: status {done.returncode}\n{done.stderr[-3000:]}")
        for i, (number, shown) in enumerate(script.sessions):
            with open(f"{scratch}/session.{i}", encoding="utf-8", errors="replace") as log:
                check_session(number, shown, log.read().replace("\0", " "))
    print(f"{DOCUMENT}: {sum(l.startswith(': ') for l in script.lines)} commands")


main()
