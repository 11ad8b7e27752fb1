#include "machine_options.hpp"

namespace sim {
namespace {

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

std::vector<cli::option> machine_options(machine& m) {
  std::vector<cli::option> all = chamber_options(m.chamber);
  for (const auto& more : {beam_options(m.beam), electronics_options(m.electronics)}) {
    all.insert(all.end(), more.begin(), more.end());
  }
  all.push_back({"--seed", &m.seed, "of all random numbers: the same seed, the same files"});
  return all;
}

}  // namespace sim
