#include "butngain/raw_file.hpp"

#include <memory>
#include <utility>

#include "interior.hpp"
#include "raw_file.hpp"

namespace butngain {
namespace {

using rawfile::RDV3_INST_DATA;
using rawfile::text_of;

// The file's cards are TI, BI, BO, TO; everything here is in button order, BI, BO, TI, TO.
constexpr std::array<int, 4> card_of{1, 2, 0, 3};

// By timing block first: the electronics have delays, gains and pedestals for each of the two.
template <class T, class table>
by_block<T> in_button_order(const table& from) {
  by_block<T> to{};
  for (int block = 0; block < 2; ++block) {
    for (std::size_t k = 0; k < 4; ++k) {
      to[static_cast<std::size_t>(block)][k] = from(block, card_of[k]);
    }
  }
  return to;
}

// Under names in full: callers do not know the abbreviations of the header's lines.
void take_header(const RDV3_INST_DATA& d, raw_bpm& bpm) {
  bpm.name = text_of(d.location);
  bpm.host = text_of(d.hostname);
  bpm.ip_address = text_of(d.IP_address);
  bpm.detector_type = text_of(d.detector_type);
  bpm.loader = text_of(d.ldr_name);
  bpm.timing_setup = text_of(d.timing_setup);
  bpm.trigger = text_of(d.trigger);
  bpm.horizontal_coefficient = d.horz_coeff;
  bpm.vertical_coefficient = d.vert_coeff;
  bpm.build_time = d.build_timestamp;
  bpm.fpga_major = d.fpga_maj;
  bpm.fpga_minor = d.fpga_min;
  // What the BPM says of itself; how many there are the arrays tell.
  bpm.header_turns = d.num_turns;
  bpm.turn_counter = d.turn_counter;
  bpm.turn_spacing = d.turn_spacing;
  bpm.bunch_pattern_offset = d.bp_offsets.item;
  bpm.common_turn_delay = d.ctmd;
  bpm.turn_delay = d.btmds.item;
  bpm.block_delay = d.block_delays.item;
  bpm.channel_delay = in_button_order<std::int32_t>(d.chan_delays);
  bpm.gain_setting = in_button_order<std::int32_t>(d.gain_settings);
  bpm.gain_code = in_button_order<std::int32_t>(d.gain_codes);
  bpm.pedestal = in_button_order<float>(d.pedestals);
  bpm.gain_coefficient = in_button_order<float>(d.gain_coeffs);
  bpm.adc_saturation = in_button_order<std::int32_t>(d.adc_saturation);
  bpm.adc_high = in_button_order<std::int32_t>(d.adc_high);
  bpm.adc_low = in_button_order<std::int32_t>(d.adc_low);
  bpm.board_temperature = d.dig_temp_c;
  // These a card has once, not once for each timing block.
  for (std::size_t k = 0; k < 4; ++k) {
    bpm.fpga_id[k] = d.fpga_id(card_of[k]);
    bpm.card_temperature[k] = d.card_temps_c(card_of[k]);
  }
}

raw_bpm bpm_of(const RDV3_INST_DATA& d) {
  raw_bpm bpm;
  take_header(d, bpm);
  // Views, not copies: 100 BPMs with 100000 turns are hundreds of megabytes, and one of them is
  // enough.
  bpm.block = d.timing_blocks;
  bpm.phase_words = d.phase_words;
  // These fields are named after their buttons, so the order of the cards does not come in.
  bpm.reading = {d.BIraw, d.BOraw, d.TIraw, d.TOraw};
  bpm.corrected = {d.BIcorrected, d.BOcorrected, d.TIcorrected, d.TOcorrected};
  bpm.x = d.Xpos;
  bpm.y = d.Ypos;
  bpm.phase_x = d.X_phase_words;
  bpm.phase_y = d.Y_phase_words;
  bpm.phase_other = d.Other_phase_words;
  return bpm;
}

// From two headers: the file's own, and the ring's, which knows the beam.
void take_header(const rawfile::raw_file& from, raw_file& file) {
  const rawfile::RDV3_FILE_HEADER& h = from.file_header;
  file.path = from.path;
  file.instrument_type = text_of(h.instrument_type);
  file.command = text_of(h.command_ID);
  file.file_type = text_of(h.file_type);
  file.time_stamp = text_of(h.timestamp);
  file.species = text_of(h.species_name);
  file.timing_setup = text_of(h.timing_setup);
  file.file_id = h.file_id;
  file.file_version = h.file_version;
  file.core_revision = h.core_commstruct_rev;
  file.platform_revision = h.platform_commstruct_rev;
  file.bunches = h.num_bunches;
  file.turns = h.num_turns;
  file.turn_spacing = h.turn_spacing;
  file.condition = from.kovr_header.condx;
  file.raw_current = from.kovr_header.raw_current;
  file.current = from.kovr_header.mA_current;
  // Worked out here, so that nobody outside has to know the bits of a bunch pattern.
  file.bunch = rawfile::bunches_enabled(h);
}

}  // namespace

raw_file read_raw(const std::string& path) {
  // const: several threads may look at one file, and nothing tells them of a change.
  const auto from = std::make_shared<const rawfile::raw_file>(
      value_of(rawfile::read_raw_file(path), error_kind::file));
  raw_file file;
  take_header(*from, file);
  file.bpm.reserve(from->instruments.size());
  for (const RDV3_INST_DATA& d : from->instruments) file.bpm.push_back(bpm_of(d));
  // What the views are of: every copy of the record holds on to it.
  file.memory = from;
  return file;
}

const raw_bpm* find_bpm(const raw_file& file, std::string_view name) {
  // One by one: there are 120 at most, and of two of the same name the first counts.
  for (const raw_bpm& bpm : file.bpm) {
    if (bpm.name == name) return &bpm;
  }
  return nullptr;
}

std::optional<std::int32_t> rf_bucket(const raw_file& file, std::int32_t bunch) {
  // A header with the set-up alone: the bucket follows from that and the bunch.
  rawfile::RDV3_FILE_HEADER header;
  rawfile::set_text(header.timing_setup, file.timing_setup);
  return rawfile::rf_bucket_of(header, bunch);
}

std::vector<signals> signals_of(const raw_bpm& bpm, std::size_t bunch) {
  // Told by their place in the file, not by their number: a bunch pattern may leave gaps.
  const std::size_t bunches = bpm.block.size();
  if (bunch >= bunches) {
    throw_argument("bunch", std::to_string(bunch),
                   "a place among the file's " + std::to_string(bunches) + " bunches, from 0");
  }
  // No bunches at all were refused above; bunch after bunch has the same number of turns.
  const std::size_t turns = bpm.corrected[0].size() / bunches;
  std::vector<signals> readings(turns);
  for (std::size_t k = 0; k < 4; ++k) {
    const auto of_bunch = bpm.corrected[k].subspan(bunch * turns, turns);
    for (std::size_t t = 0; t < turns; ++t) readings[t][k] = double{of_bunch[t]};
  }
  return readings;
}

}  // namespace butngain
