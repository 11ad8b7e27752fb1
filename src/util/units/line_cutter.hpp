// line_cutter: cuts a stream into lines, with a limit to what may pass for a line.
//
// The library's own line reader knows no limit: /dev/zero, or a picture taken for a text, would fill
// the memory before anything could be said about it.
#pragma once
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace util {

/// Characters that a line may have. The longest line of any of our formats has a few thousand.
inline constexpr std::size_t longest_line = std::size_t{1} << 20;

/// What cutting the next line came to.
enum class line_cut {
  line,    ///< a line; a last one without a line end counts
  end,     ///< the stream has no more
  failed,  ///< reading failed; errno says why
  endless  ///< more than longest_line characters without a line end
};

/// The block in hand of one stream. The stream belongs to the caller.
struct line_cutter {
  std::vector<char> block;
  std::size_t next = 0;  ///< where in the block the next line begins
  std::size_t held = 0;  ///< characters in the block
  long number = 0;       ///< of the line cut last, from 1
  std::int64_t got = 0;  ///< characters read from the stream: where a read that fails stands
};

/// Cuts the next line; its end (LF or CR LF) is taken off.
line_cut cut_line(line_cutter& cutter, std::FILE* stream, std::string& line);

}  // namespace util
