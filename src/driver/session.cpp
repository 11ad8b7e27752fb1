#include "session.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <string>
#include <string_view>
#include <system_error>

#include "bpm_data_files.hpp"
#include "bpm_loop.hpp"
#include "chamber_table.hpp"
#include "fault.hpp"
#include "fields.hpp"
#include "file_units.hpp"
#include "files_read.hpp"
#include "gain_fit_mod.hpp"
#include "get_fake_data.hpp"
#include "get_orbit_data.hpp"
#include "jobs.hpp"
#include "list_io.hpp"
#include "output_directory.hpp"
#include "plot_gains.hpp"
#include "prepared_answers.hpp"
#include "progress.hpp"
#include "repeat_run.hpp"
#include "result_files.hpp"
#include "run_record.hpp"
#include "run_summaries.hpp"
#include "run_time.hpp"
#include "session_state.hpp"
#include "session_summary.hpp"
#include "terminal.hpp"
#include "text.hpp"
#include "turn_by_turn.hpp"

namespace driver {
namespace {

namespace fit = gain_fit_mod;

// A text followed by four fixed-point numbers: the layout of the session's check lines.
template <class Four>
std::string four_numbers(std::string_view text, const Four& value) {
  std::string line{text};
  for (int i = 1; i <= 4; ++i) util::put_fixed(line, value(i));
  return line;
}

// One data set, whose truth is known: it is shown at once, as a check that the right series was read.
void load_synthetic(session_state& s) {
  {
    // The table of a round pipe takes as long as reading a hundred files: beside it, where there is a
    // thread. A single one makes it when the first BPM needs it.
    const util::meanwhile table(util::jobs > 1, [&s] { stand_in_of(s); });
    input::get_fake_data();
  }
  s.norbits_save = fit::norbits;
  s.files_so_far = 1;
  s.type = "fake";
  const auto& gain = fit::gain;
  util::print_line(four_numbers(" truth = ", [&](int i) { return gain(i) / gain(1); }));
  util::print_line(four_numbers(" inverse = ", [&](int i) { return gain(1) / gain(i); }));
  s.bpm_count = fit::bpm;  // the reader leaves the last BPM there
  fit::bpm = -1;           // and all are treated
}

constexpr int choices_offered = 100;  // BPMs beyond the first hundred cannot be chosen singly

// The list ends in zeros, so 0 is offered as well, and is treated as all. Kept for compatibility.
bool is_offered(int bpm) {
  const auto first = fit::dets.item.begin();
  return std::find(first, first + choices_offered, bpm) != first + choices_offered;
}

void tell_choices(int refused) {
  std::string line = " No data for bpm ";
  util::put_integer(line, refused, 12);
  util::print_line(line + "  choose another");
  util::print_line(" Available bpms are: ");
  constexpr int per_row = 20;
  for (int first = 1; first <= choices_offered; first += per_row) {
    std::string row;
    for (int i = first; i < first + per_row; ++i) util::put_integer(row, fit::dets(i), 4);
    util::print_line(row);
  }
}

// How tables name the corrections that the last raw run asked for; none before one did.
std::string_view correction_label(int gain_correct) {
  switch (gain_correct) {
    case 3:
      return "gain_and_pedestal_correction";
    case 2:
      return "pedestal but no gain correction";  // with blanks: kept for compatibility
    case 1:
      return "no_gain_or_pedestal_correction";
    default:
      return "";
  }
}

void choose_bpm(session_state& s) {
  for (;;) {
    std::int32_t choice = fit::bpm;
    util::ask_integer(" which bpm ? (-1 for all)", choice);
    fit::bpm = choice;
    if (is_offered(choice) || choice == -1) break;
    tell_choices(choice);
  }
  // Nobody names this file: its text is the storage's first content.
  util::print_line(std::string{" Data written to file "}.append(s.out_file.all()));
  s.type = correction_label(fit::gain_correct);
}

// Both tables are opened before the first BPM, so that a directory that could not be made ends the
// run before minutes of fitting.
void open_orbit_table(session_state& s) {
  s.orbit_table = util::unit_handle{util::lunget()};
  util::open_output(s.orbit_table.number(), std::string{s.directory.trimmed()} + "/orbit.dat");
  std::string header;
  util::put_text(header, "bpm", 10);
  util::put_text(header, "avg_x", 12);
  util::put_text(header, "avg_y", 12);
  util::write_line(s.orbit_table.number(), header);
}

void open_file_list(session_state& s) {
  s.file_list = util::unit_handle{util::lunget()};
  util::open_output(s.file_list.number(), std::string{s.directory.trimmed()} + "/file_list.dat");
}

// A file that cannot be used is told before anything is asked.
void take_chamber(session_state& s, const std::string& path) {
  if (path.empty()) return;
  auto chamber = read_chamber_or_table(path);
  if (!chamber) {
    util::tell_line("--chamber: " + util::line_of(chamber.why));
    util::stop_program(2);
  }
  util::note_file_read(path, util::read_as::table);
  s.stand_in = std::move(*chamber);
}

// Made before anything is asked: nobody answers twenty questions to learn that a disk is missing.
void take_output(const std::string& directory) {
  if (directory.empty()) return;
  std::error_code fault;
  std::filesystem::create_directories(directory, fault);
  if (!fault && !std::filesystem::is_directory(directory, fault) && !fault) {
    fault = std::make_error_code(std::errc::not_a_directory);
  }
  if (fault) {
    util::tell_line(fmt::format("--output: cannot make {}: {}", directory, fault.message()));
    util::stop_program(2);
  }
  util::output_base = directory;
}

// An option whose question never came up did nothing: whoever gave it may have meant another one.
void tell_unused_options() {
  for (const std::string& option : util::options_not_asked(util::prepared)) {
    util::tell_line(option + " was given, but its question was not asked");
  }
}

}  // namespace

int run_session(const session_options& options) {
  util::show_long_steps();
  static session_state s;  // too large for the stack; there is one session in a process
  s.list_orbits = options.list_orbits;
  s.list_coefficients = options.list_coefficients;
  s.pdf = options.pdf;
  // Before the repetition, which may change the directory: --output counts from where the user is.
  take_output(options.output);
  util::use_jobs(options.jobs);
  util::prepared = options.dialog;
  if (options.repeated) prepare_repeat(*options.repeated, options.repeat);
  // Behind it, for the same reason: a recorded --chamber counts from where that run was made.
  take_chamber(s, options.chamber);
  create_output_directory(s.directory);
  s.results.info.directory = util::output_path(std::string{s.directory.trimmed()});
  // Before the first question: a run that ends at one has its record too.
  begin_record(s.results, options.command, options.arguments);
  begin_stage("data");
  fit::expert = false;

  const char answer = util::ask_letter(" TBT data (T), Orbit data(O) or fake data (F) ? ");
  const std::string source = util::upcase(std::string{answer});
  if (source == "F") load_synthetic(s);
  if (source == "T") load_turn_by_turn(s);
  if (source == "O") input::get_orbit_data();
  if (source != "F") choose_bpm(s);

  open_orbit_table(s);
  // A check line of BPM 50, whatever BPMs there are: kept for compatibility.
  util::print_line(four_numbers(" butngain,1,50 ", fit::orbit_data(1).detector(50).button));
  fit::weight = 0;
  if (fit::expert) expert::ask_fitted_gains(s.fit_gain_file, s.old_comments_list, s.fit_gain);
  s.just_one = fit::bpm > 0;
  open_file_list(s);

  begin_stage("fit");
  treat_bpms(s);

  // Closed before the results are written, so that no fault there can cut them short.
  s.file_list = {};
  s.orbit_table = {};
  output::close_bpm_raw_data();
  output::close_run_summaries();
  util::print_line(std::string{"output written to directory "}.append(s.directory.trimmed()));
  begin_stage("results");
  write_results(s);
  tell_summary(s);
  // The plot comes last because it asks: who never answers has everything else.
  begin_stage("plot");
  plot_gains(s.bpm_max, s.bpm_min, s.bpm_gain, s.bpm_mat, s.plotted,
             std::string{s.directory.trimmed()}, plot_title(s));
  tell_unused_options();
  return s.exit_status;
}

}  // namespace driver
