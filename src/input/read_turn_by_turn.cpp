#include "read_turn_by_turn.hpp"

#include <array>

#include "file_units.hpp"
#include "gain_fit_mod.hpp"
#include "list_io.hpp"
#include "turn_text.hpp"

namespace input {
namespace {

constexpr const char* bunch_marker = "--- Bunch 1 ---";

bool contains(const std::string& line, const char* text) {
  return line.find(text) != std::string::npos;
}

bool begins_blank(const std::string& line) {
  constexpr std::size_t columns = 10;
  return line.substr(0, columns).find_first_not_of(' ') == std::string::npos;
}

// The four pedestals stand below two caption lines. They are checked and not used: text runs hold
// corrected signals.
void pass_pedestals(turn_text& run) {
  std::array<double, 4> pedestal{};
  for (int caption = 1; caption <= 2; ++caption) {
    if (!next_line(run)) return;
  }
  util::list_record record;
  for (double& value : pedestal) {
    util::taken got = util::take(record, value);
    while (got == util::taken::end) {  // the four may go on in the next line
      if (!next_line(run)) return;
      util::start_record(record, run.line);
      got = util::take(record, value);
    }
    if (got == util::taken::bad) turn_text_error(run, "four pedestals");
  }
}

}  // namespace

bool read_turn_by_turn() {
  turn_text run;
  if (!open_turn_text(run)) return false;
  const turn_order order =
      contains(run.path, "RDe") ? turn_order::positions_first : turn_order::signals_first;
  bool next_bpm = true;  // turn lines wait for the bunch marker
  while (next_line(run)) {
    const bool is_marker = contains(run.line, bunch_marker);
    if (contains(run.line, "Location") || contains(run.line, "LOCATION")) {
      begin_bpm(run);
      next_bpm = true;
    } else if (contains(run.line, "Pedestal")) {
      pass_pedestals(run);
    } else if ((contains(run.line, "#") && !is_marker) || begins_blank(run.line)) {
      continue;
    } else if (is_marker) {
      next_bpm = false;
    } else if (!next_bpm && !take_turn(run, order)) {
      break;
    }
  }
  end_turn_text(run, "Location : 12W");
  return true;
}

}  // namespace input
