#include "kept_solver.hpp"

#include <string>

#include "file_units.hpp"
#include "run_time.hpp"
#include "standard_output.hpp"

namespace mrqmin_mod {
namespace {

constexpr int singular_log = 111;  // side log of singular matrices; nothing opens it

// What an initialising call begins and a finishing call ends; a second fit begun between the two
// would overwrite it.
solver::fit_state kept;

// A check of many sizes ends otherwise than one of three.
[[noreturn]] void stop_for(const util::fault& fault) {
  // Kept for compatibility: each fault has a text and a last line of its own.
  if (fault.where == "gaussj") nrerror("gaussj: singular matrix (1)");
  if (fault.where == "mrqmin") util::run_time_error(util::line_of(fault));
  nrerror("an assert_eq failed with this tag:" + fault.where,
          fault.where == "mrqmin: ma" ? "program terminated by assert_eqn"
                                      : "program terminated by assert_eq3");
}

}  // namespace

void mrqmin(const problem& p, std::span<double> a, matrix& covar, matrix& alpha, double& chisq,
            double& alamda) {
  if (const auto fault = solver::mrqmin(p, a, covar, alpha, chisq, alamda, kept)) stop_for(*fault);
  // After the fault: a run that ends has one message, not two.
  if (kept.zero_pivot) tell_singular();
}

void gaussj(matrix& a, matrix& b) {
  // Of its own, for callers may be in the middle of a fit whose state is kept.
  solver::work_space work;
  switch (solver::gaussj(a, b, work)) {
    case solver::elimination::done:
      return;
    case solver::elimination::zero_pivot:
      return tell_singular();
    case solver::elimination::pivot_twice:
      nrerror("gaussj: singular matrix (1)");
  }
}

void covsrt(matrix& covar, std::span<const bool> maska) {
  if (const auto fault = solver::covsrt(covar, maska)) stop_for(*fault);
}

void tell_singular() {
  util::print_line(singular_line);
  log_singular();
}

// The same words in both places: one search finds them on the screen and in the side log.
void log_singular() { util::write_line(singular_log, singular_line); }

void nrerror(std::string_view text, std::string_view last_line) {
  util::print_line(std::string{"nrerror: "}.append(text));
  util::print_line(last_line);
  util::stop_program(2);
}

void reset() { kept = {}; }

}  // namespace mrqmin_mod
