#include "run_place.hpp"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <string_view>
#include <system_error>
#include <utility>

#include "run_json.hpp"
#include "run_time.hpp"
#include "text.hpp"
#include "whole_file.hpp"

namespace many {
namespace {

namespace fs = std::filesystem;

constexpr std::array<std::string_view, 4> state_words{"waiting", "running", "done", "failed"};

std::string hidden(const run_place& place, std::string_view what) {
  return fmt::format("{}/.many/{}", place.folder, what);
}
std::string making(const run_place& place, const std::string& name) {
  return hidden(place, "making/" + name);
}
std::string folder_of(const run_place& place, const std::string& name) {
  return place.folder + "/" + name;
}

// What a run's own folder is told to its session as; its record keeps it.
constexpr std::string_view output_option = "--output=";
constexpr std::string_view made_below = "/.many/making/";

lock_taken take_lock(const std::string& path, file_lock& lock) {
  constexpr mode_t everybody = 0666;  // less what the umask takes away
  // A lock's file is removed by the last who held it: one that is gone once the lock is there is
  // nobody's lock any more.
  for (;;) {
    file_lock taken;
    // NOLINTNEXTLINE(*-vararg): the system's own interface
    taken.file = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, everybody);
    if (taken.file < 0) return lock_taken::fault;
    if (flock(taken.file, LOCK_EX | LOCK_NB) != 0) {
      return errno == EWOULDBLOCK ? lock_taken::held : lock_taken::fault;
    }
    struct stat held {};
    struct stat named {};
    if (fstat(taken.file, &held) != 0 || stat(path.c_str(), &named) != 0 ||
        held.st_ino != named.st_ino || held.st_dev != named.st_dev) {
      continue;
    }
    taken.path = path;  // ours, and so to be removed
    lock = std::move(taken);
    return lock_taken::yes;
  }
}

// Words without the place of the results, which is ours to choose.
std::vector<std::string> options_of(const run_place& place, std::vector<std::string> arguments) {
  std::erase_if(arguments, [&](const std::string& word) {
    return word.starts_with(output_option) ||
           std::find(place.start.begin(), place.start.end(), word) != place.start.end();
  });
  return arguments;
}

bool made_here(const std::vector<std::string>& arguments, const std::string& name) {
  const std::string end = std::string{made_below} + name;
  return std::any_of(arguments.begin(), arguments.end(), [&](const std::string& word) {
    return word.starts_with(output_option) && word.ends_with(end);
  });
}

// --- how a session ended, kept for status.csv ----------------------------------------------------

struct ended_run {
  run_status status;
  std::vector<std::string> options;
};

// One line of numbers, the reason, then the options, a line each. None of them holds a line end.
std::string text_of(const ended_run& ended) {
  std::string text = fmt::format("{} {:.3f} {:.3f} {:.1f}\n{}\n", text_of(ended.status.state),
                                 ended.status.seconds, ended.status.cpu_seconds,
                                 ended.status.memory_mb, ended.status.reason);
  for (const std::string& option : ended.options) text += option + "\n";
  return text;
}

// Nothing where none is known: what it says is no more than times and a reason.
std::optional<ended_run> read_ended(const run_place& place, const std::string& name) {
  std::ifstream file(hidden(place, "ended/" + name));
  std::string numbers, word;
  ended_run ended;
  if (!std::getline(file, numbers) || !std::getline(file, ended.status.reason)) return {};
  std::istringstream values(numbers);
  values >> word >> ended.status.seconds >> ended.status.cpu_seconds >> ended.status.memory_mb;
  if (!values) return {};
  ended.status.state = word == text_of(run_state::done) ? run_state::done : run_state::failed;
  for (std::string option; std::getline(file, option);) ended.options.push_back(option);
  return ended;
}

// --- what a session that failed has to say -------------------------------------------------------

// The last line that says something, without the program's name. Not those of a stack trace.
std::string last_message(const std::string& path) {
  std::ifstream file(path);
  std::string last;
  for (std::string line; std::getline(file, line);) {
    const bool trace = line.ends_with(']') && line.find("[0x") != std::string::npos;
    if (!trace && !util::trim(line).empty()) last = line;
  }
  constexpr std::string_view name = "butngain: ";
  return last.starts_with(name) ? last.substr(name.size()) : last;
}

std::string reason_of(const run_place& place, const std::string& name, int wait_status) {
  if (WIFSIGNALED(wait_status)) {
    const int number = WTERMSIG(wait_status);
    return fmt::format("killed by signal {} ({})", number,
                       strsignal(number));  // NOLINT(concurrency-mt-unsafe)
  }
  std::string said = util::shown(last_message(messages_of(place, name)));
  // Some faults are part of the described transcript.
  if (said.empty()) said = util::shown(last_message(transcript_of(place, name)));
  const int status = WEXITSTATUS(wait_status);
  return said.empty() ? fmt::format("status {}", status) : std::string{util::trim(said)};
}

// --- from the session's folder to the run's ------------------------------------------------------

// 20261121_093015
bool is_dated(const std::string& name) {
  constexpr std::size_t length = 15, bar = 8;
  if (name.size() != length || name[bar] != '_') return false;
  return std::count_if(name.begin(), name.end(), [](char c) { return c >= '0' && c <= '9'; }) ==
         length - 1;
}

// The session's own folder is named after the time; a run of a list has one already.
util::status lift_results(const std::string& folder) {
  std::error_code fault;
  std::vector<fs::path> dated;
  for (const fs::directory_entry& entry : fs::directory_iterator(folder, fault)) {
    if (is_dated(entry.path().filename().string())) dated.push_back(entry.path());
  }
  for (const fs::path& from : dated) {
    std::vector<fs::path> files;
    for (const fs::directory_entry& entry : fs::directory_iterator(from, fault)) {
      files.push_back(entry.path());
    }
    for (const fs::path& file : files) {
      const fs::path to = fs::path(folder) / file.filename();
      if (fs::exists(fs::symlink_status(to, fault))) {
        return util::fault{"is there twice", to.string(), "one file of a name"};
      }
      fs::rename(file, to, fault);
      if (fault) return util::fault{fault.message(), to.string(), {}};
    }
    fs::remove(from, fault);
  }
  if (fault) return util::fault{fault.message(), folder, {}};
  return {};
}

// Where the record says that the results lie, they are to lie. One that cannot be read stays as it is.
util::status name_folder_in_record(const run_place& place, const std::string& name) {
  const std::string path = making(place, name) + "/run.json";
  auto record = report::read_run_json(path);
  if (!record) return record.why;
  record->info.directory = folder_of(place, name);
  return report::write_run_json(path, *record);
}

// So that a person who reads the messages finds the files.
util::status name_folder_in_messages(const run_place& place, const std::string& name) {
  const std::string path = messages_of(place, name);
  std::ifstream file(path);
  std::ostringstream all;
  all << file.rdbuf();
  std::string text = all.str();
  const std::string before = making(place, name), after = folder_of(place, name);
  for (auto at = text.find(before); at != std::string::npos; at = text.find(before, at)) {
    std::size_t length = before.size();
    constexpr std::size_t dated = 15;
    if (text.compare(at + length, 1, "/") == 0 && is_dated(text.substr(at + length + 1, dated))) {
      length += 1 + dated;
    }
    text.replace(at, length, after);
    at += after.size();
  }
  return util::write_whole_file(path, text);
}

util::status rename_folder(const std::string& from, const std::string& to) {
  std::error_code fault;
  const std::string before = from + ".before";
  fs::remove_all(before, fault);
  // A folder of that name goes first: it was made for what the line said before. A call that is
  // killed between the two leaves none, and the next one makes the run.
  if (fs::exists(fs::symlink_status(to, fault))) fs::rename(to, before, fault);
  if (!fault || fault == std::errc::no_such_file_or_directory) fs::rename(from, to, fault);
  if (fault) return util::fault{fault.message(), to, {}};
  fs::remove_all(before, fault);
  return {};
}

util::status finish_folder(const run_place& place, const std::string& name) {
  if (auto fault = lift_results(making(place, name))) return fault;
  if (auto fault = name_folder_in_record(place, name)) return fault;
  return name_folder_in_messages(place, name);
}

}  // namespace

