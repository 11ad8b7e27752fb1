#include "electronics.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <cmath>
#include <limits>

namespace sim {
namespace {

constexpr double weakest_gain = 0.1;
constexpr double widest_gain_spread = 0.5;  // beyond it most draws would be thrown away
constexpr double wildest_reading = 3;       // in parts of the centred signal

std::string list_fault(const std::vector<button_value>& list, const char* what, int nbpms) {
  for (const button_value& v : list) {
    if (v.bpm < 1 || v.bpm > nbpms) {
      return fmt::format("{}: BPM {} is outside 1..{}", what, v.bpm, nbpms);
    }
    if (v.button < 1 || v.button > 4) {
      return fmt::format("{}: button {} of BPM {} is outside 1..4", what, v.button, v.bpm);
    }
    if (!(v.value > 0)) {
      return fmt::format("{}: value {:g} of BPM {} must be above 0", what, v.value, v.bpm);
    }
  }
  return {};
}

// Sets what the list says about this BPM.
void put_values(const std::vector<button_value>& list, int bpm, buttons& values) {
  for (const button_value& v : list) {
    if (v.bpm == bpm) values(v.button) = v.value;
  }
}

double draw_gain(double spread, random_stream& stream) {
  for (;;) {
    const double gain = 1 + (spread * normal(stream));
    if (gain >= weakest_gain) return gain;
  }
}

}  // namespace

std::string electronics_fault(const electronics_setup& e, int nbpms) {
  struct amount {
    const char* what;
    double value;
    double most;
  };
  const double any = std::numeric_limits<double>::max();
  const std::vector<amount> amounts{{"gain spread", e.gain_spread, widest_gain_spread},
                                    {"pedestal spread", e.pedestal_spread, any},
                                    {"noise", e.noise, any},
                                    {"common noise", e.common_noise, any},
                                    {"intensity spread", e.intensity_spread, any},
                                    {"full scale", e.full_scale, any},
                                    {"probability of wild readings", e.wild, 1}};
  for (const auto& [what, value, most] : amounts) {
    if (value < 0) return fmt::format("{} must not be negative", what);
    if (value > most) return fmt::format("{} must not be above {:g}", what, most);
  }
  if (!(e.signal > 0)) return "signal of a centred beam must be above 0 counts";
  for (const auto& [what, list] :
       {std::pair{"true gain", &e.gains}, std::pair{"dead button", &e.dead},
        std::pair{"saturated button", &e.saturated}}) {
    if (auto fault = list_fault(*list, what, nbpms); !fault.empty()) return fault;
  }
  return {};
}

bpm_electronics make_electronics(const electronics_setup& e, std::uint64_t seed, int bpm) {
  bpm_electronics made;
  random_stream stream = make_stream(seed, purpose::gains, bpm);
  for (int k = 1; k <= 4; ++k) {
    made.pedestal(k) = e.pedestal + (e.pedestal_spread * normal(stream));
  }
  for (int k = 1; k <= 4; ++k) made.true_gain(k) = draw_gain(e.gain_spread, stream);
  put_values(e.gains, bpm, made.true_gain);

  made.full_scale.fill(HUGE_VAL);
  if (e.full_scale > 0) made.full_scale.fill(e.full_scale);
  for (const button_value& v : e.saturated) {
    if (v.bpm == bpm) made.full_scale(v.button) = v.value * made.true_gain(v.button) * e.signal;
  }
  for (const button_value& v : e.dead) {
    if (v.bpm == bpm) made.dead(v.button) = true;
  }
  made.signal = e.signal;
  made.noise = e.noise;
  made.common_noise = e.common_noise;
  made.intensity_spread = e.intensity_spread;
  made.wild = e.wild;
  return made;
}

buttons read_out(const bpm_electronics& e, const buttons& relative, random_stream& stream) {
  const double intensity = std::max(0.0, 1 + (e.intensity_spread * normal(stream)));
  const double common = e.common_noise * normal(stream);
  buttons reading{};
  for (int k = 1; k <= 4; ++k) {
    const double beam_part = e.true_gain(k) * intensity * relative(k);
    reading(k) = (e.signal * (beam_part + (e.noise * normal(stream)) + common)) + e.pedestal(k);
  }
  const bool is_wild = uniform(stream) < e.wild;
  const int wild_button = 1 + static_cast<int>(4 * uniform(stream));
  const double wild_reading = wildest_reading * e.signal * uniform(stream);
  if (is_wild) reading(wild_button) = wild_reading;

  for (int k = 1; k <= 4; ++k) {
    if (e.dead(k)) reading(k) = e.pedestal(k);
    reading(k) = std::min(reading(k), e.full_scale(k));
  }
  return reading;
}

}  // namespace sim
