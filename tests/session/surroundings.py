"""Sessions give the same results wherever and whenever they run: other languages, time zones, names of
directories, a second session in the same second. All outputs and files are compared byte by byte.

usage: surroundings.py BUTNGAIN BPMSIM
"""

import html
import json
import os
import re
import subprocess
import sys
import tempfile

BUTNGAIN, BPMSIM = (os.path.abspath(path) for path in sys.argv[1:3])
# Of run.json: when, where, and how long. All else of it is compared.
OF_THE_RUN = ("started", "seconds", "host", "working_directory", "directory", "command")
RUN_NAME = re.compile(rb"(?<!\d)\d{8}_\d{6}(?!\d)")

# What is typed or given; each ends with status 0. Series, raw data, a text run.
SESSIONS = {
    "series": ([], ["F", "exp_0.txt", "exp_2.txt", "no"]),
    "turns": (["--batch", "--data", "T", "--positions", "100000", "--run", "4566", "--correction", "3",
               "--bunch", "1", "--pedestal-bunch", "2"], []),
    "text": (["--jobs", "2"], ["T", "0", "./RD-004567.dat", "n", "-1", "no"]),
}


def environment(scratch, more):
    kept = {name: value for name, value in os.environ.items()
            if name not in ("DISPLAY", "TZ", "LANG", "LANGUAGE", "LOCPATH") and not name.startswith("LC_")}
    return kept | {"KOVR_ONLINE": scratch + "/t/online", "LC_ALL": "C"} | more


def simulate(here, *arguments):
    subprocess.run([BPMSIM, *arguments], cwd=here, check=True, stdout=subprocess.DEVNULL)


def data_in(here):
    """What sessions find where they run; the raw data lie at the facility, whose path may have 200
    characters at most."""
    os.makedirs(here)
    simulate(here, "series", "--bpms", "3", "--orbits", "80", "--seed", "4")
    simulate(here, "text", "--bpms", "3", "--turns", "120", "--seed", "6")


def comparable(data, here, place):
    """Without when and where."""
    for name, shown in ((place, b"OUT"), (here, b"HERE")):
        for written in (name, json.dumps(name)[1:-1], html.escape(name).replace("&#x27;", "&#39;")):
            data = data.replace(written.encode(), shown)
    data = re.sub(rb"   date = .*", b"   date =", data)
    return RUN_NAME.sub(b"RUN", data)


def without_times(data):
    record = json.loads(data)
    for name in OF_THE_RUN:
        record.pop(name, None)
    return json.dumps(record, sort_keys=True).encode()


def all_of(here, place):
    """Every file below `place`, with the run's name taken out."""
    found = {}
    for folder, _, names in os.walk(place):
        for name in names:
            path = os.path.join(folder, name)
            with open(path, "rb") as file:
                inside = file.read()
            if name == "run.json":
                inside = without_times(inside)
            shown = RUN_NAME.sub(b"RUN", os.fsencode(os.path.relpath(path, place)))
            found[shown] = comparable(inside, here, place)
    return found


def session(scratch, here, name, more):
    arguments, answers = SESSIONS[name]
    with tempfile.TemporaryDirectory(dir=here, prefix="out") as place:
        done = subprocess.run([BUTNGAIN, *arguments, "--output", place], cwd=here,
                              input="".join(a + "\n" for a in answers).encode(), timeout=120,
                              capture_output=True, check=False, env=environment(scratch, more))
        assert done.returncode == 0, (name, more, done.stderr)
        left = all_of(here, place)
        left[b"stdout"] = comparable(done.stdout, here, place)
        # The library that draws finds fault with a locale that nobody has.
        err = re.sub(rb"Fontconfig warning: .*\n", b"", done.stderr)
        left[b"stderr"] = comparable(err, here, place)
        return left


def expect_same(what, usual, other):
    assert usual.keys() == other.keys(), (what, sorted(usual.keys() ^ other.keys()))
    for name, inside in usual.items():
        if inside != other[name]:
            at = next((i for i, (a, b) in enumerate(zip(inside, other[name])) if a != b),
                      min(len(inside), len(other[name])))
            sys.exit(f"{what}: {name.decode()} differs at byte {at}:\n{inside[max(0, at - 80):at + 80]!r}\n"
                     f"{other[name][max(0, at - 80):at + 80]!r}")


def german_locale(scratch):
    """Where a locale with decimal commas lies, made here: not every machine has one."""
    place = scratch + "/locales"
    os.mkdir(place)
    made = subprocess.run(["localedef", "--no-archive", "-i", "de_DE", "-f", "UTF-8", place + "/de_DE.UTF-8"],
                          check=False, capture_output=True)
    assert os.path.exists(place + "/de_DE.UTF-8/LC_NUMERIC"), \
        f"no locale could be made (package locales): {made.stderr}"
    return {"LOCPATH": place, "LC_ALL": "de_DE.UTF-8", "LANG": "de_DE.UTF-8"}


def directories(scratch):
    """Names that programs stumble over; the last is as long as a path of 384 characters needs."""
    rest = 384 - len(scratch) - 1
    pieces = []
    while rest > 0:
        pieces.append("d" * min(rest, 100))
        rest -= len(pieces[-1]) + 1
    return ["with  two blanks", "Strahllage Österreich ñ 束", "quote'd \"twice\" $HOME;&", "-minus",
            "/".join(pieces)]


def four_in_one_second(scratch, here):
    """Of sessions that start in one second each has all that a lone one leaves: the same files or, where
    a directory is taken, a line that says so and then the same files."""
    with tempfile.TemporaryDirectory(dir=here) as place:
        arguments, _ = SESSIONS["turns"]
        running = [subprocess.Popen([BUTNGAIN, *arguments, "--output", f"{place}/{n}"], cwd=here,
                                    stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                    stderr=subprocess.PIPE, env=environment(scratch, {}))
                   for n in range(4)]
        ended = [(run, *run.communicate(timeout=120)) for run in running]
        for run, _, err in ended:
            assert run.returncode == 0, err
        first = all_of(here, f"{place}/0")
        for n in range(1, 4):
            expect_same(f"session {n} of four at once", first, all_of(here, f"{place}/{n}"))


def main():
    with tempfile.TemporaryDirectory() as scratch:
        simulate(scratch, "tree", "t", "--bpms", "4", "--turns", "120", "--seed", "5")
        here = scratch + "/usual"
        data_in(here)
        usual = {name: session(scratch, here, name, {}) for name in SESSIONS}
        others = [{"TZ": zone} for zone in ("Asia/Kathmandu", "Pacific/Kiritimati", "America/St_Johns",
                                            "XXX-25", "no/such zone")]
        others += [german_locale(scratch), {"LC_ALL": "no_SUCH.locale", "LANG": "tr_TR.UTF-8"},
                   {"LC_ALL": "C.UTF-8"}]
        for more in others:
            for name in SESSIONS:
                expect_same(f"{name} with {more}", usual[name], session(scratch, here, name, more))
        for directory in directories(scratch):
            there = f"{scratch}/{directory}"
            data_in(there)
            for name in SESSIONS:
                expect_same(f"{name} in {directory!r}", usual[name], session(scratch, there, name, {}))
        four_in_one_second(scratch, here)


if __name__ == "__main__":
    main()
