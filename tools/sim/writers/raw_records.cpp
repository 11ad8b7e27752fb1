#include "raw_records.hpp"

#include <fmt/chrono.h>
#include <fmt/core.h>

#include <cmath>
#include <cstdio>
#include <numbers>

namespace sim {
namespace {

using rawfile::set_text;

constexpr int phase_steps = 512;
constexpr double two_pi = 2 * std::numbers::pi;

int in_phase_steps(double phase) {
  // The remainder of a negative number is negative: one more turn makes it a phase.
  const int steps = static_cast<int>(std::lround(phase / two_pi * phase_steps));
  // A remainder keeps the sign of a negative phase; the file counts from 0.
  return ((steps % phase_steps) + phase_steps) % phase_steps;
}

// Positions in mm are this times difference over sum, for a beam near the middle.
float scale_factor(const solved_chamber& c, double x, double y) {
  // From the signals themselves: no formula of the chamber's shape is needed.
  const buttons p = phi(c, x, y);
  const double sum = p(1) + p(2) + p(3) + p(4);
  const double outer_minus_inner = (p(2) + p(4) - p(1) - p(3)) / sum;
  const double top_minus_bottom = (p(3) + p(4) - p(1) - p(2)) / sum;
  return static_cast<float>(x > 0 ? x / mm / outer_minus_inner : y / mm / top_minus_bottom);
}

const char* species_name(particles p) {
  switch (p) {
    case particles::positrons:
      return "POSITRONS";
    case particles::electrons:
      return "ELECTRONS";
    case particles::dual:
      return "DUAL";
  }
  return "";
}

// Pedestals and gain coefficients of both blocks; block 0 has the electronics' own pedestals. The
// file keeps six decimals of both; three are used, so that reading it back loses nothing.
void set_calibration(const raw_setup& s, const monitor& at, rawfile::RDV3_INST_DATA& d) {
  const auto as_printed = [](double v) { return static_cast<float>(std::round(v * 1e3) / 1e3); };
  // Beside the stream of the true gains: files with and without a calibration show the same BPM.
  random_stream stream = make_stream(s.machine.seed, purpose::gains, at.bpm, 1);
  for (int block = 0; block <= 1; ++block) {
    for (int card = 0; card < rawfile::num_cards; ++card) {
      const double own = at.electronics.pedestal(button_of_card[card]);
      // Drawn for block 0 as well, which does not use it: both blocks take as many numbers.
      const double shift = s.machine.electronics.pedestal_spread * normal(stream);
      d.pedestals(block, card) = as_printed(own + (block * shift));
      const double coefficient = 1 + (s.coefficient_spread * normal(stream));
      // A coefficient near 0 or below it would take the signal away or turn it round.
      d.gain_coeffs(block, card) = as_printed(std::max(coefficient, 0.1));
      // Any numbers that differ by card and block: a reader that mixes them up is found out.
      d.gain_settings(block, card) = 20 + card;
      d.gain_codes(block, card) = 100 + (4 * block) + card;
      d.chan_delays(block, card) = 400 + (10 * block) + card;
    }
  }
}

}  // namespace

int block_of(const raw_setup& s, int bunch) { return bunch >= s.bunches - s.block_1 ? 1 : 0; }

std::int32_t phase_word(const raw_setup& s, int turn) {
  // Of BPM 1 in every file and instrument: the shaker has one phase a turn.
  const int horizontal = in_phase_steps(betatron_phase(s.machine.beam.x, 1, turn + 1));
  const int vertical = in_phase_steps(betatron_phase(s.machine.beam.y, 1, turn + 1));
  constexpr int rest = 256;  // the remaining field counts turns
  // Nine bits each hold 512 steps.
  return (horizontal << 19) | (vertical << 10) | (turn % rest);
}

bool time_of(const raw_setup& s, std::time_t& seconds) {
  std::tm t{};
  int used = 0;
  const int fields = std::sscanf(s.when.c_str(), "%4d-%2d-%2d %2d:%2d:%2d%n", &t.tm_year, &t.tm_mon,
                                 &t.tm_mday, &t.tm_hour, &t.tm_min, &t.tm_sec, &used);
  if (fields != 6 || used != static_cast<int>(s.when.size())) return false;
  // The C library counts years from 1900 and months from 0.
  t.tm_year -= 1900;
  t.tm_mon -= 1;
  seconds = timegm(&t);
  // timegm takes the 30th of February for a day in March; printed again it is not what was asked.
  return fmt::format("{:%Y-%m-%d %H:%M:%S}", fmt::gmtime(seconds)) == s.when;
}

rawfile::RDV3_FILE_HEADER file_header(const raw_setup& s, int run, std::time_t when,
                                      int instruments) {
  rawfile::RDV3_FILE_HEADER h;
  set_text(h.instrument_type, "KBPM II");
  set_text(h.command_ID, "RAW_DATA");
  set_text(h.file_type, "RAW DATA FILE");
  h.file_id = run;
  h.file_version = 3;
  set_text(h.timestamp, fmt::format("{:%a %b %e %H:%M:%S %Y}\n", fmt::gmtime(when)));
  h.core_commstruct_rev = 20140101;
  h.platform_commstruct_rev = 20140102;
  for (int k = 0; k < s.bunches; ++k) {
    // Sixteen places of the ring to a word, the first one lowest.
    const int bit = k * s.bunch_step;
    h.bunch_pattern(bit / 16) |= 1 << (bit % 16);
  }
  set_text(h.species_name, species_name(s.species));
  h.num_instruments = instruments;
  h.num_bunches = s.bunches;
  h.num_turns = s.turns;
  h.turn_spacing = 1;
  set_text(h.timing_setup, s.timing_setup);
  return h;
}

rawfile::RDV3_KOVR_HEADER kovr_header(const raw_setup& s) {
  rawfile::RDV3_KOVR_HEADER h;
  h.condx = s.condx;
  h.mA_current = static_cast<float>(s.current);
  h.raw_current = static_cast<std::int32_t>(std::lround(s.current * 1000));
  return h;
}

rawfile::RDV3_INST_DATA instrument_header(const raw_setup& s, const monitor& at,
                                          const std::string& name) {
  rawfile::RDV3_INST_DATA d;
  set_text(d.location, name);
  set_text(d.hostname, fmt::format("kbpm{:03d}", at.bpm));
  set_text(d.IP_address, fmt::format("192.168.1.{}", at.bpm));
  const auto drawn = chambers_of(s.machine, at.ring).drawn;
  set_text(d.detector_type, drawn->of.button[0].shape == button_shape::disc ? "disc" : "strip");
  // Near enough to the axis for the slope, far enough for its digits.
  const double near = half_height(drawn->of) / 1000;
  d.horz_coeff = scale_factor(*drawn, near, 0);
  d.vert_coeff = scale_factor(*drawn, 0, near);
  set_text(d.ldr_name, "simulated");
  d.build_timestamp = 20140103;
  d.fpga_maj = 1;
  for (int card = 0; card < rawfile::num_cards; ++card) {
    d.fpga_id(card) = 11 + card;
    d.card_temps_c(card) = 30.5F;
  }
  set_text(d.timing_setup, s.timing_setup);
  d.num_turns = s.turns;
  d.turn_spacing = 1;
  set_text(d.trigger, "INTERNAL");
  d.dig_temp_c = 31.5F;
  set_calibration(s, at, d);
  const double full_scale = s.machine.electronics.full_scale;
  const auto limit = static_cast<std::int32_t>(full_scale > 0 ? full_scale : 9999999);
  for (int block = 0; block <= 1; ++block) {
    d.block_delays(block) = block;
    d.adc_saturation(block, 0) = limit;
    // Divided first: nine times a 32-bit full scale would overflow on the way.
    d.adc_high(block, 0) = limit / 10 * 9;
    d.adc_low(block, 0) = limit / 100;
  }
  return d;
}

}  // namespace sim
