#include "level_filter.hpp"

#include <algorithm>
#include <cmath>

namespace report {
namespace {

// Takes one more reading into the level; the first one is the level.
void take(known_level& at, const reading& r, double wandered) {
  const double before = at.variance + wandered;
  const double part = before / (before + r.variance);
  for (std::size_t k = 0; k < 4; ++k) at.value[k] += part * (r.value[k] - at.value[k]);
  at.day += part * (r.day - at.day);
  at.variance = part * r.variance;
}

template <class iterator>
std::vector<known_level> filtered(iterator begin, iterator end, double wander) {
  std::vector<known_level> levels;
  double day = 0;
  for (iterator r = begin; r != end; ++r) {
    if (r == begin) {
      levels.push_back({r->value, r->day, r->variance});
    } else {
      levels.push_back(levels.back());
      take(levels.back(), *r, wander * std::abs(r->day - day));
    }
    day = r->day;
  }
  return levels;
}

}  // namespace

std::vector<known_level> forward_levels(std::span<const reading> readings, double wander) {
  return filtered(readings.begin(), readings.end(), wander);
}

std::vector<known_level> backward_levels(std::span<const reading> readings, double wander) {
  std::vector<known_level> levels = filtered(readings.rbegin(), readings.rend(), wander);
  std::reverse(levels.begin(), levels.end());
  return levels;
}

namespace {

// -2 ln of the likelihood, but for what does not depend on the wandering.
double unlikeliness(std::span<const reading> readings, double wander) {
  double sum = 0;
  known_level at{readings[0].value, readings[0].day, readings[0].variance};
  for (std::size_t i = 1; i < readings.size(); ++i) {
    const reading& r = readings[i];
    const double wandered = wander * (r.day - readings[i - 1].day);
    const double variance = at.variance + wandered + r.variance;
    sum += 3 * std::log(variance);
    for (std::size_t k = 0; k < 4; ++k) {
      sum += (r.value[k] - at.value[k]) * (r.value[k] - at.value[k]) / variance;
    }
    take(at, r, wandered);
  }
  return sum;
}

}  // namespace

double gain_by_wandering(std::span<const reading> readings, double wander) {
  if (readings.empty()) return 0;
  return unlikeliness(readings, 0) - unlikeliness(readings, wander);
}

line_sums sums_of(std::span<const reading> readings, double wander) {
  line_sums sums;
  if (readings.empty()) return sums;
  known_level at{readings[0].value, readings[0].day, readings[0].variance};
  for (std::size_t i = 1; i < readings.size(); ++i) {
    const reading& r = readings[i];
    // What each reading says beyond those before it: independent of each other, so that sums of
    // them are those of a fit in which every covariance was respected.
    const double wandered = wander * (r.day - readings[i - 1].day);
    const double weight = 1 / (at.variance + wandered + r.variance), days = r.day - at.day;
    sums.days += weight * days * days;
    for (std::size_t k = 0; k < 4; ++k) {
      const double news = r.value[k] - at.value[k];
      sums.values += weight * news * news;
      sums.products[k] += weight * news * days;
    }
    take(at, r, wandered);
  }
  return sums;
}

}  // namespace report
