#include "dump.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <numeric>
#include <span>

#include "kbpm_rawfile.hpp"
#include "kbpm_read_rawfile.hpp"
#include "kbpmfio.hpp"
#include "text.hpp"

namespace dump {
namespace {

using rawfile::RDV3_INST_DATA;
// A text of the file without what its line had behind it (blanks, the CR of a CR LF line end).
template <std::size_t n>
std::string_view plain(const rawfile::text_field<n>& field) {
  return rawfile::stripped(rawfile::text_of(field));
}

// The same, fit for a terminal.
template <std::size_t n>
std::string text_of(const rawfile::text_field<n>& field) {
  return util::shown(plain(field));
}

struct card {
  const char* name;
  std::span<std::int32_t> RDV3_INST_DATA::*raw;
};
constexpr std::array<card, 4> cards{{{"b3(TI)", &RDV3_INST_DATA::TIraw},
                                     {"b1(BI)", &RDV3_INST_DATA::BIraw},
                                     {"b2(BO)", &RDV3_INST_DATA::BOraw},
                                     {"b4(TO)", &RDV3_INST_DATA::TOraw}}};

std::span<const RDV3_INST_DATA> instruments() {
  return {rawfile::p_v3_inst_array,
          static_cast<std::size_t>(rawfile::kbpm_rawfile_num_instruments())};
}

std::size_t count(std::int32_t n) { return static_cast<std::size_t>(std::max(n, 0)); }

void print_headers() {
  const rawfile::RDV3_FILE_HEADER& h = *rawfile::p_v3_file_header;
  const rawfile::RDV3_KOVR_HEADER& k = *rawfile::p_v3_kovr_header;
  fmt::print("file          {}\n", text_of(h.full_filename));
  fmt::print("run           {}, version {}, {}\n", h.file_id, h.file_version, text_of(h.timestamp));
  fmt::print("written as    {}, {}, {}\n", text_of(h.instrument_type), text_of(h.command_ID),
             text_of(h.file_type));
  fmt::print("beam          {}, {}, {} mA ({} counts), condition {}\n", text_of(h.species_name),
             text_of(h.timing_setup), k.mA_current, k.raw_current, k.condx);
  fmt::print("holds         {} instruments, {} bunches of {} turns, turn spacing {}\n",
             h.num_instruments, h.num_bunches, h.num_turns, h.turn_spacing);
}

void print_bunches() {
  const std::int32_t* enabled = rawfile::kbpm_rawfile_bunches_enabled_ptr();
  fmt::print("\nbunch  number  RF bucket  timing block\n");
  for (std::int32_t b = 0; b < rawfile::kbpm_rawfile_num_bunches(); ++b) {
    fmt::print("{:5}  {:6}  {:9}  {:12}\n", b + 1, enabled[b],
               rawfile::kbpm_rawfile_rf_bucket(enabled[b]),
               rawfile::p_v3_inst_array[0].timing_blocks[count(b)]);
  }
}

// Readings at or above the limit of the block that their bunch was read in; 0 is no limit.
std::int64_t saturated(const RDV3_INST_DATA& d, std::span<const std::int32_t> raw) {
  const std::size_t turns = count(rawfile::kbpm_rawfile_num_turns());
  std::int64_t n = 0;
  for (std::size_t b = 0; b < d.timing_blocks.size(); ++b) {
    const std::int32_t limit = d.adc_saturation(d.timing_blocks[b], 0);
    const auto bunch = raw.subspan(b * turns, turns);
    if (limit > 0) {
      n +=
          std::count_if(bunch.begin(), bunch.end(), [limit](std::int32_t r) { return r >= limit; });
    }
  }
  return n;
}

void print_instrument(const RDV3_INST_DATA& d) {
  for (int k = 0; k < rawfile::num_cards; ++k) {
    const auto& [name, which] = cards[count(k)];
    const std::span<const std::int32_t> raw = d.*which;
    fmt::print("{:<9}  {}", k == 0 ? text_of(d.location) : "", name);
    if (raw.empty()) {
      fmt::print("  {:>8}  {:>8}  {:>10}", "-", "-", "-");
    } else {
      const auto [least, most] = std::minmax_element(raw.begin(), raw.end());
      const double sum = std::accumulate(raw.begin(), raw.end(), 0.0);
      fmt::print("  {:8}  {:8}  {:10.1f}", *least, *most, sum / static_cast<double>(raw.size()));
    }
    fmt::print("  {:10.3f}  {:10.3f}  {:9.6f}  {:9.6f}  {:9}\n", d.pedestals(0, k),
               d.pedestals(1, k), d.gain_coeffs(0, k), d.gain_coeffs(1, k), saturated(d, raw));
  }
}

}  // namespace

void print_file() {
  print_headers();
  print_bunches();
  fmt::print("\n{:<9}  {}  {:>8}  {:>8}  {:>10}  {:>10}  {:>10}  {:>9}  {:>9}  {:>9}\n", "BPM",
             "button", "least", "most", "mean", "pedestal 0", "pedestal 1", "gain 0", "gain 1",
             "saturated");
  for (const RDV3_INST_DATA& d : instruments()) print_instrument(d);
}

std::string print_turns(const std::string& instrument, std::int32_t bunch) {
  const auto all = instruments();
  const auto found = std::find_if(all.begin(), all.end(), [&](const RDV3_INST_DATA& d) {
    return plain(d.location) == rawfile::stripped(instrument);
  });
  const std::string shown_name = util::shown(rawfile::stripped(instrument));
  if (found == all.end()) return fmt::format("no instrument \"{}\" in the file", shown_name);
  const std::int32_t bunches = rawfile::kbpm_rawfile_num_bunches();
  if (bunch < 1 || bunch > bunches) return fmt::format("bunch {} is outside 1..{}", bunch, bunches);

  const RDV3_INST_DATA& d = *found;
  const std::size_t turns = count(rawfile::kbpm_rawfile_num_turns());
  fmt::print(
      "# {}, bunch {} (number {}), timing block {}: turn, readings TI BI BO TO, corrected TI "
      "BI BO TO, x, y, phases h v rest\n",
      shown_name, bunch, rawfile::kbpm_rawfile_bunches_enabled_ptr()[bunch - 1],
      d.timing_blocks[count(bunch - 1)]);
  for (std::size_t t = 0; t < turns; ++t) {
    const std::size_t n = count(bunch - 1) * turns + t;
    fmt::print("{} {} {} {} {} {} {} {} {} {} {} {} {} {}\n", t + 1, d.TIraw[n], d.BIraw[n],
               d.BOraw[n], d.TOraw[n], d.TIcorrected[n], d.BIcorrected[n], d.BOcorrected[n],
               d.TOcorrected[n], d.Xpos[n], d.Ypos[n], d.X_phase_words[n], d.Y_phase_words[n],
               d.Other_phase_words[n]);
  }
  return {};
}

}  // namespace dump
