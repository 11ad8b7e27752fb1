// Four fits of one BPM: the literal form, ours with every instruction set of this machine, and the
// general fitters that were found when this was built. All on the same data, one after the other in
// every round, so that what else the machine does meets all alike. Read ratios, not times.
//
//     fit_bench [rounds]        the table
//     fit_bench once NAME [N [MM]]   four fits by one contestant, for profilers
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>
#include <string_view>
#include <vector>

#include "beam.hpp"
#include "fit_gains.hpp"
#include "fit_peers.hpp"
#include "gain_batch.hpp"

namespace {
using namespace gain_fit_mod;

// Sums of squares that the four fits ended at, added up.
using contestant = double (*)();

std::vector<signals> readings;

double our_four_fits(const fit_manner& manner) {
  return fit_readings(readings, manner).fit.back().chisq;
}

struct entry {
  std::string name;
  contestant run;
};

std::vector<entry> contestants() {
  std::vector<entry> all{
      {"literal", [] { return our_four_fits({.literal = true}); }},
      {"ours, generic", [] { return our_four_fits({.instruction_set = "generic"}); }}};
  for (const auto set : instruction_sets())
    if (set == "avx2")
      all.push_back({"ours, avx2", [] { return our_four_fits({.instruction_set = "avx2"}); }});
  for (const auto& [name, run] : peers::all()) all.push_back({name, run});
  return all;
}

void load(int orbits, double range) {
  beam::fill_store({.half_range_x = range,
                    .half_range_y = range,
                    .noise = 1e-4,
                    .orbits = orbits,
                    .true_gain = {{1.04, 0.97, 1.01, 0.93}}});
  readings = current_readings();
}

double median(std::vector<double> values) {
  std::ranges::sort(values);
  return values[values.size() / 2];
}

double seconds(contestant run, double& chisq) {
  const auto start = std::clock();
  chisq = run();
  return static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC;
}

void compare(std::FILE* table, int rounds, int orbits, double range) {
  load(orbits, range);
  const auto all = contestants();
  std::vector<std::vector<double>> times(all.size());
  std::vector<double> chisq(all.size());
  for (int round = 0; round < rounds; ++round)
    for (std::size_t i = 0; i < all.size(); ++i) times[i].push_back(seconds(all[i].run, chisq[i]));
  const double unit = median(times[0]);
  fmt::print(table, "\n{} orbits, +-{} mm, medians of {} rounds\n", orbits, range, rounds);
  fmt::print(table, "{:<24}{:>10}{:>18}{:>22}\n", "", "CPU ms", "times faster",
             "chi-square reached");
  for (std::size_t i = 0; i < all.size(); ++i)
    fmt::print(table, "{:<24}{:>10.2f}{:>18.1f}{:>22.8e}\n", all[i].name, 1e3 * median(times[i]),
               unit / median(times[i]), chisq[i]);
  std::fflush(table);
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> words(argv + 1, argv + argc);
  // Fitters may print: the table goes where standard output was.
  std::FILE* table = fdopen(dup(STDOUT_FILENO), "w");
  if (table == nullptr || std::freopen("/dev/null", "w", stdout) == nullptr) return 1;
  if (!words.empty() && words[0] == "once") {
    load(words.size() > 2 ? std::atoi(words[2].c_str()) : 1000,
         words.size() > 3 ? std::atof(words[3].c_str()) : 9);
    for (const auto& [name, run] : contestants())
      if (words.size() > 1 && name == words[1]) fmt::print(table, "{} {:.8e}\n", name, run());
    return 0;
  }
  const int rounds = words.empty() ? 5 : std::atoi(words[0].c_str());
  for (const int orbits : {1000, 3000})
    for (const double range : {9.0, 14.0}) compare(table, rounds, orbits, range);
  return 0;
}
