// The field tables as one reader's own: rows are pointed at the record that is read, so two files
// can be read at once. The tables of kbpmfio.hpp are one more such set, the whole process's.
#pragma once
#include <array>
#include <span>

#include "kbpmfio.hpp"

namespace rawfile {

/// The tables that a file is read by.
struct field_tables {
  std::array<KBPMFIO_FIELD_SPEC, num_RDV3_header_specs> header;
  std::array<KBPMFIO_FIELD_SPEC, num_RDV3_kovr_specs> kovr;
  std::array<KBPMFIO_FIELD_SPEC, num_RDV3_inst_header_specs> instrument;
};

/// Tables that point at nothing yet.
field_tables fresh_tables();

/// Key and conversions of a data line.
inline constexpr std::string_view data_line_format = "%d       %07x  %7d  %7d  %7d  %7d\n";

/// Point a table of this kind at a record, which must outlive the reading or writing.
void map_file_header(std::span<KBPMFIO_FIELD_SPEC> table, RDV3_FILE_HEADER& header);
void map_kovr_header(std::span<KBPMFIO_FIELD_SPEC> table, RDV3_KOVR_HEADER& header);
void map_instrument_header(std::span<KBPMFIO_FIELD_SPEC> table, RDV3_INST_DATA& instrument);

/// Reads all rows of a table. Errors: none, a row that is not found leaves its target as it was.
void read_section(kbpmfio_stream& stream, std::span<KBPMFIO_FIELD_SPEC> table);

}  // namespace rawfile
