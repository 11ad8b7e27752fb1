#include "electronics.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <utility>

namespace sim {
namespace {

constexpr double weakest_gain = 0.1;
constexpr double widest_gain_spread = 0.5;  // beyond it most draws would be thrown away
constexpr double wildest_reading = 3;       // in parts of the centred signal
constexpr double most_cross_talk = 0.3;     // with more a button hears its neighbours first
constexpr double most_compression = 0.5;    // with more the largest readings would fall again
constexpr double most_adc_bits = 32;        // the session's readings have no more
constexpr double adc_range = 2;             // of an ADC without full scale, in centred signals

// Channels of neighbouring buttons: across the middle in x, and in y.
constexpr std::array<std::array<int, 2>, 4> neighbours{{{2, 3}, {1, 4}, {1, 4}, {2, 3}}};

// Values of a list lie above `least`, never at it.
std::string list_fault(const std::vector<button_value>& list, const char* what, int nbpms,
                       double least) {
  for (const button_value& v : list) {
    if (v.bpm < 1 || v.bpm > nbpms) {
      return fmt::format("{}: BPM {} is outside 1..{}", what, v.bpm, nbpms);
    }
    if (v.button < 1 || v.button > 4) {
      return fmt::format("{}: button {} of BPM {} is outside 1..4", what, v.button, v.bpm);
    }
    if (!(v.value > least)) {
      return fmt::format("{}: value {:g} of BPM {} must be above {:g}", what, v.value, v.bpm,
                         least);
    }
  }
  return {};
}

std::string swap_fault(const std::vector<button_value>& swapped) {
  for (const button_value& v : swapped) {
    // Values are reals in all lists; a button's number has to be one of these exactly.
    const bool is_button = v.value == 1 || v.value == 2 || v.value == 3 || v.value == 4;
    if (!is_button || static_cast<int>(v.value) == v.button) {
      return fmt::format("swapped button: {:g} is no other button than {} of BPM {}", v.value,
                         v.button, v.bpm);
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

// Drawn again, not cut off: gains cut off at the limit would pile up there. A second draw moves the
// numbers behind it, which only wide spreads ever see.
double draw_gain(double spread, random_stream& stream) {
  for (;;) {
    const double gain = 1 + (spread * normal(stream));
    if (gain >= weakest_gain) return gain;
  }
}

// The four channels before noise and pedestal, in parts of `signal`.
buttons channel_signals(const bpm_electronics& e, const readout& r, const buttons& relative) {
  buttons own{};
  for (int k = 1; k <= 4; ++k) own(k) = r.gain(k) * r.intensity * relative(e.cable_of(k));
  // A copy: cross-talk takes the neighbours' own signals, not what has crossed over to them
  // already.
  buttons channel = own;
  for (int k = 1; k <= 4; ++k) {
    const auto& [first, second] = neighbours[static_cast<std::size_t>(k - 1)];
    if (e.cross_talk != 0) channel(k) += e.cross_talk * (own(first) + own(second));
    // Compression leaves a centred beam's signal as it is: the gain is the one of that signal.
    if (e.compression(k) != 0) {
      channel(k) *= 1 - (e.compression(k) * ((channel(k) / e.true_gain(k)) - 1));
    }
  }
  return channel;
}

}  // namespace

std::string electronics_fault(const electronics_setup& e, int nbpms) {
  struct amount {
    const char* what;
    double value;
    double most;
  };
  const double any = std::numeric_limits<double>::max();
  // One table for what is merely a range, so that every amount is refused in the same words.
  const std::vector<amount> amounts{{"gain spread", e.gain_spread, widest_gain_spread},
                                    {"pedestal spread", e.pedestal_spread, any},
                                    {"noise", e.noise, any},
                                    {"common noise", e.common_noise, any},
                                    {"intensity spread", e.intensity_spread, any},
                                    {"full scale", e.full_scale, any},
                                    {"probability of wild readings", e.wild, 1},
                                    {"pedestal left in", e.pedestal_left, any},
                                    {"number of outliers", double(e.outliers), any},
                                    {"size of outliers", e.outlier_size, any},
                                    {"cross-talk", e.cross_talk, most_cross_talk},
                                    {"compression", e.compression, most_compression},
                                    {"number of ADC bits", double(e.adc_bits), most_adc_bits},
                                    {"place of the gain step", e.gain_step_at, 1}};
  for (const auto& [what, value, most] : amounts) {
    if (value < 0) return fmt::format("{} must not be negative", what);
    if (value > most) return fmt::format("{} must not be above {:g}", what, most);
  }
  if (!(e.signal > 0)) return "signal of a centred beam must be above 0 counts";
  struct list {
    const char* what;
    const std::vector<button_value>* values;
    double least;
  };
  const std::array<list, 8> lists{{{"true gain", &e.gains, 0},
                                   {"dead button", &e.dead, 0},
                                   {"saturated button", &e.saturated, 0},
                                   {"compressed button", &e.compressed, 0},
                                   {"stuck button", &e.stuck, 0},
                                   {"swapped button", &e.swapped, 0},
                                   // Relative changes: at -1 the gain would be gone.
                                   {"gain step", &e.gain_steps, -1},
                                   {"gain drift", &e.gain_drifts, -1}}};
  for (const auto& [what, values, least] : lists) {
    if (auto fault = list_fault(*values, what, nbpms, least); !fault.empty()) return fault;
  }
  return swap_fault(e.swapped);
}

bpm_electronics make_electronics(const electronics_setup& e, std::uint64_t seed, int bpm) {
  bpm_electronics made;
  // The order of the draws is a promise: gains of a seed are known to people and in tests, so what
  // came later (pedestals left in) is drawn after them.
  random_stream stream = make_stream(seed, purpose::gains, bpm);
  for (int k = 1; k <= 4; ++k) {
    made.pedestal(k) = e.pedestal + (e.pedestal_spread * normal(stream));
  }
  for (int k = 1; k <= 4; ++k) made.true_gain(k) = draw_gain(e.gain_spread, stream);
  for (int k = 1; k <= 4; ++k) made.pedestal_left(k) = e.signal * e.pedestal_left * normal(stream);
  // Gains given by hand replace drawn ones after the draw: the other BPMs' and buttons' stay.
  put_values(e.gains, bpm, made.true_gain);

  if (e.full_scale > 0) made.full_scale.fill(e.full_scale);
  // What is said in parts of a button's own signal refers to its gain, which may have been given by
  // hand just above.
  const auto own_signal = [&](int k) { return made.true_gain(k) * e.signal; };
  for (const button_value& v : e.saturated) {
    if (v.bpm == bpm) made.full_scale(v.button) = v.value * own_signal(v.button);
  }
  for (const button_value& v : e.dead) {
    if (v.bpm == bpm) made.dead(v.button) = true;
  }
  for (const button_value& v : e.stuck) {
    if (v.bpm == bpm) made.stuck(v.button) = v.value * own_signal(v.button);
  }
  for (const button_value& v : e.swapped) {
    // Cables are swapped before the gains: the gain belongs to the channel, so it stays right while
    // the beam appears mirrored.
    if (v.bpm == bpm) std::swap(made.cable_of(v.button), made.cable_of(static_cast<int>(v.value)));
  }
  made.compression.fill(e.compression);
  put_values(e.compressed, bpm, made.compression);
  put_values(e.gain_steps, bpm, made.gain_step);
  put_values(e.gain_drifts, bpm, made.gain_drift);
  made.gain_step_at = e.gain_step_at;
  made.signal = e.signal;
  made.noise = e.noise;
  made.common_noise = e.common_noise;
  made.intensity_spread = e.intensity_spread;
  made.wild = e.wild;
  made.cross_talk = e.cross_talk;
  made.outliers = e.outliers;
  made.outlier_size = e.outlier_size;
  // Steps need a range; without full scale it is wide enough for a beam well off the centre.
  if (e.adc_bits > 0) {
    const double range = e.full_scale > 0 ? e.full_scale : adc_range * e.signal;
    made.adc_step = std::ldexp(range, -e.adc_bits);
  }
  return made;
}

buttons gain_at(const bpm_electronics& e, double t) {
  buttons gain = e.true_gain;
  for (int k = 1; k <= 4; ++k) {
    if (e.gain_step(k) != 0 && t >= e.gain_step_at) gain(k) *= 1 + e.gain_step(k);
    if (e.gain_drift(k) != 0) gain(k) *= 1 + (e.gain_drift(k) * t);
  }
  return gain;
}

readout read_out(const bpm_electronics& e, const buttons& relative, random_stream& stream,
                 const moment& now, const outlier* off) {
  readout r;
  r.gain = gain_at(e, now.t);
  // A jitter of half the intensity would draw negative beams now and then.
  r.intensity = std::max(0.0, 1 + (e.intensity_spread * normal(stream))) * now.current;
  const double common = e.common_noise * normal(stream);
  // Everything linear in the beam comes first; noise and pedestals are the readout's own.
  const buttons channel = channel_signals(e, r, relative);
  for (int k = 1; k <= 4; ++k) {
    r.reading(k) = (e.signal * (channel(k) + (e.noise * normal(stream)) + common)) + e.pedestal(k) +
                   e.pedestal_left(k);
  }
  if (off != nullptr) r.reading(off->button) += off->shift;
  // Three numbers whether it is wild or not: the next orbit's noise must not depend on it.
  const bool is_wild = uniform(stream) < e.wild;
  const int wild_button = 1 + static_cast<int>(4 * uniform(stream));
  const double wild_reading = wildest_reading * e.signal * uniform(stream);
  if (is_wild) r.reading(wild_button) = wild_reading;

  for (int k = 1; k <= 4; ++k) {
    // In the order in which the signal would meet them: nothing arrives, or a constant does; then
    // the converter, which clips before it rounds.
    if (e.dead(k)) r.reading(k) = e.pedestal(k);
    if (e.stuck(k) > 0) r.reading(k) = e.stuck(k) + e.pedestal(k);
    r.reading(k) = std::min(r.reading(k), e.full_scale(k));
    if (e.adc_step > 0) r.reading(k) = e.adc_step * std::round(r.reading(k) / e.adc_step);
  }
  return r;
}

std::vector<outlier> draw_outliers(const bpm_electronics& e, int orbits, random_stream& stream) {
  std::vector<outlier> all;
  const auto wanted = static_cast<std::size_t>(std::clamp(e.outliers, 0, orbits));
  // An orbit drawn twice is drawn again: the count that was asked for is the count that comes.
  while (all.size() < wanted) {
    outlier one;
    one.orbit = 1 + static_cast<int>(orbits * uniform(stream));
    one.button = 1 + static_cast<int>(4 * uniform(stream));
    one.shift = e.outlier_size * e.signal * (uniform(stream) < 0.5 ? -1 : 1);
    const auto at = std::lower_bound(all.begin(), all.end(), one, [](const auto& a, const auto& b) {
      return a.orbit < b.orbit;
    });
    if (at == all.end() || at->orbit != one.orbit) all.insert(at, one);
  }
  return all;
}

}  // namespace sim
