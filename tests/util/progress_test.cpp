#include "progress.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdlib>
#include <string>
#include <thread>

#include "run_time.hpp"

namespace {

using namespace std::chrono_literals;

struct text_case {
  const char* what;
  long long done, total;
  std::size_t width;
  const char* shown;
};
const text_case texts[] = {
    {"reading", 45, 100, 80, "reading:  45 %"},
    {"reading", 0, 3, 80, "reading:   0 %"},
    {"reading", 3, 3, 80, "reading: 100 %"},
    {"reading", 7, 3, 80, "reading: 100 %"},  // a file that grew while it was read
    {"waiting", 1234, 0, 80, "waiting: 1234"},
    {"reading RD-001234.dat", 1, 2, 20, "reading RD-0:  50 %"},
    {"reading", 1, 2, 4, ":  50 %"},
};

TEST(progress, text_fits_the_screen) {
  for (const auto& c : texts)
    EXPECT_EQ(util::progress_text(c.what, c.done, c.total, c.width), c.shown);
}

// What a step of the given length, in quarters of a second, writes to a terminal on standard error
// while standard output goes to out; one that fails ends the run under way.
std::string seen_on_terminal(int quarters, const char* out, bool refused, bool fails = false,
                             bool shown = true) {
  int master = -1;
  int terminal = -1;
  if (openpty(&master, &terminal, nullptr, nullptr, nullptr) != 0) return "no terminal";
  const pid_t child = fork();
  if (child == 0) {
    const int to = out != nullptr ? open(out, O_WRONLY | O_CLOEXEC) : terminal;
    dup2(to, STDOUT_FILENO);
    dup2(terminal, STDERR_FILENO);
    if (refused) {
      setenv("NO_PROGRESS", "1", 1);
    } else {
      unsetenv("NO_PROGRESS");
    }
    {
      if (shown) util::show_long_steps();
      util::long_step line("fitting", 4);
      for (int done = 0; done <= quarters; ++done) {
        line.at(done);
        if (done < quarters) std::this_thread::sleep_for(250ms);
      }
      if (fails) util::run_time_error("no way on");
    }
    _exit(0);
  }
  close(terminal);
  std::string seen;
  std::array<char, 256> part{};
  for (ssize_t n = 0; (n = read(master, part.data(), part.size())) > 0;)
    seen.append(part.data(), static_cast<std::size_t>(n));
  close(master);
  waitpid(child, nullptr, 0);
  return seen;
}

TEST(progress, shows_a_long_step_to_a_person_and_erases_it) {
  const std::string seen = seen_on_terminal(4, "/dev/null", false);
  EXPECT_NE(seen.find("\rfitting: 100 %\033[K"), std::string::npos) << seen;
  EXPECT_EQ(seen.find("fitting:   0 %"), std::string::npos) << "drawn before anybody waited";
  EXPECT_EQ(seen.substr(seen.size() - 4), "\r\033[K");
}

TEST(progress, a_message_that_ends_the_run_stands_on_a_clean_line) {
  const std::string seen = seen_on_terminal(3, "/dev/null", false, true);
  EXPECT_NE(seen.find("\r\033[Kbutngain: run-time error: no way on"), std::string::npos) << seen;
}

TEST(progress, stays_silent) {
  EXPECT_EQ(seen_on_terminal(0, "/dev/null", false), "") << "short step";
  EXPECT_EQ(seen_on_terminal(3, nullptr, false), "") << "printed lines are on the same screen";
  EXPECT_EQ(seen_on_terminal(3, "/dev/null", true), "") << "NO_PROGRESS";
  EXPECT_EQ(seen_on_terminal(3, "/dev/null", false, false, false), "") << "a library's user";
}

}  // namespace
