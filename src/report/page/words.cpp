#include "words.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "gains_csv.hpp"
#include "report_page.hpp"

namespace report {
namespace {

bool all_positive(const four& values) {
  return std::all_of(values.begin(), values.end(),
                     [](double v) { return std::isfinite(v) && v > 0; });
}

// Multipliers as button gains with product 1.
// t = 1/g but for the factor that no fit can know; the mean of the multipliers, the geometric one,
// makes the product 1.
four button_gains(const four& multiplier) {
  const double mean = std::pow(multiplier[0] * multiplier[1] * multiplier[2] * multiplier[3], 0.25);
  four t{};
  for (std::size_t k = 0; k < 4; ++k) t[k] = mean / multiplier[k];
  return t;
}

}  // namespace

std::string bpms_in_words(std::size_t count) {
  return fmt::format("{} BPM{}", count, count == 1 ? "" : "s");
}

std::string name_of(const bpm_row& row) {
  // Files without names have indices only; "BPM" in front, as a bare number would be read as a
  // count.
  return row.name.empty() ? fmt::format("BPM {}", row.bpm) : row.name;
}

std::size_t count_of(const run_results& run, verdict word) {
  return static_cast<std::size_t>(std::count_if(
      run.bpm.begin(), run.bpm.end(), [word](const bpm_row& row) { return row.verdict == word; }));
}

bool can_be_loaded(const bpm_row& row) {
  return row.verdict == verdict::determined && row.stays.empty();
}

const std::string& reason_of(const bpm_row& row) {
  // A determined BPM may carry a remark as its reason; that goes first.
  return row.verdict == verdict::determined && row.reason.empty() ? row.stays : row.reason;
}

std::vector<look_group> bpms_to_look_at(const run_results& run) {
  std::vector<look_group> groups;
  for (const verdict word : verdicts_by_need) {
    const std::size_t first = groups.size();
    for (const bpm_row& row : run.bpm) {
      if (row.verdict != word || can_be_loaded(row)) continue;
      const std::string& reason = reason_of(row);
      // Only among groups of this verdict: two verdicts may have the same reason in words.
      const auto same =
          std::find_if(groups.begin() + static_cast<std::ptrdiff_t>(first), groups.end(),
                       [&reason](const look_group& g) { return g.reason == reason; });
      if (same == groups.end()) {
        groups.push_back({word, reason, {&row}});
      } else {
        same->bpm.push_back(&row);
      }
    }
  }
  return groups;
}

std::optional<shown_gains> gains_shown(const bpm_row& row) {
  shown_gains shown;
  shown.usable = row.verdict == verdict::determined || row.verdict == verdict::weak;
  // The calibration's gains are the better ones; those of the four fits still say what the BPM is
  // like where there is no calibration. A gain of 0 or less is none.
  if (all_positive(row.gain)) {
    shown.t = row.gain;
    shown.error = row.error;
  } else if (all_positive(row.fit_gain)) {
    shown.t = button_gains(row.fit_gain);
    shown.error = row.fit_error;
  } else {
    return {};
  }
  return shown;
}

four true_gains_shown(const bpm_row& row) {
  if (!all_positive(row.true_gain)) return unknown_four;
  four inverse{};
  // True gains are button gains already; taken for multipliers they would come back upside down.
  for (std::size_t k = 0; k < 4; ++k) inverse[k] = 1 / row.true_gain[k];
  return button_gains(inverse);
}

std::string how_it_ended(const run_info& info) {
  // The page is written before the run has ended: "running" is no fault.
  if (info.ended == "whole" || info.ended == "running" || info.ended.empty()) return {};
  if (info.ended == "interrupted") {
    return "The run was interrupted: BPMs that it did not reach are missing.";
  }
  return fmt::format("The run did not come to its end: {}.", info.ended);
}

std::string counts_in_words(const run_results& run) {
  std::string text;
  for (const verdict word : verdicts_by_worth) {
    const std::size_t count = count_of(run, word);
    // Zeros are left out: the line is for people.
    if (count == 0) continue;
    if (!text.empty()) text += ", ";
    text += fmt::format("{} {}", count, text_of(word));
  }
  return text;
}

namespace {

// Why nothing can be loaded.
// As short as the run allows: when all BPMs share a verdict, a list of counts would hide that.
std::string none_in_words(const run_results& run) {
  const std::size_t all = run.bpm.size();
  const verdict word = run.bpm[0].verdict;
  if (all == 1) return fmt::format("the only BPM is {}", text_of(word));
  if (count_of(run, word) == all) {
    return word == verdict::not_determined ? fmt::format("none of {} BPMs is determined", all)
                                           : fmt::format("all {} BPMs are {}", all, text_of(word));
  }
  return fmt::format("none of {} BPMs is determined ({})", all, counts_in_words(run));
}

}  // namespace

std::string first_sentence(const run_results& run) {
  const std::size_t all = run.bpm.size(), determined = count_of(run, verdict::determined);
  const auto good =
      static_cast<std::size_t>(std::count_if(run.bpm.begin(), run.bpm.end(), can_be_loaded));
  if (all == 0) return "Nothing can be loaded: the data hold no BPM.";
  if (determined == 0) return fmt::format("Nothing can be loaded: {}.", none_in_words(run));
  const char* are = good == 1 ? "is" : "are";
  if (good == 0) {
    return fmt::format("Nothing can be loaded: {} of {} {} determined, but old coefficients stay.",
                       determined, bpms_in_words(all), determined == 1 ? "is" : "are");
  }
  if (good == all) {
    return all == 1 ? "The only BPM is determined: load gains.load."
                    : fmt::format("All {} BPMs are determined: load gains.load.", all);
  }
  // "determined" only where that is the whole story: some may be determined and keep old
  // coefficients.
  const std::size_t others = all - good;
  return fmt::format("{} of {} BPMs {}: load gains.load. {} need{} a look.", good, all,
                     good == determined ? fmt::format("{} determined", are) : "can be loaded",
                     bpms_in_words(others), others == 1 ? "s" : "");
}

}  // namespace report
