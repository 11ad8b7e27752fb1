"""Makes the Debian packages, installs them into a scratch root, runs what is in them and removes them.

usage: package_session.py BUILD_FOLDER CPACK VERSION; status 77: no Debian tools
"""

import os
import shutil
import subprocess
import sys
import tempfile

BUILD = os.path.abspath(sys.argv[1])
CPACK, VERSION = sys.argv[2:4]
for needed in ("dpkg", "dpkg-deb", "dpkg-shlibdeps"):
    if shutil.which(needed) is None:
        print(f"skipped: {needed} is not installed")
        sys.exit(77)


def run(*command, **more):
    done = subprocess.run(command, capture_output=True, text=True, check=False, **more)
    assert done.returncode == 0, f"{command}: {done.stdout}{done.stderr}"
    return done.stdout


def files_below(root):
    return {os.path.relpath(os.path.join(folder, name), root)
            for folder, _, names in os.walk(root) for name in names}


# What each package must need and hold; the Python module is there where it was built.
NEEDS = {"butngain": ("libgiza0", "libcpgplot0", "libcairo2", "libgif7", "libreadline8", "libfmt9"),
         "libbutngain0": ("libfmt9", "liblapack3"),
         "libbutngain-dev": (f"libbutngain0 (= {VERSION}-", "libfmt-dev"),
         "python3-butngain": (f"libbutngain0 (= {VERSION}-", "python3-numpy")}
HOLDS = {"butngain": {"usr/bin/butngain", "usr/bin/bpmsim", "usr/bin/kbpm_dump",
                      "usr/share/man/man1/butngain.1.gz", "usr/share/man/man1/kbpm_dump.1.gz",
                      "usr/share/bash-completion/completions/butngain",
                      "usr/share/doc/butngain/README.md",
                      "usr/share/doc/butngain/docs/user_guide.md"},
         "libbutngain0": set(),  # its folder depends on the machine: looked for below
         "libbutngain-dev": {"usr/include/butngain/butngain.hpp",
                             "usr/share/doc/libbutngain-dev/examples/positions.cpp"},
         "python3-butngain": {"usr/lib/python3/dist-packages/butngain/__init__.pyi"}}

with tempfile.TemporaryDirectory() as scratch:
    run(CPACK, "-G", "DEB", "-B", scratch, cwd=BUILD)
    packages = {name.split("_")[0]: f"{scratch}/{name}" for name in os.listdir(scratch)
                if name.endswith(".deb")}
    assert set(NEEDS) - set(packages) <= {"python3-butngain"}, packages
    for name, package in packages.items():
        depends = run("dpkg-deb", "-f", package, "Depends")
        for needed in NEEDS[name]:
            assert needed in depends, f"{name}: {depends}"
        assert name == "butngain" or "readline" not in depends, f"{name}: {depends}"
        assert run("dpkg-deb", "-f", package, "Version").startswith(VERSION + "-")
    if shutil.which("lintian"):
        run("lintian", "--allow-root", "--fail-on", "error,warning", *packages.values())

    root = scratch + "/root"
    os.makedirs(root + "/var/lib/dpkg/updates")
    for name in ("status", "available"):
        open(f"{root}/var/lib/dpkg/{name}", "w").close()
    # The libraries are those of this machine; the scratch root knows no packages.
    dpkg = ["dpkg", "--root=" + root, "--force-depends", "--force-not-root", "--log=/dev/null"]
    run(*dpkg, "-i", *packages.values())
    installed = files_below(root)
    for name in packages:
        wanted = HOLDS[name] | {f"usr/share/doc/{name}/copyright",
                                f"usr/share/doc/{name}/changelog.Debian.gz"}
        assert wanted <= installed, wanted - installed
    assert run(root + "/usr/bin/butngain", "--version") == f"butngain {VERSION}\n"
    completion = root + "/usr/share/bash-completion/completions/butngain"
    assert run("bash", "-c", f". {completion}; complete -p butngain").endswith("butngain\n")
    if shutil.which("mandoc"):
        for page in sorted(name for name in installed if name.startswith("usr/share/man/")):
            run("mandoc", "-Tlint", "-Wwarning", f"{root}/{page}")
    library, = (name for name in installed if name.endswith("/libbutngain.so.0"))
    if "python3-butngain" in packages and sys.executable.startswith("/usr/bin/"):
        said = run(sys.executable, "-B", "-c",
                   "import butngain; print(butngain.__version__, len(butngain.__all__))",
                   env=dict(os.environ, PYTHONPATH=root + "/usr/lib/python3/dist-packages",
                            LD_LIBRARY_PATH=os.path.dirname(f"{root}/{library}")))
        assert said.startswith(VERSION + " "), said
    run(*dpkg, "-r", *packages)
    left = {name for name in files_below(root) if not name.startswith("var/lib/dpkg/")}
    assert not left, left
