#include "judged_run.hpp"

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

namespace sim {
namespace {

// Holds standard output back as long as it lives: the fit tells every step there.
class quiet_output {
 public:
  quiet_output() {
    std::fflush(stdout);
    // On the descriptor, not on a stream: whatever way the fit writes on, it ends here.
    kept_ = dup(STDOUT_FILENO);
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (kept_ < 0 || nowhere < 0 || dup2(nowhere, STDOUT_FILENO) < 0) {
      util::run_time_error("cannot hold standard output back: " + util::system_text(errno));
    }
    close(nowhere);
  }
  // A copy would put the descriptor back twice, the second time from a closed number.
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

ratio_errors errors_of(const calibration::buttons& t, const buttons& truth) {
  ratio_errors e{};
  for (int k = 2; k <= 4; ++k) {
    // In logarithms a gain 1 % too large and one 1 % too small weigh the same, and the common
    // factor of the four cancels.
    e[static_cast<std::size_t>(k - 2)] = std::log(t(k) / t(1)) - std::log(truth(k) / truth(1));
  }
  return e;
}

// Mean ratio of the four fits.
void judge_fits(const calibration::four_fits& fits, const buttons& truth, judged_run& judged) {
  for (int k = 2; k <= 4; ++k) {
    double mean = 0;
    double least = std::numeric_limits<double>::infinity();
    double most = -least;
    for (int f = 1; f <= 4; ++f) {
      // Gains of a fit multiply signals: they are the inverse of what the button does to them.
      const double ratio = fits(f, 1) / fits(f, k);
      mean += 0.25 * ratio;
      least = std::min(least, ratio);
      most = std::max(most, ratio);
    }
    judged.fits_spread = std::max(judged.fits_spread, most - least);
    const double error = std::log(mean) - std::log(truth(k) / truth(1));
    // Infinite rather than nan: a fit that failed must lose every comparison, and nan wins some.
    judged.fits[static_cast<std::size_t>(k - 2)] = std::isfinite(error) ? error : HUGE_VAL;
  }
}

using vector4 = std::array<double, 4>;

double dot(const vector4& a, const vector4& b) {
  return a[0] * b[0] + a[1] * b[1] + a[2] * b[2] + a[3] * b[3];
}

// The direction of the four readings that neither place nor intensity of an orbit can reach: what is
// left of any vector when those three are taken out. Two passes keep it clean of rounding.
vector4 free_direction(std::array<vector4, 3> reached) {
  const auto take_out = [&reached](vector4& v, std::size_t n) {
    for (int pass = 0; pass < 2; ++pass) {
      for (std::size_t i = 0; i < n; ++i) {
        const double part = dot(v, reached[i]);
        for (std::size_t k = 0; k < 4; ++k) v[k] -= part * reached[i][k];
      }
    }
  };
  const auto unit = [](vector4& v) {
    const double size = std::sqrt(dot(v, v));
    for (double& part : v) part /= size;
  };
  for (std::size_t i = 0; i < 3; ++i) {
    take_out(reached[i], i);
    unit(reached[i]);
  }
  // From the axis that has most of the free direction: another might lie among the three reached
  // and leave nothing but rounding.
  vector4 best{};
  for (std::size_t k = 0; k < 4; ++k) {
    vector4 v{};
    v[k] = 1;
    take_out(v, 3);
    if (dot(v, v) > dot(best, best)) best = v;
  }
  unit(best);
  return best;
}

}  // namespace

signal_columns columns_of(const run_signals& made) {
  signal_columns columns;
  for (const buttons& signal : made.signal) {
    for (int k = 1; k <= 4; ++k) columns[static_cast<std::size_t>(k - 1)].push_back(signal(k));
  }
  return columns;
}

calibration::four_fits fit_as_session(const signal_columns& signal) {
  const int bpm = 1;
  gain_fit_mod::bpm = bpm;
  gain_fit_mod::norbits = static_cast<int>(signal[0].size());
  for (int orbit = 1; orbit <= gain_fit_mod::norbits; ++orbit) {
    auto& reading = gain_fit_mod::orbit_data.edit(orbit, bpm);
    for (int k = 1; k <= 4; ++k) {
      reading.button(k) =
          // Sessions read files of whole counts, so the fits get no better readings here than
          // there.
          std::round(signal[static_cast<std::size_t>(k - 1)][static_cast<std::size_t>(orbit - 1)]);
    }
  }
  gain_fit_mod::chis_saved chis{};
  gain_fit_mod::gains_saved gains{};
  gain_fit_mod::coeffs_saved coefficients{};
  gain_fit_mod::covar_saved covariances{};
  {
    const quiet_output quiet;
    gain_fit_mod::fit_gains(chis, gains, coefficients, covariances);
  }
  // The next run may be shorter, and must not find orbits of this one.
  gain_fit_mod::orbit_data.clear();
  calibration::four_fits fits{};
  for (int f = 1; f <= 4; ++f) {
    for (int k = 1; k <= 4; ++k) fits(f, k) = gains(f, k);
  }
  return fits;
}

double rms_of(const ratio_errors& e) {
  return std::sqrt((e[0] * e[0] + e[1] * e[1] + e[2] * e[2]) / 3);
}

judged_run judge(const run_signals& made, const knowledge& known) {
  const signal_columns columns = columns_of(made);
  calibration::bpm_run run;
  for (std::size_t k = 0; k < 4; ++k) run.signal[k] = columns[k];
  run.table = known.table;
  run.sigma_p = known.sigma_p;
  run.exact_table = known.exact_table;
  run.set_start = known.set_start;
  if (known.with_fits) run.fits = fit_as_session(columns);

  judged_run judged;
  judged.record = calibrate(run);
  // Against the mean over the run: where gains step or drift no single value can be hit.
  judged.calibration = errors_of(judged.record.t, made.mean_gain);
  // A run in which nothing could be fitted has no gains in its fits.
  const bool fitted = judged.record.free.orbits > 0;
  judged.free = errors_of(fitted ? judged.record.free.t : judged.record.t, made.mean_gain);
  if (run.fits) judge_fits(*run.fits, made.mean_gain, judged);
  return judged;
}

double noise_limit(const beam_run& run, const run_signals& made, double noise) {
  // Differences over this step lose half of the digits at most, and a limit needs three of them.
  constexpr double step = 1e-6;  // [m] for the slopes
  const auto chamber = run.chamber ? run.chamber : solve(round_chamber());
  std::array<std::array<double, 3>, 3> information{};
  for (std::size_t j = 0; j < made.at.size(); ++j) {
    const auto [x, y] = made.at[j];
    const auto at = phi(*chamber, x, y);
    const auto right = phi(*chamber, x + step, y), left = phi(*chamber, x - step, y);
    const auto over = phi(*chamber, x, y + step), under = phi(*chamber, x, y - step);
    std::array<vector4, 3> reached{};
    for (int k = 1; k <= 4; ++k) {
      const auto i = static_cast<std::size_t>(k - 1);
      const double scale = made.true_gain(k) * made.intensity[j] / chamber->centred;
      // Not divided by the step: only the direction counts.
      reached[0][i] = scale * (right(k) - left(k));
      reached[1][i] = scale * (over(k) - under(k));
      reached[2][i] = scale * at(k);
    }
    const vector4 u = free_direction(reached);
    for (std::size_t i = 0; i < 3; ++i) {
      for (std::size_t m = 0; m < 3; ++m) {
        // Button 1's gain is held, the other three are free; a relative change of gain k moves its
        // reading by the reading itself.
        information[i][m] += u[i + 1] * reached[2][i + 1] * u[m + 1] * reached[2][m + 1];
      }
    }
  }
  // Trace of the inverse: the three principal minors over the determinant.
  const auto& a = information;
  const double m0 = a[1][1] * a[2][2] - a[1][2] * a[2][1];
  const double m1 = a[0][0] * a[2][2] - a[0][2] * a[2][0];
  const double m2 = a[0][0] * a[1][1] - a[0][1] * a[1][0];
  const double determinant = a[0][0] * m0 - a[0][1] * (a[1][0] * a[2][2] - a[1][2] * a[2][0]) +
                             a[0][2] * (a[1][0] * a[2][1] - a[1][1] * a[2][0]);
  return noise * std::sqrt((m0 + m1 + m2) / determinant / 3);
}

ratio_errors pulls_of(const ratio_errors& e, const calibration::button_square& c) {
  ratio_errors pulls{};
  for (int k = 2; k <= 4; ++k) {
    const auto i = static_cast<std::size_t>(k - 2);
    // Variance of a difference of two logarithms that are themselves correlated.
    pulls[i] = e[i] / std::sqrt(c(k, k) + c(1, 1) - 2 * c(k, 1));
  }
  return pulls;
}

}  // namespace sim
