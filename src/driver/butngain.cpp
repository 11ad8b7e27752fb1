#include "run_time.hpp"
#include "session.hpp"

int main() {
  driver::run_session();
  util::stop_program(0);
}
