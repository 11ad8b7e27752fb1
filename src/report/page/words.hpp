// words: what the report says about a run, and which numbers it shows.
#pragma once
#include <array>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "run_results.hpp"

namespace report {

/// "1 BPM", "12 BPMs".
std::string bpms_in_words(std::size_t count);

/// The name of a BPM, its index where it has none.
std::string name_of(const bpm_row& row);

/// The verdicts from worst to best, as people should look at them.
inline constexpr std::array verdicts_by_need{verdict::suspect, verdict::not_determined,
                                             verdict::weak, verdict::not_fitted,
                                             verdict::determined};

/// And from best to worst, as they are counted.
inline constexpr std::array verdicts_by_worth{verdict::determined, verdict::not_fitted,
                                              verdict::weak, verdict::not_determined,
                                              verdict::suspect};

std::size_t count_of(const run_results& run, verdict word);

/// Whether gains.load has new coefficients for it: it is determined, and nothing else keeps the old.
bool can_be_loaded(const bpm_row& row);

/// Why it needs a look: behind its verdict, or, where that is good, why old coefficients stay.
const std::string& reason_of(const bpm_row& row);

/// BPMs whose gains are not loaded, and that share verdict and reason.
struct look_group {
  report::verdict verdict = verdict::suspect;
  std::string reason;
  std::vector<const bpm_row*> bpm;
};

/// All BPMs that need a look, the worst verdict first.
std::vector<look_group> bpms_to_look_at(const run_results& run);

/// The gains of a BPM that the pictures show.
struct shown_gains {
  four t = unknown_four;   ///< button gains, product 1 [-]
  double error = unknown;  ///< of ln(t_k/t_1); not known: not drawn
  bool usable = false;     ///< the verdict lets them be used: determined or weak
};

/// The calibrated gains, or those of the four fits where nothing was calibrated.
/// returns  nothing where neither is known
std::optional<shown_gains> gains_shown(const bpm_row& row);

/// The true gains of simulated data with product 1, to stand beside those above: as files give them
/// they have any common factor. Unknown where they are.
four true_gains_shown(const bpm_row& row);

/// A sentence on a run that did not end as it should; empty otherwise.
std::string how_it_ended(const run_info& info);

/// One line: number of BPMs with each verdict.
std::string counts_in_words(const run_results& run);

}  // namespace report
