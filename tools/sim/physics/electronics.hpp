// electronics: from the signals of the buttons to readings in ADC counts.
//
//     reading_k = gain_k (I scale phi_k) + noise_k + common noise + pedestal_k
// with I the intensity of the orbit (mean 1) and scale such that a centred beam reads `signal` on a
// button of gain 1. The reading is what the analysis sees; it divides the true gain out again, so
// its own gains, by which readings are multiplied, are proportional to 1/gain_k.
//
// What can go wrong acts on the way, in this order: cables of two buttons are swapped; the gain
// steps or drifts; neighbouring channels talk; a large reading is compressed,
//     r -> r (1 - c (r / (gain signal) - 1));
// noise and pedestal come on top, and with them what a pedestal correction leaves in; an outlier
// shifts one button of one orbit; in a wild reading one button, picked at random, holds any value
// up to three times `signal`; a dead button reads its pedestal and nothing else, a stuck one a
// constant; a reading stops at full scale; the ADC gives whole steps.
#pragma once
#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

#include "chamber.hpp"
#include "random.hpp"

namespace sim {

/// What the BPMs of one simulation have in common, and what is said about single buttons.
struct electronics_setup {
  double signal = 1.5e6;            // centred beam, gain 1 [ADC counts]
  double gain_spread = 0.05;        // rms of the true gains about 1 [-]
  double pedestal = 0;              // mean pedestal [ADC counts]
  double pedestal_spread = 0;       // rms from button to button [ADC counts]
  double pedestal_left = 0;         // rms of what stays in after a correction, in parts of `signal`
  double noise = 0;                 // rms, each button for itself, in parts of `signal` [-]
  double common_noise = 0;          // rms, the same for the four buttons, in parts of `signal` [-]
  double intensity_spread = 0;      // rms of the beam's intensity from orbit to orbit [-]
  double full_scale = 0;            // largest reading [ADC counts]; 0: no limit
  double wild = 0;                  // probability that a reading is wild [-]
  int outliers = 0;                 // orbits of a run with one button off
  double outlier_size = 0.1;        // by this part of `signal`, up or down [-]
  double cross_talk = 0;            // part of a channel's signal that its two neighbours see [-]
  double compression = 0;           // c of the formula above [-]
  int adc_bits = 0;                 // 0: no steps
  double gain_step_at = 0.5;        // part of the run after which gains have stepped [-]
  std::vector<button_value> gains;  // true gains given by hand [-]
  std::vector<button_value> dead;   // buttons without signal; the value is not used
  std::vector<button_value> saturated;    // full scale in parts of the button's own centred signal
  std::vector<button_value> compressed;   // compression of single buttons
  std::vector<button_value> stuck;        // constant reading in parts of the own centred signal
  std::vector<button_value> swapped;      // whose cable is exchanged with that of button `value`
  std::vector<button_value> gain_steps;   // relative change of the gain within the run
  std::vector<button_value> gain_drifts;  // the same, but slowly: from the first orbit to the last
};

/// One BPM's electronics, made from the set-up, or filled by hand.
struct bpm_electronics {
  buttons true_gain{{1, 1, 1, 1}};  // at the beginning of a run [-]
  buttons pedestal{};               // [ADC counts]
  buttons pedestal_left{};  // on top of it, only with beam and unknown to everybody [ADC counts]
  buttons full_scale{{HUGE_VAL, HUGE_VAL, HUGE_VAL, HUGE_VAL}};  // [ADC counts]
  util::bounded<bool, 1, 4, "dead"> dead{};
  buttons stuck{};        // constant reading above the pedestal [ADC counts]; 0: none
  buttons compression{};  // [-]
  buttons gain_step{};    // relative change at `gain_step_at` [-]
  buttons gain_drift{};   // relative change from the first orbit to the last [-]
  util::bounded<int, 1, 4, "cable"> cable_of{{1, 2, 3, 4}};  // button whose signal a channel gets
  double signal = 1.5e6;                                     // as in the set-up, and so on
  double noise = 0;
  double common_noise = 0;
  double intensity_spread = 0;
  double wild = 0;
  double cross_talk = 0;
  double adc_step = 0;  // [ADC counts]; 0: none
  double gain_step_at = 0.5;
  int outliers = 0;
  double outlier_size = 0.1;
};

/// The moment of a passage.
struct moment {
  double current = 1;  // of the beam [-]
  double t = 0;        // 0 at the first orbit of the run, 1 at the last
};

/// What the electronics make of one passage.
struct readout {
  buttons reading{};     // [ADC counts], not rounded unless the ADC has steps
  buttons gain{};        // true gains at that moment [-]
  double intensity = 1;  // current and the electronics' jitter [-]
};

/// One outlier of a run.
struct outlier {
  int orbit = 0;     // from 1
  int button = 0;    // 1..4
  double shift = 0;  // [ADC counts]
};

/// Why this set-up cannot be for BPMs 1..nbpms; empty when it can.
std::string electronics_fault(const electronics_setup& e, int nbpms);

/// Gains and pedestals of one BPM. Drawn gains below 0.1 are drawn again: a button that weak is
/// dead.
bpm_electronics make_electronics(const electronics_setup& e, std::uint64_t seed, int bpm);

/// Readings of one passage.
/// given    relative  phi_k over its value for a centred beam [-]
///          off       the outlier of this orbit; null for none
/// note     takes the same count of numbers from the stream whatever the set-up, so switching one
///          effect on leaves the others' numbers as they were
readout read_out(const bpm_electronics& e, const buttons& relative, random_stream& stream,
                 const moment& now = {}, const outlier* off = nullptr);

/// The outliers of a run of so many orbits, in the order of the orbits, never two in one.
std::vector<outlier> draw_outliers(const bpm_electronics& e, int orbits, random_stream& stream);

/// True gains at a moment of the run.
buttons gain_at(const bpm_electronics& e, double t);

}  // namespace sim
