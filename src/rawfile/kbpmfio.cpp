// Sections and texts; single lines are in kbpmfio_lines.cpp.
#include <fmt/core.h>

#include <algorithm>
#include <cstring>
#include <string>

#include "field_tables.hpp"
#include "run_time.hpp"
#include "standard_output.hpp"

namespace rawfile {
namespace {

// Either header, and the blank line behind it.
std::int32_t write_header_to_global(std::int32_t (*rw)(kbpmfio_stream&, std::int32_t)) {
  if (kbpmfio_file_pointer == nullptr) util::not_given_error("kbpmfio_file_pointer");
  rw(*kbpmfio_file_pointer, KBPMFIO_WRITE);
  put(*kbpmfio_file_pointer, "\n");
  return 0;
}

void rw_whole_section(kbpmfio_stream& stream, std::int32_t mode,
                      std::span<KBPMFIO_FIELD_SPEC> table) {
  // No row of the headers' tables has ten targets, so their sections never end early.
  static_cast<void>(
      kbpmfio_rw_file_section(stream, mode, static_cast<std::int32_t>(table.size()), table));
}

}  // namespace

std::int32_t kbpmfio_rw_file_section(kbpmfio_stream& stream, std::int32_t mode,
                                     std::int32_t row_count, std::span<KBPMFIO_FIELD_SPEC> table) {
  const auto rows = std::min(table.size(), static_cast<std::size_t>(std::max(row_count, 0)));
  for (const KBPMFIO_FIELD_SPEC& row : table.first(rows)) {
    const auto set = static_cast<std::size_t>(
        std::count_if(row.addresses.begin(), row.addresses.end(),
                      [](const kbpmfio_target& t) { return t.of != kbpmfio_target::kind::unset; }));
    // A routine is called with one to ten targets; a row without any has nothing to read or write.
    if (set == 0) continue;
    const kbpmfio_routine routine = mode == KBPMFIO_READ ? row.input_func : row.output_func;
    const std::int32_t status = routine(stream, row.format, std::span{row.addresses}.first(set));
    // Shorter rows are not asked: a data row of six never ends a section early. Kept for
    // compatibility: a block of data lines that is too short is filled up, not cut off.
    if (set == max_addresses && status == 1) return 1;
  }
  return 0;
}

void read_section(kbpmfio_stream& stream, std::span<KBPMFIO_FIELD_SPEC> table) {
  rw_whole_section(stream, KBPMFIO_READ, table);
}

std::int32_t kbpmfio_rw_file_header(kbpmfio_stream& stream, std::int32_t mode) {
  rw_whole_section(stream, mode, RDV3_header_specs);
  // The first ends the Trigger line, the second is the blank line behind the header.
  if (mode != KBPMFIO_READ) put(stream, "\n\n");
  return 0;
}

std::int32_t kbpmfio_rw_kovr_header(kbpmfio_stream& stream, std::int32_t mode) {
  rw_whole_section(stream, mode, RDV3_kovr_specs);
  if (mode != KBPMFIO_READ) put(stream, "\n");
  return 0;
}

std::int32_t kbpmfio_rw_instrument_header(kbpmfio_stream& stream, std::int32_t mode) {
  rw_whole_section(stream, mode, RDV3_inst_header_specs);
  return 0;
}

std::int32_t kbpmfio_write_file_header() { return write_header_to_global(kbpmfio_rw_file_header); }

std::int32_t kbpmfio_write_instrument_header() {
  return write_header_to_global(kbpmfio_rw_instrument_header);
}

std::int32_t kbpmfio_noop(kbpmfio_stream& /*stream*/, std::string_view /*format*/,
                          std::span<const kbpmfio_target> /*targets*/) {
  return 0;
}

std::string_view stripped(std::string_view text) {
  while (!text.empty() && is_space(text.back())) text.remove_suffix(1);
  while (!text.empty() && is_space(text.front())) text.remove_prefix(1);
  return text;
}

std::int32_t kbpmfio_strip(std::span<char> text) {
  const std::string_view all{text.data(), text.size()};
  const std::size_t length = all.find('\0');
  if (length == std::string_view::npos) {
    util::print_line("strip() : String argument is NOT null-terminated!");
    return 1;
  }
  const std::string_view kept = stripped(all.substr(0, length));
  const std::size_t kept_length = kept.size();  // `kept` looks into the text that moves now
  std::memmove(text.data(), kept.data(), kept_length);
  text[kept_length] = '\0';
  return static_cast<std::int32_t>(length);
}

std::string_view kbpmfio_replace_str(std::string_view text, std::string_view search,
                                     std::string_view replacement) {
  // Per thread, so that two of them do not share what the next call overwrites.
  static thread_local std::string result;
  const std::size_t found = text.find(search);
  if (found == std::string_view::npos) return text;
  // Not in place: the text may be the last call's result.
  std::string replaced{text};
  replaced.replace(found, search.size(), replacement);
  result.swap(replaced);
  return result;
}

std::int32_t kbpmfio_file_subdir(std::int32_t run, std::span<char> output) {
  if (output.empty()) return 0;
  // Two digits at least, so that names sort as their numbers do; from run 100000 on as many as
  // there are.
  const std::string name = fmt::format("{:02d}/", run / 1000);
  const std::size_t length = name.copy(output.data(), output.size() - 1);
  output[length] = '\0';
  return 0;
}

}  // namespace rawfile
