// The command line: butngain asks for everything, so all that it takes is --help and --version.
#pragma once

namespace driver {

/// Returns when the session is to begin; otherwise the process ends: --help and --version print
/// and end with status 0, anything else is told on standard error and ends with status 2.
void read_command_line(int count, const char* const* arguments);

}  // namespace driver
