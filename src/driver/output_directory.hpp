// The directory of one run, named from the local date and time at which it started.
#pragma once
#include <string>

#include "text.hpp"

namespace driver {

/// The name of a run's directory that begins now: CCYYMMDD_hhmmss, local time.
std::string run_directory_name();

/// Makes the run's output directory where outputs go: the working directory, or that of --output.
///
/// returns  directory: its name CCYYMMDD_hhmmss, blank-padded
/// errors   none here: when the directory cannot be made, the first output file that cannot be
///          opened ends the run and names the reason
/// note     two runs of the same second share a directory: the second tells so on standard error
void create_output_directory(util::fixed_text<16>& directory);

}  // namespace driver
