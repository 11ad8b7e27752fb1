#include "note.hpp"

#include <fmt/core.h>

#include <cstdio>

#include "progress.hpp"
#include "run_time.hpp"
#include "text.hpp"

namespace input {

void note(std::string_view what) {
  std::fflush(stdout);  // on a terminal the note belongs behind the question that led to it
  util::erase_progress();
  fmt::print(stderr, "{}: {}\n", util::program_name, util::shown(what));
}

}  // namespace input
