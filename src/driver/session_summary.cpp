#include "session_summary.hpp"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string_view>
#include <utility>

#include "file_units.hpp"
#include "gain_fit_mod.hpp"
#include "gains_csv.hpp"
#include "gains_load.hpp"
#include "text.hpp"

namespace driver {
namespace {

namespace fit = gain_fit_mod;

// More data sets than this would shrink the title beyond reading.
constexpr std::size_t most_named = 4;
// BPMs in one line of what to look at: the files have them all.
constexpr std::size_t most_listed = 12;

// Why the loop passed a BPM over that has orbits in the store.
std::string reason_in_store(const session_state& s, int bpm) {
  if (bpm > s.bpm_count.get()) {
    return fmt::format("its index is above {}, the last that is fitted", s.bpm_count.get());
  }
  const auto column = fit::orbit_data.column(bpm, s.norbits_save.get());
  const auto first = std::find_if(column.begin(), column.end(), has_signal);
  // Only a run that was ended early leaves BPMs behind that have all they need.
  if (s.interrupted && first == column.begin()) return "the run was interrupted before it";
  if (first == column.end()) return fmt::format("no signal in any of {} orbits", column.size());
  return fmt::format("silent in orbit 1; its first signal is in orbit {}",
                     first - column.begin() + 1);
}

// A BPM may be left out of each of several data sets, mostly for the same reason: told once.
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
std::string count_of(const report::run_results& results, report::verdict verdict, bool by_name) {
  std::vector<std::string> names;
  for (const report::bpm_row& row : results.bpm) {
    if (row.verdict == verdict) names.push_back(row.name);
  }
  std::string text = fmt::format("{} {}", names.size(), report::text_of(verdict));
  if (by_name && !names.empty()) text += fmt::format(" ({})", fmt::join(names, ", "));
  return text;
}

// The first answer decides how many turns of raw data are read; its default of 0 reads none.
bool no_turn_was_asked_for(const session_state& s) {
  const auto& out = store::left_out;
  // Where one BPM has turns the number was not 0, and the reason must be another.
  return s.norbits_save.get() == 0 && fit::gain_correct != 0 && !out.empty() &&
         std::all_of(out.begin(), out.end(),
                     [](const store::bpm_remark& r) { return r.turns == 0; });
}

// "BPMs 12 (12W), 13 (13W)", not without end.
std::string named(const std::vector<std::string>& bpms) {
  const std::size_t listed = std::min(bpms.size(), most_listed);
  const auto end = bpms.begin() + static_cast<std::ptrdiff_t>(listed);
  std::string text =
      fmt::format("BPM{} {}", bpms.size() == 1 ? "" : "s", fmt::join(bpms.begin(), end, ", "));
  if (listed < bpms.size()) text += fmt::format(" and {} more", bpms.size() - listed);
  return text;
}

}  // namespace

std::string line_of_fitted(const report::run_results& results) {
  using word = report::verdict;
  const auto fitted = std::count_if(results.bpm.begin(), results.bpm.end(), [](const auto& row) {
    return row.verdict != word::not_fitted;
  });
  if (fitted == 0) return "no BPM fitted";
  return fmt::format("{} BPM{} fitted: {}, {}, {}, {}", fitted, fitted == 1 ? "" : "s",
                     count_of(results, word::determined, false),
                     count_of(results, word::weak, true), count_of(results, word::suspect, true),
                     count_of(results, word::not_determined, true));
}

void add_lines_to_look_at(const report::run_results& results, std::vector<std::string>& lines) {
  using word = report::verdict;
  for (const word verdict : {word::suspect, word::not_determined, word::weak}) {
    // Searched one by one, not a map: reasons keep the order of the BPMs.
    std::vector<std::pair<std::string, std::vector<std::string>>> groups;
    for (const report::bpm_row& row : results.bpm) {
      if (row.verdict != verdict) continue;
      auto group = std::find_if(groups.begin(), groups.end(),
                                [&row](const auto& g) { return g.first == row.reason; });
      if (group == groups.end()) group = groups.insert(group, {row.reason, {}});
      group->second.push_back(fmt::format("{} ({})", row.bpm, row.name));
    }
    for (const auto& [reason, bpms] : groups) {
      lines.push_back(
          fmt::format("look at {}: {}: {}", named(bpms), report::text_of(verdict), reason));
    }
  }
}

std::string line_of_files(const report::run_results& results) {
  const std::string& folder = results.info.directory;
  return fmt::format("{}: {}/gains.load; all results: {}/report.html",
                     report::what_to_load(results.bpm), folder, folder);
}

void add_lines_of_not_fitted(const std::vector<store::bpm_remark>& not_fitted,
                             std::vector<std::string>& lines) {
  // BPMs with the same reason in one line, where the first of them would have stood.
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
}

namespace {

// What a line is about, for somebody who only glances at it.
std::string_view colour_of(const std::string& line) {
  // Control sequences as ECMA-48 has them: 31 and 33 are colours, 1 is bold.
  constexpr std::string_view red = "\033[31m";
  constexpr std::string_view yellow = "\033[33m";
  constexpr std::string_view bold = "\033[1m";
  if (line.starts_with("look at ")) {
    return line.find(": weak: ") == std::string::npos ? red : yellow;
  }
  return line.starts_with("not fitted: ") ? yellow : bold;
}

// NO_COLOR counts when it is not empty: so the programs that heed it agreed.
bool in_colour() {
  const char* no_colour = std::getenv("NO_COLOR");
  const char* terminal = std::getenv("TERM");
  return isatty(STDERR_FILENO) == 1 && (no_colour == nullptr || *no_colour == '\0') &&
         terminal != nullptr && std::string_view{terminal} != "dumb";
}

// Every reason for which a BPM was not fitted; of those that were not chosen only when asked for.
std::vector<store::bpm_remark> remarks_of(const session_state& s, bool of_all) {
  // By index, whichever remark came first: people look for a BPM by its number.
  std::map<int, store::bpm_remark> by_index;
  const auto remark = [&](int bpm, const std::string& name, const std::string& reason) {
    const bool chosen = !s.just_one || bpm == fit::bpm;
    if (was_fitted(s, bpm) || !(chosen || of_all)) return;
    store::bpm_remark& at = by_index[bpm];
    at.bpm = bpm;
    if (!name.empty()) at.name = name;
    add_reason(at.reason, chosen ? reason : "another BPM was chosen");
  };
  for (int bpm = 0; bpm <= store::max_bpm; ++bpm) {
    if (fit::orbit_data.holds(bpm)) {
      remark(bpm, std::string{fit::bpm_names(bpm).trimmed()}, reason_in_store(s, bpm));
    }
  }
  // Also of those that never came into the store: their readers left a remark.
  for (const store::bpm_remark& r : store::left_out) remark(r.bpm, r.name, r.reason);
  std::vector<store::bpm_remark> all;
  all.reserve(by_index.size());
  for (auto& [bpm, at] : by_index) all.push_back(std::move(at));
  return all;
}

}  // namespace

bool has_signal(const store::bpm_struct& reading) {
  const auto& b = reading.button.item;
  return std::any_of(b.begin(), b.end(), [](double signal) { return signal != 0; });
}

std::vector<store::bpm_remark> bpms_not_fitted(const session_state& s) {
  return remarks_of(s, false);
}

std::vector<store::bpm_remark> all_not_fitted(const session_state& s) {
  return remarks_of(s, true);
}

std::vector<std::string> summary_lines(const session_state& s,
                                       const std::vector<store::bpm_remark>& not_fitted) {
  std::vector<std::string> lines{line_of_fitted(s.results)};
  if (no_turn_was_asked_for(s)) {
    lines[0] += fmt::format(
        ": no turn was read with N = {} at \"Compute positions (x,y) using nonlin BPM for N "
        "orbits\"; type a number above the turns of the run, such as 100000",
        s.max_nonlin_positions);
    // Nothing else: every BPM would follow as left out, for this one reason.
    return lines;
  }
  // A series is as long as its last file, whatever the files before it hold.
  if (s.norbits_save.get() == 0) {
    lines[0] += s.fitted.empty() ? ": nothing was read"
                                 : ": the last file has no orbit, and its number holds for all";
  }
  add_lines_to_look_at(s.results, lines);
  add_lines_of_not_fitted(not_fitted, lines);
  if (!s.results.bpm.empty()) lines.push_back(line_of_files(s.results));
  return lines;
}

void tell_lines(const std::vector<std::string>& lines) {
  // Both streams may go to one terminal, where what was printed first must stand first.
  std::fflush(stdout);
  const bool colour = in_colour();
  for (const std::string& line : lines) {
    if (!colour) {
      util::tell_line(line);
      continue;
    }
    // Not tell_line, which would show the colours as escapes.
    const std::string text = util::shown(line);  // names and reasons come from files
    std::fputs(fmt::format("butngain: {}{}\033[0m\n", colour_of(line), text).c_str(), stderr);
  }
}

void tell_summary(const session_state& s) { tell_lines(summary_lines(s, bpms_not_fitted(s))); }

std::string data_title(const session_state& s) {
  std::vector<std::string> sets{s.data_sets};
  // The files of a series are its BPMs, a hundred names; the first and last say as much.
  const bool synthetic = s.type == "fake";
  const int last = s.bpm_count.get();
  if (synthetic && last >= 1) {
    sets = {fmt::format("{} to {}", fit::bpm_names(1).trimmed(), fit::bpm_names(last).trimmed())};
  }
  const std::size_t more = sets.size() > most_named ? sets.size() - most_named : 0;
  sets.resize(sets.size() - more);
  std::string title = fmt::format("{}", fmt::join(sets, ", "));
  if (more > 0) title += fmt::format(" and {} more", more);
  return title + fmt::format(", {} orbits", s.norbits_save.get());
}

std::string plot_title(const session_state& s) {
  return fmt::format("Button gains, {}, {}", data_title(s), s.directory.trimmed());
}

}  // namespace driver
