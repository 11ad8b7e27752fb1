#include "run_record.hpp"

#include <fmt/format.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "fault.hpp"
#include "file_digest.hpp"
#include "files_read.hpp"
#include "gain_batch.hpp"
#include "jobs.hpp"
#include "prepared_answers.hpp"
#include "progress.hpp"
#include "repeat_run.hpp"
#include "run_json.hpp"
#include "run_time.hpp"
#include "site.hpp"
#include "text.hpp"

namespace driver {
namespace {

namespace fs = std::filesystem;
using std::chrono::steady_clock;

// The record in hand, from begin_record to the end of the process.
struct kept_record {
  report::run_results* results = nullptr;
  std::string path;
  std::string stage;  // the one in progress; empty before the first
  steady_clock::time_point stage_began;
  std::map<std::string, report::input_file> digests;  // of files that were read, by path
};
kept_record& kept() {
  static kept_record& the_one = *new kept_record;  // the process ends without destructors
  return the_one;
}

// 2026-01-31T23:59:59+01:00
std::string now_in_iso_8601() {
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  localtime_r(&now, &local);
  std::array<char, 32> text{};
  std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%S%z", &local);
  std::string stamp = text.data();
  constexpr std::size_t minutes = 2;  // the standard's form has a colon before them
  return stamp.insert(stamp.size() - minutes, ":");
}

std::string host_name() {
  std::array<char, 256> name{};  // a host's name has 64 characters at most
  return gethostname(name.data(), name.size() - 1) == 0 ? name.data() : "";
}

// Compiler, kind of build, and the instructions that the fits use on this machine.
std::string build_of_program() {
#ifdef __clang__
  constexpr const char* compiler = "clang " __clang_version__;
#else
  constexpr const char* compiler = "g++ " __VERSION__;
#endif
  return fmt::format("{}, {}, {}", compiler, BUTNGAIN_BUILD_TYPE,
                     gain_fit_mod::instruction_sets().back());
}

// Expanded where it can be: a variable that is not set stays as it is configured.
std::string expanded(std::string_view path) {
  const std::string name{path.substr(0, path.find('/'))};
  const bool unset = path.starts_with('$') && std::getenv(name.c_str() + 1) == nullptr;
  // 4096 characters, the longest path that the system takes, for what the variable stands for.
  return unset || path.empty() ? std::string{path} : util::fullfilename(path, path.size() + 4096);
}

std::vector<std::pair<std::string, std::string>> site_paths() {
  std::vector<std::pair<std::string, std::string>> paths;
  // The variable itself is what most of the others begin with, and tables lie below it.
  if (const char* root = std::getenv("KOVR_ONLINE")) paths.emplace_back("KOVR_ONLINE", root);
  for (const auto& [name, path] : {std::pair{"KOVR_FAKE_DATA_DIR", site::fake_data_dir},
                                   std::pair{"KOVR_RAW_ONLINE_DIR", site::raw_online_dir},
                                   std::pair{"KOVR_RAW_OFFLINE_DIR", site::raw_offline_dir},
                                   std::pair{"KOVR_TSHARC_RAW_DIR", site::tsharc_raw_dir},
                                   std::pair{"KOVR_SHARC_RAW_DIR", site::sharc_raw_dir},
                                   std::pair{"KOVR_ORBIT_DIR", site::orbit_dir},
                                   std::pair{"KOVR_RUN_INDEX", site::run_index}}) {
    paths.emplace_back(name, expanded(path));
  }
  return paths;
}

// Words, not numbers: people read the record, and an enumerator may move.
std::string given_word(util::given_by by) {
  switch (by) {
    case util::given_by::terminal:
      return "terminal";
    case util::given_by::pipe:
      return "pipe";
    case util::given_by::option:
      return "option";
    case util::given_by::by_default:
      return "default";
  }
  return {};
}

// A file is looked at once: what it holds at the end may be another run's. One that cannot be
// looked at, such as a pipe, stands there with its name.
void look_at_new_files(kept_record& record, unsigned threads) {
  std::vector<report::input_file> found;
  for (const util::file_read& file : util::files_read) {
    if (!record.digests.contains(file.path)) found.push_back({.path = file.path});
  }
  util::side_by_side(found.size(), threads, [&](std::size_t i) {
    if (auto digest = report::digest_of(found[i].path)) found[i] = std::move(*digest);
  });
  for (report::input_file& file : found) {
    const std::string path = file.path;
    std::error_code none;
    if (file.sha256.empty() && fs::is_regular_file(path, none)) {
      util::tell_line(util::shown(path) +
                      " cannot be read once more: run.json has no checksum of it");
    }
    record.digests.emplace(path, std::move(file));
  }
}

void take_files(kept_record& record, unsigned threads) {
  look_at_new_files(record, threads);
  report::run_info& info = record.results->info;
  // Anew each time: every stage may have read more.
  info.inputs.clear();
  info.tables.clear();
  for (const util::file_read& file : util::files_read) {
    const report::input_file& found = record.digests.at(file.path);
    if (file.as == util::read_as::input) {
      info.inputs.push_back(found);
    } else if (!found.sha256.empty()) {  // a list of the site that need not be there
      info.tables.push_back(found);
    }
  }
}

void take_dialog(report::run_info& info) {
  info.dialog.clear();
  for (const util::given_answer& a : util::answers_given) {
    info.dialog.push_back({a.question, a.answer, given_word(a.by)});
  }
}

// By the steady clock: one that is set during a run could make a stage end before it began.
void end_stage(kept_record& record) {
  if (record.stage.empty()) return;
  const std::chrono::duration<double> passed = steady_clock::now() - record.stage_began;
  record.results->info.seconds.emplace_back(std::exchange(record.stage, {}), passed.count());
}

util::status write(kept_record& record, unsigned threads) {
  take_files(record, threads);
  take_dialog(record.results->info);
  return report::write_run_json(record.path, *record.results);
}

bool end_record(std::string_view how, int status) {
  kept_record& record = kept();
  end_stage(record);
  record.results->info.ended = how;
  record.results->info.exit_status = status;
  // On one thread: a run that ends for want of memory has none to begin others with.
  const util::status fault = write(record, 1);
  tell_other_inputs(record.results->info);
  if (!fault) return true;
  // A disk that is full was told when the run ended for it; the record beside it says no more.
  const int told = util::write_failure_told;
  if (told == 0 || fault->what != util::system_text(told)) {
    util::tell_line("cannot write " + util::line_of(*fault));
  }
  return false;
}

}  // namespace

void begin_record(report::run_results& results, const std::string& command,
                  const std::vector<std::string>& arguments) {
  report::run_info& info = results.info;
  std::error_code why;
  if (!fs::is_directory(info.directory, why)) {
    // One that could not be made has been told.
    const bool is_told =
        !why || why == std::errc::no_such_file_or_directory || why == std::errc::not_a_directory;
    if (!is_told) {
      util::tell_line("run.json is not written: " + util::shown(info.directory) + ": " +
                      why.message());
    }
    return;
  }
  std::error_code none;
  info.version = site::version;
  info.build = build_of_program();
  info.host = host_name();
  info.working_directory = fs::current_path(none).string();
  info.command = command;
  info.arguments = arguments;
  info.started = now_in_iso_8601();
  info.site_paths = site_paths();
  kept_record& record = kept();
  record.results = &results;
  record.path = info.directory + "/run.json";
  // From here on every ending that the program makes itself comes past end_record, faults too.
  util::note_ending = end_record;
}

void begin_stage(std::string_view name) {
  kept_record& record = kept();
  if (record.results == nullptr) return;
  end_stage(record);
  // The described files come first: what is wrong with this one is told when they are all closed.
  static_cast<void>(write(record, util::jobs).has_value());
  record.stage = name;
  record.stage_began = steady_clock::now();
}

}  // namespace driver
