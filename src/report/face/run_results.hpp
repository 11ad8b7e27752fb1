// run_results: what a run found out, as plain records: the one source of gains.csv, gains.load,
// run.json, report.html and the pictures. The session fills them; whoever reads a run directory
// back gets the same records.
//
// Buttons 0..3 are BI, BO, TI, TO. A button gain t is what the button makes of the signal (signal =
// t x beam, the product of the four is 1); a multiplier g = 1/t is what corrects a signal.
// A value that is not known is nan, and stands as an empty field in files.
#pragma once
#include <array>
#include <cstdint>
#include <limits>
#include <string>
#include <utility>
#include <vector>

namespace report {

inline constexpr double unknown = std::numeric_limits<double>::quiet_NaN();
using four = std::array<double, 4>;
inline constexpr four unknown_four{unknown, unknown, unknown, unknown};

/// The verdicts on a BPM; "not fitted" where the data hold the BPM but it was passed over.
enum class verdict { determined, weak, suspect, not_determined, not_fitted };

/// One kept orbit of a BPM.
struct orbit_row {
  int orbit = 0;               ///< its number among the BPM's kept orbits, from 1: the time index
  four signal = unknown_four;  ///< [ADC counts]
  double before_x_mm = unknown, before_y_mm = unknown;  ///< place by difference over sum [mm]
  double after_x_mm = unknown, after_y_mm = unknown;    ///< place with the fitted gains [mm]
  double intensity = unknown;  ///< signal of a centred beam on a button of gain 1 [ADC counts]
  double residual = unknown;   ///< what the orbit says about the BPM alone [median signal]
  bool used = false;           ///< false: an outlier, or not calibrated
};

/// One BPM that the data hold: a line of gains.csv.
struct bpm_row {
  int bpm = 0;
  std::string name;
  int orbits = 0;       ///< kept, with a signal
  int orbits_used = 0;  ///< that took part in the calibration
  int outliers = 0;     ///< left out of it
  report::verdict verdict = report::verdict::not_fitted;
  std::string reason;             ///< in words
  four gain = unknown_four;       ///< button gains t, product 1 [-]
  four sigma = unknown_four;      ///< of ln t, from the noise [-]
  double error = unknown;         ///< E: of ln(t_k/t_1), all in all
  four fit_gain = unknown_four;   ///< multipliers of the four fits, mean 1 [-]
  double fit_error = unknown;     ///< of the four fits' gains [-]
  double fit_distance = unknown;  ///< largest |ln ratio| between both methods [-]
  four pedestal = unknown_four, pedestal_sigma = unknown_four;  ///< [median signal]
  double mean_x_mm = unknown, mean_y_mm = unknown;              ///< of the places
  double sd_x_mm = unknown, sd_y_mm = unknown;                  ///< their scatter
  double noise = unknown;         ///< rms of one reading [median signal]
  four true_gain = unknown_four;  ///< known for simulated data [-]
  /// Coefficients by which the electronics divide readings: while these were taken (unknown where the
  /// data do not tell), and those to be loaded (unknown: the old ones stay). Not in gains.csv.
  four coefficient = unknown_four, new_coefficient = unknown_four;
  std::string stays;  ///< why the old coefficients stay, where the verdict does not say it
  std::vector<orbit_row> orbit{};  ///< empty after reading back
};

/// A question of the dialog and what was answered.
struct answered {
  std::string question, answer;
  std::string given{};  ///< how: "terminal", "pipe", "option" or "default"
};

/// A file that was read.
struct input_file {
  std::string path;
  std::uint64_t size = 0;  ///< [bytes]
  std::string sha256{};    ///< 64 hexadecimal digits
};

/// How and when a run was made: run.json.
struct run_info {
  std::string version, build, host, directory, working_directory, command;
  std::vector<std::string> arguments;  ///< of the command line; of a repeated run that run's
  std::string started;                 ///< local time with its offset, ISO 8601
  std::vector<answered> dialog;        ///< in the order asked
  std::vector<input_file> inputs;      ///< in the order read
  std::vector<input_file> tables;      ///< position tables, calibration lists, chamber files
  std::vector<std::pair<std::string, std::string>> site_paths;  ///< name, expanded value
  std::vector<std::pair<std::string, double>> seconds;          ///< wall time of each stage
  std::string title;              ///< the data in words: "runs 4566, 4567, 1000 orbits"
  std::string ended = "running";  ///< "running", "whole", "interrupted", or the fault's line
  int exit_status = -1;           ///< -1 while running
};

/// A whole run.
struct run_results {
  run_info info;
  std::vector<bpm_row> bpm;  ///< in ascending order of index
};

}  // namespace report
