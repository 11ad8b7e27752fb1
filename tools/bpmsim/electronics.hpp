// electronics: from the signals of the buttons to readings in ADC counts.
//
//     reading_k = gain_k (I scale phi_k) + noise_k + common noise + pedestal_k
// with I the intensity of the orbit (mean 1) and scale such that a centred beam reads `signal` on a
// button of gain 1. The reading is what the analysis sees; it divides the true gain out again, so
// its own gains, by which readings are multiplied, are proportional to 1/gain_k.
//
// On top of that: a dead button reads its pedestal and nothing else; a reading stops at full scale;
// in a wild reading one button, picked at random, holds any value up to three times `signal`.
#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "chamber.hpp"
#include "random.hpp"

namespace sim {

/// What the BPMs of one simulation have in common.
struct electronics_setup {
  double signal = 1.5e6;            // centred beam, gain 1 [ADC counts]
  double gain_spread = 0.05;        // rms of the true gains about 1 [-]
  double pedestal = 0;              // mean pedestal [ADC counts]
  double pedestal_spread = 0;       // rms from button to button [ADC counts]
  double noise = 0;                 // rms, each button for itself, in parts of `signal` [-]
  double common_noise = 0;          // rms, the same for the four buttons, in parts of `signal` [-]
  double intensity_spread = 0;      // rms of the beam's intensity from orbit to orbit [-]
  double full_scale = 0;            // largest reading [ADC counts]; 0: no limit
  double wild = 0;                  // probability that a reading is wild [-]
  std::vector<button_value> gains;  // true gains given by hand [-]
  std::vector<button_value> dead;   // buttons without signal; the value is not used
  std::vector<button_value> saturated;  // full scale in parts of the button's own centred signal
};

/// One BPM's electronics, made from the set-up.
struct bpm_electronics {
  buttons true_gain{};   // [-]
  buttons pedestal{};    // [ADC counts]
  buttons full_scale{};  // [ADC counts]
  util::bounded<bool, 1, 4, "dead"> dead{};
  double signal = 0;  // as in the set-up, and so on
  double noise = 0;
  double common_noise = 0;
  double intensity_spread = 0;
  double wild = 0;
};

/// Why this set-up cannot be for BPMs 1..nbpms; empty when it can.
std::string electronics_fault(const electronics_setup& e, int nbpms);

/// Gains and pedestals of one BPM. Drawn gains below 0.1 are drawn again: a button that weak is
/// dead.
bpm_electronics make_electronics(const electronics_setup& e, std::uint64_t seed, int bpm);

/// Readings of one passage, not yet rounded.
/// given    relative  phi_k over its value for a centred beam [-]
/// note     takes the same count of numbers from the stream whatever the set-up, so switching one
///          effect on leaves the others' numbers as they were
buttons read_out(const bpm_electronics& e, const buttons& relative, random_stream& stream);

}  // namespace sim
