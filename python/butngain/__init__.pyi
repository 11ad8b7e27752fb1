# Shapes and units stand in the docstrings; buttons 0..3 are BI, BO, TI, TO.
import os
from typing import Any, Callable, Literal, Optional, Sequence, Tuple, Union

import numpy as np
from numpy.typing import ArrayLike, NDArray

Path = Union[str, "os.PathLike[str]"]
Reals = NDArray[np.float64]
Progress = Callable[[int, int], Optional[bool]]
Four = Tuple[float, float, float, float]

__version__: str

class Error(Exception): ...

class RawBpm:
    name: str
    host: str
    ip_address: str
    detector_type: str
    loader: str
    timing_setup: str
    trigger: str
    horizontal_coefficient: float
    vertical_coefficient: float
    build_time: int
    fpga_major: int
    fpga_minor: int
    fpga_id: list[int]
    header_turns: int
    turn_counter: int
    turn_spacing: int
    bunch_pattern_offset: list[int]
    common_turn_delay: int
    turn_delay: list[int]
    block_delay: list[int]
    channel_delay: NDArray[np.int32]
    gain_setting: NDArray[np.int32]
    gain_code: NDArray[np.int32]
    pedestal: NDArray[np.float32]
    gain_coefficient: NDArray[np.float32]
    adc_saturation: NDArray[np.int32]
    adc_high: NDArray[np.int32]
    adc_low: NDArray[np.int32]
    board_temperature: float
    card_temperature: list[float]
    @property
    def readings(self) -> Tuple[NDArray[np.int32], NDArray[np.int32],
                                NDArray[np.int32], NDArray[np.int32]]: ...
    @property
    def corrected(self) -> Tuple[NDArray[np.float32], NDArray[np.float32],
                                 NDArray[np.float32], NDArray[np.float32]]: ...
    @property
    def x(self) -> NDArray[np.float32]: ...
    @property
    def y(self) -> NDArray[np.float32]: ...
    @property
    def phase_words(self) -> NDArray[np.int32]: ...
    @property
    def phase_x(self) -> NDArray[np.int32]: ...
    @property
    def phase_y(self) -> NDArray[np.int32]: ...
    @property
    def phase_other(self) -> NDArray[np.int32]: ...
    @property
    def blocks(self) -> NDArray[np.int32]: ...
    def signals(self, bunch: int = 0) -> Reals: ...

class RawFile:
    path: str
    instrument_type: str
    command: str
    file_type: str
    time_stamp: str
    species: str
    timing_setup: str
    file_id: int
    file_version: int
    core_revision: int
    platform_revision: int
    bunches: int
    turns: int
    turn_spacing: int
    condition: int
    raw_current: int
    current: float
    bunch_numbers: list[int]
    @property
    def bpms(self) -> list[RawBpm]: ...
    @property
    def names(self) -> list[str]: ...
    def __len__(self) -> int: ...
    def __getitem__(self, name: str) -> RawBpm: ...
    def rf_bucket(self, bunch: int) -> Optional[int]: ...

class Chamber:
    name: str
    about: str
    @staticmethod
    def read(path: Path) -> Chamber: ...
    @staticmethod
    def parse(text: str, name: str = "text") -> Chamber: ...
    @staticmethod
    def default(name: str) -> Chamber: ...
    @staticmethod
    def round(radius: float = 0.045, half_width: float = ..., angle: float = ...,
              shape: Literal["strip", "disc"] = "strip") -> Chamber: ...

class Positions:
    x: Reals
    y: Reals
    scale: Reals
    chi_square: Reals
    fault: NDArray[np.int8]

class Table:
    name: str
    @property
    def extent(self) -> Four: ...
    @property
    def shape(self) -> Tuple[int, int]: ...
    @staticmethod
    def read(path: Path) -> Table: ...
    @staticmethod
    def from_chamber(chamber: Union[Chamber, Path], *,
                     progress: Optional[Progress] = None) -> Table: ...
    def positions(self, signals: ArrayLike, *, multipliers: Optional[ArrayLike] = None,
                  bad_button: Optional[int] = None) -> Positions: ...
    def signals(self, x: ArrayLike, y: ArrayLike) -> Reals: ...

class GainFit:
    multiplier: Reals
    curve: Reals
    chi_square: float
    covariance: Reals
    singular: bool
    steps: int

class FourFits:
    held: list[GainFit]
    gain: Reals
    multiplier: Reals
    curve: Reals
    chi_square: float
    word: Literal["determined", "doubtful", "not determined"]
    reason: str
    excitation: float
    uncertainty: float
    spread: float

