"""Holds the man page to what the program says of itself.

usage: man_page.py BPMSIM MAN_PAGE"""
import re
import shutil
import subprocess
import sys

BPMSIM, PAGE = sys.argv[1:3]


def help_of(*words):
    return subprocess.run([BPMSIM, *words, "--help"], capture_output=True, text=True, check=True).stdout


with open(PAGE, encoding="utf-8") as file:
    page = file.read()
subcommands = re.findall(r"^  (\w+) {2,}\S", help_of().split("Subcommands:")[1], re.M)
assert len(subcommands) > 5, subcommands
options = set()
for word in subcommands:
    assert len(re.findall(rf"^\.(?:It )?Cm {word}$", page, re.M)) >= 2, \
        f"{word} must stand in the synopsis and in the list of subcommands"
    options |= set(re.findall(r"^  (?:-\w,)?--([\w-]+)", help_of(word), re.M))
# mdoc writes a long option as Fl -name.
described = set(re.findall(r"Fl -([\w-]+)", page)) - {"version"}
assert options == described, f"only in help: {options - described}; only in the page: {described - options}"
if shutil.which("mandoc") is None:
    sys.exit(77)
said = subprocess.run(["mandoc", "-Tlint", "-Wwarning", PAGE], capture_output=True, text=True, check=False)
assert not said.stdout, said.stdout
