#include "data_block.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <span>

#include "field_tables.hpp"
#include "text.hpp"

namespace rawfile {
namespace {

// Lines that are derived together: their 14 columns of 2 KiB stay in the first-level cache (32 KiB
// and more) meanwhile, and the loops over them are long enough for the vector units.
constexpr std::size_t derived_together = 512;

// Plain lines taken before the usual columns are tried again: one odd line must not slow the rest.
constexpr std::size_t plain_together = 32;

struct derivation {
  RDV3_INST_DATA* instrument;
  std::int32_t block = 0;  // timing block of the lines from `first` on
  std::size_t first = 0;   // lines before it are derived
};

// One button of one timing block. The order of rounding is the file format's own: the difference in
// single precision, its product with the inverse in double precision, then single again. A division
// or a product in single precision would differ in the last bit.
void correct(std::span<const std::int32_t> raw, std::span<float> corrected, float pedestal,
             float gain) {
  const double factor = 1.0 / double{gain};  // a gain of 0 gives inf, as it is
  // Plain pointers: the compiler then sees that input and output lie apart.
  const std::int32_t* in = raw.data();
  float* out = corrected.data();
  for (std::size_t i = 0; i < raw.size(); ++i) {
    const float difference = static_cast<float>(in[i]) - pedestal;
    out[i] = static_cast<float>(double{difference} * factor);
  }
}

// One field of the phase words.
void unpack(std::span<const std::int32_t> words, int shift, std::int32_t mask,
            std::span<std::int32_t> field) {
  const std::int32_t* in = words.data();
  std::int32_t* out = field.data();
  for (std::size_t i = 0; i < words.size(); ++i) out[i] = (in[i] >> shift) & mask;
}

// The plane is a constant where this is called, so the loop has no branch.
inline void positions(const RDV3_INST_DATA& d, std::size_t first, std::size_t n, int plane,
                      std::span<float> position) {
  const std::array<float, 2> coeffs{d.horz_coeff, d.vert_coeff};
  const float* ti = d.TIcorrected.data() + first;
  const float* bi = d.BIcorrected.data() + first;
  const float* bo = d.BOcorrected.data() + first;
  const float* to = d.TOcorrected.data() + first;
  float* out = position.data() + first;
  for (std::size_t i = 0; i < n; ++i) {
    out[i] = kbpmfio_compute_pos(ti[i], bi[i], bo[i], to[i], plane, coeffs);
  }
}

// Everything that follows from lines first..end-1, all of one timing block.
void derive(derivation& state, std::size_t end) {
  RDV3_INST_DATA& d = *state.instrument;
  const std::size_t first = state.first;
  const std::size_t n = end - first;
  state.first = end;
  if (n == 0) return;
  const std::array<std::span<std::int32_t>, num_cards> raw{d.TIraw, d.BIraw, d.BOraw, d.TOraw};
  const std::array<std::span<float>, num_cards> corrected{d.TIcorrected, d.BIcorrected,
                                                          d.BOcorrected, d.TOcorrected};
  for (int card = 0; card < num_cards; ++card) {
    const auto k = static_cast<std::size_t>(card);
    const float pedestal = d.pedestals(state.block, card);
    const float gain = d.gain_coeffs(state.block, card);
    correct(raw[k].subspan(first, n), corrected[k].subspan(first, n), pedestal, gain);
  }
  positions(d, first, n, 0, d.Xpos);
  positions(d, first, n, 1, d.Ypos);
  const auto words = d.phase_words.subspan(first, n);
  // Horizontal phase, vertical phase: 9 bits each; the rest: 8 bits. Bits 8 and 9 belong to none.
  unpack(words, 19, 511, d.X_phase_words.subspan(first, n));
  unpack(words, 10, 511, d.Y_phase_words.subspan(first, n));
  unpack(words, 0, 255, d.Other_phase_words.subspan(first, n));
}

// One line that came by the full scan.
void store(RDV3_INST_DATA& d, std::size_t n, const data_columns& c) {
  d.phase_words[n] = c[1];
  d.TIraw[n] = c[2];
  d.BIraw[n] = c[3];
  d.BOraw[n] = c[4];
  d.TOraw[n] = c[5];
}

// Line n again, as the full scan would have left it: where the next line converts only in part, or
// not at all, the rest of its columns are these.
data_columns stored(const RDV3_INST_DATA& d, std::size_t n, std::int32_t block) {
  return {block, d.phase_words[n], d.TIraw[n], d.BIraw[n], d.BOraw[n], d.TOraw[n]};
}

// The calibration has two rows: a line of another timing block has none.
util::fault bad_block(const kbpmfio_stream& stream, const RDV3_INST_DATA& d, std::size_t n,
                      std::int32_t block) {
  const std::int64_t line = line_number(stream);
  return {fmt::format("instrument {}, data line {}: timing block {}",
                      util::shown(text_of(d.location)), n + 1, block),
          util::shown(stream.path) + (line > 0 ? fmt::format(":{}", line) : ""), "0 or 1"};
}

// Lines of the timing block at hand that need no full scan, at most `most`, from line n on.
std::size_t take_run(kbpmfio_stream& stream, RDV3_INST_DATA& d, std::size_t n, std::int32_t block,
                     std::size_t most) {
  // Taken without looking at the block's number: the caller looks at it, line by line.
  if (block < 0 || block > 1) return 0;
  const std::string_view text = look_ahead(stream, plain_window);
  const column_places to{&d.phase_words[n], {&d.TIraw[n], &d.BIraw[n], &d.BOraw[n], &d.TOraw[n]}};
  const std::size_t printed = take_printed_lines(text, block, most, to);
  stream.next += printed * printed_line;
  // What ended the run of printed lines is tried next time, on what is at hand then.
  if (printed > 0) return printed;
  const auto plain = take_plain_lines(text, block, std::min(most, plain_together), to);
  stream.next += plain.characters;
  return plain.lines;
}

}  // namespace

std::int32_t read_data_line(kbpmfio_stream& stream, data_columns& columns) {
  while (const auto next = next_line(stream)) {
    const std::string_view line = next->substr(0, next->find('\0'));
    // Blank lines and comments may stand anywhere. The marker is neither: it has no colon and
    // converts nothing, so it uses up one read, which is all that it is for.
    const auto first = static_cast<std::size_t>(
        std::find_if_not(line.begin(), line.end(), is_space) - line.begin());
    if (first == line.size() || line[first] == '#') continue;
    const std::size_t colon = line.find(':');
    if (colon == std::string_view::npos) {
      scan_data_line(line.substr(first), columns);
      return 0;
    }
    // As for any key: what stands before the colon is compared with the format, and a line that
    // begins with ":" agrees with anything. It is used up; it converts nothing.
    if (line.substr(0, colon) == data_line_format.substr(0, colon)) return 0;
    put_back(stream, *next);
    return 1;
  }
  return 1;
}

block_result read_data_block(kbpmfio_stream& stream, RDV3_INST_DATA& instrument,
                             std::int32_t bunches, std::int32_t turns, data_columns& last) {
  derivation state{&instrument};
  // Nothing more comes: a key or the end of the file was met. The remaining lines repeat the last
  // one; kept for compatibility.
  bool ended = false;
  std::size_t n = 0;
  block_result result;
  for (std::int32_t b = 0; b < bunches; ++b) {
    const std::size_t behind_bunch = n + static_cast<std::size_t>(std::max(turns, 0));
    while (n < behind_bunch) {
      // Runs end with the bunch, for its timing block, and with the lines that are derived together.
      const std::size_t most = std::min(behind_bunch, state.first + derived_together) - n;
      const std::size_t run = ended ? 0 : take_run(stream, instrument, n, last[0], most);
      if (run > 0) {
        last = stored(instrument, n + run - 1, last[0]);
        n += run;
      } else {
        ended = ended || read_data_line(stream, last) != 0;
        if (last[0] < 0 || last[0] > 1) {
          result.fault = bad_block(stream, instrument, n, last[0]);
          return result;
        }
        // Lines so far go by the block before; from here on by this line's.
        if (last[0] != state.block) derive(state, n);
        store(instrument, n++, last);
      }
      if (!ended) result.lines = n;
      state.block = last[0];
      if (n - state.first >= derived_together) derive(state, n);
    }
    // The last turn's, whatever the turns before it said.
    if (turns > 0) instrument.timing_blocks[static_cast<std::size_t>(b)] = last[0];
  }
  derive(state, n);
  return result;
}

}  // namespace rawfile
