"""Button gains of beam position monitors: raw data files, positions, fits, calibration, simulation.

    import butngain

    file = butngain.read_raw("RD-004567.dat")
    table = butngain.Table.from_chamber("straight.chamber")
    found = butngain.calibrate(file["12W"].signals(), table)
    print(found.gain, found.verdict)

Buttons 0..3 are BI, BO, TI, TO at (-x,-y), (+x,-y), (-x,+y), (+x,+y); x points outward, y up.
Lengths are metres. A button gain is what a button makes of the signal (the product of the four is
1); a multiplier is what corrects a reading. Long work runs without the interpreter's lock, and
Ctrl-C ends it. Arguments that cannot be are a ValueError that names them; faults of files are Error.
"""

from ._butngain import (Beam, BeamCurrent, BeamPlane, BeamPopulation, Calibration, CalibrationFit,
                        Chamber, Electronics, Error, FourFits, GainFit, Positions, RawBpm, RawFile,
                        Simulated, Simulation, Table, Verdict, __version__, calibrate,
                        calibrate_many, fit, read_raw, simulate)
from ._run import Run, read_run

__all__ = ["Beam", "BeamCurrent", "BeamPlane", "BeamPopulation", "Calibration", "CalibrationFit",
           "Chamber", "Electronics", "Error", "FourFits", "GainFit", "Positions", "RawBpm",
           "RawFile", "Run", "Simulated", "Simulation", "Table", "Verdict", "__version__",
           "calibrate", "calibrate_many", "fit", "read_raw", "read_run", "simulate"]
