import os
import subprocess

import pytest

import butngain


@pytest.fixture(scope="session")
def raw_path(tmp_path_factory):
    """A raw data file of two BPMs, two bunches of 300 turns, with pedestals."""
    folder = tmp_path_factory.mktemp("raw")
    subprocess.run([os.environ["BPMSIM"], "raw", "--out", "RD-004567.dat", "--names", "12W,13W",
                    "--bunches", "2", "--turns", "300", "--noise", "1e-4", "--pedestal", "100"],
                   cwd=folder, check=True, stdout=subprocess.DEVNULL)
    return folder / "RD-004567.dat"


@pytest.fixture(scope="session")
def table():
    return butngain.Table.from_chamber(butngain.Chamber.default("round"))


@pytest.fixture(scope="session")
def made():
    return butngain.simulate(400, gain=[1.04, 0.97, 1.01, 0.93], noise=1e-4, seed=3)
