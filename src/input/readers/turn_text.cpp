#include "turn_text.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <string>
#include <string_view>

#include "list_io.hpp"
#include "text.hpp"

namespace input {
namespace {

constexpr double two_pi = 6.283185307179586;
constexpr int phase_steps = 512;  // of a full turn of the shaker's phase: a field of 9 bits
constexpr int east_end = 99;      // 12E is BPM 99 - 12

// Where the values stand in a turn line.
enum class turn_order { signals_first, positions_first };

// A run while it is read.
struct reading {
  util::text_file& file;
  text_run run;
  int i = 0;  // turn lines of the current BPM so far
};

// One turn line.
struct turn_values {
  util::bounded<double, 1, 4, "button"> button{};
  util::bounded<std::int32_t, 1, 2, "phase"> phase{};
  util::bounded<double, 1, 2, "position"> position{};
};

bool contains(std::string_view line, std::string_view text) {
  return line.find(text) != std::string_view::npos;
}

bool next_run_line(util::text_file& file) {
  if (!util::next_line(file)) return false;
  // Cut before anything is looked for: a marker that stands beyond the width does not count.
  if (file.line.size() > turn_text_width) file.line.resize(turn_text_width);
  return true;
}

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

// Begins the section of a BPM whose location stands in the current line, from two characters after
// the first colon on.
util::status begin_bpm(reading& at) {
  constexpr std::string_view expected = "a colon, a blank and a BPM location such as 12W or 34E";
  const std::string& line = at.file.line;
  const auto colon = line.find(':');
  if (colon == std::string::npos) return util::line_fault(at.file, expected);
  util::list_record record;
  util::start_record(record, line.substr(std::min(colon + 2, line.size())));
  std::string location;
  if (util::take(record, location) != util::taken::value || location.empty()) {
    return util::line_fault(at.file, expected);
  }
  const auto number = util::scan_integer(std::string_view{location}.substr(0, location.size() - 1));
  if (!number) return util::line_fault(at.file, expected);
  // In 64 bits: any number can stand in a file.
  const std::int64_t bpm = location.back() == 'E' ? east_end - std::int64_t{*number} : *number;
  if (bpm < 0 || bpm > store::max_bpm) return bounds_fault("bpm_names", bpm, 0, store::max_bpm);
  at.run.data.bpms.push_back({static_cast<int>(bpm), location, {}});
  at.i = 0;
  return {};
}

void store_turn(const turn_values& turn, store::bpm_struct& reading) {
  for (int j = 1; j <= 4; ++j) reading.button(j) = std::abs(turn.button(j) * counts_per_signal);
  reading.x = turn.position(1);
  reading.y = turn.position(2);
  reading.phase_h = turn.phase(1) * two_pi / phase_steps;
  reading.phase_v = turn.phase(2) * two_pi / phase_steps;
}

// Takes the current line as the next turn of the current BPM; keeps it when it is strong enough.
util::status take_turn(reading& at, turn_order order) {
  turn_data& data = at.run.data;
  if (++at.i > most_turn_lines) {
    at.run.too_long = true;
    return {};
  }
  // Every turn has a current, kept or not: the orbits of a BPM are moved together later, their
  // currents are not. Turns beyond the store may be read as long as none of them is kept.
  if (at.i <= store::max_orbits) data.orbits.edit_current(at.i) = 1.0;
  turn_values turn;
  if (!take_values(at.file.line, order, turn)) {
    return util::line_fault(at.file, order == turn_order::signals_first
                                         ? "four signals, two whole phases, x and y"
                                         : "x, y, four signals and two whole phases");
  }
  bpm_turns& section = data.bpms.back();
  if (!store::count_turn(section.seen, turn.button, weakest_signal)) return {};
  if (at.i > store::max_orbits) return bounds_fault(data.orbits.name, at.i, 1, store::max_orbits);
  store::bpm_struct& kept = data.orbits.edit(at.i, section.bpm);
  store_turn(turn, kept);
  data.norbits = at.i;
  if (at.i == 1 && section.bpm == bpm_on_show) at.run.on_show.push_back(kept);
  return {};
}

// --- the plain form ------------------------------------------------------------------------------

bool begins_blank(std::string_view line) {
  constexpr std::size_t columns = 10;
  return line.substr(0, columns).find_first_not_of(' ') == std::string_view::npos;
}

// The four pedestals stand below two caption lines. They are checked and not used: text runs hold
// corrected signals.
util::status pass_pedestals(reading& at) {
  for (int caption = 1; caption <= 2; ++caption) {
    if (!next_run_line(at.file)) return {};
  }
  util::list_record record;
  for (int i = 1; i <= 4; ++i) {
    double value = 0;
    util::taken got = util::take(record, value);
    while (got == util::taken::end) {  // the four may go on in the next line
      if (!next_run_line(at.file)) return {};
      util::start_record(record, at.file.line);
      got = util::take(record, value);
    }
    if (got == util::taken::bad) return util::line_fault(at.file, "four pedestals");
  }
  return {};
}

// One line of the plain form. The order of the questions is part of the format: a line can be
// several of these things, and the first one holds.
util::status take_plain_line(reading& at, turn_order order, bool& in_turns) {
  const std::string& line = at.file.line;
  const bool is_marker = contains(line, "--- Bunch 1 ---");
  if (contains(line, "Location") || contains(line, "LOCATION")) {
    in_turns = false;
    return begin_bpm(at);
  }
  if (contains(line, "Pedestal")) return pass_pedestals(at);
  if ((contains(line, "#") && !is_marker) || begins_blank(line)) return {};
  if (is_marker) {
    in_turns = true;
    return {};
  }
  if (!in_turns) return {};
  if (at.run.data.bpms.empty()) {
    return util::line_fault(at.file, "a \"Location\" header before the turns");
  }
  return take_turn(at, order);
}

// --- the older form ------------------------------------------------------------------------------

// The number after the colon of the NUM ACTIVE line.
util::status take_active(reading& at) {
  const std::string_view line{at.file.line};
  const auto colon = line.find(':');
  if (colon != std::string_view::npos) {
    at.run.active = util::scan_integer(util::trim(line.substr(colon + 1)));
  }
  if (!at.run.active) return util::line_fault(at.file, "a colon and the number of active BPMs");
  return {};
}

util::status take_older_line(reading& at, bool& titled) {
  const std::string_view line{at.file.line};
  // The title before the BPM header, whose text it holds.
  if (contains(line, "KOVR BPM Raw")) {
    titled = true;
    return {};
  }
  if (util::trim(line).empty() || contains(line, "#")) return {};
  if (!titled) return util::line_fault(at.file, "the title line \"KOVR BPM Raw\" first");
  if (contains(line, "NUM ACTIVE")) return take_active(at);
  if (contains(line, "KOVR BPM")) return begin_bpm(at);
  if (at.run.data.bpms.empty()) {
    return util::line_fault(at.file, "a \"KOVR BPM\" header before the turns");
  }
  return take_turn(at, turn_order::signals_first);
}

// All lines, until one is a fault or one turn too many.
template <class Take>
text_run read_run(util::text_file& file, Take take) {
  reading at{file, {}, 0};
  while (!at.run.data.fault && !at.run.too_long && next_run_line(file)) {
    at.run.data.fault = take(at);
  }
  if (!at.run.data.fault) at.run.data.fault = file.trouble;
  return std::move(at.run);
}

}  // namespace

text_run read_plain_run(util::text_file& file) {
  const turn_order order =
      contains(file.path, "RDe") ? turn_order::positions_first : turn_order::signals_first;
  bool in_turns = false;  // turn lines wait for the bunch marker
  return read_run(file, [&](reading& at) { return take_plain_line(at, order, in_turns); });
}

text_run read_older_run(util::text_file& file) {
  bool titled = false;
  return read_run(file, [&](reading& at) { return take_older_line(at, titled); });
}

}  // namespace input
