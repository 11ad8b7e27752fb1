#include "program_start.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <new>

#include "run_time.hpp"

namespace util {
namespace {

// Given back when there is no memory left: closing the files takes some. More than the heap's limit
// for small blocks, so that it goes back to the system and counts against any limit.
constexpr std::size_t spare_size = std::size_t{512} * 1024;
void* spare = nullptr;

// By the shortest way: a line of fixed text first, for the rest may fail for want of memory again.
// Nothing is thrown from here, so it does not matter who was asking: a destructor, a library. Work whose
// end is postponed is the exception.
[[noreturn]] void out_of_memory() {
  // Beside other threads the files are not ours to close: whoever waits for this work ends the run.
  if (postpone_end) throw std::bad_alloc();
  static std::atomic_flag met;
  if (met.test_and_set()) std::_Exit(1);
  std::fflush(stdout);
  if (erase_unfinished_line != nullptr) erase_unfinished_line();
  std::fwrite(program_name.data(), 1, program_name.size(), stderr);
  std::fputs(": run-time error: out of memory\n", stderr);
  std::free(spare);  // NOLINT(*-no-malloc,*-owning-memory)
  if (close_files != nullptr) close_files(closing::every);
  if (remove_unfinished != nullptr) remove_unfinished();
  ending_noted("run-time error: out of memory", 1);
  if (end_process != nullptr) end_process(1);
  std::_Exit(1);
}

// Here the stack still stands as it was: nothing is unwound that could fail in turn.
[[noreturn]] void uncaught() {
  postpone_end = false;  // nobody is left who would catch it
  try {
    if (const auto thrown = std::current_exception()) std::rethrow_exception(thrown);
  } catch (const std::bad_alloc&) {
    out_of_memory();  // a size that no memory has, which asks no handler
  } catch (const postponed_error& e) {
    run_time_error(e.what);
  } catch (const std::exception& e) {
    run_time_error(e.what());
  } catch (...) {
  }
  run_time_error("an error of an unknown kind");
}

// A descriptor that is there and whose use fails: with the mode of the other direction. The next
// file that is opened would take its number otherwise, and be written to as the screen.
void occupy(int descriptor, int mode) {
  if (fcntl(descriptor, F_GETFD) != -1 || errno != EBADF) return;  // NOLINT(*-vararg)
  const int made = open("/dev/null", mode);                        // NOLINT(*-vararg)
  if (made < 0 || made == descriptor) return;
  dup2(made, descriptor);
  close(made);
}

// Dies of the signal as ever, without leaving scratch files. What remove_unfinished does is allowed
// at any moment.
void end_by_signal(int number) {
  if (remove_unfinished != nullptr) remove_unfinished();
  raise(number);  // by its default action, which is back; it comes when this procedure returns
}

}  // namespace

void clean_up_at(int number) {
  struct sigaction found = {};
  sigaction(number, nullptr, &found);
  // Ignored it stays: SIGINT of a job in the background, SIGHUP under nohup.
  if ((found.sa_flags & SA_SIGINFO) != 0 || found.sa_handler != SIG_DFL) return;
  struct sigaction ending = {};
  ending.sa_handler = end_by_signal;
  sigemptyset(&ending.sa_mask);
  ending.sa_flags = static_cast<int>(SA_RESETHAND);
  sigaction(number, &ending, nullptr);
}

void start_program(std::string_view name) {
  program_name = name;
  occupy(STDIN_FILENO, O_WRONLY);
  occupy(STDOUT_FILENO, O_RDONLY);
  occupy(STDERR_FILENO, O_RDONLY);
  // Failed writes tell more than a death by signal, and leave the files whole.
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGXFSZ, SIG_IGN);
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) clean_up_at(number);
  spare = std::malloc(spare_size);  // NOLINT(*-no-malloc,*-owning-memory)
  std::set_new_handler(out_of_memory);
  std::set_terminate(uncaught);
}

}  // namespace util
