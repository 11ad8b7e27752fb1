// The command line: butngain asks for everything but what no dialog can know of.
#pragma once
#include <string>

namespace driver {

/// What was given on the command line.
struct session_options {
  std::string chamber;             ///< file of a chamber or a table; empty: none
  bool list_orbits = false;        ///< orbits.csv is wanted
  bool list_coefficients = false;  ///< button_coeff.dat is wanted
};

/// Returns when the session is to begin; otherwise the process ends: --help and --version print
/// and end with status 0, anything else is told on standard error and ends with status 2.
session_options read_command_line(int count, const char* const* arguments);

}  // namespace driver
