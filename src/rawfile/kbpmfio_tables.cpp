// The five field tables and the routines that point them at records.
//
// A format is the file's own line: what stands in it is written to the last blank, and its key is
// what a reader compares. Rows stand in the order of the lines, and the order counts: a wanted key
// is searched for from the line reached so far, and what it passes on the way is lost.
#include <initializer_list>

#include "field_tables.hpp"
#include "run_time.hpp"

namespace rawfile {
namespace {

constexpr auto scan_in = kbpmfio_scan_line_input;
constexpr auto scan_out = kbpmfio_scan_line_output;
constexpr auto patt_in = kbpmfio_bunch_patt_input;
constexpr auto patt_out = kbpmfio_bunch_patt_output;
constexpr auto noop = kbpmfio_noop;
constexpr auto both = KBPMFIO_READWRITE;
constexpr auto write = KBPMFIO_WRITE;

// The rows of a table in order, each with the targets that belong to it. The lists below stand in
// the order of the rows above them: row 9 of the one is line 9 of the other.
void map_all(std::span<KBPMFIO_FIELD_SPEC> table, std::initializer_list<kbpmfio_targets> rows) {
  std::int32_t row = 0;
  for (const kbpmfio_targets& addresses : rows) {
    kbpmfio_map_addresses_to_field(table, row++, addresses);
  }
}

template <std::size_t n>
kbpmfio_target text(text_field<n>& field) {
  return target(std::span<char>{field});
}

// Both timing blocks, cards 0..3 of block 0 first.
template <class array>
kbpmfio_targets eight(array& a) {
  return {target(a(0, 0)), target(a(0, 1)), target(a(0, 2)), target(a(0, 3)),
          target(a(1, 0)), target(a(1, 1)), target(a(1, 2)), target(a(1, 3))};
}

template <class array>
kbpmfio_targets four(array& a) {
  return {target(a(0)), target(a(1)), target(a(2)), target(a(3))};
}

constexpr std::array<KBPMFIO_FIELD_SPEC, num_RDV3_header_specs> header_rows{{
    {0, both, scan_in, scan_out, "Instrument_Type   : %s\n"},
    {1, both, scan_in, scan_out, "Command_ID        : %s\n"},
    {2, both, scan_in, scan_out, "File_type         : %s\n"},
    {3, both, scan_in, scan_out, "File_ID           : %d\n"},
    {4, both, scan_in, scan_out, "File_Version      : %d\n"},
    // The text brings its own line end, as times printed by the C library do.
    {5, both, scan_in, scan_out, "Timestamp         : %s"},
    {6, both, scan_in, scan_out, "Core_commstruct_v : %010d\n"},
    {7, both, scan_in, scan_out, "Plat_commstruct_v : %010d\n"},
    // Never read, and the pattern's name is never written either.
    {8, both, noop, scan_out, "Bunch_Patt_Name   : ****\n"},
    {9, both, patt_in, patt_out, "Bunch_Patt_(hex)  : "},
    {10, both, scan_in, scan_out, "Species           : %s\n"},
    {11, both, scan_in, scan_out, "Num_Instruments   : %d\n"},
    {12, both, scan_in, scan_out, "Number_of_Bunches : %d\n"},
    {13, both, scan_in, scan_out, "Number_of_Turns   : %d\n"},
    {14, both, scan_in, scan_out, "Turn_Spacing      : %d\n"},
    {15, both, scan_in, scan_out, "Timing_Setup      : %s\n"},
    // Without a line end: the writer of the section adds it, with the blank line behind the header.
    {16, both, noop, scan_out, "Trigger           : ****"},
}};

// What the ring says of itself in a run. The current twice: in counts as it was read, and in mA.
constexpr std::array<KBPMFIO_FIELD_SPEC, num_RDV3_kovr_specs> kovr_rows{{
    {0, both, scan_in, scan_out, "KOVR CONDX        : %d\n"},
    {1, both, scan_in, scan_out, "CERN Current Raw  : %d\n"},
    {2, both, scan_in, scan_out, "CERN Current mA   : %f\n"},
}};

// What one BPM's electronics say of themselves. Turns and spacing stand here once more, and nobody
// reads on by them: the file header's counts are what the arrays are made by. Two groups of four are
// timing block 0, cards 0 to 3, then block 1; the wider gap between them is part of the line.
constexpr std::array<KBPMFIO_FIELD_SPEC, num_RDV3_inst_header_specs> instrument_rows{{
    {0, both, scan_in, scan_out, "Location          : %s\n"},
    {1, both, scan_in, scan_out, "BPM_hostname      : %s\n"},
    {2, both, scan_in, scan_out, "BPM_IP_Address    : %s\n"},
    {3, both, scan_in, scan_out, "Detector_Type     : %s\n"},
    {4, both, scan_in, scan_out, "Detector_Coeffs   : %f  %f\n"},
    {5, both, scan_in, scan_out, "EXE_Name          : %s\n"},
    {6, both, scan_in, scan_out, "EXE_Build_ID      : %010d\n"},
    {7, both, scan_in, scan_out, "Dig.Board_FPGA    : %d.%d\n"},
    {8, both, scan_in, scan_out, "Front-End_FPGAs   : %d %d %d %d\n"},
    {9, both, scan_in, scan_out, "Timing_Setup      : %s\n"},
    {10, both, scan_in, scan_out, "Number_of_Turns   : %d\n"},
    {11, both, scan_in, scan_out, "Turn_sync_counter : %d\n"},
    {12, both, scan_in, scan_out, "Turn_spacing      : %d\n"},
    {13, both, scan_in, scan_out, "Trigger           : %s\n"},
    {14, both, scan_in, scan_out, "Bunch_Pat_offsets : %d  %d\n"},
    {15, both, scan_in, scan_out, "Com_Turnmrk_Dly   : %d\n"},
    {16, both, scan_in, scan_out, "Blk_Turnmrk_Dlys  : %d  %d\n"},
    {17, both, scan_in, scan_out, "Block_Delays      : %d  %d\n"},
    {18, both, scan_in, scan_out, "Channel_Delays    : %d  %d  %d  %d    %d  %d  %d  %d\n"},
    {19, both, scan_in, scan_out, "Gain_Settings     : %d  %d  %d  %d    %d  %d  %d  %d\n"},
    {20, both, scan_in, scan_out, "Gain_Codes        : %d  %d  %d  %d    %d  %d  %d  %d\n"},
    {21, both, scan_in, scan_out, "Gain_Coeffs       : %f  %f  %f  %f    %f  %f  %f  %f\n"},
    {22, both, scan_in, scan_out, "Pedestals         : %f  %f  %f  %f    %f  %f  %f  %f\n"},
    {23, both, scan_in, scan_out, "Digital_Temp_C    : %3.1f\n"},
    {24, both, scan_in, scan_out, "Card_Temps_C      : %3.1f  %3.1f  %3.1f  %3.1f\n"},
    {25, both, scan_in, scan_out, "ADC_saturation    : %04d    %04d\n"},
    {26, both, scan_in, scan_out, "ADC_High          : %04d    %04d\n"},
    {27, both, scan_in, scan_out, "ADC_Low           : %04d    %04d\n"},
}};

// Written only. Readers pass over the titles as comments, and the marker is what the first read of a
// data line takes.
constexpr std::array<KBPMFIO_FIELD_SPEC, num_RDV3_raw_data_label_specs> label_rows{{
    {0, write, noop, scan_out, "# Timing  Encoded     Card-0   Card-1   Card-2   Card-3\n"},
    {1, write, noop, scan_out, "# Block  Phase word   b3(TI)   b1(BI)   b2(BO)   b4(TO)\n"},
    {2, write, noop, scan_out, "--BEGIN DATA--\n"},
}};

// One row, pointed at its six numbers once: a file has a hundred thousand such lines and more.
constexpr std::array<KBPMFIO_FIELD_SPEC, 1> data_rows{{
    {0, write, scan_in, scan_out, data_line_format},
}};

}  // namespace

// The tables of the whole process: whoever maps them changes them for everybody.
std::array<KBPMFIO_FIELD_SPEC, num_RDV3_header_specs> RDV3_header_specs = header_rows;
std::array<KBPMFIO_FIELD_SPEC, num_RDV3_kovr_specs> RDV3_kovr_specs = kovr_rows;
std::array<KBPMFIO_FIELD_SPEC, num_RDV3_inst_header_specs> RDV3_inst_header_specs = instrument_rows;
std::array<KBPMFIO_FIELD_SPEC, num_RDV3_raw_data_label_specs> RDV3_raw_data_label_specs =
    label_rows;
std::array<KBPMFIO_FIELD_SPEC, 1> RDV3_raw_data_spec = data_rows;

// A set of one's own, for loads that may run side by side.
field_tables fresh_tables() { return {header_rows, kovr_rows, instrument_rows}; }

// A target knows its size, so that neither a text nor a pattern runs over its end.
kbpmfio_target target(std::int32_t& value) { return {kbpmfio_target::kind::int32, &value, 1}; }

kbpmfio_target target(float& value) { return {kbpmfio_target::kind::float32, &value, 1}; }

kbpmfio_target target(std::span<std::int32_t> words) {
  return {kbpmfio_target::kind::int32, words.data(), words.size()};
}

kbpmfio_target target(std::span<char> text) {
  return {kbpmfio_target::kind::text, text.data(), text.size()};
}

std::int32_t kbpmfio_map_addresses_to_field(std::span<KBPMFIO_FIELD_SPEC> table, std::int32_t row,
                                            const kbpmfio_targets& addresses) {
  const auto rows = static_cast<std::int32_t>(table.size());
  if (row < 0 || row >= rows) util::subscript_error("field table", row, 0, rows - 1);
  table[static_cast<std::size_t>(row)].addresses = addresses;
  return 0;
}

void map_file_header(std::span<KBPMFIO_FIELD_SPEC> table, RDV3_FILE_HEADER& h) {
  map_all(table, {{text(h.instrument_type)},
                  {text(h.command_ID)},
                  {text(h.file_type)},
                  {target(h.file_id)},
                  {target(h.file_version)},
                  {text(h.timestamp)},
                  {target(h.core_commstruct_rev)},
                  {target(h.platform_commstruct_rev)},
                  {text(h.bunch_patt_name)},
                  {target(std::span<std::int32_t>{h.bunch_pattern.item})},
                  {text(h.species_name)},
                  {target(h.num_instruments)},
                  {target(h.num_bunches)},
                  {target(h.num_turns)},
                  {target(h.turn_spacing)},
                  {text(h.timing_setup)},
                  {placeholder}});
}

void map_kovr_header(std::span<KBPMFIO_FIELD_SPEC> table, RDV3_KOVR_HEADER& h) {
  map_all(table, {{target(h.condx)}, {target(h.raw_current)}, {target(h.mA_current)}});
}

void map_instrument_header(std::span<KBPMFIO_FIELD_SPEC> table, RDV3_INST_DATA& i) {
  map_all(table, {{text(i.location)},
                  {text(i.hostname)},
                  {text(i.IP_address)},
                  {text(i.detector_type)},
                  {target(i.horz_coeff), target(i.vert_coeff)},
                  {text(i.ldr_name)},
                  {target(i.build_timestamp)},
                  {target(i.fpga_maj), target(i.fpga_min)},
                  four(i.fpga_id),
                  {text(i.timing_setup)},
                  {target(i.num_turns)},
                  {target(i.turn_counter)},
                  {target(i.turn_spacing)},
                  {text(i.trigger)},
                  {target(i.bp_offsets(0)), target(i.bp_offsets(1))},
                  {target(i.ctmd)},
                  {target(i.btmds(0)), target(i.btmds(1))},
                  {target(i.block_delays(0)), target(i.block_delays(1))},
                  eight(i.chan_delays),
                  eight(i.gain_settings),
                  eight(i.gain_codes),
                  eight(i.gain_coeffs),
                  eight(i.pedestals),
                  {target(i.dig_temp_c)},
                  four(i.card_temps_c),
                  // Of the limits the file carries card 0 of each block.
                  {target(i.adc_saturation(0, 0)), target(i.adc_saturation(1, 0))},
                  {target(i.adc_high(0, 0)), target(i.adc_high(1, 0))},
                  {target(i.adc_low(0, 0)), target(i.adc_low(1, 0))}});
}

void kbpmfio_map_file_header(RDV3_FILE_HEADER& header) {
  map_file_header(RDV3_header_specs, header);
}

void kbpmfio_map_kovr_header(RDV3_KOVR_HEADER& header) { map_kovr_header(RDV3_kovr_specs, header); }

void kbpmfio_map_instrument_header(RDV3_INST_DATA& instrument) {
  map_instrument_header(RDV3_inst_header_specs, instrument);
}

void kbpmfio_map_data_line(std::span<std::int32_t, 6> c) {
  map_all(RDV3_raw_data_spec,
          {{target(c[0]), target(c[1]), target(c[2]), target(c[3]), target(c[4]), target(c[5])}});
}

}  // namespace rawfile
