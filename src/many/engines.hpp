// The engines: who starts the sessions of the runs that are to be made.
//
// | engine     | what it is                                    | what it starts                          |
// |------------|-----------------------------------------------|-----------------------------------------|
// | `local`    | this process: so many sessions at a time       | butngain --batch ...                    |
// | `parallel` | GNU parallel                                   | butngain many LIST ... --only NAME      |
// | `slurm`    | a job array of Slurm                           | butngain many LIST ... --share N/ALL    |
//
// The latter two start this program again, on a part of the list: a task, which is the local engine
// without a status.csv. Tasks leave how their runs ended below DIR/.many, where the engine reads it.
#pragma once
#include <cstddef>
#include <string>
#include <vector>

#include "run_place.hpp"
#include "status_table.hpp"

namespace many {

/// What an engine is to do.
struct engine_work {
  const run_place* place = nullptr;
  const std::vector<listed_run>* runs = nullptr;  ///< all of the list
  std::vector<std::size_t> to_do;                 ///< those that are to be made
  std::string list;                               ///< the list's file, as typed
  int jobs = 1;                                   ///< sessions at a time
  bool jobs_given = false;
};

/// Makes the runs on this machine. An interrupt ends the sessions and returns; what they had begun
/// is waiting again.
void run_local(const engine_work& work, status_table& table);

/// Makes them through GNU parallel.
/// errors   it is not there, or ended without doing its work: the fault
util::status run_parallel(const engine_work& work, status_table& table);

/// Makes them through Slurm, and waits for it. An interrupt takes the jobs back.
/// errors   as of run_parallel
util::status run_slurm(const engine_work& work, status_table& table);

/// The batch script of run_slurm.
std::string slurm_script(const engine_work& work);

/// Whether the program that the engine needs is there. The fault says which one is not.
util::status engine_missing(const std::string& engine);

/// A share of the list, from 1: one task's lines. Lists that are longer than an array may be are dealt
/// out.
inline constexpr std::size_t most_shares = 1000;  // what Slurm takes unless it is told otherwise

}  // namespace many
