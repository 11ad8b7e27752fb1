// A run directory that is read back: gains.csv and run.json, each as a file and through a pipe and
// written again; the directory compared with itself, which changed nothing, and as a trend. The input
// is run.json, a line %%, gains.csv, a line %%, and the file of times.
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>

#include "compare_runs.hpp"
#include "gains_csv.hpp"
#include "run_json.hpp"
#include "target.hpp"
#include "trend_data.hpp"

namespace {

using namespace report;

std::array<std::string_view, 3> parts_of(std::string_view text) {
  constexpr std::string_view line = "\n%%\n";
  std::array<std::string_view, 3> parts;
  for (std::string_view& part : parts) {
    const std::size_t end = std::min(text.find(line), text.size());
    // With its line end, without which the last line of a file may be cut short.
    part = text.substr(0, end < text.size() ? end + 1 : end);
    text.remove_prefix(std::min(end + line.size(), text.size()));
  }
  return parts;
}

void check_csv(std::string_view text) {
  const auto [file, pipe] = fuzz::both_ways(text, read_gains_csv);
  fuzz::check(file.value.has_value() == pipe.value.has_value());
  if (!file) return fuzz::check(fuzz::same(file.why, pipe.why));
  // Once written, a text has only characters that stay as they are.
  const std::string once = gains_csv_text(*file);
  fuzz::check(once == gains_csv_text(*pipe));
  const auto again = read_gains_csv(fuzz::held(once, fuzz::way::file));
  fuzz::check(again && gains_csv_text(*again) == once);
}

void check_json(std::string_view text) {
  const auto [file, pipe] = fuzz::both_ways(text, read_run_json);
  fuzz::check(file.value.has_value() == pipe.value.has_value());
  if (!file) return fuzz::check(fuzz::same(file.why, pipe.why));
  const std::string once = run_json_text(*file);
  fuzz::check(once == run_json_text(*pipe));
  const auto again = read_run_json(fuzz::held(once, fuzz::way::file));
  fuzz::check(again && run_json_text(*again) == once);
}

// A folder whose files are the texts held.
const std::string& folder() {
  static const std::string made = [] {
    std::string name = (std::filesystem::temp_directory_path() / "fuzz_results_XXXXXX").string();
    fuzz::check(mkdtemp(name.data()) != nullptr);
    std::filesystem::create_symlink("/proc/self/fd/701", name + "/run.json");
    std::filesystem::create_symlink("/proc/self/fd/702", name + "/gains.csv");
    return name;
  }();
  // The fuzzer ends without a word; two links are left for the next one to remove.
  static const bool left = std::atexit([] { std::filesystem::remove_all(folder()); }) == 0;
  static_cast<void>(left);
  return made;
}

void check_directory(std::string_view times) {
  auto first = read_run_directory(folder());
  auto second = read_run_directory(folder());
  fuzz::check(first.value.has_value() == second.value.has_value());
  if (first) {
    const comparison same_run = compare_runs({std::move(*first), std::move(*second)}, {});
    for (const compared_bpm& bpm : same_run.bpm) fuzz::check(bpm.disagree.empty());
    fuzz::check(!comparison_text(same_run).empty() && !comparison_csv(same_run).empty());
  }
  trend_choice choice{.folders = {folder()}};
  if (!times.empty()) choice.times = fuzz::held(times, fuzz::way::file, 3);
  const auto trend = read_trend_data(choice);
  // A run takes part, or is left out with a reason.
  if (trend) fuzz::check(trend->run.size() + trend->left_out.size() == 1);
}

}  // namespace

void fuzz::read(std::string_view text) {
  const auto [record, gains, times] = parts_of(text);
  check_json(record);
  check_csv(gains);
  held(record, way::file, 1);
  held(gains, way::file, 2);
  check_directory(times);
}
