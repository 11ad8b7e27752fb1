#include "interrupt.hpp"

#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>

#include "file_units.hpp"
#include "progress.hpp"
#include "run_time.hpp"

namespace util {
namespace {

volatile std::sig_atomic_t flag = 0;  // 1 once Ctrl-C was pressed under watch
struct sigaction found = {};          // the action before the watch
bool watching = false;

void note_interrupt(int /*signal*/) { flag = 1; }

}  // namespace

void watch_interrupts() {
  if (watching) return;
  sigaction(SIGINT, nullptr, &found);
  if (found.sa_handler == SIG_IGN) return;
  flag = 0;
  struct sigaction watch = {};
  watch.sa_handler = note_interrupt;
  sigemptyset(&watch.sa_mask);
  // One shot: the second Ctrl-C finds the default action. No SA_RESTART: a wait ends at once.
  watch.sa_flags = static_cast<int>(SA_RESETHAND);
  sigaction(SIGINT, &watch, nullptr);
  watching = true;
}

void restore_interrupts() {
  if (!watching) return;
  sigaction(SIGINT, &found, nullptr);
  watching = false;
}

bool interrupted() { return flag != 0; }

void leave_interrupted() {
  const bool written = close_all_units(true);  // tells what could not be written
  tell_line(written ? "interrupted; what was fitted so far is written" : "interrupted");
  constexpr int status = 130;  // what a shell shows for the signal
  ending_noted("interrupted", status);
  struct sigaction by_default = {};
  by_default.sa_handler = SIG_DFL;
  sigaction(SIGINT, &by_default, nullptr);
  raise(SIGINT);
  _exit(status);  // the signal is blocked
}

}  // namespace util
