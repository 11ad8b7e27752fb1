#include "apart.hpp"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "file_units.hpp"
#include "program_start.hpp"
#include "run_time.hpp"
#include "standard_output.hpp"

namespace util {
namespace {

constexpr unsigned patience = 120;  // seconds; a page takes 0.1, and 2.3 beside twenty other jobs

// What may end the drawing: its time, a library, or who has no memory. A sanitizer tells of the last
// ones itself.
#ifdef __SANITIZE_ADDRESS__
constexpr std::array ending_signals{SIGALRM};
#else
constexpr std::array ending_signals{SIGALRM, SIGSEGV, SIGBUS, SIGABRT, SIGFPE};
#endif

// Nobody waits for a page of a run that is gone, not even of one that was killed.
void end_with_caller(pid_t caller) {
  prctl(PR_SET_PDEATHSIG, SIGTERM);
  if (getppid() != caller) std::_Exit(1);
}

// Before it stands what libraries wrote to standard error, behind it what the work says.
constexpr char said_begins = '\0';

// Whether a library had no memory: they tell it in these words, or go on with less than was wanted.
bool without_memory(std::string_view noise) {
  return noise.find("out of memory") != std::string_view::npos;
}

// Why the other process did not come to its end; empty when it did.
std::string how_it_ended(int ending, std::string_view noise) {
  if (WIFSIGNALED(ending) && WTERMSIG(ending) == SIGALRM) {
    return "drawing took more than two minutes";
  }
  if (without_memory(noise)) return system_text(ENOMEM);
  if (WIFSIGNALED(ending)) {
    return std::string{"drawing failed: "} +
           strsignal(WTERMSIG(ending));  // NOLINT(concurrency-mt-unsafe)
  }
  return WEXITSTATUS(ending) == 0 ? "" : "drawing ended early";
}

std::string all_of(int pipe) {
  std::string text;
  std::array<char, 4096> block{};
  // To the end before waiting for it: who has more to say than a pipe holds would wait for us.
  for (;;) {
    const ssize_t got = read(pipe, block.data(), block.size());
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return text;
    text.append(block.data(), static_cast<std::size_t>(got));
  }
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
  const pid_t caller = getpid();
  work.process = fork();
  if (work.process == 0) {
    close(ends[0]);
    work.said = ends[1];
#ifndef __SANITIZE_ADDRESS__  // whose reports are for the screen
    dup2(work.said, STDERR_FILENO);
#endif
    note_ending = nullptr;  // the end of this process is not that of the run
    end_with_caller(caller);
    // Ends a wait that never would, without anybody's help.
    std::signal(SIGALRM, SIG_DFL);
    for (const int number : ending_signals) clean_up_at(number);
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
  // In one write: what is lost is the text alone.
  const std::string line = said_begins + std::string{text};
  const bool said = text.empty() || write(work.said, line.data(), line.size()) > 0;
  // No destructors and no buffers: all that is open is the other process's to finish.
  std::_Exit(said ? 0 : 1);
}

std::string wait_apart(apart& work) {
  if (work.trouble != 0) return "no process to draw in: " + system_text(work.trouble);
  const std::string all = all_of(work.said);
  close(work.said);
  int ending = 0;
  while (waitpid(work.process, &ending, 0) < 0 && errno == EINTR) {
  }
  const std::size_t begins = all.find(said_begins);
  if (begins != std::string::npos) return all.substr(begins + 1);
  std::string reason = how_it_ended(ending, all);
  if (reason.empty()) std::fwrite(all.data(), 1, all.size(), stderr);
  return reason;
}

status done_apart(const std::string& where, const std::function<status()>& work) {
  apart other;
  if (begin_apart(other)) {
    const status fault = work();
    // No path has a line end that was not made visible.
    end_apart(other,
              fault ? fault->where + '\n' + line_of({fault->what, {}, fault->expected}) : "");
  }
  const std::string said = wait_apart(other);
  if (said.empty()) return {};
  const std::size_t end = said.find('\n');
  if (end == std::string::npos) return fault{said, where, {}};
  return fault{said.substr(end + 1), said.substr(0, end), {}};
}

}  // namespace util
