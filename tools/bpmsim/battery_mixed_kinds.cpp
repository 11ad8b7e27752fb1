// The kinds of the battery in which several things come together, as they do at a machine.
#include <fmt/format.h>

#include <numbers>

#include "kind_words.hpp"

namespace sim {
namespace {

// Slopes of a current are told by what they make over the usual half width of the motion.
constexpr double over_5_mm = 1 / (5 * mm);

// --- motions ------------------------------------------------------------------------------------

// A quarter of a turn between the planes: equal tunes then draw an ellipse and not a line.
void turning(battery_kind& k, double amplitude, double tune_x, double tune_y) {
  oscillation(k, amplitude);
  k.beam.x.tune = tune_x;
  k.beam.y.tune = tune_y;
  k.beam.y.phase = std::numbers::pi / 2;
}

// Motions that fill a curve, a few points, or a narrow band. Gains can be had from an area alone:
// on a curve the places can move along with the gains.
void add_resonances(kinds& all) {
  add(all, false, "mixed: one ellipse, 4 mm, at (3, 2) mm", [](battery_kind& k) {
    turning(k, 4, 0.31, 0.31);
    orbit(k, 3, 2);
  });
  add(all, false, "mixed: one ellipse, 5 by 1 mm, current drifts by 0.05", [](battery_kind& k) {
    turning(k, 5, 0.31, 0.31);
    k.beam.y.amplitude = 1 * mm;
    k.beam.current.drift = 0.05;
  });
  // 1 mm beside the ellipse makes an area of it.
  add(all, true, "mixed: ellipse of 4 mm and +-1 mm beside it", [](battery_kind& k) {
    turning(k, 4, 0.31, 0.31);
    motion(k, 1, 1);
  });
  // Three places in all, whatever the number of orbits: twelve mean readings for twelve unknowns
  // (six coordinates, three intensities, three ratios of gains), and nothing left to check them
  // with.
  add(all, false, "mixed: tunes of a third",
      [](battery_kind& k) { turning(k, 4, 1. / 3, 1. / 3); });
  // No more than twelve places, for the two patterns repeat together after so many turns; those of
  // the next kind after four.
  add(all, false, "mixed: tunes of a third and a quarter, at (3, -2) mm", [](battery_kind& k) {
    turning(k, 4, 1. / 3, 0.25);
    orbit(k, 3, -2);
  });
  add(all, false, "mixed: a half-integer and a quarter, pedestals of 0.002", [](battery_kind& k) {
    turning(k, 5, 0.5, 0.25);
    k.electronics.pedestal_left = 2e-3;
  });
  // A line with a tenth of it coupled is another line, with 0.1 mm beside it nearly one.
  add(all, false, "mixed: x alone, a tenth of it coupled, at (3, 2) mm", [](battery_kind& k) {
    motion(k, 5, 0);
    k.beam.coupling = 0.1;
    orbit(k, 3, 2);
  });
  add(all, false, "mixed: x alone, half of it coupled, +-0.1 mm beside", [](battery_kind& k) {
    motion(k, 5, 0.1);
    k.beam.coupling = 0.5;
    orbit(k, -4, 1);
  });
  // Between a line and an area.
  add(all, false, "mixed: +-5 by +-0.3 mm at (3, 2) mm", [](battery_kind& k) {
    motion(k, 5, 0.3);
    orbit(k, 3, 2);
  });
  add(all, false, "mixed: +-5 by +-1 mm at (0, 4) mm, pedestals of 0.001", [](battery_kind& k) {
    motion(k, 5, 1);
    orbit(k, 0, 4);
    k.electronics.pedestal_left = 1e-3;
  });
  // What is too small a motion off the axis will do at the centre with a tenth of the noise.
  add(all, false, "mixed: +-1 mm at (5, 3) mm", [](battery_kind& k) {
    motion(k, 1, 1);
    orbit(k, 5, 3);
  });
  add(all, true, "mixed: +-1 mm, noise 1e-5", [](battery_kind& k) {
    motion(k, 1, 1);
    k.electronics.noise = 1e-5;
  });
  add(all, false, "mixed: +-0.7 mm at (2, -1.5) mm, current drifts by 0.1", [](battery_kind& k) {
    motion(k, 0.7, 0.7);
    orbit(k, 2, -1.5);
    k.beam.current.drift = 0.1;
  });
  // Readings that follow the current tell of pedestals, and nothing of gains.
  add(all, false, "mixed: at rest, pedestals of 0.01, current halves", [](battery_kind& k) {
    motion(k, 0.01, 0.01);
    k.electronics.pedestal_left = 1e-2;
    k.beam.current.decay = 0.7;
  });
  // Eight mean readings for nine unknowns: two places, two intensities, three ratios of gains.
  add(all, false, "mixed: at rest in two places", [](battery_kind& k) {
    motion(k, 0.01, 0.01);
    k.beam.second = {.part = 0.5, .x = 3 * mm, .y = 2 * mm};
  });
}

// A kick that dies away, and other motions in stretches.
void add_stretches(kinds& all) {
  // Each about 0.6 of the one before: a damped oscillation in five steps.
  const std::vector<stretch> dying{
      {.motion = 1}, {.motion = 0.6}, {.motion = 0.36}, {.motion = 0.2}, {.motion = 0.1}};
  // Its first stretches hold the gains by themselves; the quiet rest must not spoil them.
  add(all, true, "mixed: kicked beam, 5 mm dying away", [&](battery_kind& k) {
    oscillation(k, 5);
    k.stretches = dying;
  });
  add(all, true, "mixed: kicked beam dying away at (5, 3) mm, 300 orbits", [&](battery_kind& k) {
    oscillation(k, 5);
    orbit(k, 5, 3);
    k.orbits = 300;
    k.stretches = dying;
  });
  add(all, false, "mixed: kicked in x alone, dying away at (3, 2) mm", [&](battery_kind& k) {
    oscillation(k, 5);
    k.beam.y.amplitude = 0;
    orbit(k, 3, 2);
    k.stretches = dying;
  });
  add(all, false, "mixed: kicked beam dying away, pedestals of 0.002", [&](battery_kind& k) {
    oscillation(k, 5);
    k.electronics.pedestal_left = 2e-3;
    k.stretches = dying;
  });
  // Both change at one moment: a current that follows the position, by a step and not by a slope.
  add(all, false, "mixed: the current steps to 0.9 as the orbit moves by 3 mm",
      [](battery_kind& k) {
        k.stretches = {{}, {.current = 0.9, .x = 3 * mm}};
      });
  add(all, false, "mixed: the current steps to 0.9, pedestals of 0.003", [](battery_kind& k) {
    k.stretches = {{}, {.current = 0.9}};
    k.electronics.pedestal_left = 3e-3;
  });
  // 1e-3 with 5 mm of orbit: nobody would see it in the current.
  add(all, false, "mixed: the orbit moves by (4, 3) mm with a current of 0.999",
      [](battery_kind& k) {
        k.stretches = {{}, {.current = 0.999, .x = 4 * mm, .y = 3 * mm}};
      });
  // Sets of one BPM have one set of gains, and pedestals each of its own.
  add(all, true, "mixed: two data sets, currents 1 and 0.7", [](battery_kind& k) {
    k.stretches = {{}, {.current = 0.7, .new_set = true}};
  });
  // Within the 3e-4 that are said to be known of pedestals; 2e-3 is not.
  add(all, true, "mixed: two data sets, pedestals of 0.0002 each", [](battery_kind& k) {
    k.stretches = {{}, {.new_set = true, .new_pedestals = true}};
    k.electronics.pedestal_left = 2e-4;
  });
  add(all, false, "mixed: two data sets, pedestals of 0.002 each", [](battery_kind& k) {
    k.stretches = {{}, {.new_set = true, .new_pedestals = true}};
    k.electronics.pedestal_left = 2e-3;
  });
  // At half the current the same counts are twice the part of the signal.
  add(all, false, "mixed: two data sets, pedestals of 0.001 each, currents 1 and 0.5",
      [](battery_kind& k) {
        k.stretches = {{}, {.current = 0.5, .new_set = true, .new_pedestals = true}};
        k.electronics.pedestal_left = 1e-3;
        orbit(k, 3, 2);
      });
  // Between the slope that passes (1e-4) and the one worth 3e-3 of a gain (3e-4); the orbit moves
  // from set to set, which makes a change of current between sets of it.
  add(all, false, "mixed: three data sets, the current follows x by 2e-4", [](battery_kind& k) {
    k.stretches = {{}, {.x = 2 * mm, .new_set = true}, {.y = 2 * mm, .new_set = true}};
    k.beam.current.slope_x = 2e-4 * over_5_mm;
  });
}

// --- few orbits, off the axis -------------------------------------------------------------------

// The fewer the orbits, the less a chi-square can accuse: a trouble hides in the noise, and the
// word must fall to weak of itself. 60 can do where nothing else is wrong.
void add_few_orbits(kinds& all) {
  for (const int n : {20, 25, 40, 60}) {
    add(all, false, fmt::format("mixed: {} orbits, +-3 mm, noise 3e-4", n), [&](battery_kind& k) {
      k.orbits = n;
      motion(k, 3, 3);
      k.electronics.noise = 3e-4;
    });
    add(all, false, fmt::format("mixed: {} orbits, pedestals of 0.001", n), [&](battery_kind& k) {
      k.orbits = n;
      k.electronics.pedestal_left = 1e-3;
      orbit(k, 2, -1.5);
    });
  }
  add(all, true, "mixed: 60 orbits at (3.2, 2.4) mm, current drifts by 0.05", [](battery_kind& k) {
    k.orbits = 60;
    orbit(k, 3.2, 2.4);
    k.beam.current.drift = 0.05;
  });
  add(all, false, "mixed: 40 orbits, a gain steps by 0.006 after 0.7", [](battery_kind& k) {
    k.orbits = 40;
    k.electronics.gain_steps = {{1, 3, 6e-3}};
    k.electronics.gain_step_at = 0.7;
  });
  add(all, false, "mixed: 30 orbits, current follows y by 3e-4", [](battery_kind& k) {
    k.orbits = 30;
    k.beam.current.slope_y = 3e-4 * over_5_mm;
  });
  // Three are few, and 6 % of the orbits: rules that count orbits and rules that count parts
  // differ.
  add(all, false, "mixed: 50 orbits, three of them off by 0.5 %", [](battery_kind& k) {
    k.orbits = 50;
    k.electronics.outliers = 3;
    k.electronics.outlier_size = 5e-3;
  });
  // Copies count as orbits and are none: errors would be told too small by the square root of two.
  add(all, false, "mixed: 100 orbits, half of them copies, noise 3e-4", [](battery_kind& k) {
    k.orbits = 100;
    k.beam.duplicated = 0.5;
    k.electronics.noise = 3e-4;
  });
  add(all, true, "mixed: orbit (-6, 5) mm, +-4 mm, 500 orbits", [](battery_kind& k) {
    orbit(k, -6, 5);
    motion(k, 4, 4);
    k.orbits = 500;
  });
  add(all, true, "mixed: orbit (0, -6) mm, Gaussian 3 mm, current decays by 0.3",
      [](battery_kind& k) {
        gaussian(k, 3);
        orbit(k, 0, -6);
        k.beam.current.decay = 0.3;
      });
  add(all, false, "mixed: orbit (12, 0) mm, +-5 mm, pedestals of 0.001", [](battery_kind& k) {
    orbit(k, 12, 0);
    k.electronics.pedestal_left = 1e-3;
  });
}

// --- currents and pedestals ---------------------------------------------------------------------

// Jitters from thirty times the noise to a third of the current, pedestals from three to ten times
// what is said to be known. The restless ones leave hardly a witness against the pedestals.
void add_current_and_pedestals(kinds& all) {
  for (const auto& [jitter, pedestal] : {std::pair{3e-3, 1e-3},
                                         {5e-3, 2e-3},
                                         {2e-2, 1e-3},
                                         {3e-2, 2e-3},
                                         {0.1, 1e-3},
                                         {0.1, 3e-3},
                                         {0.3, 3e-3}}) {
    const auto of = std::pair{jitter, pedestal};
    add(all, false,
        fmt::format("mixed: current jitters by {:g}, pedestals of {:g}, at (2, 2) mm", jitter,
                    pedestal),
        [&](battery_kind& k) {
          k.electronics.intensity_spread = of.first;
          k.electronics.pedestal_left = of.second;
          orbit(k, 2, 2);
        });
  }
  // Steps add up: 3e-3 an orbit is a tenth of the current over 1000 orbits.
  for (const double walk : {3e-4, 3e-3, 1e-2}) {
    add(all, false, fmt::format("mixed: current walks by {:g}, pedestals of 0.002", walk),
        [&](battery_kind& k) {
          k.beam.current.walk = walk;
          k.electronics.pedestal_left = 2e-3;
        });
  }
  add(all, false, "mixed: current walks by 0.001 and jitters by 0.001, pedestals of 0.002",
      [](battery_kind& k) {
        k.beam.current.walk = 1e-3;
        k.electronics.intensity_spread = 1e-3;
        k.electronics.pedestal_left = 2e-3;
      });
  add(all, false, "mixed: current walks by 0.001 and follows x by 3e-4", [](battery_kind& k) {
    k.beam.current.walk = 1e-3;
    k.beam.current.slope_x = 3e-4 * over_5_mm;
  });
  add(all, false, "mixed: current follows y by 2e-4, pedestals of 0.001", [](battery_kind& k) {
    // Each alone is seen: gains without the pedestals tell the slope, gains without the slope the
    // pedestals. Together they can move both alike.
    k.blind = true;
    k.beam.current.slope_y = 2e-4 * over_5_mm;
    k.electronics.pedestal_left = 1e-3;
    orbit(k, 3, 2);
  });
  // The jitter is three times what the slope makes of 5 mm: the currents alone do not show it.
  add(all, false, "mixed: current jitters by 0.003 and follows x by 1e-3", [](battery_kind& k) {
    k.electronics.intensity_spread = 3e-3;
    k.beam.current.slope_x = 1e-3 * over_5_mm;
  });
  // 1 % or 0.05 % of current between places 3.6 mm apart, which act as slopes of 1.4e-2 and 7e-4
  // over 5 mm.
  add(all, false, "mixed: two populations, currents 1 and 0.99", [](battery_kind& k) {
    k.beam.second = {.part = 0.4, .x = 3 * mm, .y = -2 * mm, .current = 0.99};
  });
  add(all, false, "mixed: two populations, currents 1 and 0.9995", [](battery_kind& k) {
    k.beam.second = {.part = 0.5, .x = 3 * mm, .y = -2 * mm, .current = 0.9995};
  });
  add(all, false, "mixed: two populations, currents 1 and 0.6, pedestals of 0.002",
      [](battery_kind& k) {
        k.beam.second = {.part = 0.5, .x = 2 * mm, .y = 2 * mm, .current = 0.6};
        k.electronics.pedestal_left = 2e-3;
      });
  // Shared noise acts as pedestals that are alike and change with every orbit.
  add(all, false, "mixed: noise of 1e-3 common to the buttons, pedestals of 0.001",
      [](battery_kind& k) {
        k.electronics.common_noise = 1e-3;
        k.electronics.pedestal_left = 1e-3;
      });
  add(all, false, "mixed: noise 0.003, pedestals of 0.003", [](battery_kind& k) {
    k.electronics.noise = 3e-3;
    k.electronics.pedestal_left = 3e-3;
  });
}

// --- electronics --------------------------------------------------------------------------------

// Faults of the readout, each beside something that makes it harder to see: few orbits, a current
// that changes, an orbit off the axis.
void add_bad_electronics(kinds& all) {
  add(all, false, "mixed: full scale at 1.1, Gaussian 3 mm, ADC of 14 bits", [](battery_kind& k) {
    gaussian(k, 3);
    k.electronics.full_scale = 1.1 * k.electronics.signal;
    k.electronics.adc_bits = 14;
  });
  add(all, false, "mixed: a button clipped at 1.25, 60 orbits", [](battery_kind& k) {
    k.orbits = 60;
    k.electronics.saturated = {{1, 4, 1.25}};
  });
  add(all, false, "mixed: a button clipped at 1.15 at (5, 3) mm, current decays by 0.4",
      [](battery_kind& k) {
        k.electronics.saturated = {{1, 1, 1.15}};
        orbit(k, 5, 3);
        k.beam.current.decay = 0.4;
      });
  // Steps of 10 bits are a thousandth of full scale, as large as these pedestals.
  add(all, false, "mixed: ADC of 10 bits, pedestals of 0.001", [](battery_kind& k) {
    k.electronics.adc_bits = 10;
    k.electronics.pedestal_left = 1e-3;
  });
  // 1 % is worth 1e-3 of a gain, 2e-3 at worst: these are half of it and twice.
  for (const double part : {5e-3, 2e-2}) {
    add(all, false,
        fmt::format("mixed: cross-talk of {:g} at (2, -1.5) mm, gains spread by 10 %", part),
        [&](battery_kind& k) {
          k.electronics.cross_talk = part;
          k.electronics.gain_spread = 0.1;
          orbit(k, 2, -1.5);
        });
  }
  add(all, false, "mixed: cross-talk of 0.02, 50 orbits", [](battery_kind& k) {
    k.electronics.cross_talk = 2e-2;
    k.orbits = 50;
  });
  add(all, false, "mixed: cross-talk of 0.02, current jitters by 0.01", [](battery_kind& k) {
    k.electronics.cross_talk = 2e-2;
    k.electronics.intensity_spread = 1e-2;
  });
  add(all, false, "mixed: buttons compressed by 0.03 at (5, 3) mm, current decays by 0.3",
      [](battery_kind& k) {
        k.electronics.compression = 3e-2;
        k.beam.current.decay = 0.3;
        orbit(k, 5, 3);
      });
  // Half of what is known to be noticed (1 %).
  add(all, false, "mixed: a button compressed by 0.005", [](battery_kind& k) {
    k.electronics.compressed = {{1, 2, 5e-3}};
  });
  add(all, false, "mixed: a button compressed by 0.01, 50 orbits at (3, 2) mm",
      [](battery_kind& k) {
        k.electronics.compressed = {{1, 4, 1e-2}};
        k.orbits = 50;
        orbit(k, 3, 2);
      });
  add(all, false, "mixed: a button compressed by 0.01, current jitters by 0.02",
      [](battery_kind& k) {
        k.electronics.compressed = {{1, 1, 1e-2}};
        k.electronics.intensity_spread = 2e-2;
      });
  // The other diagonal, so the mirror image of a sound BPM again; the next two exchange neighbours.
  add(all, false, "mixed: buttons 1 and 4 exchanged at (5, 3) mm", [](battery_kind& k) {
    k.electronics.swapped = {{1, 1, 4}};
    orbit(k, 5, 3);
  });
  add(all, false, "mixed: buttons 2 and 4 exchanged, 60 orbits", [](battery_kind& k) {
    k.electronics.swapped = {{1, 2, 4}};
    k.orbits = 60;
  });
  add(all, false, "mixed: buttons 3 and 4 exchanged, x alone moves", [](battery_kind& k) {
    k.electronics.swapped = {{1, 3, 4}};
    motion(k, 5, 0.2);
  });
  add(all, false, "mixed: a dead button, wild readings 0.02", [](battery_kind& k) {
    k.electronics.dead = {{1, 1}};
    k.electronics.wild = 0.02;
  });
  // Near its centred reading: nothing looks odd but that it never moves.
  add(all, false, "mixed: a stuck button, current jitters by 0.01", [](battery_kind& k) {
    k.electronics.stuck = {{1, 4, 1.02}};
    k.electronics.intensity_spread = 1e-2;
  });
  add(all, false, "mixed: wild readings 0.03, 60 orbits", [](battery_kind& k) {
    k.electronics.wild = 0.03;
    k.orbits = 60;
  });
  add(all, false, "mixed: 100 outliers of 0.3 %, at (5, 3) mm", [](battery_kind& k) {
    k.electronics.outliers = 100;
    k.electronics.outlier_size = 3e-3;
    orbit(k, 5, 3);
  });
  // Five times the noise: too small to be left out one by one.
  add(all, false, "mixed: 40 outliers of 0.05 %, pedestals of 0.001", [](battery_kind& k) {
    k.electronics.outliers = 40;
    k.electronics.outlier_size = 5e-4;
    k.electronics.pedestal_left = 1e-3;
  });
}

// Changes little above the error that counts, where the run is short, noisy, or its current
// restless.
void add_gain_changes(kinds& all) {
  add(all, false, "mixed: a gain drifts by 0.01, 100 orbits", [](battery_kind& k) {
    k.electronics.gain_drifts = {{1, 3, 1e-2}};
    k.orbits = 100;
  });
  // Against each other: what all four did alike would go to the intensities.
  add(all, false, "mixed: two gains drift by 0.004 and -0.004, current walks by 0.001",
      [](battery_kind& k) {
        k.electronics.gain_drifts = {{1, 1, 4e-3}, {1, 2, -4e-3}};
        k.beam.current.walk = 1e-3;
      });
  add(all, false, "mixed: a gain drifts by 0.004, current jitters by 0.03, at (3, 2) mm",
      [](battery_kind& k) {
        k.electronics.gain_drifts = {{1, 4, 4e-3}};
        k.electronics.intensity_spread = 3e-2;
        orbit(k, 3, 2);
      });
  // Early in the run: the orbits before the step are few, and could be taken for outliers.
  add(all, false, "mixed: a gain steps by 0.02 after 0.1 of the run", [](battery_kind& k) {
    k.electronics.gain_steps = {{1, 2, 2e-2}};
    k.electronics.gain_step_at = 0.1;
  });
  add(all, false, "mixed: a gain steps by 0.03 after 0.05 of the run", [](battery_kind& k) {
    k.electronics.gain_steps = {{1, 4, 3e-2}};
    k.electronics.gain_step_at = 0.05;
    orbit(k, 2, 1);
  });
  add(all, false, "mixed: a gain steps by 0.005, noise 1e-3", [](battery_kind& k) {
    k.electronics.gain_steps = {{1, 1, 5e-3}};
    k.electronics.noise = 1e-3;
  });
}

// --- chambers -----------------------------------------------------------------------------------

// Sound where the drawing alone is off, by no more than the calibration takes up in a round pipe.
// The others have a trouble beside it, or are drawn worse than that.
void add_wrong_chambers(kinds& all) {
  add(all, true, "mixed: ellipse, buttons 0.45 degrees off, at (3, 2) mm", [](battery_kind& k) {
    k.chamber = battery_chamber::ellipse;
    k.change.angle = 0.45 * degree;
    orbit(k, 3, 2);
  });
  add(all, true, "mixed: racetrack, buttons 10 % wider, at (2, -1.5) mm", [](battery_kind& k) {
    k.chamber = battery_chamber::racetrack;
    k.change.width = 1.1;
    orbit(k, 2, -1.5);
  });
  add(all, false, "mixed: ellipse, pedestals of 0.003 at (5, 3) mm", [](battery_kind& k) {
    k.chamber = battery_chamber::ellipse;
    k.electronics.pedestal_left = 3e-3;
    orbit(k, 5, 3);
  });
  add(all, false, "mixed: racetrack, current follows x by 3e-4, 100 orbits", [](battery_kind& k) {
    k.chamber = battery_chamber::racetrack;
    k.beam.current.slope_x = 3e-4 * over_5_mm;
    k.orbits = 100;
  });
  add(all, false, "mixed: buttons 1.5 degrees off and 20 % wider, pedestals of 0.001",
      [](battery_kind& k) {
        k.change.angle = 1.5 * degree;
        k.change.width = 1.2;
        k.electronics.pedestal_left = 1e-3;
        orbit(k, 4, 3);
      });
  add(all, false, "mixed: radius 5 % larger, 50 orbits at (5, 3) mm", [](battery_kind& k) {
    k.change.radius = 0.05;
    k.orbits = 50;
    orbit(k, 5, 3);
  });
  add(all, false, "mixed: ellipse of 3 %, a gain drifts by 0.005, at (3, 2) mm",
      [](battery_kind& k) {
        k.change.ellipse = 0.03;
        k.electronics.gain_drifts = {{1, 2, 5e-3}};
        orbit(k, 3, 2);
      });
}

}  // namespace

void add_mixed_kinds(kinds& all) {
  for (const auto add_some :
       {add_resonances, add_stretches, add_few_orbits, add_current_and_pedestals,
        add_bad_electronics, add_gain_changes, add_wrong_chambers}) {
    add_some(all);
  }
}

}  // namespace sim
