"""What a program carries that uses a library of the house: no line editor, no dialog.

library_user.py PROGRAM NM USED [ABSENT...]: the libraries it needs at run time and the symbols it
holds; the procedure that it uses is among them, libraries and procedures ABSENT are not."""
import subprocess
import sys

program, nm, used, *absent = sys.argv[1:]


def output(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


libraries = output("ldd", program)
symbols = output(nm, "--demangle", program)
faults = []
if "libc.so" not in libraries or used not in symbols:
    faults.append("ldd or nm shows nothing of " + program)  # else nothing is proved below
faults += ["needs " + name for name in ("readline", "tinfo", *absent) if name in libraries]
faults += ["holds " + name for name in ("util::ask", "util::edited_line", "util::progress",
                                        "util::watch_interrupts", "util::open_output", *absent)
           if name + "(" in symbols or name + "::" in symbols]
for fault in faults:
    print(fault, file=sys.stderr)
sys.exit(1 if faults else 0)
