#include "bunch_turns.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <cmath>
#include <span>
#include <string>

namespace input {
namespace {

using turns = std::span<const tbt_mod::tbt_turn_position_struct>;
using signals = util::bounded<double, 1, 4, "button">;

// The turns of a BPM, as far as they are wanted: the first max_turns, or all.
turns turns_wanted(const bunch_selection& from, int bpm) {
  const turns held{from.bunch.bpm(bpm).turn};
  if (from.max_turns == 0) return held;
  return held.first(std::min(held.size(), static_cast<std::size_t>(std::max(from.max_turns, 0))));
}

// The turns of a BPM in the empty bunch. Arrays of an earlier data set may still lie in a BPM that
// is not data_ok: they would be taken for this one's pedestals.
turns empty_turns(const bunch_selection& from, int bpm) {
  if (from.empty == nullptr) return {};
  const auto& at = from.empty->bpm(bpm);
  return at.data_ok ? turns{at.turn} : turns{};
}

signals without_pedestal(const signals& with_beam, const signals& pedestal) {
  signals left = with_beam;
  for (int j = 1; j <= 4; ++j) left(j) -= pedestal(j);
  return left;
}

// Signals as they are stored: whole counts, held as reals. Rounding is done in 64 bits, for 32 end
// at a signal of two million. Returns the number of the signal that does not fit; 0 when all do.
int store_signals(const signals& signal, signals& stored) {
  constexpr double too_large = 9.2e18;  // 64-bit integers end a little above
  for (int j = 1; j <= 4; ++j) {
    const double counts = std::abs(signal(j)) * counts_per_signal;
    if (!(counts < too_large)) return j;  // not a number neither
    stored(j) = static_cast<double>(std::llround(counts));
  }
  return 0;
}

// The turns of one BPM into orbits 1, 2, ...; the tally counts them.
util::status store_turns(const bunch_selection& from, turns with_beam, turns empty,
                         bpm_turns& section, store::orbit_store& orbits) {
  store::turn_tally& seen = section.seen;
  for (std::size_t turn = 0; turn < with_beam.size(); ++turn) {
    const signals signal = from.empty == nullptr
                               ? with_beam[turn].button
                               : without_pedestal(with_beam[turn].button, empty[turn].button);
    if (!store::count_turn(seen, signal, weakest_signal)) continue;
    if (seen.kept > store::max_orbits) {
      return bounds_fault(orbits.name, seen.kept, 1, store::max_orbits);
    }
    store::bpm_struct& at = orbits.edit(seen.kept, section.bpm);
    if (const int j = store_signals(signal, at.button); j != 0) {
      return util::fault{fmt::format("BPM {}, turn {}: signal {:g} does not fit an integer",
                                     section.bpm, turn + 1, signal(j)),
                         {},
                         {}};
    }
    at.x = with_beam[turn].x;
    at.y = with_beam[turn].y;
    // The shaker's record is that of the set's first file; a longer second file has turns beyond it.
    if (turn < from.tbt.shaker.size()) {
      at.phase_h = from.tbt.shaker[turn].phase(1);
      at.phase_v = from.tbt.shaker[turn].phase(2);
    }
    orbits.edit_current(seen.kept) = from.tbt.total_current;
  }
  return {};
}

// Takes one BPM that the bunch has.
void take_bpm(const bunch_selection& from, int bpm, bunch_turns& taken) {
  turn_data& data = taken.data;
  bpm_turns& section = data.bpms.emplace_back();
  section.bpm = bpm;
  section.name = from.tbt.bpm(bpm).name.trimmed();
  const turns with_beam = turns_wanted(from, bpm);
  const turns empty = empty_turns(from, bpm);
  // A turn without its pedestal would stand among corrected ones and pull the gains by percents.
  if (from.empty != nullptr && empty.size() < with_beam.size()) {
    taken.gap = missing_pedestal{bpm, with_beam.size(), empty.size()};
    const auto held = static_cast<long long>(empty.size());
    data.fault = bounds_fault("turn", held + 1, 1, held);
    return;
  }
  data.fault = store_turns(from, with_beam, empty, section, data.orbits);
  // A BPM that kept no turn, one with a dead button, must not make the count of all others 0.
  if (section.seen.kept > 0) data.norbits = section.seen.kept;
}

}  // namespace

std::size_t turns_collected(const tbt_mod::tbt_bunch_struct& bunch) {
  std::size_t most = 0;
  for (const auto& bpm : bunch.bpm.item) {
    if (bpm.data_ok) most = std::max(most, bpm.turn.size());
  }
  return most;
}

bunch_turns take_bunch(const bunch_selection& from) {
  bunch_turns taken;
  for (int bpm = 0; bpm <= last_bpm_read && !taken.data.fault; ++bpm) {
    if (from.bunch.bpm(bpm).data_ok) take_bpm(from, bpm, taken);
  }
  return taken;
}

}  // namespace input
