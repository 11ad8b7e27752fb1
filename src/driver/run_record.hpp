// The record of a run: run.json in its directory (run_json.hpp), for whoever asks next year how these
// gains were made, and for --repeat.
//
// It is written when the run begins ("ended": "running"), whenever a stage of it is done, and when it
// ends, whichever way. A run that is killed leaves the last of them.
#pragma once
#include <string>
#include <string_view>
#include <vector>

#include "run_results.hpp"

namespace driver {

/// Begins the record, when the run's directory is made.
/// given    results    the run's, info.directory set; outlives the run. What the record needs is
///                     put into its info, what is there already stays
///          command    the whole line, as a shell takes it
///          arguments  the same word by word, without the program's name
/// note     without that directory there is no record: the first described file tells why
void begin_record(report::run_results& results, const std::string& command,
                  const std::vector<std::string>& arguments);

/// A stage of the run begins, and the one before it is done: its time is noted, and the record is
/// written. What cannot be written is told at the end of the run alone.
void begin_stage(std::string_view name);

}  // namespace driver
