// What kbpm_dump prints of the loaded raw data file.
#pragma once
#include <cstdint>
#include <string>

namespace dump {

/// The file's headers, its bunches, and for every instrument and button: range and mean of the
/// readings, pedestals and gains of both timing blocks, readings at or above the ADC's limit.
void print_file();

/// The turns of one bunch (from 1, by its place in the file) at one instrument, as columns under a
/// title line that begins with #.
/// returns  what is wrong, empty when it was printed
std::string print_turns(const std::string& instrument, std::int32_t bunch);

}  // namespace dump
