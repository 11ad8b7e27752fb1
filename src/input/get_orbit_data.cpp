#include "get_orbit_data.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <optional>
#include <string_view>

#include "fault.hpp"
#include "fields.hpp"
#include "file_answer.hpp"
#include "file_units.hpp"
#include "gain_fit_mod.hpp"
#include "list_io.hpp"
#include "namelist.hpp"
#include "run_time.hpp"
#include "site.hpp"
#include "terminal.hpp"
#include "text.hpp"

namespace input {
namespace {

constexpr int command_unit = 1;
constexpr int out_unit = 26;
constexpr int integer_width = 12;  // of numbers shown in the dialog
constexpr int name_length = 100;   // of in_file and of out_file
constexpr std::string_view out_ending = "_out";
constexpr std::string_view group = "bpm_gain_anal_params";
constexpr std::size_t current_column = 11;  // where the currents of a button file begin

// What a command file says. A list file fills the orbits only.
struct command {
  bpm_list fit_bpm_idx{};
  bool read_current_from_butns_file = false;
  std::int32_t sigma_cutoff = 0;  // the cut levels are read and not used
  std::int32_t chisq_cutoff = 0;
  orbit_list orbit{};
};

bool contains(std::string_view text, std::string_view word) {
  return text.find(word) != std::string_view::npos;
}

// Asks until a file opens on the command unit; returns its name.
std::string open_command_file() {
  for (;;) {
    util::print_line(" Input command file ? ");
    util::print_line(" This can be a bpm gain anal input file, e.g. \"bpm_gain_anal_1.input\" ");
    util::print_line("   or, ORM data, e.g. \"steering_2009-DEC-18.cal\" ");
    std::string name{
        util::trim(util::ask_or_end(" Input command file : ", util::answer_kind::file))};
    if (name.empty()) name = "bpm_gain_anal_1.input";
    const auto path = path_of_answer(name, std::string::npos);
    if (!path) {
      util::print_line(" " + util::shown(line_of(path.why)));
      continue;
    }
    name = *path;
    // A longer name would lose the ending of the result file, and the result would replace its
    // input.
    if (name.size() + out_ending.size() > name_length) {
      util::tell_bad_answer(name, fmt::format("a file name of at most {} characters",
                                              name_length - out_ending.size()));
      continue;
    }
    if (util::open_old(command_unit, name) == 0) return name;
    util::print_line(" ERROR: CANNOT OPEN FILE: " + name);
  }
}

std::optional<std::string> read_namelist(command& wanted) {
  wanted.fit_bpm_idx.fill(-1);
  util::rewind_unit(command_unit);
  const std::array members{
      namelist::array("fit_bpm_idx", wanted.fit_bpm_idx),
      namelist::variable("read_current_from_butns_file", wanted.read_current_from_butns_file),
      namelist::variable("sigma_cutoff", wanted.sigma_cutoff),
      namelist::variable("chisq_cutoff", wanted.chisq_cutoff),
      namelist::array("orbit", wanted.orbit)};
  return namelist::read_group(command_unit, group, members);
}

void read_command_file(const std::string& name, command& wanted) {
  // Only the first line tells: a file with a title above the group is taken for a list.
  std::string line;
  util::read_line(command_unit, line);
  if (contains(util::upcase(line), "&" + util::upcase(group))) {
    if (read_namelist(wanted)) {
      util::print_line(" ERROR READING " + name);
      // Once more, from where the file stands: kept for compatibility. The second fault is told.
      if (const auto fault = read_namelist(wanted)) util::run_time_error(*fault);
    }
  } else {
    util::rewind_unit(command_unit);
    read_the_list(command_unit, wanted.orbit);
    // A list names no BPMs: all that a button file can hold are offered.
    wanted.fit_bpm_idx.fill(-1);
    for (int i = 1; i <= last_button_bpm; ++i) wanted.fit_bpm_idx(i) = i;
  }
  util::close_unit(command_unit);
}

int choose_bpm(const bpm_list& fit_bpm_idx) {
  util::print_line(" Detectors with data ");
  std::string line;
  for (int i = bpm_list::lower; i <= bpm_list::upper; ++i) {
    if (fit_bpm_idx(i) == -1) continue;
    util::put_integer(line, i, integer_width);
    line += '-';
    util::put_integer(line, fit_bpm_idx(i), integer_width);
    line += ',';
  }
  util::print_line(line);
  std::int32_t index = 0;
  util::ask_integer(" Index ? ", index);
  const int chosen = fit_bpm_idx(index);
  line = " index=";
  util::put_integer(line, index, integer_width);
  line += " fit_bpm_idx(bpm_index)=";
  util::put_integer(line, chosen, integer_width);
  util::print_line(line);
  return chosen;
}

// One line of the result file.
std::string listing(int slot, int number, const orbit_found& found) {
  std::string line;
  util::put_integer(line, slot, 6);
  util::put_integer(line, number, 12);
  util::put_fixed(line, found.current);
  util::put_integer(line, found.bpms, 6);
  return line + "  " + found.path;
}

[[noreturn]] void bad_line(const std::string& path, const util::list_record& record,
                           std::string_view expected) {
  util::run_time_error(fmt::format("{}:{}: expected {}, found \"{}\"", util::shown(path),
                                   record.line, expected, util::shown(util::trim(record.text))));
}

// Whether a word in front of the currents' column would be lost or cut: a current that begins there,
// or anything that reaches into the column. The label itself may stand anywhere before.
bool begins_too_early(std::string_view line) {
  constexpr std::string_view separators = " \t,";
  const std::size_t column = current_column - 1;
  const std::size_t label = std::min(line.find("E T1"), line.find("P T1"));
  std::size_t at = label + std::string_view{"E T1"}.size();
  if (at > column) return true;
  while ((at = line.find_first_not_of(separators, at)) < column) {
    const std::size_t end = std::min(line.find_first_of(separators, at), line.size());
    if (end > column || util::scan_real(line.substr(at, end - at))) return true;
    at = end;
  }
  return false;
}

double read_current_line(const std::string& path, const util::list_record& record) {
  util::list_record value;
  util::start_record(value, record.text.substr(std::min(current_column - 1, record.text.size())));
  const auto current = util::take_real(value);
  if (!current || begins_too_early(record.text))
    bad_line(path, record, "a beam current in mA from column 11 on");
  return *current;
}

// Stores a line "index b1 b2 b3 b4"; returns the index.
int store_signals(const std::string& path, util::list_record& record, int slot) {
  const auto bpm = util::take_int(record);
  util::bounded<double, 1, 4, "button"> signal{};
  bool complete = bpm.has_value();
  for (int i = 1; complete && i <= 4; ++i) {
    const auto value = util::take_real(record);
    complete = value.has_value();
    signal(i) = value.value_or(0);
  }
  if (!complete) bad_line(path, record, "a BPM index and four signals");
  store::bpm_struct& reading = gain_fit_mod::orbit_data.edit(slot, *bpm);
  for (int i = 1; i <= 4; ++i) reading.button(i) = signal(i);
  return *bpm;
}

// Whether a line of a list file is "key = value": cu1, cu2, dcu, fit_cal, corstr_cal and others,
// which describe how the list was measured.
bool is_key(std::string_view line) {
  const std::size_t equals = line.find('=');
  return equals != std::string_view::npos && !util::trim(line.substr(0, equals)).empty();
}

}  // namespace

std::string orbit_path(int number) {
  const std::filesystem::path archive{util::fullfilename(site::orbit_dir)};
  return archive / fmt::format("{:02d}", number / 1000) / fmt::format("butns.{}", number);
}

void read_the_list(int unit, orbit_list& orbit) {
  int count = 0;
  for (util::list_record record; util::read_record(unit, record);) {
    const std::string_view line = util::trim(record.text);
    if (line[0] == '!' || line[0] == '#' || is_key(line)) continue;
    const auto orbit1 = util::take_int(record);
    const auto orbit2 = util::take_int(record);
    const auto ratio = util::take_real(record);
    const auto error = util::take_real(record);
    if (!orbit1 || !orbit2 || !ratio || !error) {
      util::print_line(
          fmt::format(" Error {}:{}: expected \"orbit1 orbit2 ratio error\", key = value or a "
                      "comment, found \"{}\"",
                      util::shown(util::unit_path(unit)), record.line, util::shown(line)));
      continue;
    }
    orbit(++count) = *orbit1;
    orbit(++count) = *orbit2;
  }
  if (count == 0) {
    util::print_line(
        fmt::format(" Error {}: expected pairs of orbits, found none", util::unit_path(unit)));
  }
}

orbit_found read_orbit(int number, int slot, bool read_current) {
  orbit_found found;
  found.path = orbit_path(number);
  const util::unit_handle file{util::lunget()};
  if (const int failed = util::open_old(file.number(), found.path); failed != 0) {
    util::run_time_error(fmt::format("cannot open {}, the button file of orbit {} in the list: {}",
                                     found.path, slot, util::system_text(failed)));
  }
  double current = 0;
  bool any_current = false;
  for (util::list_record record; util::read_record(file.number(), record);) {
    if (util::trim(record.text)[0] == 'c') continue;
    if (contains(record.text, "E T1") || contains(record.text, "P T1")) {
      current += read_current_line(found.path, record);
      any_current = true;
      continue;
    }
    ++found.bpms;
    // What follows the last BPM is not looked at.
    if (store_signals(found.path, record, slot) == last_button_bpm) break;
  }
  if (read_current) {
    found.current = current;
    if (!any_current) util::print_line(" No beam current in " + found.path);
  }
  gain_fit_mod::orbit_data.edit_current(slot) = found.current;
  return found;
}

void get_orbit_data() {
  const std::string name = open_command_file();
  const std::string out_file = name + std::string{out_ending};
  gain_fit_mod::in_file.assign(name);
  command wanted;
  read_command_file(name, wanted);
  gain_fit_mod::bpm = choose_bpm(wanted.fit_bpm_idx);

  gain_fit_mod::norbits = 0;
  std::string lines;
  for (int i = 1; i <= max_listed; ++i) {
    if (wanted.orbit(i) == 0) continue;
    const orbit_found found = read_orbit(wanted.orbit(i), i, wanted.read_current_from_butns_file);
    lines += '\n' + listing(i, wanted.orbit(i), found);
    ++gain_fit_mod::norbits;
  }

  util::open_output(out_unit, out_file);
  const std::string message = " Data written to file " + out_file;
  util::print_line(message);
  util::write_line(out_unit, message);
  util::write_line(out_unit, "# slot       orbit     current  bpms  file" + lines);
  util::close_unit(out_unit);
}

}  // namespace input
