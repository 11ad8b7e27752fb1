#include "fit_command.hpp"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "chamber_table.hpp"
#include "column_fit.hpp"
#include "command_line.hpp"
#include "files_read.hpp"
#include "interrupt.hpp"
#include "list_io.hpp"
#include "output_directory.hpp"
#include "progress.hpp"
#include "result_files.hpp"
#include "run_record.hpp"
#include "run_time.hpp"
#include "session_summary.hpp"
#include "standard_output.hpp"
#include "subcommand.hpp"
#include "text.hpp"
#include "text_file.hpp"

namespace driver {
namespace {

// As of the session: data or a disk that will not do.
constexpr int fault_status = 1;

constexpr const char* about =
    "Fits the four button gains of every BPM of a file of columns: CSV, or columns between "
    "blanks.\n"
    "Buttons 1..4 are BI BO TI TO, at (-x,-y) (+x,-y) (-x,+y) (+x,+y); x points outward, y up. A\n"
    "header names their columns so, or b1 .. b4, and that of the BPM bpm or name; files without a\n"
    "header have four columns, or five with the BPM first. Several files are several data sets of\n"
    "the same BPMs; - is standard input.\n"
    "Exit status: 0 all files are written, whatever the verdicts; 1 data that cannot be used, or "
    "a\n"
    "file that cannot be written; 2 a wrong option or chamber.";

struct fit_options {
  std::vector<std::string> files;
  std::string chamber, output, columns, pedestals;
  input::column_choice choice;
  double sigma_p = calibration::pedestals_left_in;
  wanted_files wanted;
};

void add_options(CLI::App& app, fit_options& options) {
  app.set_help_flag("-h,--help", "Print this help and exit");
  app.add_option("FILE", options.files, "Columns of four signals")->required()->expected(1, -1);
  app.add_option("--chamber", options.chamber, "The chamber of the BPMs, or a table of it")
      ->required()
      ->type_name("FILE");
  app.add_option("--columns", options.columns,
                 "Which columns BI, BO, TI and TO are: names of the header, or numbers from 1")
      ->type_name("BI,BO,TI,TO");
  app.add_option("--bpm-column", options.choice.bpm, "Which column tells the BPM: name or number")
      ->type_name("COLUMN");
  app.add_option("--pedestals", options.pedestals,
                 "What pedestals the signals may have: subtracted (good to 3e-4), left-in (up to "
                 "1e-2, the default), or their rms in parts of the median signal")
      ->type_name("WORD|RMS");
  app.add_option("--output", options.output,
                 "Directory of the results, made where it is missing; by default one named after "
                 "date and time")
      ->type_name("DIR");
  app.add_flag("--orbits", options.wanted.orbits, "Write every orbit of every BPM: orbits.csv");
  app.add_option("--pdf", options.wanted.pdf, "Write all gains on paper of this size: gains.pdf")
      ->check(CLI::IsMember({"a4", "letter"}))
      ->type_name("a4|letter");
}

// The four words between commas; nothing where they are not four.
std::optional<std::vector<std::string>> four_columns(std::string_view text) {
  std::vector<std::string> words;
  for (;;) {
    const std::size_t end = std::min(text.find(','), text.size());
    words.emplace_back(util::trim(text.substr(0, end)));
    if (words.back().empty()) return std::nullopt;
    if (end == text.size()) break;
    text.remove_prefix(end + 1);
  }
  if (words.size() != 4) return std::nullopt;
  return words;
}

// What the library of options cannot check. The fault, empty when there is none.
std::string take_values(fit_options& options) {
  if (!options.columns.empty()) {
    const auto words = four_columns(options.columns);
    if (!words) return "--columns: " + options.columns + ", expected four columns as in A,B,C,D";
    options.choice.signals = *words;
  }
  if (std::count(options.files.begin(), options.files.end(), "-") > 1) {
    return "FILE: standard input cannot be read twice";
  }
  if (options.pedestals.empty() || options.pedestals == "left-in") return {};
  if (options.pedestals == "subtracted") {
    options.sigma_p = calibration::pedestals_subtracted;
    return {};
  }
  const auto rms = util::scan_real(options.pedestals);
  if (!rms || *rms <= 0 || *rms > 1) {
    return "--pedestals: " + options.pedestals +
           ", expected subtracted, left-in, or a part of the signal above 0";
  }
  options.sigma_p = *rms;
  return {};
}

int tell(const util::fault& f) {
  util::tell_line(util::line_of(f));
  return fault_status;
}

util::outcome<std::vector<column_readings>> read_files(const fit_options& options) {
  std::vector<std::vector<input::column_bpm>> read;
  for (const std::string& path : options.files) {
    const bool standard_input = path == "-";
    auto file = standard_input ? util::standard_input_file() : util::open_text_file(path);
    if (!file) return file.why;
    // The system's name for it, so that the record of the run holds what was in it where it can.
    util::note_file_read(standard_input ? "/dev/stdin" : path);
    auto columns = input::read_columns(*file, options.choice);
    if (!columns) return columns.why;
    read.push_back(std::move(*columns));
  }
  return join_columns(std::move(read));
}

// Rows that were passed over, BPM by BPM: which part of the data the gains do not speak of.
void tell_rows_left_out(const std::vector<column_readings>& readings) {
  for (const column_readings& bpm : readings) {
    if (bpm.left_out + bpm.silent == 0 || bpm.orbits.empty()) continue;
    util::tell_line(fmt::format(
        "BPM {} ({}): of {} rows {} lack a signal and {} are all 0; left out", bpm.bpm, bpm.name,
        bpm.orbits.size() + static_cast<std::size_t>(bpm.left_out) +
            static_cast<std::size_t>(bpm.silent),
        bpm.left_out, bpm.silent));
  }
}

std::string title_of(const fit_options& options, const std::vector<column_readings>& readings) {
  constexpr std::size_t most_named = 4;  // as in the title of a session
  std::string title;
  for (std::size_t i = 0; i < std::min(options.files.size(), most_named); ++i) {
    if (i > 0) title += ", ";
    title += options.files[i] == "-" ? "standard input"
                                     : std::filesystem::path(options.files[i]).filename().string();
  }
  if (options.files.size() > most_named) {
    title += fmt::format(" and {} more", options.files.size() - most_named);
  }
  std::size_t orbits = 0;
  for (const column_readings& bpm : readings) orbits = std::max(orbits, bpm.orbits.size());
  return title + fmt::format(", {} orbits", orbits);
}

util::status make_directory(const std::string& path) {
  std::error_code fault;
  std::filesystem::create_directories(path, fault);
  if (!fault && !std::filesystem::is_directory(path, fault) && !fault) {
    fault = std::make_error_code(std::errc::not_a_directory);
  }
  if (!fault) return {};
  return util::fault{"cannot make the directory: " + fault.message(), path, {}};
}

void print_verdicts(const report::run_results& results, const std::vector<std::string>& verdict) {
  for (std::size_t i = 0; i < results.bpm.size(); ++i) {
    if (verdict[i].empty()) continue;
    const report::bpm_row& row = results.bpm[i];
    util::print_line(fmt::format("BPM {} ({}): {}", row.bpm, util::shown(row.name), verdict[i]));
  }
}

void tell_summary(const report::run_results& results) {
  std::vector<std::string> lines{line_of_fitted(results)};
  std::vector<store::bpm_remark> not_fitted;
  for (const report::bpm_row& row : results.bpm) {
    if (row.verdict == report::verdict::not_fitted) {
      not_fitted.push_back({.bpm = row.bpm, .name = row.name, .reason = row.reason});
    }
  }
  add_lines_to_look_at(results, lines);
  add_lines_of_not_fitted(not_fitted, lines);
  lines.push_back(line_of_files(results));
  tell_lines(lines);
}

int run(const fit_options& options, const std::vector<std::string>& arguments) {
  // The record of the run looks at it until the process ends.
  static report::run_results results;
  util::show_long_steps();
  const auto began = std::chrono::steady_clock::now();
  const auto table = read_chamber_or_table(options.chamber);
  if (!table) {
    util::tell_line("--chamber: " + util::line_of(table.why));
    return util::wrong_call;
  }
  util::note_file_read(options.chamber, util::read_as::table);
  auto readings = read_files(options);
  if (!readings) return tell(readings.why);
  tell_rows_left_out(*readings);

  // From here on there are results, whatever they are worth.
  report::run_info& info = results.info;
  info.directory = options.output.empty() ? run_directory_name() : options.output;
  if (const auto fault = make_directory(info.directory)) return tell(*fault);
  info.title = title_of(options, *readings);
  const std::chrono::duration<double> reading = std::chrono::steady_clock::now() - began;
  info.seconds.emplace_back("data", reading.count());
  // From the record's first line on: one that is there says how the run ended.
  util::watch_interrupts();
  begin_record(results, command_of(arguments), arguments);
  begin_stage("fit");
  column_results fitted = fit_columns(*readings, {.table = &*table, .sigma_p = options.sigma_p});
  results.bpm = std::move(fitted.rows);
  if (fitted.interrupted) info.ended = "interrupted";
  begin_stage("results");
  const std::string data =
      info.title + "; the readings name no old coefficients: 1 stands for them";
  const bool written = write_run_files(results, data, options.wanted);
  // Behind the files: a pipe that nobody reads ends the run, and must not cost them.
  print_verdicts(results, fitted.verdict);
  if (fitted.interrupted) util::leave_interrupted();
  tell_summary(results);
  return written ? 0 : fault_status;
}

}  // namespace

int fit_command(int count, const char* const* arguments) {
  CLI::App app(about, "butngain fit");
  fit_options options;
  add_options(app, options);
  if (const auto status = util::read_call(app, count, arguments)) return *status;
  if (const std::string wrong = take_values(options); !wrong.empty()) {
    return util::refuse_call(app.get_name(), wrong);
  }
  return run(options, {arguments, arguments + count});
}

}  // namespace driver
