#include "scatter.hpp"

#include <algorithm>
#include <cmath>

namespace report {
namespace {

// Median of chi-square of three: gains of four buttons with their common factor free.
constexpr double median_of_three = 2.36597;
constexpr double median_of_one = 0.454936;

double median(std::vector<double>& values) {
  if (values.empty()) return 0;
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

// Squared difference of two readings, a common slope taken off.
double square_between(const reading& p, const reading& q, const four& slope) {
  double sum = 0;
  for (std::size_t k = 0; k < 4; ++k) {
    const double d = q.value[k] - p.value[k] - slope[k] * (q.day - p.day);
    sum += d * d;
  }
  return sum;
}

std::vector<reading> readings_of(std::span<const stated> points, double scale) {
  std::vector<reading> readings;
  for (const stated& p : points) readings.push_back({p.day, p.gain, variance_of(p, scale)});
  return readings;
}

// Median of squares over what is expected: 1 when the variances are right.
double excess(std::span<const reading> readings, std::size_t apart, const four& slope) {
  std::vector<double> squares;
  for (std::size_t i = 0; i + apart < readings.size(); ++i) {
    const reading &p = readings[i], &q = readings[i + apart];
    squares.push_back(square_between(p, q, slope) / (p.variance + q.variance));
  }
  return median(squares) / median_of_three;
}

// The same for one button: what moves one alone hides among the three numbers of all.
double excess_of(std::size_t k, std::span<const reading> readings, std::size_t apart,
                 const four& slope) {
  std::vector<double> squares;
  for (std::size_t i = 0; i + apart < readings.size(); ++i) {
    const reading &p = readings[i], &q = readings[i + apart];
    const double d = q.value[k] - p.value[k] - slope[k] * (q.day - p.day);
    squares.push_back(4.0 / 3 * d * d / (p.variance + q.variance));
  }
  return median(squares) / median_of_one;
}

}  // namespace

double variance_of(const stated& point, double scale) {
  // Not nothing, even if many runs agree to the last digit: they are divided by.
  constexpr double least_scale = 1e-4;
  return point.noise * point.noise + std::max(scale, least_scale) * point.error * point.error / 2;
}

four robust_slope(std::span<const reading> readings) {
  four slope{};
  // A quarter of the runs apart: long enough for a slope to be known, and a step lies between a
  // third of the pairs only, which does not move their median far.
  const std::size_t apart = std::max<std::size_t>(readings.size() / 4, 1);
  for (std::size_t k = 0; k < 4; ++k) {
    std::vector<double> slopes;
    for (std::size_t i = 0; i + apart < readings.size(); ++i) {
      const reading &p = readings[i], &q = readings[i + apart];
      if (q.day > p.day) slopes.push_back((q.value[k] - p.value[k]) / (q.day - p.day));
    }
    slope[k] = median(slopes);
  }
  return slope;
}

double scale_of_scatter(std::span<const stated> points) {
  if (points.size() < 4) return unknown;
  const four slope = robust_slope(readings_of(points, 1));
  // The excess falls as the scale grows: halve in logarithms until it is 1.
  double low = -10, high = 6;
  constexpr int rounds = 50;
  for (int i = 0; i < rounds; ++i) {
    const double middle = (low + high) / 2;
    const auto readings = readings_of(points, std::pow(10, middle));
    (excess(readings, 1, slope) > 1 ? low : high) = middle;
  }
  return std::pow(10, (low + high) / 2);
}

std::vector<double> shared_scales(const std::vector<double>& own,
                                  const std::vector<std::size_t>& counts) {
  // What a median of n - 1 differences of three numbers is worth, in degrees of freedom; and what
  // the stated error, and the other BPMs, are taken for.
  constexpr double worth = 1.2, worth_of_stated = 4, worth_of_others = 12;
  std::vector<double> known;
  double all = 0;
  for (std::size_t i = 0; i < own.size(); ++i) {
    if (!std::isfinite(own[i])) continue;
    known.push_back(own[i]);
    all += worth * static_cast<double>(counts[i] - 1);
  }
  const double usual = (worth_of_stated + all * median(known)) / (worth_of_stated + all);
  std::vector<double> shared;
  for (std::size_t i = 0; i < own.size(); ++i) {
    const double weight = std::isfinite(own[i]) ? worth * static_cast<double>(counts[i] - 1) : 0;
    const double mine = weight > 0 ? own[i] : 0;
    shared.push_back((worth_of_others * usual + weight * mine) / (worth_of_others + weight));
  }
  return shared;
}

std::size_t reach_of_memory(std::size_t readings) {
  return std::clamp<std::size_t>(readings / 20, 6, 30);
}

double memory_of(const std::vector<std::optional<four>>& residuals) {
  constexpr std::size_t least = 24;
  if (residuals.size() < least) return unknown;
  const std::size_t reach = reach_of_memory(residuals.size());
  double memory = 0;
  for (std::size_t apart = 0; apart <= reach; ++apart) {
    double sum = 0;
    std::size_t pairs = 0;
    for (std::size_t i = 0; i + apart < residuals.size(); ++i) {
      if (!residuals[i] || !residuals[i + apart]) continue;
      for (std::size_t k = 0; k < 4; ++k) sum += (*residuals[i])[k] * (*residuals[i + apart])[k];
      ++pairs;
    }
    // Three numbers a reading are free; weights that fall to the end keep the sum positive.
    const double part = 1 - static_cast<double>(apart) / static_cast<double>(reach + 1);
    if (pairs > 0) memory += (apart == 0 ? 1 : 2) * part * sum / 3 / static_cast<double>(pairs);
  }
  return std::max(memory, 1.0);
}

std::vector<double> shared_memories(const std::vector<double>& own,
                                    const std::vector<std::size_t>& counts) {
  std::vector<double> known;
  for (const double m : own) {
    if (std::isfinite(m)) known.push_back(m);
  }
  const double usual = known.empty() ? 1 : median(known);
  std::vector<double> shared;
  for (std::size_t i = 0; i < own.size(); ++i) {
    // Runs that say as much about a BPM's own memory as all others do.
    constexpr double as_good = 200;
    const double weight = std::isfinite(own[i]) ? static_cast<double>(counts[i]) / as_good : 0;
    const double drawn = (usual + weight * (weight > 0 ? own[i] : 0)) / (1 + weight);
    // A BPM that follows the orbit more than others do must not borrow their errors.
    shared.push_back(weight > 0 ? std::max(drawn, own[i]) : drawn);
  }
  return shared;
}

double wander_of(std::span<const reading> readings) {
  const four slope = robust_slope(readings);
  double most = 0;
  // As far apart as possible, and half of that: neighbours that scatter alike are no wandering, and a
  // season comes back after its period. Further apart than a sixth of the runs, one step would lie
  // between too many of the pairs.
  constexpr std::size_t least = 4;
  const std::size_t furthest = readings.size() / 6;
  for (const std::size_t apart : {furthest, furthest / 2}) {
    if (apart < least) continue;
    double variance = 0, days = 0;
    const auto pairs = static_cast<double>(readings.size() - apart);
    for (std::size_t i = 0; i + apart < readings.size(); ++i) {
      variance += (readings[i].variance + readings[i + apart].variance) / pairs;
      days += (readings[i + apart].day - readings[i].day) / pairs;
    }
    // Pairs overlap: as many as lie side by side are worth something, 0.4 of a number each.
    const double side_by_side = pairs / static_cast<double>(apart);
    const auto take = [&](double beyond, double numbers) {
      // A median of few is above this by chance once in a hundred times.
      const double clear = 2.5 * std::sqrt(2 / (0.4 * numbers * side_by_side));
      if (days > 0 && beyond > clear) most = std::max(most, beyond * variance / days);
    };
    take(excess(readings, apart, slope) - 1, 3);
    for (std::size_t k = 0; k < 4; ++k) take(excess_of(k, readings, apart, slope) - 1, 1);
  }
  // And only where it betters the whole: medians of few pairs are far off at times.
  constexpr double least_gain = 9;
  return most > 0 && gain_by_wandering(readings, most) > least_gain ? most : 0;
}

}  // namespace report
