// The in-memory form of one raw data file, version 3: what its header lines and data lines become.
//
// Texts are zero-terminated in a field of fixed width; a longer one is cut to the width less one.
// Arrays [block][card] are indexed by timing block (0, 1) and button card (0..3 = TI, BI, BO, TO).
// Every record starts as zeros, and a line that is missing from the file leaves it so.
#pragma once
#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "bounded.hpp"

namespace rawfile {

inline constexpr int num_cards = 4;       ///< button cards of one instrument
inline constexpr int pattern_words = 40;  ///< words of the bunch pattern, 16 bunches each
inline constexpr int max_bunches = 640;   ///< bunches that the pattern can name

/// A zero-terminated text in a field of n characters, the zero included.
template <std::size_t n>
using text_field = std::array<char, n>;

/// What stands before the first zero.
template <std::size_t n>
std::string_view text_of(const text_field<n>& field) {
  const std::string_view all{field.data(), n};
  return all.substr(0, all.find('\0'));
}

/// Fills a field, with zeros behind the text; a longer text is cut to the width less one.
template <std::size_t n>
void set_text(text_field<n>& field, std::string_view text) {
  field.fill('\0');
  text.substr(0, n - 1).copy(field.data(), n - 1);
}

/// The file header, field by field in the order of its lines.
struct RDV3_FILE_HEADER {
  text_field<150> full_filename{};  ///< path the file was read from; no line carries it
  text_field<8> instrument_type{};
  text_field<30> command_ID{};
  text_field<50> file_type{};
  std::int32_t file_id = 0;  ///< run number
  std::int32_t file_version = 0;
  text_field<50> timestamp{};  ///< a time stamp that was read has lost its line end
  std::int32_t core_commstruct_rev = 0;
  std::int32_t platform_commstruct_rev = 0;
  text_field<50> bunch_patt_name{};  ///< never read
  /// Bit b of word w (b 0..15) stands for bunch 16 w + b + 1.
  util::bounded<std::int32_t, 0, pattern_words - 1, "bunch_pattern"> bunch_pattern{};
  text_field<10> species_name{};  ///< POSITRONS, ELECTRONS or DUAL
  std::int32_t num_instruments = 0;
  std::int32_t num_bunches = 0;
  std::int32_t num_turns = 0;
  std::int32_t turn_spacing = 0;
  text_field<30> timing_setup{};  ///< such as 14ns_VAR_G
};

/// The facility header.
struct RDV3_KOVR_HEADER {
  std::int32_t condx = 0;        ///< the ring's condition number
  std::int32_t raw_current = 0;  ///< beam current monitor [counts]
  float mA_current = 0;          ///< beam current [mA]
};

/// One instrument (one BPM): its header, then views of its arrays. The arrays' memory belongs to
/// the library and lasts until the next load. B bunches of T turns each; element b T + t.
struct RDV3_INST_DATA {
  text_field<10> location{};  ///< the BPM's name, by which accessors find it
  text_field<10> hostname{};
  text_field<17> IP_address{};
  text_field<10> detector_type{};
  float horz_coeff = 0, vert_coeff = 0;  ///< position scale factors
  text_field<20> ldr_name{};
  std::int32_t build_timestamp = 0;
  std::int32_t fpga_maj = 0, fpga_min = 0;
  util::bounded<std::int32_t, 0, 3, "fpga_id"> fpga_id{};
  text_field<20> timing_setup{};
  std::int32_t num_turns = 0;
  std::int32_t turn_counter = 0;
  std::int32_t turn_spacing = 0;
  text_field<10> trigger{};
  util::bounded<std::int32_t, 0, 1, "bp_offsets"> bp_offsets{};
  std::int32_t ctmd = 0;                               ///< common turn marker delay
  util::bounded<std::int32_t, 0, 1, "btmds"> btmds{};  ///< turn marker delays of the blocks
  util::bounded<std::int32_t, 0, 1, "block_delays"> block_delays{};
  util::bounded2<std::int32_t, 0, 1, 0, 3, "chan_delays"> chan_delays{};
  util::bounded2<std::int32_t, 0, 1, 0, 3, "gain_settings"> gain_settings{};
  util::bounded2<std::int32_t, 0, 1, 0, 3, "gain_codes"> gain_codes{};
  util::bounded2<float, 0, 1, 0, 3, "pedestals"> pedestals{};  ///< [counts]
  float dig_temp_c = 0;                                        ///< [degrees C]
  util::bounded<float, 0, 3, "card_temps_c"> card_temps_c{};   ///< [degrees C]
  util::bounded2<float, 0, 1, 0, 3, "gain_coeffs"> gain_coeffs{};
  // Of the ADC limits the file carries card 0 of each block only.
  util::bounded2<std::int32_t, 0, 1, 0, 3, "adc_saturation"> adc_saturation{};
  util::bounded2<std::int32_t, 0, 1, 0, 3, "adc_high"> adc_high{};
  util::bounded2<std::int32_t, 0, 1, 0, 3, "adc_low"> adc_low{};

  std::span<std::int32_t> timing_blocks;                   ///< B; 0 or 1, of the bunch's last turn
  std::span<std::int32_t> phase_words;                     ///< B T; as encoded in the file
  std::span<std::int32_t> TIraw, BIraw, BOraw, TOraw;      ///< B T; ADC readings [counts]
  std::span<float> TIcorrected, BIcorrected, BOcorrected;  ///< B T; (raw - pedestal) / gain
  std::span<float> TOcorrected;
  std::span<float> Xpos, Ypos;                ///< B T; linear positions [unit of the coefficients]
  std::span<std::int32_t> Other_phase_words;  ///< B T; phase word bits 0..7
  std::span<std::int32_t> X_phase_words;      ///< B T; bits 19..27, 512ths of a cycle
  std::span<std::int32_t> Y_phase_words;      ///< B T; bits 10..18, 512ths of a cycle
  std::span<std::int32_t> Species_By_Bunch;   ///< B; filled when asked for
  std::span<std::int32_t> Enabled_Bunches;    ///< B; filled when asked for
};

}  // namespace rawfile
