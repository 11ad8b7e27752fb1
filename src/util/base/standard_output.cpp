#include "standard_output.hpp"

#include <cerrno>
#include <cstdio>
#include <string>

#include "run_time.hpp"

namespace util {
namespace {

[[noreturn]] void output_error(int reason) { write_error("standard output", reason); }

}  // namespace

void print_text(std::string_view text) {
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
