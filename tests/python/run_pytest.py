"""Runs this folder's tests with pytest; status 77: pytest or numpy is not installed.

usage: run_pytest.py FOLDER BPMSIM MODULE_FOLDER
       run_pytest.py FOLDER BPMSIM --install BUILD_FOLDER CMAKE

The second form installs library and module into a scratch prefix and tries them there.
"""
import importlib.util
import os
import subprocess
import sys
import tempfile

folder, bpmsim, where = sys.argv[1:4]
for needed in ("pytest", "numpy"):
    if importlib.util.find_spec(needed) is None:
        print(f"skipped: python3-{needed} is not installed")
        sys.exit(77)


def run_tests(module_folder, **environment):
    command = [sys.executable, "-B", "-m", "pytest", "-q", "-p", "no:cacheprovider", folder]
    return subprocess.run(command, check=False, env=dict(
        os.environ, PYTHONPATH=os.path.abspath(module_folder), BPMSIM=bpmsim,
        **environment)).returncode


if where != "--install":
    sys.exit(run_tests(where))
build, cmake = sys.argv[4:6]
with tempfile.TemporaryDirectory() as prefix:
    for component in ("library", "python"):
        subprocess.run([cmake, "--install", build, "--prefix", prefix, "--component", component],
                       check=True, stdout=subprocess.DEVNULL)
    folder_of = {name: at for at, _, files in os.walk(prefix) for name in files}
    sys.exit(run_tests(os.path.dirname(folder_of["_run.py"]),
                       LD_LIBRARY_PATH=folder_of["libbutngain.so.0"]))
