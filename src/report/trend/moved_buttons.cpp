#include "moved_buttons.hpp"

#include <algorithm>
#include <array>
#include <cmath>

namespace report {
namespace {

double square_of(const four& d) {
  double sum = 0;
  for (const double v : d) sum += v * v;
  return sum;
}

std::size_t largest(const four& d) {
  std::size_t at = 0;
  for (std::size_t k = 1; k < 4; ++k) {
    if (std::abs(d[k]) > std::abs(d[at])) at = k;
  }
  return at;
}

// Least squares with buttons i and j free: the two numbers, and what they leave unexplained.
struct pair_fit {
  std::size_t i = 0, j = 1;
  double a = 0, b = 0, rest = 0;
};

pair_fit fit_pair(const four& d, std::size_t i, std::size_t j) {
  pair_fit fit{.i = i, .j = j};
  fit.a = 1.5 * d[i] + 0.5 * d[j];
  fit.b = 0.5 * d[i] + 1.5 * d[j];
  fit.rest = std::max(0.0, square_of(d) - fit.a * d[i] - fit.b * d[j]);
  return fit;
}

pair_fit best_pair(const four& d) {
  pair_fit best = fit_pair(d, 0, 1);
  for (std::size_t i = 0; i < 4; ++i) {
    for (std::size_t j = i + 1; j < 4; ++j) {
      const pair_fit fit = fit_pair(d, i, j);
      if (fit.rest < best.rest) best = fit;
    }
  }
  return best;
}

// The other two buttons explain it as well when both moved by the same.
bool others_do(const four& d, const pair_fit& fit, double allowed) {
  std::array<std::size_t, 2> other{};
  std::size_t n = 0;
  for (std::size_t k = 0; k < 4; ++k) {
    if (k != fit.i && k != fit.j) other[n++] = k;
  }
  return fit_pair(d, other[0], other[1]).rest <= allowed;
}

}  // namespace

double single_button_errors(const four& change, double variance) {
  return std::abs(change[largest(change)]) * std::sqrt(4.0 / 3 / variance);
}

moved_gains explain(const four& change, double variance, const trend_limits& limits) {
  moved_gains moved;
  const double counts = limits.errors * limits.errors * variance;
  const std::size_t k = largest(change);
  moved.button = k;
  // One button. What it leaves is looked at in units of its own error, and must be worth a look.
  const double single = 4.0 / 3 * change[k], rest = square_of(change) - single * change[k];
  if (rest <= counts || rest <= limits.floor * limits.floor / 2) {
    moved.change[k] = single;
    moved.error = std::sqrt(4.0 / 3 * variance);
    moved.count = 1;
    return moved;
  }
  const pair_fit pair = best_pair(change);
  if (pair.rest <= counts || pair.rest <= limits.floor * limits.floor / 2) {
    moved.change[pair.i] = pair.a;
    moved.change[pair.j] = pair.b;
    moved.button = std::abs(pair.a) >= std::abs(pair.b) ? pair.i : pair.j;
    moved.error = std::sqrt(1.5 * variance);
    moved.count = 2;
    moved.or_others = others_do(change, pair, counts);
    return moved;
  }
  // More than two: against the middle of the four, as good as any other factor.
  four sorted = change;
  std::sort(sorted.begin(), sorted.end());
  const double middle = (sorted[1] + sorted[2]) / 2;
  for (std::size_t i = 0; i < 4; ++i) moved.change[i] = change[i] - middle;
  moved.button = largest(moved.change);
  moved.error = std::sqrt(1.5 * variance);
  moved.count = 4;
  return moved;
}

}  // namespace report
