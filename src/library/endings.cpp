// endings: run_time.hpp for a library. The rooms below end a program's run where there is no
// sensible way on (a subscript beyond its bounds, a wall that gives a singular system); in somebody
// else's process that is an exception. This file stands in for run_time.cpp when the library is
// linked, so no code that ends a process is in it.
#include <string>
#include <system_error>

#include "butngain/error.hpp"
#include "run_time.hpp"
#include "standard_output.hpp"

namespace util {
namespace {

[[noreturn]] void thrown(const std::string& what) {
  throw butngain::error(butngain::error_kind::internal, what, "");
}

}  // namespace

void run_time_error(std::string_view what) { thrown(std::string{what}); }

// Nothing is postponed here: what is thrown passes as it is.
void end_as_postponed(const std::exception_ptr& fault) { std::rethrow_exception(fault); }

void subscript_error(std::string_view array, long long subscript, long long lower, long long upper,
                     int dimension) {
  std::string which = "subscript " + std::to_string(subscript);
  if (dimension > 0) {
    which = "subscript " + std::to_string(dimension) + " (= " + std::to_string(subscript) + ")";
  }
  thrown(which + " of " + std::string{array} + " is outside " + std::to_string(lower) + ".." +
         std::to_string(upper));
}

void not_given_error(std::string_view name) {
  thrown(std::string{name} + " is used before it is given a value");
}

void end_of_input_error(std::string_view prompt) {
  thrown("end of input at \"" + std::string{prompt} + "\"");
}

void write_error(std::string_view what, int reason) {
  thrown("writing " + std::string{what} + ": " + system_text(reason));
}

// The line before an end of the run: what ends it says enough.
void tell_line(std::string_view /*what*/) {}

int ending_noted(std::string_view /*how*/, int status) { return status; }

void err_exit() { thrown("fatal exit"); }

void stop_program(int status) { thrown("stopped with status " + std::to_string(status)); }

std::string system_text(int error_number) {
  return std::error_code(error_number, std::generic_category()).message();
}

// What a room would print comes here too: there is no standard output to speak to.
void print_line(std::string_view text) { thrown(std::string{text}); }
void print_text(std::string_view text) { thrown(std::string{text}); }
void flush_standard_output() {}

}  // namespace util
