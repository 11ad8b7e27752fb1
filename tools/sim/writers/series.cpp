#include "series.hpp"

#include <fmt/core.h>

#include <vector>

#include "directories.hpp"
#include "file_units.hpp"
#include "list_io.hpp"
#include "run_time.hpp"
#include "truth.hpp"

namespace sim {
namespace {

constexpr const char* header =
    "#           x [m]            y [m]      b1(BI)      b2(BO)      b3(TI)      b4(TO)"
    "   true gains g1 g2 g3 g4";

std::string data_line(const passage& p, const monitor& at, const std::string& gains) {
  // Whole counts, as an ADC gives them: the noise of rounding is in them, and no other unless asked
  // for.
  const auto count = counts(p, at);
  // Ten digits of the place: its rounding stays below a thousandth of a count in the readings.
  return fmt::format(" {:16.9e} {:16.9e} {:11} {:11} {:11} {:11}{}", p.at.x, p.at.y, count(1),
                     count(2), count(3), count(4), gains);
}

std::string gain_columns(const buttons& gain) {
  std::string text;
  // All digits: compare must find exactly what was simulated.
  for (int k = 1; k <= 4; ++k) text += fmt::format(" {:19}", gain(k));
  return text;
}

bpm_truth write_series_file(const series_setup& s, const machine& m, const std::string& directory,
                            int bpm, const passage_log& log) {
  const int number = s.first + bpm - 1;
  const std::string path = fmt::format("{}/{}", directory, series_file_name(number));
  monitor at = make_monitor(m, {.bpm = bpm, .orbits = s.orbits});
  // Once for all lines: they hold the gains of the first orbit, as the truth file does.
  const std::string gains = gain_columns(at.electronics.true_gain);
  {
    const util::unit_handle file{util::lunget()};
    // Under its name only when complete: a session may be polling for the name.
    util::open_whole_output(file.number(), path);
    util::write_line(file.number(), header);
    for (int orbit = 1; orbit <= s.orbits; ++orbit) {
      const passage p = next_passage(m, at);
      util::write_line(file.number(), data_line(p, at, gains));
      note(log, series_bpm_name(number), 1, orbit, p);
    }
  }
  return truth_of(series_bpm_name(number), at.electronics);
}

}  // namespace

std::string series_directory(const std::string& base) {
  return fmt::format("{}/inputs_1000random_xy_and_timing_offset", base);
}

std::string series_file_name(int number) { return fmt::format("exp_{}.txt", number); }

std::string series_bpm_name(int number) { return fmt::format("EXP_{}", number); }

std::optional<int> series_number(const std::string& file_name) {
  if (file_name.rfind("exp_", 0) != 0) return std::nullopt;
  // The name is made again and compared: leading zeros and other endings are no files of a series,
  // for the session would not look for them.
  const std::size_t end = file_name.find('.');
  if (end == std::string::npos) return std::nullopt;
  const auto number = util::scan_integer(std::string_view{file_name}.substr(4, end - 4));
  // exp_007.txt reads as a number but is not a name that a session would ask for.
  if (!number || series_file_name(*number) != file_name) return std::nullopt;
  return *number;
}

std::string series_fault(const series_setup& s) {
  if (s.bpms < 1) return fmt::format("at least 1 BPM is needed, not {}", s.bpms);
  if (s.orbits < 1) return fmt::format("at least 1 orbit is needed, not {}", s.orbits);
  if (s.first < 0) return fmt::format("the first number must not be negative, but is {}", s.first);
  // Written as a difference: the sum of two large options could overflow.
  if (s.first > last_series_number || s.bpms - 1 > last_series_number - s.first) {
    return fmt::format("file numbers end at {}, too low for {} BPMs from number {} on",
                       last_series_number, s.bpms, s.first);
  }
  return machine_fault(s.machine, s.bpms);
}

void make_series(const series_setup& s) {
  const std::string directory = series_directory(s.base);
  make_directory(directory);
  // Prepared once for all files; a monitor on its own would solve the chamber each time.
  machine m = s.machine;
  prepare(m);
  std::vector<bpm_truth> bpms;
  const std::string truth = fmt::format("{}/{}", directory, truth_file_name);
  const passage_log log = open_passage_log(m, truth);
  for (int bpm = 1; bpm <= s.bpms; ++bpm) {
    bpms.push_back(write_series_file(s, m, directory, bpm, log));
  }
  write_truth(truth, "a synthetic series", s.machine, bpms);
}

}  // namespace sim
