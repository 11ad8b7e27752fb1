"""Table of scripts/coverage: lines and branches reached, by folder, from gcovr's JSON.

coverage_table.py FILE [--limits] [--missed FOLDER]
--limits  status 1 when a folder or src as a whole is below its limit
--missed  instead of the table: lines and branches of these sources that nothing reached
"""
import argparse
import json
import sys

LIMITS = {"src": (99, 92), "src/plot": (90, 0), "tools/kbpm_dump": (90, 0)}


def folder_of(path):
    return "/".join(path.split("/")[:2])


def count(file):
    lines = [line for line in file["lines"] if not line.get("gcovr/noncode")]
    branches = [b for line in lines for b in line["branches"]]
    return [
        len(lines), sum(line["count"] > 0 for line in lines),
        len(branches), sum(b["count"] > 0 for b in branches)]


def percent(part, all_):
    return 100.0 * part / all_ if all_ else 100.0


def table(files, limits):
    sums = {}
    for file in files:
        path = file["file"]
        for name in (folder_of(path), path.split("/")[0]):
            sums[name] = [a + b for a, b in zip(sums.get(name, [0] * 4), count(file))]
    below = []
    print(f"{'folder':<18} {'lines':>7} {'reached':>8} {'branches':>9} {'reached':>8}")
    for name in sorted(sums):
        lines, met, branches, taken = sums[name]
        p, q = percent(met, lines), percent(taken, branches)
        print(f"{name:<18} {lines:>7} {p:>7.2f}% {branches:>9} {q:>7.2f}%")
        least = LIMITS.get(name, (0, 0))
        if p < least[0] or q < least[1]:
            below.append(f"{name}: below {least[0]} % of lines or {least[1]} % of branches")
    for line in below if limits else []:
        print(line, file=sys.stderr)
    return 1 if below and limits else 0


def missed(files, start):
    for file in files:
        if not file["file"].startswith(start):
            continue
        for line in file["lines"]:
            if line.get("gcovr/noncode"):
                continue
            cold = sum(b["count"] == 0 for b in line["branches"])
            if line["count"] == 0 or cold:
                what = "line" if line["count"] == 0 else f"{cold} of {len(line['branches'])} branches"
                print(f"{file['file']}:{line['line_number']}: {what}")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("file")
    parser.add_argument("--limits", action="store_true")
    parser.add_argument("--missed")
    options = parser.parse_args()
    with open(options.file, encoding="utf-8") as stream:
        files = json.load(stream)["files"]
    if options.missed is not None:
        missed(files, options.missed)
        return 0
    return table(files, options.limits)


sys.exit(main())
