#include "command_line.hpp"
#include "run_time.hpp"
#include "session.hpp"

int main(int count, char** arguments) {
  const int status = driver::run_session(driver::read_command_line(count, arguments));
  util::stop_program(status);
}
