#include "command_line.hpp"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdio>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "dialog_options.hpp"
#include "fault.hpp"
#include "jobs.hpp"
#include "run_json.hpp"
#include "run_time.hpp"
#include "site.hpp"
#include "text.hpp"

namespace driver {
namespace {

constexpr const char* about =
    "Fits the four relative button gains of beam position monitors (BPMs) from recorded beam\n"
    "passages. Everything is asked in a dialog on the terminal; answers may also come from a "
    "pipe,\n"
    "one line each, or be given beforehand as options. Results go into a directory named after "
    "date\n"
    "and time, such as 20240131_235959, below the current one or that of --output.\n"
    "\n"
    "The environment variable KOVR_ONLINE names the root of the facility's data tree.\n"
    "\n"
    "butngain compare RUN RUN... compares the gains of earlier runs: butngain compare --help\n"
    "butngain fit FILE --chamber CHAMBER fits columns of any ring: butngain fit --help\n"
    "butngain many LIST makes a list of runs, on all cores or a batch system: butngain many "
    "--help\n"
    "butngain trend DIR... finds what changed in the course of many: butngain trend --help\n";

constexpr const char* answers_group = "Answers given beforehand";

// What shells' own commands end with on a wrong call; 1 would look like a run that began and
// failed.
constexpr int usage_error = 2;

// What says how the program is started, not what the run is.
constexpr std::array<std::string_view, 6> of_the_start{"--help",   "--version", "--output",
                                                       "--repeat", "--batch",   "--jobs"};
// More threads than any machine has cores are a mistyped number.
constexpr unsigned most_jobs = 1024;

// The fault and where help is, not the help itself: that is longer than a screen, and would push
// the fault out of it.
[[noreturn]] void refuse(const std::string& why) {
  util::tell_line(why + "; try butngain --help");
  util::stop_program(usage_error);
}

void add_dialog_options(CLI::App& app, std::vector<std::vector<std::string>>& values) {
  const auto& options = dialog_options();
  // All of them before the first option is added: the library keeps references to the lists, and
  // growing would move them.
  values.resize(options.size());
  for (std::size_t i = 0; i < options.size(); ++i) {
    const dialog_option& option = options[i];
    CLI::Option* added =
        app.add_option(std::string{option.name}, values[i], std::string{option.help});
    // One value each time: what follows it is no further one.
    added->expected(1)->allow_extra_args(false)->group(answers_group);
    // A question of the whole session cannot have two answers; of a data set each counts.
    added->multi_option_policy(option.times == counted::once ? CLI::MultiOptionPolicy::Throw
                                                             : CLI::MultiOptionPolicy::TakeAll);
    // Refused here rather than by the dialog, which would find out only when the data before that
    // question have been read.
    if (option.check != nullptr) {
      added->check(CLI::Validator(option.check, std::string{}));
    }
    added->type_name(std::string{option.type});
  }
}

// What a shell would have to be given to make this word.
std::string quoted(const std::string& word) {
  // No ~ among them: at the start of a word it stands for a home directory.
  constexpr std::string_view plain =
      "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-+=.,:/@%^";
  if (!word.empty() && word.find_first_not_of(plain) == std::string::npos) return word;
  std::string text = "'";
  for (const char c : word) text += c == '\'' ? std::string{"'\\''"} : std::string(1, c);
  return text + "'";
}

// A record says all that the command line of its run said. Only where the results go is chosen anew,
// and on how many threads: that changes none of them.
void refuse_beside_repeat(const CLI::App& app) {
  for (const CLI::Option* option : app.get_options()) {
    const std::string name = option->get_name();
    if (option->count() == 0 || name == "--repeat" || name == "--output" || name == "--jobs")
      continue;
    refuse(name + " cannot be given with --repeat, which takes it from the record");
  }
}

// The two call each other: a record holds a command line, which is parsed as one.
session_options parse(const std::vector<std::string>& arguments);

// The options of the recorded run, with the places of this one.
session_options options_of_record(const session_options& asked) {
  auto record = report::read_run_json(asked.repeat);
  if (!record) {
    util::tell_line("--repeat: " + util::line_of(record.why));
    util::stop_program(usage_error);
  }
  const std::vector<std::string> recorded = record->info.arguments;
  // A dialog is repeated; of the subcommand the command is all that it was.
  if (!recorded.empty() && recorded.front() == "fit") {
    refuse("--repeat: " + asked.repeat + " is of a run without a dialog; its command was \"" +
           record->info.command + "\"");
  }
  // Its own --repeat would lead on to another record; ours hold none.
  if (std::any_of(recorded.begin(), recorded.end(),
                  [](const std::string& word) { return word.starts_with("--repeat"); })) {
    refuse("--repeat: " + asked.repeat + " names another record");
  }
  // As if it were typed: a record that somebody edited meets the same checks.
  session_options options = parse(recorded);
  options.output = asked.output;
  if (asked.jobs_given) options.jobs = asked.jobs;
  options.command = asked.command;
  options.repeat = asked.repeat;
  options.repeated = std::move(record->info);
  return options;
}

// What a session can be told, and where it is kept.
struct told_options {
  CLI::App app{about, "butngain"};
  session_options session;
  std::vector<std::vector<std::string>> answers;
  bool batch = false;
};

void add_options(told_options& told) {
  CLI::App& app = told.app;
  session_options& options = told.session;
  auto& answers = told.answers;
  bool& batch = told.batch;
  app.set_version_flag("--version", fmt::format("butngain {}", site::version));
  app.get_version_ptr()->description("Print the version and exit");
  app.set_help_flag("-h,--help", "Print this help and exit");
  app.add_option("--chamber", options.chamber,
                 "Chamber, or table of one, of BPMs without a table of their own")
      ->type_name("FILE");
  app.add_flag("--orbits", options.list_orbits, "Write every orbit of every BPM: orbits.csv");
  app.add_flag("--coefficients", options.list_coefficients,
               "Write the new factors of the position tables: button_coeff.dat");
  app.add_option("--pdf", options.pdf, "Write all gains on paper of this size: gains.pdf")
      ->check(CLI::IsMember({"a4", "letter"}))
      ->type_name("a4|letter");
  app.add_option("--output", options.output, "Where the run's files go; made where it is missing")
      ->type_name("DIR");
  app.add_option("--repeat", options.repeat, "Make the run of this record (run.json) once more")
      ->type_name("FILE");
  app.add_option("--jobs", options.jobs,
                 "Threads that BPMs are fitted on; without it one, in batch all cores")
      ->check(CLI::Range(1U, most_jobs))
      ->type_name("N");
  app.add_flag("--batch", batch, "Ask nothing: take the defaults of questions without an option");
  add_dialog_options(app, answers);
}

session_options parse(const std::vector<std::string>& arguments) {
  told_options told;
  add_options(told);
  CLI::App& app = told.app;
  session_options& options = told.session;
  const auto& answers = told.answers;
  const bool& batch = told.batch;
  try {
    app.parse(std::vector<std::string>(arguments.rbegin(), arguments.rend()));  // last one first
  } catch (const CLI::Success& asked) {  // the library's way to tell of --help and --version
    app.exit(asked);
    util::stop_program(0);
  } catch (const CLI::ParseError& fault) {
    refuse(fault.what());
  }
  // Words for the repetition of the run, a line for people: without a shell the line cannot be
  // split into its words again.
  options.arguments = arguments;
  options.command = command_of(arguments);
  options.jobs_given = app.get_option("--jobs")->count() > 0;
  if (batch && !options.jobs_given) options.jobs = std::min(util::all_cores(), most_jobs);
  if (!options.repeat.empty()) {
    refuse_beside_repeat(app);
    return options_of_record(options);
  }
  auto dialog = prepare_dialog(answers, batch);
  if (!dialog) refuse(util::line_of(dialog.why));
  options.dialog = std::move(*dialog);
  return options;
}

}  // namespace

std::string command_of(const std::vector<std::string>& arguments) {
  std::string line = "butngain";
  for (const std::string& word : arguments) line += " " + quoted(word);
  return line;
}

std::vector<run_option> options_of_a_run() {
  told_options told;
  add_options(told);
  std::vector<run_option> all;
  for (const CLI::Option* option : told.app.get_options()) {
    const std::string name = option->get_name();
    if (std::find(of_the_start.begin(), of_the_start.end(), name) != of_the_start.end()) continue;
    all.push_back(
        {.name = name,
         .flag = option->get_expected_max() == 0,
         .several = option->get_multi_option_policy() == CLI::MultiOptionPolicy::TakeAll});
  }
  return all;
}

std::vector<std::string> start_of_a_run() {
  return {"--batch", "--jobs=1"};  // others use the other cores
}

util::status fault_of_run(const std::vector<std::string>& arguments) {
  told_options told;
  add_options(told);
  try {
    told.app.parse(std::vector<std::string>(arguments.rbegin(), arguments.rend()));
  } catch (const CLI::ParseError& fault) {  // none asks for help: a run has no such option
    return util::fault{fault.what(), {}, {}};
  }
  auto dialog = prepare_dialog(told.answers, told.batch);
  if (!dialog) return dialog.why;
  return {};
}

session_options read_command_line(int count, const char* const* arguments) {
  return parse({arguments + 1, arguments + count});
}

}  // namespace driver
