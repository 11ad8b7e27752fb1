// Any bytes as lines: read with every row of every table, and each line as a data line, where the
// result must be that of the C library.
#include <array>
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

#include "data_line.hpp"
#include "kbpmfio_stream.hpp"
#include "target.hpp"

namespace {

using namespace rawfile;

void read_with(std::string_view text, std::span<KBPMFIO_FIELD_SPEC> table) {
  kbpmfio_stream stream;
  open_text(stream, text);
  // Whether the section ended early is of no interest here: only that it ends.
  static_cast<void>(kbpmfio_rw_file_section(stream, KBPMFIO_READ,
                                            static_cast<std::int32_t>(table.size()), table));
}

void read_by_tables(std::string_view text) {
  RDV3_FILE_HEADER file;
  RDV3_KOVR_HEADER kovr;
  RDV3_INST_DATA instrument;
  data_columns columns{};
  kbpmfio_map_file_header(file);
  kbpmfio_map_kovr_header(kovr);
  kbpmfio_map_instrument_header(instrument);
  kbpmfio_map_data_line(columns);
  read_with(text, RDV3_header_specs);
  read_with(text, RDV3_kovr_specs);
  read_with(text, RDV3_inst_header_specs);
  read_with(text, RDV3_raw_data_spec);
}

void check_data_line(const std::string& line) {
  constexpr data_columns before{-1, -2, -3, -4, -5, -6};
  data_columns expected = before;
  std::array<std::int32_t, 6>& e = expected;
  static_cast<void>(std::sscanf(line.c_str(), "%d       %07x  %7d  %7d  %7d  %7d\n", &e[0],
                                reinterpret_cast<unsigned*>(&e[1]), &e[2], &e[3], &e[4], &e[5]));
  data_columns found = before;
  scan_data_line(line, found);
  fuzz::check(found == expected);
  for (const std::int32_t block : {0, 1}) {
    found = before;
    found[0] = block;
    if (take_printed_lines(line, block, 1,
                           {&found[1], {&found[2], &found[3], &found[4], &found[5]}}) == 1) {
      fuzz::check(found == expected);
    }
    found = before;
    found[0] = block;
    if (take_plain_lines(line + std::string(plain_window, '\n'), block, 1,
                         {&found[1], {&found[2], &found[3], &found[4], &found[5]}})
            .lines == 1) {
      fuzz::check(found == expected);
    }
  }
}

}  // namespace

void fuzz::read(std::string_view text) {
  fuzz::until_the_run_ends([&] { read_by_tables(text); });
  kbpmfio_stream stream;
  open_text(stream, text);
  while (const auto line = next_line(stream)) {
    check_data_line(std::string{line->substr(0, line->find('\0'))});
  }
}
