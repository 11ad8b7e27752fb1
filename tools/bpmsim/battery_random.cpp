// Kinds of the battery that nobody chose: beams and troubles drawn at random, one at a time or two
// together, with sizes spread evenly over their logarithm.
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>

#include "kind_words.hpp"

namespace sim {
namespace {

// Draws and tells: the name of a kind says what was drawn.
struct drawing {
  random_stream stream;
  battery_kind kind;

  double between(double least, double most) { return least + (most - least) * uniform(stream); }
  // Evenly over the logarithm: as many small troubles, which hide, as large ones, which anybody
  // sees.
  double log_between(double least, double most) {
    return least * std::pow(most / least, uniform(stream));
  }
  double signed_between(double least, double most) {
    return (uniform(stream) < 0.5 ? -1 : 1) * between(least, most);
  }
  int one_of(int n) { return std::min(n - 1, static_cast<int>(n * uniform(stream))); }
  bool once_in(int n) { return one_of(n) == 0; }
  void tell(const std::string& what) {
    kind.name += ", ";
    kind.name += what;
  }
};

void draw_chamber_and_orbit(drawing& d) {
  battery_kind& k = d.kind;
  // Two thirds are round pipes: their signals have a closed form, so that what goes wrong there is
  // not the simulation's doing.
  constexpr std::array<battery_chamber, 6> chambers{
      battery_chamber::round, battery_chamber::round,   battery_chamber::round,
      battery_chamber::round, battery_chamber::ellipse, battery_chamber::racetrack};
  k.chamber = chambers.at(static_cast<std::size_t>(d.one_of(6)));
  const bool flat = k.chamber != battery_chamber::round;
  const double angle = 2 * std::numbers::pi * uniform(d.stream);
  // A fifth to a quarter of the way to the wall: 45 mm in the round pipe, 25 mm above in the
  // ellipse. Evenly in r and not over the area, which would leave few orbits near the axis.
  const double r = d.between(0, flat ? 6 : 9);
  orbit(k, r * std::cos(angle), r * std::sin(angle));
  if (flat) d.tell(k.chamber == battery_chamber::ellipse ? "ellipse" : "racetrack");
  d.tell(fmt::format("({:.1f}, {:.1f}) mm", r * std::cos(angle), r * std::sin(angle)));
}

void draw_motion(drawing& d) {
  battery_kind& k = d.kind;
  // Half widths [mm] on both sides of 2 mm, below which noise takes over, to beyond the 5 mm
  // advised.
  const double size = d.log_between(1.2, 6), ratio = d.log_between(0.3, 1);
  const int which = d.one_of(5);
  if (which <= 1) {
    motion(k, size, size * ratio);
    d.tell(fmt::format("+-{:.1f} by +-{:.1f}", size, size * ratio));
  } else if (which == 2) {
    // Twice the rms reaches about as far as the half width of an even motion.
    motion(k, size / 2, size / 2 * ratio);
    k.beam.x.shape = k.beam.y.shape = distribution::gaussian;
    d.tell(fmt::format("Gaussian {:.1f} by {:.1f}", size / 2, size / 2 * ratio));
  } else {
    oscillation(k, size);
    k.beam.y.amplitude *= ratio;
    // Off integer and half integer, where an oscillation shrinks to one place or two.
    k.beam.x.tune = d.between(0.05, 0.45);
    // A third of the oscillations stay on one ellipse.
    k.beam.y.tune = d.once_in(3) ? k.beam.x.tune : d.between(0.05, 0.45);
    k.beam.y.phase = d.between(0, 2 * std::numbers::pi);
    const double beside = d.once_in(2) ? d.log_between(0.1, 2) : 0;
    motion(k, beside, beside);
    d.tell(fmt::format("oscillation {:.1f} by {:.1f}, tunes {:.3f} {:.3f}, +-{:.1f} beside", size,
                       size * ratio, k.beam.x.tune, k.beam.y.tune, beside));
    // One tune is one ellipse, a curve: only with some motion beside it are the gains to be had.
    // Drawn or copied, so that equal means exactly equal.
    k.sound = k.beam.x.tune != k.beam.y.tune || beside > 1;
  }
  if (d.once_in(5)) {
    k.beam.coupling = d.signed_between(0, 0.7);
    d.tell(fmt::format("coupling {:.2f}", k.beam.coupling));
  }
  // Of the narrower plane: half widths above 2 mm, for Gaussian motion an rms above 1.5 mm, half of
  // 3.
  k.sound = (which <= 2 || k.sound) && size * ratio > (which == 2 ? 3 : 2);
}

void draw_readout(drawing& d) {
  battery_kind& k = d.kind;
  // 0 stands for a few, drawn below; the usual length of a run twice.
  constexpr std::array<int, 7> lengths{0, 100, 200, 500, 1000, 1000, 2000};
  const int length = lengths.at(static_cast<std::size_t>(d.one_of(7)));
  k.orbits = length > 0 ? length : static_cast<int>(d.between(15, 80));
  k.electronics.noise = d.log_between(2e-5, 1e-3);
  d.tell(fmt::format("{} orbits, noise {:.0e}", k.orbits, k.electronics.noise));
  // At 3e-4 of noise and 100 orbits noise alone leaves 4e-4 to 5e-4 of a gain, by the limit of
  // 0.5e-4 for 1e-4 and 1000: half of the 1e-3 that E may have, and room for pedestals beside it.
  k.sound = k.sound && k.orbits >= 100 && k.electronics.noise < 3e-4;
  switch (d.one_of(6)) {
    case 0:
      k.beam.current.drift = d.signed_between(0, 0.5);
      return d.tell(fmt::format("current drifts by {:.2f}", k.beam.current.drift));
    case 1:
      k.beam.current.decay = d.between(0, 1);
      return d.tell(fmt::format("current decays by {:.2f}", k.beam.current.decay));
    case 2:
      k.beam.current.walk = d.log_between(3e-5, 1e-2);
      return d.tell(fmt::format("current walks by {:.1e}", k.beam.current.walk));
    case 3:
      k.electronics.intensity_spread = d.log_between(1e-4, 0.3);
      return d.tell(fmt::format("current jitters by {:.1e}", k.electronics.intensity_spread));
    default:
      return;
  }
}

void spoil_current(drawing& d, int which) {
  battery_kind& k = d.kind;
  if (which == 0) {
    // From twice the slope that is allowed for (4.5e-5 over 5 mm): a smaller one is no trouble.
    k.beam.current.slope_x = d.log_between(1e-4, 1e-2) / (5 * mm);
    k.beam.current.slope_y = d.signed_between(0, 1) * k.beam.current.slope_x;
    d.tell(fmt::format("current follows ({:.1e}, {:.1e}) over 5 mm",
                       5 * mm * k.beam.current.slope_x, 5 * mm * k.beam.current.slope_y));
  } else {
    // A second population whose current differs by so little that it can pass, or by so much that
    // the currents themselves show it.
    k.beam.second = {.part = d.between(0.1, 0.6),
                     .x = d.signed_between(0, 4) * mm,
                     .y = d.signed_between(0, 4) * mm,
                     .current = 1 - d.log_between(1e-4, 0.6)};
    d.tell(fmt::format("{:.1f} of the orbits ({:.1f}, {:.1f}) mm off with a current of {:.4f}",
                       k.beam.second.part, k.beam.second.x / mm, k.beam.second.y / mm,
                       k.beam.second.current));
  }
}

void spoil_gains(drawing& d, int which) {
  battery_kind& k = d.kind;
  const int button = 1 + d.one_of(4);
  // From 2e-3 on: a smaller change leaves no gain wrong by the 2e-3 that count.
  const double size =
      d.signed_between(0, 1) > 0 ? d.log_between(2e-3, 5e-2) : -d.log_between(2e-3, 5e-2);
  if (which == 0) {
    k.electronics.gain_steps = {{1, button, size}};
    k.electronics.gain_step_at = d.between(0.05, 0.95);
    d.tell(fmt::format("gain {} steps by {:.4f} after {:.2f}", button, size,
                       k.electronics.gain_step_at));
  } else {
    k.electronics.gain_drifts = {{1, button, size}};
    d.tell(fmt::format("gain {} drifts by {:.4f}", button, size));
  }
}

void spoil_buttons(drawing& d, int which) {
  battery_kind& k = d.kind;
  // Another button in any case: 1, 2 or 3 places further on.
  const int button = 1 + d.one_of(4), other = 1 + (button + d.one_of(3)) % 4;
  const double part = d.log_between(2e-3, 0.1);
  switch (which) {
    case 0:
      k.electronics.compressed = {{1, button, part}};
      return d.tell(fmt::format("button {} compressed by {:.4f}", button, part));
    case 1:
      k.electronics.compression = part;
      return d.tell(fmt::format("compressed by {:.4f}", part));
    case 2:
      // Two neighbours talk into every button: half the part weighs as much.
      k.electronics.cross_talk = part / 2;
      return d.tell(fmt::format("cross-talk of {:.4f}", part / 2));
    case 3:
      // Between a limit that many orbits meet and one that hardly any does.
      k.electronics.saturated = {{1, button, d.between(1.02, 1.4)}};
      return d.tell(fmt::format("button {} clipped at {:.2f}", button,
                                k.electronics.saturated.front().value));
    default:
      k.electronics.swapped = {{1, button, static_cast<double>(other)}};
      return d.tell(fmt::format("buttons {} and {} exchanged", button, other));
  }
}

void spoil_readings(drawing& d, int which) {
  battery_kind& k = d.kind;
  switch (which) {
    case 0:
      k.electronics.wild = d.log_between(1e-3, 0.2);
      return d.tell(fmt::format("wild readings {:.3f}", k.electronics.wild));
    case 1:
      k.electronics.outliers = static_cast<int>(k.orbits * d.log_between(0.01, 0.3));
      k.electronics.outlier_size = d.log_between(3e-4, 0.1);
      return d.tell(
          fmt::format("{} outliers of {:.4f}", k.electronics.outliers, k.electronics.outlier_size));
    case 2:
      k.electronics.common_noise = d.log_between(1e-4, 1e-2);
      return d.tell(fmt::format("common noise {:.1e}", k.electronics.common_noise));
    default:
      k.electronics.adc_bits = 8 + d.one_of(6);
      return d.tell(fmt::format("ADC of {} bits", k.electronics.adc_bits));
  }
}

void spoil_chamber(drawing& d) {
  battery_kind& k = d.kind;
  // Up to a little more than what is sound: 10 % wider, 1.5 degrees, an ellipse of 3 %, 1 % of
  // radius.
  k.change.width = d.between(0.8, 1.25);
  k.change.angle = d.signed_between(0, 2) * degree;
  k.change.ellipse = d.signed_between(0, 0.04);
  k.change.radius = d.signed_between(0, 0.03);
  d.tell(fmt::format("buttons {:.2f} as wide and {:.1f} degrees off, ellipse {:.3f}, radius {:.3f}",
                     k.change.width, k.change.angle / degree, k.change.ellipse, k.change.radius));
}

void spoil_pedestals(drawing& d, bool in_sets) {
  battery_kind& k = d.kind;
  // From just above the 3e-4 that are said to be known.
  k.electronics.pedestal_left = d.log_between(4e-4, 2e-2);
  d.tell(fmt::format("pedestals of {:.1e}", k.electronics.pedestal_left));
  if (!in_sets) return;
  // At less current the same counts are a larger part of the signal: the sets contradict each
  // other.
  const double current = d.between(0.5, 1);
  k.stretches = {{}, {.current = current, .new_set = true, .new_pedestals = true}};
  d.tell(fmt::format("others in a second set at a current of {:.2f}", current));
}

void draw_trouble(drawing& d) {
  d.kind.sound = false;
  // Pedestals are the commonest trouble, and the one that hurts most.
  const int which = d.one_of(18);
  if (which <= 3) return spoil_pedestals(d, which == 3);
  if (which <= 5) return spoil_current(d, which - 4);
  if (which <= 7) return spoil_gains(d, which - 6);
  if (which <= 12) return spoil_buttons(d, which - 8);
  if (which <= 16) return spoil_readings(d, which - 13);
  spoil_chamber(d);
}

}  // namespace

std::vector<battery_kind> random_kinds(int n, std::uint64_t seed) {
  kinds all;
  for (int i = 1; i <= n; ++i) {
    drawing d{make_stream(seed, purpose::troubles, i, 7), {}};
    d.kind.name = fmt::format("random {}", i);
    draw_chamber_and_orbit(d);
    draw_motion(d);
    draw_readout(d);
    // A third is sound, half has one trouble.
    const int draw = d.one_of(6);
    if (draw >= 2) draw_trouble(d);
    if (draw == 5) draw_trouble(d);
    all.push_back(std::move(d.kind));
  }
  return all;
}

}  // namespace sim
