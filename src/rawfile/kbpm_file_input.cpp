// The accessors again, for fixed-length texts. Trailing blanks go before a name is looked up; leading
// ones stay, because the accessors take them off themselves, and count them in a name that is too
// short.
#include "kbpm_file_input.hpp"

#include <algorithm>
#include <array>

#include "kbpm_rawfile.hpp"
#include "kbpm_read_rawfile.hpp"
#include "text.hpp"

namespace kbpm_file_input {
namespace {

// A text through a work buffer of 100 characters, the zero included: longer ones are cut to 99, kept
// for compatibility. (Paths may have 149.)
std::int32_t padded(std::span<char> string, std::int32_t (*routine)(std::span<char>)) {
  std::array<char, 100> work{};
  const std::int32_t status = routine(work);
  const std::string_view text{work.data()};
  std::fill(string.begin(), string.end(), ' ');
  text.copy(string.data(), string.size());
  return status;
}

// A view over what an array accessor gave: nothing, the one value of a bad argument, or the array.
template <class T>
std::span<T> view(T* address, const T* bad, std::int32_t outer, std::int32_t inner) {
  // The value of a bad argument is seen as an array of one: who reads its first element gets -999
  // here as from the accessors.
  if (address == nullptr) return {};
  if (address == bad) return {address, 1};
  // Files with negative counts load; their arrays are empty.
  const auto elements = [](std::int32_t n) { return static_cast<std::size_t>(std::max(n, 0)); };
  return {address, elements(outer) * elements(inner)};
}

std::span<std::int32_t> integers(std::int32_t* address, std::int32_t outer, std::int32_t inner) {
  return view(address, &rawfile::Integer_Constant, outer, inner);
}

std::span<float> reals(float* address, std::int32_t outer, std::int32_t inner) {
  return view(address, &rawfile::Float_Constant, outer, inner);
}

// As the file header has them, not the instrument's own: all arrays are made by these.
std::int32_t turns() { return rawfile::kbpm_rawfile_num_turns(); }
std::int32_t bunches() { return rawfile::kbpm_rawfile_num_bunches(); }

}  // namespace

double kbpm_read_rawfile_from_fullfilename_f(std::string_view file_name) {
  return rawfile::kbpm_read_rawfile_from_fullfilename(util::trim_right(file_name));
}

std::int32_t kbpm_rawfile_full_filename_f(std::span<char> string) {
  return padded(string, rawfile::kbpm_rawfile_full_filename_);
}

std::int32_t kbpm_rawfile_timestamp_f(std::span<char> string) {
  return padded(string, rawfile::kbpm_rawfile_timestamp_);
}

std::int32_t kbpm_rawfile_timing_setup_f(std::span<char> string) {
  return padded(string, rawfile::kbpm_rawfile_timing_setup_);
}

std::int32_t kbpm_rawfile_inst_names_f(std::span<char> string) {
  return padded(string, rawfile::kbpm_rawfile_inst_names_);
}

float kbpm_rawfile_pedestal_f(std::string_view name, std::int32_t bunch, std::int32_t button) {
  return rawfile::kbpm_rawfile_pedestal(util::trim_right(name), bunch, button);
}

float kbpm_rawfile_gain_factor_f(std::string_view name, std::int32_t bunch, std::int32_t button) {
  return rawfile::kbpm_rawfile_gain_factor(util::trim_right(name), bunch, button);
}

void kbpm_rawfile_raw_ptr_f(std::span<std::int32_t>& array, std::string_view name,
                            std::int32_t button) {
  array =
      integers(rawfile::kbpm_rawfile_raw_ptr(util::trim_right(name), button), turns(), bunches());
}

void kbpm_rawfile_tbt_ptr_f(std::span<float>& array, std::string_view name, std::int32_t button) {
  array = reals(rawfile::kbpm_rawfile_tbt_ptr(util::trim_right(name), button), turns(), bunches());
}

void kbpm_rawfile_pos_ptr_f(std::span<float>& array, std::string_view name, std::int32_t plane) {
  array = reals(rawfile::kbpm_rawfile_pos_ptr(util::trim_right(name), plane), turns(), bunches());
}

void kbpm_rawfile_phase_ptr_f(std::span<std::int32_t>& array, std::string_view name,
                              std::int32_t plane) {
  // One bunch's turns, and none in a file without bunches.
  array = integers(rawfile::kbpm_rawfile_phase_ptr(util::trim_right(name), plane), turns(),
                   std::min(bunches(), 1));
}

void kbpm_rawfile_whole_phase_ptr_f(std::span<std::int32_t>& array, std::string_view name) {
  array = integers(rawfile::kbpm_rawfile_whole_phase_ptr(util::trim_right(name)), turns(),
                   std::min(bunches(), 1));
}

void kbpm_rawfile_species_ptr_f(std::span<std::int32_t>& array) {
  array = integers(rawfile::kbpm_rawfile_species_ptr(), bunches(), 1);
}

void kbpm_rawfile_bunches_enabled_ptr_f(std::span<std::int32_t>& array) {
  array = integers(rawfile::kbpm_rawfile_bunches_enabled_ptr(), bunches(), 1);
}

}  // namespace kbpm_file_input
