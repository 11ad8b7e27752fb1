// machine_options: the options that set a simulated machine, for every subcommand that has one.
#pragma once
#include <vector>

#include "command_line.hpp"
#include "machine.hpp"

namespace sim {

std::vector<cli::option> machine_options(machine& m);

}  // namespace sim
