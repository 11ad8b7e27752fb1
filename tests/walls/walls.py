"""Whether every wall stands: a forbidden include does not compile, a permitted one does.

walls.py ROWS COMPILER FLAGS...: ROWS has one row a line (rooms.cmake says what they mean); beside it
lie, for each target, its compiler flags (TARGET.flags) and its sources (TARGET.sources)."""
import concurrent.futures
import os
import pathlib
import subprocess
import sys

rows_file = pathlib.Path(sys.argv[1])
compiler = sys.argv[2:]
rows = [line.split() for line in rows_file.read_text().splitlines()]


def run(target, *arguments, source=""):
    command = compiler + [f"@{rows_file.parent / target}.flags", *arguments]
    return subprocess.run(command, input=source, capture_output=True, text=True,
                          env=dict(os.environ, LC_ALL="C"))


def including(target, header):
    """What the compiler says to one line of source in this target; empty: it compiles."""
    result = run(target, "-fsyntax-only", "-x", "c++", "-", source=f'#include "{header}"\n')
    return result.stderr if result.returncode else ""


def headers(target):
    """Every file that the sources of this target include, directly or not, and what went wrong."""
    found = set()
    for source in (rows_file.parent / f"{target}.sources").read_text().split("\n"):
        if source:
            result = run(target, "-M", source)
            if result.returncode:
                return set(), f"{source} of {target} cannot be read:\n{result.stderr}"
            found |= set(result.stdout.replace("\\\n", " ").split()[1:])
    return found, ""


def fault(row):
    """What is wrong with a row; empty when it holds."""
    kind, room, *rest = row
    header = rest[-1]
    if kind == "door":
        said = including(room, header)
        return said and f"{room} cannot include {header}, which it may:\n{said}"
    if kind == "wall":
        # A header that is nowhere would prove nothing.
        said = including(rest[0], header)
        if said:
            return f"{rest[0]} does not hold {header}:\n{said}"
        said = including(room, header)
        missing = (f"{header}: No such file", f"'{header}' file not found")
        return "" if any(m in said for m in missing) else f"{room} can include {header}"
    if kind == "shut":
        # The first line of it that is compiled names what was poisoned.
        return "" if "poison" in including(room, header) else f"{room} can include {header}"
    found, said = headers(room)
    if said:
        return said
    reached = any(path.endswith("/" + header) for path in found)
    if kind == "sees":
        return "" if reached else f"no source of {room} comes to {header}: the check is blind"
    return f"a source of {room} comes to {header}" if reached else ""


rooms_with = {kind: {row[1] for row in rows if row[0] == kind} for kind in ("wall", "door")}
faults = [f"{room} has no door" for room in sorted(rooms_with["wall"] - rooms_with["door"])]
with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
    faults += [f for f in pool.map(fault, rows) if f]
print(f"{len(rows)} rows, {len(faults)} faults")
for f in faults:
    print(f, file=sys.stderr)
sys.exit(1 if faults or not rows else 0)
