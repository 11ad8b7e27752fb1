// files_read: which files a run has read, for its record.
//
// Whoever opens a file for the session notes it here; readers that work on records do not, for their
// callers know why the file was read. A file that was only looked at (does it open, which form has
// it) is not read.
#pragma once
#include <string>
#include <string_view>
#include <vector>

namespace util {

/// What a file was read as.
enum class read_as {
  input,  ///< data: series, text runs, raw files, lists and button files of orbits
  table   ///< what data are looked at with: position tables, calibration lists, chambers
};

/// A file that was read.
struct file_read {
  std::string path;  ///< as it was opened
  read_as as = read_as::input;
};

/// All of them, each once, in the order in which they were first read.
inline std::vector<file_read> files_read;

/// Notes a file.
void note_file_read(std::string_view path, read_as as = read_as::input);

}  // namespace util
