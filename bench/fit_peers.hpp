// General fitters on the same model and data, as far as they were found.
//
// Each gets the seven free parameters, the start values and the data of the gain fit, one block of
// residuals, an analytic Jacobian with one sine and one cosine per orbit, and tolerance 1e-10.
#pragma once
#include <array>
#include <cmath>
#include <cstddef>
#include <string>
#include <vector>

#include "gain_fit_mod.hpp"

namespace peers {

inline constexpr double tolerance = 1e-10;
inline constexpr int max_steps = 500;
inline constexpr int n_free = 7;

struct peer {
  std::string name;
  double (*run)();  // four fits of the BPM under treatment; the last one's sum of squares
};
/// Filled before main by the files that were built.
inline std::vector<peer>& all() {
  static std::vector<peer> list;
  return list;
}
inline bool enter(const char* name, double (*run)()) {
  all().push_back({name, run});
  return true;
}

/// One fit: the signals, and which gain is held at 1.
struct fit_task {
  std::vector<std::array<double, 4>> orbit;
  std::size_t held = 0;
};

inline fit_task task_of_store() {
  fit_task task;
  for (const auto& reading :
       gain_fit_mod::orbit_data.column(gain_fit_mod::bpm, gain_fit_mod::norbits))
    task.orbit.push_back(reading.button.item);
  return task;
}

/// Gains but the held one, then Am, k, h2, h3: where the gain fit starts.
inline std::array<double, n_free> start_values() {
  constexpr double amplitude{0.19467656F};
  return {1,
          1,
          1,
          amplitude,
          double{10.404831F},
          double{-0.011293941F} / amplitude,
          double{0.0030660552F} / amplitude};
}

/// Residuals at p, and where jacobian is not null their derivatives; `by_orbit` and `by_parameter`
/// say how far apart neighbours stand in it.
inline void evaluate(const fit_task& task, const double* p, double* residual, double* jacobian,
                     std::size_t by_orbit, std::size_t by_parameter) {
  constexpr double sX[] = {+1, -1, +1, -1};
  constexpr double sY[] = {+1, +1, -1, -1};
  constexpr double sQ[] = {+1, -1, -1, +1};
  double g[4];
  for (std::size_t i = 0, j = 0; i < 4; ++i) g[i] = i == task.held ? 1 : p[j++];
  const double Am = p[3];
  const double k = p[4];
  const double h = p[5] + p[6];
  for (std::size_t n = 0; n < task.orbit.size(); ++n) {
    const auto& b = task.orbit[n];
    const double p1 = g[0] * b[0];
    const double p2 = g[1] * b[1];
    const double p3 = g[2] * b[2];
    const double p4 = g[3] * b[3];
    const double per_total = 1 / (p1 + p2 + p3 + p4);
    const double X = (p1 - p2 + p3 - p4) * per_total;
    const double Y = (p1 + p2 - p3 - p4) * per_total;
    const double Q = (p1 - p2 - p3 + p4) * per_total;
    const double u = X * Y;
    const double s = std::sin(k * u);
    const double c = std::cos(k * u);
    const double s2 = 2 * s * c;
    const double curve = s + h * s2;
    if (residual != nullptr) residual[n] = Am * curve - Q;
    if (jacobian == nullptr) continue;
    double* row = jacobian + n * by_orbit;
    const double slope = Am * (c + 2 * h * (1 - 2 * s * s));
    for (std::size_t i = 0, j = 0; i < 4; ++i) {
      if (i == task.held) continue;
      const double share = b[i] * per_total;
      row[j++ * by_parameter] =
          share * (slope * k * ((sX[i] - X) * Y + X * (sY[i] - Y)) - (sQ[i] - Q));
    }
    row[3 * by_parameter] = curve;
    row[4 * by_parameter] = slope * u;
    row[5 * by_parameter] = Am * s2;
    row[6 * by_parameter] = Am * s2;
  }
}

/// Four fits, each holding another gain, by a procedure that makes one and returns its chi-square.
template <class one_fit>
double four_fits(one_fit fit) {
  fit_task task = task_of_store();
  double chisq = 0;
  for (task.held = 0; task.held < 4; ++task.held) chisq = fit(task);
  return chisq;
}

}  // namespace peers
