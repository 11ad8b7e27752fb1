// trend_words: how steps, drifts and runs are called, the same everywhere. Not escaped: names come
// from data.
#pragma once
#include <string>
#include <utility>
#include <vector>

#include "trend_report.hpp"

namespace report {

/// "12W", or "BPM 12" without a name; "BPM 12 (12W)".
std::string short_name(const bpm_series& series);
std::string long_name(const bpm_series& series);

/// "+0.501 %": of a change of ln t.
std::string percent(double change);

/// "BI +0.501 %", "BI +0.5 %, TO -0.3 %": what moved, with its error where asked for.
std::string moved_in_words(const moved_gains& moved, bool with_error);

/// "BI +0.501 %", "BI +1.2 % and others": the button that moved most.
std::string most_moved(const moved_gains& moved);

/// "between 2026-03-04 and 2026-03-11", with times of day where both are of one day.
std::string between(const trend_data& data, const trend_step& step);

/// The steps of a BPM by size.
std::vector<const trend_step*> largest_first(const bpm_trend& b);

/// "TI +0.501 % between 2026-03-04 and 2026-03-11"; "BO drifts by +0.1 % a month"; one after the
/// other, the largest step first.
std::vector<std::string> changes_in_words(const bpm_trend& b, const trend_data& data,
                                          bool with_error);

/// One sentence on everything.
std::string trend_sentence(const trend_result& r);

/// "200 runs from 2026-01-01 to 2026-12-24"; "1 run".
std::string runs_in_words(const trend_data& data);

/// What to do about runs that were all made at once, most likely of older data; empty otherwise.
std::string hint_at_times(const trend_result& r);

/// Why a BPM was never determined: the commonest of its reasons.
std::string why_never(const bpm_series& series);

/// A run with the BPMs that are off in it.
struct wild_in_run {
  std::size_t run = 0;
  std::vector<std::pair<std::size_t, const wild_run*>> bpm;  ///< place in trend_result::bpm
};
/// By run, most BPMs first.
std::vector<wild_in_run> wild_by_run(const trend_result& r);

/// Whether it is the run that is off, and not its BPMs: a third of them.
bool is_of_run(const trend_result& r, const wild_in_run& w);

/// How many BPMs there are of a word.
std::size_t count_of(const trend_result& r, trend_word word);

}  // namespace report
