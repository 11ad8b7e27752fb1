// tbt_mod: one data set of turn-by-turn measurements, made from raw data files.
//
// A raw file holds, for each instrument and each of its button cards, the readings of all bunches
// one after the other: with T turns, bunch k (1, 2, ...) has the flat elements (k-1) T + 1 .. k T.
// A data set holds them by bunch, BPM and turn, in button order BI, BO, TI, TO, with the correction
// that was asked for and the beam position of every turn:
//
//     but_correct  1  raw readings                  2  raw - pedestal
//                  3  (raw - pedestal) / gain       [ADC counts] in all three
//
// BPMs are numbered along the ring by a table of names (tbt_bpm_name). The two halves of the ring
// count their turns from different marks: what the instruments with index 66 and above call turn
// j + 1 is the same passage as turn j of the others. use_last_turn says how that is mended:
//     true   66 and above move down by one turn; their last turn becomes all zeros
//     false  66 and above lose their first turn, the others their last
#pragma once
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "bounded.hpp"
#include "text.hpp"

namespace tbt_mod {

inline constexpr int max_bpm = 150;        ///< BPM indices 0..max_bpm
inline constexpr int first_late_bpm = 66;  ///< from here on instruments count turns one later
/// Button card of store button i: BI, BO, TI, TO are cards 1, 2, 0, 3.
inline constexpr util::bounded<std::int32_t, 1, 4, "ix_button"> ix_button{{1, 2, 0, 3}};

/// One turn of one bunch at one BPM.
struct tbt_turn_position_struct {
  double x = 0;                                    ///< horizontal position [m]
  double y = 0;                                    ///< vertical position [m]
  util::bounded<double, 1, 4, "button"> button{};  ///< BI, BO, TI, TO [ADC counts, as corrected]
};
static_assert(sizeof(tbt_turn_position_struct) == 48);

/// One BPM in one bunch.
struct tbt_bpm_struct {
  util::bounded<double, 1, 4, "gain"> gain{};          ///< by which readings are divided [-]
  util::bounded<double, 1, 4, "pedestal"> pedestal{};  ///< [ADC counts]
  std::vector<tbt_turn_position_struct> turn;          ///< exactly the turns taken
  bool data_ok = false;                                ///< a file of this set had this BPM
};

/// One bunch.
struct tbt_bunch_struct {
  util::bounded<tbt_bpm_struct, 0, max_bpm, "bunch%bpm"> bpm{};
  std::int32_t ix_rf_bucket = 0;
  std::int32_t ix_bunch = 0;  ///< its number among the bunches of the ring, from 1
  double current = 0;         ///< files give the total current only [mA]
};

/// The shaker that drives the beam, in one turn.
struct tbt_shaker_struct {
  util::bounded<double, 1, 2, "phase"> phase{};  ///< horizontal, vertical [rad]
};

/// The beam's response to the shaker in one turn; filled by resonance analysis.
struct tbt_resonance_struct {
  util::bounded<double, 1, 2, "amplitude"> amplitude{};  ///< horizontal, vertical [m]
};

struct tbt_bpm_info_struct {
  util::fixed_text<8> name;  ///< blank: no BPM has this index
};

/// One data set: up to several files of the same bunches, the later ones laid over the earlier.
struct tbt_all_data_struct {
  std::vector<tbt_bunch_struct> bunch;          ///< by position in the file
  std::vector<tbt_shaker_struct> shaker;        ///< by turn, of the first file; empty: not yet made
  std::vector<tbt_resonance_struct> resonance;  ///< made with the shaker's record
  util::bounded<tbt_bpm_info_struct, 0, max_bpm, "bpm"> bpm{};
  double total_current = 0;  ///< of the file loaded last [mA]
  util::fixed_text<24> time_stamp;
  util::fixed_text<200> data_file;
  std::int32_t condx_number = -1;  ///< the ring's condition number
  std::int32_t file_number = 0;    ///< run loaded last
  std::int32_t particle = 0;       ///< as kbpm_rawfile_species tells it
  bool shake_at_reflection_tune_a = false;
  bool shake_at_reflection_tune_b = false;
};

/// The bunch at a position from 1. Errors: a position outside the set ends the run.
const tbt_bunch_struct& bunch_at(const tbt_all_data_struct& tbt, int position);

/// Name of a BPM index 0..150; empty where no BPM has it.
util::fixed_text<8> tbt_bpm_name(int index);

/// A range of flat elements of a raw array, from 1; last = first - 1 when empty.
struct element_range {
  std::int32_t first = 1;
  std::int32_t last = 0;
};

/// The elements that a BPM gives to bunch k.
///
/// given    nturns         turns of the file
///          tbt_nturn_avg  turns asked for; nothing or at least nturns: all
///          late_bpm       whether the BPM's index is first_late_bpm or above
/// note     With fewer turns than the file has, bunch k ends at element tbt_nturn_avg k, counted
///          over all bunches: bunch 1 has N turns, bunch k max(0, N k - (k-1) T), and N = 0 none.
element_range turns_taken(int k, std::int32_t nturns, std::optional<std::int32_t> tbt_nturn_avg,
                          bool use_last_turn, bool late_bpm);

/// Loads one raw data file, by its run number, into the data set.
///
/// given    but_correct    see above
///          init_needed    begin a new data set: names, flags, shaker record; otherwise the file is
///                         laid over what the set holds
///          use_last_turn  see above; true when absent
///          tbt_nturn_avg  turns to take, see turns_taken; all when absent
/// returns  err  whether the file could not be loaded; the set then holds what it held, except that
///          a new one has no shaker record
/// errors   "Error opening TBT file: ", unknown BPM names and shaker phases that differ from the
///          set's first file are told on standard output; a but_correct outside 1..3 is told and
///          ends the run (err_exit)
/// note     a file with another bunch count replaces all bunches. Positions come from nonlin_orbit:
///          without turns none are asked for, and no tables are needed.
void tbt_read_data_file(std::int32_t tbt_file_num, std::int32_t but_correct, bool init_needed,
                        tbt_all_data_struct& tbt, bool& err, std::optional<bool> use_last_turn = {},
                        std::optional<std::int32_t> tbt_nturn_avg = {});

}  // namespace tbt_mod
