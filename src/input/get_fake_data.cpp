#include "get_fake_data.hpp"

#include <fmt/core.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <string_view>

#include "fields.hpp"
#include "file_units.hpp"
#include "gain_fit_mod.hpp"
#include "list_io.hpp"
#include "note.hpp"
#include "run_time.hpp"
#include "site.hpp"
#include "terminal.hpp"
#include "text.hpp"

namespace input {
namespace {

namespace fit = gain_fit_mod;

constexpr std::string_view sub_dir = "/inputs_1000random_xy_and_timing_offset";
constexpr int echo_unit = 67;      // never opened: the echo lands in fort.67
constexpr int line_width = 300;    // characters of a line that are looked at
constexpr int most_orbits = 1000;  // norbits never says more, however many the store holds
constexpr int first_digit = 4;     // "exp_" stands before the number and is not verified

// Number and text of the file in hand; the text keeps what it held when a number has no width.
std::string txt_name;

// One line's values. They live from line to line and from file to file: a value that cannot be read
// leaves the one of the line before.
struct line_values {
  double x = 0;
  double y = 0;
  util::bounded<std::int32_t, 1, 4, "but"> button{};
};
line_values kept;

// What became of a line of ten values.
struct line_read {
  bool complete = true;     // no value is missing
  std::string bad;          // a value that could not be read; empty when there is none
  std::string_view wanted;  // what it should have been
};

// What of a file could not be used: told in one line when the file has been read.
struct unusable {
  std::string first;     // the first fault, without the file's name
  int faults = 0;        // lines with a fault
  int last_line = 0;     // the line that ended the reading; 0: none did
  int lines_unread = 0;  // lines with something in them behind that one
};

// The first series number, from the characters between "exp_" and the first "."; nothing when there
// is none.
std::optional<int> first_number(const std::string& name) {
  const std::size_t point = name.find('.');
  std::int32_t number = -1;
  if (point != std::string::npos && point > first_digit) {
    util::list_record digits;
    util::start_record(digits, name.substr(first_digit, point - first_digit));
    util::take(digits, number);
  }
  if (number < 0) return {};
  return number;
}

// Decimal digits without blanks. From 10000 on there is no width for the number, and the text stays
// that of the file before.
void name_number(int number) {
  if (number < 10000) txt_name = std::to_string(number);
}

bool exists(const std::string& path) {
  struct stat info {};
  return stat(path.c_str(), &info) == 0;
}

// A missing file is probed again until it is there: a series may still be in the making.
void wait_for(const std::string& path, const std::string& last_name, std::string& waited_for) {
  if (waited_for != path) {
    // The last name tells a series in the making from one that runs past a mistyped end.
    note(fmt::format("waiting for {}; the last file asked for is {}", path, last_name));
    waited_for = path;
  }
  constexpr long pause = 100'000'000;  // [ns]
  const timespec duration{0, pause};
  nanosleep(&duration, nullptr);
}

// Takes the ten values, as far as they are good; the first bad one ends the taking, not the orbit.
line_read take_line(std::string_view line) {
  util::list_record record;
  util::start_record(record, line);
  auto last = util::taken::value;
  std::string_view wanted;
  const auto take = [&](auto& value, std::string_view kind) {
    if (last != util::taken::value && last != util::taken::null) return;
    wanted = kind;
    last = util::take(record, value);
  };
  take(kept.x, "a number");
  take(kept.y, "a number");
  for (int i = 1; i <= 4; ++i) take(kept.button(i), "a whole number such as 1000000");
  for (int i = 1; i <= 4; ++i) take(fit::gain(i), "a number");
  line_read read;
  read.complete = last != util::taken::end;
  if (last == util::taken::bad) read = {true, record.item, wanted};
  return read;
}

void add_fault(unusable& found, int line, std::string_view what, std::string_view expected) {
  ++found.faults;
  if (!found.first.empty()) return;
  // Byte-order marks do not show, and other programs do not count them: they are named.
  constexpr std::string_view mark = "\xEF\xBB\xBF";
  const bool marked = what.substr(0, mark.size()) == mark;
  if (marked) what.remove_prefix(mark.size());
  found.first = fmt::format("{}: found {}\"{}\", expected {}", line,
                            marked ? "a byte-order mark before " : "", util::trim(what), expected);
}

void tell_unusable(const std::string& path, const unusable& found, int orbits) {
  std::string line;
  if (found.faults > 0) line = ":" + found.first;
  if (found.faults > 1) line += fmt::format("; lines with faults: {}", found.faults);
  if (found.last_line > 0) {
    line += fmt::format("{}line {} ends the file, lines not read behind it: {}",
                        line.empty() ? ": " : "; ", found.last_line, found.lines_unread);
  }
  if (orbits == 0) line += line.empty() ? ": no orbit" : "; no orbit";
  if (!line.empty()) note(path + line);
}

void store_orbit(int orbit, int bpm) {
  store::bpm_struct& reading = fit::orbit_data.edit(orbit, bpm);
  reading.x = kept.x;
  reading.y = kept.y;
  for (int i = 1; i <= 4; ++i) {
    reading.button(i) = kept.button(i);
    reading.true_gain(i) = fit::gain(i);
  }
  fit::orbit_data.edit_current(orbit) = 1.0;
}

// A line of fewer than ten values ends the file; what is behind it is counted. Blank lines at the
// end of a file are no fault.
void end_reading(int unit, const std::string& last, int number, unusable& found) {
  for (std::string line; util::read_line(unit, line);) {
    if (!util::trim(line).empty()) ++found.lines_unread;
  }
  const bool blank = util::trim(last).empty();
  if (!blank) add_fault(found, number, last, "ten values");
  if (!blank || found.lines_unread > 0) found.last_line = number;
}

// Reads one file into BPM k; returns the number of orbits it held.
int read_series_file(const std::string& path, int k) {
  const int unit = util::lunget();
  const int failed = util::open_old(unit, path);
  if (failed != 0) util::run_time_error("cannot open " + path + ": " + util::system_text(failed));
  const util::unit_handle file{unit};
  int in = 1;
  int number = 0;
  unusable found;
  std::string echo;
  for (std::string line; util::read_line(unit, line);) {
    ++number;
    if (line.find('\r') != std::string::npos) {
      add_fault(found, number, line.substr(0, line.find('\r')), "LF or CR LF behind it, not CR");
    }
    if (line.size() > line_width) line.resize(line_width);
    if (line.find('x') != std::string::npos) continue;
    const line_read read = take_line(line);
    if (!read.complete) {
      end_reading(unit, line, number, found);
      break;
    }
    if (!read.bad.empty()) add_fault(found, number, read.bad, read.wanted);
    echo.clear();
    util::put_padded(echo, line, line_width);
    util::write_line(echo_unit, echo);
    store_orbit(in, k);
    ++in;
  }
  tell_unusable(path, found, in - 1);
  return in - 1;
}

// A name of at most 100 characters; an empty answer keeps the one given.
std::string ask_name(std::string_view prompt, std::string name) {
  if (!util::strget(prompt, name, util::answer_kind::file)) util::end_of_input_error(prompt);
  return std::string{util::trim(std::string_view{name}.substr(0, 100))};
}

struct first_file {
  std::string name;
  int number = 0;
};

first_file ask_first() {
  for (;;) {
    const std::string name = ask_name("First fake file name (e.g. exp_0.txt)", "");
    if (const auto number = first_number(name)) return {name, *number};
    util::tell_bad_answer(name,
                          "a name with the first number of a series; type one, such as exp_0.txt");
  }
}

}  // namespace

void get_fake_data() {
  const std::string dir = util::fullfilename(site::fake_data_dir) + std::string{sub_dir};
  fit::in_file_0 = std::string{sub_dir} + ".dat";

  const auto [first_name, first] = ask_first();
  const std::string last_name = ask_name("Last fake file name (e.g.  exp_120.txt)", first_name);

  std::string name = "fake.dat";  // no file of the series, so the first comparison fails
  std::string waited_for;
  int k = 0;
  while (name != last_name) {
    name_number(k + first);
    name = fmt::format("exp_{}.txt", txt_name);
    const std::string path = fmt::format("{}/{}", dir, name);
    if (!exists(path)) {
      if (name != last_name) {
        wait_for(path, last_name, waited_for);
      } else {
        note(fmt::format("{}, the last file asked for, is not there; files read: {}", path, k));
      }
      continue;
    }
    ++k;
    if (k > store::max_bpm) {  // the bounds error follows
      std::string line = " k =";
      util::put_integer(line, k, 10);
      util::print_line(line + "  > n_bpms");
    }
    fit::bpm = k;
    fit::dets(k) = k;
    fit::bpm_names(k) = "EXP_" + txt_name;
    fit::norbits = std::min(read_series_file(path, k), most_orbits);
  }
}

}  // namespace input
