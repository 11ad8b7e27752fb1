// The folder of many runs, and the life of one run in it.
//
//   DIR/4566/               a run that is whole
//   DIR/status.csv          a line a run of the list
//   DIR/.many/lock          held by the engine at work
//   DIR/.many/making/4566   a run in the making, and 4566.lock, held by all its processes
//   DIR/.many/failed/4566   what a run left that failed
//   DIR/.many/ended/4566    how the run's last session ended: what status.csv says of it
//
// A run is made in a folder below `making`, and renamed when its session ended well. Whoever is
// killed meanwhile leaves a folder there that nobody holds any more, and that the next one removes.
// Locks are those of the system, gone with the last process that holds them, however it ends.
#pragma once
#include <sys/resource.h>

#include <string>
#include <vector>

#include "fault.hpp"
#include "run_list.hpp"

namespace many {

/// How far a run of the list is.
enum class run_state { waiting, running, done, failed };
std::string_view text_of(run_state state);

/// A line of status.csv.
struct run_status {
  run_state state = run_state::waiting;
  std::string reason;       ///< of a run that failed
  double seconds = -1;      ///< wall time of its session [s]; negative: not known
  double cpu_seconds = -1;  ///< processor time of its session [s]
  double memory_mb = -1;    ///< the most memory that it held at a time [1e6 bytes]
};

/// The folder, and what everybody who makes runs in it knows.
struct run_place {
  std::string folder;              ///< as typed: it stands so in the records of the runs
  std::string program;             ///< butngain, absolute
  std::vector<std::string> start;  ///< what every session is started with
};

/// Makes the folder and what lies in it out of sight.
util::status open_place(const run_place& place);

/// A lock. Closed, it is given back, unless a process that was started with it goes on.
struct file_lock {
  int file = -1;
  std::string path;
  file_lock() = default;
  file_lock(file_lock&& other) noexcept;
  file_lock& operator=(file_lock&& other) noexcept;  // exchanges the two
  ~file_lock();
};

/// What taking a lock came to.
enum class lock_taken { yes, held, fault };

/// Takes the lock of a run, or that of the engine, without waiting. Fault: errno tells.
lock_taken take_run_lock(const run_place& place, const std::string& name, file_lock& lock);
lock_taken take_engine_lock(const run_place& place, file_lock& lock);

/// How the run stands on the disk: whole and of these options, failed with these, or neither.
/// returns  the status; of a whole run of other options waiting. `changed`, where given, is set for
///          that one
/// errors   a folder of this name that no list made: the fault. It is nobody's to be replaced
util::outcome<run_status> status_on_disk(const run_place& place, const listed_run& run,
                                         bool* changed = nullptr);

/// Whether the run is in the making, by whom ever.
bool in_the_making(const run_place& place, const std::string& name);

/// Forgets how its last session ended: what is found from then on is of a new one.
void forget_ended(const run_place& place, const std::string& name);

/// The words of the run's session, the program's path first.
std::vector<std::string> session_command(const run_place& place, const listed_run& run);

/// Begins a run whose lock is held: an empty folder for its session.
util::status begin_run(const run_place& place, const listed_run& run);
/// Files in it, for what the session prints and says.
std::string transcript_of(const run_place& place, const std::string& name);
std::string messages_of(const run_place& place, const std::string& name);

/// Ends a run whose session ended: gives its folder the run's name, or puts it aside.
/// given    wait_status, usage, seconds  of the session, as wait4 tells
/// returns  its status: done or failed
run_status end_run(const run_place& place, const listed_run& run, int wait_status,
                   const rusage& usage, double seconds);

/// Takes back what begin_run made: of a run that is to be made later.
void drop_run(const run_place& place, const std::string& name);

/// Removes what killed processes left below `making`.
void remove_leftovers(const run_place& place);

}  // namespace many
