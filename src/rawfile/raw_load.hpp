// Loading: an open stream becomes a record.
//
// The record's memory is made once the counts are known, in one piece for all instruments; then
// each instrument's header and data lines are read in file order. Interior of the library: its
// faces are read_raw_file, and kbpm_read_rawfile* for the record of the whole process.
#pragma once
#include <cstddef>
#include <cstdint>

#include "kbpmfio_stream.hpp"
#include "raw_file.hpp"

namespace rawfile {

/// How a load ended: the loaders of the whole process have another message for each.
enum class load_end : std::uint8_t {
  complete,
  endless,         ///< text without line ends
  counts,          ///< counts that cannot be, or no memory for them
  block,           ///< a timing block that has no calibration
  no_instruments,  ///< not 1 to most_instruments; the data are loaded all the same
  no_bunches       ///< fewer than one; the data are loaded all the same
};

struct [[nodiscard]] load_result {
  load_end end = load_end::complete;
  util::status fault;      ///< nothing when complete
  std::int32_t block = 0;  ///< the timing block that was met, with load_end::block
};

/// Replaces what the record holds by what the stream gives, up to the last data line.
/// errors   see load_end; where the data are not loaded the record is empty and has no memory
/// note     a read that fails looks like the end of the file here: the stream knows (read_fault)
load_result load(kbpmfio_stream& stream, raw_file& file);

/// Empties the record; the memory of its arrays stays with it, for the next load.
void let_go(raw_file& file);
/// Empties the record and gives the memory back.
void forget(raw_file& file);

/// Gives instrument i (within the record) its 17 arrays, of B or B x T elements as the file header
/// says.
/// note     not zeroed where memory is used again; the lists that are filled on demand are
void give_arrays(raw_file& file, std::size_t i);
/// Takes them away. The memory stays with the record.
void take_arrays(RDV3_INST_DATA& d);

}  // namespace rawfile
