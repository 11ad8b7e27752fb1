// raw_file: one raw data file in memory, as a record.
//
// For callers who want a file and not a session: several can be held side by side, and read on
// several threads at once. Nothing here prints, asks or ends the process; what went wrong is a
// value. The accessors of kbpm_rawfile.hpp put the same questions to one record that belongs to the
// whole process (kbpm_read_rawfile.hpp), with the statuses and sentinels that its callers know.
//
//     const auto file = rawfile::read_raw_file("RD-004567.dat");
//     if (!file) return complain(util::line_of(file.why));
//     for (const rawfile::RDV3_INST_DATA& bpm : file->instruments) use(bpm.TIcorrected);
#pragma once
#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "fault.hpp"
#include "rdv3.hpp"

namespace rawfile {

struct array_arena;  // the memory of all arrays of a file; the library's own
struct gives_arena_back {
  void operator()(array_arena* arena) const;
};

/// One raw data file. Moved, not copied: the instruments' arrays are views of its memory.
struct raw_file {
  std::string path;  ///< where it was read from, whole; the header keeps 149 characters of it
  RDV3_FILE_HEADER file_header;
  RDV3_KOVR_HEADER kovr_header;
  std::vector<RDV3_INST_DATA> instruments;  ///< in file order
  /// What their arrays look at. The next load into this record uses it again.
  std::unique_ptr<array_arena, gives_arena_back> arrays;
  bool loaded = false;  ///< the above is one file, whole
  /// Where the file ends that is shorter than its header says; nothing when it is not. What is missing
  /// repeats the last values read.
  util::status ends_early;
};

/// Most instruments that a file may have; kept for compatibility.
inline constexpr std::int32_t most_instruments = 120;

/// Arrays up to this size [bytes] are made for any file; beyond it the file must be large enough to
/// call for them. Set lower by fuzz targets, which have no time to fill a gigabyte.
inline std::uint64_t unquestioned_arrays = std::uint64_t{1} << 30;

/// Reads the file of exactly this path.
///
/// returns  the file, with 1 to most_instruments instruments and at least one bunch
/// errors   the fault tells path and reason: cannot be opened; counts that cannot be; a timing block
///          other than 0 and 1 (with line, instrument and data line); text without line ends; no
///          instruments, too many, or no bunches; a read that fails (with the byte). Lines that are
///          malformed or missing are none of these: they leave zeros or the last values read, and
///          ends_early tells of a file that is cut.
/// note     safe on several threads
[[nodiscard]] util::outcome<raw_file> read_raw_file(const std::string& path);

// --- questions --------------------------------------------------------------------------------

/// The first instrument whose name is this one without its outer blanks; null when there is none.
const RDV3_INST_DATA* instrument_of(const raw_file& file, std::string_view name);

/// 0 POSITRONS, 1 ELECTRONS, 2 DUAL, -1 anything else.
std::int32_t species_of(const RDV3_FILE_HEADER& header);

/// Species of a bunch by the timing set-up: 0 positrons, 1 electrons, -1 set-up unknown. With 14 ns
/// between bunches both kinds take turns, odd bunches being electrons.
std::int32_t species_of_bunch(const RDV3_FILE_HEADER& header, std::int32_t bunch);

/// RF bucket of a bunch: 2 k with 4 ns spacing (k to 640), 7 (k - 1) + 1 with 14 ns (k to 183).
/// returns  nothing for another bunch or spacing
std::optional<std::int32_t> rf_bucket_of(const RDV3_FILE_HEADER& header, std::int32_t bunch);

/// Numbers, from 1, of the bunches that the bunch pattern names, in rising order. The k-th of them
/// is the k-th of the file's num_bunches bunches.
std::vector<std::int32_t> bunches_enabled(const RDV3_FILE_HEADER& header);

/// The fault of a pattern that names more bunches than the file holds.
[[nodiscard]] util::status pattern_fault(const raw_file& file);

/// Linear position from the four corrected readings, in single precision and in this order.
/// given    plane   0 horizontal, any other vertical
///          coeffs  horizontal and vertical coefficient
/// errors   none: a zero sum gives inf or nan
inline float kbpmfio_compute_pos(float ti, float bi, float bo, float to, std::int32_t plane,
                                 const std::array<float, 2>& coeffs) {
  const float s = ((ti + bi) + bo) + to;
  if (plane == 0) return (((to + bo) - bi) - ti) / s * coeffs[0];
  return (((to - bo) - bi) + ti) / s * coeffs[1];
}

}  // namespace rawfile
