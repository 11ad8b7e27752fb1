// Command files of closed orbits, as a group of values and as a list of pairs; what was read is
// written as the shortest such file and read back the same.
#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>

#include "command_file.hpp"
#include "target.hpp"

namespace {

struct group_read {
  input::command values;
  util::status fault;
};

group_read read_group(const std::string& path) {
  group_read g;
  g.fault = input::read_command_group(path, g.values);
  return g;
}

bool same_values(const input::command& a, const input::command& b) {
  return a.fit_bpm_idx.item == b.fit_bpm_idx.item && a.orbit.item == b.orbit.item &&
         a.read_current_from_butns_file == b.read_current_from_butns_file &&
         a.sigma_cutoff == b.sigma_cutoff && a.chisq_cutoff == b.chisq_cutoff;
}

std::string written(const input::command& c) {
  std::string text = fmt::format(
      "&bpm_gain_anal_params sigma_cutoff={} chisq_cutoff = {}\nREAD_CURRENT_FROM_BUTNS_FILE={}\n",
      c.sigma_cutoff, c.chisq_cutoff, c.read_current_from_butns_file ? 'T' : 'F');
  // Behind the last one all are 0 of themselves.
  const auto last = std::find_if(c.orbit.item.rbegin(), c.orbit.item.rend(),
                                 [](std::int32_t number) { return number != 0; });
  text += "Orbit = ";
  for (auto number = c.orbit.item.begin(); number != last.base(); ++number) {
    text += fmt::format("{}, ", *number);
  }
  text += "\nfit_bpm_idx(0:) = ";
  for (const auto bpm : c.fit_bpm_idx.item) text += fmt::format("{} ", bpm);
  return text + "&end";
}

void check_group(std::string_view text) {
  const auto [file, pipe] = fuzz::both_ways(text, read_group);
  fuzz::check(fuzz::same(file.fault, pipe.fault) && same_values(file.values, pipe.values));
  const group_read again = read_group(fuzz::held(written(file.values), fuzz::way::file));
  fuzz::check(!again.fault && same_values(file.values, again.values));
}

void check_pairs(std::string_view text) {
  const auto [file, pipe] = fuzz::both_ways(text, input::read_orbit_pairs);
  fuzz::check(fuzz::same(file.fault, pipe.fault) && file.orbits == pipe.orbits);
  fuzz::check(file.left_out.size() == pipe.left_out.size());
  fuzz::check(file.orbits.size() <= input::max_listed);
  std::string lines;
  // Without a fault they are whole pairs; with one the last may be half a pair.
  for (std::size_t i = 0; i + 1 < file.orbits.size(); i += 2) {
    lines += fmt::format("{} {} 1.0 0\n", file.orbits[i], file.orbits[i + 1]);
  }
  const auto again = input::read_orbit_pairs(fuzz::held(lines, fuzz::way::file));
  fuzz::check(!again.fault && again.left_out.empty() && again.orbits == file.orbits);
}

}  // namespace

void fuzz::read(std::string_view text) {
  const auto [file, pipe] = both_ways(text, input::kind_of_command);
  check(file.value == pipe.value);
  check_group(text);
  check_pairs(text);
}
