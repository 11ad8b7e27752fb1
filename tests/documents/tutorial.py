"""Runs a document as a notebook, in one interpreter, in a scratch folder.

usage: tutorial.py DOCUMENT [--write]   (programs on PATH, the module on PYTHONPATH)

What counts are fenced blocks:
  ```sh      run by bash
  ```python  run, block after block, in one namespace
  ```text    what the python block above prints: words as they stand, numbers within a hundredth or
             two of the last digit shown
A comment in front of a block leaves it out where something is not installed:
  <!-- needs: python3 MODULE -->
Every picture that the document links and a block that ran draws must be there and as large as the
committed one. --write puts what was printed and drawn into the document and its folder instead.
Status 77: numpy is not installed.
"""
import contextlib
import importlib.util
import io
import os
import re
import shutil
import subprocess
import sys
import tempfile

DOCUMENT = os.path.abspath(sys.argv[1])
WRITE = "--write" in sys.argv
BLOCK = re.compile(r"(?:<!-- needs: python3 (?P<needs>\w+) -->\n)?^```(?P<kind>sh|python|text)\n"
                   r"(?P<text>.*?)^```$", re.M | re.S)
NUMBER = re.compile(r"[-+]?\d+(?:\.\d*)?(?:e[-+]?\d+)?")


def step_of(text):
    """One of the last digit that is shown."""
    mantissa, _, exponent = text.partition("e")
    _, _, decimals = mantissa.partition(".")
    return 10.0 ** (int(exponent or 0) - len(decimals))


def same(shown, printed):
    if NUMBER.sub("#", shown).split() != NUMBER.sub("#", printed).split():
        return False
    return all(abs(float(a) - float(b)) <= max(2 * step_of(a), 0.01 * abs(float(a)))
               for a, b in zip(NUMBER.findall(shown), NUMBER.findall(printed)))


def size_of_png(path):
    with open(path, "rb") as file:
        return file.read(24)[16:]


def run(kind, text, line, namespace):
    if kind == "sh":
        subprocess.run(["bash", "-ec", text], check=True, stdout=subprocess.DEVNULL)
        return ""
    printed = io.StringIO()
    with contextlib.redirect_stdout(printed):
        exec(compile("\n" * line + text, DOCUMENT, "exec"), namespace)  # lines as in the document
    return printed.getvalue()


def main():
    with open(DOCUMENT, encoding="utf-8") as file:
        document = file.read()
    parts, end, printed, blocks, namespace = [], 0, "", 0, {}
    for block in BLOCK.finditer(document):
        kind, text, needs = block["kind"], block["text"], block["needs"]
        line = document.count("\n", 0, block.start("text"))
        if needs and importlib.util.find_spec(needs) is None:
            print(f"{DOCUMENT}:{line}: left out: {needs} is not installed")
            continue
        if kind != "text":
            assert not printed, f"{DOCUMENT}:{line}: not shown above: {printed}"
            printed = run(kind, text, line, namespace)
            blocks += 1
            continue
        if WRITE:
            parts += [document[end:block.start("text")], printed]
            end = block.end("text")
        else:
            assert same(text, printed), f"{DOCUMENT}:{line}: shown\n{text}\nprinted\n{printed}"
        printed = ""
    assert blocks > 0 and not printed, printed
    drawn = 0
    for name in re.findall(r"^!\[.*\]\(images/(.*)\)$", document, re.M):
        committed = os.path.join(os.path.dirname(DOCUMENT), "images", name)
        if importlib.util.find_spec("matplotlib") is None:
            continue
        if WRITE:
            shutil.copy(name, committed)
        assert size_of_png(name) == size_of_png(committed), name
        drawn += 1
    if WRITE:
        with open(DOCUMENT, "w", encoding="utf-8") as file:
            file.write("".join(parts) + document[end:])
    print(f"{DOCUMENT}: {blocks} blocks, {drawn} pictures")


if importlib.util.find_spec("numpy") is None:
    print("skipped: python3-numpy is not installed")
    sys.exit(77)
with tempfile.TemporaryDirectory() as scratch:
    os.chdir(scratch)
    os.environ["HOME"] = scratch  # matplotlib keeps a list of fonts there
    main()
    os.chdir("/")
