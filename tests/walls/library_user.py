"""What a program carries that uses the raw-file library: no line editor, no dialog, no file units.

library_user.py PROGRAM NM: the libraries it needs at run time and the symbols it holds."""
import subprocess
import sys

program, nm = sys.argv[1:3]


def output(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


libraries = output("ldd", program)
symbols = output(nm, "--demangle", program)
faults = []
if "libc.so" not in libraries or "rawfile::kbpm_read_rawfile_from_fullfilename" not in symbols:
    faults.append("ldd or nm shows nothing of " + program)  # else nothing is proved below
faults += ["needs " + name for name in ("readline", "tinfo", "lapack") if name in libraries]
faults += ["holds " + name for name in ("util::ask", "util::edited_line", "util::progress",
                                        "util::watch_interrupts", "util::open_output")
           if name + "(" in symbols or name + "::" in symbols]
for fault in faults:
    print(fault, file=sys.stderr)
sys.exit(1 if faults else 0)
