#include "machine_options.hpp"

#include <fmt/core.h>

#include "text.hpp"

namespace options {
namespace {

void add_chamber(CLI::App& app, chamber_choice& c, sim::machine& m) {
  const place drawn{&app, "Chamber (round pipe, buttons on its diagonals)"};
  // The defaults are those of the session's round pipe: without --chamber both sides agree.
  add_real(drawn, "--radius", c.round.radius, "inner radius of the pipe", millimetres);
  add_word(drawn, "--button", {"strip", "disc"}, c.round.shape, "shape of the buttons");
  add_real(drawn, "--button-angle", c.round.angle,
           "of button TO from the x axis; the others mirror it", degrees);
  add_real(drawn, "--half-width", c.round.half_width, "half the angle that a button covers",
           degrees);
  add_text(
      drawn, "--chamber", c.chamber,
      "instead of the pipe: a chamber file; bpm_48, bpm_arc or bpm_tirsku; or own, which gives "
      "each BPM the chamber of its position table");

  // A word of their own for what differs, so that no option is mistaken for a property of the
  // drawing.
  const place real{&app, "Chamber as it is (tables and scale factors keep to the drawing)"};
  add_real(real, "--real-width", m.change.width, "width of the buttons, in parts of the drawn one");
  add_real(real, "--real-angle", m.change.angle, "all buttons so much further from the x axis",
           degrees);
  add_chamber_buttons(real, "--real-azimuth", m.change.azimuth,
                      "single buttons so much further along the wall, counter-clockwise",
                      millimetres);
  add_words(
      real, "--real-button", {"strip", "disc"},
      [&m](int ix) { m.change.shape = static_cast<sim::button_shape>(ix); }, {}, "",
      "shape of the buttons");
  // Half sizes, not walls: any cross-section can be drawn wider and lower.
  add_real(real, "--real-ellipse", m.change.ellipse,
           "half width larger, half height smaller by this part");
  add_real(real, "--real-radius", m.change.radius, "both larger by this part");
}

void add_beam(CLI::App& app, sim::beam& b) {
  const place at{&app, "Beam (one value for both planes, or two: x y)"};
  add_word_planes(at, "--shape", {"uniform", "gaussian"}, b.x.shape, b.y.shape,
                  "distribution of the random part of the position");
  add_planes(at, "--spread", b.x.spread, b.y.spread,
             "half width (uniform) or rms (gaussian) of the random part", millimetres);
  add_planes(at, "--orbit", b.x.orbit, b.y.orbit, "closed orbit", millimetres);
  // Per orbit, not per second: an orbit is what a reading is of.
  add_planes(at, "--tune", b.x.tune, b.y.tune, "betatron oscillations per orbit");
  add_planes(at, "--amplitude", b.x.amplitude, b.y.amplitude, "of the betatron oscillation",
             millimetres);
  add_planes(at, "--phase", b.x.phase, b.y.phase, "of the oscillation at the first BPM and orbit",
             degrees);
  add_planes(at, "--advance", b.x.advance, b.y.advance,
             "of the oscillation's phase from BPM to BPM", degrees);
  // One number for both directions: what matters to a fit is that the planes are not independent.
  add_real(at, "--coupling", b.coupling, "part of one plane's motion that shows in the other");

  // Typed per millimetre as lengths are, kept per metre.
  constexpr unit per_mm{1 / sim::mm, "per_mm"};
  const place current{&app, "Current of the beam, and orbits of other kinds"};
  // Two slow and smooth ways to change, one at random, and one with the position, which is easily
  // taken for gains.
  add_real(current, "--current-drift", b.current.drift,
           "relative change from the first orbit to the last");
  add_real(current, "--current-decay", b.current.decay,
           "exponential loss: ln of first over last orbit's current");
  add_real(current, "--current-walk", b.current.walk, "random walk: relative rms step an orbit");
  add_planes(current, "--current-slope", b.current.slope_x, b.current.slope_y,
             "relative change with the position, for x and y", per_mm);
  add_real(current, "--second", b.second.part,
           "part of the orbits that are of a second population");
  add_planes(current, "--second-orbit", b.second.x, b.second.y,
             "its closed orbit, from the first one's", millimetres);
  add_real(current, "--second-current", b.second.current,
           "its current, in parts of the first one's");
  add_real(current, "--duplicated", b.duplicated,
           "probability that an orbit is the one before once more");
}

void add_electronics(CLI::App& app, sim::electronics_setup& e) {
  const place at{&app, "Electronics"};
  // Noise and most troubles are typed in parts of this one, so that it can be changed alone.
  add_real(at, "--signal", e.signal, "reading of a button of gain 1, beam centred", counts);
  add_real(at, "--gain-spread", e.gain_spread, "rms of the true gains about 1");
  add_buttons(at, "--gain", e.gains, "true gain of one button, any number of these", true);
  add_real(at, "--noise", e.noise, "rms noise of each button for itself, in parts of --signal");
  add_real(at, "--common-noise", e.common_noise,
           "rms noise that the four buttons share, in parts of --signal");
  add_real(at, "--intensity-spread", e.intensity_spread,
           "relative rms of the beam's intensity from orbit to orbit");
  add_real(at, "--pedestal", e.pedestal, "mean pedestal", counts);
  add_real(at, "--pedestal-spread", e.pedestal_spread, "rms of the pedestals from button to button",
           counts);
  // Reads its pedestal: a cable that is off is not a channel that reads nothing.
  add_buttons(at, "--dead", e.dead, "button that reads its pedestal only", false);
  add_real(at, "--full-scale", e.full_scale, "readings stop here; 0: no limit", counts);
  add_buttons(at, "--saturated", e.saturated,
              "button that stops at VALUE times its own centred signal (1 when not given)", false);
  add_real(at, "--wild", e.wild, "probability that one button of a reading holds any value");

  // None of these is known to any correction or table: they are what a verdict should notice.
  const place wrong{&app, "Troubles of the electronics"};
  add_buttons(wrong, "--gain-step", e.gain_steps, "gain that changes by the part VALUE in the run",
              true);
  add_real(wrong, "--gain-step-at", e.gain_step_at, "part of the run after which it does");
  add_buttons(wrong, "--gain-drift", e.gain_drifts,
              "gain that changes by the part VALUE from the first orbit to the last", true);
  add_real(wrong, "--pedestal-left", e.pedestal_left,
           "rms of pedestals that corrections do not know, in parts of --signal");
  add_real(wrong, "--cross-talk", e.cross_talk, "part of a channel that its two neighbours see");
  add_real(wrong, "--compression", e.compression,
           "loss of a large reading: this part of its excess over the centred signal");
  add_buttons(wrong, "--compressed", e.compressed, "the same for single buttons", true);
  add_buttons(wrong, "--stuck", e.stuck, "button that reads VALUE times its own centred signal",
              false);
  add_buttons(wrong, "--swapped", e.swapped, "button whose cable is exchanged with button VALUE's",
              true);
  // Of the full scale where there is one; else of a range that every usual reading fits into.
  add_whole(wrong, "--adc-bits", e.adc_bits,
            "steps of --full-scale (or twice --signal) over 2^N; 0: none");
  add_whole(wrong, "--outliers", e.outliers, "readings of a run with one button off");
  add_real(wrong, "--outlier-size", e.outlier_size, "by this part of --signal, up or down");
}

}  // namespace

std::shared_ptr<chamber_choice> add_machine(CLI::App& app, sim::machine& m) {
  auto choice = std::make_shared<chamber_choice>();
  add_chamber(app, *choice, m);
  add_beam(app, m.beam);
  add_electronics(app, m.electronics);
  // One seed for everything: each purpose and BPM has a stream of its own, so that one option more
  // does not change the numbers of the others.
  add_seed({&app}, "--seed", m.seed, "of all random numbers: the same seed, the same files");
  return choice;
}

void add_passages(CLI::App& app, sim::machine& m) {
  add_flag({&app}, "--passages", m.every_passage,
           "also write the truth of every passage, beside the truth");
}

void settle(sim::machine& m, const chamber_choice& choice) {
  if (choice.chamber.empty()) {
    refuse_if(sim::drawing_fault(choice.round));
    m.chamber = sim::round_chamber(choice.round);
    return;
  }
  // Names come before files: a file called own or bpm_arc is given as ./own.
  if (choice.chamber == "own") {
    m.source = sim::chamber_source::own;
    return;
  }
  m.source = sim::chamber_source::file;
  for (const auto& known : chamber_solver::default_chambers) {
    if (known.name != choice.chamber) continue;
    m.chamber = *chamber_solver::parse_chamber(known.text, std::string{known.name});
    return;
  }
  auto read = chamber_solver::read_chamber(util::fullfilename(choice.chamber));
  if (!read) give_up(util::line_of(read.why));
  m.chamber = std::move(*read);
}

}  // namespace options
