// judged_run: one simulated run of one BPM, analysed both ways, with the truth beside it.
//
// The four fits are the session's; the calibration uses the table of the chamber as it is drawn. The
// error of a set of gains is that of ln(t_k/t_1), k = 2..4: their rms over the three.
#pragma once
#include <array>
#include <optional>
#include <vector>

#include "beam_run.hpp"
#include "calibration.hpp"

namespace sim {

/// Readings of a run in columns, button by button [ADC counts].
using signal_columns = std::array<std::vector<double>, 4>;

/// Column by column, as the calibration takes them.
signal_columns columns_of(const run_signals& made);

/// The session's four fits of these readings, rounded to whole counts.
/// errors   none; gains that are no numbers where the fit found none
/// note     overwrites the state of the fit; its report on standard output is kept back
calibration::four_fits fit_as_session(const signal_columns& signal);

/// What is known beside the readings.
struct knowledge {
  const nonlin_bpm_mod::table_struct* table = nullptr;  ///< of the chamber as it is drawn
  double sigma_p = calibration::pedestals_subtracted;   ///< of the pedestals [median signal]
  bool exact_table = false;                             ///< no allowances
  bool with_fits = true;                                ///< the four fits are wanted
  std::vector<int> set_start = {};                      ///< as in calibration::bpm_run
};

/// Errors of the three ratios, ln(t_k/t_1) - truth, k = 2..4 [-].
using ratio_errors = std::array<double, 3>;
double rms_of(const ratio_errors& e);

struct judged_run {
  calibration::record record;
  ratio_errors calibration{};  ///< of the gains of the record
  ratio_errors free{};         ///< of those with every intensity free
  ratio_errors fits{};         ///< of the mean of the four fits; infinite where they failed
  double fits_spread = 0;      ///< largest difference of a ratio between the four fits [-]
};

/// Analyses a run. The truth is the mean gain over the run.
judged_run judge(const run_signals& made, const knowledge& known);

/// What noise of this size leaves at least of ln(t_k/t_1) (rms over k), whatever the method, when
/// every orbit's place and intensity is free: the Cramer-Rao limit.
/// given    made   a run of gains that do not change
///          noise  rms of one reading, in parts of a centred signal; above 0
double noise_limit(const beam_run& run, const run_signals& made, double noise);

/// Pull of every ratio: error over standard deviation.
ratio_errors pulls_of(const ratio_errors& e, const calibration::button_square& covariance);

}  // namespace sim
