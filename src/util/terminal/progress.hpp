// The progress line: how far a long step has come, on standard error, for a person who waits.
//
// It appears only where it helps and cannot hurt: standard error is a terminal and standard output
// is not (with both on the screen the printed lines are the progress, and a line that rewrites
// itself would tear them; a step that prints nothing says so), the step has lasted half a second,
// and the environment variable NO_PROGRESS is not set. It is redrawn at most ten times a second and
// erased at the end, so nothing of it stays on the screen and nothing ever reaches a file.
#pragma once
#include <chrono>
#include <string>
#include <string_view>

#include "long_step.hpp"

namespace util {

/// The line of one long step; erased when it goes out of scope.
///     util::progress line("reading RD-001234.dat", total);
///     for (...) line.at(done);
/// Cheap where nothing is drawn: one test a call.
class progress {
 public:
  /// given    what   the step, in a few words
  ///          total  value of `done` at its end; 0 when unknown: the line then shows the count
  progress(std::string_view what, long long total, output_during output = output_during::lines);
  progress(const progress&) = delete;
  progress& operator=(const progress&) = delete;
  ~progress();

  /// Tells how much is done, 0..total.
  void at(long long done) {
    if (watched_) redraw(done);
  }

 private:
  void redraw(long long done);

  std::string what_;
  long long total_;
  bool watched_;                                // somebody can see the line
  std::chrono::steady_clock::time_point next_;  // not drawn again before
};

/// Shows the steps of rooms that do not know the terminal (long_step.hpp) from now on.
void show_long_steps();

/// The line as it is shown: "reading RD-001234.dat:  45 %", cut to the width of the screen.
std::string progress_text(std::string_view what, long long done, long long total,
                          std::size_t width);

/// Erases the line that is on the screen, if one is. For messages on standard error that end the
/// run while a step is going on.
void erase_progress();

}  // namespace util
