// long_step: work that lasts seconds says how far it is, without knowing whether anybody looks.
//
// Who draws lies above this storey and leaves its procedures here (show_long_steps of
// terminal/progress.hpp), as files and terminal do for the end of a run (run_time.hpp). A program
// that only uses the library leaves them null and sees nothing.
#pragma once
#include <string_view>

namespace util {

/// Whether anything is printed on standard output during the step. A silent one shows its line also
/// when standard output is a terminal.
enum class output_during { lines, silence };

/// Who shows long steps.
struct step_show {
  void (*begin)(std::string_view what, long long total, output_during output) = nullptr;
  void (*at)(long long done) = nullptr;
  void (*end)() = nullptr;
};
inline step_show shown_steps;  // all three or none; set once, before the first step

/// One long step; one at a time, on the thread that talks to the person.
///     util::long_step step("positions of run 4567", total);
///     for (...) step.at(done);
class long_step {
 public:
  /// given    what   the step, in a few words
  ///          total  value of `done` at its end; 0 when unknown: the count is then shown
  long_step(std::string_view what, long long total, output_during output = output_during::lines) {
    if (shown_steps.begin != nullptr) shown_steps.begin(what, total, output);
  }
  long_step(const long_step&) = delete;
  long_step& operator=(const long_step&) = delete;
  ~long_step() {
    if (shown_steps.end != nullptr) shown_steps.end();
  }
  /// Tells how much is done, 0..total.
  void at(long long done) {  // NOLINT(*-to-static): of a step that is going on
    if (shown_steps.at != nullptr) shown_steps.at(done);
  }
};

}  // namespace util
