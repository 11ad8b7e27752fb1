// A chamber file, as a text, as a file and through a pipe: the same chamber, with a closed wall that
// has a length, and buttons on it beside one another.
#include <cmath>
#include <string>
#include <string_view>

#include "chamber_file.hpp"
#include "target.hpp"

namespace {

using namespace chamber_solver;

void check_chamber(const chamber& c) {
  using fuzz::check;
  check(std::isfinite(c.contour.length) && c.contour.length > 0);
  check(!c.name.empty() && overlap_of(c).empty() && c.margin > 0);
  for (const button_on_wall& b : c.button) {
    check(b.s >= 0 && b.s <= c.contour.length && b.half > 0 && b.moved <= most_moved);
  }
  const wall_place first = place_at(c.contour, 0), last = place_at(c.contour, c.contour.length);
  check(std::abs(first.z - last.z) <= 1e-6 * c.contour.length);
}

bool same_chamber(const chamber& a, const chamber& b) {
  return a.name == b.name && a.about == b.about && a.contour.length == b.contour.length &&
         a.x.last == b.x.last && a.y.n == b.y.n && a.margin == b.margin &&
         a.button[3].s == b.button[3].s && a.solver.panels == b.solver.panels;
}

}  // namespace

void fuzz::read(std::string_view text) {
  const auto [file, pipe] = both_ways(text, read_chamber);
  const auto parsed = parse_chamber(text, "/proc/self/fd/700");
  check(file.value.has_value() == pipe.value.has_value());
  check(file.value.has_value() == parsed.value.has_value());
  if (!file) return check(same(file.why, pipe.why) && same(file.why, parsed.why));
  check(same_chamber(*file, *pipe) && same_chamber(*file, *parsed));
  check_chamber(*file);
}
