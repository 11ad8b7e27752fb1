#include "butngain/simulation.hpp"

#include <algorithm>
#include <cmath>
#include <string>

#include "beam_run.hpp"
#include "interior.hpp"

namespace butngain {
namespace {

// The face has records of its own, so that the simulator's may grow without breaking a caller.
sim::plane plane_of(const beam_plane& p) {
  return {p.gaussian ? sim::distribution::gaussian : sim::distribution::uniform,
          p.spread,
          p.orbit,
          p.tune,
          p.amplitude,
          p.phase,
          p.advance};
}

sim::beam beam_of(const beam& b) {
  // Taken apart by name: a field that is added to the face does not compile here until it is passed
  // on.
  const auto& [drift, decay, walk, slope_x, slope_y] = b.current;
  const auto& [part, x, y, current] = b.second;
  return {plane_of(b.x),         plane_of(b.y), b.coupling, {drift, decay, walk, slope_x, slope_y},
          {part, x, y, current}, b.duplicated};
}

// Told by the name of the field: the simulator's own checks know a set-up of many BPMs only.
void check(const electronics& e, int orbits) {
  // nan would slip through comparisons further down and come out as readings.
  const auto finite = [](const four& values, const char* name) {
    for (const double value : values) {
      if (!std::isfinite(value)) {
        throw_argument(std::string{"electronics."} + name, std::to_string(value), "four numbers");
      }
    }
  };
  finite(e.gain, "gain");
  finite(e.pedestal, "pedestal");
  finite(e.pedestal_left, "pedestal_left");
  finite(e.stuck, "stuck");
  finite(e.compression, "compression");
  finite(e.gain_step, "gain_step");
  finite(e.gain_drift, "gain_drift");
  // Not "outside": every comparison with nan is false, and it must be refused.
  const auto within = [](double value, double low, double high, const char* name) {
    if (!(value >= low && value <= high)) {
      throw_argument(std::string{"electronics."} + name, std::to_string(value),
                     "a number within " + std::to_string(low) + ".." + std::to_string(high));
    }
  };
  for (const int cable : e.cable_of) within(cable, 0, 3, "cable_of");
  for (const double full : e.full_scale) within(full, 0, electronics::unlimited, "full_scale");
  // Far below the largest double, 1.8e308: products with gains and intensities stay finite.
  constexpr double most = 1e300;
  // Compression is in parts of it: 0 would be divided by.
  within(e.signal, 1e-300, most, "signal");
  within(e.noise, 0, most, "noise");
  within(e.common_noise, 0, most, "common_noise");
  within(e.intensity_spread, 0, most, "intensity_spread");
  within(e.wild, 0, 1, "wild");
  within(e.cross_talk, 0, 1, "cross_talk");
  within(e.adc_step, 0, most, "adc_step");
  within(e.gain_step_at, 0, 1, "gain_step_at");
  // Never two in one orbit: more of them than orbits could not be placed.
  within(e.outliers, 0, orbits, "outliers");
  within(e.outlier_size, -most, most, "outlier_size");
}

sim::bpm_electronics electronics_of(const electronics& e) {
  sim::bpm_electronics made;
  made.true_gain.item = e.gain;
  made.pedestal.item = e.pedestal;
  made.pedestal_left.item = e.pedestal_left;
  made.full_scale.item = e.full_scale;
  made.dead.item = e.dead;
  made.stuck.item = e.stuck;
  made.compression.item = e.compression;
  made.gain_step.item = e.gain_step;
  made.gain_drift.item = e.gain_drift;
  // Cables count from 0 here, from 1 in the simulator.
  for (std::size_t k = 0; k < 4; ++k) made.cable_of.item[k] = e.cable_of[k] + 1;
  made.signal = e.signal;
  made.noise = e.noise;
  made.common_noise = e.common_noise;
  made.intensity_spread = e.intensity_spread;
  made.wild = e.wild;
  made.cross_talk = e.cross_talk;
  made.adc_step = e.adc_step;
  made.gain_step_at = e.gain_step_at;
  made.outliers = e.outliers;
  made.outlier_size = e.outlier_size;
  return made;
}

sim::beam_run run_of(const simulation& run) {
  sim::beam_run made;
  if (run.where.contents) made.chamber = solved_of(run.where);
  made.beam = beam_of(run.beam);
  made.electronics = electronics_of(run.electronics);
  made.orbits = run.orbits;
  made.seed = run.seed;
  made.bpm = run.bpm;
  made.bunch = run.bunch;
  return made;
}

void add(simulated& made, const sim::passage& p) {
  made.readings.push_back(p.reading.item);
  made.x.push_back(p.at.x);
  made.y.push_back(p.at.y);
  made.intensity.push_back(p.intensity);
}

}  // namespace

simulated simulate(const simulation& run, const progress& tell) {
  if (run.orbits < 1) throw_argument("orbits", std::to_string(run.orbits), "at least 1");
  check(run.electronics, run.orbits);
  const sim::beam_run described = run_of(run);
  // What no field can tell alone, but the run as a whole.
  if (const auto wrong = sim::run_fault(described)) throw_fault(error_kind::argument, *wrong);
  simulated made;
  made.gain = run.electronics.gain;
  // What a correction left in counts like a pedestal: together they are what the readings hold.
  for (std::size_t k = 0; k < 4; ++k) {
    made.pedestal[k] = run.electronics.pedestal[k] + run.electronics.pedestal_left[k];
  }
  const auto n = static_cast<std::size_t>(run.orbits);
  made.readings.reserve(n);
  constexpr std::size_t between_calls = 1000;  // a few milliseconds
  // Passage by passage, as the simulator's own loop, which nobody could stop.
  sim::monitor at = sim::start_run(described);
  for (std::size_t i = 0; i < n; ++i) {
    if (i % between_calls == 0) tell_progress(tell, i, n);
    sim::passage p;
    if (const auto wrong = sim::take_passage(described.beam, at, p)) {
      throw_fault(error_kind::argument, *wrong);
    }
    add(made, p);
    // The mean, because gains may step or drift: no fit of the whole run can find more than that.
    for (std::size_t k = 0; k < 4; ++k) made.mean_gain[k] += p.gain.item[k] / run.orbits;
  }
  // The end too, for whoever draws a bar.
  tell_progress(tell, n, n);
  return made;
}

}  // namespace butngain
