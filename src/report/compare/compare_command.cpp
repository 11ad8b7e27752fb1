#include <CLI/CLI.hpp>
#include <algorithm>
#include <string>
#include <vector>

#include "apart.hpp"
#include "compare_runs.hpp"
#include "run_time.hpp"
#include "subcommand.hpp"
#include "whole_file.hpp"

namespace report {
namespace {

// As of programs that compare files: a script can ask "did anything change" without taking a fault
// for an answer.
constexpr int nothing_changed = 0, something_changed = 1, trouble = 2;

struct compare_options {
  std::vector<std::string> runs;
  std::string csv, picture;
  change_limits limits;
};

// One line on standard error, not the end of the process: a status of 1 would mean a change.
int tell(const util::fault& f) {
  util::tell_line(util::line_of(f));
  return trouble;
}

void add_options(CLI::App& app, compare_options& options) {
  app.set_help_flag("-h,--help", "Print this help and exit");
  app.add_option("RUN", options.runs, "Directories of runs, or their gains.csv; two or more")
      ->required()
      // No upper bound: a year of runs is a fair question.
      ->expected(2, -1);
  app.add_option("--csv", options.csv, "Write the comparison for programs")->type_name("FILE");
  app.add_option("--picture", options.picture, "Draw the gains against the run (PNG)")
      ->type_name("FILE");
  // The help shows both limits: they are a judgement that the reader need not share.
  app.add_option("--errors", options.limits.errors, "A change is more than this many of its errors")
      ->capture_default_str()
      ->check(CLI::NonNegativeNumber)
      ->type_name("N");
  app.add_option("--floor", options.limits.floor, "and more than this of a ratio of two buttons")
      ->capture_default_str()
      ->check(CLI::NonNegativeNumber)
      ->type_name("CHANGE");
}

// Not through the session's printing: that would end with the status that says "something changed".
util::status print(const std::string& text) {
  errno = 0;
  if (std::fwrite(text.data(), 1, text.size(), stdout) == text.size() && std::fflush(stdout) == 0) {
    return {};
  }
  return util::fault{util::system_text(errno), "writing standard output", {}};
}

util::status write_picture(const comparison& c, const std::string& path) {
  const std::string bytes = comparison_png(c);
  if (bytes.empty()) return util::fault{"the picture could not be drawn", path, {}};
  return util::write_whole_file(path, bytes);
}

// Behind the text: a file that cannot be written leaves the answer on the screen.
util::status write_files(const comparison& c, const compare_options& options) {
  if (!options.csv.empty()) {
    if (auto fault = util::write_whole_file(options.csv, comparison_csv(c))) return fault;
  }
  if (options.picture.empty()) return {};
  return util::done_apart(options.picture, [&] { return write_picture(c, options.picture); });
}

int run(const compare_options& options) {
  // All are read before anything is said: half a comparison, with a fault below it, would be taken
  // for the whole.
  std::vector<read_run> runs;
  for (const std::string& path : options.runs) {
    auto read = read_run_directory(path);
    if (!read) return tell(read.why);
    runs.push_back(std::move(*read));
  }
  const comparison c = compare_runs(std::move(runs), options.limits);
  if (auto fault = print(comparison_text(c))) return tell(*fault);
  if (auto fault = write_files(c, options)) return tell(*fault);
  const bool changed = std::any_of(c.bpm.begin(), c.bpm.end(),
                                   [](const compared_bpm& b) { return !b.disagree.empty(); });
  return changed ? something_changed : nothing_changed;
}

}  // namespace

int compare_command(int count, const char* const* arguments) {
  CLI::App app(
      "Compares the gains of two or more runs: which BPMs changed, by how much, and in "
      "units of the error.\nExit status: 0 nothing changed, 1 something did, 2 a fault.",
      "butngain compare");
  compare_options options;
  add_options(app, options);
  if (const auto status = util::read_call(app, count, arguments)) return *status;
  return run(options);
}

}  // namespace report
