#include "compare.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <limits>
#include <string_view>

#include "file_units.hpp"
#include "list_io.hpp"
#include "run_time.hpp"
#include "standard_output.hpp"
#include "text.hpp"

namespace sim {
namespace {

namespace fs = std::filesystem;

// By column and not by words: a field that overflows is asterisks that touch their neighbour.
// Columns of the table, from 0: BPM number, four fits of five numbers, average, rms, name, truth.
constexpr std::size_t number_width = 7;
constexpr std::size_t field_width = 12;
constexpr std::size_t average_column = number_width + (4 * (3 + (5 * field_width))) + 4;
constexpr std::size_t name_column = average_column + (8 * field_width) + 4;
constexpr std::size_t line_width = name_column + (5 * field_width);

double field_value(std::string_view field) {
  // A field of stars or NaN is a fit that failed: the comparison goes on and shows it.
  return util::scan_real(util::trim(field)).value_or(std::numeric_limits<double>::quiet_NaN());
}

// The number and the length are what tells a line of the table from anything else.
fitted_bpm read_err_line(const std::string& path, int line, std::string_view text) {
  const auto bpm = util::scan_integer(util::trim(text.substr(0, number_width)));
  // A cut file ends in a short line; taken as it is, its missing fields would pass for failed fits.
  if (!bpm || text.size() < line_width) {
    util::run_time_error(fmt::format("{}:{}: expected a BPM number and its four fits, found \"{}\"",
                                     path, line, util::trim(text.substr(0, 60))));
  }
  fitted_bpm read{*bpm, std::string{util::trim(text.substr(name_column, field_width))}, {}};
  for (int k = 1; k <= 4; ++k) {
    const std::size_t column = average_column + (static_cast<std::size_t>(k - 1) * field_width);
    read.ratio(k) = field_value(text.substr(column, field_width));
  }
  return read;
}

bool ends_with(std::string_view text, std::string_view end) {
  return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

std::string three(const buttons& values, const char* form) {
  std::string text;
  for (int k = 2; k <= 4; ++k) text += fmt::format(fmt::runtime(form), values(k));
  return text;
}

}  // namespace

std::string find_err_table(const std::string& result) {
  if (!fs::is_directory(result)) return result;
  std::vector<std::string> found;
  // Without an error code a directory that cannot be read would end in an exception; like this it
  // holds no table, and the line below says so.
  std::error_code fault;
  for (const auto& entry : fs::directory_iterator(result, fault)) {
    if (ends_with(entry.path().filename().string(), "_err")) found.push_back(entry.path().string());
  }
  if (found.empty()) util::run_time_error(fmt::format("{} holds no table *_err", result));
  // No guess at the newest: comparing the wrong run looks just like a bad fit.
  if (found.size() > 1) {
    util::run_time_error(
        fmt::format("{} holds {} tables *_err: name the one to compare", result, found.size()));
  }
  return found.front();
}

std::vector<fitted_bpm> read_err_table(const std::string& path) {
  const util::unit_handle file{util::lunget()};
  if (const int fault = util::open_old(file.number(), path); fault != 0) {
    util::run_time_error(fmt::format("cannot open {}: {}", path, util::system_text(fault)));
  }
  std::vector<fitted_bpm> all;
  bool in_table = false;
  std::string text;
  for (int line = 1; util::read_line(file.number(), text); ++line) {
    if (in_table) {
      all.push_back(read_err_line(path, line, text));
    } else {
      // The list of data files comes first; the caption line ends it.
      in_table = util::trim(text.substr(0, std::min<std::size_t>(text.size(), 6))) == "bpm";
    }
  }
  // An empty comparison would report no differences: the best result of all.
  if (all.empty()) util::run_time_error(fmt::format("{} holds no BPM", path));
  return all;
}

std::vector<bpm_comparison> compare(const std::vector<bpm_truth>& truth,
                                    const std::vector<fitted_bpm>& fitted) {
  std::vector<bpm_comparison> all;
  for (const fitted_bpm& f : fitted) {
    const auto known = std::find_if(truth.begin(), truth.end(), [&](const bpm_truth& t) {
      // The table cuts names to its field, so the truth's are cut alike.
      return t.name.substr(0, field_width) == f.name;
    });
    // The wrong truth file, most likely: leaving the BPM out would compare what is left and look
    // well.
    if (known == truth.end()) {
      util::run_time_error(fmt::format("the truth knows no BPM named {}", f.name));
    }
    bpm_comparison c{f, {}, {}, 0};
    for (int k = 1; k <= 4; ++k) {
      // Ratios on both sides: the common factor of four gains is nobody's to know.
      c.true_ratio(k) = known->true_gain(k) / known->true_gain(1);
      c.difference(k) = f.ratio(k) - c.true_ratio(k);
      const double size = std::abs(c.difference(k));
      c.worst =
          std::isfinite(size) ? std::max(c.worst, size) : std::numeric_limits<double>::infinity();
    }
    all.push_back(c);
  }
  return all;
}

spread_of_differences summarise(const std::vector<bpm_comparison>& all) {
  spread_of_differences s;
  double squares = 0;
  for (const bpm_comparison& c : all) {
    s.worst = std::max(s.worst, c.worst);
    // Button 1 over itself is 1 on both sides and would only dilute the mean.
    for (int k = 2; k <= 4; ++k) squares += c.difference(k) * c.difference(k);
  }
  // One ratio without a number makes the rms infinite, not nan: it must compare as the worst.
  s.rms = std::isfinite(s.worst) ? std::sqrt(squares / (3 * static_cast<double>(all.size())))
                                 : std::numeric_limits<double>::infinity();
  return s;
}

void print_comparison(const std::vector<bpm_comparison>& all) {
  // Truth with one digit more than the fitted value, which the table prints to four.
  util::print_line(fmt::format("{:>4} {:<12} {:>27} {:>28} {:>31}", "", "",
                               "true gain of 2, 3, 4 over 1", "fitted", "difference"));
  for (const bpm_comparison& c : all) {
    util::print_line(fmt::format("{:4} {:<12} {} {} {}", c.fitted.bpm, c.fitted.name,
                                 three(c.true_ratio, " {:8.5f}"), three(c.fitted.ratio, " {:8.4f}"),
                                 three(c.difference, " {:+9.5f}")));
  }
}

}  // namespace sim
