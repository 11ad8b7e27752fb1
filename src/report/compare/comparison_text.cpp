#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <map>
#include <utility>

#include "compare_runs.hpp"
#include "csv_text.hpp"
#include "gains_csv.hpp"
#include "symbols.hpp"
#include "text.hpp"

namespace report {
namespace {

// "12 (12W)", as everywhere on standard error.
std::string bpm_in_words(const compared_bpm& b) {
  return b.name.empty() ? std::to_string(b.bpm)
                        : fmt::format("{} ({})", b.bpm, util::shown(b.name));
}

// The clearest change, not the widest: a wide one may be of gains that are hardly known.
const gain_change& largest(const compared_bpm& b) {
  return *std::max_element(b.disagree.begin(), b.disagree.end(),
                           [](const gain_change& p, const gain_change& q) {
                             return p.change / p.error < q.change / q.error;
                           });
}

// "None of 100 changed" must not count those that were in one run only.
std::size_t count_compared(const comparison& c) {
  return static_cast<std::size_t>(std::count_if(
      c.bpm.begin(), c.bpm.end(), [](const compared_bpm& b) { return !b.since.empty(); }));
}

std::string headline(const comparison& c) {
  std::vector<std::string> names;
  for (const compared_bpm& b : c.bpm) {
    if (!b.disagree.empty()) names.push_back(bpm_in_words(b));
  }
  const std::size_t compared = count_compared(c);
  // Without this the line would say that nothing changed, when nothing was looked at.
  if (compared == 0) return "no BPM has gains in two of the runs: nothing to compare\n";
  return fmt::format("{} of {} BPM{} changed{}{}\n",
                     names.empty() ? "none" : std::to_string(names.size()), compared,
                     compared == 1 ? "" : "s", names.empty() ? "" : ": ", fmt::join(names, ", "));
}

void tell_runs(const comparison& c, std::string& out) {
  out += "\nruns\n";
  for (std::size_t i = 0; i < c.run.size(); ++i) {
    const read_run& run = c.run[i];
    const auto usable = std::count_if(run.bpm.begin(), run.bpm.end(),
                                      [](const bpm_row& row) { return takes_part(&row); });
    fmt::format_to(std::back_inserter(out), "{:5}  {}{}{}: {} BPM{}, {} with gains to compare\n",
                   i + 1, util::shown(run.directory), run.started.empty() ? "" : ", ",
                   util::shown(run.started), run.bpm.size(), run.bpm.size() == 1 ? "" : "s",
                   usable);
  }
}

// In which run a change shows first, where the runs are more than two.
std::string first_seen(const comparison& c, const compared_bpm& b) {
  if (c.run.size() < 3) return {};
  // The later run is the outer loop where these were found: the front one is the earliest.
  return fmt::format("; first seen in run {}", b.disagree.front().to + 1);
}

// The limits stand above what they decided: who reads a saved text knows no options.
void tell_changes(const comparison& c, std::string& out) {
  fmt::format_to(
      std::back_inserter(out),
      "\nchanged: a ratio of two buttons by more than {:g} times its error and more than "
      "{:g}\n",
      c.limits.errors, c.limits.floor);
  bool any = false;
  for (const compared_bpm& b : c.bpm) {
    if (b.disagree.empty()) continue;
    any = true;
    const gain_change& most = largest(b);
    fmt::format_to(std::back_inserter(out),
                   "  BPM {}: {:.4f} from run {} to run {}, {:.1f} times its error; most of it {} "
                   "{:+.4f}{}\n",
                   bpm_in_words(b), most.change, most.from + 1, most.to + 1,
                   most.change / most.error, chart::button_names[most.button], most.of_button,
                   first_seen(c, b));
  }
  if (!any) out += "  none\n";
}

// For every two runs: in how many BPMs they differ. The run that stands in most of the lines is the
// odd one.
void tell_disagreeing_runs(const comparison& c, std::string& out) {
  std::map<std::pair<std::size_t, std::size_t>, std::vector<std::string>> pairs;
  for (const compared_bpm& b : c.bpm) {
    for (const gain_change& d : b.disagree) pairs[{d.from, d.to}].push_back(bpm_in_words(b));
  }
  // Two runs disagree where they changed, and that was said above.
  if (pairs.empty() || c.run.size() < 3) return;
  out += "\nruns that disagree\n";
  // A screen: pairs grow with the square of the runs.
  constexpr std::size_t most_lines = 40;
  std::size_t lines = 0;
  for (const auto& [runs, names] : pairs) {
    if (++lines > most_lines) {
      out += fmt::format("  and {} more pairs of runs\n", pairs.size() - most_lines);
      return;
    }
    fmt::format_to(std::back_inserter(out), "  {} and {}: {} BPM{}: {}\n", runs.first + 1,
                   runs.second + 1, names.size(), names.size() == 1 ? "" : "s",
                   fmt::join(names, ", "));
  }
}

// Why a BPM takes no part in a run; nothing when it does.
std::string why_not(const bpm_row* row) {
  if (takes_part(row)) return {};
  if (row == nullptr) return "not there";
  const bool good = row->verdict == verdict::determined || row->verdict == verdict::weak;
  // A good verdict with a number that is missing or 0: the file does not say why.
  return good ? "without calibrated gains" : std::string{text_of(row->verdict)};
}

void tell_left_out(const comparison& c, std::string& out) {
  // Told for each run: silence about a BPM would be read as "did not change".
  std::string lines;
  for (const compared_bpm& b : c.bpm) {
    std::string reasons;
    for (std::size_t i = 0; i < b.row.size(); ++i) {
      const std::string why = why_not(b.row[i]);
      if (why.empty()) continue;
      reasons += fmt::format("{}{} in run {}", reasons.empty() ? "" : ", ", why, i + 1);
    }
    if (reasons.empty()) continue;
    lines += fmt::format("  BPM {}: {}\n", bpm_in_words(b), reasons);
  }
  if (!lines.empty()) out += "\nnot compared there\n" + lines;
}

// Null for the BPM's first usable run, which the others are compared with.
const gain_change* change_of(const compared_bpm& b, std::size_t run) {
  const auto found = std::find_if(b.since.begin(), b.since.end(),
                                  [run](const gain_change& c) { return c.to == run; });
  return found == b.since.end() ? nullptr : &*found;
}

std::string gains_line(const compared_bpm& b, std::size_t run, int width) {
  const bpm_row* row = b.row[run];
  std::string line = fmt::format("{:5} {:<{}} {:4}  ", b.bpm, util::shown(b.name), width, run + 1);
  if (row == nullptr) return line + "not there\n";
  line += fmt::format("{:<14}", text_of(row->verdict));
  if (!takes_part(row)) return fmt::format("{}\n", util::trim_right(line));
  for (const double t : row->gain) line += fmt::format(" {:8.5f}", t);
  line += fmt::format(" {:8.1e}", row->error);
  if (const gain_change* since = change_of(b, run)) {
    line += fmt::format(" {:8.5f} {:6.1f}{}", since->change, since->change / since->error,
                        since->beyond ? "  changed" : "");
  }
  return line + '\n';
}

void tell_gains(const comparison& c, std::string& out) {
  // At least the word above the column. In bytes: a name beyond ASCII makes the column wider than
  // it need be, never too narrow.
  std::size_t width = 4;
  for (const compared_bpm& b : c.bpm) width = std::max(width, util::shown(b.name).size());
  out +=
      "\nbutton gains t, product 1; change since the BPM's first run, and in units of its error\n";
  out +=
      fmt::format("{:>5} {:<{}} {:>4}  {:<14} {:>8} {:>8} {:>8} {:>8} {:>8} {:>8} {:>6}\n", "BPM",
                  "name", width, "run", "verdict", "BI", "BO", "TI", "TO", "E", "change", "/error");
  for (const compared_bpm& b : c.bpm) {
    for (std::size_t run = 0; run < b.row.size(); ++run) {
      out += gains_line(b, run, static_cast<int>(width));
    }
  }
}

void put_csv_line(const comparison& c, const compared_bpm& b, std::size_t run, std::string& out) {
  const bpm_row& row = *b.row[run];
  out += fmt::format("{},{},{},{},{},{}", b.bpm, field_text(b.name), run + 1,
                     field_text(c.run[run].directory), field_text(c.run[run].started),
                     text_of(row.verdict));
  for (const double t : row.gain) put_real(out += ',', t);
  put_real(out += ',', row.error);
  const gain_change* since = change_of(b, run);
  // since_run to button stay empty then, all five: columns must not move.
  if (since == nullptr) {
    out += ",,,,,";
  } else {
    out += fmt::format(",{}", since->from + 1);
    for (const double value : {since->change, since->error, since->change / since->error}) {
      put_real(out += ',', value);
    }
    out += fmt::format(",{}", chart::button_names[since->button]);
  }
  // Of a BPM that was in no two runs nobody knows whether it changed.
  out += b.since.empty() ? ",\n" : fmt::format(",{}\n", b.disagree.empty() ? 0 : 1);
}

}  // namespace

std::string comparison_text(const comparison& c) {
  std::string out = headline(c);
  tell_runs(c, out);
  tell_changes(c, out);
  tell_disagreeing_runs(c, out);
  tell_left_out(c, out);
  tell_gains(c, out);
  return out;
}

std::string comparison_csv(const comparison& c) {
  std::string out =
      "bpm,name,run,directory,started,verdict,gain_1,gain_2,gain_3,gain_4,error,since_run,change,"
      "change_error,change_in_errors,button,bpm_changed\n";
  for (const compared_bpm& b : c.bpm) {
    for (std::size_t run = 0; run < b.row.size(); ++run) {
      // Rows that do not take part stand there too, with their verdict: programs choose for
      // themselves.
      if (b.row[run] != nullptr) put_csv_line(c, b, run, out);
    }
  }
  return out;
}

}  // namespace report
