// beam: where the beam passes a BPM, orbit after orbit (or turn after turn).
//
// In each plane, with n the orbit (0, 1, ...) and m the BPM (0, 1, ...):
//     motion   = random + amplitude cos(2 pi tune n + phase + advance m)
//     position = closed orbit + own motion + coupling * the other plane's motion
// The random part is drawn anew for every orbit and BPM; the oscillation is one motion of the whole
// beam, seen at every BPM with the phase that the lattice has gained on the way there.
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

struct beam {
  plane x{};
  plane y{};
  double coupling = 0;  // part of one plane's motion that shows in the other [-]
};

struct place {
  double x = 0;  // [m]
  double y = 0;  // [m]
};

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
