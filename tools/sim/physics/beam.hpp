// beam: where the beam passes a BPM, orbit after orbit (or turn after turn).
//
// In each plane, with n the orbit (0, 1, ...) and m the BPM (0, 1, ...):
//     motion   = random + amplitude cos(2 pi tune n + phase + advance m)
//     position = closed orbit + own motion + coupling * the other plane's motion
// The random part is drawn anew for every orbit and BPM; the oscillation is one motion of the whole
// beam, seen at every BPM with the phase that the lattice has gained on the way there.
//
// The current is the beam's as well: over a run (t = 0 at the first orbit, 1 at the last)
//     current = (1 + drift (t - 1/2)) exp(-decay t + walk) (1 + slope_x x + slope_y y),
// walk a sum of normal steps, times the second population's factor in its orbits.
#pragma once
#include <string>

#include "random.hpp"

namespace sim {

enum class distribution { uniform, gaussian };

/// One plane of the motion.
struct plane {
  distribution shape = distribution::uniform;  // of the random part
  double spread = 5e-3;                        // half width when uniform, rms when gaussian [m]
  double orbit = 0;                            // closed orbit: the mean position [m]
  double tune = 0.2;                           // betatron oscillations per orbit [-]
  double amplitude = 0;                        // of the oscillation [m]
  double phase = 0;                            // of the oscillation at BPM 1, orbit 1 [rad]
  double advance = 0;                          // of the phase from one BPM to the next [rad]
};

/// How the current changes over a run; nothing set: it is 1 throughout.
struct current_law {
  double drift = 0;    // relative change from the first orbit to the last, 1 half-way [-]
  double decay = 0;    // loss of ln(current) from the first orbit to the last [-]
  double walk = 0;     // rms step of ln(current) from one orbit to the next [-]
  double slope_x = 0;  // relative change with the position at the BPM [1/m]
  double slope_y = 0;  // [1/m]
};

/// Orbits of another kind, mixed at random among the others.
struct second_population {
  double part = 0;     // of the orbits, 0..1
  double x = 0;        // its closed orbit, counted from the other's [m]
  double y = 0;        // [m]
  double current = 1;  // in parts of the other's [-]
};

struct beam {
  plane x{};
  plane y{};
  double coupling = 0;  // part of one plane's motion that shows in the other [-]
  current_law current{};
  second_population second{};
  double duplicated = 0;  // probability that an orbit is the one before once more [-]
};

struct place {
  double x = 0;  // [m]
  double y = 0;  // [m]
};

/// What the whole beam does in one orbit, the same at every BPM.
struct beam_state {
  double ln_walk = 0;        // of the current, so far [-]
  bool is_second = false;    // of the second population
  bool is_repeated = false;  // the orbit before, once more
};

/// Goes on to the next orbit's state. Takes its numbers from a stream of the whole beam (BPM 0),
/// three steps of them, and none when neither walk, population nor duplicates are asked for.
void next_state(const beam& b, beam_state& state, random_stream& stream);

/// The current at this place and time (0..1 over the run), without the electronics' own jitter [-].
double current_at(const beam& b, const beam_state& state, const place& at, double t);

/// Why this beam cannot be; empty when it can.
std::string beam_fault(const beam& b);

/// The largest excursion without the random part, in any direction: orbit and oscillation [m].
double steady_reach(const beam& b);

/// Phase of the oscillation, in -pi..pi. Orbits and BPMs count from 1.
double betatron_phase(const plane& p, int bpm, int orbit);

/// The position at one BPM in one orbit; takes the next four numbers of the stream, whatever the
/// spreads are.
place draw_place(const beam& b, int bpm, int orbit, random_stream& stream);

}  // namespace sim
