#include <fmt/core.h>

#include <optional>

#include "file_units.hpp"
#include "list_io.hpp"
#include "read_turn_by_turn.hpp"
#include "run_time.hpp"
#include "terminal.hpp"
#include "text.hpp"
#include "turn_text.hpp"

namespace input {
namespace {

// The number after the colon of the NUM ACTIVE line.
int active_bpms(const turn_text& run) {
  const auto colon = run.line.find(':');
  const auto count =
      colon == std::string::npos
          ? std::nullopt
          : util::scan_integer(util::trim(std::string_view{run.line}.substr(colon + 1)));
  if (!count) turn_text_error(run, "a colon and the number of active BPMs");
  return *count;
}

bool is_comment(std::string_view line) {
  return util::trim(line).empty() || line.find('#') != std::string_view::npos;
}

}  // namespace

bool read_turn_by_turn_kbpm1() {
  turn_text run;
  if (!open_turn_text(run)) return false;
  bool titled = false;
  std::optional<int> active;
  while (next_line(run)) {
    const std::string_view line{run.line};
    const auto has = [&](std::string_view text) {
      return line.find(text) != std::string_view::npos;
    };
    if (has("KOVR BPM Raw")) {  // before the BPM header, whose text it holds
      titled = true;
    } else if (is_comment(line)) {
      continue;
    } else if (!titled) {
      turn_text_error(run, "the title line \"KOVR BPM Raw\" first");
    } else if (has("NUM ACTIVE")) {
      active = active_bpms(run);
    } else if (has("KOVR BPM")) {
      begin_bpm(run);
    } else if (run.m == 0) {
      turn_text_error(run, "a \"KOVR BPM\" header before the turns");
    } else if (!take_turn(run, turn_order::signals_first)) {
      break;
    }
  }
  end_turn_text(run, "KOVR BPM : 12W");
  if (active && *active != run.m) {
    util::print_line(fmt::format(" {}: NUM ACTIVE says {} BPMs, the file holds {}",
                                 util::shown(run.path), *active, run.m));
  }
  return true;
}

}  // namespace input
