#include "trend_command.hpp"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "apart.hpp"
#include "calendar.hpp"
#include "run_time.hpp"
#include "subcommand.hpp"
#include "trend_report.hpp"
#include "whole_file.hpp"

namespace report {
namespace {

namespace fs = std::filesystem;

// As of `compare`: a script can tell a change from a fault.
constexpr int nothing_changed = 0, something_changed = 1, trouble = 2;

struct trend_options {
  trend_choice choice;
  std::string since, until, output = ".";
  trend_limits limits;
};

int tell(const util::fault& f) {
  util::tell_line(util::line_of(f));
  return trouble;
}

void add_options(CLI::App& app, trend_options& options) {
  app.set_help_flag("-h,--help", "Print this help and exit");
  app.add_option("DIR", options.choice.folders, "Folders in which runs lie, at any depth")
      ->required()
      ->expected(1, -1);
  app.add_option(
         "--output", options.output,
         "Where trend.html, trend.csv, changes.csv, trend.png and changes.png go; made where "
         "it is missing")
      ->capture_default_str()
      ->type_name("DIR");
  app.add_option("--since", options.since,
                 "First moment, such as 2026-03-04 or 2026-03-04T12:30+01:00")
      ->type_name("TIME");
  app.add_option("--until", options.until, "Last moment; a date means its whole day")
      ->type_name("TIME");
  app.add_option("--bpm", options.choice.bpms,
                 "Only BPMs of this name or index; several times for several")
      ->expected(1)
      ->take_all()
      ->type_name("BPM");
  app.add_option("--times", options.choice.times,
                 "When data were taken: lines of a folder, or of a run's number, and a time; "
                 "otherwise a run counts when the program ran")
      ->type_name("FILE");
  app.add_option("--errors", options.limits.errors, "A change is more than this many of its errors")
      ->capture_default_str()
      ->check(CLI::PositiveNumber)
      ->type_name("N");
  app.add_option("--floor", options.limits.floor, "and more than this of a gain ratio")
      ->capture_default_str()
      ->check(CLI::NonNegativeNumber)
      ->type_name("CHANGE");
}

util::status take_time(const std::string& text, const char* option, bool whole_day,
                       std::optional<double>& day) {
  if (text.empty()) return {};
  day = day_of(text);
  if (!day) {
    return util::fault{"found \"" + text + "\"", option,
                       "a time such as 2026-03-04 or 2026-03-04T12:30"};
  }
  constexpr std::size_t date = 10;
  if (whole_day && text.size() == date) *day += 1;
  return {};
}

util::status print(const std::string& text) {
  errno = 0;
  if (std::fwrite(text.data(), 1, text.size(), stdout) == text.size() && std::fflush(stdout) == 0) {
    return {};
  }
  return util::fault{util::system_text(errno), "writing standard output", {}};
}

util::status write_picture(const std::string& path, const std::string& bytes) {
  if (bytes.empty()) return util::fault{"the picture could not be drawn", path, {}};
  return util::write_whole_file(path, bytes);
}

util::status write_files(const trend_result& r, const std::string& output) {
  std::error_code error;
  fs::create_directories(output, error);
  if (error) return util::fault{error.message(), output, "a folder that can be made"};
  const auto in = [&output](const char* name) { return (fs::path(output) / name).string(); };
  if (auto fault = write_trend_csv(in("trend.csv"), r)) return fault;
  if (auto fault = util::write_whole_file(in("changes.csv"), changes_csv(r))) return fault;
  // The page too measures its texts with the drawing library.
  return util::done_apart(in("trend.html"), [&]() -> util::status {
    if (auto fault = util::write_whole_file(in("trend.html"), trend_html(r))) return fault;
    if (auto fault = write_picture(in("trend.png"), trend_png(r))) return fault;
    return write_picture(in("changes.png"), changes_png(r));
  });
}

int run(trend_options& options) {
  trend_choice& choice = options.choice;
  if (auto fault = take_time(options.since, "--since", false, choice.since)) return tell(*fault);
  if (auto fault = take_time(options.until, "--until", true, choice.until)) return tell(*fault);
  auto data = read_trend_data(choice);
  if (!data) return tell(data.why);
  // An empty answer would be taken for "nothing changed".
  if (data->run.empty()) {
    for (const left_out_run& out : data->left_out) {
      util::tell_line(out.directory + ": " + out.why);
    }
    return tell(
        {"no whole run to look at", choice.folders.front(), "folders with run.json and gains.csv"});
  }
  if (data->bpm.empty()) return tell({"no such BPM in the runs", choice.folders.front(), {}});
  trend_result r{std::move(*data), {}, options.limits, !choice.times.empty()};
  r.bpm = trends_of(r.data, r.limits);
  if (auto fault = print(trend_text(r))) return tell(*fault);
  if (auto fault = write_files(r, options.output)) return tell(*fault);
  return std::any_of(r.bpm.begin(), r.bpm.end(), changed) ? something_changed : nothing_changed;
}

}  // namespace

int trend_command(int count, const char* const* arguments) {
  CLI::App app(
      "Gains of many runs in time order: steps, drifts and runs that are off, as text, tables, "
      "pictures and a page.\nExit status: 0 nothing changed, 1 something did, 2 a fault.",
      "butngain trend");
  trend_options options;
  add_options(app, options);
  if (const auto status = util::read_call(app, count, arguments)) return *status;
  return run(options);
}

}  // namespace report
