#include <fmt/core.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <span>

#include "gain_fit_mod.hpp"
#include "in4get.hpp"
#include "left_out.hpp"
#include "list_io.hpp"
#include "read_turn_by_turn.hpp"
#include "run_time.hpp"
#include "terminal.hpp"
#include "turn_text.hpp"

namespace input {
namespace {

namespace fit = gain_fit_mod;
using turns = std::span<const tbt_mod::tbt_turn_position_struct>;
using signals = util::bounded<double, 1, 4, "button">;

constexpr int last_bpm_read = 120;  // of the 150 of a data set: kept for compatibility

std::int32_t max_turns = 0;  // turns to look at; 0: all. Kept from data set to data set.

// The longest record of the bunch.
std::size_t turns_collected(const tbt_mod::tbt_bunch_struct& bunch) {
  std::size_t most = 0;
  for (const auto& bpm : bunch.bpm.item) {
    if (bpm.data_ok) most = std::max(most, bpm.turn.size());
  }
  return most;
}

// The turns to look at: the first max_turns, or all.
std::size_t turns_wanted(std::size_t held) {
  if (max_turns == 0) return held;
  return std::min(held, static_cast<std::size_t>(std::max(max_turns, 0)));
}

// What is left of a turn's signals without those of the empty bunch, which may be the shorter one.
signals without_pedestal(const signals& with_beam, turns empty, std::size_t turn) {
  signals left = with_beam;
  if (turn < empty.size()) {
    for (int j = 1; j <= 4; ++j) left(j) -= empty[turn].button(j);
  }
  return left;
}

double stored_signal(double signal, int bpm, std::size_t turn) {
  constexpr double too_large = 9.2e18;  // 64-bit integers end a little above
  const double counts = std::abs(signal) * counts_per_signal;
  if (!(counts < too_large)) {
    util::run_time_error(
        fmt::format("BPM {}, turn {}: signal {:g} does not fit an integer", bpm, turn + 1, signal));
  }
  return static_cast<double>(std::llround(counts));
}

// The turns of one BPM into orbits 1, 2, ...; returns how many were kept.
int store_turns(const tbt_mod::tbt_all_data_struct& tbt, turns with_beam, turns empty, int bpm) {
  store::turn_tally seen;
  const std::size_t wanted = turns_wanted(with_beam.size());
  for (std::size_t turn = 0; turn < wanted; ++turn) {
    const signals signal = without_pedestal(with_beam[turn].button, empty, turn);
    if (!store::count_turn(seen, signal, weakest_signal)) continue;
    store::bpm_struct& at = fit::orbit_data.edit(seen.kept, bpm);
    for (int j = 1; j <= 4; ++j) at.button(j) = stored_signal(signal(j), bpm, turn);
    at.x = with_beam[turn].x;
    at.y = with_beam[turn].y;
    if (turn < tbt.shaker.size()) {
      at.phase_h = tbt.shaker[turn].phase(1);
      at.phase_v = tbt.shaker[turn].phase(2);
    }
    fit::orbit_data.edit_current(seen.kept) = tbt.total_current;
  }
  store::remark_unless_kept(bpm, tbt.bpm(bpm).name.trimmed(), seen, weakest_signal);
  return seen.kept;
}

}  // namespace

void read_turn_by_turn_3(const tbt_mod::tbt_all_data_struct& tbt, int nbunch, int empty_bunch) {
  const tbt_mod::tbt_bunch_struct& bunch = tbt_mod::bunch_at(tbt, nbunch);
  const tbt_mod::tbt_bunch_struct* empty =
      empty_bunch == 0 ? nullptr : &tbt_mod::bunch_at(tbt, empty_bunch);
  util::print_line(util::list_line()
                       .integer(static_cast<std::int32_t>(turns_collected(bunch)))
                       .text(" turns collected")
                       .str());
  in4get("Limit turns to: (CR use all)  ", max_turns);

  fit::norbits = 0;
  int m = 0;
  for (fit::bpm = 0; fit::bpm <= last_bpm_read; ++fit::bpm) {
    const int bpm = fit::bpm;
    fit::bpm_names(bpm) = tbt.bpm(bpm).name.trimmed();
    if (!bunch.bpm(bpm).data_ok) continue;
    fit::dets(++m) = bpm;
    const int kept = store_turns(tbt, bunch.bpm(bpm).turn,
                                 empty == nullptr ? turns{} : turns{empty->bpm(bpm).turn}, bpm);
    norbits_save(bpm) = kept;
    fit::norbits = kept;
  }
}

}  // namespace input
