#include "line_cutter.hpp"

#include <cerrno>
#include <string_view>

namespace util {
namespace {

// Read at once. Beyond some 16 KiB the calls no longer count beside looking for the line ends.
constexpr std::size_t block_size = 65536;

line_cut refill(line_cutter& cutter, std::FILE* stream) {
  cutter.block.resize(block_size);
  errno = 0;
  cutter.next = 0;
  cutter.held = std::fread(cutter.block.data(), 1, block_size, stream);
  cutter.got += static_cast<std::int64_t>(cutter.held);
  if (std::ferror(stream) != 0) return line_cut::failed;
  return cutter.held > 0 ? line_cut::line : line_cut::end;
}

// Moves what the block holds of the current line to the line; whether that was the rest of it.
bool take_from_block(line_cutter& cutter, std::string& line) {
  const std::string_view block{cutter.block.data() + cutter.next, cutter.held - cutter.next};
  const std::size_t end = block.find('\n');
  line += block.substr(0, end);
  const bool ended = end != std::string_view::npos;
  cutter.next = ended ? cutter.next + end + 1 : cutter.held;
  return ended;
}

}  // namespace

line_cut cut_line(line_cutter& cutter, std::FILE* stream, std::string& line) {
  line.clear();
  if (cutter.next == cutter.held) {
    const line_cut first = refill(cutter, stream);
    if (first != line_cut::line) return first;
  }
  ++cutter.number;
  // The limit is looked at block by block: a line grows by no more than one block beyond it.
  while (!take_from_block(cutter, line) && line.size() <= longest_line) {
    const line_cut more = refill(cutter, stream);
    if (more == line_cut::failed) return more;
    if (more == line_cut::end) break;
  }
  if (line.size() > longest_line) return line_cut::endless;
  // One only: what stands before it is the line's own.
  if (!line.empty() && line.back() == '\r') line.pop_back();
  return line_cut::line;
}

}  // namespace util
