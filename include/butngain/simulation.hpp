// simulation: what one BPM reads in one run, from a description alone.
//
//     butngain::simulation run;                      // 1000 orbits in a round pipe, +-5 mm
//     run.electronics.gain = {1, 1.02, 0.97, 1};
//     run.electronics.noise = 1e-4;                  // in parts of a centred signal
//     const butngain::simulated made = butngain::simulate(run);
//
// Beam, in each plane, with n the orbit and m the BPM (0, 1, ...):
//     motion   = random + amplitude cos(2 pi tune n + phase + advance m)
//     position = closed orbit + own motion + coupling * the other plane's motion
// Current, with t from 0 at the first orbit to 1 at the last:
//     (1 + drift (t - 1/2)) exp(-decay t + walk) (1 + slope_x x + slope_y y)
// Electronics:
//     reading = gain (current x signal x phi) + noise + common noise + pedestal
//
// ownership  Plain records; a chamber is a shared handle.
// threads    Everything may be called on several threads at once. The same description gives the
//            same bits.
#pragma once
#include <array>
#include <cstdint>
#include <limits>
#include <vector>

#include "common.hpp"
#include "error.hpp"
#include "table.hpp"

#pragma GCC visibility push(default)
namespace butngain {

/// One plane of the motion.
struct beam_plane {
  bool gaussian = false;  ///< the random part; else it is uniform
  double spread = 5e-3;   ///< half width when uniform, rms when gaussian [m]
  double orbit = 0;       ///< closed orbit: the mean position [m]
  double tune = 0.2;      ///< betatron oscillations per orbit [-]
  double amplitude = 0;   ///< of the oscillation [m]
  double phase = 0;       ///< of the oscillation at BPM 1, orbit 1 [rad]
  double advance = 0;     ///< of the phase from one BPM to the next [rad]
};

/// How the current changes over a run; nothing set: it is 1 throughout.
struct beam_current {
  double drift = 0;    ///< relative change from the first orbit to the last [-]
  double decay = 0;    ///< loss of ln(current) from the first orbit to the last [-]
  double walk = 0;     ///< rms step of ln(current) from one orbit to the next [-]
  double slope_x = 0;  ///< relative change with the position [1/m]
  double slope_y = 0;  ///< [1/m]
};

/// Orbits of another kind, mixed at random among the others.
struct beam_population {
  double part = 0;     ///< of the orbits, 0..1
  double x = 0;        ///< its closed orbit, counted from the other's [m]
  double y = 0;        ///< [m]
  double current = 1;  ///< in parts of the other's [-]
};

struct beam {
  beam_plane x, y;
  double coupling = 0;  ///< part of one plane's motion that shows in the other [-]
  beam_current current;
  beam_population second;
  double duplicated = 0;  ///< probability that an orbit is the one before once more [-]
};

/// The BPM's electronics and what can go wrong in them.
struct electronics {
  four gain{1, 1, 1, 1};  ///< true button gains at the beginning of the run [-]
  four pedestal{};        ///< [ADC counts]
  four pedestal_left{};   ///< on top of it, only with beam, unknown to everybody [ADC counts]
  four full_scale{unlimited, unlimited, unlimited, unlimited};  ///< [ADC counts]
  std::array<bool, 4> dead{};                                   ///< reads its pedestal alone
  four stuck{};        ///< constant reading above the pedestal [ADC counts]; 0: none
  four compression{};  ///< c of r -> r (1 - c (r / (gain signal) - 1)) [-]
  four gain_step{};    ///< relative change at `gain_step_at` [-]
  four gain_drift{};   ///< relative change from the first orbit to the last [-]
  std::array<int, 4> cable_of{0, 1, 2, 3};  ///< button whose signal a channel gets
  double signal = 1.5e6;                    ///< centred beam, gain 1 [ADC counts]
  double noise = 0;                         ///< rms, each button for itself, in parts of `signal`
  double common_noise = 0;                  ///< rms, the same for all four, in parts of `signal`
  double intensity_spread = 0;              ///< rms of the intensity from orbit to orbit [-]
  double wild = 0;                          ///< probability that a reading is wild [-]
  double cross_talk = 0;      ///< part of a channel's signal that its two neighbours see [-]
  double adc_step = 0;        ///< [ADC counts]; 0: none
  double gain_step_at = 0.5;  ///< part of the run after which gains have stepped [-]
  int outliers = 0;           ///< orbits of the run with one button off
  double outlier_size = 0.1;  ///< by this part of `signal`, up or down [-]

  static constexpr double unlimited = std::numeric_limits<double>::infinity();
};

/// One BPM's run, described.
struct simulation {
  chamber where;  ///< without contents: the usual round pipe of 45 mm radius
  butngain::beam beam;
  butngain::electronics electronics;
  int orbits = 1000;
  std::uint64_t seed = 1;
  int bpm = 1;    ///< with the seed it chooses the random numbers
  int bunch = 0;  ///< likewise
};

/// What came of it; one entry an orbit.
struct simulated {
  std::vector<signals> readings;  ///< [ADC counts], pedestals included
  std::vector<double> x, y;       ///< the beam's true position [m]
  std::vector<double> intensity;  ///< true, relative to a centred beam of `signal` counts [-]
  four gain{};                    ///< true, at the beginning of the run [-]
  four mean_gain{};               ///< over the run: differs when gains step or drift [-]
  four pedestal{};                ///< of the readings, with what a correction would leave in
};

/// Simulates a run.
/// errors   argument: a beam that does not fit into the chamber, an impossible description; stopped
/// note     readings are not rounded unless adc_step says so
simulated simulate(const simulation& run, const progress& tell = {});

}  // namespace butngain
#pragma GCC visibility pop
