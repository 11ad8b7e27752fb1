#include <string_view>

#include "command_line.hpp"
#include "compare_runs.hpp"
#include "fit_command.hpp"
#include "program_start.hpp"
#include "run_time.hpp"
#include "session.hpp"
#include "trend_command.hpp"

int main(int count, char** arguments) {
  util::start_program("butngain");
  // Not an option: everything behind it is the subcommand's own.
  if (count > 1 && std::string_view{arguments[1]} == "compare") {
    util::stop_program(report::compare_command(count - 1, arguments + 1));
  }
  if (count > 1 && std::string_view{arguments[1]} == "fit") {
    util::stop_program(driver::fit_command(count - 1, arguments + 1));
  }
  if (count > 1 && std::string_view{arguments[1]} == "trend") {
    util::stop_program(report::trend_command(count - 1, arguments + 1));
  }
  const int status = driver::run_session(driver::read_command_line(count, arguments));
  util::stop_program(status);
}
