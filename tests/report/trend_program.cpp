// trend_program BPMS RUNS SEED DIRECTORY [quiet|many]: folders of runs to look at, with changes
// planted: three, none, or a lot.
#include <fmt/format.h>

#include <cstdlib>
#include <string_view>

#include "made_runs.hpp"

int main(int count, char** arguments) {
  if (count < 5) return 2;
  made::many_runs runs{.bpms = std::atoi(arguments[1]),
                       .runs = std::atoi(arguments[2]),
                       .seed = static_cast<unsigned>(std::atoi(arguments[3]))};
  const std::string_view kind = count > 5 ? arguments[5] : "";
  for (int i = 1; kind == "many" && i <= runs.bpms / 2; ++i) {
    const int button = i % 4;
    runs.changes.push_back({.bpm = i, .button = button, .step = 1e-3 * i, .at_run = 7 * i});
    if (i % 3 == 0) runs.changes.push_back({.bpm = i, .button = 1, .step = -4e-3, .at_run = 9 * i});
    if (i % 5 == 0) runs.changes.push_back({.bpm = i, .button = button, .drift = -2e-4});
  }
  if (kind.empty()) {
    const int middle = runs.runs * 3 / 5;
    runs.changes = {{.bpm = 7, .button = 2, .step = 5e-3, .at_run = middle},
                    {.bpm = 31, .button = 0, .step = -5e-3, .at_run = 12},
                    {.bpm = 12, .button = 1, .drift = 1e-3}};
  }
  made::write_runs(arguments[4], runs);
  return 0;
}
