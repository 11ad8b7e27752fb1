// Plots BPMs first..last with made-up gains and prints them: what plot_copies.py looks at.
//     plot_program DATA_FILE FIRST LAST < answers
#include <fmt/format.h>

#include <cstddef>
#include <cstdlib>
#include <span>

#include "gain_fit_mod.hpp"
#include "plot_gains.hpp"
#include "standard_output.hpp"

namespace {
driver::gains_plotted gains;
driver::indices_plotted bpms;
}  // namespace

int main(int count, char** arguments) {
  const std::span<char*> given(arguments, static_cast<std::size_t>(count));
  gain_fit_mod::in_file_0.assign(given[1]);
  const int first = std::atoi(given[2]);
  const int last = std::atoi(given[3]);
  int point = 0;
  for (int bpm = first; bpm <= last; ++bpm) {
    ++point;
    for (int k = 1; k <= 4; ++k) {
      gains(k, point) = 0.85 + (0.1 * (k - 1)) + (0.005 * ((7 * bpm + 3 * k) % 9));
      bpms(k, point) = bpm;
      util::print_line(fmt::format("mark {} {:.6f}", bpm, gains(k, point)));
    }
  }
  driver::plot_gains(last, first, gains, bpms, point, ".", "Button gains");
}
