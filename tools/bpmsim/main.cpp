// bpmsim: makes everything that butngain reads, from one physical model, with the truth beside it.
#include <vector>

#include "accuracy.hpp"
#include "command_line.hpp"
#include "compare.hpp"
#include "orbits.hpp"
#include "raw.hpp"
#include "run_time.hpp"
#include "series.hpp"
#include "site.hpp"
#include "tables.hpp"
#include "template_file.hpp"
#include "text_run.hpp"
#include "tree.hpp"

int main(int argc, char** argv) {
  util::program_name = "bpmsim";
  const std::vector<cli::command> commands{
      sim::series_command(),    //
      sim::raw_command(),       //
      sim::text_command(),      //
      sim::orbits_command(),    //
      sim::template_command(),  //
      sim::tables_command(),    //
      sim::table_command(),     //
      sim::tree_command(),      //
      sim::compare_command(),   //
      sim::accuracy_command(),  //
  };
  util::stop_program(cli::run(argc, argv,
                              "Simulated beam position monitors: input for butngain from one "
                              "physical model, with the truth written beside it",
                              site::version, commands));
}
