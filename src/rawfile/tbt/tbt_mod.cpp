#include "tbt_mod.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <span>
#include <string>

#include "kbpm_file_input.hpp"
#include "kbpm_rawfile.hpp"
#include "kbpm_read_rawfile.hpp"
#include "list_io.hpp"
#include "long_step.hpp"
#include "nonlin_bpm_mod.hpp"
#include "run_time.hpp"
#include "standard_output.hpp"

namespace tbt_mod {
namespace {

namespace kfi = kbpm_file_input;
using readings = std::span<std::int32_t>;

// 2 pi / 512, the phase fields' 512th of a cycle [rad]. Its 15 digits are kept for compatibility: the
// full double is another number.
constexpr double phase_unit = 0.0122718463030851;

/// What of one file the whole load needs.
struct load {
  std::int32_t nturns = 0;
  std::int32_t nbunches = 0;
  std::int32_t but_correct = 3;
  bool use_last_turn = true;
  std::optional<std::int32_t> tbt_nturn_avg;
};

void say(std::string_view text, std::string_view value = {}) {
  util::print_line(util::list_line().text(text).text(value).str());
}

void set_bpm_names(tbt_all_data_struct& tbt) {
  for (int i = 0; i <= max_bpm; ++i) tbt.bpm(i).name = tbt_bpm_name(i);
  say("Note: Hard wired bpm names for south arc bpms. ");
}

// Index of a BPM name; nothing for a name that no BPM has, the blank one included. The comparison is
// exact: a name with a CR behind it, or in small letters, is unknown.
std::optional<int> find_bpm(const tbt_all_data_struct& tbt, std::string_view name) {
  if (name.empty()) return {};
  for (int i = 0; i <= max_bpm; ++i) {
    if (tbt.bpm(i).name.trimmed() == name) return i;
  }
  return {};
}

void take_headers(tbt_all_data_struct& tbt, std::int32_t tbt_file_num) {
  tbt.condx_number = rawfile::kbpm_rawfile_condx_number();
  tbt.total_current = static_cast<double>(rawfile::kbpm_rawfile_cern_current());
  tbt.particle = rawfile::kbpm_rawfile_species();
  tbt.file_number = tbt_file_num;
  kfi::kbpm_rawfile_timestamp_f(tbt.time_stamp.item);
  kfi::kbpm_rawfile_full_filename_f(tbt.data_file.item);
}

void set_up_bunches(tbt_all_data_struct& tbt, const load& file, bool init_needed) {
  const auto count = static_cast<std::size_t>(file.nbunches);
  // With the same count the BPMs that the new file lacks keep what the file before gave them.
  if (tbt.bunch.size() != count) {
    tbt.bunch = {};  // the old memory goes before the new comes
    tbt.bunch.resize(count);
  }
  // The pattern may name fewer bunches than the file has: the others get number 0, and no bucket.
  readings enabled;
  kfi::kbpm_rawfile_bunches_enabled_ptr_f(enabled);
  for (std::size_t k = 0; k < count; ++k) {
    tbt_bunch_struct& bunch = tbt.bunch[k];
    bunch.ix_bunch = enabled[k];
    bunch.ix_rf_bucket = rawfile::kbpm_rawfile_rf_bucket(bunch.ix_bunch);
    if (!init_needed) continue;
    for (tbt_bpm_struct& bpm : bunch.bpm.item) bpm.data_ok = false;
  }
}

// The first BPM of a data set tells the shaker's phases; the others must agree.
void take_shaker(tbt_all_data_struct& tbt, const load& file, const std::string& name) {
  std::array<readings, 2> plane;
  kfi::kbpm_rawfile_phase_ptr_f(plane[0], name, 0);
  kfi::kbpm_rawfile_phase_ptr_f(plane[1], name, 1);
  const std::int32_t kept = std::max(file.use_last_turn ? file.nturns : file.nturns - 1, 0);
  const auto nkept = static_cast<std::size_t>(kept);
  // One shaker drives the whole ring: every instrument records the same phases, those of bunch 1.
  if (tbt.resonance.empty()) {
    tbt.shaker.resize(nkept);
    tbt.resonance.resize(nkept);
    for (std::size_t turn = 0; turn < nkept; ++turn) {
      tbt.shaker[turn].phase(1) = plane[0][turn] * phase_unit;
      tbt.shaker[turn].phase(2) = plane[1][turn] * phase_unit;
    }
    return;
  }
  for (std::size_t turn = 0; turn < std::min(nkept, tbt.shaker.size()); ++turn) {
    // Back to whole counts: stored phases are reals, and rounding must not pass for a mismatch. Told
    // once a BPM, not once a turn: a shaker that is off is off for all of them.
    const auto& stored = tbt.shaker[turn].phase;
    if (std::lround(stored(1) / phase_unit) != plane[0][turn] ||
        std::lround(stored(2) / phase_unit) != plane[1][turn]) {
      say("SHAKER PHASE MISMATCH!", " " + util::shown(name));
      return;
    }
  }
}

void take_calibration(tbt_bpm_struct& bpm, const std::string& name, int k, const load& file) {
  // By the bunch's place k in the file, not by its number: timing blocks are kept by place.
  for (int i = 1; i <= 4; ++i) {
    bpm.gain(i) = static_cast<double>(kfi::kbpm_rawfile_gain_factor_f(name, k, ix_button(i)));
    bpm.pedestal(i) = static_cast<double>(kfi::kbpm_rawfile_pedestal_f(name, k, ix_button(i)));
    if (file.but_correct == 3 && bpm.gain(i) == 0) bpm.gain(i) = 1;  // exactly: never calibrated
  }
}

// The readings of one button, corrected, into all turns.
void take_button(tbt_bpm_struct& bpm, int i, readings raw, std::int32_t but_correct) {
  // Subtracting 0 and dividing by 1 change no bit, so one loop serves all three corrections.
  const double pedestal = but_correct == 1 ? 0 : bpm.pedestal(i);
  const double gain = but_correct == 3 ? bpm.gain(i) : 1;
  for (std::size_t turn = 0; turn < raw.size(); ++turn) {
    bpm.turn[turn].button(i) = (raw[turn] - pedestal) / gain;
  }
}

// What fails is not told: a reading without position is at the offsets' place.
void find_positions(tbt_bpm_struct& bpm, int index) {
  std::vector<nonlin_bpm_mod::button_signals> but(bpm.turn.size());
  for (std::size_t turn = 0; turn < but.size(); ++turn) {
    // Pulses of either sign: a position takes their sizes.
    for (int i = 1; i <= 4; ++i) but[turn](i) = std::abs(bpm.turn[turn].button(i));
  }
  std::vector<nonlin_bpm_mod::position> x(but.size());
  nonlin_bpm_mod::nonlin_orbits(index, but, x);
  for (std::size_t turn = 0; turn < but.size(); ++turn) {
    bpm.turn[turn].x = x[turn](1);
    bpm.turn[turn].y = x[turn](2);
  }
}

void move_down_one_turn(std::vector<tbt_turn_position_struct>& turn) {
  if (turn.empty()) return;
  // The last passage was never recorded by these instruments: zeros, which no reader takes for beam.
  std::move(turn.begin() + 1, turn.end(), turn.begin());
  turn.back() = {};
}

void take_bpm(tbt_bpm_struct& bpm, const std::string& name, int index, int k, const load& file) {
  const bool late = index >= first_late_bpm;
  const element_range taken =
      turns_taken(k, file.nturns, file.tbt_nturn_avg, file.use_last_turn, late);
  const std::int32_t kept = taken.last - taken.first + 1;
  const auto count = static_cast<std::size_t>(kept);
  bpm.turn.resize(count);
  take_calibration(bpm, name, k, file);
  for (int i = 1; i <= 4; ++i) {
    readings raw;
    kfi::kbpm_rawfile_raw_ptr_f(raw, name, ix_button(i));
    const auto first = static_cast<std::size_t>(taken.first) - 1;
    if (count > 0) take_button(bpm, i, raw.subspan(first, count), file.but_correct);
  }
  find_positions(bpm, index);
  if (file.use_last_turn && late) move_down_one_turn(bpm.turn);
  bpm.data_ok = true;
}

// Whether the file gives this name its arrays: one that ends in blanks there is found by no name.
bool has_arrays(const std::string& name, const load& file) {
  readings raw;
  kfi::kbpm_rawfile_raw_ptr_f(raw, name, 0);
  return raw.size() ==
         static_cast<std::size_t>(file.nturns) * static_cast<std::size_t>(file.nbunches);
}

void take_instruments(tbt_all_data_struct& tbt, const load& file, const std::string& run_name) {
  util::fixed_text<100> padded;
  util::long_step step("positions of " + run_name, rawfile::kbpm_rawfile_num_instruments());
  for (int done = 0; kfi::kbpm_rawfile_inst_names_f(padded.item) == 0; ++done) {
    step.at(done);
    const std::string name{padded.trimmed()};
    const auto index = find_bpm(tbt, name);
    if (!index || !has_arrays(name, file)) {
      say("SKIPPING: UNKNOWN TBT BPM NAME: ", util::shown(name));
      continue;
    }
    take_shaker(tbt, file, name);
    for (int k = 1; k <= file.nbunches; ++k) {
      take_bpm(tbt.bunch[static_cast<std::size_t>(k) - 1].bpm(*index), name, *index, k, file);
    }
  }
}

}  // namespace

const tbt_bunch_struct& bunch_at(const tbt_all_data_struct& tbt, int position) {
  const auto count = static_cast<int>(tbt.bunch.size());
  if (position < 1 || position > count) util::subscript_error("bunch", position, 1, count);
  return tbt.bunch[static_cast<std::size_t>(position) - 1];
}

element_range turns_taken(int k, std::int32_t nturns, std::optional<std::int32_t> tbt_nturn_avg,
                          bool use_last_turn, bool late_bpm) {
  // In 64 bits: one turn more than the file has passes the end of 32.
  std::int64_t first = (std::int64_t{k} - 1) * nturns + 1;
  std::int64_t last = std::int64_t{k} * nturns;
  // The product, not an offset from first: later bunches get fewer turns. Kept for compatibility.
  if (tbt_nturn_avg && *tbt_nturn_avg < nturns) last = std::int64_t{*tbt_nturn_avg} * k;
  if (!use_last_turn) {
    if (late_bpm) {
      ++first;
    } else {
      --last;
    }
  }
  last = std::max(last, first - 1);
  return {static_cast<std::int32_t>(first), static_cast<std::int32_t>(last)};
}

void tbt_read_data_file(std::int32_t tbt_file_num, std::int32_t but_correct, bool init_needed,
                        tbt_all_data_struct& tbt, bool& err, std::optional<bool> use_last_turn,
                        std::optional<std::int32_t> tbt_nturn_avg) {
  say("CORRECTING OFF-BY-ONE PROBLEM...");
  tbt.shake_at_reflection_tune_a = false;
  tbt.shake_at_reflection_tune_b = false;
  if (init_needed) {
    tbt.condx_number = -1;
    tbt.shaker = {};
    tbt.resonance = {};
    set_bpm_names(tbt);
  }
  err = true;
  // A file that exists and cannot be opened answers success too, and leaves the run before in place:
  // its readings must not pass for those of this one.
  const std::int32_t status = rawfile::kbpm_read_rawfile(tbt_file_num);
  if (status != 0 || !rawfile::kbpm_rawfile_is_current()) {
    util::print_line(
        util::list_line().text("Error opening TBT file: ").integer(tbt_file_num).str());
    return;
  }
  // Looked at before the readings are touched: nobody sees a set half corrected.
  if (but_correct < 1 || but_correct > 3) {
    say("BAD BUT_CORRECT SWITCH!");
    util::err_exit();
  }
  const load file{rawfile::kbpm_rawfile_num_turns(), rawfile::kbpm_rawfile_num_bunches(),
                  but_correct, use_last_turn.value_or(true), tbt_nturn_avg};
  take_headers(tbt, tbt_file_num);
  set_up_bunches(tbt, file, init_needed);
  take_instruments(tbt, file, fmt::format("run {}", tbt_file_num));
  err = false;
}

}  // namespace tbt_mod
