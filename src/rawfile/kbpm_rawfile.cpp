// The accessors: questions to the record of the whole process, with the sentinels that stand for
// "no answer". Questions that any record can be asked are answered in raw_file.cpp.
#include "kbpm_rawfile.hpp"

#include "held_file.hpp"
#include "kbpm_read_rawfile.hpp"
#include "run_time.hpp"
#include "tell.hpp"

namespace rawfile {
namespace {

// Answers that are no values: no count, no current and no pedestal is -999.
constexpr std::int32_t bad_integer = -999;
constexpr float bad_real = -999.0F;

bool is_loaded() { return held().file.loaded; }

const RDV3_FILE_HEADER& file_header() { return held().file.file_header; }

// Bad arguments of the array accessors give an address, too: of a value that is set anew each time,
// for a caller may have written to it.
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

const RDV3_INST_DATA* instrument_of(std::string_view name) {
  return rawfile::instrument_of(held().file, name);
}

// Statuses: 0, and 1 before any load, when the text is empty.
template <std::size_t n>
std::int32_t copy_text(const text_field<n>& from, std::span<char> to) {
  const std::string_view text = is_loaded() ? text_of(from) : std::string_view{};
  if (!to.empty()) to[text.copy(to.data(), to.size() - 1)] = '\0';
  return is_loaded() ? 0 : 1;
}

template <class table>
float calibration(table RDV3_INST_DATA::*which, std::string_view name, std::int32_t bunch,
                  std::int32_t button) {
  if (is_bad_name(name) || bunch < 1 || bunch > max_bunches || !is_button(button)) return bad_real;
  // The name is looked up first: of an unknown instrument no bunch is missing.
  const RDV3_INST_DATA* instrument = instrument_of(name);
  if (instrument == nullptr) return 1.0F;
  if (bunch > file_header().num_bunches) return bad_real;
  // Block 1 has a calibration of its own in the file, yet 1.0 is answered: kept for compatibility.
  if (instrument->timing_blocks[static_cast<std::size_t>(bunch - 1)] != 0) return 1.0F;
  return (instrument->*which)(0, button);
}

// Fills a list of the first instrument with a value for each bunch that the pattern names. The list
// belongs to the file, not to the instrument: the first one's is used because there is always one.
template <class value_of_bunch>
std::int32_t* fill_list(std::span<std::int32_t> RDV3_INST_DATA::*which, const char* list_name,
                        value_of_bunch value) {
  const raw_file& file = held().file;
  if (!file.loaded || file.instruments.empty()) return bad_integer_address();
  // As long as the file has bunches. A pattern with fewer leaves zeros behind its last one.
  const std::span<std::int32_t> list = file.instruments[0].*which;
  std::size_t position = 0;
  for (const std::int32_t bunch : bunches_enabled(file.file_header)) {
    if (position >= list.size()) {
      if (const auto fault = pattern_fault(file)) tell(*fault);
      util::subscript_error(list_name, static_cast<long long>(position), 0,
                            static_cast<long long>(list.size()) - 1);
    }
    list[position++] = value(bunch);
  }
  return list.data();
}

}  // namespace

bool kbpm_rawfile_is_current() { return is_loaded() && held().is_current; }

// Before any load the headers hold zeros, which is what the counts are then.
std::int32_t kbpm_rawfile_num_instruments() { return file_header().num_instruments; }

std::int32_t kbpm_rawfile_num_bunches() { return file_header().num_bunches; }

std::int32_t kbpm_rawfile_num_turns() { return file_header().num_turns; }

std::int32_t kbpm_rawfile_condx_number() {
  return is_loaded() ? held().file.kovr_header.condx : bad_integer;
}

float kbpm_rawfile_cern_current() {
  return is_loaded() ? held().file.kovr_header.mA_current : bad_real;
}

std::int32_t kbpm_rawfile_cern_current_raw() {
  return is_loaded() ? held().file.kovr_header.raw_current : bad_integer;
}

std::int32_t kbpm_rawfile_full_filename_(std::span<char> text) {
  return copy_text(file_header().full_filename, text);
}

std::int32_t kbpm_rawfile_timestamp_(std::span<char> text) {
  return copy_text(file_header().timestamp, text);
}

std::int32_t kbpm_rawfile_timing_setup_(std::span<char> text) {
  return copy_text(file_header().timing_setup, text);
}

std::int32_t kbpm_rawfile_bunch_pattern(std::int32_t word) {
  if (!is_loaded() || word < 0 || word >= pattern_words) return bad_integer;
  return file_header().bunch_pattern(word);
}

std::int32_t kbpm_rawfile_species() {
  return is_loaded() ? species_of(file_header()) : bad_integer;
}

std::int32_t kbpm_rawfile_species_by_bunch(std::int32_t bunch) {
  // 0 is no bunch but is answered: the array of species asks with bit indices.
  if (!is_loaded() || bunch < 0 || bunch > max_bunches) return bad_integer;
  return species_of_bunch(file_header(), bunch);
}

std::int32_t kbpm_rawfile_rf_bucket(std::int32_t bunch) {
  return is_loaded() ? rf_bucket_of(file_header(), bunch).value_or(bad_integer) : bad_integer;
}

std::int32_t kbpm_rawfile_inst_names_(std::span<char> text) {
  const auto& all = held().file.instruments;
  const auto next = static_cast<std::size_t>(inst_count_g);
  if (next < all.size()) {
    ++inst_count_g;
    return copy_text(all[next].location, text);
  }
  // The end is told once; the next call begins again.
  inst_count_g = 0;
  if (!text.empty()) text[0] = '\0';
  return 1;
}

float kbpm_rawfile_pedestal(std::string_view name, std::int32_t bunch, std::int32_t button) {
  return calibration(&RDV3_INST_DATA::pedestals, name, bunch, button);
}

float kbpm_rawfile_gain_factor(std::string_view name, std::int32_t bunch, std::int32_t button) {
  return calibration(&RDV3_INST_DATA::gain_coeffs, name, bunch, button);
}

// Another button is a bad argument and gives the value's address; another plane or selector, below,
// gives null. Kept for compatibility.
std::int32_t* kbpm_rawfile_raw_ptr(std::string_view name, std::int32_t button) {
  if (is_bad_name(name) || !is_button(button)) return bad_integer_address();
  const RDV3_INST_DATA* d = instrument_of(name);
  if (d == nullptr) return nullptr;
  // By card: TI stands first there, BI in the store of orbits.
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
  // Asked with the bit's index, one less than the bunch's number: with 14 ns every answer is that of
  // the other kind. Kept for compatibility.
  return fill_list(&RDV3_INST_DATA::Species_By_Bunch, "Species_By_Bunch",
                   [](std::int32_t bunch) { return kbpm_rawfile_species_by_bunch(bunch - 1); });
}

std::int32_t* kbpm_rawfile_bunches_enabled_ptr() {
  return fill_list(&RDV3_INST_DATA::Enabled_Bunches, "Enabled_Bunches",
                   [](std::int32_t bunch) { return bunch; });
}

}  // namespace rawfile
