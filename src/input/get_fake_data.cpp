#include "get_fake_data.hpp"

#include <fmt/core.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <string_view>

#include "fields.hpp"
#include "file_units.hpp"
#include "files_read.hpp"
#include "gain_fit_mod.hpp"
#include "list_io.hpp"
#include "note.hpp"
#include "run_time.hpp"
#include "series_file.hpp"
#include "site.hpp"
#include "terminal.hpp"
#include "text.hpp"

namespace input {
namespace {

namespace fit = gain_fit_mod;

constexpr std::string_view sub_dir = "/inputs_1000random_xy_and_timing_offset";
constexpr int echo_unit = 67;      // never opened: the echo lands in fort.67
constexpr int most_orbits = 1000;  // norbits never says more, however many the store holds
constexpr int first_digit = 4;     // "exp_" stands before the number and is not verified

// Number and text of the file in hand; the text keeps what it held when a number has no width.
std::string txt_name;

// The line read last. It lives from file to file: a value that cannot be read leaves the one of the
// line before.
series_values kept;

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
// that of the file before: kept for compatibility.
void name_number(int number) {
  if (number < 10000) txt_name = std::to_string(number);
}

bool exists(const std::string& path) {
  struct stat info {};
  if (stat(path.c_str(), &info) == 0) return true;
  // Of anything but a missing file waiting makes nothing better.
  if (errno != ENOENT && errno != ENOTDIR) end_run({util::system_text(errno), path, {}});
  return false;
}

// A missing file is probed again until it is there: a series may still be in the making.
void wait_for(const std::string& path, const std::string& last_name, std::string& waited_for) {
  if (waited_for != path) {
    // The last name tells a series in the making from one that runs past a mistyped end.
    note(fmt::format("waiting for {}; the last file asked for is {}", path, last_name));
    waited_for = path;
  }
  constexpr long pause = 100'000'000;  // [ns]: soon enough for a person, and no load
  const timespec duration{0, pause};
  nanosleep(&duration, nullptr);
}

// Reads one file into BPM k of the session's store; returns the number of orbits it held.
int read_series(const std::string& path, int k) {
  util::note_file_read(path);
  kept.gain = fit::gain;  // the true gains are read into the session's own
  const series_file read = read_series_file(path, k, kept, fit::orbit_data);
  fit::gain = kept.gain;
  if (read.echo.size > 0) util::write_text(echo_unit, util::view(read.echo));
  if (read.fault) end_run(*read.fault);
  const std::string unused = unusable_line(path, read);
  if (!unused.empty()) note(unused);
  return read.orbits;
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
    fit::norbits = std::min(read_series(path, k), most_orbits);
  }
}

}  // namespace input