std::string_view text_of(run_state state) {
  return state_words.at(static_cast<std::size_t>(state));
}

file_lock::file_lock(file_lock&& other) noexcept
    : file(std::exchange(other.file, -1)), path(std::exchange(other.path, {})) {}

file_lock& file_lock::operator=(file_lock&& other) noexcept {
  std::swap(file, other.file);
  std::swap(path, other.path);
  return *this;
}

file_lock::~file_lock() {
  if (file < 0) return;
  // Removed while it is held: whoever opens the name meanwhile sees that it is another file's.
  if (!path.empty()) static_cast<void>(unlink(path.c_str()));
  static_cast<void>(close(file));
}

util::status open_place(const run_place& place) {
  for (const std::string& folder :
       {hidden(place, "making"), hidden(place, "failed"), hidden(place, "ended")}) {
    std::error_code fault;
    fs::create_directories(folder, fault);
    if (fault) return util::fault{fault.message(), folder, "a folder that can be made"};
  }
  return {};
}

lock_taken take_run_lock(const run_place& place, const std::string& name, file_lock& lock) {
  return take_lock(making(place, name) + ".lock", lock);
}

lock_taken take_engine_lock(const run_place& place, file_lock& lock) {
  return take_lock(hidden(place, "lock"), lock);
}

