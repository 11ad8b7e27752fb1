#include "child.hpp"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "run_time.hpp"

namespace many {
namespace {

// Set by watch_signals, before the first child.
struct watched_signals {
  sigset_t all{};     // those that are waited for
  sigset_t before{};  // the mask that children get back
  int interrupt = 0;
};
watched_signals watched;

void open_as(int descriptor, const std::string& path, int mode) {
  constexpr mode_t everybody = 0666;  // less what the umask takes away
  // NOLINTNEXTLINE(*-vararg): the system's own interface
  const int file = open(path.empty() ? "/dev/null" : path.c_str(), mode, everybody);
  if (file < 0 || dup2(file, descriptor) < 0) _exit(126);
  if (file != descriptor) close(file);
}

// In the new process, between fork and exec. One thread made it: nothing is locked.
[[noreturn]] void become(const std::vector<char*>& words, const child_files& files, pid_t parent) {
  setpgid(0, 0);
  if (files.at_our_death != 0) {
    prctl(PR_SET_PDEATHSIG, files.at_our_death);  // NOLINT(*-vararg)
    // It may have died before this was said.
    if (getppid() != parent) _exit(126);
  }
  constexpr int writing = O_WRONLY | O_CREAT | O_TRUNC;
  open_as(STDIN_FILENO, {}, O_RDONLY);
  open_as(STDOUT_FILENO, files.output, writing);
  open_as(STDERR_FILENO, files.error, writing);
  if (files.kept >= 0) fcntl(files.kept, F_SETFD, 0);  // NOLINT(*-vararg)
  std::signal(SIGPIPE, SIG_DFL);
  std::signal(SIGXFSZ, SIG_DFL);
  sigprocmask(SIG_SETMASK, &watched.before, nullptr);
  execv(words[0], words.data());
  const std::string line =
      std::string{"cannot be started: "} + words[0] + ": " + util::system_text(errno) + "\n";
  static_cast<void>(!write(STDERR_FILENO, line.data(), line.size()));
  _exit(127);
}

}  // namespace

void watch_signals() {
  sigemptyset(&watched.all);
  sigaddset(&watched.all, SIGCHLD);
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
    struct sigaction now {};
    // Ignored ones would be waited for all the same.
    if (sigaction(number, nullptr, &now) == 0 && now.sa_handler == SIG_IGN) continue;
    sigaddset(&watched.all, number);
  }
  // Processes whose parent died become ours, so that their end is seen.
  prctl(PR_SET_CHILD_SUBREAPER, 1);  // NOLINT(*-vararg)
  // Whoever started us may have left it ignored, and then nobody is told of ends.
  std::signal(SIGCHLD, SIG_DFL);
  sigprocmask(SIG_BLOCK, &watched.all, &watched.before);
}

child start_child(const std::vector<std::string>& command, const child_files& files) {
  std::vector<std::string> kept = command;
  std::vector<char*> words;
  words.reserve(kept.size() + 1);
  for (std::string& word : kept) words.push_back(word.data());
  words.push_back(nullptr);
  child one;
  one.began = std::chrono::steady_clock::now();
  const pid_t parent = getpid();
  one.process = fork();
  if (one.process == 0) become(words, files, parent);
  if (one.process < 0) {
    one.trouble = errno;
  } else {
    // Here too: a signal for the group may be sent before the child comes to it.
    setpgid(one.process, one.process);
  }
  return one;
}

bool child_ended(child& one) {
  for (;;) {
    int status = 0;
    rusage usage{};
    const pid_t ended = wait4(-one.process, &status, WNOHANG, &usage);
    if (ended == one.process) {
      one.ended = true;
      one.wait_status = status;
      one.usage = usage;
      one.seconds =
          std::chrono::duration<double>(std::chrono::steady_clock::now() - one.began).count();
      // What it leaves behind when it is killed works for nobody, in a folder that is about to go.
      signal_child(one, SIGKILL);
    }
    if (ended == 0) return false;
    if (ended < 0) return one.ended;
  }
}

void wait_for_all() {
  for (;;) {
    const pid_t ended = waitpid(-1, nullptr, WNOHANG);
    if (ended < 0) return;
    if (ended == 0) wait_for_news(forever);
  }
}

void signal_child(const child& one, int number) {
  // One that was not started has no group.
  if (one.process > 1) static_cast<void>(kill(-one.process, number));
}

news wait_for_news(std::chrono::milliseconds longest) {
  for (;;) {
    siginfo_t info{};
    int number = 0;
    if (longest < std::chrono::milliseconds::zero()) {
      number = sigwaitinfo(&watched.all, &info);
    } else {
      constexpr long per_second = 1000, nanoseconds = 1000000;
      const timespec limit{.tv_sec = longest.count() / per_second,
                           .tv_nsec = longest.count() % per_second * nanoseconds};
      number = sigtimedwait(&watched.all, &info, &limit);
    }
    if (number == SIGCHLD) return news::child;
    if (number > 0) {
      watched.interrupt = number;
      return news::interrupt;
    }
    if (errno == EAGAIN) return news::time;
    // Another signal's handler, or a debugger: slept too short.
  }
}

int interrupted_by() { return watched.interrupt; }

void die_interrupted() {
  std::signal(watched.interrupt, SIG_DFL);
  sigset_t one{};
  sigemptyset(&one);
  sigaddset(&one, watched.interrupt);
  static_cast<void>(std::raise(watched.interrupt));
  sigprocmask(SIG_UNBLOCK, &one, nullptr);  // it comes here
  util::stop_program(128 + watched.interrupt);
}

}  // namespace many
