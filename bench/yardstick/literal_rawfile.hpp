// The plainest reader of raw data files there is: one fgets, one trimmed copy and one sscanf a
// line, every value derived as soon as its line is read. The tests compare the library with it, the
// bench measures against it.
#pragma once
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "rdv3.hpp"

namespace literal {

/// A loaded file. The instruments' arrays point into `memory`.
struct file {
  rawfile::RDV3_FILE_HEADER header;
  rawfile::RDV3_KOVR_HEADER kovr;
  std::vector<rawfile::RDV3_INST_DATA> instruments;
  std::vector<std::unique_ptr<std::byte[]>> memory;  // NOLINT(*-c-arrays)
  bool bad_block = false;  ///< a timing block other than 0 and 1 was met; loading stopped there
};

/// Reads the whole file. A file that cannot be opened gives one without instruments.
file read(const std::string& path);

/// Whether all fields agree; what lies between them does not count.
bool same(const rawfile::RDV3_FILE_HEADER& a, const rawfile::RDV3_FILE_HEADER& b);

/// What sscanf makes of a data line.
int scan_data_line(const char* line, std::int32_t* six_columns);

}  // namespace literal
