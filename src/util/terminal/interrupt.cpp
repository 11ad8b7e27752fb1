#include "interrupt.hpp"

#include <unistd.h>

#include <array>
#include <csignal>
#include <string>

#include "file_units.hpp"
#include "run_time.hpp"

namespace util {
namespace {

// The signals that end a session between two BPMs, and what the user is told.
struct ending_signal {
  int number;
  const char* told;
  struct sigaction found;  // the action before the watch
};
std::array<ending_signal, 3> ending{
    {{SIGINT, "interrupted", {}}, {SIGTERM, "terminated", {}}, {SIGHUP, "hung up", {}}}};

volatile std::sig_atomic_t flag = 0;  // the signal that came under watch; 0: none
bool watching = false;

void note_signal(int number) { flag = number; }

}  // namespace

void watch_interrupts() {
  if (watching) return;
  flag = 0;
  for (ending_signal& s : ending) {
    sigaction(s.number, nullptr, &s.found);
    if (s.found.sa_handler == SIG_IGN) continue;
    struct sigaction watch = {};
    watch.sa_handler = note_signal;
    sigemptyset(&watch.sa_mask);
    // One shot: the second one finds the default action. Writes go on: one that were cut short would
    // leave half a line, or pass for a full disk.
    watch.sa_flags = static_cast<int>(SA_RESETHAND) | SA_RESTART;
    sigaction(s.number, &watch, nullptr);
  }
  watching = true;
}

void restore_interrupts() {
  if (!watching) return;
  for (const ending_signal& s : ending) sigaction(s.number, &s.found, nullptr);
  watching = false;
}

bool interrupted() { return flag != 0; }

void leave_interrupted() {
  const bool written = close_all_units(true);  // tells what could not be written
  if (remove_unfinished != nullptr) remove_unfinished();
  const int number = flag;
  for (const ending_signal& s : ending) {
    if (s.number != number) continue;
    tell_line(std::string{s.told}.append(written ? "; what was fitted so far is written" : ""));
    ending_noted(s.told, 128 + number);
  }
  struct sigaction by_default = {};
  by_default.sa_handler = SIG_DFL;
  sigaction(number, &by_default, nullptr);
  raise(number);
  _exit(128 + number);  // the signal is blocked: leave with the status that a shell would show
}

}  // namespace util
