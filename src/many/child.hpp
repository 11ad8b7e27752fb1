// Processes that this one starts, and the signals that tell of them.
//
// Nothing here is asked again and again: the process sleeps until a child ends, somebody interrupts
// it, or a time is over.
//
//     watch_signals();
//     child one = start_child(command, {.output = "session.txt", .error = "messages.txt"});
//     while (!child_ended(one)) if (wait_for_news(forever) == news::interrupt) end_child(one, SIGTERM);
#pragma once
#include <sys/resource.h>
#include <sys/types.h>

#include <chrono>
#include <string>
#include <vector>

namespace many {

/// What a child finds open. Its standard input is empty.
struct child_files {
  std::string output, error;  ///< files that are made anew; empty: nowhere
  int kept = -1;              ///< a file that stays open in it and in what it starts: a lock
  int at_our_death = 0;       ///< the signal that it gets when this process dies before it
};

struct child {
  pid_t process = -1;  ///< negative: could not be started
  int trouble = 0;     ///< errno value of why not
  std::chrono::steady_clock::time_point began;
  bool ended = false;   ///< itself; others of its group may go on
  int wait_status = 0;  ///< these three once it ended
  rusage usage{};
  double seconds = 0;
};

/// From now on signals are waited for here and do nothing else: the end of children, INT, TERM, HUP.
/// One that is ignored (HUP under nohup) stays ignored.
void watch_signals();

/// Starts a program in a process group of its own: Ctrl-C at the terminal reaches it through us.
/// given    command  the program's path, and its words
child start_child(const std::vector<std::string>& command, const child_files& files);

/// Whether it ended, and all of its group that it left behind; then all about it is known. To be called
/// until it says so.
bool child_ended(child& one);

/// Waits for all that is left of children which were told to end, and of what they had started.
void wait_for_all();

/// Sends a signal to it and to what it started.
void signal_child(const child& one, int number);

/// What woke us: an interrupt; anything else that may have changed something; nothing.
enum class news { interrupt, child, time };
inline constexpr std::chrono::milliseconds forever{-1};

/// Sleeps until there is news, or the time is over.
news wait_for_news(std::chrono::milliseconds longest);

/// The signal of the last interrupt; 0 before the first.
int interrupted_by();

/// Dies of that signal, so that a shell sees 130 and its loops stop too.
[[noreturn]] void die_interrupted();

}  // namespace many
