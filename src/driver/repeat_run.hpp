// A run made once more from its record (--repeat): the same answers to the same questions.
//
// The record says what was answered and with which options. Where the data lie is looked up anew:
// relative names are those of the current directory when all of them are there, else those of the
// directory that the recorded run was made in; KOVR_ONLINE is the recorded one where it is not set.
// What the run leaves goes to the current directory in both cases, or to that of --output.
#pragma once
#include <string>

#include "run_results.hpp"

namespace driver {

/// Makes ready for a repeated run: directory, environment, prepared answers. Tells in one line of
/// every input and table whose content is not the recorded one.
/// given    recorded  the run's record; file: where it was read from
void prepare_repeat(const report::run_info& recorded, const std::string& file);

/// At the end of a repeated run, with the files that it read: tells of those that the recorded run
/// did not read. Does nothing in other runs.
void tell_other_inputs(const report::run_info& made);

}  // namespace driver
