#include "standard_output.hpp"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <string>

#include "run_time.hpp"
#include "text.hpp"

namespace util {
namespace {

[[noreturn]] void output_error(int reason) { write_error("standard output", reason); }

}  // namespace

void print_text(std::string_view text) {
  // What names and answers hold would steer the terminal of whoever looks at them. Files and pipes
  // get every byte as it is.
  static const bool on_screen = isatty(STDOUT_FILENO) == 1;
  std::string harmless;
  if (on_screen) {
    harmless = shown_lines(text);
    text = harmless;
  }
  errno = 0;  // else an old failure's reason would be told for a write that sets none
  if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size()) output_error(errno);
}

// Two writes into the stream's buffer: joining them first would copy every line once more.
void print_line(std::string_view text) {
  print_text(text);
  print_text("\n");
}

void flush_standard_output() {
  errno = 0;
  if (std::fflush(stdout) != 0) output_error(errno);
}

}  // namespace util
