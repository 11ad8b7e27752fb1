// Text runs of both forms, as a file and through a pipe: the same orbits, the same fault. The first
// byte says whether a plain run has its positions in front.
#include "turn_text.hpp"

#include <algorithm>
#include <string>
#include <string_view>
#include <utility>

#include "target.hpp"

namespace {

void check_same(const input::text_run& a, const input::text_run& b) {
  using fuzz::check;
  check(fuzz::same(a.data.fault, b.data.fault) && a.too_long == b.too_long);
  check(a.active == b.active && a.data.norbits == b.data.norbits);
  check(a.data.bpms.size() == b.data.bpms.size() && a.on_show.size() == b.on_show.size());
  for (std::size_t i = 0; i < a.data.bpms.size(); ++i) {
    const input::bpm_turns &p = a.data.bpms[i], &q = b.data.bpms[i];
    check(p.bpm == q.bpm && p.name == q.name && fuzz::same_bits(p.seen, q.seen));
    check(p.seen.kept <= p.seen.turns && p.seen.turns <= input::most_turn_lines);
    const int orbits = std::min(p.seen.turns, store::max_orbits);
    check(
        fuzz::same_bits(a.data.orbits.column(p.bpm, orbits), b.data.orbits.column(p.bpm, orbits)));
  }
}

}  // namespace

void fuzz::read(std::string_view text) {
  if (text.empty()) return;
  const bool positions_first = text[0] == 'x';
  text.remove_prefix(1);
  const auto plain = [&](const std::string& path) {
    auto file = util::open_text_file(path);
    check(static_cast<bool>(file));
    if (positions_first) file->path = "RDe-004567.dat";
    return input::read_plain_run(*file);
  };
  const auto older = [&](const std::string& path) {
    auto file = util::open_text_file(path);
    check(static_cast<bool>(file));
    return input::read_older_run(*file);
  };
  const auto p = both_ways(text, plain);
  check_same(p.first, p.second);
  const auto o = both_ways(text, older);
  check_same(o.first, o.second);
}
