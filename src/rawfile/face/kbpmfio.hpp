// The lines of a raw data file: five field tables, and the routines that read and write by them.
//
// A row of a table names a line's format, which serves both ways: "File_ID           : %d\n" is the
// key, padded to 18 characters, a colon, and the conversions. Before a section is read or written
// its rows are pointed at their targets (the map routines below).
//
// Reading is forgiving. What stands before the colon must agree with as many characters of the
// format, no more ("Location:12W" will do); other keys are passed over until the wanted one, the
// data marker or the end of the file comes; a value that does not convert leaves its target and the
// later ones of its line as they were. Nothing is reported: the loader looks at the counts.
//
// Numbers have decimal points, whatever locale the process has.
//
// errors   none, unless stated; the tables are global, so one file at a time is read or written by
//          them (read_raw_file has tables of its own)
#pragma once
#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "fault.hpp"
#include "rdv3.hpp"

namespace rawfile {

// --- files ------------------------------------------------------------------------------------

/// An open file, read or written; what is in it is the library's own.
struct kbpmfio_stream;

struct closes_stream {
  void operator()(kbpmfio_stream* stream) const;
};

/// A file that is written; closes itself, without the check that close() makes.
struct kbpmfio_output {
  std::unique_ptr<kbpmfio_stream, closes_stream> stream;
  kbpmfio_output();
  operator kbpmfio_stream&() const { return *stream; }  // NOLINT(*-explicit-*): it stands for one
};

/// Opens a file for writing, replacing it. Errors: the system's reason is what of the fault.
[[nodiscard]] util::status open_for_writing(kbpmfio_stream& stream, const std::string& path);

/// Appends to a file that is written.
/// errors   it cannot be written: the run ends with the file's name and the reason
void put(kbpmfio_stream& stream, std::string_view text);

/// Closes; does nothing when closed already.
/// errors   what was written did not reach the disk: as above
void close(kbpmfio_stream& stream);

// --- tables -----------------------------------------------------------------------------------

// NOLINTNEXTLINE(readability-identifier-naming): a name of the format's own
enum KBPMFIO_MODES : std::int32_t { KBPMFIO_READ = 0, KBPMFIO_WRITE = 1, KBPMFIO_READWRITE = 2 };

/// Where one conversion of a line goes to or comes from: a typed address that knows its size, so
/// that no text overflows its field. Unset: no conversion. Placeholder: set, but of no variable.
struct kbpmfio_target {
  enum class kind { unset, placeholder, int32, float32, text };
  kind of = kind::unset;
  void* address = nullptr;
  std::size_t size = 0;  ///< items behind the address; characters of a text, its zero included
};

kbpmfio_target target(std::int32_t& value);
kbpmfio_target target(float& value);
kbpmfio_target target(std::span<std::int32_t> words);
kbpmfio_target target(std::span<char> text);
inline constexpr kbpmfio_target placeholder{kbpmfio_target::kind::placeholder, nullptr, 0};

inline constexpr std::size_t max_addresses = 10;
using kbpmfio_targets = std::array<kbpmfio_target, max_addresses>;

/// Reads or writes one line. The set targets of the row, in order, in place of a list that ends
/// with a null pointer.
using kbpmfio_routine = std::int32_t (*)(kbpmfio_stream& stream, std::string_view format,
                                         std::span<const kbpmfio_target> targets);

/// One row of a field table.
struct KBPMFIO_FIELD_SPEC {
  std::int32_t field_ID = 0;              ///< the row's index in its table
  std::int32_t mode = KBPMFIO_READWRITE;  ///< stored, never tested
  kbpmfio_routine input_func = nullptr;
  kbpmfio_routine output_func = nullptr;
  std::string_view format;  ///< fewer than 60 characters
  kbpmfio_targets addresses{placeholder};
};

inline constexpr std::int32_t num_RDV3_header_specs = 17;
inline constexpr std::int32_t num_RDV3_kovr_specs = 3;
inline constexpr std::int32_t num_RDV3_inst_header_specs = 28;
inline constexpr std::int32_t num_RDV3_raw_data_label_specs = 3;
extern std::array<KBPMFIO_FIELD_SPEC, num_RDV3_header_specs> RDV3_header_specs;
extern std::array<KBPMFIO_FIELD_SPEC, num_RDV3_kovr_specs> RDV3_kovr_specs;
extern std::array<KBPMFIO_FIELD_SPEC, num_RDV3_inst_header_specs> RDV3_inst_header_specs;
extern std::array<KBPMFIO_FIELD_SPEC, num_RDV3_raw_data_label_specs> RDV3_raw_data_label_specs;
extern std::array<KBPMFIO_FIELD_SPEC, 1> RDV3_raw_data_spec;

/// The file that kbpmfio_write_file_header and kbpmfio_write_instrument_header write to.
inline kbpmfio_stream* kbpmfio_file_pointer = nullptr;

// --- pointing tables at records ---------------------------------------------------------------

/// Sets all ten addresses of one row.
/// errors   a row outside the table ends the run
std::int32_t kbpmfio_map_addresses_to_field(std::span<KBPMFIO_FIELD_SPEC> table, std::int32_t row,
                                            const kbpmfio_targets& addresses);

/// Point a whole table at a record, which must outlive the reading or writing.
void kbpmfio_map_file_header(RDV3_FILE_HEADER& header);
void kbpmfio_map_kovr_header(RDV3_KOVR_HEADER& header);
void kbpmfio_map_instrument_header(RDV3_INST_DATA& instrument);
/// Six integers: timing block, phase word, readings of cards 0..3 (TI, BI, BO, TO).
void kbpmfio_map_data_line(std::span<std::int32_t, 6> columns);

// --- sections ---------------------------------------------------------------------------------

/// Reads (mode 0) or writes (otherwise) the rows of a table in order.
/// returns  1 when a row with ten targets meets another section's line (the rest is then left);
///          else 0: shorter rows are not asked
[[nodiscard]] std::int32_t kbpmfio_rw_file_section(kbpmfio_stream& stream, std::int32_t mode,
                                                   std::int32_t row_count,
                                                   std::span<KBPMFIO_FIELD_SPEC> table);

/// One header; written, with the blank line behind it (the instrument's has none). Always 0: what a
/// header lacks leaves its targets as they were.
std::int32_t kbpmfio_rw_file_header(kbpmfio_stream& stream, std::int32_t mode);
std::int32_t kbpmfio_rw_kovr_header(kbpmfio_stream& stream, std::int32_t mode);
std::int32_t kbpmfio_rw_instrument_header(kbpmfio_stream& stream, std::int32_t mode);

/// Write a header and one line end to kbpmfio_file_pointer; unset, it ends the run.
std::int32_t kbpmfio_write_file_header();
std::int32_t kbpmfio_write_instrument_header();

// --- lines ------------------------------------------------------------------------------------

/// Reads one field line.
/// returns  1 when the format has no key and the next line has one: that line is left in place (the
///          comments before it are not); else 0
[[nodiscard]] std::int32_t kbpmfio_scan_line_input(kbpmfio_stream& stream, std::string_view format,
                                                   std::span<const kbpmfio_target> targets);

/// Writes one field line: the text before the first conversion, then each conversion that has a
/// target, with what follows it.
/// note     a text whose format ends without a line end brings its own; where it has lost it (a
///          time stamp that was read) one is written all the same
std::int32_t kbpmfio_scan_line_output(kbpmfio_stream& stream, std::string_view format,
                                      std::span<const kbpmfio_target> targets);

/// The bunch pattern line: 40 hexadecimal words, word 39 first.
/// note     fewer words in the file leave the others as they were; the data marker is no end here
std::int32_t kbpmfio_bunch_patt_input(kbpmfio_stream& stream, std::string_view format,
                                      std::span<const kbpmfio_target> targets);
std::int32_t kbpmfio_bunch_patt_output(kbpmfio_stream& stream, std::string_view format,
                                       std::span<const kbpmfio_target> targets);

/// For lines that are never read.
std::int32_t kbpmfio_noop(kbpmfio_stream& stream, std::string_view format,
                          std::span<const kbpmfio_target> targets);

// --- texts ------------------------------------------------------------------------------------

/// White space: blank, tab, and the line and page ends.
constexpr bool is_space(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

/// Without white space at both ends.
std::string_view stripped(std::string_view text);

/// Trims white space at both ends, in place.
/// given    text  a buffer that holds a zero-terminated text
/// returns  its length before trimming
/// errors   no zero in the buffer: says so on standard output, changes nothing, returns 1
std::int32_t kbpmfio_strip(std::span<char> text);

/// The text with the first occurrence of `search` replaced; the text itself when it does not occur.
/// note     lives in one buffer of the thread: the next call overwrites it, so copy it at once
std::string_view kbpmfio_replace_str(std::string_view text, std::string_view search,
                                     std::string_view replacement);

/// Name of a run's subdirectory: run 12345 lies in 12/, run 999 in 00/, run 123456 in 123/.
/// given    output  buffer for the name and its zero; a longer name is cut
std::int32_t kbpmfio_file_subdir(std::int32_t run, std::span<char> output);

}  // namespace rawfile
