// compare: the gains that a session found, against the truth.
//
// The session's "_err" table holds, per BPM, the mean over its four fits of the ratios of 1/gain to
// that of button 1; the true ratios are true_gain(k)/true_gain(1). The table prints four decimals,
// so differences below 5e-5 are rounding. It is read by column: a number too wide for its field is
// asterisks there, and a fit without result is NaN.
#pragma once
#include <string>
#include <vector>

#include "chamber.hpp"
#include "truth.hpp"

namespace sim {

/// Half of the last decimal that the table prints.
inline constexpr double printed_rounding = 5e-5;

/// One BPM of the session's table.
struct fitted_bpm {
  int bpm = 0;
  std::string name;  // at most 12 characters
  buttons ratio{};   // of 1/gain to that of button 1; NaN where the table holds no number
};

/// One BPM, compared.
struct bpm_comparison {
  fitted_bpm fitted;
  buttons true_ratio{};
  buttons difference{};  // fitted minus true
  double worst = 0;      // largest size of these; infinite where a ratio is no number
};

/// The "_err" table in a session's output directory, or that file itself.
/// errors   no such table or several, or a line that is none of its lines: ends the run
std::string find_err_table(const std::string& result);
std::vector<fitted_bpm> read_err_table(const std::string& path);

/// Fitted against true, in the order of the table. BPMs match by the 12 characters that the table
/// prints of their names; a BPM unknown to the truth ends the run.
std::vector<bpm_comparison> compare(const std::vector<bpm_truth>& truth,
                                    const std::vector<fitted_bpm>& fitted);

/// Largest and rms difference over all ratios; infinite when any ratio is no number.
struct spread_of_differences {
  double worst = 0;
  double rms = 0;
};
spread_of_differences summarise(const std::vector<bpm_comparison>& all);

/// One line a BPM, for people.
void print_comparison(const std::vector<bpm_comparison>& all);

}  // namespace sim
