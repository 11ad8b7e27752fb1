#include "accuracy.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <limits>

#include "fit_gains.hpp"
#include "gain_fit_mod.hpp"
#include "run_time.hpp"
#include "terminal.hpp"

namespace sim {
namespace {

// Holds standard output back as long as it lives: the fit tells every step there.
class quiet_output {
 public:
  quiet_output() {
    std::fflush(stdout);
    kept_ = dup(STDOUT_FILENO);
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (kept_ < 0 || nowhere < 0 || dup2(nowhere, STDOUT_FILENO) < 0) {
      util::run_time_error("cannot hold standard output back: " + util::system_text(errno));
    }
    close(nowhere);
  }
  quiet_output(const quiet_output&) = delete;
  quiet_output& operator=(const quiet_output&) = delete;
  quiet_output(quiet_output&&) = delete;
  quiet_output& operator=(quiet_output&&) = delete;
  ~quiet_output() {
    std::fflush(stdout);
    dup2(kept_, STDOUT_FILENO);
    close(kept_);
  }

 private:
  int kept_ = -1;
};

void fill_store(const accuracy_setup& s, monitor& at) {
  gain_fit_mod::bpm = at.bpm;
  gain_fit_mod::norbits = s.orbits;
  for (int orbit = 1; orbit <= s.orbits; ++orbit) {
    const auto count = counts(next_passage(s.machine, at), at);
    auto& reading = gain_fit_mod::orbit_data.edit(orbit, at.bpm);
    for (int k = 1; k <= 4; ++k) reading.button(k) = count(k);
  }
}

// Ratios of 1/gain to that of button 1: mean of the four fits, and how far these lie apart.
struct fitted_ratios {
  buttons mean{};
  double spread = 0;
};

fitted_ratios fit(const accuracy_setup& s, monitor& at) {
  fill_store(s, at);
  gain_fit_mod::chis_saved chis{};
  gain_fit_mod::gains_saved gains{};
  gain_fit_mod::coeffs_saved coefficients{};
  gain_fit_mod::covar_saved covariances{};
  const quiet_output quiet;
  gain_fit_mod::fit_gains(chis, gains, coefficients, covariances);
  gain_fit_mod::orbit_data.clear();

  fitted_ratios fitted;
  for (int k = 1; k <= 4; ++k) {
    double least = std::numeric_limits<double>::infinity();
    double most = -least;
    for (int f = 1; f <= 4; ++f) {
      const double ratio = gains(f, 1) / gains(f, k);
      fitted.mean(k) += 0.25 * ratio;
      least = std::min(least, ratio);
      most = std::max(most, ratio);
    }
    fitted.spread = std::max(fitted.spread, most - least);
  }
  return fitted;
}

}  // namespace

accuracy_result measure_accuracy(const accuracy_setup& unprepared) {
  accuracy_setup s = unprepared;
  prepare(s.machine);
  accuracy_result result;
  double squares = 0;
  for (int bpm = 1; bpm <= s.bpms; ++bpm) {
    monitor at = make_monitor(s.machine, {.bpm = bpm, .orbits = s.orbits});
    const fitted_ratios fitted = fit(s, at);
    const buttons& gain = at.electronics.true_gain;
    for (int k = 2; k <= 4; ++k) {
      const double error = fitted.mean(k) - (gain(k) / gain(1));
      if (!std::isfinite(error)) return {HUGE_VAL, HUGE_VAL, HUGE_VAL};
      result.worst = std::max(result.worst, std::abs(error));
      squares += error * error;
    }
    result.spread = std::max(result.spread, fitted.spread);
  }
  result.rms = std::sqrt(squares / (3.0 * s.bpms));
  return result;
}

}  // namespace sim
