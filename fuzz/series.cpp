// A file of a synthetic series: read as a file and through a pipe; what was read, written with
// blanks (which the quick reader takes) and with commas (which it does not), is read back the same.
#include <fmt/format.h>

#include <string>
#include <string_view>

#include "series_file.hpp"
#include "target.hpp"

namespace {

struct taken {
  input::series_file file;
  input::series_values values;
  store::orbit_store orbits{"orbit_data"};
};

taken read_one(const std::string& path) {
  taken t;
  t.file = input::read_series_file(path, 1, t.values, t.orbits);
  return t;
}

void check_orbits(const taken& a, const taken& b) {
  fuzz::check(a.file.orbits == b.file.orbits);
  fuzz::check(
      fuzz::same_bits(a.orbits.column(1, a.file.orbits), b.orbits.column(1, b.file.orbits)));
}

std::string written(const taken& t, std::string_view separator) {
  std::string text;
  for (const store::bpm_struct& o : t.orbits.column(1, t.file.orbits)) {
    text += fmt::format("{:.17g}{}{:.17g}", o.x, separator, o.y);
    for (int i = 1; i <= 4; ++i) text += fmt::format("{}{:.0f}", separator, o.button(i));
    for (int i = 1; i <= 4; ++i) text += fmt::format("{}{:.17g}", separator, o.true_gain(i));
    text += '\n';
  }
  return text;
}

}  // namespace

void fuzz::read(std::string_view text) {
  const auto [file, pipe] = both_ways(text, read_one);
  check_orbits(file, pipe);
  check(same(file.file.fault, pipe.file.fault) && view(file.file.echo) == view(pipe.file.echo));
  check(input::unusable_line("f", file.file) == input::unusable_line("f", pipe.file));
  if (file.file.orbits == 0) return;
  for (const std::string_view separator : {" ", " , "}) {
    const taken again = read_one(held(written(file, separator), way::file));
    check(!again.file.fault && !again.file.unusable.first);
    check_orbits(file, again);
  }
}
