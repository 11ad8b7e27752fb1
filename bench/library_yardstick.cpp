// What the Python module is measured against: the same work asked for in C++, below the library.
//
//     library_yardstick load FILE        loads the file once, in fresh memory
//     library_yardstick calibrate N      calibrates N BPMs of 1000 orbits, one thread a processor
// Prints the seconds that it took: of processor time, and by the wall clock.
#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <string_view>
#include <thread>
#include <vector>

#include "beam_run.hpp"
#include "calibration.hpp"
#include "raw_file.hpp"
#include "table_maker.hpp"

namespace {

template <class Work>
double seconds(const Work& work) {
  const auto start = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

using columns = std::array<std::vector<double>, 4>;

// The readings of python_bench.py, seed by seed.
columns readings_of(int seed) {
  sim::beam_run run;
  run.electronics.noise = 1e-4;
  run.seed = static_cast<std::uint64_t>(seed);
  columns column;
  const auto made = sim::simulate(run);
  for (const sim::buttons& signal : made->signal) {
    for (std::size_t k = 0; k < 4; ++k) column.at(k).push_back(signal.item.at(k));
  }
  return column;
}

void calibrate_all(const std::vector<columns>& all, const nonlin_bpm_mod::table_struct& table) {
  std::atomic<std::size_t> next{0};
  std::vector<std::jthread> threads(std::max(1U, std::thread::hardware_concurrency()));
  for (auto& thread : threads) {
    thread = std::jthread([&] {
      for (std::size_t i = next++; i < all.size(); i = next++) {
        const auto& column = all[i];
        calibration::calibrate({.signal = {column[0], column[1], column[2], column[3]},
                                .set_start = {},
                                .table = &table,
                                .fits = {}});
      }
    });
  }
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 3) return 2;
  if (std::string_view{arguments[1]} == "load") {
    bool loaded = false;
    const std::clock_t start = std::clock();
    loaded = bool{rawfile::read_raw_file(arguments[2])};
    fmt::print("{}\n", static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC);
    return loaded ? 0 : 1;
  }
  const auto table = chamber_solver::table_of(sim::round_chamber());
  if (!table) return 1;
  std::vector<columns> all;
  for (int i = 0; i < std::atoi(arguments[2]); ++i) all.push_back(readings_of(i + 1));
  fmt::print("{}\n", seconds([&] { calibrate_all(all, *table); }));
}
