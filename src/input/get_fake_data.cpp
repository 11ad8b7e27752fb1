#include "get_fake_data.hpp"

#include <fmt/core.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <string>
#include <string_view>

#include "fields.hpp"
#include "file_units.hpp"
#include "gain_fit_mod.hpp"
#include "list_io.hpp"
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

enum class line_end { complete, short_line };

// The first series number, from the characters between "exp_" and the first ".".
int first_number(const std::string& name) {
  const std::size_t point = name.find('.');
  std::int32_t number = -1;
  if (point != std::string::npos && point > first_digit) {
    util::list_record digits;
    util::start_record(digits, name.substr(first_digit, point - first_digit));
    util::take(digits, number);
  }
  if (number < 0) {
    util::run_time_error("\"" + name +
                         "\" gives no first series number: expected a name such as exp_0.txt");
  }
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
void wait_for(const std::string& path, std::string& waited_for) {
  if (waited_for != path) {
    std::fflush(stdout);
    std::fprintf(stderr, "butngain: waiting for %s\n", path.c_str());
    waited_for = path;
  }
  constexpr long pause = 100'000'000;  // [ns]
  const timespec duration{0, pause};
  nanosleep(&duration, nullptr);
}

// Takes the ten values, as far as they are good; the first bad one ends the taking, not the orbit.
line_end take_line(std::string_view line) {
  util::list_record record;
  util::start_record(record, line);
  auto last = util::take(record, kept.x);
  const auto go_on = [&] { return last == util::taken::value || last == util::taken::null; };
  if (go_on()) last = util::take(record, kept.y);
  for (int i = 1; i <= 4 && go_on(); ++i) last = util::take(record, kept.button(i));
  for (int i = 1; i <= 4 && go_on(); ++i) last = util::take(record, fit::gain(i));
  return last == util::taken::end ? line_end::short_line : line_end::complete;
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

// Reads one file into BPM k; returns the number of orbits it held.
int read_series_file(const std::string& path, int k) {
  const int unit = util::lunget();
  const int failed = util::open_old(unit, path);
  if (failed != 0) util::run_time_error("cannot open " + path + ": " + util::system_text(failed));
  const util::unit_handle file{unit};
  int in = 1;
  std::string echo;
  for (std::string line; util::read_line(unit, line);) {
    if (line.size() > line_width) line.resize(line_width);
    if (line.find('x') != std::string::npos) continue;
    if (take_line(line) == line_end::short_line) break;
    echo.clear();
    util::put_padded(echo, line, line_width);
    util::write_line(echo_unit, echo);
    store_orbit(in, k);
    ++in;
  }
  return in - 1;
}

// A name of at most 100 characters; an empty answer keeps the one given.
std::string ask_name(std::string_view prompt, std::string name) {
  if (!util::strget(prompt, name, util::answer_kind::file)) util::end_of_input_error(prompt);
  return std::string{util::trim(std::string_view{name}.substr(0, 100))};
}

}  // namespace

void get_fake_data() {
  const std::string dir = util::fullfilename(site::fake_data_dir) + std::string{sub_dir};
  fit::in_file_0 = std::string{sub_dir} + ".dat";

  const std::string first_name = ask_name("First fake file name (e.g. exp_0.txt)", "");
  const int first = first_number(first_name);
  const std::string last_name = ask_name("Last fake file name (e.g.  exp_120.txt)", first_name);

  std::string name = "fake.dat";  // no file of the series, so the first comparison fails
  std::string waited_for;
  int k = 0;
  while (name != last_name) {
    name_number(k + first);
    name = fmt::format("exp_{}.txt", txt_name);
    const std::string path = fmt::format("{}/{}", dir, name);
    if (!exists(path)) {
      if (name != last_name) wait_for(path, waited_for);
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
