// The command line: what no dialog can know of, and answers to its questions given beforehand.
#pragma once
#include <optional>
#include <string>
#include <vector>

#include "fault.hpp"
#include "prepared_answers.hpp"
#include "run_results.hpp"

namespace driver {

/// What was given on the command line.
struct session_options {
  std::string chamber;             ///< file of a chamber or a table; empty: none
  bool list_orbits = false;        ///< orbits.csv is wanted
  bool list_coefficients = false;  ///< button_coeff.dat is wanted
  std::string pdf;                 ///< "a4" or "letter": gains.pdf is wanted; empty: it is not
  unsigned jobs = 1;               ///< threads
  bool jobs_given = false;         ///< that many were asked for
  std::string output;              ///< directory that the run's files go to; empty: the working one
  util::prepared_dialog dialog;    ///< answers to its questions
  std::string command;             ///< the whole line, as a shell takes it
  std::vector<std::string>
      arguments;       ///< without the program's name; of a run that is repeated its own
  std::string repeat;  ///< the record of a run to be repeated; empty: none
  std::optional<report::run_info> repeated;  ///< what it says
};

/// The words of a call as a line that a shell splits into them again.
/// given    arguments  without the program's name
std::string command_of(const std::vector<std::string>& arguments);

/// Returns when the session is to begin; otherwise the process ends: --help and --version print
/// and end with status 0, anything else is told on standard error and ends with status 2.
session_options read_command_line(int count, const char* const* arguments);

/// An option that says what a run is, not how the program is started.
struct run_option {
  std::string name;      ///< "--run"
  bool flag = false;     ///< it takes no value
  bool several = false;  ///< it may be given once for each data set
};

/// All of them, in the order of the help.
std::vector<run_option> options_of_a_run();

/// What a run among others is started with: nobody is asked, and one core does.
std::vector<std::string> start_of_a_run();

/// Whether a session of these words would begin.
/// given    arguments  without the program's name; no --help, --version or --repeat among them
/// errors   the fault that read_command_line would end the process for
util::status fault_of_run(const std::vector<std::string>& arguments);

}  // namespace driver
