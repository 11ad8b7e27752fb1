// The list of runs: a CSV file with a header of option names, a line a run.
//
// | in the list                  | what it means                                                  |
// |------------------------------|----------------------------------------------------------------|
// | first line, no comment       | the header: options without dashes, and, if wanted, `name`     |
// | a line beginning with #      | a comment; empty lines are passed over                         |
// | an empty field               | the option is not given                                        |
// | a column that stands twice   | an option for two data sets: `run,run`                         |
// | yes, no, 1, 0                | in the column of an option without value                       |
// | "a ""quoted"", field"        | as CSV has it; blanks around a field do not count              |
#pragma once
#include <string>
#include <vector>

#include "fault.hpp"
#include "many_command.hpp"

namespace many {

/// One run of the list.
struct listed_run {
  std::string name;                  ///< of its folder, no two alike
  int line = 0;                      ///< in the list
  std::vector<std::string> options;  ///< of the session: "--run=4566"
};

/// Reads a list.
/// returns  its runs, at least one, in their order. A run without `name` is called after its answers:
///          the runs, or the first file; the second of one name "4566-2"
/// errors   unknown or repeated columns, values that no session would take, names that cannot be
///          folders or stand twice, unreadable lines: the fault with file and line
util::outcome<std::vector<listed_run>> read_run_list(const std::string& path,
                                                     const session_words& session);

}  // namespace many
