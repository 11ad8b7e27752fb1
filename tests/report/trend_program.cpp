// trend_program BPMS RUNS SEED DIRECTORY [quiet]: folders of runs to look at, with changes planted.
#include <fmt/format.h>

#include <cstdlib>

#include "made_runs.hpp"

int main(int count, char** arguments) {
  if (count < 5) return 2;
  made::many_runs runs{.bpms = std::atoi(arguments[1]),
                       .runs = std::atoi(arguments[2]),
                       .seed = static_cast<unsigned>(std::atoi(arguments[3]))};
  if (count == 5) {
    const int middle = runs.runs * 3 / 5;
    runs.changes = {{.bpm = 7, .button = 2, .step = 5e-3, .at_run = middle},
                    {.bpm = 31, .button = 0, .step = -5e-3, .at_run = 12},
                    {.bpm = 12, .button = 1, .drift = 1e-3}};
  }
  made::write_runs(arguments[4], runs);
  return 0;
}
