// text_block: a growing text, made in place.
//
// Tables of a BPM have a hundred thousand numbers: they are written where the file takes them from,
// without a string for each number and a copy for each line. Other than std::string it does not fill
// its new memory before that is written.
//     char* at = util::room(text, 2 * util::real_width + 1);
//     at = util::write_exponent(at, x);
//     at = util::write_exponent(at, y);
//     *at++ = '\n';
//     util::end_at(text, at);
#pragma once
#include <cstddef>
#include <memory>
#include <string_view>

namespace util {

struct text_block {
  std::unique_ptr<char[]> memory;  // NOLINT(*-c-arrays): its end is moved by hand
  std::size_t size = 0;            ///< characters in it
  std::size_t capacity = 0;        ///< characters that fit
};

/// Makes room for n characters more; returns where they go. Addresses into the block are void.
char* room(text_block& block, std::size_t n);

/// The block ends here: behind what was written into the room.
inline void end_at(text_block& block, const char* end) {
  block.size = static_cast<std::size_t>(end - block.memory.get());
}

/// Appends a text, or a text and a line end.
void add(text_block& block, std::string_view text);
void add_line(text_block& block, std::string_view text);

/// What is in it; valid until it grows.
inline std::string_view view(const text_block& block) { return {block.memory.get(), block.size}; }

}  // namespace util
