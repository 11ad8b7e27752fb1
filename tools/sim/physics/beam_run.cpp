#include "beam_run.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <cmath>

namespace sim {
namespace {

// A beam that is asked for in the chamber lands there in a few draws, however wide its spread; a
// thousand misses mean that it cannot.
constexpr int most_draws = 1000;

std::shared_ptr<const solved_chamber> chamber_of(const beam_run& run) {
  // Solved at the first use and shared: most runs ask for no chamber of their own.
  static const auto usual = solve(usual_chamber());
  return run.chamber ? run.chamber : usual;
}

// 0 at the first orbit of the run, 1 at the last.
double time_of(const monitor& at) {
  return at.orbits > 1 ? static_cast<double>(at.orbit - 1) / (at.orbits - 1) : 0;
}

const outlier* outlier_of(const monitor& at) {
  const auto found = std::find_if(at.outliers.begin(), at.outliers.end(),
                                  [&at](const outlier& o) { return o.orbit == at.orbit; });
  return found == at.outliers.end() ? nullptr : &*found;
}

place draw_next_place(const beam& b, monitor& at) {
  // The second population differs by a shift alone, after the draw: switching it on leaves the
  // motion's numbers as they were.
  place p = draw_place(b, at.bpm, at.orbit, at.motion);
  if (at.state.is_second) {
    p.x += b.second.x;
    p.y += b.second.y;
  }
  return p;
}

}  // namespace

util::status run_fault(const beam_run& run) {
  if (run.orbits < 1) {
    return util::fault{fmt::format("{} orbits", run.orbits), "run", "at least 1"};
  }
  std::string what = beam_fault(run.beam);
  if (what.empty()) what = reach_fault(chamber_of(run)->of, run.beam);
  if (what.empty()) return {};
  return util::fault{what, fmt::format("BPM {}", run.bpm), ""};
}

monitor start_run(const beam_run& run) {
  monitor at;
  at.bpm = run.bpm;
  at.orbits = run.orbits;
  at.electronics = run.electronics;
  at.chamber = chamber_of(run);
  at.motion = make_stream(run.seed, purpose::motion, run.bpm, run.bunch);
  at.readout = make_stream(run.seed, purpose::readout, run.bpm, run.bunch);
  // BPMs count from 1: 0 is the whole beam.
  at.whole_beam = make_stream(run.seed, purpose::current, 0, run.bunch);
  // Outliers are known before the first orbit: drawn on the way they could not be a fixed count.
  random_stream troubles = make_stream(run.seed, purpose::troubles, run.bpm, run.bunch);
  at.outliers = draw_outliers(run.electronics, run.orbits, troubles);
  return at;
}

util::status take_passage(const beam& b, monitor& at, passage& p) {
  // The beam's state goes on before anything can return: a repeated orbit at one BPM is one at all.
  ++at.orbit;
  // The whole beam moves on at every BPM alike, also in orbits whose place is drawn anew: all BPMs
  // of a bunch must see the same current and the same copies.
  next_state(b, at.state, at.whole_beam);
  // A copy is bit for bit what was recorded, noise included: that is how a data set read twice
  // looks.
  if (at.state.is_repeated && at.orbit > 1) {
    p = at.last;
    return {};
  }
  place where = draw_next_place(b, at);
  for (int draws = 1; !is_inside(*at.chamber, where.x, where.y); ++draws) {
    if (draws == most_draws) {
      return util::fault{fmt::format("no position inside the chamber in {} draws; the spread is "
                                     "too large",
                                     most_draws),
                         fmt::format("BPM {}, orbit {}", at.bpm, at.orbit), ""};
    }
    where = draw_next_place(b, at);
  }
  buttons relative = phi(*at.chamber, where.x, where.y);
  // All buttons by one number, so that their ratios stay those of the chamber, off-centre ones too.
  for (int k = 1; k <= 4; ++k) relative(k) /= at.chamber->centred;
  // The current is the one at the place itself: its slope must follow the position that was
  // accepted.
  const double t = time_of(at);
  const moment now{current_at(b, at.state, where, t), t};
  const readout r = read_out(at.electronics, relative, at.readout, now, outlier_of(at));
  p = {where, r.reading, r.gain, r.intensity};
  at.last = p;
  return {};
}

util::outcome<run_signals> simulate(const beam_run& run) {
  if (auto wrong = run_fault(run)) return *wrong;
  monitor at = start_run(run);
  run_signals made;
  made.true_gain = run.electronics.true_gain;
  for (int k = 1; k <= 4; ++k) {
    // Both parts: whoever takes this pedestal away is left with the bare signals.
    made.pedestal(k) = run.electronics.pedestal(k) + run.electronics.pedestal_left(k);
  }
  // A fault on the way gives no part of a run: the caller could not tell it from a whole one.
  const auto n = static_cast<std::size_t>(run.orbits);
  // A battery makes thousands of runs: their length is known, so nothing need grow.
  made.signal.reserve(n);
  made.at.reserve(n);
  made.intensity.reserve(n);
  for (int i = 0; i < run.orbits; ++i) {
    passage p;
    if (auto wrong = take_passage(run.beam, at, p)) return *wrong;
    made.signal.push_back(p.reading);
    made.at.push_back(p.at);
    made.intensity.push_back(p.intensity);
    for (int k = 1; k <= 4; ++k) made.mean_gain(k) += p.gain(k) / run.orbits;
  }
  return made;
}

}  // namespace sim
