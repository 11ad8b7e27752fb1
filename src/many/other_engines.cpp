#include <fcntl.h>
#include <fmt/format.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>
#include <system_error>

#include "child.hpp"
#include "engines.hpp"
#include "progress.hpp"
#include "run_time.hpp"
#include "text.hpp"
#include "whole_file.hpp"

namespace many {
namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;

// What tasks left is looked at so often: they may be on other machines, and a shared file system
// tells of nothing.
constexpr milliseconds look_pause{3000};
// Other machines' files are seen so late by a machine that asks its file server now and then.
constexpr milliseconds shown_late{15000};

// The program as the shell would find it; empty where it is not.
std::string path_of(const std::string& program) {
  const char* path = std::getenv("PATH");
  std::istringstream folders(path != nullptr ? path : "/usr/bin:/bin");
  for (std::string folder; std::getline(folders, folder, ':');) {
    std::string candidate = (folder.empty() ? "." : folder) + "/" + program;
    if (access(candidate.c_str(), X_OK) == 0 && !fs::is_directory(candidate)) return candidate;
  }
  return {};
}

// A word for a shell.
std::string quoted(const std::string& word) {
  std::string text = "'";
  for (const char c : word) text += c == '\'' ? std::string{"'\\''"} : std::string(1, c);
  return text + "'";
}

std::string first_line(const std::string& path) {
  std::ifstream file(path);
  std::string line;
  std::getline(file, line);
  return line;
}

std::string last_line(const std::string& path) {
  std::ifstream file(path);
  std::string last;
  for (std::string line; std::getline(file, line);) {
    if (!util::trim(line).empty()) last = line;
  }
  return util::shown(last);
}

// The tasks of an engine at work, and what is known of their runs.
struct task_watch {
  const engine_work& work;
  status_table& table;
  std::vector<std::size_t> open{};  // runs whose end has not been seen
};

void look_at_tasks(task_watch& watch, util::progress& line) {
  const auto has_ended = [&](std::size_t run) {
    const listed_run& listed = (*watch.work.runs)[run];
    auto now = status_on_disk(*watch.work.place, listed);
    if (!now) return false;
    if (now->state == run_state::waiting && in_the_making(*watch.work.place, listed.name)) {
      now->state = run_state::running;
    }
    if (now->state == watch.table.status[run].state) return false;
    set_status(watch.table, run, *now);
    if (now->state == run_state::failed) {
      util::tell_line(fmt::format("{}:{}: {} failed: {}", watch.work.list, listed.line, listed.name,
                                  now->reason));
    }
    return now->state == run_state::done || now->state == run_state::failed;
  };
  watch.open.erase(std::remove_if(watch.open.begin(), watch.open.end(), has_ended),
                   watch.open.end());
  line.at(static_cast<long long>(watch.table.status.size() - watch.open.size()));
  write_status(watch.table);
}

// Waits for the engine's program, and looks at what its tasks leave meanwhile.
// given    interrupt  ends the engine's work; done again as long as the program goes on, for it may
//                     not have begun what is to be ended
//          late       how long files of other machines may need to be seen here
template <class Interrupt>
void wait_for(child& program, task_watch& watch, const Interrupt& interrupt, milliseconds late) {
  util::progress line("runs", static_cast<long long>(watch.table.status.size()),
                      util::output_during::silence);
  while (!child_ended(program)) {
    wait_for_news(look_pause);
    if (interrupted_by() != 0) interrupt();
    look_at_tasks(watch, line);
  }
  // It need not have waited for the tasks that it told to end.
  if (interrupted_by() != 0) wait_for_all();
  look_at_tasks(watch, line);
  const auto ended = std::chrono::steady_clock::now();
  while (!watch.open.empty() && interrupted_by() == 0 &&
         std::chrono::steady_clock::now() - ended < late) {
    wait_for_news(look_pause);
    look_at_tasks(watch, line);
  }
  // What nobody made is to be made the next time.
  for (const std::size_t run : watch.open) set_status(watch.table, run, {});
  write_status(watch.table, true);
}

task_watch begin_watch(const engine_work& work, status_table& table) {
  for (const std::size_t run : work.to_do) forget_ended(*work.place, (*work.runs)[run].name);
  return {work, table, work.to_do};
}

// How a task calls this program, but for its part of the list.
std::vector<std::string> task_words(const engine_work& work) {
  return {work.place->program, "many", work.list, "--output", work.place->folder};
}

std::size_t shares_of(const engine_work& work) { return std::min(work.runs->size(), most_shares); }

// 1-3,7,12-20
std::string array_of(const engine_work& work) {
  std::set<std::size_t> shares;
  for (const std::size_t run : work.to_do) shares.insert(run % shares_of(work) + 1);
  std::string text;
  for (auto first = shares.begin(); first != shares.end();) {
    auto last = first;
    while (std::next(last) != shares.end() && *std::next(last) == *last + 1) ++last;
    if (!text.empty()) text += ',';
    text += std::to_string(*first);
    if (last != first) text += fmt::format("-{}", *last);
    first = std::next(last);
  }
  return text;
}

}  // namespace