class Verdict:
    word: Literal["determined", "weak", "suspect", "not determined"]
    reason: str
    button: Optional[int]
    error: float

class CalibrationFit:
    kind: Literal["free", "steady", "wide"]
    differences: bool
    gain: Reals
    covariance: Reals
    noise_covariance: Reals
    error: float
    noise_error: float
    pedestal: Reals
    pedestal_covariance: Reals
    noise: float
    noise_v: float
    jitter: float
    chi_square: float
    chi_square_v: float
    persistence: float
    chamber: list[float]
    current: list[float]
    orbits: int
    outliers: int
    intensity_outliers: int
    at_edge: int
    steps: int
    converged: bool

class Calibration:
    verdict: Verdict
    gain: Reals
    chosen: CalibrationFit
    free: CalibrationFit
    steady: CalibrationFit
    wide: CalibrationFit
    median_signal: float
    pedestal_chi: float
    slope_chi: float
    moved_gains: float
    moved_sigma: float
    trouble: list[dict[str, Union[str, int, float]]]
    mechanical_error: float
    x: Reals
    y: Reals
    intensity: Reals
    residual: Reals
    used: NDArray[np.bool_]
    fits: Optional[FourFits]
    fits_differ: float
    fits_verdict: Optional[Verdict]

class BeamPlane:
    gaussian: bool
    spread: float
    orbit: float
    tune: float
    amplitude: float
    phase: float
    advance: float
    def __init__(self) -> None: ...

class BeamCurrent:
    drift: float
    decay: float
    walk: float
    slope_x: float
    slope_y: float
    def __init__(self) -> None: ...

class BeamPopulation:
    part: float
    x: float
    y: float
    current: float
    def __init__(self) -> None: ...

class Beam:
    x: BeamPlane
    y: BeamPlane
    coupling: float
    current: BeamCurrent
    second: BeamPopulation
    duplicated: float
    def __init__(self) -> None: ...

class Electronics:
    gain: Four
    pedestal: Four
    pedestal_left: Four
    full_scale: Four
    dead: Tuple[bool, bool, bool, bool]
    stuck: Four
    compression: Four
    gain_step: Four
    gain_drift: Four
    cable_of: Tuple[int, int, int, int]
    signal: float
    noise: float
    common_noise: float
    intensity_spread: float
    wild: float
    cross_talk: float
    adc_step: float
    gain_step_at: float
    outliers: int
    outlier_size: float
    def __init__(self) -> None: ...

class Simulation:
    chamber: Chamber
    beam: Beam
    electronics: Electronics
    orbits: int
    seed: int
    bpm: int
    bunch: int
    def __init__(self) -> None: ...

class Simulated:
    signals: Reals
    x: Reals
    y: Reals
    intensity: Reals
    gain: Reals
    mean_gain: Reals
    pedestal: Reals

class Run:
    directory: str
    info: Optional[dict[str, Any]]
    @property
    def columns(self) -> list[str]: ...
    def __getitem__(self, name: str) -> Any: ...
    def __len__(self) -> int: ...

def read_raw(path: Path) -> RawFile: ...
def read_run(directory: Path) -> Run: ...
def fit(signals: ArrayLike) -> FourFits: ...
def calibrate(signals: ArrayLike, table: Table, *, sets: Optional[Sequence[int]] = None,
              exact_table: bool = False, own_table: bool = True, sigma_p: float = 0.01,
              half_height: float = 0.0, tolerance: float = 0.0,
              fits: bool = True) -> Calibration: ...
def calibrate_many(signals: Sequence[ArrayLike], table: Union[Table, Sequence[Table]], *,
                   sets: Optional[Sequence[int]] = None, exact_table: bool = False,
                   own_table: bool = True, sigma_p: float = 0.01, half_height: float = 0.0,
                   tolerance: float = 0.0, fits: bool = True, threads: int = 0,
                   progress: Optional[Progress] = None) -> list[Calibration]: ...
def simulate(orbits: Optional[int] = None, *, seed: Optional[int] = None,
             gain: Optional[ArrayLike] = None, pedestal: Optional[ArrayLike] = None,
             noise: Optional[float] = None, spread: Optional[ArrayLike] = None,
             orbit: Optional[ArrayLike] = None, chamber: Optional[Chamber] = None,
             setup: Optional[Simulation] = None,
             progress: Optional[Progress] = None) -> Simulated: ...
