#include "machine.hpp"

#include <fmt/core.h>

#include <cmath>
#include <limits>
#include <utility>

#include "run_time.hpp"

namespace sim {
namespace {

const char* shape_name(distribution d) {
  return d == distribution::uniform ? "uniform" : "gaussian";
}

// What is not wrong is not said: without troubles a truth file is as short as ever.
void add_trouble_lines(const machine& m, std::vector<std::string>& lines) {
  const current_law& law = m.beam.current;
  const second_population& second = m.beam.second;
  const electronics_setup& e = m.electronics;
  // The default of each is "off", and exactly so: comparisons with 0 are meant.
  const auto add = [&lines](bool is_set, std::string line) {
    if (is_set) lines.push_back(std::move(line));
  };
  add(law.drift != 0, fmt::format("current_drift = {} over the run", law.drift));
  add(law.decay != 0, fmt::format("current_decay = {} over the run", law.decay));
  add(law.walk != 0, fmt::format("current_walk = {} a step", law.walk));
  add(law.slope_x != 0 || law.slope_y != 0,
      fmt::format("current_slope = {} {} per mm", law.slope_x * mm, law.slope_y * mm));
  add(second.part != 0,
      fmt::format("second_population = {} of the orbits, {} {} mm away, {} of the current",
                  second.part, second.x / mm, second.y / mm, second.current));
  add(m.beam.duplicated != 0, fmt::format("duplicated = {}", m.beam.duplicated));
  add(e.pedestal_left != 0, fmt::format("pedestal_left = {} of signal", e.pedestal_left));
  add(e.outliers != 0, fmt::format("outliers = {} by {} of signal", e.outliers, e.outlier_size));
  add(e.cross_talk != 0, fmt::format("cross_talk = {}", e.cross_talk));
  add(e.compression != 0, fmt::format("compression = {}", e.compression));
  add(e.adc_bits != 0, fmt::format("adc_bits = {}", e.adc_bits));
  // Each value has a line of its own: a reader looks for the BPM, not through lists.
  for (const auto& [name, list] :
       {std::pair{"compressed", &e.compressed}, std::pair{"stuck", &e.stuck},
        std::pair{"swapped", &e.swapped}, std::pair{"gain_step", &e.gain_steps},
        std::pair{"gain_drift", &e.gain_drifts}}) {
    for (const button_value& v : *list) {
      lines.push_back(fmt::format("{} = BPM {} button {} by {}", name, v.bpm, v.button, v.value));
    }
  }
  add(!e.gain_steps.empty(), fmt::format("gain_step_at = {} of the run", e.gain_step_at));
  // The columns of a truth file have room for one gain a button, so it says which.
  add(!e.gain_steps.empty() || !e.gain_drifts.empty(), "gains = those of the first orbit");
}

// The drawn chambers: one for all, or the default ones for each to have its own.
std::vector<chamber> drawn_chambers(const machine& m) {
  if (m.source != chamber_source::own) return {m.chamber};
  std::vector<chamber> all;
  for (std::size_t i = 0; i < chamber_solver::default_chambers.size(); ++i) {
    all.push_back(chamber_solver::default_chamber_at(i));
  }
  return all;
}

solved_pair solve_pair(const chamber& drawn, const chamber_change& change) {
  // The drawing is kept beside what it became: tables and scale factors know only the drawing.
  const auto real = changed(drawn, change);
  if (!real) util::run_time_error(util::line_of(real.why));
  solved_pair pair;
  pair.drawn = solve(drawn);
  // Sharing the solution halves the time where nothing differs.
  pair.real = change_text(change).empty() ? pair.drawn : solve(*real);
  return pair;
}

// Other chambers say themselves what they are; with `own` no single one could.
std::string chamber_line(const machine& m) {
  return m.source == chamber_source::own ? "each BPM's own: bpm_48, bpm_arc or bpm_tirsku"
                                         : m.chamber.about;
}

// The order of the default chambers is that of `prepare`; both go by drawn_chambers.
std::size_t chamber_index(const machine& m, int ring) {
  return m.source == chamber_source::own ? chamber_solver::default_chamber_of(ring) : 0;
}

}  // namespace

std::string machine_fault(const machine& m, int nbpms) {
  if (auto fault = beam_fault(m.beam); !fault.empty()) return fault;
  if (auto fault = electronics_fault(m.electronics, nbpms); !fault.empty()) return fault;
  // Every chamber of the ring must have room for the beam: the narrow one decides.
  for (const chamber& drawn : drawn_chambers(m)) {
    const auto real = changed(drawn, m.change);
    if (!real) return util::line_of(real.why);
    if (auto fault = reach_fault(*real, m.beam); !fault.empty()) return fault;
  }
  return {};
}

void prepare(machine& m) {
  // A machine prepared before may have another change by now.
  m.solved.clear();
  for (const chamber& drawn : drawn_chambers(m)) m.solved.push_back(solve_pair(drawn, m.change));
}

solved_pair chambers_of(const machine& m, int ring) {
  const std::size_t ix = chamber_index(m, ring);
  // Without `prepare` this solves again for every monitor: right, but slow for walls.
  return m.solved.empty() ? solve_pair(drawn_chambers(m)[ix], m.change) : m.solved[ix];
}

monitor make_monitor(const machine& m, const seat& s) {
  // Files with names of their own number their BPMs from 1; where the BPM stands in the ring only
  // decides on its chamber.
  const int ring = s.ring == 0 ? s.bpm : s.ring;
  beam_run run;
  // The beam sees the chamber as it is; the drawn one is for tables and scale factors.
  run.chamber = chambers_of(m, ring).real;
  run.beam = m.beam;
  run.electronics = make_electronics(m.electronics, m.seed, s.bpm);
  run.orbits = s.orbits;
  run.seed = m.seed;
  run.bpm = s.bpm;
  run.bunch = s.bunch;
  monitor at = start_run(run);
  at.ring = ring;
  return at;
}

monitor make_monitor(const machine& m, int bpm, int bunch) {
  return make_monitor(m, seat{bpm, bunch, 0, 0});
}

passage next_passage(const machine& m, monitor& at) {
  passage p;
  // Writers have half a file by now, and nothing that a caller could go on with.
  if (const auto wrong = take_passage(m.beam, at, p)) util::run_time_error(util::line_of(*wrong));
  return p;
}

util::bounded<std::int32_t, 1, 4, "count"> counts(const passage& p, const monitor& at) {
  util::bounded<std::int32_t, 1, 4, "count"> count{};
  for (int k = 1; k <= 4; ++k) {
    // Half away from zero, as converters and the session round.
    const double rounded = std::round(p.reading(k));
    // Checked before the cast: what does not fit is undefined there, not merely wrong.
    if (std::abs(rounded) > std::numeric_limits<std::int32_t>::max()) {
      util::run_time_error(fmt::format("BPM {}, orbit {}: reading {:g} does not fit 32 bits",
                                       at.bpm, at.orbit, rounded));
    }
    count(k) = static_cast<std::int32_t>(rounded);
  }
  return count;
}

// Shortest texts that read back as the same number: nobody has to guess what was cut off.
std::vector<std::string> machine_lines(const machine& m) {
  const electronics_setup& e = m.electronics;
  std::vector<std::string> lines{fmt::format("chamber = {}", chamber_line(m))};
  if (const std::string change = change_text(m.change); !change.empty()) {
    lines.push_back("beam_chamber = that, but " + change);
  }
  for (const auto& [name, p] : {std::pair{'x', &m.beam.x}, std::pair{'y', &m.beam.y}}) {
    lines.push_back(fmt::format(
        "beam_{} = {} {} mm, orbit {} mm, oscillation {} mm, tune {}, phase {} deg, advance {} deg",
        name, shape_name(p->shape), p->spread / mm, p->orbit / mm, p->amplitude / mm, p->tune,
        p->phase / degree, p->advance / degree));
  }
  lines.push_back(fmt::format("coupling = {}", m.beam.coupling));
  lines.push_back(fmt::format("signal = {} counts", e.signal));
  lines.push_back(fmt::format("gain_spread = {}", e.gain_spread));
  lines.push_back(fmt::format("noise = {} of signal, common {}", e.noise, e.common_noise));
  lines.push_back(fmt::format("intensity_spread = {}", e.intensity_spread));
  lines.push_back(fmt::format("full_scale = {} counts", e.full_scale));
  lines.push_back(fmt::format("wild = {}", e.wild));
  for (const auto& [name, list] :
       {std::pair{"dead", &e.dead}, std::pair{"saturated", &e.saturated}}) {
    for (const button_value& v : *list) {
      lines.push_back(fmt::format("{} = BPM {} button {} at {}", name, v.bpm, v.button, v.value));
    }
  }
  add_trouble_lines(m, lines);
  // Last, as gains and pedestals drawn from it follow in the file.
  lines.push_back(fmt::format("seed = {}", m.seed));
  return lines;
}

}  // namespace sim
