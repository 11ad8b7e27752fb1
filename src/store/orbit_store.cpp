#include "orbit_store.hpp"

#include <sys/mman.h>

#include <cstddef>

namespace store {
namespace {

constexpr std::size_t column_size = max_orbits * sizeof(bpm_struct);

// What reading gives where nothing was written: one reading of zeros for all of them, so that
// looking at an orbit allocates nothing.
const bpm_struct untouched{};

void check_orbit(const orbit_store& s, int orbit) {
  if (orbit < 1 || orbit > max_orbits) util::subscript_error(s.name, orbit, 1, max_orbits);
}

void check_bpm(int bpm) {
  if (bpm < 0 || bpm > max_bpm) util::subscript_error("detector", bpm, 0, max_bpm);
}

bpm_struct* column_of(const orbit_store& s, int bpm) {
  const auto i = static_cast<std::size_t>(bpm);
  return i < s.columns.size() ? s.columns[i].get() : nullptr;
}

bpm_struct* make_column(orbit_store& s, int bpm) {
  const auto i = static_cast<std::size_t>(bpm);
  // A pointer for each BPM up to the highest in use: 40 kB for the last of 5000.
  if (i >= s.columns.size()) s.columns.resize(i + 1);
  if (!s.columns[i]) {
    // Untouched zero pages: a column of 100 orbits costs three of them, although its address range
    // holds all 3000, and the column never moves. From the system itself: the heap would clear memory
    // that somebody had before, and so touch all of it.
    void* memory =
        mmap(nullptr, column_size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED)
      util::run_time_error("out of memory: no room for the orbits of one BPM");
    s.columns[i].reset(static_cast<bpm_struct*>(memory));
  }
  return s.columns[i].get();
}

}  // namespace

const bpm_struct& orbit_struct::detector(int bpm) const {
  check_bpm(bpm);
  const bpm_struct* column = column_of(*of, bpm);
  return column == nullptr ? untouched : column[orbit - 1];
}

double orbit_struct::current() const { return of->current_of(orbit); }

orbit_struct orbit_store::operator()(int orbit) const {
  check_orbit(*this, orbit);
  return {this, orbit};
}

bpm_struct& orbit_store::edit(int orbit, int bpm) {
  check_orbit(*this, orbit);
  check_bpm(bpm);
  return make_column(*this, bpm)[orbit - 1];
}

double& orbit_store::edit_current(int orbit) {
  check_orbit(*this, orbit);
  return current_of(orbit);
}

std::span<const bpm_struct> orbit_store::column(int bpm, int norbits) const {
  check_bpm(bpm);
  if (norbits != 0) check_orbit(*this, norbits);  // no orbits is no fault: a fresh store has none
  const bpm_struct* column = column_of(*this, bpm);
  return column == nullptr ? std::span<const bpm_struct>{}
                           : std::span{column, static_cast<std::size_t>(norbits)};
}

std::span<bpm_struct> orbit_store::edit_column(int bpm, int norbits) {
  check_bpm(bpm);
  if (norbits != 0) check_orbit(*this, norbits);
  return {make_column(*this, bpm), static_cast<std::size_t>(norbits)};
}

bool orbit_store::holds(int bpm) const {
  check_bpm(bpm);
  return column_of(*this, bpm) != nullptr;
}

void orbit_store::take_column(orbit_store& from, int bpm) {
  check_bpm(bpm);
  const auto i = static_cast<std::size_t>(bpm);
  if (i >= columns.size()) columns.resize(i + 1);
  // Moved, not copied: a column of 3000 orbits is 288 kB, and a session hands over all BPMs.
  columns[i] = i < from.columns.size() ? std::move(from.columns[i]) : column_memory{};
}

void orbit_store::free_memory::operator()(bpm_struct* column) const {
  static_cast<void>(munmap(column, column_size));
}

void orbit_store::clear() {
  columns.clear();
  current_of.fill(0);
}

}  // namespace store
