"""Positions, fits, calibration and simulation: known truth, and arguments that cannot be."""
import os
import subprocess
import sys
import threading

import numpy as np
import pytest

import butngain


def test_simulated_gains_are_found(made, table):
    truth = made.gain / np.prod(made.gain) ** 0.25
    found = butngain.calibrate(made.signals, table, sigma_p=3e-4, exact_table=True)
    assert found.verdict.word == "determined" and str(found.verdict).startswith("determined")
    np.testing.assert_allclose(found.gain, truth, atol=5 * found.verdict.error)
    np.testing.assert_allclose(found.x, made.x, atol=2e-5)
    assert found.used.dtype == bool and found.used.sum() == found.chosen.orbits
    assert found.chosen.kind in ("free", "steady", "wide")
    fits = butngain.fit(made.signals)
    np.testing.assert_allclose(fits.gain, truth, rtol=2e-3)
    np.testing.assert_array_equal(fits.gain, found.fits.gain)
    # Its own readings, corrected, give the true places.
    at = table.positions(made.signals, multipliers=1 / truth)
    np.testing.assert_allclose(at.x, made.x, atol=2e-5)
    assert (at.fault == 0).all()


def test_many_at_once_are_the_same_in_the_same_order(made, table):
    runs = [made.signals, made.signals[:200], made.signals[::-1]]
    seen = []
    many = butngain.calibrate_many(runs, table, threads=2,
                                   progress=lambda done, of: seen.append((done, of)))
    for run, one in zip(runs, many):
        np.testing.assert_array_equal(one.gain, butngain.calibrate(run, table).gain)
    assert seen[-1] == (3, 3)
    with pytest.raises(ValueError, match="table: expected one, or 3"):
        butngain.calibrate_many(runs, [table, table])


def test_tables_from_files_and_chambers(tmp_path):
    text = ("nonlin_bpm_chamber 1\nname pipe\nunits mm\ncontour circle 45\n"
            + "".join(f"button {k} {x} {y} 18.85 strip\n" for k, x, y in
                      ((1, -31.82, -31.82), (2, 31.82, -31.82), (3, -31.82, 31.82),
                       (4, 31.82, 31.82)))
            + "x_grid 41 -20 20\ny_grid 31 -15 15\nmargin 4\nend\n")
    path = tmp_path / "pipe.chamber"
    path.write_text(text)
    table = butngain.Table.from_chamber(path)
    assert table.shape == (41, 31) and table.extent == (-0.02, 0.02, -0.015, 0.015)
    b = table.signals([0, 5e-3], [0, -2e-3])
    np.testing.assert_allclose(b.sum(axis=1)[0], 1, rtol=1e-12)
    at = table.positions(b * 1e6, bad_button=3)
    np.testing.assert_allclose([at.x[1], at.y[1]], [5e-3, -2e-3], atol=1e-9)
    path.write_text(text.replace("circle", "cube"))
    with pytest.raises(butngain.Error, match="pipe.chamber:4"):
        butngain.Table.from_chamber(path)


good = np.ones((5, 4))
nan = good.copy()
nan[3, 1] = np.nan


@pytest.mark.parametrize("signals, line", [
    (np.ones(4), r"signals: expected shape \(n, 4\), found \(4,\)"),
    (np.ones((5, 3)), r"signals: expected shape \(n, 4\), found \(5, 3\)"),
    (np.ones((4, 5, 4)), r"signals: expected shape"),
    (good.astype(complex), "signals: expected numbers, found dtype complex128"),
    (np.full((5, 4), "1"), "signals: expected numbers, found dtype <U1"),
    ([[1, 2, 3, 4], [1, 2, 3]], "signals: "),
    (None, "signals: "),
    (nan, r"signals: \[3, 1\] is nan"),
    (good * np.inf, r"signals: \[0, 0\] is infinite"),
    (np.ones((0, 4)), "readings: no readings"),
])
def test_wrong_signals_are_named(signals, line):
    with pytest.raises(ValueError, match=line):
        butngain.fit(signals)


