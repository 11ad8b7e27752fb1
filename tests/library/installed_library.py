"""Installs the library into a scratch prefix and uses it there as others would.

usage: installed_library.py BUILD_FOLDER CMAKE COMPILER EXAMPLES BPMSIM

The examples are built with find_package (shared and static) and with pkg-config, and run. What the
library needs, what it shows, and what it does not even ask the system for are looked up in it.
"""
import os
import re
import shutil
import subprocess
import sys
import tempfile

BUILD, CMAKE, COMPILER, EXAMPLES, BPMSIM = sys.argv[1:6]
if shutil.which("pkg-config") is None:
    print("skipped: pkg-config is not installed")
    sys.exit(77)


def run(*command, **more):
    done = subprocess.run(command, capture_output=True, text=True, check=False, **more)
    assert done.returncode == 0, f"{command}: {done.stdout}{done.stderr}"
    return done.stdout


def names(library, *options):
    lines = run("nm", "-D", "-C", *options, library).splitlines()
    return {re.sub(r"@.*", "", line[19:]) for line in lines}


def check_names(library):
    # libmvec and the sanitizers' own libraries come with compilers and flags, not with our code.
    # BLAS has the name of whichever the machine has chosen.
    needed = set(re.findall(r"NEEDED.*\[(.+?)\.so", run("readelf", "-d", library)))
    extra = needed - {"libfmt", "liblapack", "libblas", "libf77blas", "libatlas", "libopenblas",
                      "libstdc++", "libm", "libgcc_s", "libc", "ld-linux-x86-64", "libasan", "libubsan",
                      "libtsan", "libmvec", "libgcov"}
    assert not extra, f"needs {extra}"
    assert "SONAME" in run("readelf", "-d", library) and "libbutngain.so.0]" in \
        run("readelf", "-d", library)
    shown = {n for n in names(library, "--defined-only") if not n.startswith("BUTNGAIN_")}
    others = {n for n in shown if "butngain::" not in n}
    assert shown and not others, f"shows {sorted(others)[:5]} of {len(shown)}"
    asked = names(library, "--undefined-only")
    # A library that cannot reach them neither prints nor ends the process.
    for forbidden in ("exit", "_exit", "_Exit", "quick_exit", "abort", "stdout", "stderr", "stdin",
                      "printf", "fprintf", "puts", "std::cout", "std::cerr"):
        assert forbidden not in asked, f"asks for {forbidden}"


with tempfile.TemporaryDirectory() as scratch:
    prefix = scratch + "/prefix"
    for component in ("library", "development"):
        run(CMAKE, "--install", BUILD, "--prefix", prefix, "--component", component)
    libraries = [os.path.join(folder, name) for folder, _, files in os.walk(prefix)
                 for name in files if re.fullmatch(r"libbutngain\.so\.\d+\.\d+\.\d+", name)]
    library, = libraries
    folder = os.path.dirname(library)
    sanitized = "libasan" in run("readelf", "-d", library) or \
        "libtsan" in run("readelf", "-d", library)
    if not sanitized:  # sanitizers ask for what they like
        check_names(library)

    raw = scratch + "/RD-000001.dat"
    run(BPMSIM, "raw", "--out", raw, "--names", "12W,13W", "--turns", "300", cwd=scratch)
    at_run = dict(os.environ, LD_LIBRARY_PATH=folder)
    flags = os.environ.get("CXXFLAGS", "").split()
    pkg = dict(os.environ, PKG_CONFIG_PATH=folder + "/pkgconfig")
    said = {}
    for kind in ("shared", "static", "pkg-config"):
        built = f"{scratch}/{kind}"
        if kind == "pkg-config":
            os.makedirs(built)
            found = run("pkg-config", "--cflags", "--libs", "butngain", env=pkg).split()
            for name in ("positions", "calibration"):
                run(COMPILER, "-std=c++20", *flags, f"{EXAMPLES}/{name}.cpp", "-o",
                    f"{built}/{name}", *found)
        else:
            run(CMAKE, "-S", EXAMPLES, "-B", built, "-DCMAKE_PREFIX_PATH=" + prefix,
                "-DCMAKE_CXX_COMPILER=" + COMPILER, "-DCMAKE_BUILD_TYPE=Debug",
                "-DWITH_STATIC=" + ("ON" if kind == "static" else "OFF"))
            run(CMAKE, "--build", built)
        for name in sorted(os.listdir(built)):
            program = f"{built}/{name}"
            if not os.path.isfile(program) or not os.access(program, os.X_OK):
                continue
            out = run(program, raw, env=at_run)
            assert said.setdefault(name, out) == out, f"{name}, {kind}: {out}"
            needed = run("ldd", program, env=at_run)
            assert ("libbutngain" in needed) == (kind != "static"), needed
            assert "readline" not in needed and "libX11" not in needed, needed
    assert "x = 5 mm, y = -2 mm" in said["positions"], said
    assert "12W: " in said["many_bpms"] and "13W: " in said["raw_run"], said
    assert said["calibration"].startswith("determined"), said
    assert "button gains 1.02" in said["four_fits"], said
    assert len(said["simulated_run"].splitlines()) == 10, said
    wrong = subprocess.run([scratch + "/shared/raw_run", "/no/such/file"], capture_output=True,
                           text=True, check=False, env=at_run)
    assert wrong.returncode == 1 and wrong.stderr == "/no/such/file: No such file or directory\n", \
        wrong
