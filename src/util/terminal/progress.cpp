#include "progress.hpp"

#include <fmt/format.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <optional>

#include "run_time.hpp"
#include "text.hpp"

namespace util {
namespace {

using namespace std::chrono_literals;
constexpr auto patience = 500ms;  // shorter steps draw nothing: nobody has begun to wonder
constexpr auto pace = 100ms;      // between two drawings: as fast as numbers can be read

bool on_screen = false;  // the cursor's line on the terminal holds a progress line

bool somebody_watches(output_during output) {
  return isatty(STDERR_FILENO) == 1 &&
         (output == output_during::silence || isatty(STDOUT_FILENO) == 0) &&
         std::getenv("NO_PROGRESS") == nullptr;
}

std::size_t screen_width() {
  winsize size{};
  const bool known = ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
  return known ? size.ws_col : 80;  // where the terminal does not tell
}

std::optional<progress> long_step_line;  // of the long step that is going on

}  // namespace

progress::progress(std::string_view what, long long total, output_during output)
    : what_(what),
      total_(total),
      watched_(somebody_watches(output)),
      next_(std::chrono::steady_clock::now() + patience) {}

progress::~progress() {
  if (watched_) erase_progress();
}

void progress::redraw(long long done) {
  const auto now = std::chrono::steady_clock::now();
  if (now < next_) return;
  next_ = now + pace;
  erase_unfinished_line = erase_progress;  // a message that ends the run begins on a clean line
  const std::string text = progress_text(what_, done, total_, screen_width());
  std::fputs(("\r" + shown(text) + "\033[K").c_str(), stderr);
  on_screen = true;
}

std::string progress_text(std::string_view what, long long done, long long total,
                          std::size_t width) {
  const long long part = total > 0 ? std::clamp(done, 0LL, total) * 100 / total : 0;
  const std::string count = total > 0 ? fmt::format(": {:3} %", part) : fmt::format(": {}", done);
  // The last column stays free: a terminal wraps there, and \r no longer finds the line's start.
  const std::size_t room = width > count.size() + 1 ? width - count.size() - 1 : 0;
  return fmt::format("{}{}", what.substr(0, room), count);
}

void show_long_steps() {
  shown_steps.begin = [](std::string_view what, long long total, output_during output) {
    long_step_line.emplace(what, total, output);
  };
  shown_steps.at = [](long long done) {
    if (long_step_line) long_step_line->at(done);
  };
  shown_steps.end = [] { long_step_line.reset(); };
}

void erase_progress() {
  if (!on_screen) return;
  std::fputs("\r\033[K", stderr);
  on_screen = false;
}

}  // namespace util
