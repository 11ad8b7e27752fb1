// machine_options: the options that set a simulated machine, for every subcommand that has one.
#pragma once
#include <memory>
#include <string>

#include "machine.hpp"
#include "options.hpp"

namespace options {

/// What was typed about the chamber: a file or name, or else a round pipe by numbers.
struct chamber_choice {
  std::string chamber;
  sim::round_drawing round;
};

/// Adds them all to a subcommand.
/// returns  what `settle` needs once the command line is read
std::shared_ptr<chamber_choice> add_machine(CLI::App& app, sim::machine& m);

/// The option of those that write passages into files.
void add_passages(CLI::App& app, sim::machine& m);

/// Gives the machine the chamber that was chosen. Refuses the command line when there can be none;
/// a chamber file with a fault ends the run.
void settle(sim::machine& m, const chamber_choice& choice);

}  // namespace options
