#include <string_view>

#include "command_line.hpp"
#include "compare_runs.hpp"
#include "fit_command.hpp"
#include "jobs.hpp"
#include "many_command.hpp"
#include "program_start.hpp"
#include "run_time.hpp"
#include "session.hpp"
#include "trend_command.hpp"

namespace {

// What a list of runs may say, for the room that starts sessions and sees none.
many::session_words words_of_sessions() {
  many::session_words words{
      .columns = {}, .start = driver::start_of_a_run(), .fault_of_run = driver::fault_of_run};
  for (const driver::run_option& option : driver::options_of_a_run()) {
    words.columns.push_back({option.name.substr(2), option.flag, option.several});
  }
  return words;
}

}  // namespace

int main(int count, char** arguments) {
  util::start_program("butngain");
  // A session's options say on how many threads it works; a subcommand takes all cores.
  if (count > 1 && arguments[1][0] != '-') util::use_jobs(util::all_cores());
  // Not an option: everything behind it is the subcommand's own.
  if (count > 1 && std::string_view{arguments[1]} == "compare") {
    util::stop_program(report::compare_command(count - 1, arguments + 1));
  }
  if (count > 1 && std::string_view{arguments[1]} == "fit") {
    util::stop_program(driver::fit_command(count - 1, arguments + 1));
  }
  if (count > 1 && std::string_view{arguments[1]} == "many") {
    util::stop_program(many::many_command(count - 1, arguments + 1, words_of_sessions()));
  }
  if (count > 1 && std::string_view{arguments[1]} == "trend") {
    util::stop_program(report::trend_command(count - 1, arguments + 1));
  }
  const int status = driver::run_session(driver::read_command_line(count, arguments));
  util::stop_program(status);
}
