#include "xy_position.hpp"

#include <string>

namespace driver {
namespace {

struct length_scales {
  float h;  // [m]
  float v;  // [m]
};

// What difference over sum is multiplied by. Single-precision literals, and of these BPMs alone,
// not of all that have their chamber (nonlin_bpm_set_pointers): kept for compatibility.
length_scales scales_of(int bpm) {
  switch (bpm) {
    case 48:
    case 51:
      return {0.0287F, 0.0287F};
    case 49:
    case 50:
      return {0.035F, 0.035F};
    case 1:
    case 7:
    case 93:
    case 110:
      return {0.0102F, 0.0104F};
    default:
      return {0.0259F, 0.0198F};
  }
}

}  // namespace

void xy_position(int bpm, const whole_signals& det, double& h, double& v) {
  // 64 bits: four signals near the 32-bit limit must not overflow their sum.
  const std::int64_t d1 = det(1);
  const std::int64_t d2 = det(2);
  const std::int64_t d3 = det(3);
  const std::int64_t d4 = det(4);
  const auto sum_all = static_cast<double>(d1 + d2 + d3 + d4);
  const auto outward = static_cast<float>((d4 + d2) - d3 - d1);
  const auto upward = static_cast<float>((d4 + d3) - d1 - d2);
  const auto [scale_h, scale_v] = scales_of(bpm);
  h = double{outward * scale_h} / sum_all;
  v = double{upward * scale_v} / sum_all;
}

whole_signals whole_signals_of(const util::bounded<double, 1, 4, "button">& button, int bpm,
                               int orbit) {
  constexpr double beyond = 2147483648.0;  // 2^31
  whole_signals det;
  for (int i = 1; i <= 4; ++i) {
    if (!(button(i) > -beyond - 1 && button(i) < beyond)) {
      util::run_time_error("button " + std::to_string(i) + " of BPM " + std::to_string(bpm) +
                           " in orbit " + std::to_string(orbit) +
                           " does not fit a 32-bit whole number: " + std::to_string(button(i)));
    }
    det(i) = static_cast<std::int32_t>(button(i));
  }
  return det;
}

}  // namespace driver
