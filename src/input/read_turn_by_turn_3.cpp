#include <fmt/core.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <span>
#include <string>

#include "bunch_dialog.hpp"
#include "gain_fit_mod.hpp"
#include "in4get.hpp"
#include "left_out.hpp"
#include "list_io.hpp"
#include "note.hpp"
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

// The longest record of the bunch.
std::size_t turns_collected(const tbt_mod::tbt_bunch_struct& bunch) {
  std::size_t most = 0;
  for (const auto& bpm : bunch.bpm.item) {
    if (bpm.data_ok) most = std::max(most, bpm.turn.size());
  }
  return most;
}

// What the reader takes from the data set.
struct selection {
  const tbt_mod::tbt_all_data_struct& tbt;
  const tbt_mod::tbt_bunch_struct& bunch;
  const tbt_mod::tbt_bunch_struct* empty;  // none: nothing is taken away
  std::int32_t max_turns;                  // turns to look at; 0: all
};

// The turns of a BPM, as far as they are wanted: the first max_turns, or all.
turns turns_wanted(const selection& from, int bpm) {
  const turns held{from.bunch.bpm(bpm).turn};
  if (from.max_turns == 0) return held;
  return held.first(std::min(held.size(), static_cast<std::size_t>(std::max(from.max_turns, 0))));
}

// The turns of a BPM in the empty bunch. Arrays of an earlier data set may still lie in a BPM that
// is not data_ok.
turns empty_turns(const selection& from, int bpm) {
  const auto& at = from.empty->bpm(bpm);
  return at.data_ok ? turns{at.turn} : turns{};
}

// A turn without its pedestal would stand among corrected ones and pull the gains by percents: the
// run ends at the first one, and says which answers avoid it.
[[noreturn]] void pedestal_error(const selection& from, int bpm, std::size_t wanted,
                                 std::size_t held) {
  std::string remedy = "answer the turns of the file or more at \"Compute positions\"";
  if (held > 0) remedy += fmt::format(", at most {} at \"Limit turns to\"", held);
  note(
      fmt::format("BPM {} ({}): bunch {} has {} turns to correct, pedestal bunch {} has {}: {}, or "
                  "0 at \"Pedestal bunch number\"",
                  bpm, from.tbt.bpm(bpm).name.trimmed(), operators_number(from.bunch), wanted,
                  operators_number(*from.empty), held, remedy));
  const auto upper = static_cast<long long>(held);
  util::subscript_error("turn", upper + 1, 1, upper);
}

signals without_pedestal(const signals& with_beam, const signals& pedestal) {
  signals left = with_beam;
  for (int j = 1; j <= 4; ++j) left(j) -= pedestal(j);
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
int store_turns(const selection& from, int bpm) {
  const turns with_beam = turns_wanted(from, bpm);
  const turns empty = from.empty == nullptr ? turns{} : empty_turns(from, bpm);
  if (from.empty != nullptr && empty.size() < with_beam.size()) {
    pedestal_error(from, bpm, with_beam.size(), empty.size());
  }
  store::turn_tally seen;
  for (std::size_t turn = 0; turn < with_beam.size(); ++turn) {
    const signals signal = from.empty == nullptr
                               ? with_beam[turn].button
                               : without_pedestal(with_beam[turn].button, empty[turn].button);
    if (!store::count_turn(seen, signal, weakest_signal)) continue;
    store::bpm_struct& at = fit::orbit_data.edit(seen.kept, bpm);
    for (int j = 1; j <= 4; ++j) at.button(j) = stored_signal(signal(j), bpm, turn);
    at.x = with_beam[turn].x;
    at.y = with_beam[turn].y;
    if (turn < from.tbt.shaker.size()) {
      at.phase_h = from.tbt.shaker[turn].phase(1);
      at.phase_v = from.tbt.shaker[turn].phase(2);
    }
    fit::orbit_data.edit_current(seen.kept) = from.tbt.total_current;
  }
  store::remark_unless_kept(bpm, from.tbt.bpm(bpm).name.trimmed(), seen, weakest_signal);
  return seen.kept;
}

}  // namespace

void read_turn_by_turn_3(const tbt_mod::tbt_all_data_struct& tbt, int nbunch, int empty_bunch) {
  const tbt_mod::tbt_bunch_struct& bunch = tbt_mod::bunch_at(tbt, nbunch);
  selection from{tbt, bunch, empty_bunch == 0 ? nullptr : &tbt_mod::bunch_at(tbt, empty_bunch), 0};
  util::print_line(util::list_line()
                       .integer(static_cast<std::int32_t>(turns_collected(bunch)))
                       .text(" turns collected")
                       .str());
  in4get("Limit turns to: (CR use all)  ", from.max_turns);

  fit::norbits = 0;
  norbits_save.fill(0);
  int m = 0;
  for (fit::bpm = 0; fit::bpm <= last_bpm_read; ++fit::bpm) {
    const int bpm = fit::bpm;
    fit::bpm_names(bpm) = tbt.bpm(bpm).name.trimmed();
    if (!bunch.bpm(bpm).data_ok) continue;
    fit::dets(++m) = bpm;
    // A BPM that kept no turn, one with a dead button, must not make the count of all others 0.
    const int kept = store_turns(from, bpm);
    if (kept == 0) continue;
    norbits_save(bpm) = kept;
    fit::norbits = kept;
  }
}

}  // namespace input
