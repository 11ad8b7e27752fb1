// Runs the real programs as a user would: answers in through a pipe; screen, status and files out.
#pragma once
#include <filesystem>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "scratch.hpp"

namespace session {

/// What one program run left behind.
struct outcome {
  int status = 0;   ///< exit status; 128 + signal when a signal ended it
  std::string out;  ///< standard output
  std::string err;  ///< standard error
  bool timed_out = false;
};

/// A place for sessions.
struct scratch : ::scratch::directory {
  /// The run's output directory (CCYYMMDD_hhmmss), newest if there are several; empty if none.
  std::filesystem::path run_directory() const;
};

/// How to run a program. DISPLAY is unset unless the environment here sets it.
struct settings {
  std::map<std::string, std::string> environment{};
  std::vector<std::string> arguments{};  ///< of butngain's command line
  int seconds = 120;                     ///< then it is killed and timed_out is set
  std::string standard_output{};         ///< a file to write to instead of catching the output
};

/// Runs a program in a directory, feeding `input` to its standard input and then closing it.
outcome run(const std::vector<std::string>& command, const std::filesystem::path& directory,
            std::string_view input, const settings& how = {});

/// Runs butngain: one answer a line.
outcome butngain(const std::filesystem::path& directory, const std::vector<std::string>& answers,
                 const settings& how = {});

/// Runs bpmsim with these arguments.
outcome bpmsim(const std::filesystem::path& directory, const std::vector<std::string>& arguments,
               const settings& how = {});

/// The same for the data that a test stands on: its words in one text, blanks between. Throws what was
/// said when it fails: no test goes on without its data.
void simulate(const std::filesystem::path& directory, const std::string& words,
              const settings& how = {});

/// How to run with this facility tree.
settings at_site(const std::filesystem::path& online);

std::string read_file(const std::filesystem::path& path);
void write_file(const std::filesystem::path& path, std::string_view content);
std::vector<std::string> lines_of(std::string_view text);
/// A session's standard error without the line that tells where its results lie: it has the run's
/// date in it.
std::string without_line_of_files(std::string_view err);
bool contains(std::string_view text, std::string_view part);

/// The blank-separated numbers of a line, D exponents too; other words are passed over.
std::vector<double> numbers_of(std::string_view line);

}  // namespace session
