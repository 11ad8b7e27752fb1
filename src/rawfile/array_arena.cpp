#include "array_arena.hpp"

#include <sys/mman.h>

#include <cstdint>
#include <mutex>
#include <utility>

namespace rawfile {
namespace {

// Of x86-64. Where they have another size, or there are none, the alignment does no harm.
constexpr std::size_t huge_page = std::size_t{2} * 1024 * 1024;

std::size_t whole_pages(std::size_t bytes) {
  return (bytes + huge_page - 1) / huge_page * huge_page;
}

// The arrays of a usual run are 23 MB; what is larger goes back to the system at once.
constexpr std::size_t largest_spare = std::size_t{64} * 1024 * 1024;

struct mapping {
  std::byte* base = nullptr;
  std::size_t capacity = 0;
};

// The last memory that was given back. A program that reads one file after the other, as a notebook
// does, would else clear the same 23 MB again for each: a sixth of the time of a load.
struct spare_mapping {
  std::mutex mutex;
  mapping held;
};
spare_mapping& spare() {
  static spare_mapping& the_one = *new spare_mapping;  // files may live longer than destructors run
  return the_one;
}

mapping exchange_spare(mapping now) {
  spare_mapping& all = spare();
  const std::lock_guard lock(all.mutex);
  return std::exchange(all.held, now);
}

void unmap(mapping m) {
  if (m.capacity > 0) munmap(m.base, m.capacity);
}

// Kept small against the arrays at hand: memory is at most 1.3 times theirs.
bool fits(std::size_t capacity, std::size_t wanted) {
  return capacity >= wanted && capacity <= wanted + wanted / 4;
}

}  // namespace

array_arena::~array_arena() { release(*this); }

bool reserve(array_arena& arena, std::size_t bytes) {
  const std::size_t wanted = whole_pages(bytes);
  if (arena.capacity < wanted) {
    // First, so that the old and the new memory are never held together.
    unmap({std::exchange(arena.base, nullptr), std::exchange(arena.capacity, 0)});
    const mapping again = exchange_spare({});
    if (fits(again.capacity, wanted)) {
      arena.base = again.base;
      arena.capacity = again.capacity;
      return true;
    }
    unmap(again);
    // One page more than wanted, to begin and end on a boundary of huge pages.
    const std::size_t mapped = wanted + huge_page;
    void* memory =
        mmap(nullptr, mapped, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) return false;
    auto* const start = static_cast<std::byte*>(memory);
    const std::size_t behind = reinterpret_cast<std::uintptr_t>(start) % huge_page;
    const std::size_t skipped = behind == 0 ? 0 : huge_page - behind;
    if (skipped > 0) munmap(start, skipped);
    if (skipped < huge_page) munmap(start + skipped + wanted, huge_page - skipped);
    arena.base = start + skipped;
    arena.capacity = wanted;
    // Only a wish: without huge pages everything works, more slowly. With them 24 MB take 12 page
    // faults instead of 6000.
    madvise(arena.base, wanted, MADV_HUGEPAGE);
  } else if (!fits(arena.capacity, wanted)) {
    munmap(arena.base + wanted, arena.capacity - wanted);
    arena.capacity = wanted;
    if (wanted == 0) arena.base = nullptr;
  }
  return true;
}

void release(array_arena& arena) {
  mapping old{std::exchange(arena.base, nullptr), std::exchange(arena.capacity, 0)};
  if (old.capacity == 0) return;
  // The system may have it whenever it is short of memory: a program that has read one file does not
  // hold on to it. Until then the next file finds it as it was.
  if (old.capacity <= largest_spare && madvise(old.base, old.capacity, MADV_FREE) == 0) {
    old = exchange_spare(old);
  }
  unmap(old);
}

}  // namespace rawfile
