#include "machine.hpp"

#include <fmt/core.h>

#include <cmath>
#include <limits>

#include "run_time.hpp"

namespace sim {
namespace {

const char* shape_name(distribution d) {
  return d == distribution::uniform ? "uniform" : "gaussian";
}

}  // namespace

std::string machine_fault(const machine& m, int nbpms) {
  if (auto fault = chamber_fault(m.chamber); !fault.empty()) return fault;
  if (auto fault = beam_fault(m.beam); !fault.empty()) return fault;
  if (auto fault = electronics_fault(m.electronics, nbpms); !fault.empty()) return fault;
  return reach_fault(*solve(m.chamber), m.beam);
}

monitor make_monitor(const machine& m, int bpm, int bunch, int orbits) {
  beam_run run;
  run.chamber = solve(m.chamber);
  run.beam = m.beam;
  run.electronics = make_electronics(m.electronics, m.seed, bpm);
  run.orbits = orbits;
  run.seed = m.seed;
  run.bpm = bpm;
  run.bunch = bunch;
  return start_run(run);
}

passage next_passage(const machine& m, monitor& at) {
  passage p;
  if (const auto wrong = take_passage(m.beam, at, p)) util::run_time_error(util::line_of(*wrong));
  return p;
}

util::bounded<std::int32_t, 1, 4, "count"> counts(const passage& p, const monitor& at) {
  util::bounded<std::int32_t, 1, 4, "count"> count{};
  for (int k = 1; k <= 4; ++k) {
    const double rounded = std::round(p.reading(k));
    if (std::abs(rounded) > std::numeric_limits<std::int32_t>::max()) {
      util::run_time_error(fmt::format("BPM {}, orbit {}: reading {:g} does not fit 32 bits",
                                       at.bpm, at.orbit, rounded));
    }
    count(k) = static_cast<std::int32_t>(rounded);
  }
  return count;
}

std::vector<std::string> machine_lines(const machine& m) {
  const electronics_setup& e = m.electronics;
  std::vector<std::string> lines{fmt::format("chamber = {}", chamber_text(m.chamber))};
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
  lines.push_back(fmt::format("seed = {}", m.seed));
  return lines;
}

}  // namespace sim