def test_other_wrong_arguments_are_named(made, table):
    for line, work in (
            ("sigma_p: nan", lambda: butngain.calibrate(made.signals, table, sigma_p=np.nan)),
            ("set_start: 9999", lambda: butngain.calibrate(made.signals, table, sets=[0, 9999])),
            (r"signals\[1\]: ", lambda: butngain.calibrate_many([made.signals, [1, 2]], table)),
            ("multipliers: expected four", lambda: table.positions(good, multipliers=[1, 2])),
            ("bad_button: 4", lambda: table.positions(good, bad_button=4)),
            ("x, y: ", lambda: table.signals(1, 0)),
            ("y: expected 2 places", lambda: table.signals([0, 0], [0])),
            ("gain: expected four", lambda: butngain.simulate(gain=[1, 1])),
            ("orbits: 0", lambda: butngain.simulate(0)),
            ("closed orbit", lambda: butngain.simulate(orbit=0.1)),
            ("shape: expected", lambda: butngain.Chamber.round(shape="square")),
            ("name: no default", lambda: butngain.Chamber.default("nowhere"))):
        with pytest.raises(ValueError, match=line):
            work()
    # Arrays of other layouts and kinds are taken as they are meant.
    expected = butngain.fit(made.signals).gain
    for same in (np.asfortranarray(made.signals), made.signals.tolist(),
                 np.repeat(made.signals, 2, axis=0)[::2]):
        np.testing.assert_array_equal(butngain.fit(same).gain, expected)


def test_a_setup_says_everything_and_arguments_go_first():
    setup = butngain.Simulation()
    setup.beam.x.orbit = 2e-3
    setup.beam.x.spread = setup.beam.y.spread = 0
    setup.electronics.gain = (1, 1, 1.1, 1)
    setup.electronics.pedestal = np.array([10, 0, 0, 0])
    setup.chamber = butngain.Chamber.default("bpm_48")
    setup.orbits = 7
    made = butngain.simulate(setup=setup)
    assert made.signals.shape == (7, 4) and set(made.x) == {2e-3}
    assert tuple(made.gain) == (1, 1, 1.1, 1) and made.pedestal[0] == 10
    other = butngain.simulate(3, gain=(1, 1, 1, 1), setup=setup)
    np.testing.assert_allclose(other.signals[:, 2] * 1.1, made.signals[:3, 2])
    assert setup.orbits == 7 and setup.electronics.gain[2] == 1.1


def test_progress_stops_and_its_exceptions_come_through(table):
    with pytest.raises(butngain.Error, match="stopped"):
        butngain.simulate(10**6, progress=lambda done, of: False)
    with pytest.raises(ZeroDivisionError):
        butngain.simulate(10**6, progress=lambda done, of: 1 / 0)


def test_other_threads_run_meanwhile(made, table):
    counted = []
    stop = threading.Event()

    def count():
        while not stop.is_set():
            counted.append(1)
            stop.wait(0.001)

    thread = threading.Thread(target=count)
    thread.start()
    butngain.calibrate_many([made.signals] * 20, table, threads=1)
    stop.set()
    thread.join()
    assert len(counted) > 3


@pytest.mark.parametrize("work", [
    "butngain.calibrate_many([s] * 100000, t)", "butngain.simulate(10**7)"])
def test_ctrl_c_ends_long_work(work):
    # Work of minutes; the signal comes when it has begun.
    program = ("import butngain, os, signal, threading\n"
               "s = butngain.simulate(300, noise=1e-4).signals\n"
               "t = butngain.Table.from_chamber(butngain.Chamber.default('round'))\n"
               "threading.Timer(0.3, lambda: os.kill(os.getpid(), signal.SIGINT)).start()\n"
               f"try:\n    {work}\n"
               "except KeyboardInterrupt:\n    print('ended')\n")
    done = subprocess.run([sys.executable, "-c", program], stdout=subprocess.PIPE, text=True,
                          env=os.environ, timeout=100, check=False)
    assert done.stdout == "ended\n"
