// series: a numbered series of text files with known gains, one file per BPM.
//
// BASE/inputs_1000random_xy_and_timing_offset/exp_<n>.txt, n without leading zeros, one line per
// orbit, ten values: x y [m], four readings [ADC counts, 32-bit integers], four true gains. The
// header line is recognised by its lower-case x, so no data line may hold one. The truth file
// stands beside them. The session calls the first file BPM 1 and names it EXP_<n>.
#pragma once
#include <optional>
#include <string>

#include "machine.hpp"

namespace sim {

/// The session names a file by at most four digits.
inline constexpr int last_series_number = 9999;

struct series_setup {
  sim::machine machine{};
  std::string base;   // base directory; the series stands in its own directory below
  int bpms = 12;      // files
  int orbits = 1000;  // lines per file
  int first = 0;      // number of the first file
};

/// Why this series cannot be made; empty when it can.
std::string series_fault(const series_setup& s);

/// Makes directory, files and truth, replacing what is there under these names. A file appears
/// under its name when it is complete: a session may be waiting for it.
/// errors   a directory or file that cannot be made or written ends the run
void make_series(const series_setup& s);

/// Directory of the series below a base directory.
std::string series_directory(const std::string& base);
/// Name of one file, and the session's name of its BPM.
std::string series_file_name(int number);
std::string series_bpm_name(int number);
/// The number in a file name; nothing when it is not a name of a series.
std::optional<int> series_number(const std::string& file_name);

}  // namespace sim
