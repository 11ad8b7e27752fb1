// kind_words: the words in which the kinds of the battery are told. Noise is 1e-4 of a centred signal
// and the beam moves by +-5 mm unless a kind says otherwise.
#pragma once
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "battery.hpp"

namespace sim {

using kinds = std::vector<battery_kind>;
using change_of_kind = std::function<void(battery_kind&)>;

inline void add(kinds& all, bool sound, const std::string& name, const change_of_kind& change) {
  battery_kind kind;
  kind.name = name;
  kind.sound = sound;
  kind.electronics.noise = 1e-4;
  change(kind);
  all.push_back(std::move(kind));
}

/// Closed orbit [mm].
inline void orbit(battery_kind& kind, double x, double y) {
  kind.beam.x.orbit = x * mm;
  kind.beam.y.orbit = y * mm;
}

/// Random motion, half width or rms [mm].
inline void motion(battery_kind& kind, double x, double y) {
  kind.beam.x.spread = x * mm;
  kind.beam.y.spread = y * mm;
}

/// Both planes oscillate, and nothing else moves [mm].
inline void oscillation(battery_kind& kind, double amplitude) {
  motion(kind, 0, 0);
  kind.beam.x.amplitude = kind.beam.y.amplitude = amplitude * mm;
  kind.beam.x.tune = 0.31;
  kind.beam.y.tune = 0.22;
}

/// Normal motion [mm].
inline void gaussian(battery_kind& kind, double rms) {
  motion(kind, rms, rms);
  kind.beam.x.shape = kind.beam.y.shape = distribution::gaussian;
}

/// Kinds of one trouble or none, and such of several; in the order in which they are shown.
void add_plain_kinds(kinds& all);
void add_mixed_kinds(kinds& all);

}  // namespace sim
