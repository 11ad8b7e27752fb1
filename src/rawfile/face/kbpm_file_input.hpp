// The accessors for callers with fixed-length, blank-padded texts: names lose their trailing
// blanks, texts come back padded with blanks, and arrays come back with their lengths.
//
// given    string  a text to fill: what stands before the first zero of a 100-character work
//                  buffer, so at most 99 characters, the rest blank
//          array   receives a view over the library's memory, valid until the next load: empty for
//                  an unknown name, one value -999 for a bad argument
#pragma once
#include <cstdint>
#include <span>
#include <string_view>

namespace kbpm_file_input {

/// Loads a file (kbpm_read_rawfile_from_fullfilename). Returns the status as a real number.
double kbpm_read_rawfile_from_fullfilename_f(std::string_view file_name);

std::int32_t kbpm_rawfile_full_filename_f(std::span<char> string);
std::int32_t kbpm_rawfile_timestamp_f(std::span<char> string);
std::int32_t kbpm_rawfile_timing_setup_f(std::span<char> string);
/// The next name; 1 and blanks after the last.
std::int32_t kbpm_rawfile_inst_names_f(std::span<char> string);

float kbpm_rawfile_pedestal_f(std::string_view name, std::int32_t bunch, std::int32_t button);
float kbpm_rawfile_gain_factor_f(std::string_view name, std::int32_t bunch, std::int32_t button);

/// T x B values.
void kbpm_rawfile_raw_ptr_f(std::span<std::int32_t>& array, std::string_view name,
                            std::int32_t button);
void kbpm_rawfile_tbt_ptr_f(std::span<float>& array, std::string_view name, std::int32_t button);
void kbpm_rawfile_pos_ptr_f(std::span<float>& array, std::string_view name, std::int32_t plane);

/// T values only: the first bunch's turns. The shaker's phases are the same for every bunch.
void kbpm_rawfile_phase_ptr_f(std::span<std::int32_t>& array, std::string_view name,
                              std::int32_t plane);
void kbpm_rawfile_whole_phase_ptr_f(std::span<std::int32_t>& array, std::string_view name);

/// B values.
void kbpm_rawfile_species_ptr_f(std::span<std::int32_t>& array);
void kbpm_rawfile_bunches_enabled_ptr_f(std::span<std::int32_t>& array);

}  // namespace kbpm_file_input
