#include "session_summary.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <string_view>

#include "gain_fit_mod.hpp"

namespace driver {
namespace {

namespace fit = gain_fit_mod;

// More data sets than this would shrink the title beyond reading.
constexpr std::size_t most_named = 4;

bool has_signal(const store::bpm_struct& reading) {
  const auto& b = reading.button.item;
  return std::any_of(b.begin(), b.end(), [](double signal) { return signal != 0; });
}

// Why the loop passed a BPM over that has orbits in the store.
std::string reason_in_store(const session_state& s, int bpm) {
  if (bpm > s.bpm_count.get()) {
    return fmt::format("its index is above {}, the last that is fitted", s.bpm_count.get());
  }
  const auto column = fit::orbit_data.column(bpm, s.norbits_save.get());
  const auto first = std::find_if(column.begin(), column.end(), has_signal);
  if (first == column.end()) return fmt::format("no signal in any of {} orbits", column.size());
  return fmt::format("silent in orbit 1; its first signal is in orbit {}",
                     first - column.begin() + 1);
}

void add_reason(std::string& reasons, const std::string& reason) {
  if (reasons.find(reason) != std::string::npos) return;
  if (!reasons.empty()) reasons += "; ";
  reasons += reason;
}

bool was_fitted(const session_state& s, int bpm) {
  return std::any_of(s.fitted.begin(), s.fitted.end(),
                     [bpm](const fitted_bpm& f) { return f.bpm == bpm; });
}

// ", 2 weak (12W, 13W)"; the names only of those that somebody must look at.
std::string count_of(const session_state& s, calibration::verdict_word verdict, bool by_name) {
  std::vector<std::string> names;
  for (const fitted_bpm& f : s.fitted) {
    if (f.verdict == verdict) names.push_back(f.name);
  }
  std::string text = fmt::format("{} {}", names.size(), calibration::text_of(verdict));
  if (by_name && !names.empty()) text += fmt::format(" ({})", fmt::join(names, ", "));
  return text;
}

std::string line_of_fitted(const session_state& s) {
  if (s.fitted.empty()) return "no BPM fitted";
  using word = calibration::verdict_word;
  return fmt::format("{} BPM{} fitted: {}, {}, {}, {}", s.fitted.size(),
                     s.fitted.size() == 1 ? "" : "s", count_of(s, word::determined, false),
                     count_of(s, word::weak, true), count_of(s, word::suspect, true),
                     count_of(s, word::not_determined, true));
}

// The first answer decides how many turns of raw data are read; its default of 0 reads none.
bool no_turn_was_asked_for(const session_state& s) {
  const auto& out = store::left_out;
  return s.norbits_save.get() == 0 && fit::gain_correct != 0 && !out.empty() &&
         std::all_of(out.begin(), out.end(),
                     [](const store::bpm_remark& r) { return r.turns == 0; });
}

}  // namespace

std::vector<store::bpm_remark> bpms_not_fitted(const session_state& s) {
  std::map<int, store::bpm_remark> by_index;
  const auto remark = [&](int bpm, const std::string& name, const std::string& reason) {
    if (was_fitted(s, bpm) || (s.just_one && bpm != fit::bpm)) return;
    store::bpm_remark& at = by_index[bpm];
    at.bpm = bpm;
    if (!name.empty()) at.name = name;
    add_reason(at.reason, reason);
  };
  for (int bpm = 0; bpm <= store::max_bpm; ++bpm) {
    if (fit::orbit_data.holds(bpm)) {
      remark(bpm, std::string{fit::bpm_names(bpm).trimmed()}, reason_in_store(s, bpm));
    }
  }
  for (const store::bpm_remark& r : store::left_out) remark(r.bpm, r.name, r.reason);
  std::vector<store::bpm_remark> all;
  all.reserve(by_index.size());
  for (auto& [bpm, at] : by_index) all.push_back(std::move(at));
  return all;
}

std::vector<std::string> summary_lines(const session_state& s,
                                       const std::vector<store::bpm_remark>& not_fitted) {
  std::vector<std::string> lines{line_of_fitted(s)};
  if (no_turn_was_asked_for(s)) {
    lines[0] += fmt::format(
        ": no turn was read with N = {} at \"Compute positions (x,y) using nonlin BPM for N "
        "orbits\"; type a number above the turns of the run, such as 100000",
        s.max_nonlin_positions);
    return lines;
  }
  // A series is as long as its last file, whatever the files before it hold.
  if (s.norbits_save.get() == 0) {
    lines[0] += s.fitted.empty() ? ": nothing was read"
                                 : ": the last file has no orbit, and its number holds for all";
  }
  std::vector<bool> told(not_fitted.size(), false);
  for (std::size_t i = 0; i < not_fitted.size(); ++i) {
    if (told[i]) continue;
    std::vector<std::string> bpms;
    bpms.reserve(not_fitted.size() - i);
    for (std::size_t j = i; j < not_fitted.size(); ++j) {
      if (not_fitted[j].reason != not_fitted[i].reason) continue;
      told[j] = true;
      bpms.push_back(fmt::format("{} ({})", not_fitted[j].bpm, not_fitted[j].name));
    }
    lines.push_back(fmt::format("not fitted: BPM{} {}: {}", bpms.size() == 1 ? "" : "s",
                                fmt::join(bpms, ", "), not_fitted[i].reason));
  }
  return lines;
}

void tell_summary(const session_state& s) {
  std::fflush(stdout);
  for (const std::string& line : summary_lines(s, bpms_not_fitted(s))) {
    fmt::print(stderr, "butngain: {}\n", line);
  }
}

std::string plot_title(const session_state& s) {
  std::vector<std::string> sets{s.data_sets};
  const bool synthetic = s.type == "fake";
  const int last = s.bpm_count.get();
  if (synthetic && last >= 1) {
    sets = {fmt::format("{} to {}", fit::bpm_names(1).trimmed(), fit::bpm_names(last).trimmed())};
  }
  const std::size_t more = sets.size() > most_named ? sets.size() - most_named : 0;
  sets.resize(sets.size() - more);
  std::string title = fmt::format("Button gains, {}", fmt::join(sets, ", "));
  if (more > 0) title += fmt::format(" and {} more", more);
  return title + fmt::format(", {} orbits, {}", s.norbits_save.get(), s.directory.trimmed());
}

}  // namespace driver
