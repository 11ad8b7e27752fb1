#include "axis_scale.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

namespace quick_plot {
namespace {

constexpr double slack = 1e-9;  // of a step: a bound that far off a tick sits on it

double power_of_ten(int exponent) { return std::pow(10.0, exponent); }

double step_of(const axis_scale& scale) { return axis_value(scale, 1) - axis_value(scale, 0); }

// Small intervals in a step. On a counting axis they are whole as well: step 2 is halved, not
// quartered, and step 1 stays whole.
int minor_intervals(const axis_scale& scale, bool counts) {
  if (counts && scale.power == 0) return scale.digit;
  return scale.digit == 2 ? 4 : 5;
}

// The scale of a given step around the data, with at least `least` divisions.
axis_scale enclose(int digit, int power, double low, double high, int least, bool counts) {
  axis_scale scale{digit, power, 0, 0, 1};
  const double step = step_of(scale);
  scale.first = static_cast<long long>(std::floor(low / step + slack));
  auto last = static_cast<long long>(std::ceil(high / step - slack));
  const long long missing = std::max(0LL, least - (last - scale.first));
  scale.first -= missing / 2;
  last += missing - (missing / 2);
  if (counts && low >= 0 && scale.first < 0) {
    last -= scale.first;
    scale.first = 0;
  }
  // Far more divisions than anybody asks for: the caller drops the scale, the count need not fit.
  scale.divisions = static_cast<int>(std::min(last - scale.first, 1000LL));
  scale.minor = minor_intervals(scale, counts);
  return scale;
}

}  // namespace

double axis_value(const axis_scale& scale, double k) {
  const double whole = scale.digit * k;
  return scale.power < 0 ? whole / power_of_ten(-scale.power) : whole * power_of_ten(scale.power);
}

std::string axis_number(const axis_scale& scale, long long k) {
  const double value = axis_value(scale, static_cast<double>(k));
  return fmt::format("{:.{}f}", value, std::max(0, -scale.power));
}

axis_scale general_scale(double low, double high, int least, int most, bool counts) {
  if (!std::isfinite(low)) low = 0;
  if (!std::isfinite(high)) high = 0;
  if (low > high) std::swap(low, high);
  if (low == high && !counts) {
    // One value: a tenth of it around it; around 0 any width would do.
    const double half = low == 0 ? 1 : std::abs(low) / 20;
    low -= half;
    high += half;
  }
  const double range = std::max(high - low, counts ? 1.0 : 0.0);
  // A power more on either side than the range needs: its bounds need not lie on whole steps.
  const int coarsest = static_cast<int>(std::floor(std::log10(range / least))) + 2;
  const int finest = static_cast<int>(std::floor(std::log10(range / most))) - 1;
  const double middle = (least + most) / 2.0;

  axis_scale best;
  double best_length = HUGE_VAL;
  double best_distance = HUGE_VAL;
  // From the largest step down, so that among equals the larger step stays.
  for (int power = coarsest; power >= (counts ? std::max(finest, 0) : finest); --power) {
    for (const int digit : std::array{5, 2, 1}) {
      const axis_scale scale = enclose(digit, power, low, high, least, counts);
      if (scale.divisions > most) continue;
      const double length = scale.divisions * step_of(scale);
      const double distance = std::abs(scale.divisions - middle);
      const bool shorter = length < best_length * (1 - slack);
      const bool as_long = length < best_length * (1 + slack);
      if (shorter || (as_long && distance < best_distance)) {
        best = scale;
        best_length = length;
        best_distance = distance;
      }
    }
  }
  return best;
}

}  // namespace quick_plot
