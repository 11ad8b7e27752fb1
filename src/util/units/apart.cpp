#include "apart.hpp"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "file_units.hpp"
#include "run_time.hpp"
#include "standard_output.hpp"

namespace util {
namespace {

constexpr unsigned patience = 120;  // seconds; a page takes 0.1, and 2.3 beside twenty other jobs

std::string how_it_ended(int status) {
  if (WIFSIGNALED(status)) {
    const int number = WTERMSIG(status);
    if (number == SIGALRM) return "drawing took more than two minutes";
    return std::string{"drawing failed: "} + strsignal(number);  // NOLINT(concurrency-mt-unsafe)
  }
  if (WEXITSTATUS(status) != 0) return "drawing ended early";
  return {};
}

}  // namespace

bool begin_apart(apart& work) {
  // What is still in a buffer would be written by both processes.
  flush_standard_output();
  flush_all_units();
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) {
    work.trouble = errno;
    return false;
  }
  work.process = fork();
  if (work.process == 0) {
    close(ends[0]);
    work.said = ends[1];
    note_ending = nullptr;  // the end of this process is not that of the run
    // Ends a wait that never would, without anybody's help.
    std::signal(SIGALRM, SIG_DFL);
    alarm(patience);
    return true;
  }
  if (work.process < 0) {
    work.trouble = errno;
    close(ends[0]);
  }
  // Our own copy of the writing end: while it is open, reading would never come to an end.
  close(ends[1]);
  if (work.process > 0) work.said = ends[0];
  return false;
}

void end_apart(const apart& work, std::string_view text) {
  // More than a pipe holds is never said: one write, and what is lost is the text alone.
  const bool said = text.empty() || write(work.said, text.data(), text.size()) > 0;
  // No destructors and no buffers: all that is open is the other process's to finish.
  std::_Exit(said ? 0 : 1);
}

std::string wait_apart(apart& work) {
  if (work.trouble != 0) return "no process to draw in: " + system_text(work.trouble);
  std::string text;
  std::array<char, 4096> block{};
  // To the end before waiting for it: who has more to say than a pipe holds would wait for us.
  for (;;) {
    const ssize_t got = read(work.said, block.data(), block.size());
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) break;
    text.append(block.data(), static_cast<std::size_t>(got));
  }
  close(work.said);
  int status = 0;
  while (waitpid(work.process, &status, 0) < 0 && errno == EINTR) {
  }
  return text.empty() ? how_it_ended(status) : text;
}

}  // namespace util
