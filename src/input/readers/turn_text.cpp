#include "turn_text.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "file_units.hpp"
#include "gain_fit_mod.hpp"
#include "list_io.hpp"
#include "note.hpp"
#include "run_time.hpp"
#include "terminal.hpp"
#include "text.hpp"

namespace input {
namespace {

namespace fit = gain_fit_mod;

constexpr double two_pi = 6.283185307179586;
constexpr int phase_steps = 512;  // of a full turn of the shaker's phase

/// One turn line.
struct turn_values {
  util::bounded<double, 1, 4, "button"> button{};
  util::bounded<std::int32_t, 1, 2, "phase"> phase{};
  util::bounded<double, 1, 2, "position"> position{};
};

template <class Value, std::size_t n>
bool take_all(util::list_record& record, std::array<Value, n>& values) {
  return std::all_of(values.begin(), values.end(), [&](Value& v) {
    const util::taken got = util::take(record, v);
    return got != util::taken::bad && got != util::taken::end;
  });
}

bool take_values(const std::string& line, turn_order order, turn_values& turn) {
  util::list_record record;
  util::start_record(record, line);
  if (order == turn_order::positions_first && !take_all(record, turn.position.item)) return false;
  if (!take_all(record, turn.button.item) || !take_all(record, turn.phase.item)) return false;
  return order == turn_order::positions_first || take_all(record, turn.position.item);
}

void store_turn(const turn_text& run, const turn_values& turn) {
  store::bpm_struct& at = fit::orbit_data.edit(run.i, fit::bpm);
  for (int j = 1; j <= 4; ++j) at.button(j) = std::abs(turn.button(j) * counts_per_signal);
  at.x = turn.position(1);
  at.y = turn.position(2);
  at.phase_h = turn.phase(1) * two_pi / phase_steps;
  at.phase_v = turn.phase(2) * two_pi / phase_steps;
  fit::norbits = run.i;
  if (run.i == 1 && fit::bpm == 50) {
    util::list_line shown;
    shown.integer(run.i).integer(fit::bpm);
    for (int j = 1; j <= 4; ++j) shown.real(at.button(j));
    util::print_line(shown.str());
  }
}

}  // namespace

bool open_turn_text(turn_text& run) {
  constexpr std::string_view archive = "/archive";
  fit::norbits = 0;
  run.path = fit::in_file.trimmed();
  const int failed = util::open_old(turn_text_unit, run.path);
  if (failed == 0) return true;
  const std::string first_name = run.path;
  if (const auto at = run.path.find(archive); at != std::string::npos) {
    run.path.erase(at, archive.size());
    util::print_line(" " + run.path);
    if (util::open_old(turn_text_unit, run.path) == 0) return true;
  }
  util::print_line(fmt::format(" cannot open {}: {}; type a run number of 4 to 6 digits or a file",
                               first_name, util::system_text(failed)));
  return false;
}

bool next_line(turn_text& run) {
  if (!util::read_line(turn_text_unit, run.line)) return false;
  if (run.line.size() > turn_text_width) run.line.resize(turn_text_width);
  ++run.number;
  return true;
}

void end_turn_text(const turn_text& run, std::string_view header) {
  end_bpm(run);
  util::close_unit(turn_text_unit);
  if (run.m > 0) return;
  note(fmt::format("{}: no BPM in {} lines, expected one to begin with a line such as \"{}\"",
                   run.path, run.number, header));
}

void turn_text_error(const turn_text& run, std::string_view expected) {
  util::run_time_error(fmt::format("{}:{}: expected {}, found \"{}\"", util::shown(run.path),
                                   run.number, expected, util::shown(run.line)));
}

void end_bpm(const turn_text& run) {
  if (run.m == 0) return;
  const auto name = fit::bpm_names(fit::bpm).trimmed();
  store::remark_unless_kept(fit::bpm, name, run.seen, weakest_signal);
}

void begin_bpm(turn_text& run) {
  end_bpm(run);
  constexpr std::string_view expected = "a colon, a blank and a BPM location such as 12W or 34E";
  const auto colon = run.line.find(':');
  if (colon == std::string::npos) turn_text_error(run, expected);
  util::list_record record;
  util::start_record(record, run.line.substr(std::min(colon + 2, run.line.size())));
  std::string location;
  if (util::take(record, location) != util::taken::value) turn_text_error(run, expected);
  const auto number = util::scan_integer(std::string_view{location}.substr(0, location.size() - 1));
  if (!number) turn_text_error(run, expected);
  fit::bpm = location.back() == 'E' ? 99 - *number : *number;
  fit::dets(++run.m) = fit::bpm;
  fit::bpm_names(fit::bpm) = std::string_view{location};
  run.i = 0;
  run.seen = {};
}

bool take_turn(turn_text& run, turn_order order) {
  if (++run.i > most_turn_lines) {
    // The text's limit is not the one in force: kept for compatibility.
    util::print_line(" i > 1000 in subroutine read_turn_by_turn ");
    return false;
  }
  // Every turn has a current, kept or not: the orbits of a BPM are moved together later, their
  // currents are not. Turns beyond the store may be read as long as none of them is kept.
  if (run.i <= store::max_orbits) fit::orbit_data.edit_current(run.i) = 1.0;
  turn_values turn;
  if (!take_values(run.line, order, turn)) {
    turn_text_error(run, order == turn_order::signals_first
                             ? "four signals, two whole phases, x and y"
                             : "x, y, four signals and two whole phases");
  }
  if (store::count_turn(run.seen, turn.button, weakest_signal)) store_turn(run, turn);
  return true;
}

}  // namespace input
