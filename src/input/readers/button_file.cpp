#include "button_file.hpp"

#include <algorithm>
#include <string_view>

#include "list_io.hpp"
#include "text.hpp"
#include "text_file.hpp"
#include "turn_data.hpp"

namespace input {
namespace {

constexpr std::size_t current_column = 11;  // where the currents begin, counted from 1
constexpr std::string_view electrons = "E T1";
constexpr std::string_view positrons = "P T1";

// Whether a word in front of the currents' column would be lost or cut: a current that begins there,
// or anything that reaches into the column: of "123.4" from column 8 on, ".4" would be read.
bool begins_too_early(std::string_view line) {
  constexpr std::string_view separators = " \t,";
  const std::size_t column = current_column - 1;
  const std::size_t label = std::min(line.find(electrons), line.find(positrons));
  std::size_t at = label + electrons.size();
  if (at > column) return true;
  while ((at = line.find_first_not_of(separators, at)) < column) {
    const std::size_t end = std::min(line.find_first_of(separators, at), line.size());
    if (end > column || util::scan_real(line.substr(at, end - at))) return true;
    at = end;
  }
  return false;
}

// Adds the current of a line to the sum of both beams.
util::status add_current(const util::text_file& file, std::optional<double>& sum) {
  const std::string_view line{file.line};
  util::list_record value;
  util::start_record(value, line.substr(std::min(current_column - 1, line.size())));
  const auto current = util::take_real(value);
  if (!current || begins_too_early(line)) {
    return util::line_fault(file, "a beam current in mA from column 11 on");
  }
  // Electrons and positrons pass the same buttons: the orbit's current is the sum of both.
  sum = sum.value_or(0) + *current;
  return {};
}

// Stores a line "index b1 b2 b3 b4"; gives the index. What follows the fifth number is not looked at.
util::outcome<int> store_signals(const util::text_file& file, int orbit, store::orbit_store& into) {
  util::list_record record;
  util::start_record(record, file.line);
  const auto bpm = util::take_int(record);
  // Taken as a whole before the store is touched: half a line must not pass for a reading.
  util::bounded<double, 1, 4, "button"> signal{};
  bool complete = bpm.has_value();
  for (int i = 1; complete && i <= 4; ++i) {
    const auto value = util::take_real(record);
    complete = value.has_value();
    signal(i) = value.value_or(0);
  }
  if (!complete) return util::line_fault(file, "a BPM index and four signals");
  if (*bpm < 0 || *bpm > store::max_bpm) return bounds_fault("detector", *bpm, 0, store::max_bpm);
  into.edit(orbit, *bpm).button = signal;
  return *bpm;
}

}  // namespace

button_file read_button_file(const std::string& path, int orbit, store::orbit_store& into) {
  button_file read;
  auto file = util::open_text_file(path);
  if (!file) {
    read.fault = file.why;
    return read;
  }
  read.opened = true;
  while (!read.fault && util::next_line(*file)) {
    const std::string_view line = util::trim(file->line);
    // Comments before labels: a comment may speak of "E T1".
    if (line.empty() || line[0] == 'c') continue;
    if (line.find(electrons) != std::string_view::npos ||
        line.find(positrons) != std::string_view::npos) {
      read.fault = add_current(*file, read.current);
      continue;
    }
    const auto bpm = store_signals(*file, orbit, into);
    if (!bpm) {
      read.fault = bpm.why;
      break;
    }
    ++read.bpms;
    // What follows the last BPM is not looked at.
    if (*bpm == last_button_bpm) return read;
  }
  if (!read.fault) read.fault = file->trouble;
  return read;
}

}  // namespace input
