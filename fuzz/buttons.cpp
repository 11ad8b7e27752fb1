// A button file of one closed orbit, as a file and through a pipe; what was read is written and read
// back the same.
#include <fmt/format.h>

#include <string>
#include <string_view>

#include "button_file.hpp"
#include "target.hpp"

namespace {

struct taken {
  input::button_file file;
  store::orbit_store orbits{"orbit_data"};
};

taken read_one(const std::string& path) {
  taken t;
  t.file = input::read_button_file(path, 1, t.orbits);
  return t;
}

void check_same(const taken& a, const taken& b) {
  using fuzz::check;
  check(a.file.current == b.file.current);
  for (int bpm = 0; bpm <= input::last_button_bpm; ++bpm) {
    check(a.orbits.holds(bpm) == b.orbits.holds(bpm));
    check(fuzz::same_bits(a.orbits.column(bpm, 1), b.orbits.column(bpm, 1)));
  }
}

std::string written(const taken& t) {
  std::string text = "c written by a test of its reader\n";
  if (t.file.current) text += fmt::format("E T1      {:.17g}\n", *t.file.current);
  for (int bpm = 0; bpm <= input::last_button_bpm; ++bpm) {
    if (!t.orbits.holds(bpm)) continue;
    const auto& b = t.orbits(1).detector(bpm).button;
    text += fmt::format("{} {:.17g} {:.17g} {:.17g} {:.17g}\n", bpm, b(1), b(2), b(3), b(4));
  }
  return text;
}

}  // namespace

void fuzz::read(std::string_view text) {
  const auto [file, pipe] = both_ways(text, read_one);
  check(same(file.file.fault, pipe.file.fault) && file.file.bpms == pipe.file.bpms);
  check_same(file, pipe);
  check_same(file, read_one(held(written(file), way::file)));
}
