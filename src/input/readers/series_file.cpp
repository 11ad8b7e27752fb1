#include "series_file.hpp"

#include <fmt/core.h>

#include <cstring>
#include <string_view>

#include "list_io.hpp"
#include "plain_numbers.hpp"
#include "text.hpp"
#include "text_file.hpp"
#include "turn_data.hpp"

namespace input {
namespace {

// What became of a line.
struct line_read {
  bool complete = true;     // no value is missing
  std::string bad;          // the value that could not be read; empty when there is none
  std::string_view wanted;  // what it should have been
};

// Takes the ten values, as far as they are good; the first bad one ends the taking, not the orbit.
line_read take_line(std::string_view line, series_values& values) {
  util::list_record record;
  util::start_record(record, line);
  auto last = util::taken::value;
  std::string_view wanted;
  const auto take = [&](auto& value, std::string_view kind) {
    if (last != util::taken::value && last != util::taken::null) return;
    wanted = kind;
    last = util::take(record, value);
  };
  take(values.x, "a number");
  take(values.y, "a number");
  // Whole numbers as the electronics count them: 1.0E6 is refused, and what to write is told.
  for (int i = 1; i <= 4; ++i) take(values.button(i), "a whole number such as 1000000");
  for (int i = 1; i <= 4; ++i) take(values.gain(i), "a number");
  if (last == util::taken::bad) return {true, record.item, wanted};
  return {last != util::taken::end, {}, {}};
}

// The four true gains stand at the end of each line, the same in all lines of a file.
struct gains_read {
  std::string text;  // of the line before, all that is behind its signals; empty: not taken
};

// The same for a line as the simulator and most programs print it. False when it is none, or not all
// of it: nothing is taken then.
bool take_plain_line(std::string_view line, series_values& values, gains_read& before) {
  series_values taken;
  if (!take_plain(line, taken.x) || !take_plain(line, taken.y)) return false;
  for (int i = 1; i <= 4; ++i) {
    if (!take_plain(line, taken.button(i))) return false;
  }
  if (before.text.empty() || line != before.text) {
    std::string_view rest = line;
    for (int i = 1; i <= 4; ++i) {
      if (!take_plain(rest, taken.gain(i))) return false;
    }
    before.text = line;
  } else {
    taken.gain = values.gain;
  }
  values = taken;
  return true;
}

void add_fault(series_unusable& found, const util::text_file& file, std::string_view what,
               std::string_view expected) {
  ++found.lines;
  if (found.first) return;
  // A byte-order mark does not show on a terminal, and editors do not count it: it is named.
  constexpr std::string_view mark = "\xEF\xBB\xBF";
  const bool marked = what.substr(0, mark.size()) == mark;
  if (marked) what.remove_prefix(mark.size());
  found.first = util::fault{
      fmt::format("found {}\"{}\"", marked ? "a byte-order mark before " : "", util::trim(what)),
      util::place_of(file), std::string{expected}};
}

// What is behind the line that ends a file is counted, not used. Blank lines at the very end of a
// file are no fault: editors leave them.
void end_reading(util::text_file& file, const std::string& last, series_unusable& found) {
  const bool blank = util::trim(last).empty();
  const int last_line = file.number;
  if (!blank) add_fault(found, file, last, "ten values");
  while (util::next_line(file)) {
    if (!util::trim(file.line).empty()) ++found.lines_unread;
  }
  if (file.trouble) ++found.lines_unread;  // what cannot be read hurts nobody here, but is there
  if (!blank || found.lines_unread > 0) found.last_line = last_line;
}

void store_orbit(const series_values& values, store::bpm_struct& reading) {
  reading.x = values.x;
  reading.y = values.y;
  for (int i = 1; i <= 4; ++i) {
    reading.button(i) = values.button(i);
    reading.true_gain(i) = values.gain(i);
  }
}

void add_echo(util::text_block& echo, std::string_view line) {
  char* const at = util::room(echo, series_width + 1);
  std::memcpy(at, line.data(), line.size());
  std::memset(at + line.size(), ' ', series_width - line.size());
  at[series_width] = '\n';
  util::end_at(echo, at + series_width + 1);
}

// Takes one line; false when it ends the file.
bool take_orbit(util::text_file& file, int bpm, series_values& values, gains_read& before,
                store::orbit_store& into, series_file& read) {
  const std::string& line = file.line;
  // Files of old computers end their lines with CR alone: all of them are then one line.
  if (const auto cr = line.find('\r'); cr != std::string::npos) {
    add_fault(read.unusable, file, std::string_view{line}.substr(0, cr),
              "LF or CR LF behind it, not CR");
  }
  const std::string_view counted = std::string_view{line}.substr(0, series_width);
  if (counted.find('x') != std::string_view::npos) return true;
  if (!take_plain_line(counted, values, before)) {
    before.text.clear();
    const line_read taken = take_line(counted, values);
    if (!taken.complete) {
      end_reading(file, std::string{counted}, read.unusable);
      return false;
    }
    if (!taken.bad.empty()) add_fault(read.unusable, file, taken.bad, taken.wanted);
  }
  add_echo(read.echo, counted);
  if (read.orbits == store::max_orbits) {
    read.fault = bounds_fault(into.name, read.orbits + 1, 1, store::max_orbits);
    return false;
  }
  store_orbit(values, into.edit(++read.orbits, bpm));
  into.edit_current(read.orbits) = 1.0;
  return true;
}

}  // namespace

series_file read_series_file(const std::string& path, int bpm, series_values& values,
                             store::orbit_store& into) {
  series_file read;
  auto file = util::open_text_file(path);
  if (!file) {
    read.fault = file.why;
    return read;
  }
  bool ended = false;  // by what a line says
  gains_read before;
  while (!ended && util::next_line(*file)) {
    ended = !take_orbit(*file, bpm, values, before, into, read);
  }
  if (!ended) read.fault = file->trouble;
  return read;
}

std::string unusable_line(const std::string& path, const series_file& file) {
  const series_unusable& found = file.unusable;
  std::string line;
  const auto add = [&](const std::string& part) {
    line += (line.empty() ? path + ": " : "; ") + part;
  };
  if (found.first) line = util::line_of(*found.first);
  if (found.lines > 1) add(fmt::format("lines with faults: {}", found.lines));
  if (found.last_line > 0) {
    add(fmt::format("line {} ends the file, lines not read behind it: {}", found.last_line,
                    found.lines_unread));
  }
  if (file.orbits == 0) add("no orbit");
  return line;
}

}  // namespace input
