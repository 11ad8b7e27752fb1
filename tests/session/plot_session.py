"""Whole sessions on a screen of their own: what a person sees at the end.

usage: plot_session.py BUTNGAIN BPMSIM PICTURE_FOLDER; status 77: something is not installed
"""

import contextlib
import os
import shutil
import subprocess
import sys
import tempfile
import time

BUTNGAIN, BPMSIM = (os.path.abspath(path) for path in sys.argv[1:3])
sys.path.insert(0, sys.argv[3])
for needed in ("Xvfb", "xwininfo", "xwd", "xclock", "convert"):
    if shutil.which(needed) is None:
        print(f"skipped: {needed} is not installed")
        sys.exit(77)
try:
    from picture import Picture, check
except ImportError:
    print("skipped: python3-numpy is not installed")
    sys.exit(77)

LABEL = "inputs_1000random_xy_and_timing_offset"
QUESTION = " Postscript (p) or Gif (g) ? <CR = no>:"
PATIENCE = 60  # seconds


@contextlib.contextmanager
def screen(depth=24):
    """An X server; yields its process and the environment for its clients."""
    read_end, write_end = os.pipe()
    server = subprocess.Popen(["Xvfb", "-displayfd", str(write_end), "-screen", "0",
                               f"1280x1024x{depth}", "-nolisten", "tcp"], pass_fds=[write_end],
                              stderr=subprocess.DEVNULL)
    os.close(write_end)
    with os.fdopen(read_end) as number:
        display = number.readline().strip()
    try:
        yield server, dict(os.environ, DISPLAY=":" + display)
    finally:
        server.terminate()
        server.wait()


def windows(env):
    return subprocess.run(["xwininfo", "-root", "-tree"], env=env, check=True,
                          capture_output=True, text=True).stdout


def wait_for(condition, what):
    end = time.monotonic() + PATIENCE
    while not condition():
        assert time.monotonic() < end, f"{what}: not within {PATIENCE} s"
        time.sleep(0.05)


def screenshot(env, folder):
    shot = subprocess.run(["xwd", "-root", "-silent"], env=env, check=True,
                          capture_output=True).stdout
    path = folder + "/shot.xwd"
    with open(path, "wb") as file:
        file.write(shot)
    return "xwd:" + path


def make_series(folder, bpms):
    subprocess.run([BPMSIM, "series", "--bpms", str(bpms), "--orbits", "200", "--seed", "5"],
                   cwd=folder, check=True, stdout=subprocess.DEVNULL)


def title(folder, bpms):
    run, = (name for name in os.listdir(folder) if name[:8].isdigit())
    return f"Button gains, EXP_0 to EXP_{bpms - 1}, 200 orbits, {run}"


def start(folder, env, bpms):
    """A session up to the question about copies; its output so far is thrown away."""
    child = subprocess.Popen([BUTNGAIN], cwd=folder, env=env, stdin=subprocess.PIPE,
                             stdout=subprocess.PIPE, stderr=subprocess.PIPE, bufsize=0)
    answer(child, f"F\nexp_0.txt\nexp_{bpms - 1}.txt\n")
    return child, read_to_question(child)


def answer(child, text):
    child.stdin.write(text.encode())


def read_to_question(child):
    seen = b""
    while not seen.endswith(QUESTION.encode()):
        part = child.stdout.read(65536)
        assert part, b"ended early: " + seen[-500:] + child.stderr.read()
        seen += part
    return seen.decode()


def plotted_gains(folder):
    """The marks that the summary table of the run asks for: (BPM, normalised inverse gain)."""
    run, = (name for name in os.listdir(folder) if name[:8].isdigit())
    marks = []
    with open(f"{folder}/{run}/{LABEL}.dat_out", encoding="ascii") as table:
        for line in table:
            words = line.split()
            if not words or not words[0].isdigit():
                continue
            inverse = [float(word) for word in words[7:11]]
            scale = sum(inverse) / sum(v * v for v in inverse)
            marks += [(int(words[0]), v * scale) for v in inverse]
    return marks


def the_window_shows_the_fitted_gains_and_survives_being_covered(folder):
    make_series(folder, 12)
    with screen() as (_, env):
        child, said = start(folder, env, 12)
        assert "no screen plot" not in said
        called = title(folder, 12)
        assert called in windows(env)
        shot = Picture(screenshot(env, folder))
        marks = plotted_gains(folder)
        assert len(marks) == 48
        check(shot, 0, 12, [(bpm, gain) for bpm, gain in marks if 0.8 <= gain <= 1.2])

        cover = subprocess.Popen(["xclock", "-geometry", "500x500+50+50"], env=env,
                                 stderr=subprocess.DEVNULL)
        wait_for(lambda: "xclock" in windows(env), "a window above ours")
        assert (Picture(screenshot(env, folder)).pixels != shot.pixels).any()
        cover.terminate()
        cover.wait()
        wait_for(lambda: "xclock" not in windows(env), "the window above gone")
        assert (Picture(screenshot(env, folder)).pixels == shot.pixels).all()

        answer(child, "?\n")  # draws again and asks again
        read_to_question(child)
        # The server takes the first one away when it sees that its connection has ended.
        wait_for(lambda: windows(env).count(called) == 1, "the second picture alone")
        answer(child, "\n")
        assert child.wait(PATIENCE) == 0, child.stderr.read()
        wait_for(lambda: called not in windows(env), "our window gone")


def the_dialog_outlives_the_screen(folder):
    make_series(folder, 2)
    with screen(16) as (server, env):
        child, _ = start(folder, env, 2)
        assert title(folder, 2) in windows(env)
        server.terminate()
        server.wait()
        answer(child, "?\n")
        assert " no screen plot: the display cannot be opened\n" in read_to_question(child)
        answer(child, "no\n")
        assert child.wait(PATIENCE) == 0, child.stderr.read()


def a_screen_of_few_colours_is_told(folder):
    make_series(folder, 2)
    with screen(8) as (_, env):
        child, said = start(folder, env, 2)
        assert " no screen plot: the display has no true colours\n" in said, said[-300:]
        answer(child, "no\n")
        assert child.wait(PATIENCE) == 0, child.stderr.read()


def more_than_a_hundred_bpms_end_in_a_bounds_error_after_all_files(folder):
    make_series(folder, 101)
    env = {name: value for name, value in os.environ.items() if name != "DISPLAY"}
    run = subprocess.run([BUTNGAIN], cwd=folder, env=env, capture_output=True, text=True,
                         input="F\nexp_0.txt\nexp_100.txt\nno\n", check=False)
    assert run.returncode == 1
    directory, = (name for name in os.listdir(folder) if name[:8].isdigit())
    assert run.stderr.endswith(
        f"butngain: the results of all 101 BPMs are written to {directory}; only the plot, which "
        "has room for 100, cannot be made\n"
        "butngain: run-time error: subscript 2 (= 101) of bpm_gain is outside 0..100\n"), run.stderr
    assert "output written to directory" in run.stdout
    assert len({bpm for bpm, _ in plotted_gains(folder)}) == 101


CASES = [the_window_shows_the_fitted_gains_and_survives_being_covered,
         the_dialog_outlives_the_screen, a_screen_of_few_colours_is_told,
         more_than_a_hundred_bpms_end_in_a_bounds_error_after_all_files]

for case in CASES:
    with tempfile.TemporaryDirectory() as scratch:
        print(case.__name__, flush=True)
        case(scratch)