util::status engine_missing(const std::string& engine) {
  if (engine == "local") return {};
  const std::string program = engine == "slurm" ? "sbatch" : "parallel";
  if (!path_of(program).empty()) return {};
  return util::fault{program + " is not installed here", "--engine " + engine, {}};
}

util::status run_parallel(const engine_work& work, status_table& table) {
  const std::string room = work.place->folder + "/.many/";
  std::string names;
  for (const std::size_t run : work.to_do) names += (*work.runs)[run].name + "\n";
  if (auto fault = util::write_whole_file(room + "parallel_names.txt", names)) return fault;
  std::vector<std::string> words{path_of("parallel"), "--will-cite", "--quote", "--ungroup",
                                 // Our sessions close their files before they are killed.
                                 "--termseq", "TERM,6000,KILL,25", "--jobs",
                                 std::to_string(work.jobs), "--arg-file",
                                 room + "parallel_names.txt"};
  for (const std::string& word : task_words(work)) words.push_back(word);
  words.insert(words.end(), {"--only", "{}"});
  task_watch watch = begin_watch(work, table);
  const std::string log = room + "parallel.txt";
  child program = start_child(words, {.output = log, .error = log, .at_our_death = SIGTERM});
  if (program.process < 0) {
    return util::fault{util::system_text(program.trouble), "parallel", {}};
  }
  wait_for(
      program, watch, [&] { kill(program.process, SIGTERM); }, milliseconds{0});
  // Up to 100 it is a number of tasks that failed, which they told themselves.
  constexpr int most_failed = 101;
  if (interrupted_by() != 0 || watch.open.empty()) return {};
  if (WIFEXITED(program.wait_status) && WEXITSTATUS(program.wait_status) <= most_failed) return {};
  return util::fault{last_line(log), "parallel", {}};
}

std::string slurm_script(const engine_work& work) {
  std::error_code none;
  const std::string throttle = work.jobs_given ? fmt::format("%{}", work.jobs) : "";
  std::string text = fmt::format(
      "#!/bin/bash\n"
      "# The runs of a list that are still to be made, a task for each or for a share of them.\n"
      "# What SBATCH_PARTITION, SBATCH_ACCOUNT, SBATCH_TIMELIMIT say counts too.\n"
      "#SBATCH --job-name=butngain\n"
      "#SBATCH --array={}{}\n"
      "#SBATCH --ntasks=1\n"
      "#SBATCH --cpus-per-task=1\n"
      "#SBATCH --output=/dev/null\n"
      "#SBATCH --requeue\n"
      "cd {} || exit 1\n",
      array_of(work), throttle, quoted(fs::current_path(none).string()));
  if (const char* root = std::getenv("KOVR_ONLINE")) {
    text += fmt::format("export KOVR_ONLINE={}\n", quoted(root));
  }
  text += "exec";
  for (const std::string& word : task_words(work)) text += " " + quoted(word);
  text +=
      fmt::format(" --share \"$SLURM_ARRAY_TASK_ID/{}\" >>{}\"$SLURM_ARRAY_TASK_ID.txt\" 2>&1\n",
                  shares_of(work), quoted(work.place->folder + "/.many/slurm_"));
  return text;
}

util::status run_slurm(const engine_work& work, status_table& table) {
  const std::string script = work.place->folder + "/slurm.sh";
  if (auto fault = util::write_whole_file(script, slurm_script(work))) return fault;
  const std::string said = work.place->folder + "/.many/sbatch.txt";
  const std::string faults = work.place->folder + "/.many/sbatch_messages.txt";
  // Told apart from other jobs by a name of its own: its number is known only when all is over.
  const std::string name = fmt::format("butngain-{}-{}", getpid(),
                                       std::chrono::system_clock::now().time_since_epoch().count());
  task_watch watch = begin_watch(work, table);
  child program =
      start_child({path_of("sbatch"), "--parsable", "--wait", "--job-name", name, script},
                  {.output = said, .error = faults});
  if (program.process < 0) return util::fault{util::system_text(program.trouble), "sbatch", {}};
  const auto cancel = [&] {
    child scancel = start_child({path_of("scancel"), "--name", name}, {});
    while (scancel.process > 0 && !child_ended(scancel)) wait_for_news(look_pause);
  };
  wait_for(program, watch, cancel, shown_late);
  if (interrupted_by() != 0 || watch.open.empty()) return {};
  // Without a number nothing was submitted.
  if (first_line(said).empty()) return util::fault{last_line(faults), "sbatch", {}};
  return util::fault{
      fmt::format(
          "{} of the runs were not made; what their tasks said stands in {}/.many/slurm_*.txt",
          watch.open.size(), work.place->folder),
      "slurm",
      {}};
}

}  // namespace many
