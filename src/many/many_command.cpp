#include "many_command.hpp"

#include <fmt/format.h>
#include <sched.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cstddef>
#include <filesystem>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "child.hpp"
#include "engines.hpp"
#include "list_io.hpp"
#include "progress.hpp"
#include "run_list.hpp"
#include "run_place.hpp"
#include "run_time.hpp"
#include "status_table.hpp"
#include "subcommand.hpp"
#include "whole_file.hpp"

namespace many {
namespace {

constexpr int all_done = 0, some_failed = 1, trouble = 2;
constexpr int most_jobs = 4096;

// One of so many parts of the list; 0 of 0 where all of it is meant.
struct list_share {
  int number = 0, of = 0;
};

struct many_options {
  std::string list, folder, engine = "local", share_text;
  int jobs = 0;  // 0: as many as there are cores
  std::vector<std::string> only;
  list_share share;
  bool dry_run = false;
};

int tell(const util::fault& f) {
  util::tell_line(util::line_of(f));
  return trouble;
}

// Of this process: a batch system gives fewer than there are.
int cores() {
  cpu_set_t set;
  CPU_ZERO(&set);
  if (sched_getaffinity(0, sizeof set, &set) != 0) return 1;
  return std::max(1, CPU_COUNT(&set));
}

std::string check_share(const std::string& text) {
  const auto bar = text.find('/');
  const auto number = util::scan_integer(text.substr(0, bar));
  const auto of =
      bar == std::string::npos ? std::nullopt : util::scan_integer(text.substr(bar + 1));
  if (number && of && *number >= 1 && *number <= *of) return {};
  return fmt::format("found \"{}\", expected such as 3/50", text);
}

void add_options(CLI::App& app, many_options& options) {
  app.set_help_flag("-h,--help", "Print this help and exit");
  app.add_option("LIST", options.list, "The runs: CSV, a column an option of the session")
      ->required();
  app.add_option("--output", options.folder, "Where a folder for each run is made, and status.csv")
      ->required()
      ->type_name("DIR");
  app.add_option("--engine", options.engine, "Who runs the sessions")
      ->capture_default_str()
      ->check(CLI::IsMember({"local", "parallel", "slurm"}))
      ->type_name("local|parallel|slurm");
  app.add_option("--jobs", options.jobs, "Sessions at a time; by default one a core")
      ->check(CLI::Range(1, most_jobs))
      ->type_name("N");
  app.add_flag(
      "--dry-run", options.dry_run,
      "Run nothing: bring status.csv up to date and print the names of the runs that are to "
      "be made; with --engine slurm write the batch script slurm.sh");
  app.add_option("--only", options.only, "For scripts: make this run; again for more")
      ->expected(1)
      ->allow_extra_args(false)
      ->type_name("NAME");
  app.add_option("--share", options.share_text,
                 "For scripts: make the I-th of N shares of the list")
      ->check(CLI::Validator(check_share, std::string{}))
      ->type_name("I/N");
}

util::outcome<std::string> own_program() {
  std::error_code fault;
  const auto path = std::filesystem::read_symlink("/proc/self/exe", fault);
  if (fault) return util::fault{fault.message(), "/proc/self/exe", {}};
  return path.string();
}

// --- which runs ----------------------------------------------------------------------------------

// The runs of the call, as places in the list. The fault names one of --only that is not there.
util::outcome<std::vector<std::size_t>> chosen_runs(const many_options& options,
                                                    const std::vector<listed_run>& runs) {
  std::vector<std::size_t> chosen;
  for (std::size_t i = 0; i < runs.size(); ++i) {
    const bool named = options.only.empty() || std::find(options.only.begin(), options.only.end(),
                                                         runs[i].name) != options.only.end();
    const auto of = static_cast<std::size_t>(options.share.of);
    const bool shared = of == 0 || i % of + 1 == static_cast<std::size_t>(options.share.number);
    if (named && shared) chosen.push_back(i);
  }
  for (const std::string& name : options.only) {
    if (std::none_of(runs.begin(), runs.end(),
                     [&](const listed_run& r) { return r.name == name; })) {
      return util::fault{"--only: there is no run " + name, options.list, {}};
    }
  }
  return chosen;
}

// How far all of them are, and those that are to be made. A changed line is told: its run is replaced.
util::status look_at_runs(const many_options& options, const std::vector<std::size_t>& chosen,
                          engine_work& work, status_table& table) {
  std::vector<std::string> changed;
  for (const std::size_t run : chosen) {
    const listed_run& listed = (*work.runs)[run];
    bool other = false;
    const auto now = status_on_disk(*work.place, listed, &other);
    if (!now) {
      return util::fault{
          util::line_of(now.why), fmt::format("{}:{}", options.list, listed.line), {}};
    }
    if (other) changed.push_back(listed.name);
    set_status(table, run, *now);
    if (now->state != run_state::done) work.to_do.push_back(run);
  }
  if (!changed.empty()) {
    util::tell_line(
        fmt::format("changed in the list, to be made again: {}", fmt::join(changed, ", ")));
  }
  return {};
}

// --- what is done with them ----------------------------------------------------------------------

// The names go to standard output, a line each: lists of other batch systems are made of them.
int dry_run(const many_options& options, const engine_work& work, status_table& table) {
  write_status(table, true);
  std::string names;
  for (const std::size_t run : work.to_do) names += (*work.runs)[run].name + "\n";
  if (std::fwrite(names.data(), 1, names.size(), stdout) != names.size()) {
    return tell({util::system_text(errno), "writing standard output", {}});
  }
  if (options.engine != "slurm" || work.to_do.empty()) return all_done;
  const std::string script = options.folder + "/slurm.sh";
  if (const auto fault = util::write_whole_file(script, slurm_script(work))) return tell(*fault);
  util::tell_line("submit with: sbatch " + script);
  return all_done;
}

util::status run_engine(const std::string& engine, const engine_work& work, status_table& table) {
  if (engine == "slurm") return run_slurm(work, table);
  if (engine == "parallel") return run_parallel(work, table);
  run_local(work, table);
  return {};
}

// What it came to, in one line.
void tell_summary(const many_options& options, const status_table& table, std::size_t chosen,
                  std::size_t before) {
  const std::size_t done = count_of(table, run_state::done);
  const std::size_t failed = count_of(table, run_state::failed);
  std::string line = fmt::format("{} run{}: {} done", chosen, chosen == 1 ? "" : "s", done);
  if (before > 0) line += fmt::format(" ({} before)", before);
  line += fmt::format(", {} failed", failed);
  if (done + failed < chosen) line += fmt::format(", {} not made", chosen - done - failed);
  if (table.kept) line += fmt::format(": {}/status.csv", options.folder);
  util::tell_line(line);
}

int make_runs(const many_options& options, const engine_work& work, status_table& table,
              std::size_t chosen) {
  const std::size_t before = count_of(table, run_state::done);
  for (const std::size_t run : work.to_do) set_status(table, run, {});
  write_status(table, true);
  util::status fault;
  if (!work.to_do.empty()) fault = run_engine(options.engine, work, table);
  if (fault) util::tell_line(util::line_of(*fault));
  if (interrupted_by() != 0) util::tell_line("interrupted; the same call goes on");
  tell_summary(options, table, chosen, before);
  if (interrupted_by() != 0) die_interrupted();
  return count_of(table, run_state::done) == chosen && !table.fault ? all_done : some_failed;
}

int run(const many_options& options, const session_words& session) {
  const bool task = !options.only.empty() || options.share.of > 0;
  if (task && options.engine != "local") {
    return tell({"--only and --share are for tasks, which make their runs themselves",
                 "--engine " + options.engine,
                 {}});
  }
  const auto runs = read_run_list(options.list, session);
  if (!runs) return tell(runs.why);
  const auto chosen = chosen_runs(options, *runs);
  if (!chosen) return tell(chosen.why);
  // Writing a batch script needs no batch system.
  if (!options.dry_run) {
    if (const auto fault = engine_missing(options.engine)) return tell(*fault);
  }
  const auto program = own_program();
  if (!program) return tell(program.why);
  const run_place place{.folder = options.folder, .program = *program, .start = session.start};
  if (const auto fault = open_place(place)) return tell(*fault);
  file_lock lock;
  // A task is one of many at work on the list, each on its own part; an engine is alone.
  const lock_taken taken = task ? lock_taken::yes : take_engine_lock(place, lock);
  if (taken == lock_taken::held) {
    return tell({"another butngain many is at work there", options.folder, {}});
  }
  if (taken == lock_taken::fault) {
    return tell({"cannot be locked: " + util::system_text(errno), options.folder, {}});
  }
  if (!task && !options.dry_run) remove_leftovers(place);
  status_table table{.place = &place, .runs = &*runs, .status = {}, .kept = !task};
  table.status.resize(runs->size());
  table.dirty = true;
  engine_work work{.place = &place, .runs = &*runs, .to_do = {}, .list = options.list};
  work.jobs_given = options.jobs > 0;
  work.jobs = work.jobs_given ? options.jobs : task ? 1 : cores();
  if (const auto fault = look_at_runs(options, *chosen, work, table)) return tell(*fault);
  if (options.dry_run) return dry_run(options, work, table);
  watch_signals();
  return make_runs(options, work, table, chosen->size());
}

}  // namespace

int many_command(int count, const char* const* arguments, const session_words& session) {
  CLI::App app(
      "Makes the runs of a list, each a session of its own: a folder a run, and status.csv. Runs "
      "that are done already stay; a call that was ended, or had failures, goes on when it is "
      "repeated.\nExit status: 0 all runs are done, 1 some are not, 2 a fault of the call or the "
      "list.",
      "butngain many");
  many_options options;
  add_options(app, options);
  if (const auto status = util::read_call(app, count, arguments)) return *status;
  if (!options.share_text.empty()) {
    const auto bar = options.share_text.find('/');
    options.share.number = util::scan_integer(options.share_text.substr(0, bar)).value_or(0);
    options.share.of = util::scan_integer(options.share_text.substr(bar + 1)).value_or(0);
  }
  // found/ is found: its name stands in the records.
  while (options.folder.size() > 1 && options.folder.back() == '/') options.folder.pop_back();
  util::show_long_steps();
  return run(options, session);
}

}  // namespace many
