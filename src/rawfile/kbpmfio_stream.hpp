// One open raw data file, for reading line by line or for writing.
//
// Reading goes through a block of our own over read(): the text is never held whole, and a file
// that is cut short while it is read is simply shorter (a mapped one would kill the process). A
// line is what fgets with a buffer of 2048 characters gives: up to and with the line end, at most
// 2047 characters, the rest being the next line. A read that fails (of a directory, or of a disk that
// is broken) ends the lines, and so does text that goes on and on without a line end: the loader asks
// afterwards whether it was the end of the file.
#pragma once
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "kbpmfio.hpp"

namespace rawfile {

/// Characters of one line, at most: what fgets takes with a buffer of 2048. A longer line is read
/// as several, and a key can begin in the middle of it; kept for compatibility.
inline constexpr std::size_t max_line = 2047;
/// Characters without a line end that are still read as lines. No raw data file has a thousandth of
/// them; a device or a pipe that never ends a line would otherwise be read for ever.
inline constexpr std::size_t longest_unended = std::size_t{16} * 1024 * 1024;
/// Characters read ahead: few enough to be in the second-level cache still when they are scanned,
/// many enough for the call of the system not to count.
inline constexpr std::size_t usual_block = std::size_t{256} * 1024;

/// An open file; closes itself. Not copied: the file position belongs to one reader.
struct kbpmfio_stream {
  std::string path;
  // Reading
  int fd = -1;                       ///< -1: the block holds all the text there is
  std::vector<char> block;           ///< text read ahead
  std::size_t next = 0, filled = 0;  ///< block[next..filled) is still to be taken
  std::int64_t block_start = 0;      ///< file position of block[0]
  bool at_end = false;               ///< nothing more to read behind the block
  std::size_t unended = 0;           ///< characters taken since the last line end
  bool endless = false;              ///< more than longest_unended of them: reading has stopped
  int failure = 0;                   ///< errno value of the read that failed, which ended the lines
  // Writing
  std::FILE* out = nullptr;

  kbpmfio_stream() = default;
  kbpmfio_stream(const kbpmfio_stream&) = delete;
  kbpmfio_stream& operator=(const kbpmfio_stream&) = delete;
  ~kbpmfio_stream();
};

/// Opens a file for reading.
/// given    block_size  characters to read ahead; small ones are for tests
/// errors   the system's reason is what of the fault
[[nodiscard]] util::status open_for_reading(kbpmfio_stream& stream, const std::string& path,
                                            std::size_t block_size = usual_block);

/// Reads from a text in memory, which is copied.
void open_text(kbpmfio_stream& stream, std::string_view text);

/// Size of the file that is read [bytes]; nothing where it cannot tell (a pipe, a device).
std::optional<std::int64_t> size_of(const kbpmfio_stream& stream);

/// The next line with its line end, or nothing at the end of the file. Valid until the next call.
std::optional<std::string_view> next_line(kbpmfio_stream& stream);

/// All that can be had at once, at least `least` characters unless the file ends before. The caller
/// takes some by moving `next` on.
std::string_view look_ahead(kbpmfio_stream& stream, std::size_t least);

/// Why the lines ended before the file did: file, byte and the system's reason. Nothing where no read
/// failed.
[[nodiscard]] util::status read_fault(const kbpmfio_stream& stream);

/// Takes back the line that next_line gave last: it comes again.
/// note     by one line only: it is still in the block, so this needs no file that can be sought in
void put_back(kbpmfio_stream& stream, std::string_view line);

/// Number of the line that was taken last, from 1; lines that were split count as one.
/// returns  0 where the file cannot be read again (a pipe whose start has left the block)
/// note     reads the file from its start: for messages
std::int64_t line_number(const kbpmfio_stream& stream);

}  // namespace rawfile
