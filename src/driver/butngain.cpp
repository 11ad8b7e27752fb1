#include "command_line.hpp"
#include "run_time.hpp"
#include "session.hpp"

int main(int count, char** arguments) {
  driver::read_command_line(count, arguments);
  driver::run_session();
  util::stop_program(0);
}
