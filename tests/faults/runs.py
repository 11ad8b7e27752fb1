"""Runs of the programs for scripts/faults and scripts/signals: inputs, one run in a folder of its own, what it left."""
import os
import pathlib
import re
import signal
import subprocess
import sys
import tempfile
import threading
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
# A page takes 0.1 seconds to draw; one that can never be drawn is given up after two minutes.
PATIENCE = 15
TIME_LIMIT = 90  # seconds; a run takes 0.2, and three pages that are never drawn take PATIENCE each

# What files that are whole or not there end with.
WHOLE_ENDS = {".gif": b";", ".png": b"IEND\xaeB\x60\x82", ".ps": b"%%EOF\n", ".pdf": b"%%EOF\n",
              ".json": b"}\n", ".html": b"</html>\n", ".svg": b"</svg>\n", ".csv": b"\n",
              ".load": b"\n", "button_coeff.dat": b"\n"}


def programs_of(build):
    """The programs of a build, and what else is run, by name; ends when one is missing."""
    build = pathlib.Path(build).resolve()
    found = {"butngain": build / "src/driver/butngain", "bpmsim": build / "tools/bpmsim/bpmsim",
             "kbpm_dump": build / "tools/kbpm_dump/kbpm_dump",
             "shim": build / "tests/faults/libfault_shim.so"}
    for path in found.values():
        if not path.exists():
            sys.exit(f"{path} is not there: build first")
    found = {name: str(path) for name, path in found.items()}
    # The interpreter that the module was built for is the system's.
    python = "/usr/bin/python3" if os.path.exists("/usr/bin/python3") else sys.executable
    has_module = subprocess.run(
        [python, "-B", "-c", "import butngain"], check=False, stderr=subprocess.DEVNULL,
        env={**os.environ, "PYTHONPATH": str(build / "python")}).returncode == 0
    found["python"] = python if has_module else None
    found["module"] = str(build / "python")
    return found


def steady_time(programs):
    return {"LD_PRELOAD": programs["shim"], "FAULT_TIME": "1769860800"}


def make_inputs(place, programs):
    """What all runs read: a facility tree, a text run, a series, orbits, columns, a list, and runs made before."""
    env = {**os.environ, "KOVR_ONLINE": str(place / "t/online"), "LC_ALL": "C"}

    def make(program, *arguments):
        subprocess.run([programs[program], *arguments], cwd=place, env=env, check=True,
                       stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    make("bpmsim", "tree", "t", "--bpms", "2", "--turns", "60")
    make("bpmsim", "text", "--bpms", "1", "--turns", "60")
    make("bpmsim", "series", "--bpms", "2", "--orbits", "60")
    make("bpmsim", "orbits", "--bpms", "2", "--orbits", "6", "--list", "pairs")
    columns = [line.split() for line in
               (place / "inputs_1000random_xy_and_timing_offset/exp_0.txt").read_text().splitlines()]
    (place / "columns.csv").write_text("bpm,BI,BO,TI,TO\n" + "".join(
        f"b0,{','.join(c[2:6])}\n" for c in columns if len(c) == 10))
    (place / "pipe.chamber").write_text(
        (ROOT / "src/chamber/chambers/bpm_48.chamber").read_text().replace("_grid   81", "_grid   41"))
    (place / "runs.csv").write_text("data,positions,run,pedestal-bunch\nT,60,4565,2\nT,60,4566,2\n")
    fonts = pathlib.Path("/etc/fonts/fonts.conf")  # without what a site adds
    (place / "fonts.conf").write_text("".join(
        line for line in (fonts.read_text() if fonts.exists() else "<fontconfig/>").splitlines(True)
        if "<include" not in line))
    # Always the same time: files of two runs can then be compared, down to the letters of a font.
    env.update(steady_time(programs))
    for run in ("4565", "4566"):
        make("butngain", "--batch", "--data=T", "--positions=60", f"--run={run}", "--correction=3",
             "--pedestal-bunch=2", f"--output=made/{run}")


class Ended:
    """What one run left behind; `left` are commands of processes that were still there."""

    def __init__(self, status, out, err, files, timed_out=False, left=()):
        self.status, self.files, self.timed_out, self.left = status, files, timed_out, list(left)
        self.out, self.err = out, err


def processes_in(folder):
    """Processes whose working directory lies in the folder: number and command."""
    found = {}
    for entry in pathlib.Path("/proc").iterdir():
        if not entry.name.isdigit():
            continue
        try:
            if os.readlink(entry / "cwd").startswith(str(folder)):
                if (entry / "stat").read_text().rpartition(")")[2].split()[0] != "Z":
                    found[int(entry.name)] = (entry / "cmdline").read_bytes().replace(b"\0", b" ")
        except OSError:
            pass  # gone meanwhile
    return found


def end_processes(found):
    for number in found:
        try:
            os.kill(number, signal.SIGKILL)
        except ProcessLookupError:
            pass


def files_below(work):
    """Path from there, with its date as RUN, and content of every file that was made."""
    files = {}
    for path in sorted(work.rglob("*")):
        if path.is_file() and not path.is_symlink():
            name = re.sub(r"\d{8}_\d{6}", "RUN", str(path.relative_to(work)))
            files[re.sub(r"\.part\d+_", ".part_", name)] = path.read_bytes()
    return files


def run(command, place, typed=b"", own_tree=False, environment=None, during=None,
        seconds=TIME_LIMIT):
    """Runs it in a folder of its own, which is gone afterwards.

    own_tree: nothing to read lies there, and the facility's tree is made there
    during:   called with the running process, on a thread of its own
    """
    with tempfile.TemporaryDirectory(prefix="faults-run-") as folder:
        here = pathlib.Path(folder)
        # The run's own scratch stands apart from what the program makes.
        work = here / "work"
        work.mkdir()
        (here / "tmp").mkdir()
        if not own_tree:
            for path in place.iterdir():
                (work / path.name).symlink_to(path)
        env = {k: v for k, v in os.environ.items()
               if k not in ("DISPLAY", "LD_PRELOAD") and not k.startswith("FAULT_")}
        env.update({"KOVR_ONLINE": str(work / "u" if own_tree else place / "t/online"),
                    "TMPDIR": str(here / "tmp"), "HOME": str(here), "LC_ALL": "C"})
        env.update(environment or {})
        process = subprocess.Popen(command, cwd=work, env=env, stdin=subprocess.PIPE,
                                   stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                   start_new_session=True)
        watcher = threading.Thread(target=during or (lambda _: None), args=(process,))
        watcher.start()
        timed_out = False
        try:
            out, err = process.communicate(typed, timeout=seconds)
        except subprocess.TimeoutExpired:
            timed_out = True
            end_processes({process.pid: b"", **processes_in(folder)})
            out, err = process.communicate()
        watcher.join()
        # A child dies with its parent, but the system needs a moment for it.
        left = processes_in(folder)
        for _ in range(20):
            if not left:
                break
            time.sleep(0.05)
            left = processes_in(folder)
        end_processes(left)
        files = files_below(work)
        for path in (here / "tmp").iterdir():
            files[f"scratch {re.sub('-......$', '', path.name)}.part"] = b""
        return Ended(process.returncode, out, err, files, timed_out, left.values())
