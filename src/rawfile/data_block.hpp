// The data lines of one instrument: read, and everything derived from them.
//
// Line n (from 0) is bunch n div T, turn n mod T. Each line is corrected with the calibration of
// the timing block that it names itself:
//     corrected = float(float(raw - pedestal) * (1 / gain))     product in double precision
//     X = (((TO + BO) - BI) - TI) / S * horz_coeff              outer minus inner
//     Y = (((TO - BO) - BI) + TI) / S * vert_coeff              top minus bottom
//     S = ((TI + BI) + BO) + TO
// the last three in single precision and in this order, and the phase word unpacked: bits 19..27
// horizontal, 10..18 vertical, 0..7 the rest.
#pragma once
#include <cstddef>
#include <cstdint>

#include "data_line.hpp"
#include "fault.hpp"
#include "kbpmfio_stream.hpp"
#include "raw_file.hpp"

namespace rawfile {

/// Reads one line by the rules for lines without a key.
/// returns  1 when the next line has a key (it is left in place) or the file ends; 0 when a line
///          was taken, whatever it held
[[nodiscard]] std::int32_t read_data_line(kbpmfio_stream& stream, data_columns& columns);

/// How reading a data block ended.
struct [[nodiscard]] block_result {
  util::status fault;     ///< nothing when the arrays are filled
  std::size_t lines = 0;  ///< taken from the file; elements from here on repeat the last one
};

/// Fills an instrument's arrays from its B x T data lines.
/// given    last  the columns as the marker line left them; a block that is too short, or that a
///                line with ":" ends, repeats the last values read to its end
/// returns  last  the columns of the last line read
/// errors   a timing block other than 0 and 1: the fault names file, line, instrument and data line;
///          last holds the block, and the arrays what was read before
block_result read_data_block(kbpmfio_stream& stream, RDV3_INST_DATA& instrument,
                             std::int32_t bunches, std::int32_t turns, data_columns& last);

}  // namespace rawfile
