// The files of a facility, read into the state of the conversion. The readers give back faults; here
// they become the ends of the run that a session knows.
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <string>
#include <utility>

#include "calib_files.hpp"
#include "files_read.hpp"
#include "list_io.hpp"
#include "nonlin_bpm_mod.hpp"
#include "run_time.hpp"
#include "standard_output.hpp"
#include "table_file.hpp"
#include "text.hpp"

namespace nonlin_bpm_mod {
namespace {

constexpr std::string_view orbit_folder = "$KOVR_ONLINE/machine_data/meas/orbit/";

// A single-precision constant, widened: kept for compatibility.
constexpr double metres_per_millimetre{0.001F};

std::string facility_file(std::string_view name) {
  std::string path = util::fullfilename(std::string{orbit_folder}.append(name));
  util::note_file_read(path, util::read_as::table);
  return path;
}

// A disk that fails, or a file that is no text: not the contents' fault, and told as any other
// file's would be.
void check_trouble(const util::text_file& file) {
  if (!file.trouble) return;
  const bool no_text = !file.trouble->expected.empty();
  util::run_time_error(util::shown(no_text ? util::line_of(*file.trouble)
                                           : "reading " + file.path + ": " + file.trouble->what));
}

[[noreturn]] void end_unopened(const std::string& name) {
  const bool missing = access(name.c_str(), F_OK) != 0 && errno == ENOENT;
  util::print_line(
      util::list_line().text("ERROR IN NONLIN_BPM_INIT. CANNOT OPEN FILE: ").text(name).str());
  // The usual first error of a new site: the one file that nobody wrote.
  if (missing) {
    util::tell_line(fmt::format("\"bpmsim tables {}\" makes this file for default chambers",
                                std::filesystem::path{name}.parent_path().string()));
  }
  util::err_exit();
}

// What a reader of words makes of one of the files; its fault ends the run.
template <class T, class reader>
T taken_from(const std::string& name, reader read) {
  word_file file;
  if (open_words(file, name)) end_unopened(name);
  util::outcome<T> made = read(file);
  if (made) return std::move(*made);
  check_trouble(file.file);
  // The line is asked of the file: its name may hold colons too. An empty one has line 1.
  util::print_line(fmt::format(" ERROR IN NONLIN_BPM_INIT. {} IN LINE {} OF FILE: {}",
                               made.why.what, std::max(file.line, 1), name));
  util::err_exit();
}

table_struct table_of(const std::string& name) {
  return taken_from<table_struct>(facility_file("nonlin_bpm/" + name + ".table"),
                                  [&name](word_file& file) { return read_table(file, name); });
}

}  // namespace

void nonlin_bpm_init() {
  bpm_48 = table_of("bpm_48");
  bpm_arc = table_of("bpm_arc");
  bpm_tirsku = table_of("bpm_tirsku");
  const auto coeff =
      taken_from<coefficient_list>(facility_file("nonlin_bpm/button_coeff.dat"), read_coefficients);
  const auto bad =
      taken_from<bad_button_list>(facility_file("nonlin_bpm/bad_button.dat"), read_bad_buttons);
  for (int bpm = 1; bpm <= max_bpm; ++bpm) {
    bpm_calib(bpm).coeff = coeff(bpm);
    bpm_calib(bpm).ix_bad_button = bad(bpm);
  }
  nonlin_bpm_init_offsets();
  nonlin_bpm_first_call = false;  // last: nothing half loaded ever serves
}

void nonlin_bpm_init_offsets() {
  util::print_line(util::list_line().text("nonlin_bpm: initializing quad offsets").str());
  const std::string path = facility_file("offset.bpm");
  util::print_line(util::list_line().text("Reading quad offsets from ").text(path).str());
  auto file = util::open_text_file(path);
  if (!file) util::run_time_error("cannot open " + path + ": " + file.why.what);
  const offset_list offsets = read_offsets(*file);
  // All to zero first: a BPM that the new file no longer lists must not keep an old offset.
  for (calib_struct& calib : bpm_calib.item) calib.offset.fill(0);
  // Before the fault is told: a number out of bounds ends the run where it stands, and it may stand
  // before the bad record.
  for (const bpm_offset& of : offsets.entry) {
    bpm_calib(of.bpm).offset = {{of.horizontal, of.vertical}};
  }
  check_trouble(*file);
  if (offsets.fault) {
    util::print_line(util::list_line()
                         .text("ERROR IN NONLIN_BPM_INIT_OFFSETS. ERROR READING FILE: ")
                         .text(path)
                         .str());
    util::tell_line(fmt::format("{}: expected {}, {}", offsets.fault->where,
                                offsets.fault->expected, offsets.fault->what));
    util::err_exit();
  }
  // Turned into metres in one place, behind the loop: a BPM listed twice is converted once.
  for (calib_struct& calib : bpm_calib.item) {
    for (double& offset : calib.offset.item) offset *= metres_per_millimetre;
  }
}

}  // namespace nonlin_bpm_mod
