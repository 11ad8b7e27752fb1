// text_file: a text file read line by line, whose faults are values.
//
// For readers that give back what went wrong. Other than the units of file_units.hpp such a file is
// nobody else's: nothing here prints or ends the run, and several threads may each read their own.
//     auto file = util::open_text_file(path);
//     if (!file) return file.why;
//     while (util::next_line(*file)) use(file->line);
//     if (file->trouble) return *file->trouble;
#pragma once
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>

#include "fault.hpp"
#include "line_cutter.hpp"

namespace util {

/// A text file and the line in hand. Closes itself.
struct text_file {
  struct closer {
    void operator()(std::FILE* open) const { static_cast<void>(std::fclose(open)); }
  };
  std::string path;  ///< as opened
  std::string line;  ///< without its end (LF or CR LF)
  int number = 0;    ///< of that line, from 1; 0 before the first
  status trouble;    ///< why next_line found no line, when that was not the end of the file
  std::unique_ptr<std::FILE, closer> stream;
  line_cutter cutter;
};

/// Opens an existing file. The fault names it and the system's reason; a directory is none to read.
outcome<text_file> open_text_file(const std::string& path);

/// Standard input as such a file, "standard input" in faults. It stays open when this one closes.
outcome<text_file> standard_input_file();

/// Moves on to the next line; false at the end, and when reading fails or a line has more than
/// longest_line characters, which `trouble` then tells.
[[nodiscard]] bool next_line(text_file& file);

/// Where the line in hand stands: "exp_3.txt:17".
std::string place_of(const text_file& file);

/// The fault of the line in hand: its place, what it says, and what was expected.
fault line_fault(const text_file& file, std::string_view expected);

}  // namespace util
