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

void end_run(const util::fault& why) { util::run_time_error(util::shown(util::line_of(why))); }

}  // namespace input
