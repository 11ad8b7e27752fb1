"""Holds man page and completion to the options that the program says it has.

usage: options.py BUTNGAIN MAN_PAGE COMPLETION"""
import re
import shutil
import subprocess
import sys

BUTNGAIN, PAGE, COMPLETION = sys.argv[1:4]
said = subprocess.run([BUTNGAIN, "--help"], capture_output=True, text=True, check=True).stdout
options = set(re.findall(r"^  (?:-\w,)?--([\w-]+)", said, re.M))
assert {"help", "run", "copy", "repeat"} <= options, options
with open(PAGE, encoding="utf-8") as page:  # mdoc writes a long option as Fl -name
    described = set(re.findall(r"Fl -([\w-]+)", page.read()))
assert options <= described, f"not in the man page: {options - described}"

columns = set(re.findall(r"^  (?:-\w,)?--([\w-]+)", subprocess.run(
    [BUTNGAIN, "fit", "--help"], capture_output=True, text=True, check=True).stdout, re.M))
assert {"help", "chamber", "pedestals"} <= columns <= described, f"{columns - described}"

# What bash offers: after the program's name, after an option, and behind "--option=".
ASKED = """source "$1"; shift; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); _butngain
printf '%s\\n' "${COMPREPLY[@]}" """


def offered(*words):
    done = subprocess.run(["bash", "-c", ASKED, "bash", COMPLETION, "butngain", *words],
                          capture_output=True, text=True, check=True)
    assert not done.stderr, done.stderr
    return done.stdout.split()


assert options <= {word.removeprefix("--") for word in offered("--")}, offered("--")
assert columns == {word.removeprefix("--") for word in offered("fit", "--")}
assert offered("fit", "--pedestals", "s") == ["subtracted"]
assert offered("--copy", "g") == ["gif"]
assert offered("--data", "=", "") == offered("--data", "=") == ["T", "O", "F"]
assert offered("--bpm", "") == []
assert offered("--data", "T", "--pe") == ["--pedestal-bunch"]
many = subprocess.run([BUTNGAIN, "many", "--help"], capture_output=True, text=True, check=True).stdout
options = set(re.findall(r"^  (?:-\w,)?--([\w-]+)", many, re.M))
assert {"engine", "jobs", "dry-run"} <= options <= described, options - described
assert options <= {word.removeprefix("--") for word in offered("many", "--")}, offered("many", "--")
assert offered("many", "--engine", "s") == ["slurm"]
if shutil.which("mandoc") is None:
    sys.exit(77)
lint = subprocess.run(["mandoc", "-Tlint", "-Wwarning", PAGE], capture_output=True, text=True,
                      check=False)
assert not lint.stdout, lint.stdout
