#include "get_orbit_data.hpp"

#include <fmt/core.h>

#include <filesystem>
#include <string_view>

#include "button_file.hpp"
#include "fields.hpp"
#include "file_answer.hpp"
#include "file_units.hpp"
#include "files_read.hpp"
#include "gain_fit_mod.hpp"
#include "note.hpp"
#include "run_time.hpp"
#include "site.hpp"
#include "terminal.hpp"
#include "text.hpp"
#include "text_file.hpp"

namespace input {
namespace {

constexpr int out_unit = 26;       // its fixed unit
constexpr int integer_width = 12;  // of numbers shown in the dialog, as list-directed ones have it
constexpr int name_length = 100;   // of in_file and of out_file
constexpr std::string_view out_ending = "_out";

// Asks until a file opens; returns its name. It is closed again: each reader opens it for itself.
std::string ask_command_file() {
  for (;;) {
    util::print_line(" Input command file ? ");
    util::print_line(" This can be a bpm gain anal input file, e.g. \"bpm_gain_anal_1.input\" ");
    util::print_line("   or, ORM data, e.g. \"steering_2009-DEC-18.cal\" ");
    const std::string answer = util::ask_or_end(" Input command file : ", util::answer_kind::file);
    const bool named = !util::trim(answer).empty();
    const auto name = path_of_answer(named ? answer : "bpm_gain_anal_1.input", std::string::npos);
    if (!name) {
      util::print_line(" " + util::shown(util::line_of(name.why)));
    } else if (name->size() + out_ending.size() > name_length) {
      // It would lose the ending of the result file, and the result would replace its input.
      util::tell_bad_answer(*name, fmt::format("a file name of at most {} characters",
                                               name_length - out_ending.size()));
    } else if (util::open_text_file(*name)) {
      return *name;
    } else {
      util::print_line(" ERROR: CANNOT OPEN FILE: " + *name);
    }
  }
}

// What to read, by whichever of the two kinds of file it is.
void read_command(const std::string& name, command& wanted) {
  util::note_file_read(name);
  const auto kind = kind_of_command(name);
  if (!kind) end_run(kind.why);
  if (*kind == command_kind::group) {
    if (!read_command_group(name, wanted)) return;
    util::print_line(" ERROR READING " + name);
    // Once more: kept for compatibility. The second fault is told.
    if (const auto fault = read_command_group(name, wanted)) end_run(*fault);
    return;
  }
  read_the_list(name, wanted.orbit);
  // A list names no BPMs: all that a button file can hold are offered.
  wanted.fit_bpm_idx.fill(-1);
  for (int i = 1; i <= last_button_bpm; ++i) wanted.fit_bpm_idx(i) = i;
}

// Shows what can be chosen by index, then the BPM behind the index. One without a BPM is accepted and
// gives -1, which later stands for all; one outside the table is a bounds error.
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

// One line of the result file. Widths leave a blank between the largest values, so that programs
// can read it by words.
std::string listing(int slot, int number, const orbit_found& found) {
  std::string line;
  util::put_integer(line, slot, 6);
  util::put_integer(line, number, 12);
  util::put_fixed(line, found.current);
  util::put_integer(line, found.bpms, 6);
  return line + "  " + found.path;
}

}  // namespace

std::string orbit_path(int number) {
  const std::filesystem::path archive{util::fullfilename(site::orbit_dir)};
  return archive / fmt::format("{:02d}", number / 1000) / fmt::format("butns.{}", number);
}

void read_the_list(const std::string& path, orbit_list& orbit) {
  const orbit_pairs list = read_orbit_pairs(path);
  for (const util::fault& line : list.left_out) {
    util::print_line(util::shown(
        fmt::format(" Error {}: expected {}, {}", line.where, line.expected, line.what)));
  }
  if (list.fault) end_run(*list.fault);
  int count = 0;
  for (const std::int32_t number : list.orbits) orbit(++count) = number;
  if (count == 0) {
    util::print_line(fmt::format(" Error {}: expected pairs of orbits, found none", path));
  }
}

orbit_found read_orbit(int number, int slot, bool read_current) {
  orbit_found found;
  found.path = orbit_path(number);
  const button_file read = read_button_file(found.path, slot, gain_fit_mod::orbit_data);
  if (!read.opened) {
    // Which orbit of the list it is, for the number in the path may be a slip in the command file.
    util::run_time_error(
        util::shown(fmt::format("cannot open {}, the button file of orbit {} in the list: {}",
                                found.path, slot, read.fault->what)));
  }
  util::note_file_read(found.path);
  if (read.fault) end_run(*read.fault);
  found.bpms = read.bpms;
  if (read_current) {
    found.current = read.current.value_or(0);
    if (!read.current) util::print_line(" No beam current in " + found.path);
  }
  gain_fit_mod::orbit_data.edit_current(slot) = found.current;
  return found;
}

void get_orbit_data() {
  const std::string name = ask_command_file();
  const std::string out_file = name + std::string{out_ending};
  gain_fit_mod::in_file.assign(name);
  command wanted;
  read_command(name, wanted);
  gain_fit_mod::bpm = choose_bpm(wanted.fit_bpm_idx);

  // Slots are places in the list while norbits counts what was read: with gaps in the list it points
  // into the middle of the orbits. Kept for compatibility.
  gain_fit_mod::norbits = 0;
  std::string lines;
  for (int i = 1; i <= max_listed; ++i) {
    if (wanted.orbit(i) == 0) continue;
    const orbit_found found = read_orbit(wanted.orbit(i), i, wanted.read_current_from_butns_file);
    lines += '\n' + listing(i, wanted.orbit(i), found);
    ++gain_fit_mod::norbits;
  }

  // Written when all orbits have been read: a run that ends before leaves no half list behind.
  util::open_output(out_unit, util::output_name(out_file));
  const std::string message = " Data written to file " + out_file;
  util::print_line(message);
  util::write_line(out_unit, message);
  util::write_line(out_unit, "# slot       orbit     current  bpms  file" + lines);
  util::close_unit(out_unit);
}

}  // namespace input
