// What kbpm_dump prints of a raw data file, on standard output.
#pragma once
#include <cstdint>
#include <string_view>

#include "fault.hpp"
#include "raw_file.hpp"

namespace dump {

/// The file's headers, its bunches, and for every instrument and button: range and mean of the
/// readings, pedestals and gains of both timing blocks, readings at or above the ADC's limit.
/// errors   more bunches in the pattern than in the file: printed as far as they go
[[nodiscard]] util::status print_file(const rawfile::raw_file& file);

/// The turns of one bunch (from 1, by its place in the file) at one instrument, as columns under a
/// title line that begins with #.
/// errors   no such instrument or bunch: nothing is printed; bunches as above
[[nodiscard]] util::status print_turns(const rawfile::raw_file& file, std::string_view instrument,
                                       std::int32_t bunch);

}  // namespace dump
