#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <numeric>
#include <set>
#include <system_error>
#include <utility>

#include "calendar.hpp"
#include "gains_csv.hpp"
#include "long_step.hpp"
#include "run_json.hpp"
#include "text_file.hpp"
#include "trend_data.hpp"

namespace report {
namespace {

namespace fs = std::filesystem;

// A run whose record could be read, before its gains are.
struct found_run {
  trend_run run;
  std::string same_as;  // data and answers in one string: equal for a run that was made again
  double made = 0;      // when the program ran [days]
};

using times_of_runs = std::map<std::string, double>;

// --- when data were taken -----------------------------------------------------------------------

bool all_digits(std::string_view text) {
  return !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
}

// "0004567" and "4567" are one run.
std::string without_zeros(std::string_view number) {
  const auto first = number.find_first_not_of('0');
  return std::string{first == std::string_view::npos ? "0" : number.substr(first)};
}

// "KEY TIME" or "KEY,TIME": the facility's run index is such a file as it stands.
util::outcome<times_of_runs> read_times(const std::string& path) {
  auto file = util::open_text_file(path);
  if (!file) return file.why;
  times_of_runs times;
  bool header_may_come = true;
  while (util::next_line(*file)) {
    std::string_view line = file->line;
    line = line.substr(0, line.find('#'));
    const auto begin = line.find_first_not_of(" \t");
    if (begin == std::string_view::npos) continue;
    line = line.substr(begin, line.find_last_not_of(" \t") - begin + 1);
    const auto end = std::min(line.find_first_of(", \t"), line.size());
    const std::string_view key = line.substr(0, end);
    const auto rest = std::min(line.find_first_not_of(", \t", end), line.size());
    const auto day = day_of(line.substr(rest));
    const bool header = header_may_come && key == "run";
    header_may_come = false;
    if (header) continue;
    if (!day) return util::line_fault(*file, "a run and its time, such as 4567 2026-03-04 12:30");
    times[all_digits(key) ? without_zeros(key) : std::string{key}] = *day;
  }
  if (file->trouble) return *file->trouble;
  return times;
}

// Numbers of runs in the names of files: RD-004567.dat. The last one read counts, as it does in a
// session that lays one run over another.
std::string run_number(const run_info& info) {
  std::string number;
  for (const input_file& input : info.inputs) {
    const std::string name = fs::path(input.path).filename().string();
    const auto first = name.find_first_of("0123456789");
    if (!name.starts_with("RD") || first == std::string::npos) continue;
    const auto last = std::min(name.find_first_not_of("0123456789", first), name.size());
    number = without_zeros(std::string_view{name}.substr(first, last - first));
  }
  return number;
}

// By the folder's path, by any folder of it, or by the number of the run that was read.
std::optional<double> time_of(const times_of_runs& times, const std::string& directory,
                              const run_info& info) {
  const auto whole = times.find(directory);
  if (whole != times.end()) return whole->second;
  for (const fs::path& part : fs::path(directory)) {
    const std::string name = part.string();
    const auto named = times.find(all_digits(name) ? without_zeros(name) : name);
    if (named != times.end()) return named->second;
  }
  const auto numbered = times.find(run_number(info));
  if (numbered != times.end()) return numbered->second;
  return {};
}

// --- which runs there are -----------------------------------------------------------------------

// Folders that hold a run.json or a gains.csv, in order of their names. Those that begin with a
// point are somebody's scratch.
util::outcome<std::vector<fs::path>> folders_of_runs(const std::string& top) {
  std::set<fs::path> found;
  std::error_code error;
  fs::recursive_directory_iterator walk(top, fs::directory_options::skip_permission_denied, error);
  if (error) return util::fault{error.message(), top, "a folder of runs"};
  for (; walk != fs::recursive_directory_iterator{}; walk.increment(error)) {
    const std::string name = walk->path().filename().string();
    if (name.starts_with('.')) {
      walk.disable_recursion_pending();
      continue;
    }
    if (name == "run.json" || name == "gains.csv") found.insert(walk->path().parent_path());
  }
  if (error) return util::fault{error.message(), top, {}};
  return std::vector<fs::path>(found.begin(), found.end());
}

// Digests, not paths: a file that was moved is the same one.
std::string digests_of(const std::vector<input_file>& files) {
  std::string all;
  for (const input_file& file : files) all += file.sha256 + '\n';
  return all;
}

std::string data_and_answers(const run_info& info) {
  // Without digests nothing says that two runs had the same data.
  for (const input_file& file : info.inputs) {
    if (file.sha256.empty()) return {};
  }
  if (info.inputs.empty()) return {};
  std::string all = digests_of(info.inputs);
  for (const answered& a : info.dialog) all += a.question + '\n' + a.answer + '\n';
  if (!info.dialog.empty()) return all;
  // A run that asked nothing: its options are its answers. Where it went does not matter.
  bool is_place = false;
  for (const std::string& argument : info.arguments) {
    if (!std::exchange(is_place, argument == "--output") && !argument.starts_with("--output")) {
      all += argument + '\n';
    }
  }
  return all;
}

struct search {
  std::vector<found_run> found;
  std::vector<left_out_run> left_out;
};

void look_at(const fs::path& folder, const times_of_runs& times, search& into) {
  const std::string directory = folder.lexically_normal().string();
  std::error_code error;
  const auto leave_out = [&](std::string why) {
    into.left_out.push_back({directory, std::move(why)});
  };
  if (!fs::exists(folder / "run.json", error)) {
    leave_out("no run.json beside its gains.csv: nothing says when it was made");
    return;
  }
  const auto record = read_run_json((folder / "run.json").string());
  if (!record) {
    leave_out(record.why.what +
              (record.why.expected.empty() ? "" : ", expected " + record.why.expected) +
              ": run.json");
    return;
  }
  const run_info& info = record->info;
  if (info.ended != "whole") {
    leave_out(info.ended == "running" ? "it did not end: killed, or still running"
                                      : "it ended before its end: " + info.ended);
    return;
  }
  if (!fs::exists(folder / "gains.csv", error)) return leave_out("no gains.csv");
  const auto made = day_of(info.started);
  const auto taken = time_of(times, directory, info);
  if (!made && !taken) return leave_out("no time: started is \"" + info.started + "\"");
  into.found.push_back(
      {{directory, taken.value_or(made.value_or(0)), info.version, digests_of(info.tables)},
       data_and_answers(info),
       made.value_or(0)});
}

// Of runs with the same data and answers the one that was made last stays: the same readings twice
// are no two measurements.
void leave_out_repeated(search& all) {
  std::map<std::string, std::size_t> last;
  for (std::size_t i = 0; i < all.found.size(); ++i) {
    const found_run& run = all.found[i];
    if (run.same_as.empty()) continue;
    const auto [at, first] = last.emplace(run.same_as, i);
    if (!first && run.made >= all.found[at->second].made) at->second = i;
  }
  std::vector<found_run> kept;
  for (std::size_t i = 0; i < all.found.size(); ++i) {
    const auto at = last.find(all.found[i].same_as);
    if (at == last.end() || at->second == i) {
      kept.push_back(all.found[i]);
    } else {
      all.left_out.push_back({all.found[i].run.directory,
                              "made again from the same data with the same answers, later: " +
                                  all.found[at->second].run.directory});
    }
  }
  all.found = std::move(kept);
}

// --- their gains --------------------------------------------------------------------------------

trend_point point_of(const bpm_row& row, std::size_t run) {
  trend_point point;
  point.run = static_cast<std::uint32_t>(run);
  point.verdict = row.verdict;
  point.error = row.error;
  const bool good = row.verdict == verdict::determined || row.verdict == verdict::weak;
  point.usable = good && row.error > 0 && std::isfinite(row.error) &&
                 std::all_of(row.gain.begin(), row.gain.end(),
                             [](double t) { return t > 0 && std::isfinite(t); });
  if (!point.usable) return point;
  double mean = 0, noise = 0;
  for (const double t : row.gain) mean += std::log(t) / 4;
  for (std::size_t k = 0; k < 4; ++k) {
    point.gain[k] = std::log(row.gain[k]) - mean;
    noise += row.sigma[k] * row.sigma[k] / 4;
  }
  // sigma is that of gains whose product is 1; four buttons for themselves have 4/3 of its square.
  point.noise = std::isfinite(noise) ? std::sqrt(noise * 4 / 3) : 0;
  return point;
}

using series_by_bpm = std::map<std::pair<int, std::string>, bpm_series>;

void take_rows(const std::vector<bpm_row>& rows, const std::set<std::string>& wanted,
               std::size_t run, series_by_bpm& all) {
  for (const bpm_row& row : rows) {
    if (!wanted.empty() && !wanted.contains(row.name) &&
        !wanted.contains(std::to_string(row.bpm))) {
      continue;
    }
    bpm_series& series = all[{row.bpm, row.name}];
    series.bpm = row.bpm;
    series.name = row.name;
    series.point.push_back(point_of(row, run));
    if (series.point.back().usable) continue;
    const bool good = row.verdict == verdict::determined || row.verdict == verdict::weak;
    std::string why = good ? "without calibrated gains" : std::string{text_of(row.verdict)};
    if (!row.reason.empty()) why += ": " + row.reason;
    ++series.why_not[why];
  }
}

bool has_twice(const std::vector<bpm_row>& rows) {
  std::set<std::pair<int, std::string>> seen;
  return !std::all_of(rows.begin(), rows.end(), [&seen](const bpm_row& row) {
    return seen.emplace(row.bpm, row.name).second;
  });
}

trend_data with_gains(search all, const trend_choice& choice) {
  std::sort(all.found.begin(), all.found.end(), [](const found_run& p, const found_run& q) {
    return std::pair{p.run.day, p.run.directory} < std::pair{q.run.day, q.run.directory};
  });
  const std::set<std::string> wanted(choice.bpms.begin(), choice.bpms.end());
  trend_data data;
  series_by_bpm series;
  util::long_step step("gains of the runs", static_cast<long long>(all.found.size()));
  for (found_run& found : all.found) {
    step.at(static_cast<long long>(data.run.size()));
    const auto rows = read_gains_csv((fs::path(found.run.directory) / "gains.csv").string());
    if (!rows || has_twice(*rows)) {
      all.left_out.push_back(
          {found.run.directory, rows ? "gains.csv holds a BPM twice" : util::line_of(rows.why)});
      continue;
    }
    take_rows(*rows, wanted, data.run.size(), series);
    data.run.push_back(std::move(found.run));
  }
  for (auto& [key, one] : series) data.bpm.push_back(std::move(one));
  std::sort(all.left_out.begin(), all.left_out.end(),
            [](const left_out_run& p, const left_out_run& q) { return p.directory < q.directory; });
  data.left_out = std::move(all.left_out);
  return data;
}

}  // namespace

util::outcome<trend_data> read_trend_data(const trend_choice& choice) {
  times_of_runs times;
  if (!choice.times.empty()) {
    auto read = read_times(choice.times);
    if (!read) return read.why;
    times = std::move(*read);
  }
  search all;
  std::set<fs::path> folders;  // one folder inside another one that was given: its runs count once
  for (const std::string& top : choice.folders) {
    auto found = folders_of_runs(top);
    if (!found) return found.why;
    for (const fs::path& folder : *found) folders.insert(folder.lexically_normal());
  }
  {
    util::long_step step("records of the runs", static_cast<long long>(folders.size()));
    long long done = 0;
    for (const fs::path& folder : folders) {
      step.at(done++);
      look_at(folder, times, all);
    }
  }
  leave_out_repeated(all);
  std::erase_if(all.found, [&choice](const found_run& found) {
    return (choice.since && found.run.day < *choice.since) ||
           (choice.until && found.run.day > *choice.until);
  });
  return with_gains(std::move(all), choice);
}

}  // namespace report