util::outcome<run_status> status_on_disk(const run_place& place, const listed_run& run,
                                         bool* changed) {
  const std::string folder = folder_of(place, run.name);
  std::error_code none;
  const bool there = fs::exists(fs::symlink_status(folder, none));
  auto ended = read_ended(place, run.name);
  if (ended && ended->options != run.options) ended.reset();
  if (there) {
    const auto record = report::read_run_json(folder + "/run.json");
    // Nobody's work is put aside for a list that happens to use its name.
    if (!record || !made_here(record->info.arguments, run.name)) {
      return util::fault{"is there, and is no run of a list", folder, "another name, or folder"};
    }
    if (options_of(place, record->info.arguments) == run.options) {
      run_status status;
      if (ended && ended->status.state == run_state::done) status = ended->status;
      status.state = run_state::done;
      return status;
    }
    if (changed != nullptr) *changed = true;
  }
  if (ended && ended->status.state == run_state::failed) return ended->status;
  return run_status{};
}

bool in_the_making(const run_place& place, const std::string& name) {
  std::error_code none;
  return fs::exists(making(place, name), none);
}

void forget_ended(const run_place& place, const std::string& name) {
  std::error_code none;
  fs::remove(hidden(place, "ended/" + name), none);
}

std::vector<std::string> session_command(const run_place& place, const listed_run& run) {
  std::vector<std::string> words{place.program};
  words.insert(words.end(), place.start.begin(), place.start.end());
  words.push_back(std::string{output_option} + making(place, run.name));
  words.insert(words.end(), run.options.begin(), run.options.end());
  return words;
}

util::status begin_run(const run_place& place, const listed_run& run) {
  std::error_code fault;
  const std::string folder = making(place, run.name);
  fs::remove_all(folder, fault);
  if (!fault) fs::create_directory(folder, fault);
  if (fault) return util::fault{fault.message(), folder, {}};
  return {};
}

std::string transcript_of(const run_place& place, const std::string& name) {
  return making(place, name) + "/session.txt";
}
std::string messages_of(const run_place& place, const std::string& name) {
  return making(place, name) + "/messages.txt";
}

run_status end_run(const run_place& place, const listed_run& run, int wait_status,
                   const rusage& usage, double seconds) {
  const auto seconds_of = [](const timeval& t) {
    return static_cast<double>(t.tv_sec) + 1e-6 * static_cast<double>(t.tv_usec);
  };
  constexpr double mb_per_kib = 1.024e-3;
  ended_run ended;
  ended.options = run.options;
  run_status& status = ended.status;
  status.seconds = seconds;
  status.cpu_seconds = seconds_of(usage.ru_utime) + seconds_of(usage.ru_stime);
  status.memory_mb = mb_per_kib * static_cast<double>(usage.ru_maxrss);
  util::status fault;
  if (WIFEXITED(wait_status) && WEXITSTATUS(wait_status) == 0) {
    status.state = run_state::done;
    fault = finish_folder(place, run.name);
    // Its times first: they are not believed as long as the folder is not there.
    if (!fault) {
      fault = util::write_whole_file(hidden(place, "ended/" + run.name), text_of(ended));
    }
    if (!fault) fault = rename_folder(making(place, run.name), folder_of(place, run.name));
    if (!fault) {
      std::error_code none;
      fs::remove_all(hidden(place, "failed/" + run.name), none);
      return status;
    }
  }
  status.state = run_state::failed;
  status.reason =
      fault ? util::shown(util::line_of(*fault)) : reason_of(place, run.name, wait_status);
  // What cannot be kept aside is told in status.csv all the same, by the reason.
  static_cast<void>(
      rename_folder(making(place, run.name), hidden(place, "failed/" + run.name)).has_value());
  static_cast<void>(
      util::write_whole_file(hidden(place, "ended/" + run.name), text_of(ended)).has_value());
  return status;
}

void drop_run(const run_place& place, const std::string& name) {
  std::error_code none;
  fs::remove_all(making(place, name), none);
}

void remove_leftovers(const run_place& place) {
  std::error_code none;
  std::vector<std::string> names;
  for (const fs::directory_entry& entry : fs::directory_iterator(hidden(place, "making"), none)) {
    std::string name = entry.path().filename().string();
    for (const std::string_view end : {".lock", ".before"}) {
      if (name.ends_with(end)) name.erase(name.size() - end.size());
    }
    names.push_back(name);
  }
  for (const std::string& name : names) {
    file_lock lock;
    // Of one that is held somebody is at work: another task of a batch system, say.
    if (take_run_lock(place, name, lock) != lock_taken::yes) continue;
    fs::remove_all(making(place, name), none);
    fs::remove_all(making(place, name) + ".before", none);
  }
}

}  // namespace many
