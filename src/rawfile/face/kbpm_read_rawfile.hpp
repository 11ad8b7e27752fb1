// Loading a raw data file for the whole process: where it lies, and what the accessors then answer
// from. (For a file of one's own, without messages, see raw_file.hpp.)
//
// One file is held at a time, from its load until the next one; nothing is released at the end of
// the program. Messages are on standard output, statuses are 0 (loaded) and 1 (failed). A file that
// exists but cannot be opened is reported and answers 0: the previous load stays in place, and its
// reader goes on with that (kbpm_rawfile_is_current tells a caller who wants to know).
//
// The loader believes what stands in the file. Missing and malformed lines leave zeros or the last
// values read; only counts that cannot be are refused: more data lines than 32 bits count, or
// arrays beyond 1 GiB for a file of fewer than two bytes a line. Then one line names the file, the
// key and the value, nothing is allocated, nothing is held. Text that never ends its line is no raw
// data file either: 16 MiB without a line end are refused with one line on standard error.
//
// What ends before its header says so is told in one line on standard error and loaded all the same.
// A read that fails ends the lines like the end of the file, with the status that they give; one
// line tells file, byte and reason, and kbpm_rawfile_is_current says no.
#pragma once
#include <cstdint>
#include <string>
#include <string_view>

#include "rdv3.hpp"

namespace rawfile {

// The file at hand, null without one. Set by each load; everyone else asks the accessors.
inline RDV3_FILE_HEADER* p_v3_file_header = nullptr;
inline RDV3_KOVR_HEADER* p_v3_kovr_header = nullptr;
inline RDV3_INST_DATA* p_v3_inst_array = nullptr;  ///< num_instruments records
inline std::int32_t kbpmfio_memory_allocated = 0;  ///< 1 while a load is held
inline std::int32_t inst_count_g = 0;              ///< cursor of the name iterator; each load: 0

/// Loads a run's file from the online directory, or from the offline archive.
/// errors   in neither: "Unable to stat <path>" for each, 1; previous load kept
[[nodiscard]] std::int32_t kbpm_read_rawfile(std::int32_t run);

/// Loads the file of a path; see below.
[[nodiscard]] std::int32_t kbpm_read_rawfile_from_fullfilename(std::string_view path);

/// Loads the file of a path or, when the path is empty, of a run.
/// note     the path is laid over the run's online path, character by character from its start: one
///          at least as long stands for itself (150 characters at most), a shorter one keeps the
///          tail of the online path and names no file
/// returns  0, or 1: no such file ("Unable to stat"), counts refused, or, with the data loaded,
///          "Error: Empty RD file, ..." (not 1 to 120 instruments, or no bunches)
/// errors   KOVR_ONLINE needed and not set, or a path too long: the common fatal exit; a timing
///          block other than 0 and 1 in a data line: bounds error, behind one line on standard error
///          that names file, line, instrument and data line
[[nodiscard]] std::int32_t kbpm_read_rawfile_extended(std::int32_t run, std::string_view path);

/// Loads the file of exactly this path; no other directory plays a part.
/// errors   as above: no such file is "Unable to stat" and 1, one that cannot be opened answers 0
[[nodiscard]] std::int32_t kbpm_read_rawfile_at(const std::string& path);

/// Gives instrument i (from 0) its 17 arrays, of B or B x T elements as the file header says.
/// note     they are not zeroed where memory is used again; the lists filled on demand are
/// errors   an index outside the instruments ends the run
void kbpmfio_v3_inst_alloc(std::int32_t i);

/// Takes an instrument's arrays away. The memory itself serves the next load.
void kbpmfio_v3_free_inst_mem(std::int32_t i);

/// Puts everything above back to its first value and gives all memory back.
void forget_rawfile();

}  // namespace rawfile
