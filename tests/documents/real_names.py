"""Names in the documents that explain the sources stand for something in the sources.

usage: real_names.py SOURCE_FOLDER

In docs/architecture.md every word and path in backticks; in the README of every folder the files.
"""

import os
import re
import subprocess
import sys

os.chdir(sys.argv[1])
FILES = [os.path.join(folder, name)
         for top in ("src", "include", "python", "tools", "tests", "bench", "fuzz", "scripts", "docs",
                     "cmake")
         for folder, _, names in os.walk(top) for name in names]
# Names of files that a run leaves or reads.
OUTPUTS = {"NAME.dat", "NAME.dat_fit"}


def is_file(name):
    """Whether a file or folder ends in this path."""
    wanted = "/" + name.rstrip("/")
    return any(("/" + f).endswith(wanted) or wanted + "/" in "/" + f for f in FILES)


def words_of_sources():
    words = set()
    for path in FILES:
        if path.startswith(("src/", "tools/")) and path.endswith((".hpp", ".cpp", ".txt")) or \
                path.startswith("tests/") and path.endswith("CMakeLists.txt"):
            with open(path, encoding="utf-8") as source:
                words.update(re.findall(r"\w+", source.read()))
    return words


def main():
    known = words_of_sources()
    faults = []
    with open("docs/architecture.md", encoding="utf-8") as document:
        text = re.sub(r"```.*?```", "", document.read(), flags=re.S)
    for name in sorted(set(re.findall(r"`([^`]+)`", text)) - OUTPUTS):
        if not is_file(name) and not set(re.findall(r"\w+", name)) <= known:
            faults.append(f"docs/architecture.md: there is no {name}")
    for readme in (f for f in FILES if f.endswith("/README.md")):
        with open(readme, encoding="utf-8") as document:
            text = document.read()
            for name in re.findall(r"`([\w/]+\.(?:hpp|cpp|py|cmake|md)(?:\.in)?)`", text):
                if not is_file(name):
                    faults.append(f"{readme}: there is no {name}")
    # An empty text would be a failure too.
    sys.exit("\n".join(faults) or 0)


main()
