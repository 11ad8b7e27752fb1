#include "run_time.hpp"

#include <execinfo.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <system_error>
#include <utility>

#include "standard_output.hpp"
#include "text.hpp"

namespace util {
namespace {

// No destructors and exit handlers: everything is closed by now, and one that failed would begin a
// second ending within the first.
[[noreturn]] void leave(int status) {
  if (remove_unfinished != nullptr) remove_unfinished();
  if (end_process != nullptr) end_process(status);
  std::_Exit(status);
}

bool close_for_the_end(closing which) { return close_files == nullptr || close_files(which); }

// Why standard output could not be written, as errno value: of the first time, for the stream keeps
// no reason.
int output_failure = 0;

// Whether all of standard output has reached the system.
bool flush_output() {
  errno = 0;
  if (std::fflush(stdout) != 0 && output_failure == 0) output_failure = errno;
  return std::ferror(stdout) == 0;
}

}  // namespace

int ending_noted(std::string_view how, int status) {
  // Taken away first: a fault on the way would come back here.
  const auto note = std::exchange(note_ending, nullptr);
  if (note == nullptr || note(how, status)) return status;
  return status == 0 ? 1 : status;
}

void tell_line(std::string_view what) {
  flush_output();
  if (erase_unfinished_line != nullptr) erase_unfinished_line();
  // Standard error has no buffer: one call brings the line there in one piece.
  std::string line{program_name};
  line.append(": ").append(shown(what)).append("\n");
  std::fwrite(line.data(), 1, line.size(), stderr);
}

void end_as_postponed(const std::exception_ptr& fault) {
  if (postpone_end) std::rethrow_exception(fault);
  try {
    std::rethrow_exception(fault);
  } catch (const postponed_error& error) {
    run_time_error(error.what);
  }
}

void run_time_error(std::string_view what) {
  if (postpone_end) throw postponed_error{std::string{what}};
  // What was printed before comes first, then the fault, then what closing the files adds to it.
  const std::string line = std::string{"run-time error: "}.append(what);
  tell_line(line);
  close_for_the_end(closing::every);
  leave(ending_noted(line, 1));
}

void write_error(std::string_view what, int reason) {
  write_failure_told = reason != 0 ? reason : EIO;
  run_time_error(
      std::string{"writing "}.append(what).append(": ").append(system_text(write_failure_told)));
}

void subscript_error(std::string_view array, long long subscript, long long lower, long long upper,
                     int dimension) {
  // "subscript 5 of but" with one dimension, "subscript 2 (= 0) of gain_save" with several.
  std::string what = "subscript ";
  const std::string value = std::to_string(subscript);
  if (dimension == 0) {
    what += value;
  } else {
    what.append(std::to_string(dimension)).append(" (= ").append(value).append(")");
  }
  what.append(" of ").append(array).append(" is outside ");
  what.append(std::to_string(lower)).append("..").append(std::to_string(upper));
  run_time_error(what);
}

void not_given_error(std::string_view name) {
  run_time_error(std::string{name}.append(" is used before it is given a value"));
}

void end_of_input_error(std::string_view prompt) {
  // On a terminal the cursor still stands behind the question.
  if (isatty(STDOUT_FILENO) == 1) print_text("\n");
  run_time_error(std::string{"end of input at \""}.append(trim(prompt)).append("\""));
}

void err_exit() {
  std::fflush(stdout);
  // Kept for compatibility: the units that were handed out are closed before the two lines, the
  // fixed ones at the very end.
  close_for_the_end(closing::handed_out);
  print_line("!-------------------------------------------------");
  print_line("ERR_EXIT: WILL BOMB PROGRAM TO GIVE TRACEBACK...");
  std::fflush(stdout);
  constexpr int deepest = 64;  // calls shown; nothing here recurses that deep
  std::array<void*, deepest> frames{};
  const int depth = backtrace(frames.data(), deepest);
  backtrace_symbols_fd(frames.data(), depth, STDERR_FILENO);
  close_for_the_end(closing::every);
  leave(ending_noted("fatal exit", 2));
}

void stop_program(int status) {
  const bool printed = flush_output();
  const bool closed = close_for_the_end(closing::every);
  const int reason = output_failure != 0 ? output_failure : EIO;
  if (!printed && reason != write_failure_told) {
    tell_line("run-time error: writing standard output: " + system_text(reason));
  }
  // A run whose last lines are lost has not ended well, whatever its caller thinks.
  const int outcome = status == 0 && !(printed && closed) ? 1 : status;
  leave(ending_noted(outcome == 0 ? "whole" : "stopped with status " + std::to_string(outcome),
                     outcome));
}

std::string system_text(int error_number) {
  return std::error_code(error_number, std::generic_category()).message();
}

}  // namespace util
