#include "kbpm_rawfile.hpp"

#include <fmt/core.h>

#include <bit>

#include "kbpm_read_rawfile.hpp"
#include "kbpmfio.hpp"
#include "tell.hpp"
#include "text.hpp"

namespace rawfile {
namespace {

constexpr std::int32_t bad_integer = -999;
constexpr float bad_real = -999.0F;
constexpr std::int32_t pattern_bits = 16;

bool is_loaded() { return kbpmfio_memory_allocated == 1; }

std::int32_t* bad_integer_address() {
  Integer_Constant = bad_integer;
  return &Integer_Constant;
}

float* bad_real_address() {
  Float_Constant = bad_real;
  return &Float_Constant;
}

bool is_button(std::int32_t button) { return button >= 0 && button < num_cards; }

// A name counts with the blanks it came with: one character is a bad argument, not a name.
bool is_bad_name(std::string_view name) { return !is_loaded() || name.size() < 2; }

std::span<RDV3_INST_DATA> instruments() {
  if (p_v3_inst_array == nullptr || p_v3_file_header->num_instruments < 1) return {};
  return {p_v3_inst_array, static_cast<std::size_t>(p_v3_file_header->num_instruments)};
}

RDV3_INST_DATA* instrument_of(std::string_view name) {
  const std::string_view wanted = stripped(name);
  for (RDV3_INST_DATA& instrument : instruments()) {
    if (text_of(instrument.location) == wanted) return &instrument;
  }
  return nullptr;
}

std::int32_t copy_text(std::string_view from, std::span<char> to, std::int32_t status) {
  if (!to.empty()) to[from.copy(to.data(), to.size() - 1)] = '\0';
  return status;
}

template <class table>
float calibration(table RDV3_INST_DATA::*which, std::string_view name, std::int32_t bunch,
                  std::int32_t button) {
  if (is_bad_name(name) || bunch < 1 || bunch > max_bunches || !is_button(button)) return bad_real;
  // The name is looked up first: of an unknown instrument no bunch is missing.
  const RDV3_INST_DATA* instrument = instrument_of(name);
  if (instrument == nullptr) return 1.0F;
  if (bunch > p_v3_file_header->num_bunches) return bad_real;
  // Block 1 has a calibration of its own in the file, yet 1.0 is answered: kept for compatibility.
  if (instrument->timing_blocks[static_cast<std::size_t>(bunch - 1)] != 0) return 1.0F;
  return (instrument->*which)(0, button);
}

void tell_pattern_too_full() {
  const RDV3_FILE_HEADER& h = *p_v3_file_header;
  int bits = 0;
  for (const std::int32_t word : h.bunch_pattern.item) {
    bits += std::popcount(static_cast<std::uint16_t>(word));
  }
  tell({fmt::format("Bunch_Patt_(hex) names {} bunches", bits),
        util::shown(text_of(h.full_filename)),
        fmt::format("Number_of_Bunches : {}", h.num_bunches)});
}

// Fills a list of the first instrument with a value for each set bit of the bunch pattern.
template <class value_of_bit>
std::int32_t* fill_list(std::span<std::int32_t> RDV3_INST_DATA::*which, const char* list_name,
                        value_of_bit value) {
  if (!is_loaded() || instruments().empty()) return bad_integer_address();
  const std::span<std::int32_t> list = instruments()[0].*which;
  std::size_t position = 0;
  for (std::int32_t bit = 0; bit < pattern_words * pattern_bits; ++bit) {
    const std::int32_t word = p_v3_file_header->bunch_pattern(bit / pattern_bits);
    if (((word >> (bit % pattern_bits)) & 1) == 0) continue;
    if (position >= list.size()) {
      tell_pattern_too_full();
      util::subscript_error(list_name, static_cast<long long>(position), 0,
                            static_cast<long long>(list.size()) - 1);
    }
    list[position++] = value(bit);
  }
  return list.data();
}

}  // namespace

bool kbpm_rawfile_is_current() { return is_loaded() && held_is_current; }

std::int32_t kbpm_rawfile_num_instruments() {
  return is_loaded() ? p_v3_file_header->num_instruments : 0;
}

std::int32_t kbpm_rawfile_num_bunches() { return is_loaded() ? p_v3_file_header->num_bunches : 0; }

std::int32_t kbpm_rawfile_num_turns() { return is_loaded() ? p_v3_file_header->num_turns : 0; }

std::int32_t kbpm_rawfile_condx_number() {
  return is_loaded() ? p_v3_kovr_header->condx : bad_integer;
}

float kbpm_rawfile_cern_current() { return is_loaded() ? p_v3_kovr_header->mA_current : bad_real; }

std::int32_t kbpm_rawfile_cern_current_raw() {
  return is_loaded() ? p_v3_kovr_header->raw_current : bad_integer;
}

std::int32_t kbpm_rawfile_full_filename_(std::span<char> text) {
  if (!is_loaded()) return copy_text("", text, 1);
  return copy_text(text_of(p_v3_file_header->full_filename), text, 0);
}

std::int32_t kbpm_rawfile_timestamp_(std::span<char> text) {
  if (!is_loaded()) return copy_text("", text, 1);
  return copy_text(text_of(p_v3_file_header->timestamp), text, 0);
}

std::int32_t kbpm_rawfile_timing_setup_(std::span<char> text) {
  if (!is_loaded()) return copy_text("", text, 1);
  return copy_text(text_of(p_v3_file_header->timing_setup), text, 0);
}

std::int32_t kbpm_rawfile_bunch_pattern(std::int32_t word) {
  if (!is_loaded() || word < 0 || word >= pattern_words) return bad_integer;
  return p_v3_file_header->bunch_pattern(word);
}

std::int32_t kbpm_rawfile_species() {
  if (!is_loaded()) return bad_integer;
  const std::string_view name = text_of(p_v3_file_header->species_name);
  if (name == "POSITRONS") return 0;
  if (name == "ELECTRONS") return 1;
  if (name == "DUAL") return 2;
  return -1;
}

std::int32_t kbpm_rawfile_species_by_bunch(std::int32_t bunch) {
  if (!is_loaded() || bunch < 0 || bunch > max_bunches) return bad_integer;
  const std::string_view setup = text_of(p_v3_file_header->timing_setup);
  if (setup == "4ns_P_VAR_G" || setup == "4ns_P_FIX_G") return 0;
  if (setup == "4ns_E_VAR_G" || setup == "4ns_E_FIX_G") return 1;
  if (setup == "14ns_VAR_G" || setup == "14ns_FIX_G") return bunch % 2;
  return -1;
}

std::int32_t kbpm_rawfile_rf_bucket(std::int32_t bunch) {
  constexpr std::int32_t last_of_14ns = 183;
  if (!is_loaded() || bunch < 1) return bad_integer;
  const char spacing = p_v3_file_header->timing_setup[0];
  if (spacing == '4' && bunch <= max_bunches) return 2 * bunch;
  if (spacing == '1' && bunch <= last_of_14ns) return (bunch - 1) * 14 / 2 + 1;
  return bad_integer;
}

std::int32_t kbpm_rawfile_inst_names_(std::span<char> text) {
  const auto all = is_loaded() ? instruments() : std::span<RDV3_INST_DATA>{};
  const auto next = static_cast<std::size_t>(inst_count_g);
  if (next < all.size()) {
    ++inst_count_g;
    return copy_text(text_of(all[next].location), text, 0);
  }
  inst_count_g = 0;
  return copy_text("", text, 1);
}

float kbpm_rawfile_pedestal(std::string_view name, std::int32_t bunch, std::int32_t button) {
  return calibration(&RDV3_INST_DATA::pedestals, name, bunch, button);
}

float kbpm_rawfile_gain_factor(std::string_view name, std::int32_t bunch, std::int32_t button) {
  return calibration(&RDV3_INST_DATA::gain_coeffs, name, bunch, button);
}

std::int32_t* kbpm_rawfile_raw_ptr(std::string_view name, std::int32_t button) {
  if (is_bad_name(name) || !is_button(button)) return bad_integer_address();
  const RDV3_INST_DATA* d = instrument_of(name);
  if (d == nullptr) return nullptr;
  const std::array<std::int32_t*, num_cards> raw{d->TIraw.data(), d->BIraw.data(), d->BOraw.data(),
                                                 d->TOraw.data()};
  return raw[static_cast<std::size_t>(button)];
}

float* kbpm_rawfile_tbt_ptr(std::string_view name, std::int32_t button) {
  if (is_bad_name(name) || !is_button(button)) return bad_real_address();
  const RDV3_INST_DATA* d = instrument_of(name);
  if (d == nullptr) return nullptr;
  const std::array<float*, num_cards> corrected{d->TIcorrected.data(), d->BIcorrected.data(),
                                                d->BOcorrected.data(), d->TOcorrected.data()};
  return corrected[static_cast<std::size_t>(button)];
}

float* kbpm_rawfile_pos_ptr(std::string_view name, std::int32_t plane) {
  if (is_bad_name(name)) return bad_real_address();
  const RDV3_INST_DATA* d = instrument_of(name);
  if (d == nullptr) return nullptr;
  if (plane == 0) return d->Xpos.data();
  return plane == 1 ? d->Ypos.data() : nullptr;
}

std::int32_t* kbpm_rawfile_phase_ptr(std::string_view name, std::int32_t selector) {
  if (is_bad_name(name)) return bad_integer_address();
  const RDV3_INST_DATA* d = instrument_of(name);
  if (d == nullptr) return nullptr;
  if (selector == 0) return d->X_phase_words.data();
  if (selector == 1) return d->Y_phase_words.data();
  return selector == 2 ? d->Other_phase_words.data() : nullptr;
}

std::int32_t* kbpm_rawfile_whole_phase_ptr(std::string_view name) {
  if (is_bad_name(name)) return bad_integer_address();
  const RDV3_INST_DATA* d = instrument_of(name);
  return d == nullptr ? nullptr : d->phase_words.data();
}

std::int32_t* kbpm_rawfile_species_ptr() {
  return fill_list(&RDV3_INST_DATA::Species_By_Bunch, "Species_By_Bunch",
                   [](std::int32_t bit) { return kbpm_rawfile_species_by_bunch(bit); });
}

std::int32_t* kbpm_rawfile_bunches_enabled_ptr() {
  return fill_list(&RDV3_INST_DATA::Enabled_Bunches, "Enabled_Bunches",
                   [](std::int32_t bit) { return bit + 1; });
}

}  // namespace rawfile
