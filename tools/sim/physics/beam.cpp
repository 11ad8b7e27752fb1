#include "beam.hpp"

#include <fmt/core.h>

#include <cmath>
#include <numbers>

namespace sim {
namespace {

constexpr double two_pi = 2 * std::numbers::pi;

// Both shapes take two numbers of the stream, so changing one plane leaves the other as it was.
double draw_random_part(const plane& p, random_stream& stream) {
  if (p.shape == distribution::gaussian) return p.spread * normal(stream);
  // Gaussian numbers are made of two uniform ones: the second one here is thrown away for that.
  const double u = uniform(stream);
  uniform(stream);
  return p.spread * ((2 * u) - 1);
}

double motion(const plane& p, int bpm, int orbit, random_stream& stream) {
  return draw_random_part(p, stream) + (p.amplitude * std::cos(betatron_phase(p, bpm, orbit)));
}

std::string plane_fault(const plane& p, char name) {
  if (p.spread < 0) return fmt::format("spread in {} must not be negative", name);
  if (p.amplitude < 0) return fmt::format("oscillation amplitude in {} must not be negative", name);
  return {};
}

// A current of zero or less would turn the signals round; 1.9 leaves 5 % of it at the run's end.
constexpr double most_drift = 1.9;

// Probabilities are asked for in the positive, so that a value that is no number fails as well.
std::string current_fault(const beam& b) {
  const current_law& law = b.current;
  // Decay and slopes need no bound: the exponential stays above zero, and a slope that turns the
  // current negative shows in the readings at once.
  if (std::abs(law.drift) > most_drift) {
    return fmt::format("drift of the current must lie between -{0:g} and {0:g}, not {1:g}",
                       most_drift, law.drift);
  }
  if (law.walk < 0) return "random walk of the current must not be negative";
  if (!(b.second.part >= 0 && b.second.part <= 1)) {
    return fmt::format("part of the second population must lie between 0 and 1, not {:g}",
                       b.second.part);
  }
  if (!(b.second.current > 0)) return "current of the second population must be above 0";
  if (!(b.duplicated >= 0 && b.duplicated < 1)) {
    return fmt::format("probability of duplicated orbits must lie between 0 and 1, not {:g}",
                       b.duplicated);
  }
  return {};
}

}  // namespace

std::string beam_fault(const beam& b) {
  if (auto fault = plane_fault(b.x, 'x'); !fault.empty()) return fault;
  if (auto fault = plane_fault(b.y, 'y'); !fault.empty()) return fault;
  if (std::abs(b.coupling) > 1) {
    return fmt::format("coupling must lie between -1 and 1, not {:g}", b.coupling);
  }
  return current_fault(b);
}

void next_state(const beam& b, beam_state& state, random_stream& stream) {
  // Most runs ask for none of these and need not draw their numbers.
  if (b.current.walk == 0 && b.second.part == 0 && b.duplicated == 0) return;
  state.ln_walk += b.current.walk * normal(stream);
  state.is_second = uniform(stream) < b.second.part;
  state.is_repeated = uniform(stream) < b.duplicated;
}

double current_at(const beam& b, const beam_state& state, const place& at, double t) {
  const current_law& law = b.current;
  // The drift is counted from the middle of the run, so that it leaves the mean current alone; a
  // decay begins at full current, as beams do.
  const double in_time = (1 + (law.drift * (t - 0.5))) * std::exp(state.ln_walk - (law.decay * t));
  const double in_place = 1 + (law.slope_x * at.x) + (law.slope_y * at.y);
  return in_time * in_place * (state.is_second ? b.second.current : 1);
}

double steady_reach(const beam& b) {
  // The sum is a bound, not the reach itself: both planes may be at their extremes in one orbit.
  const double coupling = std::abs(b.coupling);
  return std::hypot(std::abs(b.x.orbit) + b.x.amplitude + (coupling * b.y.amplitude),
                    std::abs(b.y.orbit) + b.y.amplitude + (coupling * b.x.amplitude));
}

double betatron_phase(const plane& p, int bpm, int orbit) {
  // Brought back to one turn before the cosine: after thousands of orbits the bare angle would cost
  // digits that readings of large signals show.
  return std::remainder((two_pi * p.tune * (orbit - 1)) + p.phase + (p.advance * (bpm - 1)),
                        two_pi);
}

place draw_place(const beam& b, int bpm, int orbit, random_stream& stream) {
  // Coupling shows the motion only: an orbit that is off does not tilt the other plane.
  const double own_x = motion(b.x, bpm, orbit, stream);
  const double own_y = motion(b.y, bpm, orbit, stream);
  return {b.x.orbit + own_x + (b.coupling * own_y), b.y.orbit + own_y + (b.coupling * own_x)};
}

}  // namespace sim
