#include "tell.hpp"

#include <fmt/core.h>

#include <cstdio>

#include "run_time.hpp"

namespace rawfile {

void tell(const util::fault& fault) {
  // Without it the line could stand before the output that led to it, where both go to one place.
  std::fflush(stdout);
  fmt::print(stderr, "{}: {}\n", util::program_name, util::line_of(fault));
}

}  // namespace rawfile
