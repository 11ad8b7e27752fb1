#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <deque>
#include <list>
#include <utility>

#include "child.hpp"
#include "engines.hpp"
#include "progress.hpp"
#include "run_time.hpp"

namespace many {
namespace {

using std::chrono::milliseconds;

// How often a run that another process holds is tried again: nobody tells of a lock that is free.
constexpr milliseconds held_pause{1000};
// What a session gets to end by itself. It closes its files between two BPMs.
constexpr milliseconds patience{5000};

struct session_process {
  std::size_t run = 0;
  child process;
  file_lock lock;
};

struct local_engine {
  const engine_work& work;
  status_table& table;
  util::progress& line;
  std::deque<std::size_t> to_do, held{};
  std::list<session_process> running{};
};

void tell_failure(const local_engine& engine, std::size_t run) {
  const listed_run& listed = (*engine.work.runs)[run];
  util::tell_line(fmt::format("{}:{}: {} failed: {}", engine.work.list, listed.line, listed.name,
                              engine.table.status[run].reason));
}

void fail(local_engine& engine, std::size_t run, std::string reason) {
  run_status status;
  status.state = run_state::failed;
  status.reason = std::move(reason);
  set_status(engine.table, run, std::move(status));
  tell_failure(engine, run);
}

void start(local_engine& engine, std::size_t run, file_lock lock) {
  const run_place& place = *engine.work.place;
  const listed_run& listed = (*engine.work.runs)[run];
  if (const auto fault = begin_run(place, listed)) {
    fail(engine, run, util::line_of(*fault));
    return;
  }
  child process =
      start_child(session_command(place, listed), {.output = transcript_of(place, listed.name),
                                                   .error = messages_of(place, listed.name),
                                                   .kept = lock.file,
                                                   .at_our_death = SIGKILL});
  if (process.process < 0) {
    drop_run(place, listed.name);
    fail(engine, run, "no process for its session: " + util::system_text(process.trouble));
    return;
  }
  run_status status;
  status.state = run_state::running;
  set_status(engine.table, run, status);
  engine.running.push_back({run, process, std::move(lock)});
}

// Takes a run from the queue, and its session is started unless somebody else made it or makes it.
void start_next(local_engine& engine, std::deque<std::size_t>& queue) {
  const std::size_t run = queue.front();
  queue.pop_front();
  const run_place& place = *engine.work.place;
  const listed_run& listed = (*engine.work.runs)[run];
  file_lock lock;
  const lock_taken taken = take_run_lock(place, listed.name, lock);
  if (taken == lock_taken::fault) {
    fail(engine, run, fmt::format("cannot lock {}: {}", place.folder, util::system_text(errno)));
    return;
  }
  if (taken == lock_taken::held) {
    engine.held.push_back(run);
    return;
  }
  // Another engine's task may have made it since the list was looked at.
  const auto now = status_on_disk(place, listed);
  if (!now) {
    fail(engine, run, util::line_of(now.why));
  } else if (now->state == run_state::done) {
    set_status(engine.table, run, *now);
  } else {
    start(engine, run, std::move(lock));
  }
}

void take_ended(local_engine& engine) {
  for (auto one = engine.running.begin(); one != engine.running.end();) {
    if (!child_ended(one->process)) {
      ++one;
      continue;
    }
    const listed_run& listed = (*engine.work.runs)[one->run];
    // One that we ended is not at fault, nor is it whole.
    if (interrupted_by() != 0) {
      drop_run(*engine.work.place, listed.name);
      set_status(engine.table, one->run, {});
    } else {
      set_status(engine.table, one->run,
                 end_run(*engine.work.place, listed, one->process.wait_status, one->process.usage,
                         one->process.seconds));
      if (engine.table.status[one->run].state == run_state::failed) tell_failure(engine, one->run);
    }
    one = engine.running.erase(one);
  }
  const std::size_t ended =
      count_of(engine.table, run_state::done) + count_of(engine.table, run_state::failed);
  engine.line.at(static_cast<long long>(ended));
}

// What is to happen although nobody ends: writing the status, or trying runs that others hold.
milliseconds next_pause(const local_engine& engine) {
  const milliseconds written = until_written(engine.table);
  if (engine.held.empty()) return written;
  return written < milliseconds::zero() ? held_pause : std::min(written, held_pause);
}

void end_sessions(local_engine& engine, int number) {
  for (const session_process& one : engine.running) signal_child(one.process, number);
}

// Until all have ended; a second interrupt, or five seconds, and they are killed.
void wait_for_the_end(local_engine& engine) {
  end_sessions(engine, SIGTERM);
  const auto began = std::chrono::steady_clock::now();
  while (!engine.running.empty()) {
    const auto left = std::chrono::duration_cast<milliseconds>(began + patience -
                                                               std::chrono::steady_clock::now());
    const news what = wait_for_news(std::max(left, milliseconds{1}));
    if (what == news::interrupt || left <= milliseconds::zero()) end_sessions(engine, SIGKILL);
    take_ended(engine);
  }
}

}  // namespace

void run_local(const engine_work& work, status_table& table) {
  util::progress line("runs", static_cast<long long>(table.status.size()),
                      util::output_during::silence);
  local_engine engine{
      .work = work, .table = table, .line = line, .to_do = {work.to_do.begin(), work.to_do.end()}};
  while (interrupted_by() == 0) {
    const auto free = [&] { return engine.running.size() < static_cast<std::size_t>(work.jobs); };
    while (free() && !engine.to_do.empty()) start_next(engine, engine.to_do);
    // What others hold comes last: they may have made it by then.
    for (auto held = std::exchange(engine.held, {}); !held.empty();) {
      if (free()) {
        start_next(engine, held);
      } else {
        engine.held.push_back(held.front());
        held.pop_front();
      }
    }
    write_status(table);
    if (engine.running.empty() && engine.to_do.empty() && engine.held.empty()) break;
    wait_for_news(next_pause(engine));
    take_ended(engine);
  }
  wait_for_the_end(engine);
  write_status(table, true);
}

}  // namespace many
