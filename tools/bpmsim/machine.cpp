#include "machine.hpp"

#include <fmt/core.h>

#include <cmath>
#include <limits>

#include "run_time.hpp"

namespace sim {
namespace {

constexpr int most_draws = 1000;

const char* shape_name(distribution d) {
  return d == distribution::uniform ? "uniform" : "gaussian";
}

std::vector<cli::option> chamber_options(chamber& c) {
  const char* const group = "Chamber (round pipe, buttons on its diagonals)";
  return {{"--radius", cli::real_value{&c.radius, mm, "mm"}, "inner radius of the pipe", group},
          {"--button", cli::words({"strip", "disc"}, c.shape), "shape of the buttons", group},
          {"--button-angle", cli::real_value{&c.angle, degree, "deg"},
           "of button TO from the x axis; the others mirror it", group},
          {"--half-width", cli::real_value{&c.half_width, degree, "deg"},
           "half the angle that a button covers", group}};
}

std::vector<cli::option> beam_options(beam& b) {
  const char* const group = "Beam (one value for both planes, or two: x y)";
  return {
      {"--shape", cli::words({"uniform", "gaussian"}, b.x.shape, &b.y.shape),
       "distribution of the random part of the position", group},
      {"--spread", cli::real_pair{&b.x.spread, &b.y.spread, mm, "mm"},
       "half width (uniform) or rms (gaussian) of the random part", group},
      {"--orbit", cli::real_pair{&b.x.orbit, &b.y.orbit, mm, "mm"}, "closed orbit", group},
      {"--tune", cli::real_pair{&b.x.tune, &b.y.tune}, "betatron oscillations per orbit", group},
      {"--amplitude", cli::real_pair{&b.x.amplitude, &b.y.amplitude, mm, "mm"},
       "of the betatron oscillation", group},
      {"--phase", cli::real_pair{&b.x.phase, &b.y.phase, degree, "deg"},
       "of the oscillation at the first BPM and orbit", group},
      {"--advance", cli::real_pair{&b.x.advance, &b.y.advance, degree, "deg"},
       "of the oscillation's phase from BPM to BPM", group},
      {"--coupling", cli::real_value{&b.coupling},
       "part of one plane's motion that shows in the other", group}};
}

std::vector<cli::option> electronics_options(electronics_setup& e) {
  const char* const group = "Electronics";
  return {
      {"--signal", cli::real_value{&e.signal, 1, "counts"},
       "reading of a button of gain 1, beam centred", group},
      {"--gain-spread", cli::real_value{&e.gain_spread}, "rms of the true gains about 1", group},
      {"--gain", cli::button_list{&e.gains, true}, "true gain of one button, any number of these",
       group},
      {"--noise", cli::real_value{&e.noise},
       "rms noise of each button for itself, in parts of --signal", group},
      {"--common-noise", cli::real_value{&e.common_noise},
       "rms noise that the four buttons share, in parts of --signal", group},
      {"--intensity-spread", cli::real_value{&e.intensity_spread},
       "relative rms of the beam's intensity from orbit to orbit", group},
      {"--pedestal", cli::real_value{&e.pedestal, 1, "counts"}, "mean pedestal", group},
      {"--pedestal-spread", cli::real_value{&e.pedestal_spread, 1, "counts"},
       "rms of the pedestals from button to button", group},
      {"--dead", cli::button_list{&e.dead}, "button that reads its pedestal only", group},
      {"--full-scale", cli::real_value{&e.full_scale, 1, "counts"},
       "readings stop here; 0: no limit", group},
      {"--saturated", cli::button_list{&e.saturated},
       "button that stops at VALUE times its own centred signal (1 when not given)", group},
      {"--wild", cli::real_value{&e.wild},
       "probability that one button of a reading holds any value", group}};
}

}  // namespace

std::string machine_fault(const machine& m, int nbpms) {
  if (auto fault = chamber_fault(m.chamber); !fault.empty()) return fault;
  if (auto fault = beam_fault(m.beam); !fault.empty()) return fault;
  if (auto fault = electronics_fault(m.electronics, nbpms); !fault.empty()) return fault;
  const double reach = steady_reach(m.beam);
  const double room = usable_part * m.chamber.radius;
  if (reach > room) {
    return fmt::format(
        "closed orbit and oscillation reach {:g} mm from the axis; beams must stay within {:g} mm",
        reach / mm, room / mm);
  }
  return {};
}

monitor make_monitor(const machine& m, int bpm, int bunch) {
  return {bpm,
          0,
          make_electronics(m.electronics, m.seed, bpm),
          phi(m.chamber, 0, 0)(1),
          make_stream(m.seed, purpose::motion, bpm, bunch),
          make_stream(m.seed, purpose::readout, bpm, bunch)};
}

passage next_passage(const machine& m, monitor& at) {
  ++at.orbit;
  place p = draw_place(m.beam, at.bpm, at.orbit, at.motion);
  for (int draws = 1; !is_inside(m.chamber, p.x, p.y); ++draws) {
    if (draws == most_draws) {
      util::run_time_error(fmt::format(
          "BPM {}, orbit {}: no position inside the chamber in {} draws; the spread is too large",
          at.bpm, at.orbit, most_draws));
    }
    p = draw_place(m.beam, at.bpm, at.orbit, at.motion);
  }
  buttons relative = phi(m.chamber, p.x, p.y);
  for (int k = 1; k <= 4; ++k) relative(k) /= at.centred;
  return {p, read_out(at.electronics, relative, at.readout)};
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

std::vector<cli::option> machine_options(machine& m) {
  std::vector<cli::option> all = chamber_options(m.chamber);
  for (const auto& more : {beam_options(m.beam), electronics_options(m.electronics)}) {
    all.insert(all.end(), more.begin(), more.end());
  }
  all.push_back({"--seed", &m.seed, "of all random numbers: the same seed, the same files"});
  return all;
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
