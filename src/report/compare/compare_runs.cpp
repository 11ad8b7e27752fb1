#include "compare_runs.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <map>
#include <set>
#include <utility>

#include "gains_csv.hpp"
#include "run_json.hpp"

namespace report {
namespace {

namespace fs = std::filesystem;

gain_change change_between(const compared_bpm& at, std::size_t from, std::size_t to,
                           const change_limits& limits) {
  gain_change c;
  c.from = from;
  c.to = to;
  const bpm_row &before = *at.row[from], &after = *at.row[to];
  four d{};
  // Logarithms: forth and back are then the same size, and a factor common to all four drops out of
  // every difference.
  for (std::size_t k = 0; k < 4; ++k) d[k] = std::log(after.gain[k] / before.gain[k]);
  four sorted = d;
  std::sort(sorted.begin(), sorted.end());
  c.change = sorted[3] - sorted[0];
  // As if the two errors knew nothing of each other. What they share, the table of the chamber,
  // makes this too large: a change is rather missed than made up.
  c.error = std::hypot(before.error, after.error);
  // Against the middle two: when one button changes, the other three stand still.
  const double middle = (sorted[1] + sorted[2]) / 2;
  for (std::size_t k = 0; k < 4; ++k) {
    if (std::abs(d[k] - middle) <= std::abs(c.of_button)) continue;
    c.button = k;
    c.of_button = d[k] - middle;
  }
  c.beyond = c.change > limits.errors * c.error && c.change > limits.floor;
  return c;
}

void compare_bpm(compared_bpm& at, const change_limits& limits) {
  std::vector<std::size_t> usable;
  for (std::size_t run = 0; run < at.row.size(); ++run) {
    if (takes_part(at.row[run])) usable.push_back(run);
  }
  // Every two runs, not neighbours only: a slow drift shows between the ends, and a run that went
  // astray and back against all others. With the later run outside, the front of `disagree` is
  // where a change shows first.
  for (std::size_t j = 1; j < usable.size(); ++j) {
    at.since.push_back(change_between(at, usable[0], usable[j], limits));
    for (std::size_t i = 0; i < j; ++i) {
      const gain_change c = change_between(at, usable[i], usable[j], limits);
      if (c.beyond) at.disagree.push_back(c);
    }
  }
}

}  // namespace

bool takes_part(const bpm_row* row) {
  if (row == nullptr) return false;
  const bool good = row->verdict == verdict::determined || row->verdict == verdict::weak;
  // Changes are told in units of the error and in logarithms: neither may be 0 there.
  return good && row->error > 0 && std::isfinite(row->error) &&
         std::all_of(row->gain.begin(), row->gain.end(),
                     [](double t) { return t > 0 && std::isfinite(t); });
}

util::outcome<read_run> read_run_directory(const std::string& path) {
  std::error_code error;
  const bool directory = fs::is_directory(path, error);
  const std::string file = directory ? (fs::path(path) / "gains.csv").string() : path;
  auto rows = read_gains_csv(file);
  if (!rows) return rows.why;
  // Of two lines of one BPM the later would take the place of the other without a word.
  std::set<std::pair<int, std::string>> seen;
  for (const bpm_row& row : *rows) {
    if (!seen.emplace(row.bpm, row.name).second) {
      return util::fault{fmt::format("BPM {} ({}) stands twice", row.bpm, row.name), file,
                         "one line for each BPM"};
    }
  }
  read_run run;
  run.directory = path;
  run.bpm = std::move(*rows);
  // A gains.csv that somebody copied away has no record and is fine; only the time it began is not
  // known then. A record that is there and cannot be read is a damaged run, and that is told.
  const std::string record = (fs::path(file).parent_path() / "run.json").string();
  if (!fs::exists(record, error)) return run;
  auto made = read_run_json(record);
  if (!made) return made.why;
  run.started = made->info.started;
  return run;
}

comparison compare_runs(std::vector<read_run> runs, const change_limits& limits) {
  comparison c;
  c.run = std::move(runs);
  c.limits = limits;
  std::map<std::pair<int, std::string>, compared_bpm> all;
  for (std::size_t i = 0; i < c.run.size(); ++i) {
    for (const bpm_row& row : c.run[i].bpm) {
      compared_bpm& at = all[{row.bpm, row.name}];
      at.bpm = row.bpm;
      at.name = row.name;
      at.row.resize(c.run.size());
      // Into rows that stay where they are: c.run is complete, and moving c moves no row.
      at.row[i] = &row;
    }
  }
  for (auto& [key, at] : all) {
    compare_bpm(at, limits);
    c.bpm.push_back(std::move(at));
  }
  return c;
}

}  // namespace report
