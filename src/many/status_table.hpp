// status.csv: how far every run of a list is, for people and programs.
//
// It is replaced whole, at most once a second, and stands whole at every moment.
#pragma once
#include <chrono>
#include <cstddef>
#include <vector>

#include "run_list.hpp"
#include "run_place.hpp"

namespace many {

/// The runs of a list and how far they are, one for one.
struct status_table {
  const run_place* place = nullptr;
  const std::vector<listed_run>* runs = nullptr;
  std::vector<run_status> status;
  bool kept = true;      ///< status.csv is ours to write; not that of a task
  bool dirty = false;    ///< it says less than is known
  util::status fault{};  ///< why it could not be written; told once
  std::chrono::steady_clock::time_point written{};
};

/// Sets what is known of a run.
void set_status(status_table& table, std::size_t run, run_status status);

/// Writes status.csv when there is something new and the last time is a second ago, or at once.
/// errors   one that cannot be written is told once; the runs go on
void write_status(status_table& table, bool at_once = false);

/// How long the next writing has still to wait; negative where nothing is to be written.
std::chrono::milliseconds until_written(const status_table& table);

/// How many runs are in a state.
std::size_t count_of(const status_table& table, run_state state);

}  // namespace many
