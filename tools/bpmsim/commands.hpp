// commands: the subcommands, each a procedure that adds itself to the command line.
//
// A subcommand's set-up is a record that its options point into and that lives as long as the
// command line. When the subcommand was typed, the record is checked, the work done, and `status`
// set to the program's exit status.
#pragma once
#include <CLI/CLI.hpp>

namespace commands {

void add_series(CLI::App& app, int& status);
void add_raw(CLI::App& app, int& status);
void add_text(CLI::App& app, int& status);
void add_orbits(CLI::App& app, int& status);
void add_template(CLI::App& app, int& status);
void add_tables(CLI::App& app, int& status);
void add_table(CLI::App& app, int& status);
void add_tree(CLI::App& app, int& status);
void add_compare(CLI::App& app, int& status);
void add_accuracy(CLI::App& app, int& status);
void add_battery(CLI::App& app, int& status);

/// Reads the command line and runs the subcommand that it names.
/// returns  the subcommand's status; 0 after --help and --version; 2 after anything unusable, which
///          is told in one line on standard error
int run(int argc, const char* const* argv);

}  // namespace commands
