"""PostScript and GIF copies of the gain plot, read by Ghostscript and ImageMagick.

usage: plot_copies.py PLOT_PROGRAM; status 77: one of the readers is missing
"""

import os
import shutil
import subprocess
import sys
import tempfile

try:
    from picture import Picture, check
except ImportError:
    print("skipped: python3-numpy is not installed")
    sys.exit(77)

PROGRAM = os.path.abspath(sys.argv[1])
ENVIRONMENT = {name: value for name, value in os.environ.items() if name != "DISPLAY"}
for reader in ("gs", "convert", "identify"):
    if shutil.which(reader) is None:
        print(f"skipped: {reader} is not installed")
        sys.exit(77)


def copy(folder, answer, first, last):
    """Makes a copy; returns the marks that it must show."""
    run = subprocess.run([PROGRAM, "RD-001234.dat", str(first), str(last)], input=answer + "\n",
                         cwd=folder, env=ENVIRONMENT, capture_output=True, text=True, check=True)
    assert "ERROR" not in run.stderr, run.stderr  # of the drawing library or a sanitizer
    words = [line.split() for line in run.stdout.splitlines() if line.startswith("mark")]
    return [(int(bpm), float(gain)) for _, bpm, gain in words]


# A page without a BPM says so in its middle.
with tempfile.TemporaryDirectory() as folder:
    assert copy(folder, "g", 100, 0) == []
    page = Picture(folder + "/RD-001234.gif")
    check(page, 0, 100, [])
    left, right, top, bottom = page.frame()
    middle = page.black[left + 60:right - 60, top + 60:bottom - 60]
    assert middle.sum() > 300, "nothing is said on an empty page"

# BPMs first..last and the bounds of their axis.
for first, last, axis in ((1, 1, (0, 4)), (1, 12, (0, 12)), (1, 100, (0, 100))):
    with tempfile.TemporaryDirectory() as folder:
        print(f"BPMs {first} to {last}", flush=True)
        marks = copy(folder, "g", first, last)
        gif = folder + "/RD-001234.gif"
        kind = subprocess.run(["identify", "-format", "%m %n %wx%h", gif], check=True,
                              capture_output=True, text=True).stdout
        assert kind == "GIF 1 792x612", kind
        check(Picture(gif), *axis, marks)

        marks = copy(folder, "p", first, last)
        page = folder + "/RD-001234.ps"
        subprocess.run(["gs", "-q", "-dNOPAUSE", "-dBATCH", "-sDEVICE=png16m", "-r144",
                        "-sOutputFile=" + folder + "/page%d.png", page], check=True)
        assert sorted(name for name in os.listdir(folder) if name.startswith("page")) == [
            "page1.png"], "not one page"
        check(Picture(folder + "/page1.png", scale=2), *axis, marks)
        bounds = subprocess.run(["gs", "-q", "-dNOPAUSE", "-dBATCH", "-sDEVICE=bbox", page],
                                check=True, capture_output=True, text=True).stderr
        box = [float(word) for word in bounds.splitlines()[-1].split()[1:]]
        # Nothing touches the edge of the paper: the border is 2 % and 4 % of it.
        assert box[0] >= 7 and box[1] >= 7 and box[2] <= 785 and box[3] <= 605, box
