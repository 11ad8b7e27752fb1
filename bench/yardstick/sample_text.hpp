// Raw data files for the tests, written without the library, and a place for them.
#pragma once
#include <string>
#include <string_view>
#include <vector>

namespace sample {

/// What a sample holds; every reading, pedestal and gain is another number.
struct shape {
  int instruments = 2;
  int bunches = 2;
  int turns = 3;
  int run = 4567;
};

std::string file_header(const shape& s);
std::string kovr_header();
std::string instrument_header(const shape& s, int instrument);
/// The two lines of column titles and the data marker.
std::string labels();
/// One data line; bunch 1 (from 0) is in timing block 1, the others in block 0.
std::string data_line(const shape& s, int instrument, int bunch, int turn);
/// The whole file.
std::string text(const shape& s);

/// Name of an instrument: 1W, 2W, ...
std::string name(int instrument);

/// The text as lines with their line ends, and back.
std::vector<std::string> lines_of(std::string_view text);
std::string joined(const std::vector<std::string>& lines);

/// Writes a file in a scratch directory of this test program; returns its path, always longer than
/// the online paths that tests use and shorter than 150 characters.
std::string written(const std::string& name, std::string_view content);
/// The scratch directory, with a slash at its end.
std::string scratch_directory();

}  // namespace sample
