#include "dump.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <numeric>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "kbpmfio.hpp"
#include "standard_output.hpp"
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

// The file's button cards in their own order.
struct card {
  const char* name;
  std::span<std::int32_t> RDV3_INST_DATA::*raw;
};
// Names as the file's own titles have them, so that both can be laid side by side.
constexpr std::array<card, 4> cards{{{"b3(TI)", &RDV3_INST_DATA::TIraw},
                                     {"b1(BI)", &RDV3_INST_DATA::BIraw},
                                     {"b2(BO)", &RDV3_INST_DATA::BOraw},
                                     {"b4(TO)", &RDV3_INST_DATA::TOraw}}};

// Checked, as everything that is printed.
template <class... T>
void print(fmt::format_string<T...> text, T&&... values) {
  util::print_text(fmt::format(text, std::forward<T>(values)...));
}

// Counts of a damaged file may be negative: nothing is then shown, instead of everything.
std::size_t count(std::int32_t n) { return static_cast<std::size_t>(std::max(n, 0)); }

// The order in which one asks: which run, who wrote it, what beam, how much of it.
void print_headers(const rawfile::raw_file& file) {
  const rawfile::RDV3_FILE_HEADER& h = file.file_header;
  const rawfile::RDV3_KOVR_HEADER& k = file.kovr_header;
  print("file          {}\n", util::shown(file.path));
  print("run           {}, version {}, {}\n", h.file_id, h.file_version, text_of(h.timestamp));
  print("written as    {}, {}, {}\n", text_of(h.instrument_type), text_of(h.command_ID),
        text_of(h.file_type));
  print("beam          {}, {}, {} mA ({} counts), condition {}\n", text_of(h.species_name),
        text_of(h.timing_setup), k.mA_current, k.raw_current, k.condx);
  print("holds         {} instruments, {} bunches of {} turns, turn spacing {}\n",
        h.num_instruments, h.num_bunches, h.num_turns, h.turn_spacing);
}

// Number of the k-th bunch (from 0) by the pattern; "-" where the pattern names fewer.
std::string number_of(const std::vector<std::int32_t>& enabled, std::size_t k) {
  return k < enabled.size() ? fmt::format("{}", enabled[k]) : "-";
}

void print_bunches(const rawfile::raw_file& file) {
  const std::vector<std::int32_t> enabled = rawfile::bunches_enabled(file.file_header);
  print("\nbunch  number  RF bucket  timing block\n");
  for (std::size_t k = 0; k < count(file.file_header.num_bunches); ++k) {
    const auto bucket = k < enabled.size() ? rawfile::rf_bucket_of(file.file_header, enabled[k])
                                           : std::optional<std::int32_t>{};
    print("{:5}  {:>6}  {:>9}  {:12}\n", k + 1, number_of(enabled, k),
          bucket ? fmt::format("{}", *bucket) : "-", file.instruments[0].timing_blocks[k]);
  }
}

// Readings at or above the limit of the block that their bunch was read in; 0 is no limit.
std::int64_t saturated(const RDV3_INST_DATA& d, std::span<const std::int32_t> raw) {
  // The instrument's own turn count is a header line like any other; its arrays go by the file's.
  const std::size_t turns = raw.size() / std::max<std::size_t>(d.timing_blocks.size(), 1);
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
    // The name once: four lines below one name read as one instrument.
    print("{:<9}  {}", k == 0 ? text_of(d.location) : "", name);
    if (raw.empty()) {
      print("  {:>8}  {:>8}  {:>10}", "-", "-", "-");
    } else {
      const auto [least, most] = std::minmax_element(raw.begin(), raw.end());
      // In double: a million readings of five digits leave 32 bits.
      const double sum = std::accumulate(raw.begin(), raw.end(), 0.0);
      print("  {:8}  {:8}  {:10.1f}", *least, *most, sum / static_cast<double>(raw.size()));
    }
    print("  {:10.3f}  {:10.3f}  {:9.6f}  {:9.6f}  {:9}\n", d.pedestals(0, k), d.pedestals(1, k),
          d.gain_coeffs(0, k), d.gain_coeffs(1, k), saturated(d, raw));
  }
}

}  // namespace

util::status print_file(const rawfile::raw_file& file) {
  print_headers(file);
  print_bunches(file);
  print("\n{:<9}  {}  {:>8}  {:>8}  {:>10}  {:>10}  {:>10}  {:>9}  {:>9}  {:>9}\n", "BPM", "button",
        "least", "most", "mean", "pedestal 0", "pedestal 1", "gain 0", "gain 1", "saturated");
  for (const RDV3_INST_DATA& d : file.instruments) print_instrument(d);
  // Told last: what there is has been shown all the same.
  return rawfile::pattern_fault(file);
}

util::status print_turns(const rawfile::raw_file& file, std::string_view instrument,
                         std::int32_t bunch) {
  // People leave out blanks and CR on either side, which the library's own search does not.
  const auto& all = file.instruments;
  const auto found = std::find_if(all.begin(), all.end(), [&](const RDV3_INST_DATA& d) {
    return plain(d.location) == rawfile::stripped(instrument);
  });
  const std::string shown_name = util::shown(rawfile::stripped(instrument));
  const std::string path = util::shown(file.path);
  if (found == all.end()) {
    return util::fault{fmt::format("no instrument \"{}\" in the file", shown_name), path, {}};
  }
  const std::int32_t bunches = file.file_header.num_bunches;
  if (bunch < 1 || bunch > bunches) {
    return util::fault{fmt::format("bunch {} is outside 1..{}", bunch, bunches), path, {}};
  }

  const RDV3_INST_DATA& d = *found;
  const std::size_t turns = count(file.file_header.num_turns);
  print(
      "# {}, bunch {} (number {}), timing block {}: turn, readings TI BI BO TO, corrected TI "
      "BI BO TO, x, y, phases h v rest\n",
      shown_name, bunch, number_of(rawfile::bunches_enabled(file.file_header), count(bunch - 1)),
      // By its place in the file, as everything that is kept by bunch.
      d.timing_blocks[count(bunch - 1)]);
  // Columns with blanks between, for gnuplot and the like; the title is a comment to them.
  for (std::size_t t = 0; t < turns; ++t) {
    const std::size_t n = count(bunch - 1) * turns + t;
    print("{} {} {} {} {} {} {} {} {} {} {} {} {} {}\n", t + 1, d.TIraw[n], d.BIraw[n], d.BOraw[n],
          d.TOraw[n], d.TIcorrected[n], d.BIcorrected[n], d.BOcorrected[n], d.TOcorrected[n],
          d.Xpos[n], d.Ypos[n], d.X_phase_words[n], d.Y_phase_words[n], d.Other_phase_words[n]);
  }
  return rawfile::pattern_fault(file);
}

}  // namespace dump
