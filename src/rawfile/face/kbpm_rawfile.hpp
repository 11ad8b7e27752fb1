// The accessors: the only door to the loaded raw data file.
//
// Instruments are found by name, the first in the file whose location is equal to the name without
// its outer blanks. Bunches count from 1; buttons 0..3 are TI, BI, BO, TO; planes 0 and 1 are
// horizontal and vertical. Arrays hold B bunches of T turns, bunch by bunch, and stay valid until
// the next load.
//
// errors   no messages. Bad arguments give -999, -999.0 or the address of such a value; so does
//          asking for a bunch that the file does not hold, or asking before any load (the counts
//          are 0 then). More bits in the bunch pattern than bunches end the run, behind one line
//          on standard error that names the file and both counts.
#pragma once
#include <cstdint>
#include <span>
#include <string_view>

namespace rawfile {

// What array accessors give the address of on bad arguments: set to -999 and -999.0 then.
inline std::int32_t Integer_Constant = 0;
inline float Float_Constant = 0;

/// Whether the file held is the one that the last load asked for. A file that exists but cannot be
/// opened answers 0 and leaves the earlier one in place; so does one that is not there, with 1.
bool kbpm_rawfile_is_current();

// --- headers ----------------------------------------------------------------------------------

std::int32_t kbpm_rawfile_num_instruments();
std::int32_t kbpm_rawfile_num_bunches();
std::int32_t kbpm_rawfile_num_turns();
std::int32_t kbpm_rawfile_condx_number();      ///< the ring's condition number
float kbpm_rawfile_cern_current();             ///< beam current [mA]
std::int32_t kbpm_rawfile_cern_current_raw();  ///< beam current monitor [counts]

/// Copy a text and its zero into the buffer, cut to fit.
/// returns  0; 1 and an empty text before any load
std::int32_t kbpm_rawfile_full_filename_(std::span<char> text);
std::int32_t kbpm_rawfile_timestamp_(std::span<char> text);
std::int32_t kbpm_rawfile_timing_setup_(std::span<char> text);

/// Word 0..39 of the bunch pattern; -999 for another.
std::int32_t kbpm_rawfile_bunch_pattern(std::int32_t word);

/// 0 POSITRONS, 1 ELECTRONS, 2 DUAL, -1 anything else.
std::int32_t kbpm_rawfile_species();

/// Species of a bunch by the timing set-up: 0 positrons, 1 electrons, -1 set-up unknown.
/// given    bunch  0..640: the array of species asks with the bit index, which starts at 0
std::int32_t kbpm_rawfile_species_by_bunch(std::int32_t bunch);

/// RF bucket of a bunch: 2 k with 4 ns spacing (k to 640), 7 (k - 1) + 1 with 14 ns (k to 183).
std::int32_t kbpm_rawfile_rf_bucket(std::int32_t bunch);

/// The next instrument's name. After the last one: an empty text and 1, and it starts again.
std::int32_t kbpm_rawfile_inst_names_(std::span<char> text);

// --- calibration ------------------------------------------------------------------------------

/// Pedestal [counts] and gain of a button in a bunch.
/// returns  block 0's value; 1.0 for a bunch in timing block 1 and for an unknown name: corrections
///          made from these leave such a bunch as raw - 1
/// errors   -999.0 for a name of one character, a bunch or a button that cannot be, and a known
///          instrument's bunch that the file does not hold
float kbpm_rawfile_pedestal(std::string_view name, std::int32_t bunch, std::int32_t button);
float kbpm_rawfile_gain_factor(std::string_view name, std::int32_t bunch, std::int32_t button);

// --- arrays -----------------------------------------------------------------------------------

/// B x T values of an instrument; null for an unknown name.
std::int32_t* kbpm_rawfile_raw_ptr(std::string_view name, std::int32_t button);  ///< [counts]
float* kbpm_rawfile_tbt_ptr(std::string_view name, std::int32_t button);         ///< as corrected
/// Null for another plane.
float* kbpm_rawfile_pos_ptr(std::string_view name, std::int32_t plane);
/// 0 horizontal, 1 vertical, 2 the rest of the phase word; null for another.
std::int32_t* kbpm_rawfile_phase_ptr(std::string_view name, std::int32_t selector);
std::int32_t* kbpm_rawfile_whole_phase_ptr(std::string_view name);

/// B values, one for each set bit of the bunch pattern: its species, and its number from 1.
/// note     the species is asked for with the bit index, not the number: under 14 ns the list is
///          the inverse of kbpm_rawfile_species_by_bunch of the same bunches
std::int32_t* kbpm_rawfile_species_ptr();
std::int32_t* kbpm_rawfile_bunches_enabled_ptr();

}  // namespace rawfile
