#include "repeat_run.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "file_digest.hpp"
#include "file_units.hpp"
#include "prepared_answers.hpp"
#include "progress.hpp"
#include "run_time.hpp"
#include "text.hpp"

namespace driver {
namespace {

namespace fs = std::filesystem;

// The record in work; nothing in a run that repeats none.
struct repeated {
  report::run_info info;
  std::set<std::string> told;  // files of which something was said
};
std::optional<repeated>& in_work() {
  static auto& the_one = *new std::optional<repeated>;  // the process ends without destructors
  return the_one;
}

void tell(const std::string& line) { util::tell_line(line); }

// It decides whether the transcript shows the answer: one from a pipe stood nowhere. A word that is
// none of these, from an edited record, counts as an option, which is shown.
util::given_by given_by_of(std::string_view word) {
  if (word == "terminal") return util::given_by::terminal;
  if (word == "pipe") return util::given_by::pipe;
  return word == "default" ? util::given_by::by_default : util::given_by::option;
}

std::vector<report::input_file> files_of(const report::run_info& info) {
  std::vector<report::input_file> all = info.inputs;
  all.insert(all.end(), info.tables.begin(), info.tables.end());
  return all;
}

// All of them or none: from a mixture of two directories a run would be made that nobody ever made.
bool relative_names_are_in(const fs::path& directory, const report::run_info& info) {
  const auto files = files_of(info);
  return std::all_of(files.begin(), files.end(), [&](const report::input_file& file) {
    std::error_code unknown;
    return fs::path{file.path}.is_absolute() || fs::exists(directory / file.path, unknown);
  });
}

// One change of directory serves every reader; outputs keep the place where the user stands.
void go_where_the_data_are(const report::run_info& info) {
  std::error_code fault;
  const fs::path here = fs::current_path(fault);
  const fs::path there = info.working_directory;
  if (fault || here == there || relative_names_are_in(here, info)) return;
  if (!relative_names_are_in(there, info)) return;
  // Made absolute while the user's directory is still the current one.
  const std::string outputs = fs::absolute(util::output_base, fault).string();
  fs::current_path(there, fault);
  // Not reached: the readers name the files that they miss, which says more than this could.
  if (fault) return;
  util::output_base = util::output_base.empty() ? here.string() : outputs;
  tell("data are read from " + there.string());
}

void restore_environment(const report::run_info& info) {
  for (const auto& [name, value] : info.site_paths) {
    // What is set now wins: it is how somebody says that the data tree has moved.
    if (name != "KOVR_ONLINE") continue;
    const char* now = std::getenv("KOVR_ONLINE");
    if (now == nullptr) setenv("KOVR_ONLINE", value.c_str(), 1);
    if (now != nullptr && now != value) {
      tell(fmt::format("KOVR_ONLINE is {}, in the recorded run it was {}", now, value));
    }
  }
}

}  // namespace

void prepare_repeat(const report::run_info& recorded, const std::string& file) {
  go_where_the_data_are(recorded);
  restore_environment(recorded);
  util::recorded_dialog dialog{.file = file, .answers = {}};
  for (const report::answered& a : recorded.dialog) {
    dialog.answers.push_back({a.question, a.answer, given_by_of(a.given)});
  }
  // No options beside it: a record answers every question, in its order.
  util::prepared = {};
  util::prepared.recorded = std::move(dialog);
  repeated& run = in_work().emplace(repeated{recorded, {}});
  for (const report::input_file& then : files_of(recorded)) {
    // One that is not there may lie elsewhere now; a run that needs it says so itself.
    const auto now = report::digest_of(then.path);
    if (!now || then.sha256.empty() || now->sha256 == then.sha256) continue;
    tell(then.path + " is not what the recorded run read: its content differs");
    run.told.insert(then.path);
  }
}

void tell_other_inputs(const report::run_info& made) {
  if (!in_work()) return;
  std::set<std::string> recorded;
  // By content, not by name: a file that was moved is still the one that was read.
  for (const report::input_file& file : files_of(in_work()->info)) recorded.insert(file.sha256);
  for (const report::input_file& file : files_of(made)) {
    if (recorded.contains(file.sha256) || in_work()->told.contains(file.path)) continue;
    tell(file.path + " was read, which the recorded run did not read");
  }
}

}  // namespace driver
