#include "column_fit.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <optional>
#include <utility>

#include "bpm_result.hpp"
#include "bpm_verdict.hpp"
#include "interrupt.hpp"
#include "jobs.hpp"
#include "left_out.hpp"
#include "list_io.hpp"
#include "one_fit.hpp"
#include "progress.hpp"
#include "result_rows.hpp"

namespace driver {
namespace {

// The name as an index; nothing where it is none. "007" is a name: as a number it would be BPM 7's.
std::optional<int> index_named(const std::string& name) {
  const auto number = util::scan_integer(name);
  if (!number || *number < 0 || *number > store::max_bpm) return std::nullopt;
  if (std::to_string(*number) != name) return std::nullopt;
  return *number;
}

// By their numbers only when all have one: else some BPM's place would be another one's number.
void give_indices(std::vector<column_readings>& bpms) {
  const bool numbered = std::all_of(bpms.begin(), bpms.end(), [](const column_readings& bpm) {
    return index_named(bpm.name).has_value();
  });
  int place = 0;
  for (column_readings& bpm : bpms) bpm.bpm = numbered ? *index_named(bpm.name) : ++place;
  std::sort(bpms.begin(), bpms.end(),
            [](const column_readings& a, const column_readings& b) { return a.bpm < b.bpm; });
}

void take_rows(const input::column_bpm& from, column_readings& to) {
  const auto before = static_cast<int>(to.orbits.size());
  for (const std::array<double, 4>& signals : from.signals) {
    // Exactly 0: what a BPM gives that is switched off, or that this passage did not trigger.
    if (signals == std::array<double, 4>{}) {
      ++to.silent;
      continue;
    }
    store::bpm_struct reading;
    reading.button.item = signals;
    to.orbits.push_back(reading);
  }
  // A file without an orbit of the BPM is no data set of it.
  if (std::cmp_greater(to.orbits.size(), before)) to.set_start.push_back(before);
  to.left_out += from.left_out;
}

// Places by difference over sum, with the scale that is right on the axis of this chamber: what any
// electronics would show before there are gains.
void give_positions(const calibration::central_slopes& slope, column_readings& bpm) {
  for (store::bpm_struct& reading : bpm.orbits) {
    const auto& [b1, b2, b3, b4] = reading.button.item;
    const double sum = b1 + b2 + b3 + b4;
    reading.x = (b2 + b4 - b1 - b3) / sum / slope.x;
    reading.y = (b3 + b4 - b1 - b2) / sum / slope.y;
  }
}

// These electronics tell nothing of coefficients: 1 stands for them, the same in all files.
const bpm_coefficients no_coefficients{
    .value = report::unknown_four, .divided = false, .agree = true};

report::bpm_row row_without_fit(const column_readings& bpm, const std::string& reason) {
  return row_of_left_out({.bpm = bpm.bpm, .name = bpm.name, .reason = reason},
                         static_cast<int>(bpm.orbits.size()), no_coefficients);
}

std::string why_nothing(const column_readings& bpm) {
  return fmt::format("no signal in any of {} rows, of which {} lack a signal",
                     bpm.silent + bpm.left_out, bpm.left_out);
}

void fit_one(column_readings& bpm, const column_setting& setting, report::bpm_row& row,
             std::string& line) {
  if (bpm.orbits.empty()) {
    row = row_without_fit(bpm, why_nothing(bpm));
    return;
  }
  give_positions(calibration::slopes_of(setting.table->table), bpm);
  const gain_fit_mod::bpm_data data{.bpm = bpm.bpm, .name = bpm.name, .orbits = bpm.orbits};
  gain_fit_mod::bpm_result result = gain_fit_mod::result_of(data);
  const bpm_verdict verdict =
      verdict_of(result, {.table = {&setting.table->table, setting.table->given},
                          .set_start = bpm.set_start,
                          .sigma_p = setting.sigma_p});
  result.quality.reason = verdict.line;
  row = row_of_fitted(result, verdict, no_coefficients);
  line = verdict.line;
}

}  // namespace

util::outcome<std::vector<column_readings>> join_columns(
    std::vector<std::vector<input::column_bpm>> files) {
  std::vector<column_readings> bpms;
  std::map<std::string, std::size_t> place;
  for (auto& file : files) {
    for (input::column_bpm& from : file) {
      const std::string name = from.name.empty() ? "1" : from.name;
      const auto [found, is_new] = place.try_emplace(name, bpms.size());
      if (is_new) bpms.emplace_back().name = name;
      take_rows(from, bpms[found->second]);
      // Both forms of all readings would be twice the memory of a large file.
      from = {};
    }
  }
  if (bpms.size() > static_cast<std::size_t>(store::max_bpm)) {
    return util::fault{fmt::format("found {} BPMs", bpms.size()), "the column of BPMs",
                       fmt::format("{} at most", store::max_bpm)};
  }
  give_indices(bpms);
  return bpms;
}

column_results fit_columns(std::vector<column_readings>& readings, const column_setting& setting) {
  column_results made;
  made.rows.resize(readings.size());
  made.verdict.resize(readings.size());
  for (std::size_t i = 0; i < readings.size(); ++i) {
    made.rows[i] = row_without_fit(readings[i], "the run was interrupted before it");
  }
  util::watch_interrupts();
  util::progress line("fitting BPMs", static_cast<long long>(readings.size()),
                      util::output_during::silence);
  const auto make = [&](std::size_t i) {
    fit_one(readings[i], setting, made.rows[i], made.verdict[i]);
    return std::size_t{0};  // rows are kept whether they have been counted or not
  };
  const auto take = [&](std::size_t i) { line.at(static_cast<long long>(i) + 1); };
  util::make_in_order(
      {.count = readings.size(), .make = make, .take = take, .stop = util::interrupted},
      util::jobs);
  made.interrupted = util::interrupted();
  util::restore_interrupts();
  return made;
}

}  // namespace driver
