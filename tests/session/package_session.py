"""Makes the Debian package, installs it into a scratch root, runs it there and removes it.

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


with tempfile.TemporaryDirectory() as scratch:
    run(CPACK, "-G", "DEB", "-B", scratch, cwd=BUILD)
    package, = (scratch + "/" + name for name in os.listdir(scratch) if name.endswith(".deb"))
    depends = run("dpkg-deb", "-f", package, "Depends")
    for library in ("libgiza0", "libcpgplot0", "libcairo2", "libgif7", "libreadline8", "libfmt9"):
        assert library in depends, depends
    if shutil.which("lintian"):
        run("lintian", "--allow-root", "--fail-on", "error,warning", package)
    assert run("dpkg-deb", "-f", package, "Version").startswith(VERSION + "-")

    root = scratch + "/root"
    os.makedirs(root + "/var/lib/dpkg/updates")
    for name in ("status", "available"):
        open(f"{root}/var/lib/dpkg/{name}", "w").close()
    # The libraries are those of this machine; the scratch root knows no packages.
    dpkg = ["dpkg", "--root=" + root, "--force-depends", "--force-not-root", "--log=/dev/null"]
    run(*dpkg, "-i", package)
    wanted = {"usr/bin/butngain", "usr/bin/bpmsim", "usr/bin/kbpm_dump",
              "usr/share/man/man1/butngain.1.gz", "usr/share/man/man1/kbpm_dump.1.gz",
              "usr/share/bash-completion/completions/butngain",
              "usr/share/doc/butngain/copyright", "usr/share/doc/butngain/changelog.Debian.gz",
              "usr/share/doc/butngain/README.md", "usr/share/doc/butngain/docs/user_guide.md"}
    installed = files_below(root)
    assert wanted <= installed, wanted - installed
    assert run(root + "/usr/bin/butngain", "--version") == f"butngain {VERSION}\n"
    completion = root + "/usr/share/bash-completion/completions/butngain"
    assert run("bash", "-c", f". {completion}; complete -p butngain").endswith("butngain\n")
    if shutil.which("mandoc"):
        for page in sorted(name for name in installed if name.startswith("usr/share/man/")):
            run("mandoc", "-Tlint", "-Wwarning", f"{root}/{page}")
    run(*dpkg, "-r", "butngain")
    left = {name for name in files_below(root) if not name.startswith("var/lib/dpkg/")}
    assert not left, left
