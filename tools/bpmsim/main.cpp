// bpmsim: makes everything that butngain reads, from one physical model, with the truth beside it.
#include "commands.hpp"
#include "program_start.hpp"
#include "progress.hpp"
#include "run_time.hpp"

int main(int argc, char** argv) {
  util::start_program("bpmsim");
  util::show_long_steps();
  util::stop_program(commands::run(argc, argv));
}
