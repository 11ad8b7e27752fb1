#include "get_turn_by_turn.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>

#include "bunch_dialog.hpp"
#include "fault.hpp"
#include "file_answer.hpp"
#include "gain_fit_mod.hpp"
#include "list_io.hpp"
#include "multipliers.hpp"
#include "note.hpp"
#include "rdfile_list.hpp"
#include "read_turn_by_turn.hpp"
#include "run_numbers.hpp"
#include "run_time.hpp"
#include "site.hpp"
#include "tbt_mod.hpp"
#include "terminal.hpp"
#include "text.hpp"
#include "text_file.hpp"

namespace input {
namespace {

namespace fit = gain_fit_mod;

constexpr std::int32_t not_a_run = -999999;
constexpr std::size_t name_width = 100;  // of file names

enum file_type : std::int32_t { kbpm1_file = 1, text_file = 2, raw_file = 3, rde_file = 4 };

// Kept from data set to data set.
std::int32_t number = 0;           // run of the last one; at first the newest
std::string typed_file;            // the last one's answer, when it was a file and no run
tbt_mod::tbt_all_data_struct tbt;  // the raw data loaded last

// --- the answer -------------------------------------------------------------------------------

bool all_digits(std::string_view text) {
  return std::all_of(text.begin(), text.end(),
                     [](unsigned char c) { return std::isdigit(c) != 0; });
}

// Whether the variable that a site path begins with is set; a path without one needs none.
bool can_be_expanded(std::string_view path) {
  if (path.empty() || path[0] != '$') return true;
  return std::getenv(std::string{path.substr(1, path.find('/') - 1)}.c_str()) != nullptr;
}

// The answer of the data set before: its run, or its file as typed, for only that opens again. At
// first the newest run, where an index tells it.
std::string default_answer() {
  if (!typed_file.empty()) return typed_file;
  if (number <= 0 && !can_be_expanded(site::run_index)) return {};
  const auto run = number_to_true_number("TBT", number);
  // An index that is not there, or holds no run, offers none, and says no more. One that cannot be
  // read does: whoever takes the default would wonder.
  if (!run && !run.why.where.empty() && run.why.what != util::system_text(ENOENT)) {
    util::tell_line("no run is offered: " + util::line_of(run.why));
  }
  // At least four digits: shorter answers are no run numbers.
  return run ? fmt::format("{:04}", *run) : std::string{};
}

std::string ask_file() {
  const std::string def_file_name = default_answer();
  util::print_line(" file_name = " + def_file_name);
  std::string answer = util::ask_or_end(" Turn by turn data file ? (def = " + def_file_name + ") ",
                                        util::answer_kind::file);
  if (util::trim(answer).empty()) answer = def_file_name;
  util::print_line(" file_name = " + answer);
  return std::string{util::trim(answer)};
}

// The run that an answer means, as typed: 0 and less count back; not_a_run for a file name. Nothing
// when it is neither, which has been told.
std::optional<std::int32_t> typed_run(const std::string& answer) {
  constexpr std::size_t shortest = 4;
  constexpr std::size_t longest = 6;
  if (answer.size() == 1) return 0;
  if (answer[0] == '-') {
    const auto back = util::scan_integer(answer);
    if (!back) util::tell_bad_answer(answer, "a relative run number; type one, such as -3");
    return back;
  }
  if (answer.size() >= shortest && answer.size() <= longest) {
    if (all_digits(answer)) return util::scan_integer(answer);
    util::tell_bad_answer(answer,
                          "a run number, as answers of 4 to 6 characters are; a file of so "
                          "short a name can be typed as ./" +
                              answer);
    return {};
  }
  // RD-nnnnnn.dat names its run.
  constexpr std::string_view like = "RD-nnnnnn.dat";
  if (answer.size() == like.size() && answer.substr(0, 3) == "RD-" && answer.substr(9) == ".dat" &&
      all_digits(std::string_view{answer}.substr(3, longest))) {
    return util::scan_integer(std::string_view{answer}.substr(3, longest));
  }
  return not_a_run;
}

// The name that lists and summaries show: as typed, or with a run's number as its file has it. Of a
// path the last part, for the summaries lie in the run's own directory.
std::string shown_name(const std::string& answer, std::int32_t run) {
  if (run > not_a_run && all_digits(answer) && answer.size() > 1) {
    return run_file_name(run);
  }
  const std::string_view path = util::unquote(answer);
  return std::string{path.substr(path.rfind('/') + 1)};
}

// An answer that led nowhere, and what to type instead.
void tell_unusable(const util::fault& why, std::string_view instead) {
  util::print_line(fmt::format(" {}; type {}", util::shown(util::line_of(why)), instead));
}

// The run of a typed number, told when there is none.
bool find_run(std::int32_t typed, std::int32_t& run) {
  const auto found = number_to_true_number("TBT", typed);
  if (!found) {
    tell_unusable(found.why, "a run number of 4 to 6 digits");
    return false;
  }
  run = *found;
  // Counting back begins at the run before the newest: kept for compatibility.
  if (typed <= 0) --run;
  return true;
}

// Answer to run and names. False when the answer cannot be used, which has been told.
bool take_answer(const std::string& answer, std::int32_t& run) {
  if (answer.empty() || answer.size() >= name_width) {
    util::tell_bad_answer(answer, fmt::format("a run or a file of fewer than {} characters; type a "
                                              "run number of 4 to 6 digits or a file",
                                              name_width));
    return false;
  }
  const auto typed = typed_run(answer);
  if (!typed) return false;
  run = *typed;
  util::print_line(util::list_line().text("number = ").integer(run).str());
  if (run > not_a_run && !find_run(*typed, run)) return false;
  fit::in_file_0 = shown_name(answer, *typed);
  fit::in_file = run > not_a_run ? fit::in_file_0 : util::fixed_text<name_width>{answer};
  // The name stands in its full width: kept for compatibility.
  util::print_line(util::list_line()
                       .text("in_file = ")
                       .text(fit::in_file.all())
                       .text(" true number = ")
                       .integer(run)
                       .str());
  return true;
}

// --- type and place of the file ---------------------------------------------------------------

// Characters first..last of in_file, from 1, without blanks at the end.
std::string name_columns(std::size_t first, std::size_t last) {
  return std::string{util::trim_right(fit::in_file.all().substr(first - 1, last - first + 1))};
}

std::string in_archive(std::string_view archive, const std::string& subdir) {
  return fmt::format("{}{}/{}", archive, subdir, fit::in_file.trimmed());
}

bool says_version_3(util::text_file& file) {
  constexpr int lines_looked_at = 10;
  for (int i = 0; i < lines_looked_at && util::next_line(file); ++i) {
    const std::string_view line = std::string_view{file.line}.substr(0, name_width);
    if (line.find("File_Version") != std::string_view::npos &&
        line.find('3') != std::string_view::npos) {
      return true;
    }
  }
  return false;
}

// A run is raw data unless the text archive holds it in another version.
file_type run_type(const std::string& path) {
  auto file = util::open_text_file(path);
  return file && !says_version_3(*file) ? text_file : raw_file;
}

// Whether a file named by its path can be read as text, which is told when not. One that does not
// open is left to the reader, which also looks elsewhere.
bool is_text(const std::string& path) {
  // What comes out of a pipe can be read once only.
  std::error_code unknown;
  if (!std::filesystem::is_regular_file(path, unknown)) return true;
  auto file = util::open_text_file(path);
  if (!file || !says_version_3(*file)) return true;
  note(path + " holds raw data: answer its run number");
  return false;
}

// Type of the file; puts its directory before its name. Nothing when the file cannot be used, which
// has been told.
std::optional<file_type> find_file(std::int32_t run) {
  if (run > not_a_run) {
    // Runs lie in a directory per thousand: two digits of the name, three from 100000 on.
    const std::string subdir = name_columns(fit::in_file.item[3] == '0' ? 5 : 4, 6);
    const std::string archived = in_archive(site::tsharc_raw_dir, subdir);
    const file_type type = run_type(util::fullfilename(archived));
    if (type == text_file) fit::in_file = util::fullfilename(archived, name_width);
    return type;
  }
  const std::string subdir = name_columns(6, 7);
  if (name_columns(1, 3) == "RDe") {
    fit::in_file = util::fullfilename(in_archive(site::tsharc_raw_dir, subdir), name_width);
    return rde_file;
  }
  if (name_columns(1, 4) == "kbpm") {
    fit::in_file = util::fullfilename(in_archive(site::sharc_raw_dir, subdir), name_width);
    return kbpm1_file;
  }
  const auto path = path_of_answer(fit::in_file.trimmed(), name_width);
  if (!path) {
    tell_unusable(path.why, "a run number of 4 to 6 digits or a file");
    return {};
  }
  if (!is_text(*path)) return {};
  fit::in_file = *path;
  return text_file;
}

// --- reading ----------------------------------------------------------------------------------

void load_run(std::int32_t run, bool begins, std::int32_t max_nonlin_positions) {
  bool err = false;
  tbt_mod::tbt_read_data_file(run, fit::gain_correct, begins, tbt, err, true, max_nonlin_positions);
  if (err) {
    util::print_line(util::list_line().text("error reading file ").integer(run).str());
    util::stop_program(1);
  }
  util::print_line(util::list_line()
                       .text("Success reading file ")
                       .integer(run)
                       .text(" total_current= ")
                       .real(tbt.total_current)
                       .str());
}

void read_raw_runs(std::int32_t run, const util::fixed_text<16>& directory,
                   std::int32_t max_nonlin_positions) {
  fit::gain_correct = 3;
  std::int32_t answer = fit::gain_correct;
  util::ask_integer(
      " Correct tbt data for gain and pedestal ? "
      " (1=no_correct, 2=pedestal correct, 3=gain and pedestal correct ) ",
      answer);
  if (answer >= 1 && answer <= 3) fit::gain_correct = answer;
  util::print_line(util::list_line().text("gain correct = ").integer(answer).str());

  load_run(run, true, max_nonlin_positions);
  load_run(run - 1, false, max_nonlin_positions);
  const bunch_choice choice = ask_bunches(tbt);
  fit::pedestals_subtracted = fit::gain_correct > 1 || choice.empty_bunch != 0;
  read_turn_by_turn_3(tbt, choice.nbunch, choice.empty_bunch);
  write_rdfile_list(run, directory);
  write_rdfile_list(run - 1, directory);
}

// Reads the file. A fault when it opens nowhere; all others end the run.
util::status read_file(file_type type, std::int32_t run, const util::fixed_text<16>& directory,
                       std::int32_t max_nonlin_positions) {
  switch (type) {
    case kbpm1_file:
      return read_turn_by_turn_kbpm1();
    case text_file:
      return read_turn_by_turn();
    case raw_file:
      read_raw_runs(run, directory, max_nonlin_positions);
      return {};
    case rde_file:
      break;  // accepted, without a reader: kept for compatibility
  }
  return {};
}

// One question and what follows from it. False when the question must be asked again.
bool load_data_set(const util::fixed_text<16>& directory, std::int32_t max_nonlin_positions) {
  std::int32_t run = not_a_run;
  const std::string answer = ask_file();
  if (!take_answer(answer, run)) return false;
  const auto found = find_file(run);
  if (!found) return false;
  const file_type type = *found;
  if (type != raw_file) {
    util::print_line(util::list_line().text("in_file = ").text(fit::in_file.trimmed()).str());
  }
  std::fill_n(fit::dets.item.begin(), 100, 0);
  util::print_line(util::list_line().text(" tbt_file_type = ").integer(type).str());
  if (util::status why = read_file(type, run, directory, max_nonlin_positions)) {
    why->where = "cannot open " + why->where;
    tell_unusable(*why, "a run number of 4 to 6 digits or a file");
    return false;
  }
  number = run;
  typed_file = run > not_a_run ? std::string{} : answer;
  fit::rd_number = run;
  return true;
}

}  // namespace

void get_turn_by_turn(const util::fixed_text<16>& directory, std::int32_t max_nonlin_positions) {
  fit::orbit_data.clear();  // before the next set is read: a set can have 100 MB
  fit::norbits = 0;
  fit::pedestals_subtracted = false;  // text runs carry theirs
  fit::gain_coefficient.fill(0);      // and name no coefficients
  const auto name_before = fit::in_file_0;
  // A name that led nowhere is no default for the next question.
  while (!load_data_set(directory, max_nonlin_positions)) fit::in_file_0 = name_before;
  if (fit::expert) expert::ask_multipliers();
}

}  // namespace input
