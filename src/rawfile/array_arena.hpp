// One piece of memory for all arrays of a loaded file.
//
// Fresh pages are half of the time of a load, so the arrays of all instruments lie in one mapping,
// on huge pages where the system gives them, and the next load uses it again. So does the next file
// when the one before was given up: the last memory of usual size stays mapped, as memory that the
// system may take whenever it needs some.
#pragma once
#include <cstddef>

namespace rawfile {

/// A mapping of the system; gives itself back.
struct array_arena {
  std::byte* base = nullptr;
  std::size_t capacity = 0;  ///< bytes mapped

  array_arena() = default;
  array_arena(const array_arena&) = delete;
  array_arena& operator=(const array_arena&) = delete;
  ~array_arena();
};

/// Makes the arena hold so many bytes. What it held before is lost; what is in the memory is anything:
/// zero where it is new, not where it is used again. An arena much larger than needed gives back what is too much.
/// returns  whether the system had the memory; without it the arena is empty
bool reserve(array_arena& arena, std::size_t bytes);

/// Gives everything back. Safe on several threads, for arenas of their own.
void release(array_arena& arena);

}  // namespace rawfile
