#include "text_block.hpp"

#include <algorithm>
#include <cstring>

namespace util {

char* room(text_block& block, std::size_t n) {
  constexpr std::size_t least = 4096;
  if (block.capacity - block.size < n) {
    // Doubled, so that a text made of many small ones is copied twice in the mean, not each time.
    const std::size_t capacity = std::max({block.size + n, 2 * block.capacity, least});
    auto memory = std::make_unique_for_overwrite<char[]>(capacity);  // NOLINT(*-c-arrays)
    if (block.size > 0) std::memcpy(memory.get(), block.memory.get(), block.size);
    block.memory = std::move(memory);
    block.capacity = capacity;
  }
  return block.memory.get() + block.size;
}

void add(text_block& block, std::string_view text) {
  char* const at = room(block, text.size());
  if (!text.empty()) std::memcpy(at, text.data(), text.size());
  block.size += text.size();
}

void add_line(text_block& block, std::string_view text) {
  char* const at = room(block, text.size() + 1);
  if (!text.empty()) std::memcpy(at, text.data(), text.size());
  at[text.size()] = '\n';
  block.size += text.size() + 1;
}

}  // namespace util
