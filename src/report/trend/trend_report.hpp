// trend_report: what is shown of trends: text, tables, pictures, page.
#pragma once
#include <cstddef>
#include <string>
#include <vector>

#include "bpm_trend.hpp"

namespace report {

/// All there is to show. Trends point into the data, which must stay where they are.
struct trend_result {
  trend_data data;
  std::vector<bpm_trend> bpm;
  trend_limits limits;
  bool times_given = false;  ///< a file says when data were taken
};

/// BPMs as people should look at them: largest change first, then those that are never determined or
/// too seldom, those with wild runs, and all others by index.
std::vector<std::size_t> worst_first(const trend_result& r);

/// For a screen.
std::string trend_text(const trend_result& r);

/// Every point, for programs: trend.csv.
/// errors   a file that cannot be written: the fault, and no file
util::status write_trend_csv(const std::string& path, const trend_result& r);

/// Steps, drifts, wild runs, and BPMs about which nothing is known, for programs: changes.csv.
std::string changes_csv(const trend_result& r);

/// All BPMs, small, worst first; bytes of a PNG file, empty when memory failed.
std::string trend_png(const trend_result& r);
/// The BPMs that changed, large, at most a dozen; without a change a sheet that says so.
std::string changes_png(const trend_result& r);

/// The page: trend.html.
std::string trend_html(const trend_result& r);

}  // namespace report
